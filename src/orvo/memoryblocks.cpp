// Type rules of memories, queues, counters and loops, and of what steers signals in time.
#include "orvo/typerules.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace orvo::internal {

namespace {

/// Merges the vectors of a present condition into `type`; an absent one is no condition.
template <class Api> void mergeBoolPort(Api &api, const PureValueRef &name, bool relaxed, NumTypeSpec &type) {
    if (hasPort(api, name)) {
        type.mergeVectors(boolPort(api, name, relaxed));
    }
}

template <class Api> void mergeAddressPort(Api &api, const PureValueRef &name, NumTypeSpec &type) {
    if (hasPort(api, name)) {
        type.mergeVectors(realFixedPort(api, name));
    }
}

/// The ends of one side of a dual memory.
struct MemorySide {
    const StaticString &type;
    const StaticString &data;
    const StaticString &address;
    const StaticString &writeEnable;
    const StaticString &read;
    const StaticString &wire;
};

class DualMemTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        const NumTypeSpec content = contentType(api);
        for (const MemorySide &side : {first(), second()}) {
            // Before the inputs, so that a loop through the address settles: without a content, whoever gives a type
            // gives all of it. A type of other dimensions tells that they come with the inputs.
            const NumTypeSpec given = paramType(api, side.type);
            if (given.vectorDepth() == 0 || !content.valid() || given.vectorDepth() == content.vectorDepth()) {
                setWire(api, side.wire, typeOn(content, given));
            }
        }
    }
    void inferForward(TypeInferAPI2 &api) const override {
        const bool relaxed = relaxesBools(api);
        const NumTypeSpec content = contentType(api);
        // The conditions of both sides are shared.
        NumTypeSpec shared = NumTypeSpec::boolean();
        for (const MemorySide &side : {first(), second()}) {
            mergeBoolPort(api, side.writeEnable, relaxed, shared);
            mergeBoolPort(api, side.read, relaxed, shared);
        }
        for (const MemorySide &side : {first(), second()}) {
            const bool hasData = hasPort(api, side.data);
            const NumTypeSpec data = portSpec(api, side.data);
            NumTypeSpec type = content;
            if (hasData) {
                type = content.valid() ? content : data;
                type.mergeDecors(data);
            }
            if (const NumTypeSpec given = paramType(api, side.type); given.valid()) {
                type = hasData ? onDecorsOf(type, given) : typeOn(content, given);
            }
            type.mergeVectors(shared);
            mergeAddressPort(api, side.address, type);
            setWire(api, side.wire, type);
        }
    }

  private:
    static NumTypeSpec onDecorsOf(const NumTypeSpec &held, NumTypeSpec given) {
        given.stripVectors();
        given.setComplex(false);
        given.mergeDecors(held);
        return given;
    }
    /// The given scalar on what the side holds; where one of them is not told, the other as it is.
    static NumTypeSpec typeOn(const NumTypeSpec &content, const NumTypeSpec &given) {
        return !given.valid() ? content : content.valid() ? onDecorsOf(content, given) : given;
    }
    static NumTypeSpec contentType(const TypeInferAPI2 &api) {
        // Its first element stands for all.
        return NumTypeSpec::fromFixedValue(api.getParam(A_DUAL_MEM_DATA), true);
    }
    static MemorySide first() {
        return {A_DUAL_MEM_TYPE_DATA1,     A_DUAL_MEM_PORT_DATA1, A_DUAL_MEM_PORT_ADDR1,
                A_DUAL_MEM_PORT_WRITE1_EN, A_DUAL_MEM_PORT_READ1, A_DUAL_MEM_WIRE_DATA1};
    }
    static MemorySide second() {
        return {A_DUAL_MEM_TYPE_DATA2,     A_DUAL_MEM_PORT_DATA2, A_DUAL_MEM_PORT_ADDR2,
                A_DUAL_MEM_PORT_WRITE2_EN, A_DUAL_MEM_PORT_READ2, A_DUAL_MEM_WIRE_DATA2};
    }
};

class LUTTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setPort(api, A_LUT_PORT_HIT_EN, NumTypeSpec::boolean());
        setWire(api, A_LUT_WIRE_EN_HIT, NumTypeSpec::boolean());
        setWire(api, A_LUT_WIRE_PURE_HIT, NumTypeSpec::boolean());
        NumTypeSpec type = NumTypeSpec::fromFixedValue(api.getParam(A_LUT_DATA));
        const NumTypeSpec given = paramType(api, A_LUT_TYPE);
        if (given.valid()) {
            const NumTypeSpec content = type;
            type = given;
            // A table of floats has no type by its values.
            if (content.valid()) {
                type.mergeDecors(content);
            }
        }
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

class SyncRegisterTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        const PureValueRef type(api.getParam(A_SYNC_REGISTER_DATA_TYPE));
        api.setPortType(A_SYNC_REGISTER_PORT_ICLK_DATA, type);
        api.setWireType(A_SYNC_REGISTER_WIRE_ICLK_DATA, type);
        api.setWireType(A_SYNC_REGISTER_WIRE_OCLK_DATA, type);
        setPort(api, A_SYNC_REGISTER_PORT_ICLK_ENABLE, NumTypeSpec::boolean());
        setWire(api, A_SYNC_REGISTER_WIRE_OCLK_VALID, NumTypeSpec::boolean());
    }
};

/// A signal of any type on further vectors; a record gets them in each field. Without vectors any type stands as it is.
PureValueRef mergeVectorsInto(const PureValueRef &type, const NumTypeSpec &vectors, Context *context) {
    if (vectors.valid() && vectors.vectorDepth() == 0) {
        return type;
    }
    const auto merged = [&](const PureValueRef &part) {
        NumTypeSpec spec(part, context);
        spec.mergeVectors(vectors);
        return PureValueRef(spec.toValue(context));
    };
    if (!vectors.valid() || !isAggregateType(type.get_ptr())) {
        return vectors.valid() ? merged(type) : PureValueRef();
    }
    AggregateTypeSpec record;
    record.beginAggregate();
    const AggregateTypeSpec fields(type);
    for (const PureValueRef &field : fields.types()) {
        if (!isAggregateType(field.get_ptr())) {
            record.addType(merged(field));
            continue;
        }
        AggregateTypeSpec inner;
        inner.beginAggregate();
        const AggregateTypeSpec parts(field);
        for (const PureValueRef &part : parts.types()) {
            inner.addType(merged(part));
        }
        record.addType(inner.toValue(context));
    }
    return record.toValue(context);
}

class FIFOTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        // Lanes come from the depth and from the conditions.
        NumTypeSpec lanes = NumTypeSpec::boolean();
        const NumTypeSpec depth = NumTypeSpec::fromFixedValue(api.getParam(A_FIFO_DEPTH));
        if (depth.valid()) {
            lanes.mergeVectors(depth);
        }
        const bool relaxed = relaxesBools(api);
        for (const StaticString *port : {&A_FIFO_PORT_WRITE_EN, &A_FIFO_PORT_READ_ACK, &A_FIFO_PORT_FLUSH}) {
            if (hasPort(api, *port) && !api.getPortType(*port)) {
                return; // it runs again when the condition is known
            }
            mergeBoolPort(api, *port, relaxed, lanes);
        }
        for (const StaticString *wire : {&A_FIFO_WIRE_VALID, &A_FIFO_WIRE_LOW, &A_FIFO_WIRE_HIGH}) {
            setWire(api, *wire, lanes);
        }
        if (const PureValueRef data = api.getPortType(A_FIFO_PORT_DATA)) {
            api.setWireType(A_FIFO_WIRE_DATA, mergeVectorsInto(data, lanes, contextOf(api)));
        }
    }
};

class FIFODelayTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec lanes = NumTypeSpec::boolean();
        mergeBoolPort(api, A_PORT_WRITE, true, lanes);
        mergeBoolPort(api, A_PORT_READY, true, lanes);
        if (const PureValueRef data = api.getPortType(A_FIFO_PORT_DATA)) {
            api.setWireType(A_FIFO_WIRE_DATA, mergeVectorsInto(data, lanes, contextOf(api)));
        }
        setWire(api, A_FIFO_WIRE_VALID, lanes);
    }
};

class SequenceTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        setWire(api, A_PRIM_WIRE_OUT, boolPort(api, A_PORT_ENABLE, relaxesBools(api)));
    }
};

/// The width of a counter that stays below each limit; a tuple of limits, rolled or not, makes lanes.
NumTypeSpec counterType(const ValueRef &limit) {
    const TupleValueRef lanes = tupleVR(limit);
    std::optional<std::int64_t> largest;
    const auto look = [&largest](const ValueRef &value) {
        const NumberValueRef number = numberVR(value);
        if (!number || !number->isInteger() || number->isSpecial() || number->getBitWidths().first > 62) {
            return false;
        }
        const std::int64_t count = number->toInt64(0);
        largest = largest ? std::max(*largest, count) : count;
        return true;
    };
    std::size_t count = 0;
    if (lanes) {
        const auto first = lanes->begin() + (lanes->size() != 0 && lanes->at(0) == A_VECTOR_ROLL_TAG ? 1 : 0);
        count = static_cast<std::size_t>(lanes->end() - first);
        if (count == 0 || !std::all_of(first, lanes->end(), look)) {
            return {};
        }
    } else if (!look(limit)) {
        return {};
    }
    NumTypeSpec type = NumTypeSpec::ufixed(bitWidth(static_cast<long>(*largest - 1)), 0);
    if (lanes) {
        type.addVector(static_cast<int>(count));
    }
    return type;
}

class CounterTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = counterType(api.getParam(A_COUNTER_LIMIT));
        mergeBoolPort(api, A_PORT_ENABLE, relaxesBools(api), type);
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

class LdCounterTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const bool relaxed = relaxesBools(api);
        // The count is an initial value or stays below the limit.
        NumTypeSpec type = fixedPort(api, 1);
        type.applyOp(fixedPort(api, 3), TYPE_OP_UNION);
        type.mergeVectors(fixedPort(api, 2));
        mergeBoolPort(api, numberKey(api, 0), relaxed, type);
        mergeBoolPort(api, A_PORT_ENABLE, relaxed, type);
        setWire(api, A_PRIM_WIRE_OUT, type);
    }

  private:
    static NumTypeSpec fixedPort(TypeInferAPI &api, int number) {
        NumTypeSpec type = portSpec(api, numberKey(api, number));
        type.requireFixed();
        return type;
    }
};

class LoopTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec boolean = NumTypeSpec::boolean();
        for (const StaticString *port : {&A_LOOP_PORT_GO, &A_LOOP_PORT_ENABLE}) {
            if (!relaxesBools(api) || !isUnknownOrRelaxed(api, *port)) {
                setPort(api, *port, boolean);
            }
        }
        setWire(api, A_LOOP_WIRE_VALID, boolean);
        inferVector(api);
        for (const Port &port : api.getBlock().ports()) {
            const PureTupleValueRef key = pureTupleVR(port.getName());
            if (!key || key->size() != 2 || !(key->at(0) == A_LOOP_PORT_LIMIT)) {
                continue;
            }
            NumTypeSpec limit = realFixedPort(api, port.getName());
            limit.requireScalar();
            if (limit.valid()) {
                setWire(api, wireKey(api, A_LOOP_WIRE_VALUE, key), limit);
                setWire(api, wireKey(api, A_LOOP_WIRE_FIRST_ITER, key), boolean);
                setWire(api, wireKey(api, A_LOOP_WIRE_LAST_ITER, key), boolean);
            }
        }
    }

  private:
    /// Whether a relaxed condition is left as it is. To set one that is still unknown would make it the type of all
    /// readers of the wire. One that no condition can be is set, which tells of the conflict.
    static bool isUnknownOrRelaxed(TypeInferAPI &api, const StaticString &name) {
        const PureValueRef value = api.getConnectedType(api.getPort(name));
        NumTypeSpec type(value, contextOf(api));
        type.requireBool(true);
        type.requireScalar();
        return !value || type.valid();
    }
    /// The limits of all levels in one vector.
    static void inferVector(TypeInferAPI &api) {
        if (!hasPort(api, A_LOOP_PORT_LIMIT)) {
            return;
        }
        const NumTypeSpec limits = realFixedPort(api, A_LOOP_PORT_LIMIT);
        if (limits.valid() && limits.vectorDepth() <= 1) {
            setWire(api, A_LOOP_WIRE_VALUE, limits);
            setWire(api, A_LOOP_WIRE_FIRST_ITER, booleanLike(limits));
            setWire(api, A_LOOP_WIRE_LAST_ITER, booleanLike(limits));
        }
    }
    static PureValueRef wireKey(TypeInferAPI &api, const StaticString &name, const PureTupleValueRef &portKey) {
        return PureTupleValue::get(name, portKey->at(1), contextOf(api));
    }
};

class ForLoopTypeHandler final : public TypeInferHandler2 {
  public:
    /// The flags are there before the inputs, which often come out of a loop that they steer.
    void inferStatic(TypeInferAPI2 &api) const override {
        for (const StaticString *wire : {&A_LOOP_WIRE_VALID, &A_LOOP_WIRE_FIRST_ITER, &A_LOOP_WIRE_LAST_ITER}) {
            setWire(api, *wire, NumTypeSpec::boolean());
        }
    }
    void inferForward(TypeInferAPI2 &api) const override {
        const bool relaxed = relaxesBools(api);
        NumTypeSpec flags = NumTypeSpec::boolean();
        mergeBoolPort(api, A_LOOP_PORT_GO, relaxed, flags);
        mergeBoolPort(api, A_LOOP_PORT_ENABLE, relaxed, flags);
        mergeBoolPort(api, numberKey(api, 2), relaxed, flags);
        NumTypeSpec count;
        bool isFirst = true;
        for (const PureValueRef &name : {numberKey(api, 0), numberKey(api, 1), PureValueRef(A_LOOP_PORT_LIMIT)}) {
            if (hasPort(api, name)) {
                const NumTypeSpec part = realFixedPort(api, name);
                count = isFirst ? part : NumTypeSpec::typeOp(count, part, TYPE_OP_UNION);
                isFirst = false;
            }
        }
        count.mergeVectors(flags);
        setWire(api, A_FOR_LOOP_WIRE_COUNT, count);
    }
};

/// The input's type on the control's vectors; a float accumulates as a float.
class FloatAccTypeHandler : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override { setWire(api, A_PRIM_WIRE_OUT, accumulated(api)); }

  protected:
    static NumTypeSpec accumulated(TypeInferAPI2 &api) {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        mergeBoolPort(api, numberKey(api, 1), false, type);
        return type;
    }
};

class AccTypeHandler final : public FloatAccTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        FloatAccTypeHandler::inferForward(api);
        const NumTypeSpec flags = booleanLike(accumulated(api));
        for (const StaticString *wire : {&A_ACC_WIRE_XOVERFLOW, &A_ACC_WIRE_XUNDERFLOW, &A_ACC_WIRE_OVERFLOW}) {
            setWire(api, *wire, flags);
        }
    }
};

class FloatMultAccTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type =
            NumTypeSpec::typeOp(portSpec(api, numberKey(api, 0)), portSpec(api, numberKey(api, 1)), TYPE_OP_MUL);
        type.requireFloat();
        mergeBoolPort(api, numberKey(api, 2), false, type);
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

class DecodeTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = NumTypeSpec::boolean();
        mergeAddressPort(api, A_DECODE_PORT_ADDR, type);
        mergeBoolPort(api, A_DECODE_PORT_WREN, relaxesBools(api), type);
        setWire(api, A_DECODE_WIRE_MATCH, type);
        setWire(api, A_DECODE_WIRE_WREN, type);
    }
};

class DemuxTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec valid = boolPort(api, A_PORT_VALID, relaxesBools(api));
        NumTypeSpec channel = realFixedPort(api, A_PORT_CHANNEL);
        valid.requireScalar();
        channel.requireScalar();
        const PureValueRef data = api.getPortType(A_DEMUX_PORT_DATA);
        if (!valid.valid() || !channel.valid() || !data) {
            return;
        }
        PureValueRef inner;
        const VectorDecorSpec vectors(data, inner, contextOf(api));
        for (NameEnumerator wires = api.getWireNames(); wires.next();) {
            api.setWireType(wires.get(), inner);
        }
    }
};

class FanoutTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        const PureValueRef type = api.getPortType(numberKey(api, 0));
        const int count = paramInt(api, A_FANOUT_OUTPUT_COUNT, INT32_MAX);
        for (NameEnumerator wires = api.getWireNames(); wires.next();) {
            const NumberValueRef number = numberVR(wires.get());
            if (number && number->isInt() && number->toInt() >= 0 && number->toInt() < count) {
                api.setWireType(wires.get(), type);
            }
        }
    }
};

const TypeRuleRow kRules[] = {
    ORVO_TYPE_RULE(A_DUAL_MEM_BLOCK, DualMemTypeHandler, "a side's type parameter, or the content's type"),
    ORVO_TYPE_RULE(A_LUT_BLOCK, LUTTypeHandler, "the type parameter, or the smallest type of the data"),
    ORVO_TYPE_RULE(A_SYNC_REGISTER_BLOCK, SyncRegisterTypeHandler, "the data type parameter"),
    ORVO_TYPE_RULE(A_FIFO_BLOCK, FIFOTypeHandler, "the data's type, on the lanes of depth and conditions"),
    ORVO_TYPE_RULE(A_FIFO_DELAY_BLOCK, FIFODelayTypeHandler, "the data's type, on the conditions' lanes"),
    ORVO_TYPE_RULE(A_SEQUENCE_BLOCK, SequenceTypeHandler, "the enable's type"),
    ORVO_TYPE_RULE(A_COUNTER_BLOCK, CounterTypeHandler, "an unsigned integer below the limit"),
    ORVO_TYPE_RULE(A_LD_COUNTER_BLOCK, LdCounterTypeHandler, "holds the initial value and the limit"),
    ORVO_TYPE_RULE(A_LOOP_BLOCK, LoopTypeHandler, "each count has its limit's type; flags are booleans"),
    ORVO_TYPE_RULE(A_FOR_LOOP_BLOCK, ForLoopTypeHandler, "holds initial value, step and limit; flags are booleans"),
    ORVO_TYPE_RULE(A_ACC_BLOCK, AccTypeHandler, "the data's type; flags are booleans"),
    ORVO_TYPE_RULE(A_FLOAT_MULTACC_BLOCK, FloatMultAccTypeHandler, "holds both float factors"),
    ORVO_TYPE_RULE(A_DECODE_BLOCK, DecodeTypeHandler, "booleans on the inputs' vectors"),
    ORVO_TYPE_RULE(A_DEMUX_BLOCK, DemuxTypeHandler, "the data's type without its vectors"),
    ORVO_TYPE_RULE(A_FANOUT_BLOCK, FanoutTypeHandler, "the input's type on every output"),
};

} // namespace

std::span<const TypeRuleRow> memoryTypeRules() { return kRules; }

} // namespace orvo::internal
