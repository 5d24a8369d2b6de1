// Builds a block out of a row and compares its types.
#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <cctype>

namespace orvo::testing {

namespace {

/// A reader of the short form by descent.
class ShortForm {
  public:
    explicit ShortForm(const std::string &text) : mText(text) {}
    std::string read() {
        skip();
        if (take('[')) {
            const std::string length = number();
            take(']');
            return "(typeVector " + length + " " + read() + ")";
        }
        if (take('{')) {
            std::string fields = "(typeAggregate";
            while (!take('}')) {
                fields += " " + read();
                skip();
                take(',');
            }
            return fields + ")";
        }
        const std::string word = letters();
        if (word == "c") {
            return "(typeComplex " + read() + ")";
        }
        if (word == "float" || word == "fplib") {
            take('(');
            const std::string significand = number();
            take(',');
            const std::string exponent = number();
            take(')');
            return (word == "float" ? "(typeSFloatIEEE " : "(typeSFloatFPLib ") + significand + " " + exponent + ")";
        }
        const std::string intBits = number();
        take('.');
        return (word == "s" ? "(typeSFixed " : "(typeUFixed ") + intBits + " " + number() + ")";
    }

  private:
    void skip() {
        while (mAt < mText.size() && mText[mAt] == ' ') {
            ++mAt;
        }
    }
    bool take(char c) {
        skip();
        const bool hit = mAt < mText.size() && mText[mAt] == c;
        mAt += hit ? 1 : 0;
        return hit;
    }
    std::string letters() {
        std::string word;
        while (mAt < mText.size() && std::isalpha(static_cast<unsigned char>(mText[mAt])) != 0) {
            word += mText[mAt++];
        }
        return word;
    }
    std::string number() {
        std::string digits;
        while (mAt < mText.size() && (std::isdigit(static_cast<unsigned char>(mText[mAt])) != 0 || mText[mAt] == '-')) {
            digits += mText[mAt++];
        }
        return digits;
    }
    const std::string &mText;
    std::size_t mAt = 0;
};

struct Listener final : ContextListener {
    void onMessage(int, const char *tag, const log::LogParams &) override { tags += std::string(" ") + tag; }
    std::string tags;
};

void checkCase(const TypeCase &row) {
    ContextMgr guard;
    Context *context = guard.context();
    Listener listener;
    context->setListener(&listener);
    const auto value = [context](const std::string &text) {
        ValueRef read = Value::parse(text, context);
        EXPECT_TRUE(read) << "not a value: " << text;
        return read;
    };
    Design design(context);
    Model &model = *Model::create(design, "m");
    Block &block = *Block::create(model, "block");
    block.setParam(A_BLOCK_TYPE, value(row.block));
    for (const auto &[key, text] : row.params) {
        block.setParam(PureValueRef(value(key)), value(text));
    }
    for (const auto &[key, text] : row.modelParams) {
        model.setParam(PureValueRef(value(key)), value(text));
    }
    int number = 0;
    for (const auto &[key, type] : row.inputs) {
        Block &source = *Block::create(model, "source" + std::to_string(number++));
        if (*type != '\0') {
            source.setParam(A_BLOCK_TYPE, A_TYPE_PIN_BLOCK);
            source.setParam(A_TYPE_PIN_TYPE, value(typeText(type)));
        }
        block.setParam(PureValueRef(value(key)), *Wire::create(source, A_PRIM_WIRE_OUT));
    }
    for (const auto &[key, type] : row.outputs) {
        Wire::create(block, PureValueRef(value(key)));
    }
    for (const auto &[key, type] : row.pinned) {
        const PureValueRef name(value(key));
        Wire *wire = block.getWire(name) != nullptr ? block.getWire(name) : Wire::create(block, name);
        Block &pin = *Block::create(model, "pin" + std::to_string(number++), A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, value(typeText(type)));
        pin.setParam(PureValueRef(value("0")), *wire);
    }
    GlobalTypePass types;
    const auto check = [&](const char *what, const char *key, const PureValueRef &found, const char *type) {
        const PureValueRef wanted = *type == '\0' ? PureValueRef() : PureValueRef(value(typeText(type)));
        EXPECT_TRUE(found == wanted) << row.name << ", " << what << " " << key << ": " << readableType(found.get_ptr())
                                     << " in place of " << (*type == '\0' ? "?" : type);
    };
    for (const auto &[key, type] : row.outputs) {
        check("wire", key, types.getType(block.getWire(PureValueRef(value(key))), {}), type);
    }
    for (const auto &[key, type] : row.ports) {
        check("port", key, types.getType(block.getPort(PureValueRef(value(key))), {}), type);
    }
    EXPECT_EQ(!listener.tags.empty(), row.conflicts) << row.name << ":" << listener.tags;
    context->setListener(nullptr);
}

} // namespace

std::string typeText(const std::string &shortForm) { return ShortForm(shortForm).read(); }

void checkTypes(const std::vector<TypeCase> &cases) {
    for (const TypeCase &row : cases) {
        checkCase(row);
    }
}

} // namespace orvo::testing
