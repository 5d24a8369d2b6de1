// Mappings of ports by chance, in any form that has a value.
#pragma once

#include <orvo/unrollmappings.h>

#include <rapidcheck.h>

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

} // namespace orvo::test
