// The search for missing types and their causes, and the reports on them.
#include <orvo/typeinferdebug.h>

#include "orvo/strongcomponents.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <algorithm>
#include <deque>
#include <ostream>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace orvo {

namespace {

constexpr const char *kInvalid = "*INVALID*";
constexpr const char *kUnknown = "unknown";
/// A trace can be as long as the design is deep in blocks: beyond this, lines are not set further in.
constexpr std::size_t kDeepestTab = 256;

bool isOfType(const Block &block, const StaticString &type) { return block.type() == type.get_ptr(); }

const Model *instantiated(const Block &block) {
    return isOfType(block, A_MODEL_BLOCK) ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
}

std::string textOr(const Value *value, const char *otherwise) {
    return value != nullptr ? value->toString() : otherwise;
}

std::string blockText(const Block &block) {
    return "block \"" + textOr(block.getName().get_ptr(), kInvalid) + "\", type " + textOr(block.type(), kUnknown);
}

/// A port whose key holds a number beside its name shows both.
std::string portText(const Value *key) {
    const PureTupleValueRef pair = pureTupleVR(PureValueRef(FromPtr<Value>(const_cast<Value *>(key))));
    if (pair && pair->size() == 2 && stringVR(pair->at(0)) && numberVR(pair->at(1))) {
        return "(" + pair->at(1)->toString() + ") " + pair->at(0)->toString();
    }
    return textOr(key, kUnknown);
}

/// The distance of each block from the inputs of its model, along wires to the ports that they drive.
std::unordered_map<const Block *, int> findDistsFromInputs(const Model &model) {
    std::unordered_map<const Block *, int> distances;
    std::deque<const Block *> queue;
    for (const Block *input : model.getInputBlocks()) {
        distances.emplace(input, 0);
        queue.push_back(input);
    }
    while (!queue.empty()) {
        const Block &block = *queue.front();
        queue.pop_front();
        const int next = distances.at(&block) + 1;
        for (const Wire &wire : block) {
            for (const Port &port : wire.ports()) {
                if (distances.emplace(&port.getBlock(), next).second) {
                    queue.push_back(&port.getBlock());
                }
            }
        }
    }
    return distances;
}

struct CompareByDist {
    bool operator()(const BlockLocationSpec *a, const BlockLocationSpec *b) const { return a->distance < b->distance; }
};

/// The blocks found on one loop, or on loops that share blocks.
struct LoopExamination {
    std::vector<const BlockLocationSpec *> blocks;
};

/// What is known of an instance in which types are missing.
struct FailedModel {
    const ModelInstance *instance;
    std::vector<BlockLocationSpec> locations;
    std::unordered_map<const Block *, std::uint32_t> placeOf;
    std::deque<LoopExamination> loops;
    std::unordered_map<const Block *, const LoopExamination *> loopOf;
    std::vector<CauseSpec> causes;

    const BlockLocationSpec *find(const Block &block) const {
        const auto found = placeOf.find(&block);
        return found == placeOf.end() ? nullptr : &locations[found->second];
    }
    const LoopExamination *loopAt(const Block &block) const {
        const auto found = loopOf.find(&block);
        return found == loopOf.end() ? nullptr : found->second;
    }
};

/// Models from the top down.
bool modelPathCompare(const ModelInstance *a, const ModelInstance *b) {
    if (a->chain.size() != b->chain.size()) {
        return a->chain.size() < b->chain.size();
    }
    const int order = a->path->str().compare(b->path->str());
    return order != 0 ? order < 0 : std::less<>()(a, b);
}

} // namespace

struct TypeInferDebug::TypeInferDebugImpl {
    struct Instance : ModelInstance {
        const Instance *parent = nullptr;
        std::unordered_map<const Block *, const Instance *> below;
    };
    /// A line still to be written: a model that the walk enters, or a block that it reaches.
    struct TraceSpec {
        const Instance *instance;
        const Block *block;
        /// The signal by which the walk comes to a block at the edge of a model; null if all are meant.
        const Value *signal;
        /// The input by which it left the block before; null at the start and behind the line of a model.
        const Value *input;
        bool entersModel;
        std::size_t depth;
    };
    struct Passed {
        const Instance *instance;
        const Block *block;
        const Value *signal;
        bool operator==(const Passed &other) const = default;
    };
    struct PassedHash {
        std::size_t operator()(const Passed &passed) const {
            std::size_t hash = reinterpret_cast<std::uintptr_t>(passed.instance);
            for (const void *part :
                 {static_cast<const void *>(passed.block), static_cast<const void *>(passed.signal)}) {
                hash = (hash ^ reinterpret_cast<std::uintptr_t>(part)) * 0x9e3779b97f4a7c15ULL;
                hash ^= hash >> 32U;
            }
            return hash;
        }
    };

    TypeInferDebugImpl(GlobalTypePass &pass, std::vector<const Model *> models)
        : types(pass), roots(std::move(models)) {}

    void examine() {
        if (examined) {
            return;
        }
        examined = true;
        for (const Model *root : roots) {
            findBlocksWithInvalidTypes(*root);
        }
        for (const ModelInstance *path : modelPaths) {
            FailedModel &failed = *failures.at(path);
            findCausesOfFailure(failed);
            for (const BlockLocationSpec &location : failed.locations) {
                locations.push_back(&location);
            }
            for (const CauseSpec &cause : failed.causes) {
                causes.push_back(&cause);
            }
        }
    }

    /// All instances below a root, from a stack, since a file may nest them deep.
    void findBlocksWithInvalidTypes(const Model &root) {
        Instance &top = makeInstance(root, nullptr, nullptr);
        rootInstances.emplace(&root, &top);
        std::vector<Instance *> stack{&top};
        while (!stack.empty()) {
            Instance &at = *stack.back();
            stack.pop_back();
            findBlocksWithInvalidTypesFromModel(at);
            for (const Block &block : *at.model) {
                const Model *model = instantiated(block);
                if (model != nullptr && !isInside(*model, at) && instances.size() < limits::kTypeInstances) {
                    Instance &inner = makeInstance(*model, &at, &block);
                    at.below.emplace(&block, &inner);
                    stack.push_back(&inner);
                }
            }
        }
    }

    static bool isInside(const Model &model, const Instance &at) {
        return &model == at.model || std::any_of(at.chain.begin(), at.chain.end(),
                                                 [&model](const Block *step) { return &step->getModel() == &model; });
    }

    Instance &makeInstance(const Model &model, const Instance *parent, const Block *step) {
        Instance &made = instances.emplace_back();
        made.model = &model;
        made.parent = parent;
        std::string path = textOr(model.getName().get_ptr(), kInvalid);
        if (parent != nullptr) {
            made.chain = parent->chain;
            made.chain.push_back(step);
            path = parent->path->str() + "/" + textOr(step->getName().get_ptr(), kInvalid);
        }
        made.path = StringValue::get(path, model.getContext());
        return made;
    }

    void findBlocksWithInvalidTypesFromModel(const Instance &at) {
        std::unordered_set<const Wire *> untyped;
        for (const Block &block : *at.model) {
            for (const Wire &wire : block) {
                if (!types.getType(wire, at.chain)) {
                    untyped.insert(&wire);
                }
            }
        }
        if (untyped.empty()) {
            return;
        }
        auto made = std::make_unique<FailedModel>();
        made->instance = &at;
        const auto distances = findDistsFromInputs(*at.model);
        for (const Block &block : *at.model) {
            const auto distance = distances.find(&block);
            BlockLocationSpec location{
                &block, &at, distance == distances.end() ? BlockLocationSpec::kNotReached : distance->second, {}, {}};
            for (const Wire &wire : block) {
                if (untyped.count(&wire) != 0) {
                    location.wires.push_back(&wire);
                }
            }
            for (const Port &port : block.ports()) {
                if (untyped.count(port.peekWire()) != 0) {
                    location.ports.push_back(&port);
                }
            }
            if (!location.wires.empty() || !location.ports.empty()) {
                made->placeOf.emplace(&block, static_cast<std::uint32_t>(made->locations.size()));
                made->locations.push_back(std::move(location));
            }
        }
        modelPaths.insert(&at);
        failures.emplace(&at, std::move(made));
    }

    /// Goes back from each block over the inputs without a type. Components come with those first that the others
    /// depend upon, so a cause stands in front of what follows from it.
    static void findCausesOfFailure(FailedModel &failed) {
        internal::Digraph sources;
        for (const BlockLocationSpec &location : failed.locations) {
            for (const Port *port : location.ports) {
                const auto source = failed.placeOf.find(&port->peekWire()->getBlock());
                ORVO_ASSERT(source != failed.placeOf.end(), "a driver of an untyped wire has no location");
                sources.addEdge(source->second);
            }
            sources.closeNode();
        }
        const internal::StrongComponents components = internal::stronglyConnectedComponents(sources);
        for (std::size_t i = 0; i < components.size(); ++i) {
            if (internal::isCyclic(sources, components[i])) {
                addLoop(failed, components[i]);
            } else {
                addCauseAt(failed, failed.locations[components[i].front()]);
            }
        }
    }

    static void addLoop(FailedModel &failed, std::span<const std::uint32_t> component) {
        LoopExamination &loop = failed.loops.emplace_back();
        std::vector<std::uint32_t> places(component.begin(), component.end());
        std::sort(places.begin(), places.end());
        for (const std::uint32_t place : places) {
            loop.blocks.push_back(&failed.locations[place]);
            failed.loopOf.emplace(failed.locations[place].block, &loop);
        }
        std::stable_sort(loop.blocks.begin(), loop.blocks.end(), CompareByDist());
        CauseSpec cause{CauseSpec::Kind::Loop, failed.instance, {}, {}};
        for (const BlockLocationSpec *location : loop.blocks) {
            cause.blocks.push_back(location->block);
        }
        failed.causes.push_back(std::move(cause));
    }

    static void addCauseAt(FailedModel &failed, const BlockLocationSpec &location) {
        if (isOfType(*location.block, A_INPUT_BLOCK)) {
            for (const Wire *wire : location.wires) {
                failed.causes.push_back(
                    {CauseSpec::Kind::ExternalInput, failed.instance, {location.block}, wire->getName()});
            }
        } else if (location.ports.empty()) {
            // It had all that it needed and still gave nothing.
            failed.causes.push_back({CauseSpec::Kind::Block, failed.instance, {location.block}, {}});
        }
    }

    const Instance *findInstance(const Model &model, const RefChain &chain) const {
        const auto root = rootInstances.find(chain.empty() ? &model : &chain.front()->getModel());
        const Instance *at = root == rootInstances.end() ? nullptr : root->second;
        for (std::size_t i = 0; at != nullptr && i < chain.size(); ++i) {
            const auto next = at->below.find(chain[i]);
            at = next == at->below.end() ? nullptr : next->second;
        }
        return at != nullptr && at->model == &model ? at : nullptr;
    }

    const FailedModel *failureAt(const Instance *instance) const {
        const auto found = failures.find(instance);
        return found == failures.end() ? nullptr : found->second.get();
    }
    bool isUntyped(const Instance &instance, const Block &block) const {
        const FailedModel *failed = failureAt(&instance);
        return failed != nullptr && failed->find(block) != nullptr;
    }

    void report(std::ostream &out, const CauseSpec &cause) const {
        ORVO_ASSERT(!cause.blocks.empty(), "a cause has no block");
        out << "\t\tLikely failure cause: ";
        switch (cause.kind) {
        case CauseSpec::Kind::ExternalInput:
            out << "external, input \"" << textOr(cause.input.get_ptr(), kUnknown) << "\"\n";
            break;
        case CauseSpec::Kind::Block:
            out << blockText(*cause.blocks.front()) << "\n";
            break;
        case CauseSpec::Kind::Loop:
            out << "LOOP involving the following blocks:\n";
            for (const Block *block : cause.blocks) {
                out << "\t\t\t" << blockText(*block) << "\n";
            }
            break;
        }
    }

    /// Back from a block to the causes, from a stack of the lines still to be written.
    class Trace {
      public:
        Trace(const TypeInferDebugImpl &debug, std::ostream &out) : mDebug(debug), mOut(out) {}

        void traceFailureCauseOfInvalid(const Instance &instance, const Block &block) {
            mPending.push_back({&instance, &block, nullptr, nullptr, false, 1});
            while (!mPending.empty()) {
                const TraceSpec step = mPending.back();
                mPending.pop_back();
                mNext.clear();
                tell(step);
                mPending.insert(mPending.end(), mNext.rbegin(), mNext.rend());
            }
        }

      private:
        std::ostream &line(const TraceSpec &step) {
            mOut << std::string(std::min(step.depth, kDeepestTab), '\t');
            if (step.input != nullptr) {
                mOut << "from input " << portText(step.input) << ", ";
            }
            return mOut;
        }

        void tell(const TraceSpec &step) {
            if (step.entersModel) {
                line(step) << "From Model \"" << step.instance->path->str() << "\"\n";
                mNext.push_back({step.instance, step.block, step.signal, nullptr, false, step.depth + 1});
                return;
            }
            if (step.block == nullptr) {
                line(step) << "external\n";
                return;
            }
            const Block &block = *step.block;
            const FailedModel *failed = mDebug.failureAt(step.instance);
            ORVO_ASSERT(failed != nullptr, "the trace of a failure came to a model without one");
            const LoopExamination *loop = failed->loopAt(block);
            const bool isFirst = loop != nullptr ? mPassedLoops.insert(loop).second
                                                 : mTold.insert({step.instance, &block, nullptr}).second;
            const bool isNewWay = passes({step.instance, &block, step.signal});
            if (!isFirst) {
                line(step) << "from block \"" << textOr(block.getName().get_ptr(), kInvalid) << "\", already seen\n";
                if (isNewWay) {
                    goOn(step, *failed, false);
                }
            } else if (loop != nullptr) {
                tellLoop(step, *loop);
            } else {
                line(step) << "from " << blockText(block) << "\n";
                goOn(step, *failed, true);
            }
        }

        /// False if the walk has gone back from the block by that signal before.
        bool passes(const Passed &way) {
            return mPassed.count({way.instance, way.block, nullptr}) == 0 && mPassed.insert(way).second;
        }

        /// On from a block; at the edge of a model from the signal that the step asks for.
        void goOn(const TraceSpec &step, const FailedModel &failed, bool isFirst) {
            const BlockLocationSpec &location = *failed.find(*step.block);
            if (isOfType(*step.block, A_INPUT_BLOCK)) {
                leaveModel(step, location);
            } else if (!enterModel(step, location) && (isFirst || isOfType(*step.block, A_OUTPUT_BLOCK))) {
                followPorts(step, location, nullptr);
            }
        }

        void tellLoop(const TraceSpec &step, const LoopExamination &loop) {
            line(step) << "from LOOP, involving the following:\n";
            for (const BlockLocationSpec *location : loop.blocks) {
                mOut << std::string(std::min(step.depth + 1, kDeepestTab), '\t') << blockText(*location->block) << "\n";
            }
            for (const BlockLocationSpec *location : loop.blocks) {
                enterModelOnLoop(step, *location, loop);
                followPorts(step, *location, &loop);
            }
        }

        /// Into a model that the loop leads through, by the signals that close the loop and by the one asked for.
        void enterModelOnLoop(const TraceSpec &step, const BlockLocationSpec &location, const LoopExamination &loop) {
            if (!isOfType(*location.block, A_MODEL_BLOCK)) {
                return;
            }
            const FailedModel &failed = *mDebug.failureAt(step.instance);
            for (const Wire *wire : location.wires) {
                const Value *signal = wire->getName().get_ptr();
                const bool isAsked = location.block == step.block && (step.signal == nullptr || step.signal == signal);
                const auto isOnLoop = [&](const Port &port) { return failed.loopAt(port.getBlock()) == &loop; };
                const auto readers = wire->ports();
                if (isAsked || (std::any_of(readers.begin(), readers.end(), isOnLoop) &&
                                passes({step.instance, location.block, signal}))) {
                    enterModelBy(*wire, step);
                }
            }
        }

        /// On to what drives the ports without a type, in an output block the one that the step asks for; not to blocks
        /// of `except`.
        void followPorts(const TraceSpec &step, const BlockLocationSpec &location, const LoopExamination *except) {
            const FailedModel &failed = *mDebug.failureAt(step.instance);
            const Value *asked = isOfType(*location.block, A_OUTPUT_BLOCK) ? step.signal : nullptr;
            for (const Port *port : location.ports) {
                const Wire &wire = *port->peekWire();
                const Block &source = wire.getBlock();
                const bool isMeant = asked == nullptr || asked == port->getName().get_ptr();
                if (isMeant && (except == nullptr || failed.loopAt(source) != except)) {
                    mNext.push_back(
                        {step.instance, &source, signalOf(wire), port->getName().get_ptr(), false, step.depth + 1});
                }
            }
        }

        /// Signals pass the edges of models each by its name; an ordinary block is the same whatever leads to it.
        static const Value *signalOf(const Wire &wire) {
            const Block &block = wire.getBlock();
            return isOfType(block, A_INPUT_BLOCK) || isOfType(block, A_MODEL_BLOCK) ? wire.getName().get_ptr()
                                                                                    : nullptr;
        }

        void leaveModel(const TraceSpec &step, const BlockLocationSpec &location) {
            const Instance *above = step.instance->parent;
            for (const Wire *wire : location.wires) {
                const Value *name = wire->getName().get_ptr();
                if (step.signal != nullptr && step.signal != name) {
                    continue;
                }
                const Port *port = above != nullptr ? step.instance->chain.back()->getPort(wire->getName()) : nullptr;
                if (port != nullptr && mDebug.isUntyped(*above, port->peekWire()->getBlock())) {
                    mNext.push_back({above, &port->peekWire()->getBlock(), signalOf(*port->peekWire()), name, true,
                                     step.depth + 1});
                } else {
                    mNext.push_back({above, nullptr, nullptr, name, false, step.depth + 1});
                }
            }
        }

        /// False if the block stands for no model in which the failure goes on.
        bool enterModel(const TraceSpec &step, const BlockLocationSpec &location) {
            bool enters = false;
            for (const Wire *wire : location.wires) {
                if (step.signal == nullptr || step.signal == wire->getName().get_ptr()) {
                    enters = enterModelBy(*wire, step) || enters;
                }
            }
            return enters;
        }

        bool enterModelBy(const Wire &wire, const TraceSpec &step) {
            const auto inner = step.instance->below.find(&wire.getBlock());
            if (inner == step.instance->below.end()) {
                return false;
            }
            bool enters = false;
            for (const Block *output : inner->second->model->getOutputBlocks()) {
                if (output->getPort(wire.getName()) != nullptr && mDebug.isUntyped(*inner->second, *output)) {
                    mNext.push_back({inner->second, output, wire.getName().get_ptr(), nullptr, true, step.depth + 1});
                    enters = true;
                }
            }
            return enters;
        }

        const TypeInferDebugImpl &mDebug;
        std::ostream &mOut;
        std::vector<TraceSpec> mPending;
        std::vector<TraceSpec> mNext;
        /// The blocks that stand in the report; no signal takes part.
        std::unordered_set<Passed, PassedHash> mTold;
        /// The ways back from them; without a signal all that a block has.
        std::unordered_set<Passed, PassedHash> mPassed;
        std::unordered_set<const LoopExamination *> mPassedLoops;
    };

    GlobalTypePass &types;
    std::vector<const Model *> roots;
    bool examined = false;
    std::deque<Instance> instances;
    std::unordered_map<const Model *, const Instance *> rootInstances;
    std::set<const ModelInstance *, decltype(&modelPathCompare)> modelPaths{&modelPathCompare};
    std::unordered_map<const ModelInstance *, std::unique_ptr<FailedModel>> failures;
    std::vector<const BlockLocationSpec *> locations;
    std::vector<const CauseSpec *> causes;
};

namespace {

std::vector<const Model *> outputModels(const Design &design) {
    std::vector<const Model *> models;
    for (const Model &model : design) {
        if (model[A_SYNTH_OUTPUT_MODE]) {
            models.push_back(&model);
        }
    }
    return models;
}

} // namespace

TypeInferDebug::TypeInferDebug(GlobalTypePass &types, const Design &design)
    : TypeInferDebug(types, outputModels(design)) {}
TypeInferDebug::TypeInferDebug(GlobalTypePass &types, std::vector<const Model *> roots)
    : mImpl(std::make_unique<TypeInferDebugImpl>(types, std::move(roots))) {}
TypeInferDebug::~TypeInferDebug() = default;

bool TypeInferDebug::invalidTypesPresent() {
    mImpl->examine();
    return !mImpl->modelPaths.empty();
}

void TypeInferDebug::getLikelyFailureCause(std::ostream &out) {
    if (!invalidTypesPresent()) {
        return;
    }
    const std::size_t count = mImpl->modelPaths.size();
    out << "Type inferencing failed in " << count << (count == 1 ? " model:\n" : " models:\n");
    for (const ModelInstance *path : mImpl->modelPaths) {
        const auto failed = mImpl->failures.find(path);
        ORVO_ASSERT(failed != mImpl->failures.end(), "a path of a model with failures has none");
        out << "\tModel: " << path->path->str() << "\n";
        for (const CauseSpec &cause : failed->second->causes) {
            mImpl->report(out, cause);
        }
    }
}

void TypeInferDebug::getLikelyFailureTrace(std::ostream &out, const Block &block, const RefChain &refChain) {
    mImpl->examine();
    const TypeInferDebugImpl::Instance *instance = mImpl->findInstance(block.getModel(), refChain);
    out << "Type inferencing failed in model \"" << (instance != nullptr ? instance->path->str() : kInvalid) << "\"\n";
    if (instance != nullptr && mImpl->isUntyped(*instance, block)) {
        TypeInferDebugImpl::Trace(*mImpl, out).traceFailureCauseOfInvalid(*instance, block);
    }
}

const std::vector<const BlockLocationSpec *> &TypeInferDebug::locations() {
    mImpl->examine();
    return mImpl->locations;
}

const std::vector<const CauseSpec *> &TypeInferDebug::causes() {
    mImpl->examine();
    return mImpl->causes;
}

} // namespace orvo
