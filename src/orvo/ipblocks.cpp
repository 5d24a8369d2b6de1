// Type rules of the filters, mixers and oscillators, sized for the clock rate of their model.
#include "orvo/ipblocks.h"

#include "orvo/typerules.h"

#include <orvo/elementname.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <map>
#include <optional>

namespace orvo::internal {

namespace {

/// What a formula gives as a count or a width; 0 for nonsense.
int whole(double value) {
    return value >= 0 && value <= static_cast<double>(NumTypeSpec::kMaxWidth) ? static_cast<int>(value) : 0;
}

} // namespace

int CIC_DecimCalcOutputWidth(int inputWidth, int stages, int rate, int delay) {
    const double growth = std::log2(static_cast<double>(rate) * delay) * stages;
    return whole(growth + inputWidth + 0.999999999999);
}

double CIC_InterpCalcStageGain(int stages, int rate, int delay, int stage) {
    if (stage <= stages) {
        return std::exp2(stage);
    }
    return std::exp2(2.0 * stages - stage) * std::pow(static_cast<double>(rate) * delay, stage - stages) / rate;
}

int CIC_InterpCalcStageWidth(int inputWidth, int stages, int rate, int delay, int stage) {
    if (stage == stages && delay == 1) {
        return whole(static_cast<double>(inputWidth) + stages - 1);
    }
    return whole(inputWidth + std::ceil(std::log2(CIC_InterpCalcStageGain(stages, rate, delay, stage))));
}

int CIC_InterpCalcOutputWidth(int inputWidth, int stages, int rate, int delay) {
    return stages > INT_MAX / 2 ? 0 : CIC_InterpCalcStageWidth(inputWidth, stages, rate, delay, 2 * stages);
}

long CIC_DecimCalcGain(int stages, int rate, int delay) {
    long gain = 1;
    for (int i = 0; i < stages; ++i) {
        if (__builtin_mul_overflow(gain, static_cast<long>(rate) * delay, &gain)) {
            return std::numeric_limits<long>::max();
        }
        if (gain == 0 || gain == 1) {
            break;
        }
    }
    return gain;
}

double CIC_InterpCalcGain(int stages, int rate, int delay) {
    return CIC_InterpCalcStageGain(stages, rate, delay, 2 * stages);
}

int CIC_CalcPhysChanIn(double rate, double clock, int channels) {
    return whole(std::ceil(rate * channels / (clock + 1e-11)));
}

int CIC_CalcPhysChanOut(double clock, double rate, double factor, int channels, int physicalInputs) {
    const double folding = std::floor(clock * 1.000000000000001 / (rate * factor));
    const double needed = std::ceil(channels / std::max(folding, 1.0));
    return whole(std::ceil(needed / std::max(physicalInputs, 1)));
}

namespace {

template <class Api> double numberParam(const Api &api, const StaticString &key, double fallback) {
    const NumberValueRef number = numberVR(api.getParam(key));
    return number ? number->toDouble() : fallback;
}

double clockOf(const TypeInferAPI2 &api) {
    const NumberValueRef clock = numberVR(api.getModelParam(A_SYNTH_CLOCK_FREQ));
    return clock ? clock->toDouble() : 0;
}

/// Valid is a condition, a channel has 8 bits.
void setControls(TypeInferAPI2 &api) {
    setPort(api, A_PORT_VALID, NumTypeSpec::boolean());
    setWire(api, A_WIRE_VALID, NumTypeSpec::boolean());
    setPort(api, A_PORT_CHANNEL, NumTypeSpec::ufixed(8, 0));
    setWire(api, A_WIRE_CHANNEL, NumTypeSpec::ufixed(8, 0));
}

/// The controls of a memory-mapped interface that a block publishes.
void setBusControls(TypeInferAPI2 &api) {
    if (isParamTrue(api, A_BUS_EXPOSE)) {
        setPort(api, A_SARNET_MM_WRITE, NumTypeSpec::boolean());
        setPort(api, A_SARNET_MM_READ, NumTypeSpec::boolean());
        setWire(api, A_SARNET_MM_READDATAVALID, NumTypeSpec::boolean());
    }
}

bool isDataNumber(const PureValueRef &name, int count) {
    const NumberValueRef number = numberVR(name);
    return number && number->isInt() && number->toInt() >= 0 && number->toInt() < count;
}

/// The type of an element of a signal.
NumTypeSpec elementType(NumTypeSpec type, const ElementName &element) {
    if (element.levels != 0) {
        type.stripVectors();
    }
    if (element.isPart) {
        type.setComplex(false);
    }
    return type;
}

/// The type at a port; of a part of a complex number that of the number.
NumTypeSpec numberAt(TypeInferAPI2 &api, const PureValueRef &name) {
    NumTypeSpec type = portSpec(api, name);
    if (ElementName(name).isPart) {
        type.setComplex(true);
    }
    return type;
}

/// Sets a signal's type, and that of its elements on its lanes and parts.
template <class Is> void setWiresWhere(TypeInferAPI2 &api, const NumTypeSpec &type, Is isMeant) {
    for (NameEnumerator wires = api.getWireNames(); wires.next();) {
        const ElementName element(wires.get());
        if (isMeant(element.whole)) {
            setWire(api, wires.get(), elementType(type, element));
        }
    }
}

void setNumberedWires(TypeInferAPI2 &api, const NumTypeSpec &type, int count = INT_MAX) {
    setWiresWhere(api, type, [count](const PureValueRef &name) { return isDataNumber(name, count); });
}

void setDataWire(TypeInferAPI2 &api, const StaticString &data, const NumTypeSpec &type) {
    setWiresWhere(api, type, [&data](const PureValueRef &name) { return name == data; });
}

/// The numbered data of a block, whole and in elements, by number.
std::multimap<int, PureValueRef> dataPorts(const TypeInferAPI2 &api) {
    std::multimap<int, PureValueRef> ports;
    for (const Port &port : api.getBlock().ports()) {
        const PureValueRef whole = ElementName(port.getName()).whole;
        if (isDataNumber(whole, INT_MAX)) {
            ports.emplace(numberVR(whole)->toInt(), port.getName());
        }
    }
    return ports;
}

/// The type of numbered data, or that of its first lane where vectors came apart.
NumTypeSpec dataSpec(TypeInferAPI2 &api, int number) {
    const auto ports = dataPorts(api);
    const auto at = ports.lower_bound(number);
    return at == ports.end() || at->first != number ? NumTypeSpec() : numberAt(api, at->second);
}

/// Rules of blocks whose data is sized by parameters: the controls are known from the start.
class ChannelledTypeHandler : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override { setControls(api); }
};

class CICTypeHandler final : public ChannelledTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = dataSpec(api, 0);
        type.requireFixed();
        const int rate = paramInt(api, A_CIC_RATE_FACTOR, 1);
        const int stages = paramInt(api, A_CIC_STAGE_COUNT, 1);
        const int delay = paramInt(api, A_CIC_DELAY_COUNT, 1);
        const ValueRef kind = api.getParam(A_CIC_SCALE_TYPE);
        if (!type.valid() || rate < 1 || stages < 0 || delay < 1) {
            return;
        }
        const bool decimates = kind == A_CIC_SCALE_DECIM;
        if (!decimates && !(kind == A_CIC_SCALE_INTERP)) {
            return;
        }
        const int width = decimates ? CIC_DecimCalcOutputWidth(type.fixedBits(), stages, rate, delay)
                                    : CIC_InterpCalcOutputWidth(type.fixedBits(), stages, rate, delay);
        if (width < 1) {
            return;
        }
        type.setIntBits(width - type.fracBits());
        const int count = physicalOutputs(api, decimates ? 1.0 / rate : static_cast<double>(rate));
        setNumberedWires(api, type, count);
        if (count > 1) {
            type.addVector(count);
        }
        setDataWire(api, A_CIC_WIRE_DATA, type);
    }

  private:
    static int physicalOutputs(TypeInferAPI2 &api, double factor) {
        const double clock = clockOf(api);
        const double rate = numberParam(api, A_CIC_INPUT_RATE, 0);
        const int channels = paramInt(api, A_CIC_CHANNEL_COUNT, 1);
        if (!(clock > 0) || !(rate > 0) || channels < 1) {
            return 1;
        }
        const double finalDecimation = std::max(numberParam(api, A_CIC_FINAL_DECIM, 1), 1.0);
        const int inputs = std::max(CIC_CalcPhysChanIn(rate, clock, channels), 1);
        return std::max(CIC_CalcPhysChanOut(clock, rate, factor / finalDecimation, channels, inputs), 1);
    }
};

class FIRTypeHandler final : public ChannelledTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setControls(api);
        setBusControls(api);
        if (const TupleValueRef banks = banksOf(api)) {
            const auto count = static_cast<unsigned int>(std::min<std::size_t>(lengthOf(banks), INT_MAX));
            setPort(api, A_FIR_PORT_BANK, NumTypeSpec::ufixed(addrWidth(count), 0));
        }
    }
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = dataSpec(api, 0);
        type.requireFixed();
        NumTypeSpec coefficient = paramType(api, A_FIR_COEFS_TYPE);
        if (!coefficient.valid()) {
            coefficient = NumTypeSpec::fromFixedValue(api.getParam(A_FIR_COEFS));
        }
        const TupleValueRef taps = banksOf(api) ? tupleVR(banksOf(api)->at(isRolled(banksOf(api)) ? 1 : 0))
                                                : tupleVR(api.getParam(A_FIR_COEFS));
        const std::int64_t factor = std::max(paramInt(api, A_FIR_INTERP_FACTOR, 1), 1);
        if (!type.valid() || !coefficient.isFixed() || !taps || lengthOf(taps) == 0) {
            return;
        }
        const auto count = static_cast<std::int64_t>(lengthOf(taps));
        const std::int64_t rounded = (count + factor - 1) / factor * factor;
        const int growth = addrWidth(static_cast<unsigned int>((rounded - 1) / factor));
        type.setFixedBits(type.intBits() + coefficient.intBits() + growth, type.fracBits() + coefficient.fracBits());
        setNumberedWires(api, type);
    }

  private:
    static bool isRolled(const TupleValueRef &tuple) { return tuple->size() != 0 && tuple->at(0) == A_VECTOR_ROLL_TAG; }
    /// The elements, without the tag that may stand before them.
    static std::size_t lengthOf(const TupleValueRef &tuple) { return tuple->size() - (isRolled(tuple) ? 1 : 0); }
    /// The coefficients where there are several banks of them, a tuple of tuples; null for one bank, also of complex
    /// ones.
    static TupleValueRef banksOf(const TypeInferAPI2 &api) {
        const TupleValueRef coefficients = tupleVR(api.getParam(A_FIR_COEFS));
        const TupleValueRef first = coefficients && lengthOf(coefficients) != 0
                                        ? tupleVR(coefficients->at(isRolled(coefficients) ? 1 : 0))
                                        : TupleValueRef();
        const bool isBank = first && !(first->size() != 0 && first->at(0) == A_COMPLEX_ROLL_TAG);
        return isBank ? coefficients : TupleValueRef();
    }
};

class ScaleTypeHandler final : public ChannelledTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = paramType(api, A_SCALE_OUTPUT_TYPE);
        type.mergeVectors(dataSpec(api, 0));
        setNumberedWires(api, type);
        setDataWire(api, A_SCALE_WIRE_DATA, type);
        setWire(api, A_PRIM_WIRE_AUX, type.valid() ? NumTypeSpec::boolean() : NumTypeSpec());
    }
};

class MixerTypeHandler final : public ChannelledTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec data;
        NumTypeSpec oscillator;
        std::optional<int> first;
        // Data comes first, the oscillator's values behind it.
        for (const auto &[number, name] : dataPorts(api)) {
            first = first ? first : number;
            (number == first ? data : oscillator) = numberAt(api, name);
        }
        data.requireFixed();
        oscillator.requireFixed();
        NumTypeSpec type = NumTypeSpec::typeOp(data, oscillator, TYPE_OP_MUL);
        type.setSigned(true);
        setNumberedWires(api, type);
    }
};

class NCOTypeHandler final : public ChannelledTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setControls(api);
        setBusControls(api);
        setPort(api, A_NCO_PORT_BANK, NumTypeSpec::ufixed(8, 0));
        setWire(api, A_NCO_WIRE_BANK, NumTypeSpec::ufixed(8, 0));
        const int bits = paramInt(api, A_NCO_ACCUM_BIT_COUNT, 0);
        if (bits > 0 && bits <= NumTypeSpec::kMaxWidth) {
            for (NameEnumerator ports = api.getPortNames(); ports.next();) {
                if (ports.get()->kind() == CoreType::Number) {
                    setPort(api, ports.get(), NumTypeSpec::ufixed(bits, 0));
                }
            }
        }
        NumTypeSpec type = paramType(api, A_NCO_OUTPUT_TYPE);
        const double clock = clockOf(api);
        const int channels = clock > 0 ? CIC_CalcPhysChanIn(numberParam(api, A_NCO_OUTPUT_RATE, 0), clock, 1) : 1;
        if (channels > 1) {
            type.addVector(channels);
        }
        setDataWire(api, A_NCO_WIRE_COS, type);
        setDataWire(api, A_NCO_WIRE_SIN, type);
    }
};

/// Data by number.
class ThroughTypeHandler : public ChannelledTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setControls(api);
        setPort(api, A_PORT_READY, NumTypeSpec::boolean());
    }
    void inferForward(TypeInferAPI2 &api) const override {
        for (const auto &[number, name] : dataPorts(api)) {
            api.setWireType(name, api.getPortType(name));
        }
    }
};

class ChanViewTypeHandler final : public ThroughTypeHandler {};
class SharedFifoTypeHandler final : public ThroughTypeHandler {};

const TypeRuleRow kRules[] = {
    ORVO_TYPE_RULE(A_CIC_BLOCK, CICTypeHandler, "the data with the growth of the filter"),
    ORVO_TYPE_RULE(A_FIR_BLOCK, FIRTypeHandler, "data times coefficient with the growth of the taps"),
    ORVO_TYPE_RULE(A_SCALE_BLOCK, ScaleTypeHandler, "the output type parameter on the data's vectors"),
    ORVO_TYPE_RULE(A_MIXER_BLOCK, MixerTypeHandler, "the signed product of data and oscillator"),
    ORVO_TYPE_RULE(A_NCO_BLOCK, NCOTypeHandler, "the output type parameter; phases are unsigned"),
    ORVO_TYPE_RULE(A_CHANVIEW_BLOCK, ChanViewTypeHandler, "the data's types by number"),
    ORVO_TYPE_RULE(A_SHARED_FIFO_BLOCK, SharedFifoTypeHandler, "the data's types by number"),
};

} // namespace

std::span<const TypeRuleRow> ipTypeRules() { return kRules; }

} // namespace orvo::internal
