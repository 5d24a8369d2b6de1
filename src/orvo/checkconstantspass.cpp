// Values of constants against the ranges of their types, element by element.
#include "orvo/checkconstantspass.h"

#include "orvo/fixednumbers.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <util/features.h>

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(CheckConstantsPass,
                 "Warns of each constant with A_CONST_WARN_SATURATION whose value is out of the range of its "
                 "fixed-point type, or not of the shape of that. Nothing changes: such a constant saturates.")

namespace internal {

int calcRequiredBits(const NumberValue &value, const NumTypeSpec &type) {
    const mpz_class steps = stepsOf(value, type.fracBits());
    const bool isNegative = sgn(steps) < 0;
    // What is left of a negative number without its sign begins with the first zero: -1 is all ones.
    const mpz_class magnitude = isNegative ? mpz_class(-steps - 1) : steps;
    const auto ofMagnitude = sgn(magnitude) == 0 ? 0 : static_cast<int>(mpz_sizeinbase(magnitude.get_mpz_t(), 2));
    if (isNegative && !type.isSigned()) {
        return std::max(ofMagnitude, type.fixedBits()) + 1;
    }
    return type.isSigned() ? ofMagnitude + 1 : std::max(ofMagnitude, 1);
}

} // namespace internal

namespace {

using Shape = std::string;

/// A number in the value of a constant.
struct Element {
    NumberValueRef number;
    /// Null for a real one.
    const char *component;
    std::string index;
};

/// Whether the type is a record's, or one of vectors of records.
bool isRecordType(const ValueRef &type, Context *context) {
    PureValueRef element;
    const VectorDecorSpec vectors(type, element, context);
    return isAggregateType(element.get_ptr());
}

/// The value of one constant.
class Check {
  public:
    Check(const Block &block, NumTypeSpec type, int base, int digits)
        : mName(block.getModel().getName()->toString() + "/" + block.getName()->toString()), mType(std::move(type)),
          mBase(base), mDigits(digits) {}

    void run(const ValueRef &value) {
        if (collect(value, 0, "")) {
            for (const Element &element : mElements) {
                judge(element);
            }
        }
    }

  private:
    bool collect(const ValueRef &value, std::size_t dimension, const std::string &index);
    bool collectParts(const ValueRef &value, const std::string &index);
    bool collectNumber(const ValueRef &value, const char *component, const std::string &index);
    bool mismatch(const Shape &actual, const Shape &expected) const;
    void judge(const Element &element) const;

    std::string mName;
    NumTypeSpec mType;
    int mBase;
    int mDigits;
    std::vector<Element> mElements;
};

Shape shapeOf(const ValueRef &value) {
    if (!value) {
        return "missing value";
    }
    if (numberVR(value)) {
        return "scalar";
    }
    const TupleValueRef tuple = tupleVR(value);
    if (!tuple) {
        return "text";
    }
    return tuple->size() != 0 && tuple->at(0) == A_VECTOR_ROLL_TAG    ? "vector"
           : tuple->size() != 0 && tuple->at(0) == A_COMPLEX_ROLL_TAG ? "complex number"
                                                                      : "tuple";
}

/// The elements of a tuple, rolled in that way or plain; nothing of any other value.
std::vector<ValueRef> elementsOf(const ValueRef &value, const StaticString &tag) {
    const TupleValueRef tuple = tupleVR(value);
    if (!tuple || tuple->size() == 0) {
        return {};
    }
    const bool isRolled = tuple->at(0) == A_VECTOR_ROLL_TAG || tuple->at(0) == A_COMPLEX_ROLL_TAG;
    if (isRolled && !(tuple->at(0) == tag)) {
        return {};
    }
    return {tuple->begin() + (isRolled ? 1 : 0), tuple->end()};
}

/// False, once told of, if the value is not of the shape of the type.
bool Check::mismatch(const Shape &actual, const Shape &expected) const {
    log::msg(msg::warning::CONST_SATURATION_TYPE_MISMATCH,
             log::p("actual", actual) % log::p("expected", expected) % log::p("block", mName));
    return false;
}

/// Takes the dimensions from the outermost on.
bool Check::collect(const ValueRef &value, std::size_t dimension, const std::string &index) {
    if (dimension == mType.vectorDepth()) {
        return mType.isComplex() ? collectParts(value, index) : collectNumber(value, nullptr, index);
    }
    const std::vector<ValueRef> elements = elementsOf(value, A_VECTOR_ROLL_TAG);
    if (elements.empty()) {
        return mismatch(shapeOf(value), "vector");
    }
    const auto length = static_cast<std::size_t>(mType.vectorLengthRev(dimension));
    if (elements.size() != length) {
        return mismatch(fmt::format("vector of {}", elements.size()), fmt::format("vector of {}", length));
    }
    for (std::size_t i = 0; i < length; ++i) {
        const std::string at = index.empty() ? std::to_string(i) : index + "," + std::to_string(i);
        if (!collect(elements[i], dimension + 1, at)) {
            return false;
        }
    }
    return true;
}

bool Check::collectParts(const ValueRef &value, const std::string &index) {
    const std::vector<ValueRef> parts = elementsOf(value, A_COMPLEX_ROLL_TAG);
    if (parts.size() != 2) {
        return mismatch(shapeOf(value), "complex number");
    }
    return collectNumber(parts[0], "real", index) && collectNumber(parts[1], "imaginary", index);
}

bool Check::collectNumber(const ValueRef &value, const char *component, const std::string &index) {
    const NumberValueRef number = numberVR(value);
    // Minus zero is zero here; the others that are special have no bits.
    if (!number) {
        return mismatch(shapeOf(value), "scalar");
    }
    if (number->isSpecial() && number->toDouble() != 0) {
        return mismatch("number that is not finite (" + number->toString() + ")", "finite number");
    }
    if (!number->isSpecial()) {
        mElements.push_back({number, component, index});
    }
    return true;
}

void Check::judge(const Element &element) const {
    const int required = internal::calcRequiredBits(*element.number, mType);
    if (required <= mType.fixedBits()) {
        return;
    }
    log::LogParams params = log::p("required", required) % log::p("bitwidth", mType.fixedBits()) %
                            log::p("value", element.number->toString(mBase, mDigits)) % log::p("block", mName);
    if (element.component != nullptr) {
        params = params % log::p("component", element.component);
    }
    if (mType.isVector()) {
        params = params % log::p("index", element.index);
    }
    const msg::Warning tag = mType.isComplex()  ? mType.isVector() ? msg::warning::CONST_SATURATION_COMPLEX_VECTOR
                                                                   : msg::warning::CONST_SATURATION_COMPLEX_SCALAR
                             : mType.isVector() ? msg::warning::CONST_SATURATION_REAL_VECTOR
                                                : msg::warning::CONST_SATURATION_REAL_SCALAR;
    log::msg(tag, params);
}

} // namespace

/// What is set wrongly is told of once, and its default holds.
void CheckConstantsPass::before(PassContext &) {
    mBase = util::GetFeatureInteger(Features::NumberValuePrintBase);
    if (mBase != 2 && mBase != 10 && mBase != 16) {
        log::msg(msg::error::NUMBER_BASE_UNKNOWN, log::p("base", mBase));
        mBase = 10;
    }
    mDigits = util::GetFeatureInteger(Features::NumberValuePrintNumDigits);
    if (mDigits < 0) {
        log::msg(msg::error::NUMBER_DIGITS_NEGATIVE, log::p("digits", mDigits));
        mDigits = 4;
    }
}

void CheckConstantsPass::apply(ModelPassContext &context) {
    for (const Block &block : context.getModel()) {
        const ValueRef value = block.getParam(A_CONST_VALUE);
        if (block.type() != A_CONST_BLOCK.get_ptr() || !value || !(block.getParam(A_CONST_WARN_SATURATION) == A_TRUE)) {
            continue;
        }
        const ValueRef written = block.getParam(A_CONST_TYPE);
        const NumTypeSpec type(written, block.getContext());
        if (type.isFixed()) {
            Check(block, type, mBase, mDigits).run(value);
        } else if (!type.valid() && !isRecordType(written, block.getContext())) {
            log::msg(msg::warning::CONST_SATURATION_TYPE_NOT_SET,
                     log::p("block", block.getModel().getName()->toString() + "/" + block.getName()->toString()));
        }
    }
}

} // namespace orvo
