// The search for feedback loops, and the policies that ask for it.
#include <orvo/early_cycle_analysis.h>

#include "orvo/cycletraverse.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/modelkinds.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <numeric>
#include <queue>
#include <tuple>
#include <unordered_set>

namespace orvo {

namespace {

using internal::Dependency;
using internal::Digraph;
using internal::LatencyTraverse;
using internal::ModelTreeTraverse;
using internal::NetPoint;
using internal::StrongComponents;

bool isOneOf(const Block &block, std::initializer_list<const StaticString *> types) {
    return std::any_of(types.begin(), types.end(),
                       [&block](const StaticString *type) { return block.type() == type->get_ptr(); });
}

/// The number that a parameter holds; null for anything else.
NumberValueRef numberAt(const Block &block, const StaticString &key) {
    const NumberValueRef number = numberVR(block[key]);
    return number && !number->isSpecial() ? number : NumberValueRef();
}

struct DelayLength {
    explicit DelayLength(const Block &block) : number(numberAt(block, A_DELAY_LENGTH)) {}
    bool valid() const { return static_cast<bool>(number); }
    int cycles() const { return number->toInt(); }
    NumberValueRef number;
};

/// What each point waits for, as a graph.
class DependencyGraph {
  public:
    static constexpr std::uint32_t kNone = ModelTreeTraverse::kNone;

    DependencyGraph(const Model &model, const EarlyCycleAnalysis &analysis) {
        const ModelTreeTraverse tree(model);
        const LatencyTraverse latency(tree);
        std::vector<Dependency> depends;
        for (std::uint32_t at = 0; at < tree.countModels(); ++at) {
            const ModelTreeTraverse::Instance &instance = tree.getInstance(at);
            const auto &points = instance.traverse->points().points();
            for (std::uint32_t i = 0; i < points.size(); ++i) {
                depends.clear();
                getDriverDepends(tree, at, instance.firstPoint + i, points[i], analysis, depends);
                latency.getDriverDepends(instance.firstPoint + i, depends);
                add(points[i].isBlock() ? points[i].block : nullptr, depends);
            }
        }
        for (std::uint32_t hub = tree.countPoints(); hub < latency.countPoints(); ++hub) {
            depends.clear();
            latency.getDriverDepends(hub, depends);
            add(nullptr, depends);
        }
        turnRound();
    }

    const Digraph &drivers() const { return mDrivers; }
    /// The block that a node stands for; null for a port, a wire and a constraint.
    const Block *blockAt(std::uint32_t node) const { return mBlocks[node]; }
    int slackDelay(std::size_t edge) const { return mSlackDelays[edge]; }
    template <class Visit> void forEachDriver(std::uint32_t node, Visit visit) const {
        for (std::size_t edge = mDrivers.firstEdge(node); edge < mDrivers.endEdge(node); ++edge) {
            visit(mDrivers.target(edge), edge);
        }
    }
    template <class Visit> void forEachConsumer(std::uint32_t node, Visit visit) const {
        for (std::size_t i = mFirstConsumer[node]; i < mFirstConsumer[node + 1]; ++i) {
            visit(mConsumers[i].node, mConsumers[i].edge);
        }
    }

  private:
    struct Consumer {
        std::uint32_t node;
        std::size_t edge;
    };

    static void getDriverDepends(const ModelTreeTraverse &tree, std::uint32_t instance, std::uint32_t number,
                                 const NetPoint &point, const EarlyCycleAnalysis &analysis,
                                 std::vector<Dependency> &depends) {
        const auto append = [&depends](std::uint32_t driver) {
            if (driver != kNone) {
                depends.push_back({driver, 0});
            }
        };
        if (point.port != nullptr) {
            append(tree.getDriverWire(instance, *point.port));
        } else if (point.wire != nullptr) {
            append(tree.getSource(instance, *point.wire));
        } else if (!analysis.preventsFurtherAnalysis(point.block) || analysis.isJanusBlock(point.block)) {
            // The ports of a block are numbered behind it.
            for (std::uint32_t port = 1; port <= point.block->port_size(); ++port) {
                append(number + port);
            }
        }
    }
    void add(const Block *block, const std::vector<Dependency> &depends) {
        mBlocks.push_back(block);
        for (const Dependency &depend : depends) {
            mDrivers.addEdge(depend.driver);
            mSlackDelays.push_back(depend.slackDelay);
        }
        mDrivers.closeNode();
    }
    void turnRound() {
        mFirstConsumer.assign(mDrivers.size() + 1, 0);
        for (std::size_t edge = 0; edge < mSlackDelays.size(); ++edge) {
            ++mFirstConsumer[mDrivers.target(edge) + 1];
        }
        std::partial_sum(mFirstConsumer.begin(), mFirstConsumer.end(), mFirstConsumer.begin());
        mConsumers.resize(mSlackDelays.size());
        std::vector<std::size_t> next(mFirstConsumer);
        for (std::uint32_t node = 0; node < mDrivers.size(); ++node) {
            forEachDriver(node, [&](std::uint32_t driver, std::size_t edge) {
                mConsumers[next[driver]++] = {node, edge};
            });
        }
    }

    std::vector<const Block *> mBlocks;
    Digraph mDrivers;
    std::vector<int> mSlackDelays;
    std::vector<std::size_t> mFirstConsumer;
    std::vector<Consumer> mConsumers;
};

/// The shortest ways from one node, by Dijkstra's method. Negative lengths, which constraints may have, count as none
/// where ways are compared.
class ShortestWays {
  public:
    static constexpr std::uint32_t kNone = DependencyGraph::kNone;
    using Distance = std::int64_t;
    struct Step {
        std::uint32_t before = kNone;
        std::size_t edge = 0;
        Distance distance = 0;
    };

    explicit ShortestWays(std::size_t nodes) : mSteps(nodes), mSearchOf(nodes, 0) {}

    /// `neighbours(node, visit)` calls `visit(neighbour, edge, length)`. Ends early where the start is reached again
    /// and `untilReturn` is set. Otherwise the way back to the start is none of the ways.
    template <class Neighbours> void explore(std::uint32_t start, bool untilReturn, Neighbours neighbours) {
        ++mSearch;
        mOrder.clear();
        mReturn = {};
        mWaiting = {};
        mSearchOf[start] = mSearch;
        mSteps[start] = {};
        mWaiting.push({0, start});
        while (!mWaiting.empty()) {
            const auto [distance, node] = mWaiting.top();
            mWaiting.pop();
            if (untilReturn && mReturn.before != kNone && mReturn.distance <= distance) {
                break;
            }
            if (distance != mSteps[node].distance) {
                continue;
            }
            mOrder.push_back(node);
            neighbours(node, [&, at = node, gone = distance](std::uint32_t next, std::size_t edge, Distance length) {
                const Step step{at, edge, gone + std::max<Distance>(length, 0)};
                if (next == start) {
                    if (mReturn.before == kNone || step.distance < mReturn.distance) {
                        mReturn = step;
                    }
                } else if (mSearchOf[next] != mSearch || step.distance < mSteps[next].distance) {
                    mSearchOf[next] = mSearch;
                    mSteps[next] = step;
                    mWaiting.push({step.distance, next});
                }
            });
        }
    }

    bool reaches(std::uint32_t node) const { return mSearchOf[node] == mSearch; }
    const Step &stepTo(std::uint32_t node) const { return mSteps[node]; }
    /// The last step of the shortest way back to the start.
    const Step &stepBack() const { return mReturn; }
    /// The nodes in the order of their distance; some stand there twice.
    const std::vector<std::uint32_t> &order() const { return mOrder; }

  private:
    struct Waiting {
        Distance distance;
        std::uint32_t node;
        bool operator>(const Waiting &other) const {
            return std::tie(distance, node) > std::tie(other.distance, other.node);
        }
    };
    std::vector<Step> mSteps;
    /// The search that reached the node last.
    std::vector<std::uint32_t> mSearchOf;
    std::uint32_t mSearch = 0;
    std::vector<std::uint32_t> mOrder;
    Step mReturn;
    std::priority_queue<Waiting, std::vector<Waiting>, std::greater<>> mWaiting;
};

class LoopSearch {
  public:
    LoopSearch(const Model &model, EarlyCycleAnalysis &analysis)
        : mAnalysis(analysis), mGraph(model, analysis), mComponents(stronglyConnectedComponents(mGraph.drivers())),
          mComponentOf(mGraph.drivers().size()), mAgainstData(mGraph.drivers().size()),
          mWithData(mGraph.drivers().size()) {
        for (std::size_t i = 0; i < mComponents.size(); ++i) {
            for (const std::uint32_t node : mComponents[i]) {
                mComponentOf[node] = static_cast<std::uint32_t>(i);
            }
        }
    }

    bool run() {
        bool found = false;
        for (const std::uint32_t component : cyclicComponents()) {
            found = examine(component) || found;
            if (found && !mAnalysis.furtherAnalysis()) {
                break;
            }
        }
        return found;
    }

  private:
    static constexpr std::uint32_t kNone = DependencyGraph::kNone;

    /// In the order of their first nodes, which is that of models and blocks.
    std::vector<std::uint32_t> cyclicComponents() const {
        std::vector<std::pair<std::uint32_t, std::uint32_t>> cyclic;
        for (std::size_t i = 0; i < mComponents.size(); ++i) {
            if (isCyclic(mGraph.drivers(), mComponents[i])) {
                cyclic.emplace_back(*std::min_element(mComponents[i].begin(), mComponents[i].end()),
                                    static_cast<std::uint32_t>(i));
            }
        }
        std::sort(cyclic.begin(), cyclic.end());
        std::vector<std::uint32_t> components;
        std::transform(cyclic.begin(), cyclic.end(), std::back_inserter(components),
                       [](const auto &entry) { return entry.second; });
        return components;
    }

    bool examine(std::uint32_t component) {
        std::vector<std::uint32_t> starts;
        bool isSalient = false;
        bool isCut = false;
        for (const std::uint32_t node : mComponents[component]) {
            if (const Block *block = mGraph.blockAt(node)) {
                isSalient = isSalient || mAnalysis.isBlockSalient(block);
                if (mAnalysis.isJanusBlock(block)) {
                    starts.push_back(node);
                    isCut = isCut || mAnalysis.preventsFurtherAnalysis(block);
                }
            }
        }
        if (!isSalient || starts.empty()) {
            return false;
        }
        if (!mAnalysis.furtherAnalysis() && !isCut) {
            return true;
        }
        std::sort(starts.begin(), starts.end());
        bool found = false;
        for (const std::uint32_t start : starts) {
            // An earlier loop may have taken the policy's interest in this block away.
            found = (mAnalysis.isJanusBlock(mGraph.blockAt(start)) && examineFrom(start)) || found;
        }
        return found;
    }

    /// The loops through a Janus block that pass no other block which prevents that.
    bool examineFrom(std::uint32_t start) {
        const bool anyLoop = mAnalysis.isBlockSalient(mGraph.blockAt(start));
        mAgainstData.explore(start, anyLoop, [&](std::uint32_t node, const auto &visit) {
            mGraph.forEachDriver(node, [&](std::uint32_t next, std::size_t edge) {
                if (isPassable(next, start)) {
                    visit(next, edge, mGraph.slackDelay(edge) + slackDelayAt(next));
                }
            });
        });
        if (anyLoop) {
            return mAgainstData.stepBack().before != kNone && tell(start, kNone);
        }
        mWithData.explore(start, false, [&](std::uint32_t node, const auto &visit) {
            mGraph.forEachConsumer(node, [&](std::uint32_t next, std::size_t edge) {
                if (isPassable(next, start)) {
                    visit(next, edge, mGraph.slackDelay(edge) + slackDelayAt(node));
                }
            });
        });
        std::uint32_t through = kNone;
        ShortestWays::Distance least = std::numeric_limits<ShortestWays::Distance>::max();
        for (const std::uint32_t node : mAgainstData.order()) {
            const Block *block = node != start && mWithData.reaches(node) ? mGraph.blockAt(node) : nullptr;
            if (block != nullptr && mAnalysis.isBlockSalient(block)) {
                const auto distance = mAgainstData.stepTo(node).distance + mWithData.stepTo(node).distance;
                if (distance < least) {
                    least = distance;
                    through = node;
                }
            }
        }
        return through != kNone && tell(start, through);
    }

    bool isPassable(std::uint32_t node, std::uint32_t start) const {
        if (mComponentOf[node] != mComponentOf[start]) {
            return false;
        }
        const Block *block = mGraph.blockAt(node);
        return block == nullptr || node == start || !mAnalysis.preventsFurtherAnalysis(block);
    }

    int slackDelayAt(std::uint32_t node) const {
        const Block *block = mGraph.blockAt(node);
        return block != nullptr ? mAnalysis.getSlackDelay(block) : 0;
    }

    /// Hands the loop to the policy that asked for it: the one through `through` or, without that, the shortest one.
    bool tell(std::uint32_t start, std::uint32_t through) {
        if (!mAnalysis.furtherAnalysis()) {
            return true;
        }
        std::int64_t slack = slackDelayAt(start);
        std::vector<const Block *> path{mGraph.blockAt(start)};
        std::unordered_set<std::uint32_t> passed{start};
        const auto pass = [&](std::uint32_t node) {
            slack += slackDelayAt(node);
            if (mGraph.blockAt(node) != nullptr && passed.insert(node).second) {
                path.push_back(mGraph.blockAt(node));
            }
        };
        // With the data from the start to the block in between, whose way was found from the start on ...
        std::vector<std::uint32_t> ahead;
        for (std::uint32_t node = through; node != kNone && node != start; node = mWithData.stepTo(node).before) {
            slack += mGraph.slackDelay(mWithData.stepTo(node).edge);
            ahead.push_back(node);
        }
        std::for_each(ahead.rbegin(), ahead.rend(), pass);
        // ... and from there on to the start, along the way that was found against the data.
        ShortestWays::Step step = through == kNone ? mAgainstData.stepBack() : mAgainstData.stepTo(through);
        for (; step.before != kNone; step = mAgainstData.stepTo(step.before)) {
            slack += mGraph.slackDelay(step.edge);
            if (step.before != start) {
                pass(step.before);
            }
        }
        mAnalysis.worstSlackPath(path, static_cast<int>(std::clamp<std::int64_t>(slack, std::numeric_limits<int>::min(),
                                                                                 std::numeric_limits<int>::max())));
        return true;
    }

    EarlyCycleAnalysis &mAnalysis;
    DependencyGraph mGraph;
    StrongComponents mComponents;
    std::vector<std::uint32_t> mComponentOf;
    ShortestWays mAgainstData;
    ShortestWays mWithData;
};

} // namespace

EarlyCycleAnalysis::~EarlyCycleAnalysis() = default;

bool EarlyCycleAnalysis::furtherAnalysis() const { return false; }

bool EarlyCycleAnalysis::isBlockSalient(const Block *block) const { return isJanusBlock(block); }

bool EarlyCycleAnalysis::preventsFurtherAnalysis(const Block *block) const {
    return EarlyCycleAnalysis::getSlackDelay(block) >= 1;
}

int EarlyCycleAnalysis::getSlackDelay(const Block *block) const {
    if (isOneOf(*block, {&A_REGISTER_BLOCK, &A_SYNC_REGISTER_BLOCK})) {
        return 1;
    }
    const DelayLength delayLength(*block);
    return isOneOf(*block, {&A_DELAY_BLOCK}) && delayLength.valid() ? delayLength.cycles() : 0;
}

void EarlyCycleAnalysis::worstSlackPath(const std::vector<const Block *> &, int) {}

bool EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(const Model &model, EarlyCycleAnalysis *analysis) {
    return LoopSearch(model, *analysis).run();
}

bool EarlyCycleLSUAnalysis::isJanusBlock(const Block *block) const {
    return isOneOf(*block, {&A_EXTMEM_READ_BLOCK, &A_EXTMEM_WRITE_BLOCK, &A_SHARED_MEM_BLOCK});
}

bool EarlyCycleLSUAnalysis::doesUnschedulableLoopContainLSU(const Model &model) {
    EarlyCycleLSUAnalysis analysis;
    return EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(model, &analysis);
}

bool EarlyCycleAdderAnalysis::isJanusBlock(const Block *block) const {
    const bool isAdder = isOneOf(*block, {&A_ADD_BLOCK})
                             ? block->port_size() == 2
                             : isOneOf(*block, {&A_SUB_BLOCK, &A_ADDSUB_BLOCK, &A_ADD_SLOAD_BLOCK});
    return isAdder && !numberVR((*block)[A_TESSELLATION_SPLIT_WIDTH]);
}

bool EarlyCycleAdderAnalysis::furtherAnalysis() const { return true; }

bool EarlyCycleAdderAnalysis::isBlockSalient(const Block *block) const {
    const NumberValueRef offset = numberAt(*block, A_BIT_SELECT_BIT_OFFSET);
    return isOneOf(*block, {&A_BIT_SELECT_BLOCK}) && offset && offset->toInt() != 0;
}

bool EarlyCycleAdderAnalysis::preventsFurtherAnalysis(const Block *block) const {
    if (isOneOf(*block, {&A_DELAY_BLOCK})) {
        return !DelayLength(*block).valid() || static_cast<bool>(stringVR((*block)[A_DELAY_EQUIV_GROUP]));
    }
    return isOneOf(*block, {&A_ADD_BLOCK, &A_SUB_BLOCK, &A_ADD_SLOAD_BLOCK});
}

int EarlyCycleAdderAnalysis::getSlackDelay(const Block *block) const {
    if (!isOneOf(*block, {&A_DELAY_BLOCK})) {
        return 0;
    }
    const DelayLength delayLength(*block);
    ORVO_ASSERT(delayLength.valid(), "a delay on a loop has no length");
    return delayLength.cycles();
}

void EarlyCycleAdderAnalysis::worstSlackPath(const std::vector<const Block *> &path, int slack) {
    if (slack >= 2) {
        return;
    }
    for (const Block *block : path) {
        const_cast<Block *>(block)->setParam(A_TESSELLATION_SPLIT_WIDTH, NumberValue::get(-1, block->getContext()));
    }
}

void EarlyCycleAdderAnalysis::suppressPipeliningOfAdderFeedbackLoops(Design &design) {
    EarlyCycleAdderAnalysis analysis;
    for (const Model &model : design) {
        const auto &parents = model.getParentBlocks();
        const bool isTop = std::none_of(parents.begin(), parents.end(),
                                        [](const Block *parent) { return isScheduledModel(parent->getModel()); });
        if (isScheduledModel(model) && isTop) {
            EarlyCycleAnalysisImpl::analyzeUnschedulableLoops(model, &analysis);
        }
    }
}

} // namespace orvo
