// Type rules of the elementary functions.
#include "orvo/typerules.h"

namespace orvo::internal {

namespace {

void setOut(TypeInferAPI &api, const NumTypeSpec &type) { setWire(api, A_PRIM_WIRE_OUT, type); }

/// To the output and, where there is one, the second output.
void setBoth(TypeInferAPI &api, const NumTypeSpec &type) {
    setOut(api, type);
    setWire(api, A_PRIM_WIRE_AUX, type);
}

NumTypeSpec floatPort(TypeInferAPI &api, int number) {
    NumTypeSpec type = portSpec(api, numberKey(api, number));
    type.requireFloat();
    return type;
}

class UnaryFloatTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setBoth(api, floatPort(api, 0)); }
};

/// The second input chooses among functions.
class UnaryFloatSelectTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = floatPort(api, 0);
        if (hasPort(api, numberKey(api, 1))) {
            type.mergeVectors(realFixedPort(api, numberKey(api, 1)));
        }
        setBoth(api, type);
    }
};

class NAryFloatTypeHandler final : public AbstractPrimTypeHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = accumInputs(api, ACCUM_UNION_FLOAT);
        type.requireFloat();
        setBoth(api, type);
    }
};

class LdExpFloatTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        if (realFixedPort(api, numberKey(api, 1)).valid()) {
            setOut(api, portSpec(api, numberKey(api, 0)));
        }
    }
};

class ILogBTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = floatPort(api, 0);
        if (type.valid()) {
            type.setToFixed(true, 32, 0);
            setOut(api, type);
        }
    }
};

class ExpLnTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override { setOut(api, portSpec(api, numberKey(api, 0))); }
};

/// Of an angle in radians: results from -1 to 1, for an unsigned input from 0 to 1.
class SinOrCosTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        if (type.isFixed()) {
            type.setToFixed(type.isSigned(), type.isSigned() ? 2 : 1, type.fracBits());
        }
        setBoth(api, type);
    }
};

/// Of an angle in turns of pi.
class SinCosTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        if (type.isFixed()) {
            type.setToFixed(true, 2, type.fracBits());
        }
        setBoth(api, type);
    }
};

class CordicTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec mode = realFixedPort(api, A_CORDIC_PORT_MODE);
        NumTypeSpec vector =
            NumTypeSpec::typeOp(fixedPort(api, A_CORDIC_PORT_X), fixedPort(api, A_CORDIC_PORT_Y), TYPE_OP_UNION);
        NumTypeSpec angle = fixedPort(api, A_CORDIC_PORT_ANGLE);
        if (!mode.valid() || !vector.valid() || !angle.valid()) {
            return;
        }
        // Rotation stretches by up to the root of two and the constant 1.647 of the iterations.
        vector.setIntBits(vector.intBits() + 2);
        setWire(api, A_CORDIC_WIRE_X, vector);
        setWire(api, A_CORDIC_WIRE_Y, vector);
        angle.setToFixed(true, angle.intBits() + 1, angle.fracBits());
        setWire(api, A_CORDIC_WIRE_ANGLE, angle);
    }

  private:
    static NumTypeSpec fixedPort(TypeInferAPI &api, const StaticString &name) {
        NumTypeSpec type = portSpec(api, name);
        type.requireFixed();
        return type;
    }
};

class FloatMultAddTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setWire(api, A_PRIM_WIRE_OUT, NumTypeSpec::sfloatIEEE(23, 8));
    }
};

class FloatClassifierTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = portSpec(api, numberKey(api, 0));
        type.requireFloat();
        type = booleanLike(type);
        for (const StaticString *wire :
             {&A_FPCLASS_WIRE_ZERO, &A_FPCLASS_WIRE_SIGN, &A_FPCLASS_WIRE_INF, &A_FPCLASS_WIRE_NAN}) {
            setWire(api, *wire, type);
        }
    }
};

constexpr const char *kFloat = "the float input's type; fixed point has none";
constexpr const char *kFloats = "holds every float input; fixed point has none";

const TypeRuleRow kRules[] = {
    ORVO_TYPE_RULE(A_TAN_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_COT_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_TANPIX_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_COTPIX_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_ARCCOSPI_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_ARCSINPI_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_ARCTANPI_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_CUBEROOT_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_RINT_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_ROUND_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_FLOOR_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_CEIL_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_TRUNC_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_EXP2_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_EXP10_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_LOG2_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_LOG10_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_EXPM1_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_LOG1P_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_FRAC_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_ASIN_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_ACOS_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_ATAN_BLOCK, UnaryFloatTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_POLYNOMIAL_BLOCK, UnaryFloatSelectTypeHandler, kFloat),
    ORVO_TYPE_RULE(A_HYPOT_BLOCK, NAryFloatTypeHandler, kFloats),
    ORVO_TYPE_RULE(A_HYPOT3D_BLOCK, NAryFloatTypeHandler, kFloats),
    ORVO_TYPE_RULE(A_ARCTAN2_BLOCK, NAryFloatTypeHandler, kFloats),
    ORVO_TYPE_RULE(A_MOD_BLOCK, NAryFloatTypeHandler, kFloats),
    ORVO_TYPE_RULE(A_POW_BLOCK, NAryFloatTypeHandler, kFloats),
    ORVO_TYPE_RULE(A_POWR_BLOCK, NAryFloatTypeHandler, kFloats),
    ORVO_TYPE_RULE(A_POWN_BLOCK, LdExpFloatTypeHandler, "the first input's type; the second is fixed point"),
    ORVO_TYPE_RULE(A_MULT_POW2_BLOCK, LdExpFloatTypeHandler, "the first input's type; the second is fixed point"),
    ORVO_TYPE_RULE(A_ILOGB_BLOCK, ILogBTypeHandler, "a signed integer of 32 bits, for a float input"),
    ORVO_TYPE_RULE(A_LOG_BLOCK, ExpLnTypeHandler, "the input's type"),
    ORVO_TYPE_RULE(A_EXP_BLOCK, ExpLnTypeHandler, "the input's type"),
    ORVO_TYPE_RULE(A_SIN_BLOCK, SinOrCosTypeHandler, "the input's fraction; float: the input's type"),
    ORVO_TYPE_RULE(A_COS_BLOCK, SinOrCosTypeHandler, "the input's fraction; float: the input's type"),
    ORVO_TYPE_RULE(A_SINCOSFUSED_BLOCK, SinOrCosTypeHandler, "the input's fraction; float: the input's type"),
    ORVO_TYPE_RULE(A_SINPIX_BLOCK, SinCosTypeHandler, "signed, the input's fraction; float: the input's type"),
    ORVO_TYPE_RULE(A_COSPIX_BLOCK, SinCosTypeHandler, "signed, the input's fraction; float: the input's type"),
    ORVO_TYPE_RULE(A_SINCOSPIXFUSED_BLOCK, SinCosTypeHandler, "signed, the input's fraction; float: the input's type"),
    ORVO_TYPE_RULE(A_CORDIC_BLOCK, CordicTypeHandler, "the vector with two more integer bits, the angle with one"),
    ORVO_TYPE_RULE(A_FLOAT_MULTADD_BLOCK, FloatMultAddTypeHandler, "single precision"),
    ORVO_TYPE_RULE(A_FLOAT_MULTSUB_BLOCK, FloatMultAddTypeHandler, "single precision"),
    ORVO_TYPE_RULE(A_FLOAT_CLASS_BLOCK, FloatClassifierTypeHandler, "a boolean a class on the input's decorations"),
};

} // namespace

std::span<const TypeRuleRow> mathTypeRules() { return kRules; }

} // namespace orvo::internal
