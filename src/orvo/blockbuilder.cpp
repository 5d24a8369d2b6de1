// Blocks in place of a block.
#include "orvo/blockbuilder.h"

#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/wire.h>

#include <string>
#include <vector>

namespace orvo::internal {

const MadeBlock &MadeBlock::set(const PureValueRef &key, const ValueRef &value) const {
    mBlock->setParam(key, value);
    return *this;
}

const MadeBlock &MadeBlock::set(const PureValueRef &key, int value) const {
    return set(key, ValueRef(NumberValue::get(value, mBlock->getContext())));
}

const MadeBlock &MadeBlock::type(const PureValueRef &key, const NumTypeSpec &type) const {
    return set(key, ValueRef(type.toValue(mBlock->getContext())));
}

const MadeBlock &MadeBlock::copy(const Block &from, std::initializer_list<const StaticString *> keys) const {
    for (const StaticString *key : keys) {
        if (const ValueRef value = from.getParam(*key)) {
            mBlock->setParam(*key, value);
        }
    }
    return *this;
}

const MadeBlock &MadeBlock::in(const PureValueRef &key, Wire &wire) const {
    mBlock->setParam(key, wire);
    return *this;
}

const MadeBlock &MadeBlock::in(int number, Wire &wire) const {
    return in(NumberValue::get(number, mBlock->getContext()), wire);
}

Wire &MadeBlock::out(const PureValueRef &key) const {
    Wire *wire = mBlock->getWire(key);
    return wire != nullptr ? *wire : *Wire::create(*mBlock, key);
}

Wire &BlockBuilder::input(const PureValueRef &key) const {
    const Port *port = mBlock.getPort(key);
    ORVO_ASSERT(port != nullptr, "a block is replaced that reads nothing at one of its ports");
    return *port->getWire();
}

Wire &BlockBuilder::input(int number) const { return input(NumberValue::get(number, mBlock.getContext())); }

MadeBlock BlockBuilder::create(const StaticString &type, const PureValueRef &name) const {
    Block &made = *Block::create(mBlock.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    return MadeBlock(made);
}

MadeBlock BlockBuilder::make(const StaticString &type, const char *word, std::initializer_list<int> numbers) const {
    Context *context = mBlock.getContext();
    std::vector<PureValueRef> name{mBlock.getName(), StringValue::get(word, context)};
    for (const int number : numbers) {
        name.push_back(NumberValue::get(number, context));
    }
    return create(type, PureTupleValue::get(name, context));
}

MadeBlock BlockBuilder::makeSuffixed(const StaticString &type, const char *word) const {
    return create(type, StringValue::get(mBlock.getName()->toString() + "_" + word, mBlock.getContext()));
}

MadeBlock BlockBuilder::constant(const char *word, const NumTypeSpec &type, int value) const {
    const MadeBlock made = make(A_CONST_BLOCK, word);
    made.type(A_CONST_TYPE, type).set(A_CONST_VALUE, value);
    return made;
}

MadeBlock BlockBuilder::cast(const PureValueRef &name, Wire &wire, const NumTypeSpec &wanted, Keep keep) const {
    const MadeBlock made = cast(name, wanted, keep);
    made.in(0, wire);
    return made;
}

MadeBlock BlockBuilder::cast(const PureValueRef &name, const NumTypeSpec &wanted, Keep keep) const {
    const MadeBlock made = create(A_CAST_BLOCK, name);
    made.type(A_CAST_OUTPUT_TYPE, wanted);
    if (keep == Keep::Bits) {
        made.set(A_CAST_MODE, A_CAST_MODE_REINTERP);
    } else {
        made.set(A_CAST_MODE, A_CAST_MODE_CONVERT);
        made.set(A_CAST_ROUNDING_MODE, A_ROUNDING_TRUNC);
        made.set(A_CAST_SATURATE_MODE, A_SATURATE_NONE);
    }
    return made;
}

Wire &BlockBuilder::converted(const char *word, Wire &wire, const NumTypeSpec &has, const NumTypeSpec &wanted,
                              Keep keep, std::initializer_list<int> numbers) const {
    if (has == wanted) {
        return wire;
    }
    Context *context = mBlock.getContext();
    std::vector<PureValueRef> name{mBlock.getName(), StringValue::get(word, context)};
    for (const int number : numbers) {
        name.push_back(NumberValue::get(number, context));
    }
    const MadeBlock made = cast(PureTupleValue::get(name, context), wire, wanted, keep);
    if (wanted.isFloat()) {
        made.copy(mBlock, {&A_FLOAT_ROUNDING_MODE, &A_FLOAT_SUBNORMALS});
    }
    return made;
}

Wire &BlockBuilder::pinned(const char *word, Wire &wire, const PureValueRef &type,
                           std::initializer_list<int> numbers) const {
    const MadeBlock made = make(A_TYPE_PIN_BLOCK, word, numbers);
    made.set(A_TYPE_PIN_TYPE, ValueRef(type)).in(0, wire);
    return made.out(NumberValue::get(0, mBlock.getContext()));
}

void BlockBuilder::replaceOutput(const PureValueRef &key, Wire &wire, const NumTypeSpec &has, const NumTypeSpec &wanted,
                                 Keep keep) const {
    Wire *old = mBlock.getWire(key);
    if (old == nullptr) {
        return;
    }
    if (has == wanted) {
        old->replace(wire);
        return;
    }
    Context *context = mBlock.getContext();
    const PureValueRef name =
        PureTupleValue::get(mBlock.getName(), StringValue::get("castBack", context), key, context);
    old->replace(cast(name, wire, wanted, keep));
}

void BlockBuilder::convertOutput(const PureValueRef &key, const char *word, const NumTypeSpec &wanted,
                                 Keep keep) const {
    Wire *wire = mBlock.getWire(key);
    if (wire == nullptr || wire->port_size() == 0) {
        return;
    }
    Context *context = mBlock.getContext();
    const MadeBlock made =
        cast(PureTupleValue::get(mBlock.getName(), StringValue::get(word, context), context), wanted, keep);
    wire->replace(made);
    made.in(0, *wire);
}

void BlockBuilder::replaceOutput(const PureValueRef &key, Wire &wire) const {
    if (Wire *old = mBlock.getWire(key)) {
        old->replace(wire);
    }
}

NumTypeSpec scalarOf(NumTypeSpec type) {
    type.stripVectors();
    type.setComplex(false);
    return type;
}

NumTypeSpec likeScalar(const NumTypeSpec &shape, const NumTypeSpec &scalar) {
    NumTypeSpec made = scalarOf(scalar);
    made.mergeDecors(shape);
    return made;
}

} // namespace orvo::internal
