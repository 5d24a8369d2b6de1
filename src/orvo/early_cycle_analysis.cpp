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
using internal::LatencyRecords;
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
    int cycles() const { return internal::saturatedInteger(*number); }
    NumberValueRef number;
};

/// What each point waits for, as a graph. The length of an edge is the cycles on it and in the block that it leads to,
/// so that the slack of a loop is the sum of its edges.
class DependencyGraph {
  public:
    static constexpr std::uint32_t kNone = ModelTreeTraverse::kNone;

    DependencyGraph(const Model &model, LatencyRecords &records, const EarlyCycleAnalysis &analysis) {
        const ModelTreeTraverse tree(model);
        const LatencyTraverse latency(tree, records);
        std::vector<Dependency> depends;
        for (std::uint32_t at = 0; at < tree.countModels(); ++at) {
            const ModelTreeTraverse::Instance &instance = tree.getInstance(at);
            const auto &points = instance.traverse->points().points();
            for (std::uint32_t i = 0; i < points.size(); ++i) {
                depends.clear();
                getDriverDepends(tree, at, instance.firstPoint + i, points[i], analysis, depends);
                latency.getDriverDepends(instance.firstPoint + i, depends);
                const Block *block = points[i].isBlock() ? points[i].block : nullptr;
                add(block, depends,
                    block != nullptr && isFollowed(*block, analysis) ? analysis.getSlackDelay(block) : 0);
            }
        }
        for (std::uint32_t hub = tree.countPoints(); hub < latency.countPoints(); ++hub) {
            depends.clear();
            latency.getDriverDepends(hub, depends);
            add(nullptr, depends, 0);
        }
        for (std::size_t edge = 0; edge < mLengths.size(); ++edge) {
            mLengths[edge] += mSlackDelays[mDrivers.target(edge)];
            mHasNegative = mHasNegative || mLengths[edge] < 0;
        }
        turnRound();
    }

    const Digraph &drivers() const { return mDrivers; }
    /// The block that a node stands for; null for a port, a wire and a constraint.
    const Block *blockAt(std::uint32_t node) const { return mBlocks[node]; }
    std::int64_t length(std::size_t edge) const { return mLengths[edge]; }
    bool hasNegative() const { return mHasNegative; }
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

    static bool isFollowed(const Block &block, const EarlyCycleAnalysis &analysis) {
        return !analysis.preventsFurtherAnalysis(&block) || analysis.isJanusBlock(&block);
    }
    static void getDriverDepends(const ModelTreeTraverse &tree, std::uint32_t instance, std::uint32_t number,
                                 const NetPoint &point, const EarlyCycleAnalysis &analysis,
                                 std::vector<Dependency> &depends) {
        const auto append = [&depends](std::uint32_t driver) {
            if (driver != kNone) {
                depends.push_back({driver, 0});
            }
        };
        if (point.isBlock() && !isFollowed(*point.block, analysis)) {
            return;
        }
        if (point.isBlock() && point.port != nullptr) {
            const ModelTreeTraverse::Instance &at = tree.getInstance(instance);
            append(at.firstPoint + at.traverse->points().getPoint(*point.port));
        } else if (point.port != nullptr) {
            append(tree.getDriverWire(instance, *point.port));
        } else if (point.wire != nullptr) {
            append(tree.getSource(instance, *point.wire));
        } else {
            // The ports of a block are numbered behind it.
            for (std::uint32_t port = 1; port <= point.block->port_size(); ++port) {
                append(number + port);
            }
        }
    }
    void add(const Block *block, const std::vector<Dependency> &depends, int slackDelay) {
        mBlocks.push_back(block);
        mSlackDelays.push_back(slackDelay);
        for (const Dependency &depend : depends) {
            mDrivers.addEdge(depend.driver);
            mLengths.push_back(depend.slackDelay);
        }
        mDrivers.closeNode();
    }
    void turnRound() {
        mFirstConsumer.assign(mDrivers.size() + 1, 0);
        for (std::size_t edge = 0; edge < mLengths.size(); ++edge) {
            ++mFirstConsumer[mDrivers.target(edge) + 1];
        }
        std::partial_sum(mFirstConsumer.begin(), mFirstConsumer.end(), mFirstConsumer.begin());
        mConsumers.resize(mLengths.size());
        std::vector<std::size_t> next(mFirstConsumer);
        for (std::uint32_t node = 0; node < mDrivers.size(); ++node) {
            forEachDriver(node, [&](std::uint32_t driver, std::size_t edge) {
                mConsumers[next[driver]++] = {node, edge};
            });
        }
    }

    std::vector<const Block *> mBlocks;
    Digraph mDrivers;
    /// Of the nodes.
    std::vector<int> mSlackDelays;
    /// Of the edges.
    std::vector<std::int64_t> mLengths;
    bool mHasNegative = false;
    std::vector<std::size_t> mFirstConsumer;
    std::vector<Consumer> mConsumers;
};

/// The shortest ways from one node. Without negative lengths this is Dijkstra's method. With them, rounds of it follow
/// each other, between which the negative edges are gone along (Y. Dinitz and R. Itzik, "Hybrid Bellman-Ford-Dijkstra
/// algorithm", Journal of Discrete Algorithms 42, 2017).
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
    /// and `untilReturn` is set, which needs lengths that are not negative. Otherwise the way back to the start is none
    /// of the ways. Gives a node of a cycle of negative length that makes ways shorter without end, or `kNone`.
    template <class Neighbours> std::uint32_t explore(std::uint32_t start, bool untilReturn, Neighbours neighbours) {
        begin();
        seed(start);
        return run(start, untilReturn, neighbours);
    }

    /// The same from each of many nodes, to that which is the nearest from any.
    template <class Nodes, class Neighbours> std::uint32_t exploreFromAll(const Nodes &starts, Neighbours neighbours) {
        begin();
        std::for_each(starts.begin(), starts.end(), [this](std::uint32_t start) { seed(start); });
        return run(kNone, false, neighbours);
    }

    bool reaches(std::uint32_t node) const { return mSearchOf[node] == mSearch; }
    const Step &stepTo(std::uint32_t node) const { return mSteps[node]; }
    /// The last step of the shortest way back to the start.
    const Step &stepBack() const { return mReturn; }
    /// The nodes as they were passed; some stand there several times.
    const std::vector<std::uint32_t> &order() const { return mOrder; }

  private:
    struct Waiting {
        Distance distance;
        std::uint32_t node;
        bool operator>(const Waiting &other) const {
            return std::tie(distance, node) > std::tie(other.distance, other.node);
        }
    };

    void begin() {
        ++mSearch;
        mOrder.clear();
        mReturn = {};
        mWaiting = {};
        mNegative.clear();
    }
    void seed(std::uint32_t start) {
        mSearchOf[start] = mSearch;
        mSteps[start] = {};
        mWaiting.push({0, start});
    }
    template <class Neighbours> std::uint32_t run(std::uint32_t start, bool untilReturn, Neighbours neighbours) {
        std::size_t round = 0;
        while (!mWaiting.empty()) {
            const auto [distance, node] = mWaiting.top();
            mWaiting.pop();
            if (untilReturn && mReturn.before != kNone && mReturn.distance <= distance) {
                break;
            }
            if (distance == mSteps[node].distance) {
                mOrder.push_back(node);
                neighbours(node,
                           [&, at = node, gone = distance](std::uint32_t next, std::size_t edge, Distance length) {
                               const Step step{at, edge, gone + length};
                               if (next == start) {
                                   if (mReturn.before == kNone || step.distance < mReturn.distance) {
                                       mReturn = step;
                                   }
                               } else if (length < 0) {
                                   mNegative.emplace_back(next, step);
                               } else {
                                   take(next, step);
                               }
                           });
            }
            if (mWaiting.empty() && !mNegative.empty()) {
                for (const auto &[next, step] : mNegative) {
                    take(next, step);
                }
                mNegative.clear();
                if (const std::uint32_t circling = findCircling(round); circling != kNone) {
                    return circling;
                }
                round = mOrder.size();
            }
        }
        return kNone;
    }
    void take(std::uint32_t node, const Step &step) {
        if (!reaches(node) || step.distance < mSteps[node].distance) {
            mSearchOf[node] = mSearch;
            mSteps[node] = step;
            mWaiting.push({step.distance, node});
        }
    }
    /// A node whose way comes back to it: the ways make no tree any more once a negative cycle is gone round. Such a
    /// way leads over a node that was passed in this round.
    std::uint32_t findCircling(std::size_t round) {
        mWalkOf.resize(mSteps.size());
        const std::uint64_t before = mWalk;
        for (std::size_t i = round; i < mOrder.size(); ++i) {
            ++mWalk;
            std::uint32_t node = mOrder[i];
            for (; node != kNone && mWalkOf[node] <= before; node = mSteps[node].before) {
                mWalkOf[node] = mWalk;
            }
            if (node != kNone && mWalkOf[node] == mWalk) {
                return node;
            }
        }
        return kNone;
    }

    std::vector<Step> mSteps;
    /// The search that reached the node last.
    std::vector<std::uint32_t> mSearchOf;
    std::uint32_t mSearch = 0;
    std::vector<std::uint32_t> mOrder;
    Step mReturn;
    std::priority_queue<Waiting, std::vector<Waiting>, std::greater<>> mWaiting;
    /// Negative edges that wait for the next round.
    std::vector<std::pair<std::uint32_t, Step>> mNegative;
    /// The walk back along the steps that passed the node last.
    std::vector<std::uint64_t> mWalkOf;
    std::uint64_t mWalk = 0;
};

class LoopSearch {
  public:
    LoopSearch(const Model &model, LatencyRecords &records, EarlyCycleAnalysis &analysis)
        : mAnalysis(analysis), mGraph(model, records, analysis),
          mComponents(stronglyConnectedComponents(mGraph.drivers())), mComponentOf(mGraph.drivers().size()),
          mAgainstData(mGraph.drivers().size()), mWithData(mGraph.drivers().size()) {
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
        const bool tells = mAnalysis.furtherAnalysis();
        std::vector<std::uint32_t> starts;
        bool isSalient = false;
        bool isCut = false;
        for (const std::uint32_t node : mComponents[component]) {
            if (const Block *block = mGraph.blockAt(node)) {
                isSalient = isSalient || mAnalysis.isBlockSalient(block);
                if (mAnalysis.isJanusBlock(block)) {
                    starts.push_back(node);
                    isCut = isCut || (!tells && mAnalysis.preventsFurtherAnalysis(block));
                }
            }
        }
        if (!isSalient || starts.empty()) {
            return false;
        }
        if (!tells && !isCut) {
            return true;
        }
        std::sort(starts.begin(), starts.end());
        mIsNegative = mGraph.hasNegative() && hasNegativeInside(component);
        if (mIsNegative) {
            findPotentials(component);
        }
        bool found = false;
        for (const std::uint32_t start : starts) {
            // An earlier loop may have taken the policy's interest in this block away.
            found = (mAnalysis.isJanusBlock(mGraph.blockAt(start)) && examineFrom(start)) || found;
        }
        return found;
    }

    bool hasNegativeInside(std::uint32_t component) const {
        const auto nodes = mComponents[component];
        return std::any_of(nodes.begin(), nodes.end(), [&](std::uint32_t node) {
            bool found = false;
            mGraph.forEachDriver(node, [&](std::uint32_t driver, std::size_t edge) {
                found = found || (mComponentOf[driver] == component && mGraph.length(edge) < 0);
            });
            return found;
        });
    }

    /// Where a search goes on to.
    enum class Region { Component, LeadsBack, LeadsBothWays };
    enum class Lengths { Exact, NotNegative };

    std::uint32_t exploreAgainstData(std::uint32_t start, bool untilReturn, Region region, Lengths lengths) {
        return mAgainstData.explore(start, untilReturn, [&](std::uint32_t node, const auto &visit) {
            mGraph.forEachDriver(node, [&](std::uint32_t next, std::size_t edge) {
                if (isPassable(next, start) && (region == Region::Component || mWithData.reaches(next))) {
                    visit(next, edge, lengthOf(edge, node, next, lengths));
                }
            });
        });
    }
    std::uint32_t exploreWithData(std::uint32_t start, Region region, Lengths lengths) {
        return mWithData.explore(start, false, [&](std::uint32_t node, const auto &visit) {
            mGraph.forEachConsumer(node, [&](std::uint32_t next, std::size_t edge) {
                if (isPassable(next, start) && (region == Region::Component || mAgainstData.reaches(next))) {
                    visit(next, edge, lengthOf(edge, next, node, lengths));
                }
            });
        });
    }
    /// Exact up to potentials, which cancel each other in the length of a loop.
    std::int64_t lengthOf(std::size_t edge, std::uint32_t node, std::uint32_t driver, Lengths lengths) const {
        if (lengths == Lengths::NotNegative) {
            return std::max<std::int64_t>(mGraph.length(edge), 0);
        }
        return mPotentials.empty() ? mGraph.length(edge)
                                   : mGraph.length(edge) + mPotentials[node] - mPotentials[driver];
    }

    /// With potentials (D. B. Johnson, "Efficient algorithms for shortest paths in sparse networks", Journal of the ACM
    /// 24, 1977), no length in the component is negative, but for those at blocks that prevent further analysis. They
    /// are all 0 if it has a negative cycle.
    void findPotentials(std::uint32_t component) {
        mPotentials.resize(mGraph.drivers().size());
        std::vector<std::uint32_t> open;
        std::copy_if(mComponents[component].begin(), mComponents[component].end(), std::back_inserter(open),
                     [&](std::uint32_t node) { return isPassable(node, kNone); });
        const std::uint32_t circling = mAgainstData.exploreFromAll(open, [&](std::uint32_t node, const auto &visit) {
            mGraph.forEachDriver(node, [&](std::uint32_t next, std::size_t edge) {
                if (mComponentOf[next] == component && isPassable(next, kNone)) {
                    visit(next, edge, mGraph.length(edge));
                }
            });
        });
        for (const std::uint32_t node : open) {
            mPotentials[node] = circling == kNone ? mAgainstData.stepTo(node).distance : 0;
        }
    }

    /// The loops through a Janus block that pass no other block which prevents that.
    bool examineFrom(std::uint32_t start) {
        const bool anyLoop = mAnalysis.isBlockSalient(mGraph.blockAt(start));
        std::int64_t bound = std::numeric_limits<std::int64_t>::max();
        if (!mIsNegative) {
            exploreAgainstData(start, anyLoop, Region::Component, Lengths::Exact);
            if (!anyLoop) {
                exploreWithData(start, Region::Component, Lengths::Exact);
            }
        } else {
            bound = exploreNegative(start);
        }
        if (anyLoop) {
            return mAgainstData.stepBack().before != kNone && tell(start, kNone, bound);
        }
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
        return through != kNone && tell(start, through, bound);
    }

    /// Searches both ways where lengths may be negative, among what lies on loops through the start. If these can go
    /// round a negative cycle on the way, no loop is the shortest: then negative lengths count as none, and the length
    /// of that cycle is given, which no loop is worth more than.
    std::int64_t exploreNegative(std::uint32_t start) {
        exploreWithData(start, Region::Component, Lengths::NotNegative);
        const std::uint32_t round = exploreAgainstData(start, false, Region::LeadsBack, Lengths::Exact);
        if (round == kNone) {
            exploreWithData(start, Region::LeadsBothWays, Lengths::Exact);
            return std::numeric_limits<std::int64_t>::max();
        }
        std::int64_t sum = 0;
        std::uint32_t node = round;
        do {
            sum += mGraph.length(mAgainstData.stepTo(node).edge);
            node = mAgainstData.stepTo(node).before;
        } while (node != round);
        exploreAgainstData(start, false, Region::LeadsBack, Lengths::NotNegative);
        return sum;
    }

    bool isPassable(std::uint32_t node, std::uint32_t start) const {
        if (start != kNone && mComponentOf[node] != mComponentOf[start]) {
            return false;
        }
        const Block *block = mGraph.blockAt(node);
        return block == nullptr || node == start || !mAnalysis.preventsFurtherAnalysis(block);
    }

    /// Hands the loop to the policy that asked for it: the one through `through` or, without that, the shortest one.
    bool tell(std::uint32_t start, std::uint32_t through, std::int64_t bound) {
        if (!mAnalysis.furtherAnalysis()) {
            return true;
        }
        std::int64_t slack = 0;
        std::vector<const Block *> path{mGraph.blockAt(start)};
        std::unordered_set<std::uint32_t> passed{start};
        const auto pass = [&](std::uint32_t node) {
            if (mGraph.blockAt(node) != nullptr && passed.insert(node).second) {
                path.push_back(mGraph.blockAt(node));
            }
        };
        // With the data from the start to the block in between, whose way was found from the start on ...
        std::vector<std::uint32_t> ahead;
        for (std::uint32_t node = through; node != kNone && node != start; node = mWithData.stepTo(node).before) {
            slack += mGraph.length(mWithData.stepTo(node).edge);
            ahead.push_back(node);
        }
        std::for_each(ahead.rbegin(), ahead.rend(), pass);
        // ... and from there on to the start, along the way that was found against the data.
        ShortestWays::Step step = through == kNone ? mAgainstData.stepBack() : mAgainstData.stepTo(through);
        for (; step.before != kNone; step = mAgainstData.stepTo(step.before)) {
            slack += mGraph.length(step.edge);
            if (step.before != start) {
                pass(step.before);
            }
        }
        slack = std::clamp<std::int64_t>(std::min(slack, bound), std::numeric_limits<int>::min(),
                                         std::numeric_limits<int>::max());
        mAnalysis.worstSlackPath(path, static_cast<int>(slack));
        return true;
    }

    EarlyCycleAnalysis &mAnalysis;
    DependencyGraph mGraph;
    StrongComponents mComponents;
    std::vector<std::uint32_t> mComponentOf;
    ShortestWays mAgainstData;
    ShortestWays mWithData;
    /// Of the component that is examined.
    bool mIsNegative = false;
    std::vector<std::int64_t> mPotentials;
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
    return EarlyCycleAnalysisImpl(model.getDesign()).analyze(model, *analysis);
}

EarlyCycleAnalysisImpl::EarlyCycleAnalysisImpl(const Design &design)
    : mRecords(std::make_unique<LatencyRecords>(design)) {}

EarlyCycleAnalysisImpl::~EarlyCycleAnalysisImpl() = default;

bool EarlyCycleAnalysisImpl::analyze(const Model &model, EarlyCycleAnalysis &analysis) {
    return LoopSearch(model, *mRecords, analysis).run();
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
    return isOneOf(*block, {&A_BIT_SELECT_BLOCK}) && offset && internal::saturatedInteger(*offset) != 0;
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
    EarlyCycleAnalysisImpl impl(design);
    for (const Model &model : design) {
        const auto &parents = model.getParentBlocks();
        const bool isTop = std::none_of(parents.begin(), parents.end(),
                                        [](const Block *parent) { return isScheduledModel(parent->getModel()); });
        if (isScheduledModel(model) && isTop) {
            impl.analyze(model, analysis);
        }
    }
}

} // namespace orvo
