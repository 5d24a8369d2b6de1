// Directed graphs of numbered nodes, and their strongly connected components.
#pragma once

#include <orvo/api.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace orvo::internal {

/// The edges of each node in one list, node by node: `closeNode` ends the edges of a node and begins those of the next.
class Digraph {
  public:
    void addEdge(std::uint32_t target) { mTargets.push_back(target); }
    void closeNode() { mFirst.push_back(mTargets.size()); }
    std::size_t size() const { return mFirst.size() - 1; }
    std::size_t firstEdge(std::uint32_t node) const { return mFirst[node]; }
    std::size_t endEdge(std::uint32_t node) const { return mFirst[node + 1]; }
    std::uint32_t target(std::size_t edge) const { return mTargets[edge]; }
    std::span<const std::uint32_t> edgesOf(std::uint32_t node) const {
        return {mTargets.data() + mFirst[node], mFirst[node + 1] - mFirst[node]};
    }

  private:
    std::vector<std::size_t> mFirst{0};
    std::vector<std::uint32_t> mTargets;
};

/// Components one behind the other, each behind all that its nodes lead to.
struct StrongComponents {
    std::vector<std::uint32_t> nodes;
    /// For each component, the place in `nodes` behind its last one.
    std::vector<std::size_t> ends;
    std::size_t size() const { return ends.size(); }
    std::span<const std::uint32_t> operator[](std::size_t component) const {
        const std::size_t first = component == 0 ? 0 : ends[component - 1];
        return {nodes.data() + first, ends[component] - first};
    }
};

/// In time linear in nodes and edges, without nesting calls: graphs of netlists are deep. Every target of an edge must
/// be a node.
ORVO_API StrongComponents stronglyConnectedComponents(const Digraph &graph);

/// Whether a component holds a cycle: more than one node, or one that leads to itself.
ORVO_API bool isCyclic(const Digraph &graph, std::span<const std::uint32_t> component);

} // namespace orvo::internal
