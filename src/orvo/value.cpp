// The parts of Value, StaticString and the orders that do not depend on a kind of value.
#include <orvo/value.h>

#include <orvo/context.h>
#include <orvo/logging.h>

#include "orvo/contextimpl.h"
#include "orvo/valuetext.h"

#include <ostream>

namespace orvo {

namespace internal {

void failReferenceCount() {
    orvoAssertHandler("mRefCount > 0", __FILE__, static_cast<unsigned int>(__LINE__), "drop",
                      "a reference to a value was dropped more often than taken");
}

void failStaticCast() {
    orvoAssertHandler("isKindOf<T>(kind)", __FILE__, static_cast<unsigned int>(__LINE__), "static_ref_cast",
                      "the value is not of the kind that it is cast to");
}

} // namespace internal

Value::~Value() = default;

ValueRef Value::resolve(Design *) { return FromPtr<Value>(this); }

void Value::release() const {
    if (mContext != nullptr) {
        internal::implOf(*mContext).releaseValue(this);
    } else {
        delete this;
    }
}

std::string Value::toString() const {
    std::string text;
    internal::appendText(text, *this);
    return text;
}

std::ostream &operator<<(std::ostream &out, const Value &value) {
    value.print(out);
    return out;
}

StaticString::StaticString(const char *text) {
    StringValue probe(text, nullptr, internal::hashText(text), false);
    mValue = static_ref_cast<StringValue>(Context::internStaticValue(&probe));
}

const std::string &StaticString::text() const { return mValue->str(); }

bool DeepValueCmp::operator()(const Value *a, const Value *b) const {
    if (a == b) {
        return false;
    }
    return a->kind() == b->kind() ? a->deepBefore(b) : a->kind() < b->kind();
}

} // namespace orvo
