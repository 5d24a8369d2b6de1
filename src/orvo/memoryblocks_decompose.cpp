// Decompositions of demultiplexers and of registers between clock domains.
#include "orvo/decomposehandlers.h"

#include <orvo/logging.h>
#include <orvo/wire.h>

namespace orvo::internal {

namespace {

bool isRealFixedScalar(const PureValueRef &value) {
    const NumTypeSpec type(value, nullptr);
    return type.isFixed() && !type.isVector() && type.isReal() && type.fixedBits() >= 1;
}

/// Of each channel c, the data while valid and of the channel, else what was there in the last cycle:
///     decoder = decode(channel, valid, c),  pin = decoder ? data : feedback,  feedback = delay(pin),  out c = pin
/// The pin has the data's type, which a loop through a delay does not tell.
class DemuxDecomposeHandler final : public DecomposeCompositeHandler {
  public:
    /// Outputs of a vector are those of its elements, which has to come apart first. Controls that the block does not
    /// take leave its outputs without a type.
    bool applicable(GlobalTypeCache &cache) const override {
        Context *context = cache.getBlock().getContext();
        const PureValueRef data = cache.getTypePort(A_DEMUX_PORT_DATA);
        return data && !VectorDecorSpec(data, context).isVector() &&
               isRealFixedScalar(cache.getTypePort(A_PORT_CHANNEL)) &&
               isRealFixedScalar(cache.getTypePort(A_PORT_VALID)) && hasNumberedWires(cache, data);
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const PureValueRef type = query.getType(block.getPort(A_DEMUX_PORT_DATA), refChain);
        for (Wire &wire : block) {
            const int channel = numberVR(wire.getName())->toInt();
            const MadeBlock decoder = builder.make(A_DECODE_BLOCK, "decoder", {channel});
            decoder.set(A_DECODE_ADDRESS, channel).copy(block, {&A_PRIM_RELAX_BOOLS});
            decoder.in(A_DECODE_PORT_ADDR, builder.input(A_PORT_CHANNEL));
            decoder.in(A_DECODE_PORT_WREN, builder.input(A_PORT_VALID));
            const MadeBlock feedback = builder.make(A_DELAY_BLOCK, "feedback", {channel});
            const MadeBlock mux = builder.make(A_MUX_BLOCK, "mux", {channel});
            mux.in(A_MUX_PORT_SELECT, decoder.out(A_DECODE_WIRE_WREN));
            mux.in(0, feedback).in(1, builder.input(A_DEMUX_PORT_DATA));
            Wire &held = builder.pinned("typePin", mux, type, {channel});
            feedback.set(A_DELAY_LENGTH, 1).in(0, held);
            builder.replaceOutput(wire.getName(), held);
        }
        builder.done();
    }

  private:
    static bool hasNumberedWires(GlobalTypeCache &cache, const PureValueRef &data) {
        for (const Wire &wire : cache.getBlock()) {
            const NumberValueRef number = numberVR(wire.getName());
            if (!number || !number->isInt() || number->toInt() < 0 || cache.getTypeWire(wire.getName()) != data) {
                return false;
            }
        }
        return true;
    }
};

/// Where both clocks are the same:
///     data = register(input, enable),  enable = register(enable),  both through a boundary to the other side
/// The register has its types beforehand: the input is brought to the data's, where it has none a pin says it, and an
/// enable of more bits is compared with zero.
class SyncRegisterDecomposeHandler final : public DecomposeCompositeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override {
        const Block &block = cache.getBlock();
        const PureValueRef type = cache.getTypePort(A_SYNC_REGISTER_PORT_ICLK_DATA);
        const auto isOfType = [&](const StaticString &key) {
            return block.getWire(key) == nullptr || cache.getTypeWire(key) == type;
        };
        return block.getParam(A_SYNC_REGISTER_CLOCKS_SAME) == A_TRUE && type &&
               canBecome(cache.getTypeDriver(A_SYNC_REGISTER_PORT_ICLK_DATA), type) &&
               isRealFixedScalar(cache.getTypeDriver(A_SYNC_REGISTER_PORT_ICLK_ENABLE)) &&
               isOfType(A_SYNC_REGISTER_WIRE_ICLK_DATA) && isOfType(A_SYNC_REGISTER_WIRE_OCLK_DATA);
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        const BlockBuilder builder(block);
        const BlockTypes types(block, query, refChain);
        Context *context = block.getContext();
        Wire &enable = enableOf(builder, types);
        const MadeBlock data = builder.make(A_REGISTER_BLOCK, "data");
        data.in(0, dataOf(builder, types, query.getType(block.getPort(A_SYNC_REGISTER_PORT_ICLK_DATA), refChain)));
        data.in(A_REGISTER_PORT_ENABLE, enable);
        if (const ValueRef initial = block.getParam(A_SYNC_REGISTER_INIT_VALUE)) {
            data.set(A_REGISTER_INIT_VALUE, initial);
        }
        builder.replaceOutput(A_SYNC_REGISTER_WIRE_ICLK_DATA, data);
        const bool hasData = block.getWire(A_SYNC_REGISTER_WIRE_OCLK_DATA) != nullptr;
        const bool hasValid = block.getWire(A_SYNC_REGISTER_WIRE_OCLK_VALID) != nullptr;
        if (hasData || hasValid) {
            const MadeBlock boundary = builder.make(A_BOUNDARY_BLOCK, "boundary");
            if (hasData) {
                boundary.in(0, data);
                builder.replaceOutput(A_SYNC_REGISTER_WIRE_OCLK_DATA, boundary.out(NumberValue::get(0, context)));
            }
            if (hasValid) {
                boundary.in(1, builder.make(A_REGISTER_BLOCK, "enable").in(0, enable));
                builder.replaceOutput(A_SYNC_REGISTER_WIRE_OCLK_VALID, boundary.out(NumberValue::get(1, context)));
            }
        }
        builder.done();
    }

  private:
    /// Of other shapes, the block takes some lanes and parts and leaves others.
    static bool canBecome(const PureValueRef &given, const PureValueRef &wanted) {
        if (!given || given == wanted) {
            return static_cast<bool>(given);
        }
        const NumTypeSpec has(given, nullptr);
        const NumTypeSpec type(wanted, nullptr);
        return has.isFixed() && type.isFixed() && has.fixedBits() >= 1 && type.fixedBits() >= 1 &&
               likeScalar(has, type) == type;
    }
    static Wire &dataOf(const BlockBuilder &builder, const BlockTypes &types, const PureValueRef &type) {
        Wire &input = builder.input(A_SYNC_REGISTER_PORT_ICLK_DATA);
        const PureValueRef has = types.driver(A_SYNC_REGISTER_PORT_ICLK_DATA);
        if (has != type) {
            return builder.converted("taken", input, NumTypeSpec(has, nullptr), NumTypeSpec(type, nullptr));
        }
        return isTypedWithout(input, builder.block()) ? input : builder.pinned("typePin", input, type);
    }
    static Wire &enableOf(const BlockBuilder &builder, const BlockTypes &types) {
        Wire &input = builder.input(A_SYNC_REGISTER_PORT_ICLK_ENABLE);
        const NumTypeSpec has(types.driver(A_SYNC_REGISTER_PORT_ICLK_ENABLE), nullptr);
        Wire *enable = &input;
        if (has != NumTypeSpec::boolean()) {
            const MadeBlock isOn = builder.make(A_CMP_NE_BLOCK, "isEnabled").in(0, input);
            enable = &static_cast<Wire &>(isOn.in(1, builder.constant("zero", has, 0)));
        }
        return isTypedWithout(input, builder.block())
                   ? *enable
                   : builder.pinned("enablePin", *enable, NumTypeSpec::boolean().toValue(builder.block().getContext()));
    }
};

const DecomposeRow kRows[] = {
    {&A_DEMUX_BLOCK, decomposeHandler<DemuxDecomposeHandler>, "a decoder, a multiplexer and a delay a channel"},
    {&A_SYNC_REGISTER_BLOCK, decomposeHandler<SyncRegisterDecomposeHandler>, "of one clock: two registers"},
};

} // namespace

std::span<const DecomposeRow> memoryDecompositions() { return kRows; }

} // namespace orvo::internal
