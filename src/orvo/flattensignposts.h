// The edges of domains in a model whose instances dissolve.
#pragma once

#include "orvo/domainedgetree.h"

#include <orvo/model.h>

#include <functional>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo::internal {

/// Gives the model the edges of what dissolves into it. Those at the blocks that dissolve themselves, the edges of
/// models, go to what lasts: a domain that begins there begins at the ports that read the signal behind the place, one
/// that ends there ends before them. An edge at a port that nothing drives any more marks nothing.
class FlattenedSignposts {
  public:
    /// All models, before the first is opened.
    void note(const Model &model);
    /// Whether `addWayIn` and `addWayThrough` must be told of all ways through what dissolves.
    bool any() const { return mAnyAtInstance; }

    void open(Model &model);
    void add(const ValueRef &signpost) { mEntries.push_back(signpost); }
    /// A port of a copy that reads what the port `key` of the dissolving instance reads.
    void addWayIn(Block &copy, const PureValueRef &port, const Block &instance, const PureValueRef &key);
    /// A wire of an instance that carries what its port `key` reads.
    void addWayThrough(const Wire &wire, const PureValueRef &key) { mThrough.emplace(&wire, key); }
    /// When all is copied and the wires of the dissolved blocks still have their readers. `carried` gives the wire that
    /// stands for such a wire.
    void gather(const std::vector<Block *> &dissolved, const std::function<const Wire *(const Wire &)> &carried);
    /// When the dissolved blocks are gone.
    void close();

  private:
    /// A port or wire, at a block that dissolves or of a reader.
    struct At {
        const Block *block = nullptr;
        bool isPort = false;
        PureValueRef key;
        bool operator<(const At &other) const;
    };
    struct WayIn {
        MaybePort port;
        At from;
    };
    /// The nearest point with an edge on the way to a root, or else that root; neither where nothing drives.
    struct Nearest {
        DomainEdgeTree::Point point = DomainEdgeTree::kNone;
        const Wire *root = nullptr;
    };
    class Ways;

    void dropStale();

    bool mAnyAtInstance = false;
    /// While one model is open.
    Model *mModel = nullptr;
    std::vector<ValueRef> mEntries;
    /// Which of the model's own edges stood at a block when it was still as drawn.
    std::vector<bool> mStood;
    std::vector<WayIn> mWaysIn;
    std::unordered_map<const Wire *, PureValueRef> mThrough;
    std::unique_ptr<DomainEdgeList> mList;
    std::unique_ptr<DomainEdgeTree> mTree;
    std::vector<DomainEdgePlace> mGone;
};

} // namespace orvo::internal
