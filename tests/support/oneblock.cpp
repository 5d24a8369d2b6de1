// Inputs, type pins, the block, outputs.
#include "support/oneblock.h"

#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

namespace orvo::test {

std::unique_ptr<Design> oneBlock(Context *context, const std::string &type, const KeyedTexts &inputs,
                                 const KeyedTexts &params, const std::vector<const char *> &outputs) {
    const auto value = [context](const std::string &text) { return PureValueRef(Value::parse(text, context)); };
    auto design = std::make_unique<Design>(context);
    Model &top = *Model::create(*design, "top");
    Block &in = *Block::create(top, "in", A_INPUT_BLOCK);
    Block &block = *Block::create(top, "block", value(type));
    for (const auto &[key, text] : params) {
        block.setParam(value(key), ValueRef(value(text)));
    }
    int number = 100;
    for (const auto &[key, text] : inputs) {
        Block &pin = *Block::create(top, "pin" + std::to_string(number), A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value(testing::typeText(text))));
        pin.setParam(value("0"), *Wire::create(in, "i" + std::to_string(number++)));
        block.setParam(value(key), *Wire::create(pin, value("0")));
    }
    Block &out = *Block::create(top, "out", A_OUTPUT_BLOCK);
    number = 100;
    for (const char *key : outputs) {
        out.setParam(value("o" + std::to_string(number++)), *Wire::create(block, value(key)));
    }
    return design;
}

} // namespace orvo::test
