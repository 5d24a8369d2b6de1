// What several unrollers of vectors ask of types and make beside a block.
#include "orvo/vectorunrollparts.h"

#include "orvo/unrollpasses.h"

#include <orvo/context.h>
#include <orvo/model.h>
#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>

namespace orvo::internal {

PureValueRef elementType(const PureValueRef &type, Context *context) {
    PureValueRef inner;
    const VectorDecorSpec vectors(type, inner, context);
    return inner;
}

PureValueRef belowOutermost(const PureValueRef &type, Context *context) {
    PureValueRef inner;
    VectorDecorSpec vectors(type, inner, context);
    if (vectors.isVector()) {
        vectors.removeVector();
    }
    return vectors.toValue(inner, context);
}

int outermostLength(const VectorDecorSpec &vectors) { return vectors.isVector() ? vectors.vectorLengthRev(0) : 0; }

PureValueRef named(const char *pattern, const PureValueRef &name, int number) {
    return StringValue::get(fmt::format(fmt::runtime(pattern), name->toString(), number),
                            ContextMgr::getThreadContext());
}

PureValueRef numberOf(std::size_t number) {
    return NumberValue::get(static_cast<int>(number), ContextMgr::getThreadContext());
}

Block &createBeside(const Block &beside, const PureValueRef &name, const StaticString &type) {
    Block &made = *Block::create(beside.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    return made;
}

Wire &widened(const Block &beside, const PureValueRef &name, Wire &wire, const PureValueRef &type) {
    Block &cast = createBeside(beside, name, A_CAST_BLOCK);
    cast.setParam(A_CAST_OUTPUT_TYPE, type);
    cast.setParam(A_CAST_SATURATE_MODE, A_SATURATE_NONE);
    cast.setParam(numberOf(0), wire);
    return *Wire::create(cast, A_PRIM_WIRE_OUT);
}

Wire &rewritten(const Block &beside, const PureValueRef &name, Wire &wire, const PureValueRef &type) {
    Block &pin = createBeside(beside, name, A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, type);
    pin.setParam(numberOf(0), wire);
    return *Wire::create(pin, numberOf(0));
}

void connectReaders(const std::vector<MaybePort> &readers, Wire &wire) {
    for (const MaybePort &reader : readers) {
        reader.setWire(wire);
    }
}

void copyPlainParams(Block &made, const Block &original) {
    for (auto param : Params(original)) {
        if (isTakenOver(param.first, param.second)) {
            made.setParam(param.first, param.second);
        }
    }
}

bool isOneOf(const PureValueRef &key, std::initializer_list<const StaticString *> keys) {
    return std::any_of(keys.begin(), keys.end(), [&](const StaticString *one) { return *one == key; });
}

bool isTagged(const TupleValueRef &tuple, const StaticString &tag) {
    return tuple && tuple->size() != 0 && tuple->at(0) == tag;
}

} // namespace orvo::internal
