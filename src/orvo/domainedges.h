// The edges of domains as a model writes them down, for what renames and removes their ends. What they mean is told
// where they are read.
#pragma once

#include <orvo/model.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
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

/// Whether the value is an edge by its form: what others are to report is left alone.
bool isDomainEdge(const ValueRef &value);
/// Whether a domain begins at an edge; else one ends there.
bool beginsDomain(const ValueRef &edge);

/// The edges of a model while its blocks go one by one. Costs nothing for a model without. Of several edges at one end
/// a begin counts, then the first.
class DomainEdgeList {
  public:
    explicit DomainEdgeList(Model &model);
    /// Writes what became of them to the model, if anything did.
    ~DomainEdgeList();
    DomainEdgeList(const DomainEdgeList &) = delete;
    DomainEdgeList &operator=(const DomainEdgeList &) = delete;

    Model &model() const { return mModel; }
    bool empty() const { return mAt.empty(); }
    /// Whether one stands at any end of the block.
    bool has(const Block &block) const;
    /// Null if there is none.
    ValueRef find(const DomainEdgePlace &place) const;
    /// The domain of an edge at another end, unless that has one; false if so. It stands in the list behind those that
    /// the edge has given before.
    bool put(const ValueRef &edge, bool begins, const DomainEdgePlace &to);
    void copy(const ValueRef &edge, const DomainEdgePlace &to) { put(edge, beginsDomain(edge), to); }
    void remove(const DomainEdgePlace &place);
    /// Forgets those of a block that goes.
    void remove(const Block &block);

  private:
    struct Entry {
        ValueRef edge;
        /// The number of the one that it comes from.
        std::size_t origin;
        /// Whether it was put here, and goes with its end.
        bool isPut = false;
    };
    void enter(const DomainEdgePlace &place, std::size_t entry);
    void write();

    Model &mModel;
    std::vector<Entry> mEntries;
    /// The one that counts comes first.
    std::map<DomainEdgePlace, std::vector<std::size_t>> mAt;
    std::map<PureValueRef, std::set<DomainEdgePlace>> mOfBlocks;
    bool mIsChanged = false;
};

/// The lists of the models that are changed together.
class DomainEdgeLists {
  public:
    DomainEdgeList &of(Model &model);

  private:
    std::map<const Model *, std::size_t> mNumbers;
    std::vector<std::unique_ptr<DomainEdgeList>> mLists;
};

} // namespace orvo::internal
