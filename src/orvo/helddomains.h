// The domains on both sides of blocks whose links a pass cuts.
#pragma once

#include <orvo/compoundportcorrespondence.h>
#include <orvo/domaininfer.h>
#include <orvo/model.h>

#include "orvo/domainedges.h"

#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

namespace orvo {

class PassContext;

namespace internal {

/// Keeps domains where they were, although blocks through which they came no longer link what drives them and what
/// reads them. What the edges at a block say goes elsewhere; this sees to what only came by. Costs nothing for a design
/// without edges, and an inference of all domains before and after for others.
class HeldDomains {
  public:
    /// The ends of a block that is being rewritten.
    class Rewriting;

    explicit HeldDomains(const PassContext &context);
    ~HeldDomains();
    HeldDomains(const HeldDomains &) = delete;
    HeldDomains &operator=(const HeldDomains &) = delete;

    /// Looks at a block that may be rewritten. All of them before the first is.
    void hold(const Block &block);
    /// Around the rewriting of a block, of what is known of it.
    Rewriting before(const Block &block);
    void after(const Rewriting &rewriting);
    /// Once, when all blocks are rewritten and nothing else writes edges: a domain that a driver or what took the place
    /// of an output has lost ends or begins there.
    void settle();

  private:
    /// A wire or port, and the domain that it was in.
    struct Place {
        Model *model;
        DomainEdgePlace at;
        PureValueRef domain;
    };
    /// Drivers and outputs by the name of the port or wire.
    struct Held {
        std::vector<std::pair<PureValueRef, PureValueRef>> drivers;
        std::vector<std::pair<PureValueRef, PureValueRef>> outputs;
        /// The readers of outputs where these domains end.
        std::vector<Place> ends;
    };
    struct Facts {
        std::vector<RefChain> instances;
        /// Where edges stood before the first block was rewritten.
        std::set<DomainEdgePlace> edges;
    };
    void infer();
    const Facts &factsOf(Model &model);
    template <class End> PureValueRef commonDomain(const End &end);
    void holdReaders(const Wire &wire, Held &held);
    static const Wire *wireAt(const Place &place);
    template <class End> bool isWithout(const End &end);
    std::vector<Place> lostDrivers();
    std::vector<Place> lostOutputs();
    void endAtReaders();

    const PassContext &mContext;
    bool mHasEdges;
    /// Of the netlist as it is.
    std::optional<DomainAnalysisInfo> mInfo;
    std::unordered_map<const Model *, Facts> mFacts;
    std::unordered_map<const Block *, Held> mHeld;
    std::vector<Place> mDrivers;
    std::vector<Place> mOutputs;
    std::vector<Place> mEnds;
};

class HeldDomains::Rewriting {
  private:
    friend class HeldDomains;
    /// One of the readers of each output, and the domain.
    std::vector<std::pair<MaybePort, PureValueRef>> mReaders;
};

} // namespace internal

} // namespace orvo
