// The flow of domains: from the signposts outward, step by step, each point changing at most once. In each step domains
// flow along nets and across the edges of models first, then through blocks. Points are taken in the order in which
// they were reached, and at the start in the order of their domains: so the points of equally long ways stand in the
// order of the kinds of their steps and then of their domains, and what stands where two domains meet depends on
// nothing but the design's structure.
#include <orvo/domaininfer.h>

#include "orvo/domainsignposts.h"
#include "orvo/domaintable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/modelkinds.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <set>
#include <tuple>
#include <unordered_set>

namespace orvo {

std::vector<std::pair<DomainPoint, PureValueRef>> DomainPropagationHandler::inferStatic(const Block &,
                                                                                        unsigned long) const {
    return {};
}

namespace {

/// Visits all points of a block in an instance but the given one.
template <class Visit> void forOtherPoints(const DomainPoint &point, Visit visit) {
    const Block &block = *point.block();
    for (const Wire &wire : block) {
        if (&wire != point.wire()) {
            visit(DomainPoint(wire, point.refChainId()));
        }
    }
    for (const Port &port : block.ports()) {
        if (&port != point.port()) {
            visit(DomainPoint(port, point.refChainId()));
        }
    }
}

} // namespace

std::vector<DomainPoint> DefaultDomainPropagationHandler::propagateFromPoint(const DomainPoint &point) const {
    std::vector<DomainPoint> others;
    forOtherPoints(point, [&others](const DomainPoint &other) { others.push_back(other); });
    return others;
}

DomainInference::InferenceModifier::~InferenceModifier() = default;

bool DomainInference::DefaultInferenceModifier::accept(const Model &) const { return true; }
bool DomainInference::DefaultInferenceModifier::crossModelBoundary(const Model &, const Model &) const { return true; }

namespace {

/// What is looked up of a model once, however many instances it has.
struct ModelScan {
    struct Below {
        const Block *block;
        const Model *model;
        bool flowsDown;
        bool flowsUp;
    };
    std::vector<Below> below;
    std::vector<std::pair<const Block *, const DomainPropagationHandler *>> handled;
};

/// The scans of models. Only models that take part are in them.
class ModelScans {
  public:
    explicit ModelScans(const DomainInference::InferenceModifier &modifier) : mModifier(modifier) {}
    const ModelScan &of(const Model &model) {
        const auto [at, isNew] = mScans.try_emplace(&model);
        if (isNew) {
            scan(model, at->second);
        }
        return at->second;
    }

  private:
    void scan(const Model &model, ModelScan &result) const {
        for (const Block &block : model) {
            if (const auto *handler = block.getClass()->get<DomainPropagationHandler>()) {
                result.handled.emplace_back(&block, handler);
            }
            const auto *below =
                block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            if (below != nullptr && mModifier.accept(*below)) {
                result.below.push_back({&block, below, mModifier.crossModelBoundary(model, *below),
                                        mModifier.crossModelBoundary(*below, model)});
            }
        }
    }
    const DomainInference::InferenceModifier &mModifier;
    std::unordered_map<const Model *, ModelScan> mScans;
};

/// Visits the instance `id` of a model and all below it, from the top down, from a stack: a file may nest them deep. A
/// model that instantiates itself is visited once on each way.
template <class Visit>
void walkInstances(const Model &top, unsigned long topId, ModelScans &scans, RefChainCollection &collection,
                   Visit visit) {
    struct Frame {
        const Model *model;
        unsigned long id;
        const ModelScan *scan;
        std::size_t next;
    };
    std::unordered_set<const Model *> way{&top};
    std::vector<Frame> frames{{&top, topId, &scans.of(top), 0}};
    visit(top, topId, nullptr);
    while (!frames.empty()) {
        Frame &frame = frames.back();
        if (frame.next == frame.scan->below.size()) {
            way.erase(frame.model);
            frames.pop_back();
            continue;
        }
        const ModelScan::Below &below = frame.scan->below[frame.next++];
        if (way.count(below.model) != 0 || collection.size() >= limits::kTypeInstances) {
            continue;
        }
        const unsigned long id = collection.getOrCreateId(frame.id, *below.block);
        way.insert(below.model);
        visit(*below.model, id, &below);
        frames.push_back({below.model, id, &scans.of(*below.model), 0});
    }
}

} // namespace

bool DomainInference::UnscheduledInferenceModifier::accept(const Model &model) const {
    return !isScheduledModel(model);
}

bool DomainInference::UnscheduledInferenceModifier::crossModelBoundary(const Model &, const Model &to) const {
    return !isScheduledModel(to);
}

class DomainInferencer {
  public:
    DomainInferencer(const DomainInference::InferenceModifier &modifier, DomainAnalysisInfo &info)
        : mScans(modifier), mInfo(info), mTable(*info.mTable) {}

    /// Gives ids to the instances below a root, and notes the signposts in each.
    void setupReferenceInformation(const Model &root) {
        walkInstances(root, mInfo.mRefChains.getOrCreateId({}), mScans, mInfo.mRefChains,
                      [this](const Model &model, unsigned long id, const ModelScan::Below *way) {
                          mCrossings.resize(mInfo.mRefChains.size());
                          if (way != nullptr) {
                              mCrossings[id] = {way->model, way->flowsDown, way->flowsUp};
                          }
                          noteSeeds(model, id);
                      });
    }

    void run() {
        setAndGetInitialPoints();
        while (!mPoints.empty()) {
            mNext.clear();
            for (const Reached &reached : mPoints) {
                propagateConnections(reached);
            }
            for (const Reached &reached : mPoints) {
                propagateInBlock(reached);
            }
            mPoints.swap(mNext);
        }
    }

  private:
    /// A point that got its domain in the last step.
    struct Reached {
        DomainPoint point;
        std::uint32_t domain;
        /// Which ways the domain goes on: along the point's net, and into its block or through that to another model.
        bool alongNet;
        bool intoBlock;
    };
    struct Seed {
        DomainPoint point;
        PureValueRef domain;
        const DomainInference::SignpostInfo *signpost;
    };
    struct Crossing {
        const Model *below = nullptr;
        bool flowsDown = false;
        bool flowsUp = false;
    };
    enum class Edge : std::uint8_t { None, Input, Output, ModelBlock };
    struct ClassFacts {
        const DomainPropagationHandler *handler = nullptr;
        Edge edge = Edge::None;
    };

    static DomainPoint inInstance(const DomainPoint &point, unsigned long id) {
        return point.isWire() ? DomainPoint(*point.wire(), id) : DomainPoint(*point.port(), id);
    }

    void noteSeeds(const Model &model, unsigned long id) {
        internal::addDeliminators(model, mDeliminators);
        for (const auto &[point, signpost] : mDeliminators.at(&model)) {
            mSeeds.push_back({inInstance(point, id), signpost.domain, &signpost});
        }
        for (const auto &[block, handler] : mScans.of(model).handled) {
            for (auto &[point, domain] : handler->inferStatic(*block, id)) {
                if (point.valid() && domain) {
                    mSeeds.push_back({point, std::move(domain), nullptr});
                }
            }
        }
    }

    /// Signposts first, so that they keep their domains; both kinds in the order of the domains.
    void setAndGetInitialPoints() {
        std::set<PureValueRef, DeepValueCmp> domains;
        for (const Seed &seed : mSeeds) {
            domains.insert(seed.domain);
        }
        // Their numbers are in their order, too.
        for (const PureValueRef &domain : domains) {
            mTable.numberOf(domain);
        }
        for (const Seed &seed : mSeeds) {
            if (seed.signpost != nullptr) {
                setSignpost(seed);
            }
        }
        std::vector<std::pair<std::uint32_t, DomainPoint>> settled;
        for (const Seed &seed : mSeeds) {
            if (seed.signpost == nullptr) {
                settled.emplace_back(mTable.numberOf(seed.domain), seed.point);
            }
        }
        const auto before = [](const auto &a, const auto &b) { return a.first < b.first; };
        std::stable_sort(settled.begin(), settled.end(), before);
        for (const auto &[domain, point] : settled) {
            setPointDomain(point, domain);
        }
        mPoints.swap(mNext);
        std::stable_sort(mPoints.begin(), mPoints.end(),
                         [](const Reached &a, const Reached &b) { return a.domain < b.domain; });
        mSeeds.clear();
    }

    void setSignpost(const Seed &seed) {
        internal::DomainTable::Slot &slot = mTable.get(seed.point);
        ORVO_ASSERT(slot.domain == 0, "a signpost has a domain before inference");
        slot.domain = mTable.numberOf(seed.domain);
        slot.isSignpost = true;
        const bool isBegin = seed.signpost->kind == DomainInference::SIGNPOST_BEGIN;
        // The block is behind a wire and before a port.
        const bool alongNet = seed.point.isWire() == isBegin;
        mNext.push_back({seed.point, slot.domain, alongNet, !alongNet});
    }

    void setPointDomain(const DomainPoint &point, std::uint32_t domain) {
        internal::DomainTable::Slot &slot = mTable.get(point);
        if (slot.isSignpost || slot.domain == domain) {
            return;
        }
        if (slot.domain == 0) {
            slot.domain = domain;
            mNext.push_back({point, domain, true, true});
        } else if (mReported.insert({point, domain}).second) {
            reportOverwriting(point, domain, slot.domain);
        }
    }

    void reportOverwriting(const DomainPoint &point, std::uint32_t overwriting, std::uint32_t existing) const {
        const log::LogParams params = log::p("overwritingDomain", mTable.domain(overwriting)) %
                                      log::p("existingDomain", mTable.domain(existing)) %
                                      log::p(point.isPort() ? "portName" : "wireName", point.name()) %
                                      log::p("blockName", point.block()->getName()) %
                                      log::p("modelName", point.block()->getModel().getName());
        if (point.isPort()) {
            log::msg(msg::error::BAD_DOMAIN_OVERWRITING_DOMAIN_INPUT, params);
        } else {
            log::msg(msg::error::BAD_DOMAIN_OVERWRITING_DOMAIN_OUTPUT, params);
        }
    }

    const ClassFacts &factsOf(const Block &block) {
        const BlockClass *blockClass = block.getClass();
        if (blockClass == mLastClass) {
            return mLastFacts;
        }
        const auto [at, isNew] = mFacts.try_emplace(blockClass);
        if (isNew) {
            const Value *type = block.type();
            at->second = {blockClass->get<DomainPropagationHandler>(), type == A_INPUT_BLOCK.get_ptr()    ? Edge::Input
                                                                       : type == A_OUTPUT_BLOCK.get_ptr() ? Edge::Output
                                                                       : type == A_MODEL_BLOCK.get_ptr()
                                                                           ? Edge::ModelBlock
                                                                           : Edge::None};
        }
        mLastClass = blockClass;
        mLastFacts = at->second;
        return mLastFacts;
    }

    void propagateConnections(const Reached &reached) {
        const unsigned long id = reached.point.refChainId();
        if (const Wire *wire = reached.point.wire()) {
            if (reached.alongNet) {
                for (const Port &port : wire->ports()) {
                    setPointDomain(DomainPoint(port, id), reached.domain);
                }
            }
            if (reached.intoBlock) {
                crossFromWire(*wire, id, reached.domain);
            }
            return;
        }
        const Port &port = *reached.point.port();
        if (reached.alongNet) {
            setPointDomain(DomainPoint(*port.peekWire(), id), reached.domain);
        }
        if (reached.intoBlock) {
            crossFromPort(port, id, reached.domain);
        }
    }

    /// An input of a model is the port of the block that instantiates it; an output of that block is one of the model.
    void crossFromWire(const Wire &wire, unsigned long id, std::uint32_t domain) {
        const Edge edge = factsOf(wire.getBlock()).edge;
        if (edge == Edge::Input && leadsUp(id)) {
            const RefChainCollection &chains = mInfo.mRefChains;
            if (const Port *port = chains.getBlock(id)->getPort(wire.getName())) {
                setPointDomain(DomainPoint(*port, chains.getAbove(id)), domain);
            }
        } else if (edge == Edge::ModelBlock) {
            const unsigned long below = leadsDown(id, wire.getBlock());
            if (below == RefChainCollection::kNone) {
                return;
            }
            for (const Block *output : mCrossings[below].below->getOutputBlocks()) {
                if (const Port *port = output->getPort(wire.getName())) {
                    setPointDomain(DomainPoint(*port, below), domain);
                }
            }
        }
    }

    void crossFromPort(const Port &port, unsigned long id, std::uint32_t domain) {
        const Edge edge = factsOf(port.getBlock()).edge;
        if (edge == Edge::Output && leadsUp(id)) {
            const RefChainCollection &chains = mInfo.mRefChains;
            if (const Wire *wire = chains.getBlock(id)->getWire(port.getName())) {
                setPointDomain(DomainPoint(*wire, chains.getAbove(id)), domain);
            }
        } else if (edge == Edge::ModelBlock) {
            const unsigned long below = leadsDown(id, port.getBlock());
            if (below == RefChainCollection::kNone) {
                return;
            }
            for (const Block *input : mCrossings[below].below->getInputBlocks()) {
                if (const Wire *wire = input->getWire(port.getName())) {
                    setPointDomain(DomainPoint(*wire, below), domain);
                }
            }
        }
    }

    bool leadsUp(unsigned long id) const { return mCrossings[id].flowsUp; }

    unsigned long leadsDown(unsigned long id, const Block &block) const {
        const unsigned long below = mInfo.mRefChains.findId(id, block);
        return below != RefChainCollection::kNone && mCrossings[below].flowsDown ? below : RefChainCollection::kNone;
    }

    void propagateInBlock(const Reached &reached) {
        if (!reached.intoBlock) {
            return;
        }
        const Block &block = *reached.point.block();
        const ClassFacts &facts = factsOf(block);
        if (facts.handler != nullptr) {
            for (const DomainPoint &point : facts.handler->propagateFromPoint(reached.point)) {
                if (point.valid()) {
                    setPointDomain(point, reached.domain);
                }
            }
        } else if (isFirstFlood(block, reached)) {
            forOtherPoints(reached.point, [&](const DomainPoint &point) { setPointDomain(point, reached.domain); });
        }
    }

    /// Whatever point of a block a domain enters by, it reaches the same points, so that a block of very many ends is
    /// looked at once a domain and not once an end.
    bool isFirstFlood(const Block &block, const Reached &reached) {
        constexpr std::size_t kFew = 16;
        return block.port_size() + block.getWireCount() <= kFew ||
               mFlooded.insert({&block, reached.point.refChainId(), reached.domain}).second;
    }

    struct ReportedBefore {
        bool operator()(const std::pair<DomainPoint, std::uint32_t> &a,
                        const std::pair<DomainPoint, std::uint32_t> &b) const {
            return a.second != b.second ? a.second < b.second : a.first < b.first;
        }
    };

    ModelScans mScans;
    DomainAnalysisInfo &mInfo;
    internal::DomainTable &mTable;
    DomainInference::DomainDeliminators mDeliminators;
    std::vector<Seed> mSeeds;
    /// By the id of the instance below.
    std::vector<Crossing> mCrossings;
    std::vector<Reached> mPoints;
    std::vector<Reached> mNext;
    std::unordered_map<const BlockClass *, ClassFacts> mFacts;
    const BlockClass *mLastClass = nullptr;
    ClassFacts mLastFacts;
    std::set<std::pair<DomainPoint, std::uint32_t>, ReportedBefore> mReported;
    std::set<std::tuple<const Block *, unsigned long, std::uint32_t>> mFlooded;
};

bool DomainInference::isOutputRoot(const Model &model) {
    const ValueRef mode = model.getParam(A_SYNTH_OUTPUT_MODE);
    return mode == A_SYNTH_OUTPUT_HDL_ROOT || mode == A_SYNTH_OUTPUT_INTERNAL_ROOT ||
           mode == A_SYNTH_OUTPUT_STANDALONE_ROOT;
}

namespace {

std::vector<const Model *> outputRoots(const Design &design) {
    std::vector<const Model *> roots;
    for (const Model &model : design) {
        if (DomainInference::isOutputRoot(model)) {
            roots.push_back(&model);
        }
    }
    return roots;
}

} // namespace

DomainAnalysisInfo DomainInference::inferDomains(const Design &design, const InferenceModifier &modifier) {
    return inferDomains(outputRoots(design), modifier);
}

DomainAnalysisInfo DomainInference::inferDomains(const std::vector<const Model *> &roots,
                                                 const InferenceModifier &modifier) {
    DomainAnalysisInfo info;
    DomainInferencer inferencer(modifier, info);
    std::unordered_set<const Model *> seen;
    for (const Model *root : roots) {
        if (seen.insert(root).second && modifier.accept(*root)) {
            inferencer.setupReferenceInformation(*root);
        }
    }
    inferencer.run();
    return info;
}

void DomainInference::calculateRefChainDatabase(const Design &design, const InferenceModifier &modifier,
                                                RefChainCollection &collection) {
    for (const Model *root : outputRoots(design)) {
        addToDatabase(*root, {}, modifier, collection);
    }
}

void DomainInference::addToDatabase(const Model &model, const RefChain &refChain, const InferenceModifier &modifier,
                                    RefChainCollection &collection) {
    if (modifier.accept(model)) {
        ModelScans scans(modifier);
        walkInstances(model, collection.getOrCreateId(refChain), scans, collection,
                      [](const Model &, unsigned long, const ModelScan::Below *) {});
    }
}

} // namespace orvo
