// What the generator asks of a signal's type.
#pragma once

#include <orvo/corevalues.h>

#include <vector>

namespace orvo::gen {

struct SignalShape {
    PureValueRef type;
    bool isRecord = false;
    bool isFloat = false;
    bool isComplex = false;
    bool isSigned = false;
    /// Bits of a scalar, and those behind the point.
    int width = 0;
    int fraction = 0;
    /// Lengths of the dimensions, the outermost first.
    std::vector<int> dims;
    /// Types of a record's fields.
    std::vector<PureValueRef> fields;
    /// Scalars in the whole signal.
    std::size_t leaves = 1;

    bool isFixed() const { return !isRecord && !isFloat; }
    bool isScalar() const { return dims.empty() && !isComplex && !isRecord; }
};

/// No type, or an invalid one, gives a shape without leaves.
SignalShape shapeOf(const PureValueRef &type, Context *context);

} // namespace orvo::gen
