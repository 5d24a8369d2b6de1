// Type rules of the arithmetic, logic and bit-level blocks.
#include "orvo/typerules.h"

#include <orvo/constmulttype.h>

#include <algorithm>
#include <vector>

namespace orvo::internal {

namespace {

/// The result of an old-style rule over numbered inputs.
void setOut(TypeInferAPI &api, const NumTypeSpec &type) { setWire(api, A_PRIM_WIRE_OUT, type); }

bool anyFloatInput(TypeInferAPI &api) {
    bool found = false;
    forNumberedPorts(api.getBlock(), [&](int, const Port &port) {
        found = found || NumTypeSpec(api.getConnectedType(port), contextOf(api)).isFloat();
    });
    return found;
}

/// The numbered inputs in order; nothing unless all are valid.
std::vector<NumTypeSpec> numberedInputs(TypeInferAPI &api) {
    std::vector<NumTypeSpec> types;
    bool allValid = true;
    forNumberedPorts(api.getBlock(), [&](int, const Port &port) {
        types.emplace_back(api.getConnectedType(port), contextOf(api));
        allValid = allValid && types.back().valid();
    });
    if (!allValid) {
        types.clear();
    }
    return types;
}

class WidestTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setOut(api, accumInputs(api, ACCUM_UNION)); }
};

class LogicalTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setOut(api, accumInputs(api, ACCUM_COMMON)); }
};

class LogicalReduceTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        type.setFixedBits(1, 0);
        setOut(api, type);
    }
};

class BitJoinTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setOut(api, accumInputs(api, ACCUM_BITJOIN)); }
};

class BitJoinReduceTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const PureValueRef value = api.getConnectedType(api.getPort(numberKey(api, 0)));
        NumTypeSpec type(value, contextOf(api));
        if (!type.isVector()) {
            setOut(api, type);
            return;
        }
        type.requireFixed();
        const std::size_t lanes = VectorDecorSpec(value, contextOf(api)).elementCount();
        const auto most = static_cast<std::size_t>(NumTypeSpec::kMaxWidth);
        const int bits = type.fixedBits();
        if (bits < 1 || lanes > most / static_cast<std::size_t>(bits)) {
            return;
        }
        type.stripVectors();
        type.setFixedBits(static_cast<int>(lanes) * bits, 0);
        setOut(api, type);
    }
};

/// Input and output are of one type, whichever is known.
class UnaryIdentityTypeHandler : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { exchange(api); }

  protected:
    static void exchange(TypeInferAPI &api) {
        const Port *port = api.getPort(numberKey(api, 0));
        const Wire *wire = api.getWire(A_PRIM_WIRE_OUT);
        if (const PureValueRef type = api.getConnectedType(port)) {
            api.setType(wire, type);
        } else {
            api.setType(port, api.getConnectedType(wire));
        }
    }
};

/// What computes has no meaning for a record, which finds no type here.
class UnaryNumberTypeHandler final : public UnaryIdentityTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        if (takesNumbers(api.getConnectedType(api.getPort(numberKey(api, 0)))) &&
            takesNumbers(api.getConnectedType(api.getWire(A_PRIM_WIRE_OUT)))) {
            exchange(api);
        }
    }

  private:
    static bool takesNumbers(const PureValueRef &type) {
        if (!type) {
            return true;
        }
        PureValueRef element;
        const VectorDecorSpec vectors(type, element, nullptr);
        return !isAggregateType(element.get_ptr());
    }
};

class RegisterTypeHandler final : public UnaryIdentityTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        exchange(api);
        boolPort(api, A_REGISTER_PORT_ENABLE, true);
    }
};

class NegateTypeHandler final : public UnaryIdentityTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        if (type.isFixed()) {
            type.applyOp(NumTypeSpec(type), TYPE_OP_ADD);
            setOut(api, type);
            return;
        }
        const NumTypeSpec out(api.getConnectedType(api.getWire(A_PRIM_WIRE_OUT)), contextOf(api));
        if (type.isFloat() || out.isFloat()) {
            exchange(api);
        }
    }
};

class AbsTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        if (type.isFixed()) {
            type.setIntBits(type.intBits() + 1);
        }
        setOut(api, type);
    }
};

/// A boolean on the vectors of both operands.
void setComparison(TypeInferAPI &api, const NumTypeSpec &a, const NumTypeSpec &b, const NumTypeSpec *select) {
    NumTypeSpec type = NumTypeSpec::boolean();
    type.mergeVectors(a);
    type.mergeVectors(b);
    if (select != nullptr) {
        type.mergeVectors(*select);
    }
    setOut(api, type);
}

class EqualityTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        setComparison(api, portSpec(api, numberKey(api, 0)), portSpec(api, numberKey(api, 1)), nullptr);
    }
};

NumTypeSpec realPort(TypeInferAPI &api, int number) {
    NumTypeSpec type = portSpec(api, numberKey(api, number));
    type.requireReal();
    return type;
}

class CompareTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        setComparison(api, realPort(api, 0), realPort(api, 1), nullptr);
    }
};

class CompareCtrlTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec select = realFixedPort(api, A_COMPARE_PORT_SELECT);
        setComparison(api, realPort(api, 0), realPort(api, 1), &select);
    }
};

class AddTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        std::vector<NumTypeSpec> types = numberedInputs(api);
        if (types.empty()) {
            return;
        }
        NumTypeSpec type;
        if (std::any_of(types.begin(), types.end(), [](const NumTypeSpec &t) { return t.isFloat(); })) {
            type = accumInputs(api, ACCUM_UNION_FLOAT);
        } else if (isParamTrue(api, A_ADD_NO_GROWTH)) {
            type = accumInputs(api, ACCUM_UNION);
        } else {
            type = sumOfTree(std::move(types));
        }
        overrideType(type, paramType(api, A_ADD_TYPE));
        setOut(api, type);
    }

  private:
    struct IntBitCmp {
        bool operator()(const NumTypeSpec &a, const NumTypeSpec &b) const { return a.intBits() < b.intBits(); }
    };
    /// Narrow inputs meet narrow ones first, which makes the sum narrower than taking them in port order would.
    static NumTypeSpec sumOfTree(std::vector<NumTypeSpec> types) {
        std::stable_sort(types.begin(), types.end(), IntBitCmp());
        while (types.size() > 1) {
            std::vector<NumTypeSpec> next;
            next.reserve((types.size() + 1) / 2);
            for (std::size_t i = 0; i < types.size(); i += 2) {
                next.push_back(i + 1 < types.size() ? NumTypeSpec::typeOp(types[i], types[i + 1], TYPE_OP_ADD)
                                                    : std::move(types[i]));
            }
            types = std::move(next);
        }
        return std::move(types.front());
    }
};

class SubtractTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        if (numberedInputs(api).empty()) {
            return;
        }
        NumTypeSpec type = accumInputs(api, anyFloatInput(api)                  ? ACCUM_UNION_FLOAT
                                            : isParamTrue(api, A_ADD_NO_GROWTH) ? ACCUM_UNION
                                                                                : ACCUM_ADD_SIGNED);
        overrideType(type, paramType(api, A_ADD_TYPE));
        setOut(api, type);
    }
};

class MultiplyTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = accumInputs(api, ACCUM_MUL);
        overrideType(type, paramType(api, A_MULT_TYPE));
        setOut(api, type);
    }
};

class AddReduceTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = accumInputs(api, ACCUM_UNION);
        int length = 0;
        int ports = 0;
        forNumberedPorts(api.getBlock(), [&ports](int, const Port &) { ++ports; });
        if (ports > 1) {
            length = ports;
        } else if (type.isVector()) {
            length = type.removeVector();
        }
        const TypeOp op = isParamTrue(api, A_ADD_NO_GROWTH) ? TYPE_OP_UNION : TYPE_OP_ADD;
        // The bit length of the number of terms: one bit more than a balanced tree needs at a power of two, as margin.
        for (; length > 0; length >>= 1) {
            type.applyOp(NumTypeSpec(type), op);
        }
        setOut(api, type);
    }
};

class AddSubTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec a = portSpec(api, numberKey(api, 0));
        const NumTypeSpec b = portSpec(api, numberKey(api, 1));
        NumTypeSpec type = NumTypeSpec::typeOp(a, b, TYPE_OP_ADD);
        type.applyOp(NumTypeSpec::typeOp(a, b, TYPE_OP_SUB), TYPE_OP_UNION);
        type.mergeVectors(realFixedPort(api, A_ADDSUB_PORT_SELECT));
        setOut(api, type);
    }
};

class AddSubFusedTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec type = accumInputs(api, anyFloatInput(api) ? ACCUM_UNION_FLOAT : ACCUM_ADD_SIGNED);
        setOut(api, type);
        setWire(api, A_PRIM_WIRE_AUX, type);
    }
};

class AddSloadTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type =
            NumTypeSpec::typeOp(portSpec(api, numberKey(api, 0)), portSpec(api, numberKey(api, 1)), TYPE_OP_ADD);
        type.mergeVectors(realFixedPort(api, A_ADD_SLOAD_PORT_LOAD_CTRL));
        type.applyOp(portSpec(api, A_ADD_SLOAD_PORT_LOAD_VALUE), TYPE_OP_UNION);
        setOut(api, type);
    }
};

class MinMaxTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type =
            NumTypeSpec::typeOp(portSpec(api, numberKey(api, 0)), portSpec(api, numberKey(api, 1)), TYPE_OP_ADD);
        type.mergeVectors(realFixedPort(api, A_MINMAX_PORT_SELECT));
        setOut(api, type);
    }
};

/// An unsigned integer that counts up to the bits of a fixed-point input.
void setBitCount(TypeInferAPI &api, NumTypeSpec type) {
    if (type.isFixed() && type.fixedBits() >= 0) {
        type.setToFixed(false, bitWidthU(static_cast<unsigned int>(type.fixedBits())), 0);
        setOut(api, type);
    }
}

class BitCountTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setBitCount(api, realFixedPort(api, numberKey(api, 0))); }
};

/// The ceiling of the logarithm of a width plus one is the bit length of the width.
class UnaryCTPOPTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setBitCount(api, portSpec(api, numberKey(api, 0))); }
};

class RoundTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        type.requireFixed();
        const int bits = paramInt(api, A_ROUND_BITS, 0);
        if (!type.valid() || std::abs(std::int64_t{bits}) > NumTypeSpec::kMaxWidth) {
            return;
        }
        const bool carries = bits >= 1 && api.getBlock().type() != A_TRUNCATE_BLOCK.get_ptr();
        const int frac = type.fracBits() - bits;
        const int total = type.fixedBits() - bits + (carries ? 1 : 0);
        type.setFixedBits(total - frac, frac);
        setOut(api, type);
    }
};

class ConstTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setOut(api, typeOfConstant(api.getBlock())); }
};

class DivideTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec a = portSpec(api, numberKey(api, 0));
        const NumTypeSpec b = portSpec(api, numberKey(api, 1));
        if (!a.valid() || !b.valid()) {
            return;
        }
        if (a.isFloat() || b.isFloat()) {
            setOut(api, NumTypeSpec::typeOp(a, b, TYPE_OP_UNION));
            return;
        }
        NumTypeSpec type = quotient(api, a, b);
        const NumTypeSpec given = paramType(api, A_DIVIDE_TYPE);
        if (given.isFixed()) {
            type = given;
            type.stripVectors();
            type.setComplex(false);
        }
        type.mergeVectors(a);
        type.mergeVectors(b);
        setOut(api, type);
    }

  private:
    /// Without vectors, but for those of the dividend of integers.
    static NumTypeSpec quotient(TypeInferAPI &api, const NumTypeSpec &a, const NumTypeSpec &b) {
        if (isParamTrue(api, A_INT_DIVIDER)) {
            return a.scalarEquals(b) && a.fracBits() == 0 ? a : NumTypeSpec();
        }
        const bool isSigned = a.isSigned() || b.isSigned();
        const std::int64_t total = std::int64_t{a.fixedBits()} + b.fixedBits() + (isSigned ? 1 : 0);
        const std::int64_t frac = std::int64_t{a.fracBits()} + b.fixedBits() - b.fracBits();
        if (total > NumTypeSpec::kMaxWidth || std::abs(frac) > NumTypeSpec::kMaxWidth) {
            return {};
        }
        return NumTypeSpec::fixed(isSigned, static_cast<int>(total - frac), static_cast<int>(frac));
    }
};

class ModMultTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = NumTypeSpec::fromFixedValue(api.getParam(A_MOD_MULT_MODULUS_VALUE));
        if (!type.isFixed() || type.isSigned() || type.fracBits() > 0 || type.isVector() || type.isComplex()) {
            return;
        }
        type.setFixedBits(std::max(type.intBits(), 1), 0);
        for (int number : {0, 1}) {
            NumTypeSpec operand = realFixedPort(api, numberKey(api, number));
            if (operand.isSigned() || operand.fracBits() != 0) {
                operand.invalidate();
            }
            type.mergeVectors(operand);
        }
        setOut(api, type);
    }
};

class UnaryConstMultTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec input = portSpec(api, numberKey(api, 0));
        setOut(api, util::constantMultiplierOutputType(input, api.getParam(A_CONST_VALUE),
                                                       api.getParam(A_OUTPUT_PRECISION)));
    }
};

class UnaryConstDivTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        const NumTypeSpec divisor = NumTypeSpec::fromFixedValue(api.getParam(A_CONST_VALUE));
        if (type.isFloat() && divisor.valid()) {
            type.mergeDecors(divisor);
            setWire(api, A_PRIM_WIRE_OUT, type);
            return;
        }
        if (!type.isFixed() || type.fracBits() != 0 || !divisor.isFixed() || divisor.fracBits() > 0) {
            return;
        }
        type.mergeDecors(divisor);
        type.setSigned(type.isSigned() || divisor.isSigned());
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

class RawShiftTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        type.requireFixed();
        const NumberValueRef places = numberVR(api.getParam(A_RAW_SHIFT_VALUE));
        if (!type.valid() || !places || !places->isInt() || std::abs(std::int64_t{places->toInt()}) > kMost) {
            return;
        }
        const int shift = places->toInt();
        if (api.getParam(A_RAW_SHIFT_MODE) == A_RAW_SHIFT_MODE_SPECIAL_RIGHT) {
            type.setFracBits(type.fracBits() + shift);
        } else if (type.intBits() + shift >= 0) {
            type.setFixedBits(type.intBits() + shift, type.fracBits() - shift);
        } else {
            type.setFixedBits(0, type.fixedBits());
        }
        setOut(api, type);
    }

  private:
    static constexpr std::int64_t kMost = NumTypeSpec::kMaxWidth;
};

class BarrelTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec shift = portSpec(api, A_BARREL_PORT_SHIFT);
        shift.requireFixed();
        shift.requireReal();
        if (!shift.valid() || shift.isSigned() || shift.fracBits() != 0) {
            return;
        }
        const NumTypeSpec data = portSpec(api, numberKey(api, 0));
        NumTypeSpec type = data;
        overrideType(type, paramType(api, A_BARREL_OUTPUT_TYPE));
        type.mergeDecors(shift);
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

class BarrelLzcTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        type.requireFixed();
        if (type.valid() && type.fixedBits() >= 0) {
            setWire(api, A_PRIM_WIRE_OUT, type);
            type.setToFixed(false, bitWidthU(static_cast<unsigned int>(type.fixedBits())), 0);
            setWire(api, A_PRIM_WIRE_AUX, type);
        }
    }
};

class MonsterMultTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type;
        bool isFirst = true;
        forNumberedPorts(api.getBlock(), [&](int, const Port &port) {
            NumTypeSpec factor(api.getPortType(port.getName()), contextOf(api));
            factor.requireFixed();
            if (isFirst) {
                type = std::move(factor);
                isFirst = false;
            } else {
                type.applyOp(factor, TYPE_OP_MUL);
            }
        });
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

class BitSelectTypeHandler final : public TypeInferHandler2 {
  public:
    /// As a cast: a given type stands before anything is known of the input, so that a loop through the block settles.
    void inferStatic(TypeInferAPI2 &api) const override {
        setWire(api, A_PRIM_WIRE_OUT, paramType(api, A_BIT_SELECT_OUTPUT_TYPE));
    }
    void inferForward(TypeInferAPI2 &api) const override {
        const NumTypeSpec input = portSpec(api, numberKey(api, 0));
        NumTypeSpec type = paramType(api, A_BIT_SELECT_OUTPUT_TYPE);
        if (type.valid()) {
            type.mergeVectors(input);
        } else if (input.isFixed()) {
            type = input;
            std::int64_t offset = paramInt(api, A_BIT_SELECT_BIT_OFFSET, 0);
            offset += offset < 0 ? input.fixedBits() : 0;
            const std::int64_t frac = std::max<std::int64_t>(input.fracBits() - offset, 0);
            const std::int64_t total = std::max<std::int64_t>(input.fixedBits() - offset, 1);
            if (std::max(frac, total) > NumTypeSpec::kMaxWidth) {
                return;
            }
            type.setFixedBits(static_cast<int>(total - frac), static_cast<int>(frac));
        }
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

class ChooseBitsTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        const NumTypeSpec given = paramType(api, A_CHOOSE_BITS_OUTPUT_TYPE);
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        overrideType(type, given);
        setWire(api, A_PRIM_WIRE_OUT, given.valid() ? type : NumTypeSpec());
    }
};

class CastTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        const NumTypeSpec type = paramType(api, A_CAST_OUTPUT_TYPE);
        setWire(api, A_PRIM_WIRE_OUT, type);
        setWire(api, A_CAST_WIRE_CLIP, booleanLike(type));
    }
    void inferForward(TypeInferAPI2 &api) const override {
        const NumTypeSpec input = portSpec(api, numberKey(api, 0));
        NumTypeSpec type = paramType(api, A_CAST_OUTPUT_TYPE);
        if (!type.valid()) {
            api.setWireType(A_PRIM_WIRE_OUT, api.getPortType(numberKey(api, 0)));
            setWire(api, A_CAST_WIRE_CLIP, booleanLike(input));
            return;
        }
        type.mergeDecors(input);
        setWire(api, A_PRIM_WIRE_OUT, type);
        setWire(api, A_CAST_WIRE_CLIP, booleanLike(type));
    }
};

/// The one record type of all given values; null if one differs or is no record.
class CommonAggregate {
  public:
    void add(const PureValueRef &type) {
        mAgree = mAgree && isAggregateType(type.get_ptr()) && (!mType || mType == type);
        mType = mType ? mType : type;
    }
    PureValueRef type() const { return mAgree ? mType : PureValueRef(); }

  private:
    bool mAgree = true;
    PureValueRef mType;
};

class MuxTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec select = realFixedPort(api, A_MUX_PORT_SELECT);
        CommonAggregate records;
        forNumberedPorts(api.getBlock(), [&](int, const Port &port) { records.add(api.getConnectedType(port)); });
        if (const PureValueRef type = records.type()) {
            api.setType(api.getWire(A_PRIM_WIRE_OUT), type);
            return;
        }
        NumTypeSpec type = accumInputs(api, ACCUM_UNION);
        type.mergeVectors(select);
        setOut(api, type);
    }
};

class SelectTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        const bool relaxed = relaxesBools(api);
        NumTypeSpec controls = NumTypeSpec::boolean();
        NumTypeSpec data;
        CommonAggregate records;
        bool isFirst = true;
        for (const Port &port : api.getBlock().ports()) {
            const PureTupleValueRef key = pureTupleVR(port.getName());
            const bool isPart = key && key->size() == 2;
            if (isPart && key->at(0) == A_SELECT_PORTKEY_CTRL) {
                controls.mergeVectors(boolPort(api, port.getName(), relaxed));
            } else if ((isPart && key->at(0) == A_SELECT_PORTKEY_DATA) ||
                       port.getName() == A_SELECT_PORT_DEFAULT_DATA) {
                records.add(api.getPortType(port.getName()));
                const NumTypeSpec part = portSpec(api, port.getName());
                data = isFirst ? part : NumTypeSpec::typeOp(data, part, TYPE_OP_UNION);
                isFirst = false;
            }
        }
        if (!controls.valid()) {
            return;
        }
        if (const PureValueRef type = records.type()) {
            api.setWireType(A_PRIM_WIRE_OUT, type);
            setWire(api, A_SELECT_WIRE_VALID, controls);
            return;
        }
        data.mergeVectors(controls);
        setWire(api, A_PRIM_WIRE_OUT, data);
        setWire(api, A_SELECT_WIRE_VALID, booleanLike(data));
    }
};

class ScalarProductTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        std::vector<NumTypeSpec> operands;
        forNumberedPorts(api.getBlock(), [&](int, const Port &port) {
            operands.emplace_back(api.getPortType(port.getName()), contextOf(api));
        });
        if (operands.empty() || operands.size() % 2 != 0) {
            return;
        }
        NumTypeSpec type = NumTypeSpec::typeOp(operands[0], operands[1], TYPE_OP_MUL);
        for (std::size_t i = 2; i < operands.size(); i += 2) {
            type.applyOp(NumTypeSpec::typeOp(operands[i], operands[i + 1], TYPE_OP_MUL), TYPE_OP_UNION);
        }
        std::uint64_t terms = operands.size() / 2;
        if (type.isVector()) {
            terms *= static_cast<std::uint64_t>(std::max(type.removeVector(), 1));
        }
        if (hasPort(api, A_SCALAR_PRODUCT_PORT_CHAININ)) {
            NumTypeSpec chain = portSpec(api, A_SCALAR_PRODUCT_PORT_CHAININ);
            chain.requireScalar();
            type.applyOp(chain, TYPE_OP_ADD);
        }
        if (terms > 1) {
            const auto counted = static_cast<unsigned int>(std::min<std::uint64_t>(terms, UINT32_MAX));
            for (int i = addrWidth(counted); i > 0; --i) {
                type.applyOp(NumTypeSpec(type), TYPE_OP_ADD);
            }
        }
        overrideType(type, paramType(api, A_MULT_TYPE));
        setWire(api, A_PRIM_WIRE_OUT, type);
    }
};

const TypeRuleRow kRules[] = {
    ORVO_TYPE_RULE(A_ADD_BLOCK, AddTypeHandler, "the sum of the inputs in a tree, narrow ones first"),
    ORVO_TYPE_RULE(A_MONSTER_ADD_BLOCK, AddTypeHandler, "the sum of the inputs in a tree, narrow ones first"),
    ORVO_TYPE_RULE(A_SUB_BLOCK, SubtractTypeHandler, "the signed sum of the inputs"),
    ORVO_TYPE_RULE(A_MULT_BLOCK, MultiplyTypeHandler, "the full product of the inputs"),
    ORVO_TYPE_RULE(A_MONSTER_MULT_BLOCK, MonsterMultTypeHandler, "the full product of the fixed-point inputs"),
    ORVO_TYPE_RULE(A_ADD_REDUCE_BLOCK, AddReduceTypeHandler, "the sum over the outermost dimension"),
    ORVO_TYPE_RULE(A_SCALAR_PRODUCT_BLOCK, ScalarProductTypeHandler, "the sum of the products of port pairs"),
    ORVO_TYPE_RULE(A_ADDSUB_BLOCK, AddSubTypeHandler, "holds the sum and the difference"),
    ORVO_TYPE_RULE(A_ADDSUBFUSED_BLOCK, AddSubFusedTypeHandler, "the signed sum, on both outputs"),
    ORVO_TYPE_RULE(A_ADD_SLOAD_BLOCK, AddSloadTypeHandler, "holds the sum and the load value"),
    ORVO_TYPE_RULE(A_MINMAX_BLOCK, MinMaxTypeHandler, "the sum of the inputs"),
    ORVO_TYPE_RULE(A_MIN_BLOCK, WidestTypeHandler, "holds every input"),
    ORVO_TYPE_RULE(A_MAX_BLOCK, WidestTypeHandler, "holds every input"),
    ORVO_TYPE_RULE(A_SATURATE_BLOCK, WidestTypeHandler, "holds every input"),
    ORVO_TYPE_RULE(A_DIM_BLOCK, WidestTypeHandler, "holds every input"),
    ORVO_TYPE_RULE(A_MAGMIN_BLOCK, WidestTypeHandler, "holds every input"),
    ORVO_TYPE_RULE(A_MAGMAX_BLOCK, WidestTypeHandler, "holds every input"),
    ORVO_TYPE_RULE(A_AND_BLOCK, LogicalTypeHandler, "the bits of all inputs, signed if all are"),
    ORVO_TYPE_RULE(A_NAND_BLOCK, LogicalTypeHandler, "the bits of all inputs, signed if all are"),
    ORVO_TYPE_RULE(A_OR_BLOCK, LogicalTypeHandler, "the bits of all inputs, signed if all are"),
    ORVO_TYPE_RULE(A_NOR_BLOCK, LogicalTypeHandler, "the bits of all inputs, signed if all are"),
    ORVO_TYPE_RULE(A_XOR_BLOCK, LogicalTypeHandler, "the bits of all inputs, signed if all are"),
    ORVO_TYPE_RULE(A_XNOR_BLOCK, LogicalTypeHandler, "the bits of all inputs, signed if all are"),
    ORVO_TYPE_RULE(A_AND_REDUCE_BLOCK, LogicalReduceTypeHandler, "one bit of the input's sign"),
    ORVO_TYPE_RULE(A_NAND_REDUCE_BLOCK, LogicalReduceTypeHandler, "one bit of the input's sign"),
    ORVO_TYPE_RULE(A_OR_REDUCE_BLOCK, LogicalReduceTypeHandler, "one bit of the input's sign"),
    ORVO_TYPE_RULE(A_NOR_REDUCE_BLOCK, LogicalReduceTypeHandler, "one bit of the input's sign"),
    ORVO_TYPE_RULE(A_XOR_REDUCE_BLOCK, LogicalReduceTypeHandler, "one bit of the input's sign"),
    ORVO_TYPE_RULE(A_XNOR_REDUCE_BLOCK, LogicalReduceTypeHandler, "one bit of the input's sign"),
    ORVO_TYPE_RULE(A_BIT_JOIN_BLOCK, BitJoinTypeHandler, "the bits of all inputs side by side, port 0 lowest"),
    ORVO_TYPE_RULE(A_BIT_JOIN_REDUCE_BLOCK, BitJoinReduceTypeHandler, "the bits of all lanes side by side"),
    ORVO_TYPE_RULE(A_NOT_BLOCK, UnaryNumberTypeHandler, "the input's type, a number's, both ways"),
    ORVO_TYPE_RULE(A_REVERSE_BLOCK, UnaryNumberTypeHandler, "the input's type, a number's, both ways"),
    ORVO_TYPE_RULE(A_DELAY_BLOCK, UnaryIdentityTypeHandler, "the input's type, both ways"),
    ORVO_TYPE_RULE(A_RECIPROCAL_BLOCK, UnaryNumberTypeHandler, "the input's type, a number's, both ways"),
    ORVO_TYPE_RULE(A_RECIP_SQRT_BLOCK, UnaryNumberTypeHandler, "the input's type, a number's, both ways"),
    ORVO_TYPE_RULE(A_SQRT_BLOCK, UnaryNumberTypeHandler, "the input's type, a number's, both ways"),
    ORVO_TYPE_RULE(A_REGISTER_BLOCK, RegisterTypeHandler, "the input's type, both ways"),
    ORVO_TYPE_RULE(A_NEG_BLOCK, NegateTypeHandler, "fixed point: one more integer bit; float: the input's type"),
    ORVO_TYPE_RULE(A_COMPLEX_CONJUGATE_BLOCK, NegateTypeHandler,
                   "fixed point: one more integer bit; float: the input's type"),
    ORVO_TYPE_RULE(A_ABS_BLOCK, AbsTypeHandler, "fixed point: one more integer bit; float: the input's type"),
    ORVO_TYPE_RULE(A_CMP_EQ_BLOCK, EqualityTypeHandler, "a boolean on the inputs' vectors"),
    ORVO_TYPE_RULE(A_CMP_NE_BLOCK, EqualityTypeHandler, "a boolean on the inputs' vectors"),
    ORVO_TYPE_RULE(A_CMP_GE_BLOCK, CompareTypeHandler, "a boolean on the real inputs' vectors"),
    ORVO_TYPE_RULE(A_CMP_LT_BLOCK, CompareTypeHandler, "a boolean on the real inputs' vectors"),
    ORVO_TYPE_RULE(A_COMPARECTRL_BLOCK, CompareCtrlTypeHandler, "a boolean on the vectors of inputs and select"),
    ORVO_TYPE_RULE(A_BIT_COUNT_BLOCK, BitCountTypeHandler, "an unsigned count of the input's bits"),
    ORVO_TYPE_RULE(A_CTPOP_BLOCK, UnaryCTPOPTypeHandler, "an unsigned count of the input's bits"),
    ORVO_TYPE_RULE(A_TRUNCATE_BLOCK, RoundTypeHandler, "the input without the dropped fraction bits"),
    ORVO_TYPE_RULE(A_TRUNCATE_TO_ZERO_BLOCK, RoundTypeHandler,
                   "the input without the dropped bits, one more for carry"),
    ORVO_TYPE_RULE(A_BIASED_ROUND_BLOCK, RoundTypeHandler, "the input without the dropped bits, one more for carry"),
    ORVO_TYPE_RULE(A_UNBIASED_ROUND_BLOCK, RoundTypeHandler, "the input without the dropped bits, one more for carry"),
    ORVO_TYPE_RULE(A_CONST_BLOCK, ConstTypeHandler, "the type parameter, or the smallest type of the value"),
    ORVO_TYPE_RULE(A_DIVIDE_BLOCK, DivideTypeHandler, "the full quotient; integer division: the operands' type"),
    ORVO_TYPE_RULE(A_MOD_MULT_BLOCK, ModMultTypeHandler, "an unsigned integer as wide as the modulus"),
    ORVO_TYPE_RULE(A_CONSTMULT_BLOCK, UnaryConstMultTypeHandler, "the full product, or what the precision tells"),
    ORVO_TYPE_RULE(A_CONSTDIV_BLOCK, UnaryConstDivTypeHandler, "a float as it is; an integer as wide as the input"),
    ORVO_TYPE_RULE(A_RAW_SHIFT_BLOCK, RawShiftTypeHandler, "the input's bits with the binary point moved"),
    ORVO_TYPE_RULE(A_BARREL_LEFT_BLOCK, BarrelTypeHandler, "the output type parameter on the inputs' decorations"),
    ORVO_TYPE_RULE(A_BARREL_RIGHT_BLOCK, BarrelTypeHandler, "the output type parameter on the inputs' decorations"),
    ORVO_TYPE_RULE(A_BARREL_RIGHT_LZC_BLOCK, BarrelLzcTypeHandler, "the input's type, and an unsigned count"),
    ORVO_TYPE_RULE(A_BIT_SELECT_BLOCK, BitSelectTypeHandler,
                   "the output type parameter, or the bits from the offset up"),
    ORVO_TYPE_RULE(A_CHOOSE_BITS_BLOCK, ChooseBitsTypeHandler, "the output type parameter on the input's decorations"),
    ORVO_TYPE_RULE(A_CAST_BLOCK, CastTypeHandler, "the output type parameter on the input's decorations"),
    ORVO_TYPE_RULE(A_MUX_BLOCK, MuxTypeHandler, "holds every data input, on the select's vectors too"),
    ORVO_TYPE_RULE(A_SELECT_BLOCK, SelectTypeHandler, "holds every data input, on the controls' vectors too"),
};

} // namespace

std::span<const TypeRuleRow> primTypeRules() { return kRules; }

} // namespace orvo::internal
