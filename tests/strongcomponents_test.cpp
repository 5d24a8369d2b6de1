// Components of graphs, against reachability that is worked out the long way.
#include "orvo/strongcomponents.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

namespace orvo::internal {
namespace {

using Edges = std::vector<std::vector<std::uint32_t>>;

Digraph graphOf(const Edges &edges) {
    Digraph graph;
    for (const auto &targets : edges) {
        for (const std::uint32_t target : targets) {
            graph.addEdge(target);
        }
        graph.closeNode();
    }
    return graph;
}

std::vector<std::vector<std::uint32_t>> componentsOf(const Digraph &graph) {
    const StrongComponents found = stronglyConnectedComponents(graph);
    std::vector<std::vector<std::uint32_t>> components;
    for (std::size_t i = 0; i < found.size(); ++i) {
        components.emplace_back(found[i].begin(), found[i].end());
        std::sort(components.back().begin(), components.back().end());
    }
    return components;
}

TEST(StrongComponents, standBehindWhatTheyLeadTo) {
    EXPECT_EQ(componentsOf(graphOf({{1}, {2}, {1, 3}, {}})),
              (std::vector<std::vector<std::uint32_t>>{{3}, {1, 2}, {0}}));
}

TEST(StrongComponents, areCyclicByAnEdgeToItselfToo) {
    const Digraph graph = graphOf({{0}, {0}});
    const StrongComponents found = stronglyConnectedComponents(graph);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_TRUE(isCyclic(graph, found[0]));
    EXPECT_FALSE(isCyclic(graph, found[1]));
}

TEST(StrongComponents, ofAMillionNodesInARingAreOne) {
    constexpr std::uint32_t kNodes = 1000000;
    Digraph graph;
    for (std::uint32_t node = 0; node < kNodes; ++node) {
        graph.addEdge((node + 1) % kNodes);
        graph.closeNode();
    }
    EXPECT_EQ(stronglyConnectedComponents(graph).size(), 1u);
}

RC_GTEST_PROP(StrongComponents, holdThoseThatReachEachOther, ()) {
    const auto size = *rc::gen::inRange<std::uint32_t>(1, 12);
    const auto edges = *rc::gen::container<Edges>(
        size, rc::gen::container<std::vector<std::uint32_t>>(rc::gen::inRange<std::uint32_t>(0, size)));
    std::vector<std::vector<bool>> reaches(size, std::vector<bool>(size, false));
    for (std::uint32_t from = 0; from < size; ++from) {
        for (const std::uint32_t target : edges[from]) {
            reaches[from][target] = true;
        }
    }
    for (std::uint32_t by = 0; by < size; ++by) {
        for (std::uint32_t from = 0; from < size; ++from) {
            for (std::uint32_t to = 0; to < size; ++to) {
                reaches[from][to] = reaches[from][to] || (reaches[from][by] && reaches[by][to]);
            }
        }
    }
    const Digraph graph = graphOf(edges);
    const StrongComponents found = stronglyConnectedComponents(graph);
    std::vector<std::size_t> placeOf(size, found.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        for (const std::uint32_t node : found[i]) {
            RC_ASSERT(placeOf[node] == found.size());
            placeOf[node] = i;
        }
        RC_ASSERT(isCyclic(graph, found[i]) == reaches[found[i].front()][found[i].front()]);
    }
    for (std::uint32_t from = 0; from < size; ++from) {
        RC_ASSERT(placeOf[from] < found.size());
        for (std::uint32_t to = 0; to < size; ++to) {
            RC_ASSERT((placeOf[from] == placeOf[to]) == (from == to || (reaches[from][to] && reaches[to][from])));
            RC_ASSERT(!reaches[from][to] || placeOf[to] <= placeOf[from]);
        }
    }
}

} // namespace
} // namespace orvo::internal
