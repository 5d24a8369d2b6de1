// Adds up what blocks cost: models below before those above, blocks along the paths of signals for the latency.
#include "generator/designestimate.h"

#include "generator/estimates.h"
#include "orvo/scheduleconstraints.h"
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

/// The models of a design, numbered in its order, and an edge for each block that stands for one.
struct Hierarchy {
    explicit Hierarchy(const Design &design) {
        for (Model &model : design) {
            numbers.emplace(&model, static_cast<std::uint32_t>(models.size()));
            models.push_back(&model);
        }
        for (const Model *model : models) {
            for (const Block &block : *model) {
                if (const Model *below = internal::instantiatedModel(block); below != nullptr) {
                    graph.addEdge(numbers.at(below));
                }
            }
            graph.closeNode();
        }
    }
    std::vector<Model *> models;
    std::unordered_map<const Model *, std::uint32_t> numbers;
    internal::Digraph graph;
};

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
          mDistinct(*mResults.getPass<ModelTreePass>(), mTypes), mHierarchy(design) {
        for (Model *model : mHierarchy.models) {
            mModels.push_back({model, {model->getName(), {}, 0, 0}});
        }
    }

    DesignEstimate run() {
        const internal::Digraph &graph = mHierarchy.graph;
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
            countInstances(mModels[*number], *number);
        }
        return result();
    }

  private:
    struct Entry {
        Model *model;
        ModelEstimate estimate;
    };
    /// A model and the types at the block that stands for it: what tells instances apart.
    using Key = std::pair<const Model *, internal::BoundaryTypes>;

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
        return {&model,
                reference == nullptr ? internal::BoundaryTypes() : internal::boundaryTypes(*reference, above, mTypes)};
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

    /// Of the models of a ring, those are that have lost the blocks that stood for them.
    bool isTop(const Entry &entry) const {
        return mTops.count(entry.estimate.name) != 0 && entry.model->getParentBlocks().empty();
    }

    /// Behind all models that instantiate it.
    void countInstances(Entry &entry, std::uint32_t number) {
        if (isTop(entry)) {
            entry.estimate.instances = 1;
        }
        for (const std::uint32_t below : mHierarchy.graph.edgesOf(number)) {
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
    internal::DistinctInstances mDistinct;
    Hierarchy mHierarchy;
    std::vector<Entry> mModels;
    std::map<Key, Cost> mCosts;
    /// Models without end that no top leads to.
    Count mUncovered = 0;
};

} // namespace

DesignEstimate estimateLowered(Design &lowered, const std::set<PureValueRef> &tops) {
    return DesignEstimator(lowered, tops).run();
}

std::set<PureValueRef> topModels(const Design &design) {
    const Hierarchy hierarchy(design);
    const internal::StrongComponents components = internal::stronglyConnectedComponents(hierarchy.graph);
    std::vector<std::size_t> componentOf(hierarchy.models.size());
    for (std::size_t i = 0; i < components.size(); ++i) {
        for (const std::uint32_t number : components[i]) {
            componentOf[number] = i;
        }
    }
    std::vector<bool> isBelow(components.size(), false);
    for (std::uint32_t number = 0; number < hierarchy.models.size(); ++number) {
        for (const std::uint32_t below : hierarchy.graph.edgesOf(number)) {
            if (componentOf[below] != componentOf[number]) {
                isBelow[componentOf[below]] = true;
            }
        }
    }
    std::set<PureValueRef> tops;
    for (std::uint32_t number = 0; number < hierarchy.models.size(); ++number) {
        if (!isBelow[componentOf[number]]) {
            tops.insert(hierarchy.models[number]->getName());
        }
    }
    return tops;
}

} // namespace orvo::generator
