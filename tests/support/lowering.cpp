// Routes of passes, and judges of what comes out.
#include "support/lowering.h"

#include "driver/pipeline.h"
#include "orvo/decomposehandlers.h"
#include "support/heardmessages.h"
#include "support/invariants.h"

#include <orvo/block.h>
#include <orvo/compoundtypeinfo.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/nameorigin.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/unrollmappings.h>
#include <orvo/wire.h>

#include <util/random.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <set>
#include <sstream>

namespace orvo::test {

namespace {

constexpr int kTurns = 4;

std::vector<Route> installedPresets() {
    std::ifstream in(driver::installedPipelines());
    std::stringstream text;
    text << in.rdbuf();
    ContextMgr context;
    std::vector<driver::Preset> presets;
    driver::parsePipelines(text.str(), context.context(), presets);
    std::vector<Route> all;
    for (const driver::Preset &preset : presets) {
        if (preset.name == "records-and-vectors" || preset.name == "composites") {
            continue; // parts of others
        }
        Route route{"preset " + preset.name, {}, true, preset.name == "primitives"};
        std::vector<std::string> turn;
        for (const driver::PassText &pass : preset.passes) {
            turn.push_back(driver::printPassText({pass.name, pass.params, {}, {}}));
            // No design by chance needs more turns.
            const int turns = pass.endsTurns ? kTurns : 1;
            const bool inTurns = pass.beginsTurns || turn.size() > 1;
            if (inTurns && !pass.endsTurns) {
                continue;
            }
            for (int i = 0; i < turns; ++i) {
                route.passes.insert(route.passes.end(), turn.begin(), turn.end());
            }
            turn.clear();
        }
        all.push_back(std::move(route));
    }
    return all;
}

std::vector<Route> allRoutes() {
    std::vector<Route> all;
    for (const char *pass :
         {"ElideFromGotoPass", "UnrollVectorPass", "UnrollVectorCrossModelPass", "UnrollComplexPass",
          "UnrollAggregatePass", "UnrollAggregateCrossModelPass", "UnrollScheduledModelPass", "ElideUnpackPass"}) {
        all.push_back({pass, {pass}, false});
    }
    // At boundaries complex numbers come after the vectors around them.
    all.push_back(
        {"UnrollComplexCrossModelPass", {"UnrollVectorCrossModelPass", "UnrollComplexCrossModelPass"}, false});
    for (const char *pass :
         {"FlattenEverythingPass", "FlattenExplicitPass", "FlattenZRTExplicitPass", "FlattenSimulinkPass"}) {
        all.push_back({pass, {"ElideFromGotoPass", pass}, false});
    }
    const std::vector<std::string> records = {"UnrollAggregatePass", "UnrollAggregateCrossModelPass"};
    const std::vector<std::string> vectors = {"UnrollVectorPass", "UnrollVectorCrossModelPass"};
    const std::vector<std::string> complex = {"UnrollComplexPass", "UnrollComplexCrossModelPass"};
    const std::vector<std::string> scheduled = {"UnrollScheduledModelPass"};
    const std::vector<std::string> flatten = {"FlattenEverythingPass", "DeadModelPass"};
    const std::string joining = "ElideUnpackPass{P_IGNORE_METADATA=true}";
    const std::vector<std::string> join = {joining};
    const std::vector<std::string> clean = {joining, "DeadBlockPass"};
    using Parts = std::vector<std::vector<std::string>>;
    const auto reversed = [](std::vector<std::string> part) {
        std::reverse(part.begin(), part.end());
        return part;
    };
    const auto joined = [&](const Parts &parts) {
        std::vector<std::string> passes = {"ElideFromGotoPass"};
        for (const std::vector<std::string> &part : parts) {
            passes.insert(passes.end(), part.begin(), part.end());
        }
        return passes;
    };
    // Records and vectors stand in each other; complex numbers stand inside all else.
    const Parts blocksFirst = {scheduled, records, vectors, join,    records, vectors,
                               join,      records, vectors, complex, clean};
    Parts boundariesFirst = blocksFirst;
    std::transform(blocksFirst.begin(), blocksFirst.end(), boundariesFirst.begin(), reversed);
    boundariesFirst.push_back(clean);
    Parts joinedOnceOnly = blocksFirst;
    std::erase(joinedOnceOnly, join);
    for (const auto &[name, parts] : {std::pair<const char *, Parts>{"blocks first", blocksFirst},
                                      {"boundaries first", boundariesFirst},
                                      {"packs last", joinedOnceOnly}}) {
        Parts early = parts;
        early.insert(early.begin(), flatten);
        Parts late = parts;
        late.insert(late.end() - 1, flatten);
        all.push_back({std::string("hierarchy, then ") + name, joined(early), true});
        all.push_back({std::string(name) + ", then hierarchy", joined(late), true});
    }
    for (Route &preset : installedPresets()) {
        all.push_back(std::move(preset));
    }
    return all;
}

/// The kinds of levels of a type from outside in, and what the innermost is.
std::string classOf(const PureValueRef &type, Context *context) {
    if (!type) {
        return "unknown";
    }
    const CompoundTypeInfo shape = CompoundTypeInfo::createFromValue(type);
    if (!shape.valid()) {
        return NumTypeSpec(type, context).isFloat() ? "float" : "fixed";
    }
    if (shape.topLevelIsAggregate()) {
        return "record";
    }
    if (shape.topLevelIsComplex()) {
        return "complex";
    }
    PureValueRef inner;
    const VectorDecorSpec vectors(type, inner, context);
    return CompoundTypeInfo::createFromValue(inner).valid() ? "vector of " + classOf(inner, context) : "vector";
}

} // namespace

void countSignals(Design &design, const std::string &pass, Coverage &coverage) {
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(design);
    auto *types = results.getPass<GlobalTypePass>();
    for (Model &model : design) {
        for (Block &block : model) {
            std::set<std::string> classes;
            for (const Port &port : block.ports()) {
                classes.insert(classOf(types->getType(port, {}), design.getContext()));
            }
            for (Wire &wire : block) {
                classes.insert(classOf(types->getType(wire, {}), design.getContext()));
            }
            for (const std::string &one : classes) {
                ++coverage[{pass, block.type()->toString(), one}];
            }
        }
    }
}

namespace {

/// Designs by chance have interface blocks where no drawing would, and constants beyond their types.
bool isAboutDrawing(const std::string &message) {
    const auto begins = [&](const char *tag) { return message.rfind(tag, 0) == 0; };
    return begins("IOBLOCKS_OUTSIDE_PRIMITIVE_SUBSYSTEM") || begins("EXPECTED_GP_CHANNEL_INOUT") ||
           begins("BLOCK_BETWEEN_IOPIN_CHANNEL_INOUT") || begins("CONST_SATURATION_");
}

/// The chain to an instance of a model; all of them have signals of the same types.
RefChain chainTo(Model &model, ModelTreePass &tree) {
    RefChain chain;
    for (std::list<Block *> up = tree.getRefBlocks(model); !up.empty();
         up = tree.getRefBlocks(up.front()->getModel())) {
        chain.insert(chain.begin(), up.front());
    }
    return chain;
}

/// The type of a part; null for a path that leads nowhere.
PureValueRef partOf(PureValueRef type, const CompoundDecorIndex &path, Context *context) {
    const PureTupleValueRef steps = pureTupleVR(path.toValue(context));
    for (std::size_t i = 1; type && i < steps->size(); ++i) {
        const PureTupleValueRef step = pureTupleVR(steps->at(i));
        const auto element = static_cast<std::size_t>(numberVR(step->at(1))->toInt());
        PureValueRef inner;
        if (step->at(0) == A_COMPOUND_INDEX_TYPE_AGGREGATE) {
            const AggregateTypeSpec record(type);
            inner = element < record.size() ? record.at(element) : PureValueRef();
        } else if (step->at(0) == A_COMPOUND_INDEX_TYPE_VECTOR) {
            VectorDecorSpec vectors(type, inner, context);
            vectors.removeVector();
            inner = vectors.toValue(inner, context);
        } else {
            const ComplexDecorSpec complex(type, inner, context);
        }
        type = inner;
    }
    return type;
}

} // namespace

const std::vector<Route> &routes() {
    static const std::vector<Route> all = allRoutes();
    return all;
}

bool tagsMeet(Design &design) {
    HeardMessages heard(design.getContext());
    PassScheduler scheduler;
    scheduler.addPass("ElideFromGotoPass");
    scheduler.apply(design);
    return heard.take().empty();
}

void markModels(Design &design, std::uint32_t marks) {
    for (Model &model : design) {
        for (const StaticString *key :
             {&A_MODEL_TO_BE_FLATTENED, &A_ZRT_MODEL_TO_BE_FLATTENED, &A_SIMULINK_PATH, &A_SYNTH_CIRCUIT_TIMED}) {
            if ((marks & 1U) != 0) {
                model.setParam(*key, A_TRUE);
            }
            marks = (marks >> 1U) | (marks << 31U);
        }
    }
}

void markBlocks(Design &design, std::uint32_t marks) {
    Context *context = design.getContext();
    util::SplitMix chance(marks);
    constexpr std::uint64_t kOneIn = 8;
    constexpr std::uint64_t kComments = 3;
    for (Model &model : design) {
        for (Block &block : model) {
            if (const std::uint64_t number = chance.next() % kOneIn; number < kComments) {
                const PureValueRef comment = NumberValue::get(static_cast<int>(number), context);
                const PureValueRef word = StringValue::get("comment", context);
                block.setParam(A_METADATA, PureTupleValue::get(PureTupleValue::get(word, comment, context), context));
            }
        }
    }
}

bool isRefusal(const std::string &message) {
    constexpr const char *known[] = {
        "UNCOMPLEX_INVALID_EXPAND_TYPE some of its data are complex and some are real",
        ("UNCOMPLEX_INVALID_EXPAND_TYPE no scalar product of vectors of real floats adds in the order of that of "
         "complex ones"),
        "UNCOMPLEX_INVALID_EXPAND_TYPE a control or an address is complex",
        "UNCOMPLEX_INVALID_EXPAND_TYPE its type computes on real numbers alone",
        "UNVEC_INVALID_EXPAND_TYPE it joins several vectors",
        "UNVEC_INVALID_EXPAND_TYPE a signal that controls the stalling is a vector",
    };
    const std::size_t place = message.find(" block=");
    const std::size_t detail = message.find(" detail=");
    if (place == std::string::npos || detail == std::string::npos) {
        return false;
    }
    const std::string line = message.substr(0, place + 1) + message.substr(detail + 8);
    return std::find(std::begin(known), std::end(known), line) != std::end(known);
}

::testing::AssertionResult lower(Design &design, const std::vector<std::string> &passes, PassSchedulerState &state,
                                 LoweringNotes &notes) {
    for (const std::string &pass : passes) {
        if (notes.coverage != nullptr) {
            countSignals(design, pass, *notes.coverage);
        }
        std::vector<driver::PassText> texts;
        if (driver::parsePassText(pass, design.getContext(), texts)) {
            return ::testing::AssertionFailure() << pass << " is no pass";
        }
        HeardMessages heard(design.getContext());
        PassScheduler scheduler(&state);
        driver::addPasses(scheduler, texts);
        scheduler.apply(design);
        std::vector<std::string> lines = heard.take();
        std::erase_if(lines, isAboutDrawing);
        const auto isKnown = [&](const std::string &line) {
            return isRefusal(line) || (!notes.refusals.empty() && line.rfind("COMPOUND_SIGNAL_LEFT", 0) == 0);
        };
        const auto other = std::stable_partition(lines.begin(), lines.end(), isKnown);
        notes.refusals.insert(notes.refusals.end(), lines.begin(), other);
        lines.erase(lines.begin(), other);
        if (!lines.empty()) {
            return ::testing::AssertionFailure() << pass << " says " << lines.front();
        }
        if (const auto sound = checkInvariants(design); !sound) {
            return ::testing::AssertionFailure() << "behind " << pass << ": " << sound.message();
        }
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult isFlatAndPlain(const Design &source, Design &lowered) {
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(lowered);
    auto *types = results.getPass<GlobalTypePass>();
    const NameOrigins origins(source);
    for (Model &model : lowered) {
        for (Block &block : model) {
            const std::string name = model.getName()->toString() + "/" + block.getName()->toString();
            if (block.type() == A_MODEL_BLOCK.get_ptr()) {
                return ::testing::AssertionFailure() << name << " still instantiates a model";
            }
            if (block.type() != A_INPUT_BLOCK.get_ptr() && block.type() != A_OUTPUT_BLOCK.get_ptr() &&
                !origins.originOf(block)) {
                return ::testing::AssertionFailure() << name << " leads back to no block";
            }
            for (Wire &wire : block) {
                const PureValueRef type = types->getType(wire, {});
                if (CompoundTypeInfo::createFromValue(type).valid()) {
                    return ::testing::AssertionFailure()
                           << name << "." << wire.getName()->toString() << " is still " << readableType(type.get_ptr());
                }
            }
        }
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult isPrimitive(Design &lowered) {
    std::set<const Value *> composites;
    for (const auto rows : {internal::castDecompositions(), internal::primDecompositions(),
                            internal::mathDecompositions(), internal::memoryDecompositions()}) {
        for (const internal::DecomposeRow &row : rows) {
            composites.insert(row.blockType->get_ptr());
        }
    }
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(lowered);
    auto *types = results.getPass<GlobalTypePass>();
    const auto isFixed = [&](const auto &end) {
        return NumTypeSpec(types->getType(end, {}), lowered.getContext()).isFixed();
    };
    for (Model &model : lowered) {
        for (Block &block : model) {
            const BlockPorts ports = block.ports();
            // Between two clocks a register stays what it is.
            const bool crosses = block.type() == A_SYNC_REGISTER_BLOCK.get_ptr() &&
                                 !(block.getParam(A_SYNC_REGISTER_CLOCKS_SAME) == A_TRUE);
            if (!crosses && composites.count(block.type()) != 0 && std::all_of(ports.begin(), ports.end(), isFixed) &&
                std::all_of(block.begin(), block.end(), isFixed)) {
                return ::testing::AssertionFailure()
                       << block.getName()->toString() << " of " << block.type()->toString() << " is left";
            }
        }
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult boundariesAreAsMapped(Design &source, Design &lowered, PassSchedulerState &state) {
    Context *context = source.getContext();
    const auto *item =
        dynamic_cast<BoundaryUnrollMappingStateItem *>(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY));
    if (item == nullptr) {
        return ::testing::AssertionSuccess();
    }
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    scheduler.requirePass("ModelTreePass");
    const PassResults before = scheduler.apply(source);
    const PassResults after = scheduler.apply(lowered);
    auto *oldTypes = before.getPass<GlobalTypePass>();
    auto *newTypes = after.getPass<GlobalTypePass>();
    for (Model &model : lowered) {
        Model *old = source.getModel(model.getName());
        if (old == nullptr) {
            continue;
        }
        const RefChain oldChain = chainTo(*old, *before.getPass<ModelTreePass>());
        const RefChain newChain = chainTo(model, *after.getPass<ModelTreePass>());
        const auto judge = [&](const UnrollMappings &mappings, const Block *oldBlock, const Block *newBlock,
                               const auto &typeIn) -> ::testing::AssertionResult {
            for (const auto &[name, parts] : mappings.portMapping()) {
                for (const auto &[path, mapped] : parts) {
                    const PureValueRef wanted = partOf(typeIn(*oldTypes, oldBlock, name, oldChain), path, context);
                    const PureValueRef found = typeIn(*newTypes, newBlock, mapped, newChain);
                    // What nobody reads any more has no type.
                    if (!wanted || (found && !(wanted == found))) {
                        return ::testing::AssertionFailure()
                               << mapped->toString() << " is " << readableType(found.get_ptr()) << ", but its part of "
                               << name->toString() << " was " << readableType(wanted.get_ptr());
                    }
                }
            }
            return ::testing::AssertionSuccess();
        };
        const auto ofWire = [](GlobalTypePass &types, const Block *block, const PureValueRef &name,
                               const RefChain &chain) {
            const Wire *wire = block == nullptr ? nullptr : block->getWire(name);
            return wire == nullptr ? PureValueRef() : types.getType(*wire, chain);
        };
        const auto ofPort = [](GlobalTypePass &types, const Block *block, const PureValueRef &name,
                               const RefChain &chain) {
            const Port *port = block == nullptr ? nullptr : block->getPort(name);
            return port == nullptr ? PureValueRef() : types.getType(*port, chain);
        };
        if (const auto same =
                judge(item->getInputUnrollMapping(model), old->getInputBlock(), model.getInputBlock(), ofWire);
            !same) {
            return same;
        }
        if (const auto same =
                judge(item->getOutputUnrollMapping(model), old->getOutputBlock(), model.getOutputBlock(), ofPort);
            !same) {
            return same;
        }
    }
    return ::testing::AssertionSuccess();
}

} // namespace orvo::test
