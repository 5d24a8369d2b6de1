// The edges of domains as a model writes them down, for what renames and removes their ends. What they mean is told
// where they are read.
#pragma once

#include <orvo/model.h>

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <vector>

namespace orvo::internal {

/// The end that an edge stands at: a port or a wire of a block. Without a block for what is no edge.
struct DomainEdgePlace {
    PureValueRef block;
    bool isPort = false;
    PureValueRef key;

    bool operator<(const DomainEdgePlace &other) const;
    /// Whether the model has this end now. A port that nothing drives is none.
    bool stands(const Model &model) const;
};

/// Without a block if the value has not the form of an edge.
DomainEdgePlace placeOfDomainEdge(const ValueRef &edge);
/// An edge as models have it: `kind` tells whether the domain begins or ends at the place.
ValueRef domainEdge(const ValueRef &kind, const ValueRef &domain, const DomainEdgePlace &place, Context *context);

/// The blocks of a model that edges stand at. Costs nothing for a model without.
class DomainEdgeBlocks {
  public:
    explicit DomainEdgeBlocks(const Model &model);
    bool has(const Block &block) const;

  private:
    std::set<PureValueRef> mNames;
};

/// Has each edge of the model stand at all the ends that took the place of its own, in the order of `replaced`, which
/// gives none for an end that stayed. An end that has an edge keeps that alone, and an end that is not there gets none.
void moveDomainEdges(Model &model,
                     const std::function<std::vector<DomainEdgePlace>(const DomainEdgePlace &)> &replaced);

/// The edges of a model while its blocks go one by one. Costs nothing for a model without.
class DomainEdgeList {
  public:
    explicit DomainEdgeList(Model &model);
    /// Writes what became of them to the model, if anything did.
    ~DomainEdgeList();
    DomainEdgeList(const DomainEdgeList &) = delete;
    DomainEdgeList &operator=(const DomainEdgeList &) = delete;

    bool empty() const { return mAt.empty(); }
    /// Null if there is none.
    ValueRef find(const DomainEdgePlace &place) const;
    /// The same edge at another end, unless that has one.
    void copy(const ValueRef &edge, const DomainEdgePlace &to);
    /// Forgets those of a block that goes.
    void remove(const Block &block);

  private:
    Model &mModel;
    /// Null for those that are gone.
    std::vector<ValueRef> mEdges;
    std::map<DomainEdgePlace, std::size_t> mAt;
    bool mIsChanged = false;
};

} // namespace orvo::internal
