// Reading types.
#include "gen/signalshape.h"

#include <orvo/types.h>

namespace orvo::gen {

SignalShape shapeOf(const PureValueRef &type, Context *context) {
    SignalShape shape;
    shape.type = type;
    if (!type) {
        shape.leaves = 0;
        return shape;
    }
    PureValueRef inner;
    const VectorDecorSpec vectors(type, inner, context);
    for (std::size_t i = 0; i < vectors.vectorDepth(); ++i) {
        shape.dims.push_back(vectors.vectorLengthRev(i));
        shape.leaves *= static_cast<std::size_t>(shape.dims.back());
    }
    const PureValueRef element = vectors.valid() ? inner : type;
    if (const AggregateTypeSpec record(element); record.isAggregate()) {
        shape.isRecord = true;
        std::size_t leaves = 0;
        for (std::size_t i = 0; i < record.size(); ++i) {
            shape.fields.push_back(record.at(i));
            leaves += shapeOf(record.at(i), context).leaves;
        }
        shape.leaves *= leaves;
        return shape;
    }
    NumTypeSpec spec;
    spec.setToValue(type, context);
    shape.isFloat = spec.isFloat();
    shape.isComplex = spec.isComplex();
    shape.isSigned = spec.isSigned();
    shape.width = spec.isFloat() ? spec.floatBits() : spec.fixedBits();
    shape.fraction = spec.fracBits();
    shape.leaves *= !spec.valid() ? 0 : spec.isComplex() ? 2 : 1;
    return shape;
}

} // namespace orvo::gen
