// Mappings of ports by chance, in any form that has a value.
#pragma once

#include <orvo/unrollmappings.h>

#include "support/randomtuples.h"

#include <rapidcheck.h>

#include <vector>

namespace orvo::test {

inline UnrollMappings chanceMappings(Context *context) {
    UnrollMappings mappings;
    int made = 0;
    for (int ports = *rc::gen::inRange(0, 4); ports > 0; --ports) {
        const PureValueRef port = PureTupleValue::get(NumberValue::get(ports, context), context);
        const bool isVector = *rc::gen::arbitrary<bool>();
        for (int parts = *rc::gen::inRange(1, 4); parts > 0; --parts) {
            CompoundDecorIndex index = isVector ? CompoundDecorIndex::createVectorIndex(parts)
                                                : CompoundDecorIndex::createAggregateIndex(parts);
            if (*rc::gen::arbitrary<bool>()) {
                index = index << CompoundDecorIndex::createComplexIndex(RealOrImaginary::Imaginary);
            }
            mappings.addMapping(port, index, NumberValue::get(made++, context));
        }
    }
    return mappings;
}

/// The tuple of mappings, of which there is one for each part, in the order in which they are written.
inline PureValueRef sortedMappings(const PureValueRef &value, Context *context) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    const auto byPath = [](const PureValueRef &a, const PureValueRef &b) {
        return CompoundDecorIndex::fromValue(a) < CompoundDecorIndex::fromValue(b);
    };
    std::vector<PureValueRef> elements(tuple->begin(), tuple->end());
    for (std::size_t i = 1; i < elements.size(); ++i) {
        const PureTupleValueRef port = pureTupleVR(elements[i]);
        std::vector<PureValueRef> parts(port->begin(), port->end());
        parts[1] = sortedEntries(parts[1], 0, byPath, context);
        elements[i] = PureTupleValue::get(parts, context);
    }
    return sortedEntries(PureTupleValue::get(elements, context), 1, DeepValueCmp(), context);
}

} // namespace orvo::test
