// Making handles: a scalar for each leaf of each signal.
#include "gen/scheduledmodels.h"

#include <orvo/corevalues.h>
#include <orvo/types.h>

#include <functional>
#include <vector>

namespace orvo::gen {

namespace {

using Visit = std::function<void(const CompoundDecorIndex &, const PureValueRef &)>;

/// Calls back with the path and the type of each scalar.
void visitLeaves(const PureValueRef &type, const CompoundDecorIndex &path, Context *context, const Visit &visit) {
    if (isAggregateType(type.get_ptr())) {
        const AggregateTypeSpec record(type);
        for (std::size_t i = 0; i < record.size(); ++i) {
            visitLeaves(record.at(i), path << CompoundDecorIndex::createAggregateIndex(static_cast<int>(i)), context,
                        visit);
        }
        return;
    }
    PureValueRef inner;
    VectorDecorSpec vectors(type, inner, context);
    if (vectors.isVector()) {
        const int length = vectors.vectorLengthRev(0);
        vectors.removeVector();
        const PureValueRef element = vectors.toValue(inner, context);
        for (int i = 0; i < length; ++i) {
            visitLeaves(element, path << CompoundDecorIndex::createVectorIndex(i), context, visit);
        }
        return;
    }
    if (ComplexDecorSpec(type, inner, context).isComplex()) {
        for (const auto part : {RealOrImaginary::Real, RealOrImaginary::Imaginary}) {
            visit(path << CompoundDecorIndex::createComplexIndex(part), inner);
        }
        return;
    }
    visit(path, type);
}

/// One side of the boundary in scalars.
struct Scalars {
    std::vector<PureValueRef> names;
    ScheduledModelTypes::Map types;
    ScheduledModelDomains::Map domains;
    UnrollMappings mappings;
};

/// By name, as handles keep them.
ScheduledModelTypes::Map typesOf(const WholeSignals &signals) { return {signals.begin(), signals.end()}; }

Scalars scalarsOf(const WholeSignals &signals, Context *context) {
    Scalars made;
    const PureValueRef domain = StringValue::get("clk", context);
    for (const auto &[name, type] : signals) {
        int number = 0;
        visitLeaves(type, CompoundDecorIndex::createEmptyIndex(), context,
                    [&, &name = name, &whole = type](const CompoundDecorIndex &path, const PureValueRef &leaf) {
                        const bool isWhole = leaf == whole;
                        const PureValueRef own =
                            isWhole ? name : PureTupleValue::get(name, NumberValue::get(number++, context), context);
                        made.names.push_back(own);
                        made.types[own] = leaf;
                        made.domains[own] = domain;
                        if (!isWhole) {
                            made.mappings.addMapping(name, path, own);
                        }
                    });
    }
    return made;
}

} // namespace

ScheduledModelHandle scheduledModel(const PureValueRef &name, const WholeSignals &inputs, const WholeSignals &outputs,
                                    Context *context) {
    const Scalars in = scalarsOf(inputs, context);
    const Scalars out = scalarsOf(outputs, context);
    ScheduledModelHandle made = ScheduledModelHandle::createScheduledModelHandle(
        name, ScheduledModelPortList(in.names, out.names),
        ScheduledModelTypes::createScheduledModelTypes(in.types, out.types),
        ScheduledModelDomains::createScheduledModelDomains(in.domains, out.domains), ScheduledModelTimesteps({}, {}),
        StallLatencyReport::createStallLatencyReport(0, 0, {}));
    made.setOriginalModelTypes(ScheduledModelTypes::createScheduledModelTypes(typesOf(inputs), typesOf(outputs)));
    made.setInputUnrollMappings(in.mappings);
    made.setOutputUnrollMappings(out.mappings);
    return made;
}

} // namespace orvo::gen
