// The copying. A model that is dissolved is read once into a plan, a list of what each instance gets. The outputs of
// dissolved model blocks give their readers away only when all of a model is done, each straight to the wire that
// lasts: a signal that goes through many levels moves once.
#include "orvo/flattener.h"

#include "orvo/scheduleconstraints.h"
#include "orvo/strongcomponents.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/domaininfer.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <limits>

namespace orvo::internal {

namespace {

/// A wire of another model, or none.
constexpr std::uint32_t kNoWire = std::numeric_limits<std::uint32_t>::max();

std::uint32_t sizeOf(const auto &vector) { return static_cast<std::uint32_t>(vector.size()); }

bool isPointTable(const PureValueRef &key) {
    return key == A_SCHEDULE_CONSTRAINT_PORTS || key == A_SCHEDULE_CONSTRAINT_WIRES;
}

/// Whether the sink reads a source of error correction that nothing else reads.
bool isPair(const Block &sink) {
    if (sink.port_size() != 1) {
        return false;
    }
    const Block &source = sink.port_begin()->peekWire()->getBlock();
    std::size_t readers = 0;
    for (const Wire &wire : source) {
        readers += wire.port_size();
    }
    return source.type() == A_ECC_SRC_BLOCK.get_ptr() && readers == 1;
}

} // namespace

struct Flattener::Source {
    struct Param {
        PureValueRef key;
        ValueRef value;
        bool isWire;
        std::uint32_t wire;
    };
    struct Copied {
        PureValueRef name;
        PureValueRef drawnAs;
        bool isModelBlock;
        std::uint32_t endWire;
        std::uint32_t endParam;
    };
    /// A parameter of a wire.
    struct OfWire {
        std::uint32_t wire;
        PureValueRef key;
        ValueRef value;
    };

    bool dissolves = false;
    std::vector<Copied> blocks;
    /// Those of the copied blocks, in their order; those of input blocks follow them.
    std::vector<PureValueRef> wireNames;
    std::vector<OfWire> wireParams;
    std::vector<Param> params;
    std::uint32_t firstInput = 0;
    std::unordered_map<const Value *, std::uint32_t> outputs;
    std::unordered_map<const Block *, std::uint32_t> numbers;
    bool hasDomains = false;
    std::unique_ptr<const FlattenedTags::Source> tags;

    void read(const Model &model) {
        hasDomains = model.findParam(A_SYNTH_SCHEDULE_DOMAINS) != nullptr;
        std::unordered_map<const Wire *, std::uint32_t> wires;
        const auto addWires = [&](const Block &block) {
            for (const Wire &wire : block) {
                wires.emplace(&wire, sizeOf(wireNames));
                wireNames.push_back(wire.getName());
            }
        };
        std::vector<const Block *> copied;
        for (const Block &block : model) {
            if (block.type() == A_INPUT_BLOCK.get_ptr() || block.type() == A_OUTPUT_BLOCK.get_ptr()) {
                continue;
            }
            copied.push_back(&block);
            addWires(block);
            blocks.push_back({PureTupleValue::get(model.getName(), block.getName(), model.getContext()),
                              block.getName(), block.type() == A_MODEL_BLOCK.get_ptr(), sizeOf(wireNames), 0});
        }
        firstInput = sizeOf(wireNames);
        for (const Block *input : model.getInputBlocks()) {
            addWires(*input);
        }
        const auto numberOf = [&wires](const Wire *wire) {
            const auto known = wires.find(wire);
            return known == wires.end() ? kNoWire : known->second;
        };
        for (std::size_t i = 0; i < copied.size(); ++i) {
            readParams(*copied[i], numberOf);
            blocks[i].endParam = sizeOf(params);
            if (hasDomains) {
                numbers.emplace(copied[i], static_cast<std::uint32_t>(i));
            }
        }
        for (const Block *output : model.getOutputBlocks()) {
            for (const Port &port : output->ports()) {
                outputs.emplace(port.getName().get_ptr(), numberOf(port.peekWire()));
            }
        }
    }

    void readParams(const Block &block, const auto &numberOf) {
        for (auto param : Params(block)) {
            const Wire *wire = Node::from<Wire>(param.second);
            params.push_back({param.first, wire == nullptr ? param.second : ValueRef(), wire != nullptr,
                              wire == nullptr ? kNoWire : numberOf(wire)});
        }
        for (const Wire &wire : block) {
            for (auto param : Params(wire)) {
                wireParams.push_back({numberOf(&wire), param.first, param.second});
            }
        }
    }
};

Flattener::Flattener(Design &design, Predicate dissolves, std::unordered_set<const Model *> &dissolved)
    : mDesign(design), mDissolves(std::move(dissolves)), mDissolved(dissolved), mConstraints(design) {
    readHierarchy();
}

Flattener::~Flattener() = default;

/// Finds the models that contain themselves: dissolving other models neither makes nor breaks a ring. All blocks are
/// looked at here for all that wants to.
void Flattener::readHierarchy() {
    std::vector<Model *> models;
    std::unordered_map<const Model *, std::uint32_t> numbers;
    for (Model &model : mDesign) {
        numbers.emplace(&model, sizeOf(models));
        models.push_back(&model);
    }
    Digraph graph;
    for (Model *model : models) {
        std::unordered_set<const Model *> below;
        mConstraints.note(*model);
        mSignposts.note(*model);
        for (Block &block : *model) {
            mTags.note(block);
            mConstraints.note(block);
            const Model *instantiated = instantiatedModel(block);
            if (instantiated != nullptr && below.insert(instantiated).second && numbers.count(instantiated) != 0) {
                graph.addEdge(numbers.at(instantiated));
            }
        }
        graph.closeNode();
    }
    mConstraints.start();
    const StrongComponents components = stronglyConnectedComponents(graph);
    for (std::size_t i = 0; i < components.size(); ++i) {
        if (isCyclic(graph, components[i])) {
            for (const std::uint32_t node : components[i]) {
                mRecursive.insert(models[node]);
            }
        }
    }
}

const Flattener::Source &Flattener::sourceOf(const Model &model) {
    std::unique_ptr<Source> &known = mSources[&model];
    if (known == nullptr) {
        known = std::make_unique<Source>();
        known->dissolves = mRecursive.count(&model) == 0 && mDissolves(model);
        if (known->dissolves) {
            mConstraints.write(model);
            known->read(model);
            known->tags = mTags.read(model);
        }
    }
    return *known;
}

void Flattener::flatten(Model &model) {
    mModel = &model;
    mSignposts.open(model);
    mTags.open(model);
    for (Block &block : model) {
        if (block.type() == A_MODEL_BLOCK.get_ptr()) {
            mQueue.push_back({&block, {}, &model, block.getName()});
        }
    }
    while (!mQueue.empty()) {
        const Pending pending = std::move(mQueue.front());
        mQueue.pop_front();
        Model *source = instantiatedModel(*pending.block);
        const Source *plan = source == nullptr ? nullptr : &sourceOf(*source);
        if (plan != nullptr && plan->dissolves) {
            dissolve(pending, *source, *plan);
        } else {
            mConstraints.addLasting(*pending.block, pending.above, *pending.drawnIn, pending.drawnAs);
        }
    }
    mTags.close();
    if (!mDissolvedBlocks.empty()) {
        mSignposts.gather(mDissolvedBlocks, [this](const Wire &wire) { return mReplacements.at(&wire).by; });
    }
    moveReaders();
    for (const Model *changed : mConstraints.close(model)) {
        forget(*changed);
    }
    if (!mDissolvedBlocks.empty()) {
        deleteDissolved();
        mSignposts.close();
        cancelErrorCorrection();
        forget(model);
    }
}

/// What a model that stays holds is never asked.
void Flattener::forget(const Model &model) {
    const auto known = mSources.find(&model);
    if (known != mSources.end() && known->second->dissolves) {
        mSources.erase(known);
    }
}

void Flattener::finish() { mConstraints.finish(mDissolved); }

void Flattener::dissolve(const Pending &pending, Model &source, const Source &plan) {
    Block &block = *pending.block;
    if (mConstraints.endsAt(block)) {
        log::msg(msg::error::DISALLOWED_SIGNPOST_ON_MODEL_BLOCK, log::p("refBlk", block.value()));
    }
    if (plan.tags != nullptr) {
        mTags.add(block, source, *plan.tags);
    }
    mWires.assign(plan.wireNames.size(), nullptr);
    for (std::size_t i = plan.firstInput; i < plan.wireNames.size(); ++i) {
        const Port *port = block.getPort(plan.wireNames[i]);
        mWires[i] = port == nullptr ? nullptr : port->peekWire();
    }
    const FlattenedConstraints::Instance instance =
        mConstraints.open(pending.above, *pending.drawnIn, pending.drawnAs, source);
    copyBlocks(plan);
    connect(block, plan, instance);
    carryMetadata(block);
    queueCopies(plan, source, instance);
    replaceOutputs(block, plan);
    if (plan.hasDomains) {
        takeSignposts(source, plan);
    }
    mDissolved.insert(&source);
    mDissolvedBlocks.push_back(&block);
}

void Flattener::copyBlocks(const Source &plan) {
    mCopies.clear();
    std::uint32_t wire = 0;
    for (const Source::Copied &planned : plan.blocks) {
        Block *copy = Block::create(*mModel, planned.name);
        mCopies.push_back(copy);
        for (; wire < planned.endWire; ++wire) {
            mWires[wire] = Wire::create(*copy, plan.wireNames[wire]);
        }
    }
    for (const Source::OfWire &param : plan.wireParams) {
        mWires[param.wire]->setParam(param.key, param.value);
    }
}

void Flattener::connect(const Block &block, const Source &plan, FlattenedConstraints::Instance instance) {
    std::uint32_t at = 0;
    for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
        Block &copy = *mCopies[i];
        for (; at < plan.blocks[i].endParam; ++at) {
            const Source::Param &param = plan.params[at];
            if (!param.isWire) {
                const bool isPoints = isPointTable(param.key) && mConstraints.any();
                copy.setParam(param.key, isPoints ? mConstraints.carried(copy, param.value, instance) : param.value);
            } else if (param.wire != kNoWire && mWires[param.wire] != nullptr) {
                copy.setParam(param.key, *mWires[param.wire]);
                if (mSignposts.any() && param.wire >= plan.firstInput) {
                    mSignposts.addWayIn(copy, param.key, block, plan.wireNames[param.wire]);
                }
            }
        }
    }
}

void Flattener::carryMetadata(Block &block) {
    const MetadataManipulator own(block);
    if (own.size() != 0) {
        for (Block *copy : mCopies) {
            MetadataManipulator(*copy).appendFrom(own);
        }
    }
}

void Flattener::queueCopies(const Source &plan, const Model &source, FlattenedConstraints::Instance instance) {
    for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
        if (plan.blocks[i].isModelBlock) {
            mQueue.push_back({mCopies[i], instance, &source, plan.blocks[i].drawnAs});
        }
    }
}

void Flattener::replaceOutputs(Block &block, const Source &plan) {
    for (Wire &wire : block) {
        const auto output = plan.outputs.find(wire.getName().get_ptr());
        const bool driven = output != plan.outputs.end() && output->second != kNoWire;
        mReplacements[&wire].by = driven ? mWires[output->second] : nullptr;
        mReplacedWires.push_back(&wire);
        if (driven && mSignposts.any() && output->second >= plan.firstInput) {
            mSignposts.addWayThrough(wire, plan.wireNames[output->second]);
        }
    }
}

void Flattener::takeSignposts(const Model &source, const Source &plan) {
    const DomainInference::ParsedDomains parsed = DomainInference::parseScheduledDomainsParameter(source);
    for (const auto *list : {&parsed.begins, &parsed.ends}) {
        for (const DomainInference::SignpostInfo &info : *list) {
            const Block *block = info.point.block();
            if (block == nullptr) {
                continue;
            }
            const auto number = plan.numbers.find(block);
            if (number == plan.numbers.end()) {
                log::msg(msg::error::FLATTENING_DOMAIN_INPUTOUTPUT, log::p("srcModel", source.value()));
                continue;
            }
            const Block &copy = *mCopies[number->second];
            const bool ends = info.kind == DomainInference::SIGNPOST_END;
            const Port *port = info.point.port();
            const PureValueRef key = port != nullptr ? port->getName() : info.point.wire()->getName();
            mSignposts.add(domainEdge(PureValueRef(ends ? A_SCHEDULE_DOMAIN_END : A_SCHEDULE_DOMAIN_BEGIN), info.domain,
                                      {copy.getName(), port != nullptr, key}, mDesign.getContext()));
        }
    }
}

/// The wire that readers of this one end at: model blocks may hand on what other dissolved model blocks drive. Null for
/// a ring of such, and where nothing drives.
Wire *Flattener::lastingWire(Wire *wire) {
    std::vector<Replacement *> way;
    while (wire != nullptr) {
        const auto known = mReplacements.find(wire);
        if (known == mReplacements.end()) {
            break;
        }
        if (known->second.onTheWay) {
            wire = nullptr;
            break;
        }
        known->second.onTheWay = true;
        way.push_back(&known->second);
        wire = known->second.by;
    }
    for (Replacement *passed : way) {
        passed->by = wire;
        passed->onTheWay = false;
    }
    return wire;
}

void Flattener::moveReaders() {
    for (Wire *wire : mReplacedWires) {
        Wire *lasting = lastingWire(wire);
        if (lasting == nullptr) {
            continue;
        }
        for (const Port &port : wire->ports()) {
            if (port.getBlock().type() == A_ECC_SINK_BLOCK.get_ptr()) {
                mErrorCorrection.push_back(&port.getBlock());
            }
        }
        wire->replace(*lasting);
    }
}

/// Both blocks of a pair only carry a signal across an edge that is gone.
void Flattener::cancelErrorCorrection() {
    if (mErrorCorrection.empty()) {
        return;
    }
    DomainEdgeList edges(*mModel);
    for (Block *sink : mErrorCorrection) {
        if (isPair(*sink)) {
            Block &source = sink->port_begin()->peekWire()->getBlock();
            edges.remove(*sink);
            edges.remove(source);
            delete sink;
            delete &source;
        }
    }
    mErrorCorrection.clear();
}

void Flattener::deleteDissolved() {
    mReplacements.clear();
    mReplacedWires.clear();
    for (Block *block : mDissolvedBlocks) {
        delete block;
    }
    mDissolvedBlocks.clear();
}

} // namespace orvo::internal
