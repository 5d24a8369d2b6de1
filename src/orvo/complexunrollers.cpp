// The unrollers of block types that are more than a block of each part, and the table of all.
#include "orvo/complexunrollers.h"

#include "orvo/boundarycomplexunroller.h"
#include "orvo/multiplycomplexunroller.h"
#include "orvo/pairsin.h"
#include "orvo/pipeinput.h"
#include "orvo/replacedsignals.h"
#include "orvo/scalarproductcomplexunroller.h"
#include "orvo/stallnumbers.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/logging.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace orvo::internal {

namespace {

PureValueRef numberOf(std::size_t number) {
    return NumberValue::get(static_cast<int>(number), ContextMgr::getThreadContext());
}

Block &create(const Block &beside, const PureValueRef &name, const StaticString &type) {
    Block &made = *Block::create(beside.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    return made;
}

Wire &outOf(Block &block) { return *Wire::create(block, A_PRIM_WIRE_OUT); }

void connect(const std::vector<MaybePort> &readers, Wire &wire) {
    for (const MaybePort &reader : readers) {
        reader.setWire(wire);
    }
}

bool isOneOf(const PureValueRef &key, std::initializer_list<const StaticString *> keys) {
    return std::any_of(keys.begin(), keys.end(), [&](const StaticString *one) { return *one == key; });
}

/// Controls and addresses steer both parts. They must be real, for nothing reads an imaginary part of them.
class ControlledComplexUnroller : public DefaultComplexUnroller {
  public:
    using DefaultComplexUnroller::DefaultComplexUnroller;
    std::string reason() const override { return mHasComplexControl ? "a control or an address is complex" : ""; }
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override {
        if (!isControl(port.getName())) {
            return DefaultComplexUnroller::originalPort(port, decor);
        }
        mHasComplexControl = mHasComplexControl || decor.isComplex();
        return ComplexPortKind::Share;
    }

  protected:
    virtual bool isControl(const PureValueRef &port) const = 0;

  private:
    bool mHasComplexControl = false;
};

template <const StaticString &...kControls> class SharedPortsComplexUnroller : public ControlledComplexUnroller {
  public:
    using ControlledComplexUnroller::ControlledComplexUnroller;

  protected:
    bool isControl(const PureValueRef &port) const override { return isOneOf(port, {&kControls...}); }
};

using AddSubComplexUnroller = SharedPortsComplexUnroller<A_ADDSUB_PORT_SELECT>;
using AddSloadComplexUnroller = SharedPortsComplexUnroller<A_ADD_SLOAD_PORT_LOAD_CTRL>;
using MinMaxComplexUnroller = SharedPortsComplexUnroller<A_MINMAX_PORT_SELECT>;
using MuxComplexUnroller = SharedPortsComplexUnroller<A_MUX_PORT_SELECT>;
using BarrelComplexUnroller = SharedPortsComplexUnroller<A_BARREL_PORT_SHIFT>;
using FIFOComplexUnroller = SharedPortsComplexUnroller<A_FIFO_PORT_WRITE_EN, A_FIFO_PORT_READ_ACK, A_FIFO_PORT_FLUSH,
                                                       A_PORT_WRITE, A_PORT_READY>;
using DemuxComplexUnroller = SharedPortsComplexUnroller<A_PORT_VALID, A_PORT_CHANNEL>;

/// One angle for both parts, or an angle of each.
class CordicComplexUnroller final : public SharedPortsComplexUnroller<A_CORDIC_PORT_MODE> {
  public:
    using SharedPortsComplexUnroller::SharedPortsComplexUnroller;
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override {
        return port.getName() == A_CORDIC_PORT_ANGLE ? ComplexPortKind::Share
                                                     : SharedPortsComplexUnroller::originalPort(port, decor);
    }
};

/// A control, bank or exponent at port 1.
class SecondSharedComplexUnroller final : public ControlledComplexUnroller {
  public:
    using ControlledComplexUnroller::ControlledComplexUnroller;

  protected:
    bool isControl(const PureValueRef &port) const override { return port == numberOf(1); }
};

using FloatAccComplexUnroller = SecondSharedComplexUnroller;

class SelectComplexUnroller final : public ControlledComplexUnroller {
  public:
    using ControlledComplexUnroller::ControlledComplexUnroller;

  protected:
    bool isControl(const PureValueRef &port) const override {
        const PureTupleValueRef key = pureTupleVR(port);
        return key && key->size() == 2 && key->at(0) == A_SELECT_PORTKEY_CTRL;
    }
};

/// Registers begin with parts of their initial value.
template <const StaticString &kInitial, const StaticString &kEnable>
class RegisterComplexUnroller final : public SharedPortsComplexUnroller<kEnable> {
  public:
    using SharedPortsComplexUnroller<kEnable>::SharedPortsComplexUnroller;
    bool isNumericParam(const PureValueRef &key) const override { return key == kInitial; }
};

/// What has a value for each part has the type in a parameter, for the value of one part may need fewer bits.
template <const StaticString &kValue, const StaticString &kType>
class ValueComplexUnroller : public ControlledComplexUnroller {
  public:
    using ControlledComplexUnroller::ControlledComplexUnroller;
    bool writesTypes() const override { return true; }
    bool isNumericParam(const PureValueRef &key) const override { return key == kValue; }
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override {
        if (wire.getName() == A_PRIM_WIRE_OUT) {
            mType = partType(typeOf(wire), wire.getContext());
        }
        return DefaultComplexUnroller::originalWire(wire, decor);
    }
    void preAttach() override {
        DefaultComplexUnroller::preAttach();
        for (const bool imaginary : {false, true}) {
            if (mType) {
                substitute(imaginary).setParam(kType, mType);
            }
        }
    }

  protected:
    /// If there is a port, it is the address of the value.
    bool isControl(const PureValueRef &) const override { return true; }

  private:
    PureValueRef mType;
};

using ConstComplexUnroller = ValueComplexUnroller<A_CONST_VALUE, A_CONST_TYPE>;
using LUTComplexUnroller = ValueComplexUnroller<A_LUT_DATA, A_LUT_TYPE>;

/// Both sides keep their types, which may have come from the content. They hold the same numbers: bits of a complex
/// one that a side reads as real are not in the memory of either part alone. Real ones are written with no imaginary
/// part.
class DualMemComplexUnroller final : public ControlledComplexUnroller {
  public:
    using ControlledComplexUnroller::ControlledComplexUnroller;
    std::string reason() const override {
        return mReadsReal && mHasComplexData ? "some of its data are complex and some are real"
                                             : ControlledComplexUnroller::reason();
    }
    bool writesTypes() const override { return true; }
    bool isNumericParam(const PureValueRef &key) const override {
        return isOneOf(key, {&A_DUAL_MEM_DATA, &A_DUAL_MEM_ALT_PORT_DATA});
    }
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override {
        const ComplexPortKind kind = ControlledComplexUnroller::originalPort(port, decor);
        if (isControl(port.getName())) {
            return kind;
        }
        mHasComplexData = mHasComplexData || decor.isComplex();
        return ComplexPortKind::SplitOrZero;
    }
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override {
        mHasComplexData = mHasComplexData || decor.isComplex();
        mReadsReal = mReadsReal || decor.isReal();
        mTypes.emplace_back(wire.getName() == A_DUAL_MEM_WIRE_DATA1 ? &A_DUAL_MEM_TYPE_DATA1 : &A_DUAL_MEM_TYPE_DATA2,
                            partType(typeOf(wire), wire.getContext()));
        return DefaultComplexUnroller::originalWire(wire, decor);
    }
    void preAttach() override {
        DefaultComplexUnroller::preAttach();
        for (const bool imaginary : {false, true}) {
            for (const auto &[key, type] : mTypes) {
                substitute(imaginary).setParam(*key, type);
            }
        }
    }

  protected:
    bool isControl(const PureValueRef &port) const override {
        return !isOneOf(port, {&A_DUAL_MEM_PORT_DATA1, &A_DUAL_MEM_PORT_DATA2});
    }

  private:
    bool mHasComplexData = false;
    bool mReadsReal = false;
    std::vector<std::pair<const StaticString *, PureValueRef>> mTypes;
};

/// By a real constant each part is divided.
class ConstDivComplexUnroller final : public DefaultComplexUnroller {
  public:
    using DefaultComplexUnroller::DefaultComplexUnroller;
    std::string reason() const override {
        return hasComplexPart(block().getParam(A_CONST_VALUE)) ? "its divisor is complex" : "";
    }
};

/// The type rules of some types refuse complex operands, but a pin behind a block gives its output a type all the same.
class RealOnlyUnroller final : public DefaultComplexUnroller {
  public:
    using DefaultComplexUnroller::DefaultComplexUnroller;
    std::string reason() const override { return "its type computes on real numbers alone"; }
};

/// As a product, with the constant's parts in the multipliers.
class ConstMultComplexUnroller final : public ComplexUnroller {
  public:
    explicit ConstMultComplexUnroller(Block &block) : mBlock(block) {}
    bool writesTypes() const override {
        return mBlock.getParam(A_OUTPUT_PRECISION) || hasComplexPart(mBlock.getParam(A_CONST_VALUE));
    }
    std::string reason() const override {
        if (mBlock.port_size() != 1) {
            return "it has no operand, or several";
        }
        const bool isReal = !mOperand.isComplex() && !hasComplexPart(mBlock.getParam(A_CONST_VALUE));
        return isReal ? "none of its factors is complex" : "";
    }
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override {
        mOutputType = NumTypeSpec(typeOf(wire), wire.getContext());
        mOutputType.setComplex(false);
        return ComplexUnroller::originalWire(wire, decor);
    }
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &) override {
        mOperand = ComplexFactor(NumTypeSpec(typeOf(port), mBlock.getContext()));
        return ComplexPortKind::Split;
    }
    void preAttach() override {
        const ValueRef constant = mBlock.getParam(A_CONST_VALUE);
        const bool isComplex = hasComplexPart(constant);
        const bool areBoth = isComplex && mOperand.isComplex();
        const PureValueRef precision = precisionOf(constant, areBoth);
        const auto part = [&](const char *word, bool ofOperand, bool ofConstant) -> Wire & {
            Block &made = create(mBlock, nameBelow(mBlock, word), A_CONSTMULT_BLOCK);
            copyHints(made);
            made.setParam(A_CONST_VALUE, partOfValue(constant, ofConstant, true));
            made.setParam(A_OUTPUT_PRECISION, precision);
            mOperand.feed(ofOperand, {made, numberOf(0)});
            return outOf(made);
        };
        mReal = &part("realMult1", false, false);
        mImaginary = &part("imagMult1", !isComplex, isComplex);
        if (areBoth) {
            mReal = &combined("realSub", A_SUB_BLOCK, *mReal, part("realMult2", true, true));
            mImaginary = &combined("imagAdd", A_ADD_BLOCK, *mImaginary, part("imagMult2", true, false));
        }
    }
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                     const std::vector<MaybePort> &readers) override {
        Wire *part = imaginary ? mImaginary : mReal;
        OrvoUtils::copyParams(*part, wire);
        connect(readers, *part);
        return part;
    }
    void attachPort(Port &, const ComplexDecorSpec &, bool imaginary, Wire &driver) override {
        for (const MaybePort &reader : mOperand.attach(imaginary, driver)) {
            addAttachedPort(reader);
        }
    }
    void postAttach() override { delete &mBlock; }

  private:
    void copyHints(Block &made) const {
        copyArithmeticHints(made, mBlock);
        const bool isFaithful = mBlock.findParam(A_FLOAT_ROUNDING) == A_FAITHFUL_ROUNDING.get_ptr();
        made.setParam(A_FLOAT_ROUNDING, isFaithful ? A_FAITHFUL_ROUNDING : A_CORRECT_ROUNDING);
    }
    /// Null where the product's own type will do: that of floats, the exact one where bits are cut behind the sum, and
    /// that by a real constant.
    PureValueRef precisionOf(const ValueRef &constant, bool areBoth) const {
        if (!writesTypes()) {
            return {};
        }
        Context *context = mBlock.getContext();
        const int exact = mOperand.type().fracBits() + NumTypeSpec::fromFixedValue(constant).fracBits();
        const bool cuts = mOutputType.fracBits() < exact;
        if (mOutputType.isFloat() || (areBoth && (cuts || !mBlock.getParam(A_OUTPUT_PRECISION)))) {
            return {};
        }
        NumTypeSpec scalar = mOutputType;
        scalar.stripVectors();
        return PureTupleValue::get(A_TYPE_SPECIFIED, scalar.toValue(context), context);
    }
    Wire &combined(const char *word, const StaticString &type, Wire &first, Wire &second) const {
        Block &made = create(mBlock, nameBelow(mBlock, word), type);
        copyHints(made);
        NumTypeSpec scalar = mOutputType;
        scalar.stripVectors();
        made.setParam(A_ADD_TYPE, scalar.toValue(mBlock.getContext()));
        made.setParam(numberOf(0), first);
        made.setParam(numberOf(1), second);
        return outOf(made);
    }

    Block &mBlock;
    ComplexFactor mOperand;
    NumTypeSpec mOutputType;
    Wire *mReal = nullptr;
    Wire *mImaginary = nullptr;
};

/// A real operand's imaginary part may be a zero of one bit where the other operand alone tells how wide the sum is.
template <bool isDifference> class SumComplexUnroller final : public DefaultComplexUnroller {
  public:
    using DefaultComplexUnroller::DefaultComplexUnroller;
    bool takesPlainZeros() const override {
        return block().port_size() == 2 && !block().getParam(A_ADD_TYPE) &&
               block().getWire(A_PRIM_WIRE_OUT) != nullptr &&
               std::all_of(instances().begin(), instances().end(),
                           [this](const RefChain &instance) { return keepsTypeIn(instance); });
    }

  private:
    /// Whether the sum of the imaginary parts is of the same type as that of the real ones.
    bool keepsTypeIn(const RefChain &instance) const {
        std::vector<NumTypeSpec> parts;
        for (const Port &port : std::as_const(block()).ports()) {
            NumTypeSpec part(typeOf(port, instance), block().getContext());
            if (!part.isFixed()) {
                return false;
            }
            const bool isComplex = part.isComplex();
            part.setComplex(false);
            parts.push_back(isComplex ? part : NumTypeSpec::boolean());
        }
        const bool noGrowth = block().findParam(A_ADD_NO_GROWTH) == A_TRUE.get_ptr();
        NumTypeSpec sum = NumTypeSpec::typeOp(parts[0], parts[1], noGrowth ? TYPE_OP_UNION : TYPE_OP_ADD);
        if (isDifference && !noGrowth) {
            sum.setSigned(true);
        }
        NumTypeSpec result(typeOf(*block().getWire(A_PRIM_WIRE_OUT), instance), block().getContext());
        result.setComplex(false);
        return sum == result;
    }
};

/// A wire for the real part, in fixed point through a cast to the wider type of both, and a negation. Where types
/// differ between instances a sum with zero makes it wider, if that has the type of the result in each.
class ConjugateComplexUnroller final : public ComplexUnroller {
  public:
    explicit ConjugateComplexUnroller(Block &block) : mBlock(block) {}
    bool writesTypes() const override { return mGrows && !mAddsZero; }
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override {
        mWire = &wire;
        mType = partType(typeOf(wire), mBlock.getContext());
        return ComplexUnroller::originalWire(wire, decor);
    }
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &) override {
        Context *context = mBlock.getContext();
        const auto grows = [&](const RefChain &instance) {
            return partType(typeOf(port, instance), context) != partType(typeOf(*mWire, instance), context);
        };
        mGrows = mWire != nullptr && std::any_of(instances().begin(), instances().end(), grows);
        const auto growsByABit = [&](const RefChain &instance) {
            const NumTypeSpec part(partType(typeOf(port, instance), context), context);
            return NumTypeSpec::typeOp(part, NumTypeSpec::boolean(), TYPE_OP_ADD) ==
                   NumTypeSpec(partType(typeOf(*mWire, instance), context), context);
        };
        mAddsZero = mGrows && !(isOfOneType(port) && isOfOneType(*mWire)) &&
                    std::all_of(instances().begin(), instances().end(), growsByABit);
        return ComplexPortKind::Split;
    }
    void preAttach() override { mNegated = &outOf(create(mBlock, nameBelow(mBlock, "imagNeg"), A_NEG_BLOCK)); }
    void attachPort(Port &, const ComplexDecorSpec &, bool imaginary, Wire &driver) override {
        if (imaginary) {
            copyArithmeticHints(mNegated->getBlock(), mBlock);
            feed(mNegated->getBlock(), driver);
            return;
        }
        mReal = &driver;
        if (mAddsZero) {
            Block &zero = create(mBlock, nameBelow(mBlock, "realZero"), A_CONST_BLOCK);
            zero.setParam(A_CONST_VALUE, numberOf(0));
            zero.setParam(A_CONST_TYPE, NumTypeSpec::boolean().toValue(mBlock.getContext()));
            Block &sum = create(mBlock, nameBelow(mBlock, "realAdd"), A_ADD_BLOCK);
            sum.setParam(numberOf(1), outOf(zero));
            feed(sum, driver);
            mReal = &outOf(sum);
        } else if (mGrows) {
            Block &cast = create(mBlock, nameBelow(mBlock, "realCast"), A_CAST_BLOCK);
            cast.setParam(A_CAST_OUTPUT_TYPE, mType);
            feed(cast, driver);
            mReal = &outOf(cast);
        }
    }
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                     const std::vector<MaybePort> &readers) override {
        if (imaginary) {
            OrvoUtils::copyParams(*mNegated, wire);
            connect(readers, *mNegated);
            return mNegated;
        }
        // A wire that came from outside has parameters of its own.
        if (mGrows) {
            OrvoUtils::copyParams(*mReal, wire);
        }
        connect(readers, *mReal);
        if (readers.empty()) {
            feed(create(mBlock, nameBelow(mBlock, "realTerm"), A_TERMINAL_BLOCK), *mReal);
        }
        return mReal;
    }
    void postAttach() override { delete &mBlock; }

  private:
    void feed(Block &made, Wire &driver) {
        const MaybePort attached(made, numberOf(0));
        attached.setWire(driver);
        addAttachedPort(attached);
    }

    Block &mBlock;
    Wire *mWire = nullptr;
    PureValueRef mType;
    /// In any instance.
    bool mGrows = false;
    /// In place of a cast.
    bool mAddsZero = false;
    Wire *mNegated = nullptr;
    Wire *mReal = nullptr;
};

/// Numbers are equal if both parts are.
class EqualityComplexUnroller final : public DefaultComplexUnroller {
  public:
    using DefaultComplexUnroller::DefaultComplexUnroller;
    void preAttach() override {
        DefaultComplexUnroller::preAttach();
        const Value *type = block().type();
        const bool isScheduled = type == A_CMP_EQ_BLOCK.get_ptr() || type == A_CMP_NE_BLOCK.get_ptr();
        const bool isEqual = type == A_CMP_EQ_BLOCK.get_ptr() || type == U_CMP_EQ_BLOCK.get_ptr();
        const StaticString &logic =
            isEqual ? (isScheduled ? A_AND_BLOCK : U_AND_BLOCK) : (isScheduled ? A_OR_BLOCK : U_OR_BLOCK);
        Block &both = create(block(), nameBelow(block(), isEqual ? "and" : "or"), logic);
        for (const bool imaginary : {false, true}) {
            // What ends at the result, ends behind both.
            substitute(imaginary).setParam(A_SCHEDULE_CONSTRAINT_WIRES, nullptr);
            Wire *bit = substitute(imaginary).getWire(A_PRIM_WIRE_OUT);
            if (bit != nullptr) {
                clearParams(*bit);
                both.setParam(numberOf(imaginary ? 1 : 0), *bit);
            }
        }
        mBoth = &outOf(both);
    }
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &, bool, const std::vector<MaybePort> &readers) override {
        OrvoUtils::copyParams(*mBoth, wire);
        connect(readers, *mBoth);
        return mBoth;
    }

  private:
    /// What is known of the result is not true of a part's.
    static void clearParams(Wire &wire) {
        std::vector<PureValueRef> keys;
        for (auto param : Params(wire)) {
            keys.push_back(param.first);
        }
        for (const PureValueRef &key : keys) {
            wire.setParam(key, nullptr);
        }
    }

    Wire *mBoth = nullptr;
};

/// Data of a region that can stall; each part gets a number of its own.
class StallBoundaryComplexUnroller final : public ComplexUnroller {
  public:
    explicit StallBoundaryComplexUnroller(Block &block) : mBlock(block), mNumbers(block) {}
    std::string reason() const override { return mHasOtherComplex ? "a signal that is no data is complex" : ""; }
    bool takesVectors() const override { return true; }
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override {
        if (!isSplit(wire.getName(), decor)) {
            return ComplexWireKind::Leave;
        }
        mReplaced.add(wire);
        return ComplexWireKind::Split;
    }
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override {
        if (!isSplit(port.getName(), decor)) {
            return ComplexPortKind::Leave;
        }
        mReplaced.add(port);
        return ComplexPortKind::Split;
    }
    void preAttach() override {}
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                     const std::vector<MaybePort> &readers) override {
        Wire *part = Wire::create(mBlock, mNumbers.nameOf(wire.getName(), imaginary ? 1 : 0));
        OrvoUtils::copyParams(*part, wire);
        for (const MaybePort &reader : readers) {
            reader.setWire(*part);
        }
        return part;
    }
    void attachPort(Port &port, const ComplexDecorSpec &, bool imaginary, Wire &driver) override {
        const MaybePort attached(mBlock, mNumbers.nameOf(port.getName(), imaginary ? 1 : 0));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    void postAttach() override { mReplaced.removeFrom(mBlock); }

  private:
    bool isSplit(const PureValueRef &name, const ComplexDecorSpec &decor) {
        const bool isData = StallNumbers::isData(name);
        mHasOtherComplex = mHasOtherComplex || (!isData && decor.isComplex());
        return isData && decor.isComplex();
    }

    Block &mBlock;
    StallNumbers mNumbers;
    bool mHasOtherComplex = false;
    ReplacedSignals mReplaced;
};

/// The map of types names the parts.
class LatencyPlaceholderComplexUnroller final : public BoundaryComplexUnroller {
  public:
    using BoundaryComplexUnroller::BoundaryComplexUnroller;
    void postAttach() override {
        Context *context = block().getContext();
        std::vector<PureValueRef> entries;
        const auto add = [&](const PureValueRef &name, const PureValueRef &type) {
            PureValueRef part;
            const ComplexDecorSpec decor(type, part, context);
            entries.emplace_back(PureTupleValue::get(makeName(name, decor, false), part, context));
            if (decor.isComplex()) {
                entries.emplace_back(PureTupleValue::get(makeName(name, decor, true), part, context));
            }
        };
        forPairsIn(block().getParam(A_LATENCY_PLACEHOLDER_TYPEMAP), add);
        block().setParam(A_LATENCY_PLACEHOLDER_TYPEMAP, PureTupleValue::get(entries, context));
        BoundaryComplexUnroller::postAttach();
    }
};

/// One pin whose ports are numbered part by part.
class TypePinComplexUnroller final : public ComplexUnroller {
  public:
    explicit TypePinComplexUnroller(Block &block) : mBlock(block) {}
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override {
        mWires.emplace_back(wire.getName(), decor);
        return ComplexWireKind::Split;
    }
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override {
        reserve(port.getName(), decor, partType(typeOf(port), mBlock.getContext()));
        return ComplexPortKind::Split;
    }
    bool writesTypes() const override { return true; }
    void preAttach() override {
        Context *context = mBlock.getContext();
        const PureValueRef type(mBlock.getParam(A_TYPE_PIN_TYPE));
        // The main output is that of the first port.
        for (const auto &[name, decor] : mWires) {
            if (name == A_PRIM_WIRE_OUT && mBlock.port_size() != 0) {
                mFirst.emplace(name, mFirst.at(mBlock.port_begin()->getName()));
            } else if (mFirst.count(name) == 0) {
                reserve(name, decor, partType(type, context));
            }
        }
        const PureValueRef name =
            StringValue::get(fmt::format("{}_{}", mBlock.getName()->toString(), mNameSuffix), context);
        mPin = &create(mBlock, name, A_TYPE_PIN_BLOCK);
        for (auto param : Params(mBlock)) {
            if (isTakenOver(param.first, param.second)) {
                mPin->setParam(param.first, param.second);
            }
        }
        if (type) {
            mPin->setParam(A_TYPE_PIN_TYPE, partType(type, context));
        }
        if (mBlock.getParam(A_TYPE_PIN_PORT_TYPES)) {
            mPin->setParam(A_TYPE_PIN_PORT_TYPES, PureTupleValue::get(mTypes, context));
        }
    }
    void attachPort(Port &port, const ComplexDecorSpec &, bool imaginary, Wire &driver) override {
        const MaybePort attached(*mPin, numberOf(mFirst.at(port.getName()) + (imaginary ? 1 : 0)));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                     const std::vector<MaybePort> &readers) override {
        const PureValueRef name = numberOf(mFirst.at(wire.getName()) + (imaginary ? 1 : 0));
        Wire *part = mPin->getWire(name);
        part = part == nullptr ? Wire::create(*mPin, name) : part;
        OrvoUtils::copyParams(*part, wire);
        connect(readers, *part);
        return part;
    }
    void postAttach() override { delete &mBlock; }

  private:
    void reserve(const PureValueRef &name, const ComplexDecorSpec &decor, const PureValueRef &type) {
        mFirst.emplace(name, mTypes.size());
        mTypes.insert(mTypes.end(), decor.isComplex() ? 2 : 1, type);
    }

    Block &mBlock;
    Block *mPin = nullptr;
    std::vector<std::pair<PureValueRef, ComplexDecorSpec>> mWires;
    std::map<PureValueRef, std::size_t, DeepValueCmp> mFirst;
    /// Of each number, null where nothing is pinned.
    std::vector<PureValueRef> mTypes;
};

/// What has no output has no result whose type could be known, and nothing that its parts would have to give.
template <class U> class ProductUnrollHandler final : public ComplexUnrollHandler {
  public:
    std::shared_ptr<ComplexUnroller> createUnroller(Block &block) const override {
        if (block.getWireCount() == 0) {
            return std::make_shared<DefaultComplexUnroller>(block);
        }
        return std::make_shared<U>(block);
    }
};

/// A product of one factor is that factor.
class MultiplyUnrollHandler final : public ComplexUnrollHandler {
  public:
    std::shared_ptr<ComplexUnroller> createUnroller(Block &block) const override {
        if (block.port_size() == 1 || block.getWireCount() == 0) {
            return std::make_shared<DefaultComplexUnroller>(block);
        }
        return std::make_shared<MultiplyKaratsubaComplexUnroller>(block);
    }
};

using RegisterUnroller = RegisterComplexUnroller<A_REGISTER_INIT_VALUE, A_REGISTER_PORT_ENABLE>;
using SyncRegisterUnroller = RegisterComplexUnroller<A_SYNC_REGISTER_INIT_VALUE, A_SYNC_REGISTER_PORT_ICLK_ENABLE>;

const ComplexUnrollHandler *defaultHandler() {
    static const ComplexUnrollHandler handler;
    return &handler;
}

template <class U> const ComplexUnrollHandler *productHandler() {
    static const ProductUnrollHandler<U> handler;
    return &handler;
}

const ComplexUnrollHandler *boundaryHandler() {
    static const BoundaryComplexUnrollHandler handler;
    return &handler;
}

const ComplexUnrollHandler *multiplyHandler() {
    static const MultiplyUnrollHandler handler;
    return &handler;
}

template <class U> const ComplexUnrollHandler *handler() {
    static const ComplexUnrollHandlerT<U> handler;
    return &handler;
}

constexpr const char *kParts = "a block of the real parts and one of the imaginary parts";
constexpr const char *kShared = "a block of each part under the same controls";
constexpr const char *kValues = "a block of each part with the parts of its values";
constexpr const char *kNames = "one block with two ports and two wires a complex signal";

// clang-format off
const ComplexUnrollRow kRows[] = {
    {&A_ADD_BLOCK, handler<SumComplexUnroller<false>>, kParts},
    {&A_MONSTER_ADD_BLOCK, defaultHandler, kParts},
    {&A_SUB_BLOCK, handler<SumComplexUnroller<true>>, kParts},
    {&A_MULT_BLOCK, multiplyHandler, "real multipliers, and a difference and a sum of their products"},
    {&A_MONSTER_MULT_BLOCK, multiplyHandler, "real multipliers, and a difference and a sum of their products"},
    {&A_ADD_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_SCALAR_PRODUCT_BLOCK, productHandler<ScalarProductComplexUnroller>, "real scalar products, and in fixed point a difference and a sum"},
    {&A_ADDSUB_BLOCK, handler<AddSubComplexUnroller>, kShared},
    {&A_ADDSUBFUSED_BLOCK, defaultHandler, kParts},
    {&A_ADD_SLOAD_BLOCK, handler<AddSloadComplexUnroller>, kShared},
    {&A_MINMAX_BLOCK, handler<MinMaxComplexUnroller>, kShared},
    {&A_MIN_BLOCK, defaultHandler, kParts},
    {&A_MAX_BLOCK, defaultHandler, kParts},
    {&A_SATURATE_BLOCK, defaultHandler, kParts},
    {&A_DIM_BLOCK, defaultHandler, kParts},
    {&A_MAGMIN_BLOCK, defaultHandler, kParts},
    {&A_MAGMAX_BLOCK, defaultHandler, kParts},
    {&A_AND_BLOCK, defaultHandler, kParts},
    {&A_NAND_BLOCK, defaultHandler, kParts},
    {&A_OR_BLOCK, defaultHandler, kParts},
    {&A_NOR_BLOCK, defaultHandler, kParts},
    {&A_XOR_BLOCK, defaultHandler, kParts},
    {&A_XNOR_BLOCK, defaultHandler, kParts},
    {&A_AND_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_NAND_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_OR_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_NOR_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_XOR_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_XNOR_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_BIT_JOIN_BLOCK, defaultHandler, kParts},
    {&A_BIT_JOIN_REDUCE_BLOCK, defaultHandler, kParts},
    {&A_NOT_BLOCK, defaultHandler, kParts},
    {&A_REVERSE_BLOCK, defaultHandler, kParts},
    {&A_DELAY_BLOCK, defaultHandler, kParts},
    {&A_RECIPROCAL_BLOCK, defaultHandler, kParts},
    {&A_RECIP_SQRT_BLOCK, defaultHandler, kParts},
    {&A_SQRT_BLOCK, defaultHandler, kParts},
    {&A_REGISTER_BLOCK, handler<RegisterUnroller>, kValues},
    {&A_NEG_BLOCK, defaultHandler, kParts},
    {&A_COMPLEX_CONJUGATE_BLOCK, handler<ConjugateComplexUnroller>, "a wire and a negation"},
    {&A_ABS_BLOCK, defaultHandler, kParts},
    {&A_CMP_EQ_BLOCK, handler<EqualityComplexUnroller>, "a comparison of each part, and a logic block"},
    {&A_CMP_NE_BLOCK, handler<EqualityComplexUnroller>, "a comparison of each part, and a logic block"},
    {&A_CMP_GE_BLOCK, realOnlyHandler, "its type rule takes real operands alone: complex numbers have no order"},
    {&A_CMP_LT_BLOCK, realOnlyHandler, "its type rule takes real operands alone: complex numbers have no order"},
    {&A_COMPARECTRL_BLOCK, realOnlyHandler, "its type rule takes real operands alone: complex numbers have no order"},
    {&A_BIT_COUNT_BLOCK, realOnlyHandler, "its type rule takes a real operand alone"},
    {&A_CTPOP_BLOCK, defaultHandler, kParts},
    {&A_TRUNCATE_BLOCK, defaultHandler, kParts},
    {&A_TRUNCATE_TO_ZERO_BLOCK, defaultHandler, kParts},
    {&A_BIASED_ROUND_BLOCK, defaultHandler, kParts},
    {&A_UNBIASED_ROUND_BLOCK, defaultHandler, kParts},
    {&A_CONST_BLOCK, handler<ConstComplexUnroller>, kValues},
    {&A_DIVIDE_BLOCK, realOnlyHandler, "a quotient of complex numbers is not that of their parts, and has no meaning here"},
    {&A_MOD_MULT_BLOCK, realOnlyHandler, "its type rule takes real operands alone: residues are of integers"},
    {&A_CONSTMULT_BLOCK, productHandler<ConstMultComplexUnroller>, "multipliers by the parts of the constant, and a difference and a sum"},
    {&A_CONSTDIV_BLOCK, handler<ConstDivComplexUnroller>, "a block of each part, where the divisor is real"},
    {&A_RAW_SHIFT_BLOCK, defaultHandler, kParts},
    {&A_BARREL_LEFT_BLOCK, handler<BarrelComplexUnroller>, kShared},
    {&A_BARREL_RIGHT_BLOCK, handler<BarrelComplexUnroller>, kShared},
    {&A_BARREL_RIGHT_LZC_BLOCK, defaultHandler, kParts},
    {&A_BIT_SELECT_BLOCK, defaultHandler, kParts},
    {&A_CHOOSE_BITS_BLOCK, defaultHandler, kParts},
    {&A_CAST_BLOCK, defaultHandler, kParts},
    {&A_MUX_BLOCK, handler<MuxComplexUnroller>, kShared},
    {&A_SELECT_BLOCK, handler<SelectComplexUnroller>, kShared},
    {&A_TAN_BLOCK, defaultHandler, kParts},
    {&A_COT_BLOCK, defaultHandler, kParts},
    {&A_TANPIX_BLOCK, defaultHandler, kParts},
    {&A_COTPIX_BLOCK, defaultHandler, kParts},
    {&A_ARCCOSPI_BLOCK, defaultHandler, kParts},
    {&A_ARCSINPI_BLOCK, defaultHandler, kParts},
    {&A_ARCTANPI_BLOCK, defaultHandler, kParts},
    {&A_CUBEROOT_BLOCK, defaultHandler, kParts},
    {&A_RINT_BLOCK, defaultHandler, kParts},
    {&A_ROUND_BLOCK, defaultHandler, kParts},
    {&A_FLOOR_BLOCK, defaultHandler, kParts},
    {&A_CEIL_BLOCK, defaultHandler, kParts},
    {&A_TRUNC_BLOCK, defaultHandler, kParts},
    {&A_EXP2_BLOCK, defaultHandler, kParts},
    {&A_EXP10_BLOCK, defaultHandler, kParts},
    {&A_LOG2_BLOCK, defaultHandler, kParts},
    {&A_LOG10_BLOCK, defaultHandler, kParts},
    {&A_EXPM1_BLOCK, defaultHandler, kParts},
    {&A_LOG1P_BLOCK, defaultHandler, kParts},
    {&A_FRAC_BLOCK, defaultHandler, kParts},
    {&A_ASIN_BLOCK, defaultHandler, kParts},
    {&A_ACOS_BLOCK, defaultHandler, kParts},
    {&A_ATAN_BLOCK, defaultHandler, kParts},
    {&A_POLYNOMIAL_BLOCK, handler<SecondSharedComplexUnroller>, kShared},
    {&A_HYPOT_BLOCK, defaultHandler, kParts},
    {&A_HYPOT3D_BLOCK, defaultHandler, kParts},
    {&A_ARCTAN2_BLOCK, defaultHandler, kParts},
    {&A_MOD_BLOCK, defaultHandler, kParts},
    {&A_POW_BLOCK, defaultHandler, kParts},
    {&A_POWR_BLOCK, defaultHandler, kParts},
    {&A_POWN_BLOCK, handler<SecondSharedComplexUnroller>, kShared},
    {&A_MULT_POW2_BLOCK, handler<SecondSharedComplexUnroller>, kShared},
    {&A_ILOGB_BLOCK, defaultHandler, kParts},
    {&A_LOG_BLOCK, defaultHandler, kParts},
    {&A_EXP_BLOCK, defaultHandler, kParts},
    {&A_SIN_BLOCK, defaultHandler, kParts},
    {&A_COS_BLOCK, defaultHandler, kParts},
    {&A_SINCOSFUSED_BLOCK, defaultHandler, kParts},
    {&A_SINPIX_BLOCK, defaultHandler, kParts},
    {&A_COSPIX_BLOCK, defaultHandler, kParts},
    {&A_SINCOSPIXFUSED_BLOCK, defaultHandler, kParts},
    {&A_CORDIC_BLOCK, handler<CordicComplexUnroller>, kShared},
    {&A_FLOAT_MULTADD_BLOCK, realOnlyHandler, "its result is one real number in single precision by its type rule"},
    {&A_FLOAT_MULTSUB_BLOCK, realOnlyHandler, "its result is one real number in single precision by its type rule"},
    {&A_FLOAT_CLASS_BLOCK, defaultHandler, kParts},
    {&A_DUAL_MEM_BLOCK, handler<DualMemComplexUnroller>, kValues},
    {&A_LUT_BLOCK, handler<LUTComplexUnroller>, kValues},
    {&A_SYNC_REGISTER_BLOCK, handler<SyncRegisterUnroller>, kValues},
    {&A_FIFO_BLOCK, handler<FIFOComplexUnroller>, kShared},
    {&A_FIFO_DELAY_BLOCK, handler<FIFOComplexUnroller>, kShared},
    {&A_SEQUENCE_BLOCK, realOnlyHandler, "pulses by a real enable"},
    {&A_COUNTER_BLOCK, realOnlyHandler, "counts below real limits"},
    {&A_LD_COUNTER_BLOCK, realOnlyHandler, "counts below real limits"},
    {&A_LOOP_BLOCK, realOnlyHandler, "counts below real limits"},
    {&A_FOR_LOOP_BLOCK, realOnlyHandler, "counts below real limits"},
    {&A_ACC_BLOCK, handler<FloatAccComplexUnroller>, kShared},
    {&A_FLOAT_MULTACC_BLOCK, realOnlyHandler, "products of complex numbers are not accumulated"},
    {&A_DECODE_BLOCK, realOnlyHandler, "compares a real address"},
    {&A_DEMUX_BLOCK, handler<DemuxComplexUnroller>, kShared},
    {&A_FANOUT_BLOCK, defaultHandler, kParts},
    {&A_MODEL_BLOCK, nullptr, "the boundaries of models come apart together, in UnrollComplexCrossModelPass"},
    {&A_INPUT_BLOCK, nullptr, "the boundaries of models come apart together, in UnrollComplexCrossModelPass"},
    {&A_OUTPUT_BLOCK, nullptr, "the boundaries of models come apart together, in UnrollComplexCrossModelPass"},
    {&A_SIGNAL_IN_BLOCK, boundaryHandler, kNames},
    {&A_SIGNAL_OUT_BLOCK, boundaryHandler, kNames},
    {&A_TERMINAL_BLOCK, defaultHandler, kParts},
    {&A_FOLDING_KERNEL_BOUNDARY_BLOCK, defaultHandler, kParts},
    {&A_CHANNEL_IN_BLOCK, boundaryHandler, kNames},
    {&A_CHANNEL_OUT_BLOCK, boundaryHandler, kNames},
    {&A_TYPE_PIN_BLOCK, handler<TypePinComplexUnroller>, "one pin with two ports a complex signal"},
    {&A_VPACK_BLOCK, nullptr, "what joins parts stays"},
    {&A_VUNPACK_BLOCK, nullptr, "what joins parts stays"},
    {&A_VCONCAT_BLOCK, defaultHandler, kParts},
    {&A_VSPLIT_BLOCK, defaultHandler, kParts},
    {&A_VSELECTOR_BLOCK, defaultHandler, kParts},
    {&A_CPACK_BLOCK, nullptr, "what joins parts stays"},
    {&A_CUNPACK_BLOCK, nullptr, "what joins parts stays"},
    {&A_APACK_BLOCK, nullptr, "what joins parts stays"},
    {&A_AUNPACK_BLOCK, nullptr, "what joins parts stays"},
    {&A_UNSCHED_BLOCK, boundaryHandler, kNames},
    {&A_BOUNDARY_BLOCK, boundaryHandler, kNames},
    {&A_HIDDEN_IFACE_BLOCK, boundaryHandler, kNames},
    {&A_EXT_IFACE_BLOCK, boundaryHandler, kNames},
    {&A_LATENCY_PLACEHOLDER_BLOCK, handler<LatencyPlaceholderComplexUnroller>, kNames},
    {&A_SCHEDULED_MODEL_BLOCK, nullptr, "its ports follow the mappings of the scheduled model"},
    {&A_UNSUPPORTED_BLOCK, nullptr, "nothing is known of what it computes"},
    {&A_STALLREG_BLOCK, handler<StallBoundaryComplexUnroller>, "one block with a number a part"},
    {&A_STALLENABLE_BLOCK, nullptr, "all its signals are conditions"},
    {&A_STALLENTER_BLOCK, handler<StallBoundaryComplexUnroller>, "one block with a number a part"},
    {&A_STALLEXIT_BLOCK, handler<StallBoundaryComplexUnroller>, "one block with a number a part"},
    {&A_STALLVALID_CONNECTOR_BLOCK, nullptr, "all its signals are conditions"},
    {&A_ENABLE_SINK_BLOCK, nullptr, "all its signals are conditions"},
    {&A_ENABLE_SRC_BLOCK, nullptr, "all its signals are conditions"},
    {&A_READY_BLOCK, nullptr, "all its signals are conditions"},
    {&A_ECC_SRC_BLOCK, nullptr, "its signals are the status of memories"},
    {&A_PIPE_BLOCK, handler<PipeUnroller<BoundaryComplexUnroller>>, kNames},
    {&A_FIXED_MFUNC_BLOCK, defaultHandler, kParts},
    {&A_FLOAT_MFUNC_BLOCK, defaultHandler, kParts},
    {&A_CIC_BLOCK, boundaryHandler, kNames},
    {&A_FIR_BLOCK, boundaryHandler, kNames},
    {&A_SCALE_BLOCK, boundaryHandler, kNames},
    {&A_MIXER_BLOCK, boundaryHandler, kNames},
    {&A_NCO_BLOCK, boundaryHandler, kNames},
    {&A_CHANVIEW_BLOCK, boundaryHandler, kNames},
    {&A_SHARED_FIFO_BLOCK, boundaryHandler, kNames},
    {&A_AXI4_STREAM_RECEIVER_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_AXI4_STREAM_TRANSMITTER_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_BFU_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_BFU_LONG_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_BFU_SHORT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_BITREVCORE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_BITREV_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_BUS_IN_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_BUS_OUT_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_BUS_SIGNALS_BLOCK, nullptr, "its words are those of a bus, which are real"},
    {&A_BUTTERFLY_ROUTER_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_BUTTERFLY_STAGE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_DELAY_VALID_BLOCK, nullptr, "all its signals are conditions"},
    {&A_ECC_SINK_BLOCK, nullptr, "its signals are the status of memories"},
    {&A_EDGE_DETECT_BLOCK, nullptr, "a change of any part is one change of the signal"},
    {&A_EXTMEM_READ_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_EXTMEM_WRITE_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_FFT2_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FFT4_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FFTCORE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FFTNP_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FFTNX_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FFT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FFT_CHOOSE_BITS_BLOCK, nullptr, "its signals are counts, addresses and bits of them, which are real"},
    {&A_FFT_LIGHT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FLUTTERBY_PATH_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FLUTTERBY_ROUTER_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_FROM_BLOCK, nullptr, "a tag carries its signal whole until ElideFromGotoPass has put a wire there"},
    {&A_GENERAL_MULT_TWIDDLE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_GENERAL_TWIDDLE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_GOTO_BLOCK, nullptr, "a tag carries its signal whole until ElideFromGotoPass has put a wire there"},
    {&A_HYBRID_FFT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_LATCH_0L_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_MEM_ADDR_GEN_BLOCK, nullptr, "its signals are counts, addresses and bits of them, which are real"},
    {&A_MM_REGISTER_BLOCK, nullptr, "its words are those of a bus, which are real"},
    {&A_MULTIWIRE_TRANSPOSE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_PFFT_PIPE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_PULSE_DIVIDER_BLOCK, nullptr, "all its signals are conditions"},
    {&A_PULSE_MULTIPLIER_BLOCK, nullptr, "all its signals are conditions"},
    {&A_READ_ACCESS_LUT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_SARNET_MM_MASTER_IN_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_MM_MASTER_OUT_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_MM_SLAVE_IN_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_MM_SLAVE_OUT_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_ST_SINK_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_ST_SINK_IN_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_ST_SINK_OUT_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_ST_SOURCE_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_ST_SOURCE_IN_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SARNET_ST_SOURCE_OUT_BLOCK, nullptr, "what is outside knows its signals by their names"},
    {&A_SHARED_MEM_BLOCK, nullptr, "its words are those of a bus, which are real"},
    {&A_SHARED_MEM_PLACEHOLDER_BLOCK, nullptr, "its words are those of a bus, which are real"},
    {&A_SPLIT_SPATIAL_TWIDDLE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_STAGE_DROP_BLOCK, nullptr, "all its signals are conditions"},
    {&A_TA0MN_BLOCK, nullptr, "an angle is a real number"},
    {&A_TAL1N_BLOCK, nullptr, "an angle is a real number"},
    {&A_TAL2N_BLOCK, nullptr, "an angle is a real number"},
    {&A_TALM1_BLOCK, nullptr, "an angle is a real number"},
    {&A_TALM2_BLOCK, nullptr, "an angle is a real number"},
    {&A_TALMN_BLOCK, nullptr, "an angle is a real number"},
    {&A_TRANSPOSE_ADDR_BLOCK, nullptr, "its signals are counts, addresses and bits of them, which are real"},
    {&A_TRANSPOSE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TRIVIAL_TWIDDLE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLEBY1_8F_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLEBY1_8P_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLEBY3_8F_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLEBY3_8P_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLEBYF_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLEBYP_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLE_ADD_SUB_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLE_ANGLE_BLOCK, nullptr, "an angle is a real number"},
    {&A_TWIDDLE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLE_COUNTER_BLOCK, nullptr, "its signals are counts, addresses and bits of them, which are real"},
    {&A_TWIDDLE_MULT_ANGLE_BLOCK, nullptr, "an angle is a real number"},
    {&A_TWIDDLE_MULT_ROM_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_TWIDDLE_ROM_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VBITREVCORE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VBITREV_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VBR_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VECTOR_FANOUT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VFFT2_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VFFT4_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VFFTCORE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VFFT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VFFT_LIGHT_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VFFT_PIPE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_VPD_BLOCK, nullptr, "all its signals are conditions"},
    {&A_VPM_BLOCK, nullptr, "all its signals are conditions"},
    {&A_VTWIDDLE_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&A_XOR_BITS_BLOCK, nullptr, "its signals are counts, addresses and bits of them, which are real"},
    {&A_XSWITCH_BLOCK, nullptr, "a part of a transform: what it is built from comes apart in its place"},
    {&U_ADD_BLOCK, handler<SumComplexUnroller<false>>, kParts},
    {&U_AND_BLOCK, defaultHandler, kParts},
    {&U_AND_REDUCE_BLOCK, defaultHandler, kParts},
    {&U_BIT_JOIN_BLOCK, defaultHandler, kParts},
    {&U_BIT_SELECT_BLOCK, defaultHandler, kParts},
    {&U_CAST_BLOCK, defaultHandler, kParts},
    {&U_CMP_EQ_BLOCK, handler<EqualityComplexUnroller>, "a comparison of each part, and a logic block"},
    {&U_CMP_GE_BLOCK, realOnlyHandler, "its type rule takes real operands alone: complex numbers have no order"},
    {&U_CMP_LT_BLOCK, realOnlyHandler, "its type rule takes real operands alone: complex numbers have no order"},
    {&U_CMP_NE_BLOCK, handler<EqualityComplexUnroller>, "a comparison of each part, and a logic block"},
    {&U_FOR_LOOP_BLOCK, realOnlyHandler, "counts below real limits"},
    {&U_LUT_BLOCK, handler<LUTComplexUnroller>, kValues},
    {&U_MUX_BLOCK, handler<MuxComplexUnroller>, kShared},
    {&U_NAND_BLOCK, defaultHandler, kParts},
    {&U_NAND_REDUCE_BLOCK, defaultHandler, kParts},
    {&U_NOR_BLOCK, defaultHandler, kParts},
    {&U_NOR_REDUCE_BLOCK, defaultHandler, kParts},
    {&U_NOT_BLOCK, defaultHandler, kParts},
    {&U_OR_BLOCK, defaultHandler, kParts},
    {&U_OR_REDUCE_BLOCK, defaultHandler, kParts},
    {&U_REGISTER_BLOCK, handler<RegisterUnroller>, kValues},
    {&U_SUB_BLOCK, handler<SumComplexUnroller<true>>, kParts},
    {&U_XNOR_BLOCK, defaultHandler, kParts},
    {&U_XNOR_REDUCE_BLOCK, defaultHandler, kParts},
    {&U_XOR_BLOCK, defaultHandler, kParts},
    {&U_XOR_REDUCE_BLOCK, defaultHandler, kParts},
};
// clang-format on

} // namespace

const ComplexUnrollHandler *realOnlyHandler() {
    static const ComplexUnrollHandlerT<RealOnlyUnroller> handler;
    return &handler;
}

std::span<const ComplexUnrollRow> complexUnrollRows() { return kRows; }

void registerComplexUnrollers(Context *context) {
    for (const ComplexUnrollRow &row : kRows) {
        if (row.handler != nullptr) {
            context->getBlockClass(*row.blockType)->registerHandler<ComplexUnrollHandler>(row.handler(), false);
        }
    }
}

} // namespace orvo::internal
