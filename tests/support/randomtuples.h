// Tuples by chance, and tuples with one part changed by chance, for readers of value forms.
#pragma once

#include <orvo/corevalues.h>

#include <rapidcheck.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvo::test {

/// One of some small values, of each kind that a tuple may hold.
inline PureValueRef chanceValue(Context *context) {
    static const char *const texts[] = {"a",
                                        "b",
                                        "0",
                                        "1",
                                        "2",
                                        "-1",
                                        "0x0.8",
                                        "+nan",
                                        "+inf",
                                        "-zero",
                                        "4294967296",
                                        "()",
                                        "(a)",
                                        "(a 1)",
                                        "true",
                                        "compoundIndexTypeVector",
                                        "(compoundDecorIndexTag)",
                                        "(compoundDecorIndexTag (compoundIndexTypeVector 1))",
                                        "unrollMappingsTag",
                                        "scheduledModelHandleOriginaltypesTag"};
    const auto at = *rc::gen::inRange<std::size_t>(0, std::size(texts));
    return pureVR(Value::parse(texts[at], context));
}

/// The value with one part, at any depth, taken away, doubled, swapped with its neighbour or replaced.
inline PureValueRef mutated(const PureValueRef &value, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    if (!tuple || tuple->size() == 0 || *rc::gen::inRange(0, 10) == 0) {
        return chanceValue(context);
    }
    std::vector<PureValueRef> elements(tuple->begin(), tuple->end());
    const auto at = *rc::gen::inRange<std::size_t>(0, elements.size());
    const auto place = elements.begin() + static_cast<std::ptrdiff_t>(at);
    switch (*rc::gen::inRange(0, 12)) {
    case 0:
        elements.erase(place);
        break;
    case 1:
        elements.insert(place, elements[at]);
        break;
    case 2:
        elements.insert(place, chanceValue(context));
        break;
    case 3:
        std::swap(elements[at], elements[(at + 1) % elements.size()]);
        break;
    default:
        elements[at] = mutated(elements[at], context);
        break;
    }
    return PureTupleValue::get(elements, context);
}

/// Mutated once to three times.
inline PureValueRef mutatedSome(PureValueRef value, Context *context) {
    for (int times = *rc::gen::inRange(1, 4); times > 0; --times) {
        value = mutated(value, context);
    }
    return value;
}

/// The tuple with its elements from `first` on, which are tuples, ordered by their own first elements.
template <class Less>
PureValueRef sortedEntries(const PureValueRef &value, std::size_t first, Less less, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    std::vector<PureValueRef> elements(tuple->begin(), tuple->end());
    std::sort(elements.begin() + static_cast<std::ptrdiff_t>(first), elements.end(),
              [&less](const PureValueRef &a, const PureValueRef &b) {
                  return less(PureValueRef(pureTupleVR(a)->at(0)), PureValueRef(pureTupleVR(b)->at(0)));
              });
    return PureTupleValue::get(elements, context);
}

} // namespace orvo::test
