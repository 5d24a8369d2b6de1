// Tuples that list names, or pairs of a name and a value.
#pragma once

#include <orvo/corevalues.h>

namespace orvo::internal {

/// Calls `visit(name)` for each name in a tuple of names.
template <class Visit> void forNamesIn(const ValueRef &value, Visit visit) {
    if (const TupleValueRef names = tupleVR(value)) {
        for (const ValueRef &name : *names) {
            if (const PureValueRef pure = name) {
                visit(pure);
            }
        }
    }
}

/// Calls `visit(key, value)` for each pair in a tuple of pairs.
template <class Visit> void forPairsIn(const ValueRef &value, Visit visit) {
    forNamesIn(value, [&](const PureValueRef &entry) {
        const PureTupleValueRef pair = pureTupleVR(entry);
        if (pair && pair->size() == 2) {
            visit(pair->at(0), pair->at(1));
        }
    });
}

} // namespace orvo::internal
