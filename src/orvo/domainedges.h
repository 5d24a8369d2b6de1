// The edges of domains as a model writes them down, for what renames and removes their ends. What they mean is told
// where they are read.
#pragma once

#include <orvo/model.h>

#include <functional>
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

} // namespace orvo::internal
