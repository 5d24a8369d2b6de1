// Adds up what blocks cost: models below before those above, blocks along the paths of signals for the latency.
#include "generator/designestimate.h"

#include "generator/estimates.h"
#include "orvo/strongcomponents.h"
#include "orvo/unrollpasses.h"

#include <orvo/design.h>
#include <orvo/modeltreepass.h>
#include <orvo/pass.h>
#include <orvo/wire.h>

#include <algorithm>
#include <map>
#include <span>
#include <unordered_map>
#include <utility>

namespace orvo::generator {

namespace {

struct Cost {
    Usage usage;
    Count uncounted = 0;
};

Usage largest(const Usage &a, const Usage &b) {
    Usage most;
    most.luts = std::max(a.luts, b.luts);
    most.multipliers = std::max(a.multipliers, b.multipliers);
    most.memoryBlocks = std::max(a.memoryBlocks, b.memoryBlocks);
    most.memoryBits = std::max(a.memoryBits, b.memoryBits);
    most.latency = std::max(a.latency, b.latency);
    return most;
}

/// The longest way through nodes of these latencies. A cycle counts as all of its nodes one behind the other: no way
/// visits one of them twice.
Count longestWay(const internal::Digraph &graph, const std::vector<Count> &latencies) {
    const internal::StrongComponents components = internal::stronglyConnectedComponents(graph);
    std::vector<Count> behindNode(graph.size(), 0);
    Count longest = 0;
    for (std::size_t i = 0; i < components.size(); ++i) {
        Count own = 0;
        Count rest = 0;
        for (const std::uint32_t node : components[i]) {
            own = plus(own, latencies[node]);
            for (const std::uint32_t reader : graph.edgesOf(node)) {
                // Those of this very component are still 0.
                rest = std::max(rest, behindNode[reader]);
            }
        }
        for (const std::uint32_t node : components[i]) {
            behindNode[node] = plus(own, rest);
        }
        longest = std::max(longest, plus(own, rest));
    }
    return longest;
}

class DesignEstimator {
  public:
    DesignEstimator(Design &design, const std::set<PureValueRef> &tops)
        : mTops(tops), mResults(inferred(design)), mTypes(*mResults.getPass<GlobalTypePass>()),
          mTree(*mResults.getPass<ModelTreePass>()), mDistinct(mTree, mTypes) {
        for (Model &model : design) {
            mNumbers.emplace(&model, static_cast<std::uint32_t>(mModels.size()));
            mModels.push_back({&model, {model.getName(), {}, 0, 0}});
        }
    }

    DesignEstimate run() {
        internal::Digraph graph;
        for (const Entry &entry : mModels) {
            for (const Model *below : mTree.getReferredModels(*entry.model)) {
                graph.addEdge(mNumbers.at(below));
            }
            graph.closeNode();
        }
        const internal::StrongComponents order = internal::stronglyConnectedComponents(graph);
        using Component = std::span<const std::uint32_t>;
        // Of models that contain themselves, and those below them, there are instances without end.
        const std::vector<bool> endless =
            withAllBelow(graph, order, [&](Component component) { return internal::isCyclic(graph, component); });
        const std::vector<bool> covered = withAllBelow(graph, order, [&](Component component) {
            return std::any_of(component.begin(), component.end(),
                               [&](std::uint32_t number) { return isTop(mModels[number]); });
        });
        for (const std::uint32_t number : order.nodes) {
            if (endless[number]) {
                mModels[number].estimate.uncounted = 1;
                mUncovered += covered[number] ? 0 : 1;
            } else {
                estimate(mModels[number]);
            }
        }
        for (auto number = order.nodes.rbegin(); number != order.nodes.rend(); ++number) {
            countInstances(mModels[*number], graph, *number);
        }
        return result();
    }

  private:
    struct Entry {
        Model *model;
        ModelEstimate estimate;
    };
    /// A model and the types at the block that stands for it: what tells instances apart.
    using Key = std::pair<const Model *, std::vector<const Value *>>;

    /// The models of the components that are chosen, and all below them.
    template <class Chosen>
    static std::vector<bool> withAllBelow(const internal::Digraph &graph, const internal::StrongComponents &order,
                                          Chosen isChosen) {
        std::vector<bool> reached(graph.size(), false);
        for (std::size_t i = order.size(); i-- > 0;) {
            const auto component = order[i];
            // Whoever reaches one model of a component reaches all.
            const bool isReached =
                isChosen(component) ||
                std::any_of(component.begin(), component.end(), [&](std::uint32_t number) { return reached[number]; });
            for (const std::uint32_t number : component) {
                reached[number] = isReached;
                for (const std::uint32_t below : graph.edgesOf(number)) {
                    reached[below] = reached[below] || isReached;
                }
            }
        }
        return reached;
    }

    static PassResults inferred(Design &design) {
        PassScheduler scheduler;
        scheduler.requirePass(ModelTreePass::sName);
        scheduler.requirePass(GlobalTypePass::sName);
        return scheduler.apply(design);
    }

    Key keyOf(const Model &model, const Block *reference, const RefChain &above) {
        Key key{&model, {}};
        if (reference != nullptr) {
            for (const Port &port : reference->ports()) {
                key.second.push_back(mTypes.getType(port, above).get_ptr());
            }
            for (const Wire &wire : *reference) {
                key.second.push_back(mTypes.getType(wire, above).get_ptr());
            }
        }
        return key;
    }

    void estimate(Entry &entry) {
        const BuildOptions options = BuildOptions::of(*entry.model);
        for (const RefChain &chain : mDistinct.of(*entry.model)) {
            const Cost cost = costOf(*entry.model, chain, options);
            entry.estimate.usage = largest(entry.estimate.usage, cost.usage);
            entry.estimate.uncounted = std::max(entry.estimate.uncounted, cost.uncounted);
            const RefChain above(chain.begin(), chain.empty() ? chain.end() : chain.end() - 1);
            mCosts.emplace(keyOf(*entry.model, chain.empty() ? nullptr : chain.back(), above), cost);
        }
    }

    Cost costOf(const Model &model, const RefChain &chain, const BuildOptions &options) {
        const TypesAt types{[&](const Port &port) { return mTypes.getType(port, chain); },
                            [&](const Wire &wire) { return mTypes.getType(wire, chain); }};
        Cost sum;
        std::unordered_map<const Block *, std::uint32_t> numbers;
        std::vector<Count> latencies;
        for (const Block &block : model) {
            const Cost cost = costOf(block, chain, types, options);
            numbers.emplace(&block, static_cast<std::uint32_t>(latencies.size()));
            latencies.push_back(cost.usage.latency);
            sum.usage = beside(sum.usage, cost.usage);
            sum.uncounted = plus(sum.uncounted, cost.uncounted);
        }
        internal::Digraph graph;
        for (const Block &block : model) {
            for (const Wire &wire : block) {
                for (const Port &reader : wire.ports()) {
                    if (const auto hit = numbers.find(&reader.getBlock()); hit != numbers.end()) {
                        graph.addEdge(hit->second);
                    }
                }
            }
            graph.closeNode();
        }
        sum.usage.latency = longestWay(graph, latencies);
        return sum;
    }

    Cost costOf(const Block &block, const RefChain &chain, const TypesAt &types, const BuildOptions &options) {
        if (block.type() == A_MODEL_BLOCK.get_ptr()) {
            const Model *below = Node::from<Model>(block[A_MODEL_NODE]);
            const auto known = below == nullptr ? mCosts.end() : mCosts.find(keyOf(*below, &block, chain));
            return known == mCosts.end() ? Cost{{}, 1} : known->second;
        }
        const std::optional<Usage> usage = estimateBlock(Primitive(block, types, options));
        return usage ? Cost{*usage, 0} : Cost{{}, 1};
    }

    bool isTop(const Entry &entry) const { return mTops.count(entry.estimate.name) != 0; }

    /// Behind all models that instantiate it.
    void countInstances(Entry &entry, const internal::Digraph &graph, std::uint32_t number) {
        if (isTop(entry)) {
            entry.estimate.instances = 1;
        }
        for (const std::uint32_t below : graph.edgesOf(number)) {
            if (below != number) {
                Count &instances = mModels[below].estimate.instances;
                instances = plus(instances, entry.estimate.instances);
            }
        }
    }

    DesignEstimate result() {
        DesignEstimate result;
        result.uncounted = mUncovered;
        for (Entry &entry : mModels) {
            if (isTop(entry)) {
                result.total = beside(result.total, entry.estimate.usage);
                result.uncounted = plus(result.uncounted, entry.estimate.uncounted);
            }
            result.models.push_back(std::move(entry.estimate));
        }
        return result;
    }

    const std::set<PureValueRef> &mTops;
    PassResults mResults;
    GlobalTypePass &mTypes;
    ModelTreePass &mTree;
    internal::DistinctInstances mDistinct;
    std::vector<Entry> mModels;
    std::unordered_map<const Model *, std::uint32_t> mNumbers;
    std::map<Key, Cost> mCosts;
    /// Models without end that no top leads to.
    Count mUncovered = 0;
};

} // namespace

DesignEstimate estimateLowered(Design &lowered, const std::set<PureValueRef> &tops) {
    return DesignEstimator(lowered, tops).run();
}

std::set<PureValueRef> topModels(const Design &design) {
    std::set<PureValueRef> tops;
    for (const Model &model : design) {
        if (model.getParentBlocks().empty()) {
            tops.insert(model.getName());
        }
    }
    return tops;
}

} // namespace orvo::generator
