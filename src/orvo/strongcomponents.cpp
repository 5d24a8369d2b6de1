// The search for strongly connected components of Tarjan ("Depth-first search and linear graph algorithms", 1972), with
// its stack of calls kept by hand.
#include "orvo/strongcomponents.h"

#include <algorithm>
#include <limits>

namespace orvo::internal {

namespace {

constexpr std::uint32_t kNotReached = std::numeric_limits<std::uint32_t>::max();

/// One entry of the stack of calls: a node, and the edge at which its look-around stands.
struct Work {
    std::uint32_t node;
    std::size_t edge;
};

class ComponentSearch {
  public:
    explicit ComponentSearch(const Digraph &graph)
        : mGraph(graph), mNumber(graph.size(), kNotReached), mLowest(graph.size()), mIsOpen(graph.size(), false) {}

    StrongComponents run() {
        mFound.nodes.reserve(mGraph.size());
        for (std::uint32_t node = 0; node < mGraph.size(); ++node) {
            if (mNumber[node] == kNotReached) {
                explore(node);
            }
        }
        return std::move(mFound);
    }

  private:
    void explore(std::uint32_t start) {
        enter(start);
        while (!mCalls.empty()) {
            Work &work = mCalls.back();
            const std::uint32_t node = work.node;
            if (work.edge == mGraph.endEdge(node)) {
                leave(node);
                continue;
            }
            const std::uint32_t target = mGraph.target(work.edge++);
            if (mNumber[target] == kNotReached) {
                enter(target);
            } else if (mIsOpen[target]) {
                mLowest[node] = std::min(mLowest[node], mNumber[target]);
            }
        }
    }
    void enter(std::uint32_t node) {
        mNumber[node] = mLowest[node] = mCount++;
        mIsOpen[node] = true;
        mOpen.push_back(node);
        mCalls.push_back({node, mGraph.firstEdge(node)});
    }
    void leave(std::uint32_t node) {
        mCalls.pop_back();
        if (!mCalls.empty()) {
            std::uint32_t &above = mLowest[mCalls.back().node];
            above = std::min(above, mLowest[node]);
        }
        if (mLowest[node] != mNumber[node]) {
            return;
        }
        std::uint32_t member = kNotReached;
        while (member != node) {
            member = mOpen.back();
            mOpen.pop_back();
            mIsOpen[member] = false;
            mFound.nodes.push_back(member);
        }
        mFound.ends.push_back(mFound.nodes.size());
    }

    const Digraph &mGraph;
    std::vector<std::uint32_t> mNumber;
    std::vector<std::uint32_t> mLowest;
    std::vector<bool> mIsOpen;
    std::vector<std::uint32_t> mOpen;
    std::vector<Work> mCalls;
    std::uint32_t mCount = 0;
    StrongComponents mFound;
};

} // namespace

StrongComponents stronglyConnectedComponents(const Digraph &graph) { return ComponentSearch(graph).run(); }

bool isCyclic(const Digraph &graph, std::span<const std::uint32_t> component) {
    const auto edges = graph.edgesOf(component.front());
    return component.size() > 1 || std::find(edges.begin(), edges.end(), component.front()) != edges.end();
}

} // namespace orvo::internal
