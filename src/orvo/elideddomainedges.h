// The edges of domains at Gotos and Froms, which lose their ends as tags become wires, and at blocks that are wires.
#pragma once

#include "orvo/domainedges.h"

#include <orvo/compoundportcorrespondence.h>

#include <functional>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo::internal {

/// Remembers what Gotos and Froms stood between which wires and which readers, in models with edges, and moves their
/// edges to ends that last. A block that gives on what it reads is both: a Goto where it reads, a From where it gives.
///
/// A tag with edges keeps apart what it did: its readers on the one side, its driver and what else reads that on the
/// other. A begin at a From goes to the ports that read it. An end at a Goto goes to the wire, which it then cuts off
/// from its readers, so that those that are not behind the Goto get begins. Of several edges on the way to a reader
/// the nearest counts, and an edge of its own before all. What would have to stand at an input or output of a model
/// stands at all blocks that instantiate it.
class ElidedDomainEdges {
  public:
    /// To be told while they are there. `wire` is what the Goto reads.
    void addGoto(const Block &sender, const Wire &wire);
    /// With its readers still on it. `sender` names the Goto of the tag in the same model, null if that is in another;
    /// `source` is the wire that the readers get.
    void addFrom(const Block &from, const PureValueRef &sender, const Wire &source);
    /// A port that leads the signal of a Goto out of its model.
    void addRoute(Block &reader, const PureValueRef &key, const PureValueRef &sender);
    /// A block that gives on what it reads at this port. All that go are to be told of before the first one does, but
    /// those that feed themselves alone. `goes` tells them. Domains pass a terminal between ends of one name only.
    void addPassage(const Port &port, const std::function<bool(const Block &)> &goes);
    /// When all tags are wires.
    void move(Design &design) const;
    /// When all that was told of stood in this model.
    void move(Model &model) const;

    /// An end that is gone with its Goto or From.
    struct Gone {
        DomainEdgePlace end;
        /// That of the From that fed a Goto, of the Goto that fed a From, in the same model; none if there is none. It
        /// may have stayed.
        DomainEdgePlace above;
        /// What it got its signal from, if there is none above.
        const Wire *wire;
        /// Whether the block handed on the signal from the end above, but no domain either way.
        bool isApart = false;
    };
    struct Reader {
        MaybePort port;
        DomainEdgePlace behind;
    };
    struct OfModel {
        std::map<DomainEdgePlace, Gone> gone;
        /// Each port once, by the nearest end that is gone.
        std::vector<Reader> readers;
        std::set<std::pair<const Block *, const Value *>> known;
    };

  private:
    OfModel *of(const Model &model);
    void addReader(OfModel &in, const MaybePort &port, const DomainEdgePlace &behind);

    std::unordered_map<const Model *, OfModel> mModels;
};

} // namespace orvo::internal
