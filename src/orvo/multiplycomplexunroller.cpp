// Products of complex numbers in real ones.
#include "orvo/multiplycomplexunroller.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <utility>

namespace orvo {

namespace internal {

namespace {

/// Whether blocks of a type may carry a parameter of this value. Without a catalogue, all may carry everything.
bool mayCarry(const Block &made, const StaticString &key, const Value *value) {
    const BlocksInfo &catalogue = getBlocksInfo();
    const std::string *type = catalogue.findReversedMapping(made.type()->toString());
    if (type == nullptr || !catalogue.blockExists(*type)) {
        return true;
    }
    const auto standsFor = [&](const std::string &name, const std::string &text) {
        const std::string *mapped = catalogue.findMapping(name);
        return mapped != nullptr && *mapped == text;
    };
    const std::vector<BlockConnection> &connections = catalogue.getBlockInfo(*type).connections;
    const auto known = std::find_if(connections.begin(), connections.end(), [&](const BlockConnection &connection) {
        return standsFor(connection.name, key.text());
    });
    if (known == connections.end()) {
        return false;
    }
    const std::string text = value->toString();
    return known->isOpen() || known->values.empty() ||
           std::any_of(known->values.begin(), known->values.end(),
                       [&](const std::string &one) { return one == text || standsFor(one, text); });
}

} // namespace

void copyKnownParams(Block &made, const Block &original, std::initializer_list<const StaticString *> keys) {
    for (const StaticString *key : keys) {
        const ValueRef value = original.getParam(*key);
        if (value && mayCarry(made, *key, value.get_ptr())) {
            made.setParam(*key, value);
        }
    }
}

void copyArithmeticHints(Block &made, const Block &original) {
    copyKnownParams(made, original,
                    {&A_FLOAT_ROUNDING, &A_FLOAT_ROUNDING_MODE, &A_FLOAT_SUBNORMALS, &A_SYNTH_FORCE_SOFT_FP,
                     &A_FUSED_DATAPATH, &A_FPC_NORM_THRESHOLD, &A_MULT_LOGIC, &A_MULT_ARCHITECTURE,
                     &A_MULT_OPTIMIZE_CONST_BEFORE_TILING, &A_HINT_MIN_LATENCY});
}

} // namespace internal

ComplexFactor::ComplexFactor(Wire &real, Wire *imaginary, const NumTypeSpec &type) : mType(type) {
    mReal.wire = &real;
    mImaginary.wire = imaginary;
}

NumTypeSpec ComplexFactor::partType() const {
    NumTypeSpec type = mType;
    type.setComplex(false);
    return type;
}

void ComplexFactor::feed(bool imaginary, const MaybePort &port) {
    Part &from = part(imaginary);
    if (from.wire != nullptr) {
        port.setWire(*from.wire);
    }
    from.readers.push_back(port);
}

const std::vector<MaybePort> &ComplexFactor::attach(bool imaginary, Wire &driver) {
    Part &of = part(imaginary);
    of.wire = &driver;
    for (const MaybePort &reader : of.readers) {
        reader.setWire(driver);
    }
    return of.readers;
}

std::string MultiplyComplexUnroller::reason() const {
    if (mFactors.size() < 2) {
        return "it has fewer than two factors";
    }
    const auto isReal = [](const auto &of) { return !of.second.isComplex(); };
    return std::all_of(mFactors.begin(), mFactors.end(), isReal) ? "none of its factors is complex" : "";
}

/// Whether the result is of the type that the multipliers of the parts give by themselves.
bool MultiplyComplexUnroller::isExactIn(const RefChain &instance) const {
    if (mFactors.size() != 2 || mBlock.getWire(A_PRIM_WIRE_OUT) == nullptr) {
        return false;
    }
    Context *context = mBlock.getContext();
    const auto partOf = [&](const PureValueRef &type) {
        NumTypeSpec part(type, context);
        part.setComplex(false);
        return part;
    };
    std::vector<NumTypeSpec> factors;
    for (const Port &port : std::as_const(mBlock).ports()) {
        factors.push_back(partOf(typeOf(port, instance)));
    }
    return NumTypeSpec::typeOp(factors.at(0), factors.at(1), TYPE_OP_MUL) ==
           partOf(typeOf(*mBlock.getWire(A_PRIM_WIRE_OUT), instance));
}

bool MultiplyComplexUnroller::writesTypes() const { return !mIsExact; }

ComplexWireKind MultiplyComplexUnroller::originalWire(Wire &wire, const ComplexDecorSpec &decor) {
    mOutputType = NumTypeSpec(typeOf(wire), wire.getContext());
    mOutputType.setComplex(false);
    mDiffers = mDiffers || !isOfOneType(wire);
    return ComplexUnroller::originalWire(wire, decor);
}

ComplexPortKind MultiplyComplexUnroller::originalPort(Port &port, const ComplexDecorSpec &) {
    mFactors.emplace(port.getName(), ComplexFactor(NumTypeSpec(typeOf(port), mBlock.getContext())));
    mDiffers = mDiffers || !isOfOneType(port);
    mIsExact =
        !mBlock.getParam(A_MULT_TYPE) && std::all_of(instances().begin(), instances().end(),
                                                     [this](const RefChain &instance) { return isExactIn(instance); });
    return ComplexPortKind::Split;
}

ComplexFactor &MultiplyComplexUnroller::factor(std::size_t number) {
    ORVO_ASSERT(number < mFactors.size(), "a product has no factor of this number");
    return std::next(mFactors.begin(), static_cast<std::ptrdiff_t>(number))->second;
}

void MultiplyComplexUnroller::setOutputs(Wire &real, Wire &imaginary) {
    mReal = &real;
    mImaginary = &imaginary;
}

Block &MultiplyComplexUnroller::make(const PureValueRef &name, const StaticString &type) const {
    Block &made = *Block::create(mBlock.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    internal::copyArithmeticHints(made, mBlock);
    if (type == A_MULT_BLOCK || type == A_MONSTER_MULT_BLOCK) {
        internal::copyKnownParams(made, mBlock, {&A_ADD_NO_GROWTH});
    }
    return made;
}

Block &MultiplyComplexUnroller::make(const char *word, const StaticString &type) const {
    return make(internal::nameBelow(mBlock, word), type);
}

Wire &MultiplyComplexUnroller::out(Block &block) {
    Wire *wire = block.getWire(A_PRIM_WIRE_OUT);
    return wire != nullptr ? *wire : *Wire::create(block, A_PRIM_WIRE_OUT);
}

MaybePort MultiplyComplexUnroller::in(Block &block, int port) {
    return {block, NumberValue::get(port, block.getContext())};
}

PureValueRef MultiplyComplexUnroller::nameOf(const char *word, const Step &step) const {
    Context *context = mBlock.getContext();
    if (mFactors.size() == 2) {
        return internal::nameBelow(mBlock, word);
    }
    return PureTupleValue::get(mBlock.getName(), PureValueRef(StringValue::get(word, context)),
                               PureValueRef(NumberValue::get(step.number, context)), context);
}

Block &MultiplyComplexUnroller::multiplier(const char *word, const Step &step, ComplexFactor &a, bool aImaginary,
                                           ComplexFactor &b, bool bImaginary) const {
    const NumTypeSpec exact = NumTypeSpec::typeOp(a.partType(), b.partType(), TYPE_OP_MUL);
    const bool isResult = step.isLast && !(a.isComplex() && b.isComplex());
    // Bits that a given type cuts off below are cut once, behind the sum of two products.
    const bool cutsLater =
        step.isLast && !isResult && mOutputType.isFixed() && mOutputType.fracBits() < exact.fracBits();
    const bool isGiven = mBlock.getParam(A_MULT_TYPE) && !cutsLater && (step.isLast || mOutputType.isFloat());
    const bool isTyped = isGiven || (isResult && !(exact == mOutputType));
    const bool isWide = mBlock.type() == A_MONSTER_MULT_BLOCK.get_ptr() && !isTyped;
    Block &made = make(nameOf(word, step), isWide ? A_MONSTER_MULT_BLOCK : A_MULT_BLOCK);
    a.feed(aImaginary, in(made, 0));
    b.feed(bImaginary, in(made, 1));
    if (isTyped) {
        NumTypeSpec type = mOutputType;
        type.stripVectors();
        made.setParam(A_MULT_TYPE, type.toValue(mBlock.getContext()));
    }
    return made;
}

Wire &MultiplyComplexUnroller::combined(const char *word, const Step &step, const StaticString &type,
                                        const NumTypeSpec &sum, Wire &first, Wire &second) const {
    Block &made = make(nameOf(word, step), type);
    // The exact products are of the type of the result, which the sum keeps in each instance if it does not grow.
    const bool isOpen = mIsExact && mDiffers;
    if (!isOpen) {
        NumTypeSpec scalar = sum;
        scalar.stripVectors();
        made.setParam(A_ADD_TYPE, scalar.toValue(mBlock.getContext()));
    }
    const bool noGrowth = isOpen || mBlock.findParam(A_ADD_NO_GROWTH) == A_TRUE.get_ptr();
    made.setParam(A_ADD_NO_GROWTH, noGrowth ? A_TRUE : A_FALSE);
    in(made, 0).setWire(first);
    in(made, 1).setWire(second);
    return out(made);
}

ComplexFactor MultiplyComplexUnroller::product(const Step &step, ComplexFactor &a, ComplexFactor &b) const {
    NumTypeSpec type = NumTypeSpec::typeOp(a.type(), b.type(), TYPE_OP_MUL);
    if (!a.isComplex() && !b.isComplex()) {
        return {out(multiplier("realMult1", step, a, false, b, false)), nullptr, type};
    }
    Block &real = multiplier("realMult1", step, a, false, b, false);
    Block &imaginary = multiplier("imagMult1", step, a, !b.isComplex(), b, b.isComplex());
    if (!a.isComplex() || !b.isComplex()) {
        return {out(real), &out(imaginary), type};
    }
    Block &realToo = multiplier("realMult2", step, a, true, b, true);
    Block &imaginaryToo = multiplier("imagMult2", step, a, true, b, false);
    NumTypeSpec sum = mOutputType;
    if (!step.isLast && type.isFixed()) {
        // Nothing is lost before the last step: a bit for the sum, and one for its sign.
        type.setToFixed(true, type.intBits() + 2, type.fracBits());
        sum = type;
        sum.setComplex(false);
    }
    Wire &difference = combined("realSub", step, A_SUB_BLOCK, sum, out(real), out(realToo));
    Wire &total = combined("imagAdd", step, A_ADD_BLOCK, sum, out(imaginary), out(imaginaryToo));
    return {difference, &total, type};
}

void MultiplyComplexUnroller::preAttach() {
    std::vector<ComplexFactor> products;
    products.reserve(mFactors.size());
    ComplexFactor *soFar = &mFactors.begin()->second;
    int number = 0;
    for (auto next = std::next(mFactors.begin()); next != mFactors.end(); ++next) {
        products.push_back(product({number++, std::next(next) == mFactors.end()}, *soFar, next->second));
        soFar = &products.back();
    }
    mReal = soFar->wire(false);
    mImaginary = soFar->wire(true);
}

Wire *MultiplyComplexUnroller::attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                                          const std::vector<MaybePort> &readers) {
    Wire *part = imaginary ? mImaginary : mReal;
    OrvoUtils::copyParams(*part, wire);
    for (const MaybePort &reader : readers) {
        reader.setWire(*part);
    }
    return part;
}

void MultiplyComplexUnroller::attachPort(Port &port, const ComplexDecorSpec &, bool imaginary, Wire &driver) {
    const auto of = mFactors.find(port.getName());
    ORVO_ASSERT(of != mFactors.end(), "a product has no factor at this port");
    for (const MaybePort &reader : of->second.attach(imaginary, driver)) {
        addAttachedPort(reader);
    }
}

void MultiplyComplexUnroller::postAttach() { delete &mBlock; }

ComplexPortKind MultiplyKaratsubaComplexUnroller::originalPort(Port &port, const ComplexDecorSpec &decor) {
    mPorts.push_back(port.getName());
    mAllComplex = mAllComplex && decor.isComplex();
    return MultiplyComplexUnroller::originalPort(port, decor);
}

bool MultiplyKaratsubaComplexUnroller::writesTypes() const {
    return (mAllComplex && isAskedFor()) || MultiplyComplexUnroller::writesTypes();
}

bool MultiplyKaratsubaComplexUnroller::isAskedFor() const {
    return block().findParam(A_COMPLEX_KARATSUBA) == A_TRUE.get_ptr() ||
           block().getModel().findParam(A_SYNTH_COMPLEX_MULT_KARATSUBA) == A_TRUE.get_ptr();
}

void MultiplyKaratsubaComplexUnroller::preAttach() {
    if (!mAllComplex || mPorts.size() != 2 || !isAskedFor() || outputType().isFloat()) {
        MultiplyComplexUnroller::preAttach();
        return;
    }
    // a + jb and c + jd: ac - bd = a(c + d) - d(a + b), ad + bc = b(c - d) + d(a + b).
    ComplexFactor &first = factor(0);
    ComplexFactor &second = factor(1);
    const auto ofWires = [this](const char *word, const StaticString &type, Wire &a, Wire &b) -> Wire & {
        Block &made = make(word, type);
        in(made, 0).setWire(a);
        in(made, 1).setWire(b);
        return out(made);
    };
    const auto ofParts = [this](const char *word, const StaticString &type, ComplexFactor &of) -> Wire & {
        Block &made = make(word, type);
        of.feed(false, in(made, 0));
        of.feed(true, in(made, 1));
        return out(made);
    };
    const auto times = [this](const char *word, ComplexFactor &of, bool imaginary, Wire &by) -> Wire & {
        Block &made = make(word, A_MULT_BLOCK);
        of.feed(imaginary, in(made, 0));
        in(made, 1).setWire(by);
        return out(made);
    };
    const auto cut = [this](const char *word, Wire &exact) -> Wire & {
        Block &made = make(word, A_CAST_BLOCK);
        made.setParam(A_CAST_MODE, A_CAST_MODE_CONVERT);
        made.setParam(A_CAST_OUTPUT_TYPE, outputType().toValue(made.getContext()));
        made.setParam(A_CAST_ROUNDING_MODE, A_ROUNDING_TRUNC);
        made.setParam(A_CAST_SATURATE_MODE, A_SATURATE_NONE);
        in(made, 0).setWire(exact);
        return out(made);
    };
    Wire &prod0 = times("prod0", first, false, ofParts("add0", A_ADD_BLOCK, second));
    Wire &prod1 = times("prod1", first, true, ofParts("sub0", A_SUB_BLOCK, second));
    Wire &prod2 = times("prod2", second, true, ofParts("add1", A_ADD_BLOCK, first));
    setOutputs(cut("truncReal", ofWires("subReal", A_SUB_BLOCK, prod0, prod2)),
               cut("truncImag", ofWires("addImag", A_ADD_BLOCK, prod1, prod2)));
}

} // namespace orvo
