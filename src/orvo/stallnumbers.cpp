// Numbers for the parts of signals in regions that can stall.
#include "orvo/stallnumbers.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/port.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <iterator>
#include <limits>

namespace orvo::internal {

namespace {

/// The key and the number; null if the name is no pair.
PureTupleValueRef pairOf(const PureValueRef &name) {
    PureTupleValueRef pair = pureTupleVR(name);
    return pair && pair->size() == 2 ? pair : PureTupleValueRef();
}

} // namespace

StallNumbers::StallNumbers(const Block &block) {
    for (const Port &port : block.ports()) {
        reserve(port.getName());
    }
    for (const Wire &wire : block) {
        reserve(wire.getName());
    }
}

bool StallNumbers::isData(const PureValueRef &name) {
    const StaticString *const keys[] = {&A_STALLREG_PORTKEY_DATA_BACK,   &A_STALLREG_WIREKEY_DATA_FRONT,
                                        &A_STALLENTER_PORTKEY_DATA_BACK, &A_STALLENTER_WIREKEY_DATA_FRONT,
                                        &A_STALLEXIT_PORTKEY_DATA_BACK,  &A_STALLEXIT_WIREKEY_DATA_FRONT};
    const PureTupleValueRef pair = pairOf(name);
    return pair && std::any_of(std::begin(keys), std::end(keys),
                               [&pair](const StaticString *key) { return pair->at(0) == *key; });
}

PureValueRef StallNumbers::nameOf(const PureValueRef &name, int part) {
    const PureTupleValueRef pair = pairOf(name);
    const auto [at, isNew] = mNumbers.try_emplace({PureValueRef(pair->at(1)), part}, 0);
    if (isNew) {
        at->second = takeFree();
    }
    Context *context = name->context();
    return PureTupleValue::get(PureValueRef(pair->at(0)), PureValueRef(NumberValue::get(at->second, context)), context);
}

int StallNumbers::takeFree() {
    const int last = mTaken.empty() ? -1 : std::max(*mTaken.rbegin(), -1);
    int number = last;
    if (last < std::numeric_limits<int>::max()) {
        ++number;
    } else {
        // Nothing is free behind the last one, but before it.
        while (mTaken.count(mLowest) != 0) {
            ++mLowest;
        }
        number = mLowest;
    }
    mTaken.insert(number);
    return number;
}

void StallNumbers::reserve(const PureValueRef &name) {
    const PureTupleValueRef pair = pairOf(name);
    const NumberValueRef number = pair ? numberVR(pair->at(1)) : NumberValueRef();
    if (number && number->isInt()) {
        mTaken.insert(number->toInt());
    }
}

} // namespace orvo::internal
