// Scalar products of complex numbers in real ones.
#include "orvo/scalarproductcomplexunroller.h"

#include <orvo/block.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>

#include <algorithm>

namespace orvo::internal {

namespace {

Wire &outOf(Block &block) { return *Wire::create(block, A_PRIM_WIRE_OUT); }

MaybePort portOf(Block &block, std::size_t number) {
    return {block, NumberValue::get(static_cast<int>(number), block.getContext())};
}

bool isBefore(const std::pair<PureValueRef, ComplexFactor> &operand, const PureValueRef &name) {
    return DeepValueCmp()(operand.first, name);
}

} // namespace

std::string ScalarProductComplexUnroller::reason() const {
    if (mOutputType.isFloat() && mHasVectors) {
        // Both products of a complex one come before the next lane, which no scalar product of vectors does.
        return "no scalar product of vectors of real floats adds in the order of that of complex ones";
    }
    if (mOperands.empty() || mOperands.size() % 2 != 0) {
        return "its operands are no pairs";
    }
    const auto isReal = [](const auto &operand) { return !operand.second.isComplex(); };
    return !mChain.isComplex() && std::all_of(mOperands.begin(), mOperands.end(), isReal)
               ? "none of its operands is complex"
               : "";
}

bool ScalarProductComplexUnroller::isFloatIn(const RefChain &instance) const {
    return NumTypeSpec(typeOf(*mBlock.getWire(A_PRIM_WIRE_OUT), instance), mBlock.getContext()).isFloat();
}

/// If the same side of all pairs is complex and the other real, each part has one product a pair and all of the
/// chain-in, as the whole has. Floats must be floats in all instances, for they are added in another way.
bool ScalarProductComplexUnroller::writesTypes() const {
    if (mBlock.getParam(A_MULT_TYPE) || (hasChain() && !mChain.isComplex())) {
        return true;
    }
    for (std::size_t i = 0; i < mOperands.size(); ++i) {
        if (mOperands[i].second.isComplex() != mOperands[i % 2].second.isComplex()) {
            return true;
        }
    }
    const bool isFloat = mOutputType.isFloat();
    return mOperands[0].second.isComplex() == mOperands[1].second.isComplex() || (isFloat && isSubtractive()) ||
           !std::all_of(instances().begin(), instances().end(),
                        [&](const RefChain &instance) { return isFloatIn(instance) == isFloat; });
}

ComplexWireKind ScalarProductComplexUnroller::originalWire(Wire &wire, const ComplexDecorSpec &decor) {
    mOutputType = NumTypeSpec(typeOf(wire), wire.getContext());
    mOutputType.setComplex(false);
    return ComplexUnroller::originalWire(wire, decor);
}

ComplexPortKind ScalarProductComplexUnroller::originalPort(Port &port, const ComplexDecorSpec &) {
    const NumTypeSpec type(typeOf(port), mBlock.getContext());
    mHasVectors = mHasVectors || type.isVector();
    if (port.getName() == A_SCALAR_PRODUCT_PORT_CHAININ) {
        mChain = ComplexFactor(type);
    } else {
        const auto at = std::lower_bound(mOperands.begin(), mOperands.end(), port.getName(), isBefore);
        mOperands.emplace(at, port.getName(), ComplexFactor(type));
    }
    return ComplexPortKind::Split;
}

ComplexFactor &ScalarProductComplexUnroller::operand(std::size_t pair, int side) {
    return mOperands[2 * pair + static_cast<std::size_t>(side)].second;
}

bool ScalarProductComplexUnroller::isSubtractive() const { return mBlock.findParam(A_SUBTRACTIVE) == A_TRUE.get_ptr(); }

Block &ScalarProductComplexUnroller::make(const PureValueRef &name, const StaticString &type) const {
    Block &made = *Block::create(mBlock.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    copyArithmeticHints(made, mBlock);
    return made;
}

Block &ScalarProductComplexUnroller::make(const char *word, const StaticString &type) const {
    return make(nameBelow(mBlock, word), type);
}

Block &ScalarProductComplexUnroller::make(const char *word, std::size_t number, const StaticString &type) const {
    Context *context = mBlock.getContext();
    return make(PureTupleValue::get(mBlock.getName(), PureValueRef(StringValue::get(word, context)),
                                    PureValueRef(NumberValue::get(static_cast<int>(number), context)), context),
                type);
}

void ScalarProductComplexUnroller::setProductType(Block &made, NumTypeSpec type) const {
    if (mWritesTypes) {
        type.stripVectors();
        made.setParam(A_MULT_TYPE, type.toValue(mBlock.getContext()));
    }
}

/// The products of these parts. Vectors give the sum its dimensions, so that all pairs must be there, with zeros where
/// a part is missing; none if no pair has both parts, unless the dimensions are needed.
ScalarProductComplexUnroller::Terms ScalarProductComplexUnroller::termsOf(bool firstImaginary, bool secondImaginary,
                                                                          bool needsDimensions) {
    Terms terms;
    bool hasAny = needsDimensions;
    for (std::size_t pair = 0; pair < mOperands.size() / 2; ++pair) {
        const bool isSubtracted = isSubtractive() && 2 * pair + 2 == mOperands.size();
        const bool hasFirst = !firstImaginary || operand(pair, 0).isComplex();
        const bool hasSecond = !secondImaginary || operand(pair, 1).isComplex();
        if (mHasVectors || (hasFirst && hasSecond)) {
            terms.push_back({pair, firstImaginary, secondImaginary, isSubtracted});
        }
        hasAny = hasAny || (hasFirst && hasSecond);
    }
    return hasAny ? terms : Terms();
}

void ScalarProductComplexUnroller::feed(const Term &term, Block &made, std::size_t number) {
    feedPart(operand(term.pair, 0), term.firstImaginary, portOf(made, 2 * number));
    feedPart(operand(term.pair, 1), term.secondImaginary, portOf(made, 2 * number + 1));
}

void ScalarProductComplexUnroller::feedPart(ComplexFactor &from, bool imaginary, const MaybePort &port) {
    if (!imaginary || from.isComplex()) {
        from.feed(imaginary, port);
    } else {
        port.setWire(zeroLike(from.partType(), port));
    }
}

Wire &ScalarProductComplexUnroller::zeroLike(const NumTypeSpec &type, const MaybePort &port) const {
    Context *context = mBlock.getContext();
    Block &zero = make(PureTupleValue::get(port.getBlock().getName(), port.getKey(),
                                           PureValueRef(StringValue::get("imagZero", context)), context),
                       A_CONST_BLOCK);
    zero.setParam(A_CONST_VALUE, NumberValue::get(0, context));
    zero.setParam(A_CONST_TYPE, type.toValue(context));
    return outOf(zero);
}

/// Fraction bits of the exact sum.
int ScalarProductComplexUnroller::exactFraction() {
    int fraction = hasChain() ? mChain.type().fracBits() : mOutputType.fracBits();
    for (std::size_t pair = 0; pair < mOperands.size() / 2; ++pair) {
        fraction = std::max(fraction, operand(pair, 0).type().fracBits() + operand(pair, 1).type().fracBits());
    }
    return fraction;
}

/// Null if there is nothing to add.
Wire *ScalarProductComplexUnroller::dot(const char *word, const Terms &terms, const NumTypeSpec &type, bool takesChain,
                                        bool chainImaginary) {
    if (terms.empty() && !takesChain) {
        return nullptr;
    }
    Block &made = make(word, A_SCALAR_PRODUCT_BLOCK);
    setProductType(made, type);
    if (!terms.empty() && terms.back().isSubtracted) {
        made.setParam(A_SUBTRACTIVE, A_TRUE);
    }
    for (std::size_t i = 0; i < terms.size(); ++i) {
        feed(terms[i], made, i);
    }
    if (terms.empty()) {
        // The chain-in alone is no scalar product.
        Wire &none = zeroLike(NumTypeSpec::boolean(), portOf(made, 0));
        portOf(made, 0).setWire(none);
        portOf(made, 1).setWire(none);
    }
    if (takesChain) {
        copyKnownParams(made, mBlock, {&A_SUBTRACTIVE_CHAININ});
        mChain.feed(chainImaginary, {made, A_SCALAR_PRODUCT_PORT_CHAININ});
    }
    return &outOf(made);
}

Wire &ScalarProductComplexUnroller::combined(const char *word, const StaticString &type, Wire *first,
                                             Wire *second) const {
    if (second == nullptr) {
        return *first;
    }
    Block &made = make(word, type);
    NumTypeSpec scalar = mOutputType;
    scalar.stripVectors();
    made.setParam(A_ADD_TYPE, scalar.toValue(mBlock.getContext()));
    portOf(made, 0).setWire(*first);
    portOf(made, 1).setWire(*second);
    return outOf(made);
}

void ScalarProductComplexUnroller::preAttachGeneralCase() {
    const bool chainIsComplex = hasChain() && mChain.isComplex();
    const Terms ofRR = termsOf(false, false, false);
    const Terms ofII = termsOf(true, true, false);
    const Terms ofIR = termsOf(true, false, false);
    const Terms ofRI = termsOf(false, true, mHasVectors && chainIsComplex && ofIR.empty());
    // What wraps beyond the output's integer bits in one of two sums wraps in the output; below nothing may be cut.
    NumTypeSpec half = mOutputType;
    if (const int fraction = exactFraction(); fraction > half.fracBits()) {
        half.setToFixed(true, half.intBits(), fraction);
    }
    const bool hasBoth = !ofRI.empty() && !ofIR.empty();
    Wire *rr = dot("dotRR", ofRR, ofII.empty() ? mOutputType : half, hasChain(), false);
    Wire *ii = dot("dotII", ofII, half, false, false);
    const bool riTakesChain = chainIsComplex && (!ofRI.empty() || ofIR.empty());
    Wire *ri = dot("dotRI", ofRI, hasBoth ? half : mOutputType, riTakesChain, true);
    Wire *ir = dot("dotIR", ofIR, hasBoth ? half : mOutputType, chainIsComplex && !riTakesChain, true);
    mReal = &combined("realSub", A_SUB_BLOCK, rr, ii);
    mImaginary = ri == nullptr ? ir : &combined("imagAdd", A_ADD_BLOCK, ri, ir);
}

/// The products of a part in the order in which they are added.
ScalarProductComplexUnroller::Terms ScalarProductComplexUnroller::termsOfPart(bool imaginary) {
    Terms terms;
    for (std::size_t pair = 0; pair < mOperands.size() / 2; ++pair) {
        const bool isSubtracted = isSubtractive() && 2 * pair + 2 == mOperands.size();
        const bool first = operand(pair, 0).isComplex();
        const bool second = operand(pair, 1).isComplex();
        if (!imaginary || second) {
            terms.push_back({pair, false, imaginary, isSubtracted});
        }
        if (first && (imaginary || second)) {
            terms.push_back({pair, true, !imaginary, isSubtracted == imaginary});
        }
    }
    return terms;
}

void ScalarProductComplexUnroller::feedNegated(const char *word, const Term &term, Block &made, std::size_t number) {
    Context *context = mBlock.getContext();
    Block &negation =
        make(PureTupleValue::get(internal::nameBelow(mBlock, word), PureValueRef(StringValue::get("neg", context)),
                                 PureValueRef(NumberValue::get(static_cast<int>(number), context)), context),
             A_NEG_BLOCK);
    operand(term.pair, 0).feed(term.firstImaginary, portOf(negation, 0));
    portOf(made, 2 * number).setWire(outOf(negation));
    operand(term.pair, 1).feed(term.secondImaginary, portOf(made, 2 * number + 1));
}

/// A scalar product for each product, chained, for the sign of a product would turn the way that it rounds.
Wire &ScalarProductComplexUnroller::sumOneByOne(const char *word, const Terms &terms, bool imaginary) {
    Wire *sum = nullptr;
    for (std::size_t i = 0; i < terms.size(); ++i) {
        Block &made = make(word, i, A_SCALAR_PRODUCT_BLOCK);
        setProductType(made, mOutputType);
        made.setParam(A_SUBTRACTIVE, terms[i].isSubtracted ? A_TRUE : A_FALSE);
        feed(terms[i], made, 0);
        if (sum != nullptr) {
            made.setParam(A_SCALAR_PRODUCT_PORT_CHAININ, *sum);
        }
        sum = &outOf(made);
    }
    if (!hasChain() || (imaginary && !mChain.isComplex())) {
        return *sum;
    }
    const bool subtracts = mBlock.findParam(A_SUBTRACTIVE_CHAININ) == A_TRUE.get_ptr();
    Block &made = make(word, terms.size(), subtracts ? A_SUB_BLOCK : A_ADD_BLOCK);
    portOf(made, 0).setWire(*sum);
    mChain.feed(imaginary, portOf(made, 1));
    made.setParam(A_ADD_TYPE, mOutputType.toValue(mBlock.getContext()));
    return outOf(made);
}

/// Of a part to which no product adds.
Wire &ScalarProductComplexUnroller::chainAlone(const char *word, bool imaginary) {
    Block &cast = make(word, A_CAST_BLOCK);
    cast.setParam(A_CAST_OUTPUT_TYPE, mOutputType.toValue(mBlock.getContext()));
    if (mBlock.findParam(A_SUBTRACTIVE_CHAININ) == A_TRUE.get_ptr()) {
        Block &negation = make("neg", A_NEG_BLOCK);
        mChain.feed(imaginary, portOf(negation, 0));
        portOf(cast, 0).setWire(outOf(negation));
    } else {
        if (mChain.partType() == mOutputType) {
            // Not even a subnormal number changes where nothing is added to it.
            cast.setParam(A_CAST_MODE, A_CAST_MODE_REINTERP);
        }
        mChain.feed(imaginary, portOf(cast, 0));
    }
    return outOf(cast);
}

Wire &ScalarProductComplexUnroller::sumOfPart(const char *word, bool imaginary) {
    const Terms terms = termsOfPart(imaginary);
    if (terms.empty()) {
        return chainAlone(word, imaginary);
    }
    const Value *mode = mBlock.findParam(A_FLOAT_ROUNDING_MODE);
    const bool isDirected = mode == A_ROUNDING_RNDU.get_ptr() || mode == A_ROUNDING_RNDD.get_ptr();
    const auto isSubtracted = [](const Term &term) { return term.isSubtracted; };
    if (isDirected && std::any_of(terms.begin(), terms.end(), isSubtracted)) {
        return sumOneByOne(word, terms, imaginary);
    }
    Block &made = make(word, A_SCALAR_PRODUCT_BLOCK);
    setProductType(made, mOutputType);
    for (std::size_t i = 0; i < terms.size(); ++i) {
        if (terms[i].isSubtracted) {
            feedNegated(word, terms[i], made, i);
        } else {
            feed(terms[i], made, i);
        }
    }
    if (hasChain() && (!imaginary || mChain.isComplex())) {
        copyKnownParams(made, mBlock, {&A_SUBTRACTIVE_CHAININ});
        mChain.feed(imaginary, {made, A_SCALAR_PRODUCT_PORT_CHAININ});
    }
    return outOf(made);
}

void ScalarProductComplexUnroller::preAttachComplexFP() {
    mReal = &sumOfPart("dotReal", false);
    mImaginary = &sumOfPart("dotImag", true);
}

void ScalarProductComplexUnroller::preAttach() {
    mWritesTypes = writesTypes();
    if (mOutputType.isFloat()) {
        preAttachComplexFP();
    } else {
        preAttachGeneralCase();
    }
}

Wire *ScalarProductComplexUnroller::attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                                               const std::vector<MaybePort> &readers) {
    Wire *part = imaginary ? mImaginary : mReal;
    OrvoUtils::copyParams(*part, wire);
    for (const MaybePort &reader : readers) {
        reader.setWire(*part);
    }
    return part;
}

void ScalarProductComplexUnroller::attachPort(Port &port, const ComplexDecorSpec &, bool imaginary, Wire &driver) {
    const bool isChain = port.getName() == A_SCALAR_PRODUCT_PORT_CHAININ;
    const auto of = std::lower_bound(mOperands.begin(), mOperands.end(), port.getName(), isBefore);
    ComplexFactor &factor = isChain ? mChain : of->second;
    for (const MaybePort &reader : factor.attach(imaginary, driver)) {
        addAttachedPort(reader);
    }
}

void ScalarProductComplexUnroller::postAttach() { delete &mBlock; }

} // namespace orvo::internal
