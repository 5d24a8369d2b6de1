// Decompositions of demultiplexers and of registers between clock domains.
#include "orvo/decomposehandlers.h"

#include <orvo/logging.h>
#include <orvo/wire.h>

namespace orvo::internal {

namespace {

/// Of each channel c, the data while valid and of the channel, else what was there in the last cycle:
///     decoder = decode(channel, valid, c),  pin = decoder ? data : feedback,  feedback = delay(pin),  out c = pin
/// The pin has the data's type, which a loop through a delay does not tell.
class DemuxDecomposeHandler final : public DecomposeCompositeHandler {
  public:
    /// Outputs of a vector are those of its elements, which has to come apart first.
    bool applicable(GlobalTypeCache &cache) const override {
        Context *context = cache.getBlock().getContext();
        const PureValueRef data = cache.getTypePort(A_DEMUX_PORT_DATA);
        return data && !VectorDecorSpec(data, context).isVector() && isSelect(cache.getTypePort(A_PORT_CHANNEL)) &&
               isSelect(cache.getTypePort(A_PORT_VALID)) && hasNumberedWires(cache.getBlock());
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
            const MadeBlock pin = builder.make(A_TYPE_PIN_BLOCK, "typePin", {channel});
            pin.set(A_TYPE_PIN_TYPE, ValueRef(type)).in(0, mux);
            Wire &held = pin.out(NumberValue::get(0, block.getContext()));
            feedback.set(A_DELAY_LENGTH, 1).in(0, held);
            builder.replaceOutput(wire.getName(), held);
        }
        builder.done();
    }

  private:
    static bool isSelect(const PureValueRef &value) {
        const NumTypeSpec type(value, nullptr);
        return type.isFixed() && !type.isVector() && type.isReal();
    }
    static bool hasNumberedWires(const Block &block) {
        for (const Wire &wire : block) {
            const NumberValueRef number = numberVR(wire.getName());
            if (!number || !number->isInt() || number->toInt() < 0) {
                return false;
            }
        }
        return true;
    }
};

/// Where both clocks are the same:
///     data = register(input, enable),  enable = register(enable),  both through a boundary to the other side
class SyncRegisterDecomposeHandler final : public DecomposeCompositeHandler {
  public:
    bool applicable(GlobalTypeCache &cache) const override {
        const Block &block = cache.getBlock();
        const auto isKnown = [&](const StaticString &key) { return static_cast<bool>(cache.getTypePort(key)); };
        return block.getParam(A_SYNC_REGISTER_CLOCKS_SAME) == A_TRUE && isKnown(A_SYNC_REGISTER_PORT_ICLK_DATA) &&
               isKnown(A_SYNC_REGISTER_PORT_ICLK_ENABLE);
    }
    void decompose(Block &block, const CachedTypeQuery &, const RefChain &) const override {
        const BlockBuilder builder(block);
        Context *context = block.getContext();
        Wire &enable = builder.input(A_SYNC_REGISTER_PORT_ICLK_ENABLE);
        const MadeBlock data = builder.make(A_REGISTER_BLOCK, "data");
        data.in(0, builder.input(A_SYNC_REGISTER_PORT_ICLK_DATA)).in(A_REGISTER_PORT_ENABLE, enable);
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
};

const DecomposeRow kRows[] = {
    {&A_DEMUX_BLOCK, decomposeHandler<DemuxDecomposeHandler>, "a decoder, a multiplexer and a delay a channel"},
    {&A_SYNC_REGISTER_BLOCK, decomposeHandler<SyncRegisterDecomposeHandler>, "of one clock: two registers"},
};

} // namespace

std::span<const DecomposeRow> memoryDecompositions() { return kRows; }

} // namespace orvo::internal
