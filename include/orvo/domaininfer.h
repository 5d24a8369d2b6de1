// Domains: the named regions that a scheduler treats as one. The designer names the edges, in the parameter
// A_SYNTH_SCHEDULE_DOMAINS of a model; inference lets each domain flow from there along nets, through blocks by the
// rule of their types, and through the hierarchy, until every point that can be reached has one.
#pragma once

#include <orvo/blockclass.h>
#include <orvo/model.h>

#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo {

class Port;
class Wire;

namespace internal {
class DomainTable;
}

/// A port or wire in one instance of its model, told by the id of the chain that leads to the instance. A plain value:
/// it does not keep its port or wire alive.
class ORVO_API DomainPoint {
  public:
    /// An invalid point.
    DomainPoint() = default;
    DomainPoint(const Port &port, unsigned long refChainId)
        : mEnd(reinterpret_cast<std::uintptr_t>(&port)), mRefChainId(refChainId) {}
    DomainPoint(const Wire &wire, unsigned long refChainId)
        : mEnd(reinterpret_cast<std::uintptr_t>(&wire) | kWireMark), mRefChainId(refChainId) {}

    bool valid() const { return mEnd != 0; }
    bool isPort() const { return valid() && (mEnd & kWireMark) == 0; }
    bool isWire() const { return (mEnd & kWireMark) != 0; }
    /// Null unless it is one.
    const Port *port() const { return isPort() ? reinterpret_cast<const Port *>(mEnd) : nullptr; }
    const Wire *wire() const { return isWire() ? reinterpret_cast<const Wire *>(mEnd - kWireMark) : nullptr; }
    /// The block that has the port or wire; null for an invalid point.
    const Block *block() const;
    /// The name of the port or wire on its block; null for an invalid point.
    PureValueRef name() const;
    unsigned long refChainId() const { return mRefChainId; }

    bool operator==(const DomainPoint &other) const { return mEnd == other.mEnd && mRefChainId == other.mRefChainId; }
    bool operator!=(const DomainPoint &other) const { return !(*this == other); }
    /// By the name of the block, ports before wires, by their names, by the id: the same in every run within one model.
    bool operator<(const DomainPoint &other) const;

  private:
    friend class internal::DomainTable;
    /// Both kinds stand at even addresses.
    static constexpr std::uintptr_t kWireMark = 1;
    std::uintptr_t mEnd = 0;
    unsigned long mRefChainId = 0;
};

/// The ids of instances, dense from 0 in the order in which they were asked for. An instance is told by its chain, so
/// that all models which a chain of no block leads to, the tops, share one id.
class ORVO_API RefChainCollection {
  public:
    static constexpr unsigned long kNone = ~0UL;

    /// The id of the instance at the end of the chain; those on the way get ids, too.
    unsigned long getOrCreateId(const RefChain &refChain);
    /// The id of the instance that a model block of the instance `above` makes.
    unsigned long getOrCreateId(unsigned long above, const Block &block);
    /// The same without making one; `kNone` if there is none.
    unsigned long findId(unsigned long above, const Block &block) const;
    RefChain getRefChain(unsigned long id) const;
    /// The instance around the given one; `kNone` for a top.
    unsigned long getAbove(unsigned long id) const { return mInstances[id].above; }
    /// The model block that makes the instance; null for a top.
    const Block *getBlock(unsigned long id) const { return mInstances[id].block; }
    std::size_t size() const { return mInstances.size(); }

  private:
    struct Instance {
        unsigned long above = kNone;
        const Block *block = nullptr;
        bool operator==(const Instance &other) const { return above == other.above && block == other.block; }
    };
    struct Hash {
        std::size_t operator()(const Instance &instance) const;
    };
    unsigned long idOf(const Instance &instance);

    std::vector<Instance> mInstances;
    std::unordered_map<Instance, unsigned long, Hash> mIds;
};

/// The domains of points. Holds the netlist's nodes by address, so that it is true only as long as these live; copies
/// are moves.
class ORVO_API DomainAnalysisInfo {
  public:
    DomainAnalysisInfo();
    ~DomainAnalysisInfo();
    DomainAnalysisInfo(DomainAnalysisInfo &&) noexcept;
    DomainAnalysisInfo &operator=(DomainAnalysisInfo &&) noexcept;
    DomainAnalysisInfo(const DomainAnalysisInfo &) = delete;
    DomainAnalysisInfo &operator=(const DomainAnalysisInfo &) = delete;

    /// Null for a point that no domain has reached.
    PureValueRef getDomain(const DomainPoint &point) const;
    PureValueRef getDomain(const Port &port, unsigned long refChainId) const;
    PureValueRef getDomain(const Wire &wire, unsigned long refChainId) const;
    /// Null takes the point's domain away.
    void setDomain(const DomainPoint &point, const PureValueRef &domain);
    void setDomain(const Port &port, unsigned long refChainId, const PureValueRef &domain);
    void setDomain(const Wire &wire, unsigned long refChainId, const PureValueRef &domain);

    RefChainCollection &getRefChainCollection() { return mRefChains; }
    const RefChainCollection &getRefChainCollection() const { return mRefChains; }

  private:
    friend class DomainInferencer;
    RefChainCollection mRefChains;
    std::unique_ptr<internal::DomainTable> mTable;
};

/// How domains pass through blocks of a type. A type without a handler lies in one domain as a whole.
class ORVO_API DomainPropagationHandler : public BlockHandler {
  public:
    /// Points of the block, in the instance of that id, whose domains are settled from the start.
    virtual std::vector<std::pair<DomainPoint, PureValueRef>> inferStatic(const Block &block,
                                                                          unsigned long refChainId) const;
    /// The points of the same block and instance that share the domain of the given one.
    virtual std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const = 0;
};

/// For all types without a handler of their own: the block lies in one domain.
class ORVO_API DefaultDomainPropagationHandler final : public DomainPropagationHandler {
  public:
    /// All wires and ports of the block but the given one.
    std::vector<DomainPoint> propagateFromPoint(const DomainPoint &point) const override;
};

/// The inference of domains.
class ORVO_API DomainInference {
  public:
    /// What of a design takes part.
    class ORVO_API InferenceModifier {
      public:
        virtual ~InferenceModifier();
        /// Whether the model takes part. What it instantiates is reached only through models that do.
        virtual bool accept(const Model &model) const = 0;
        /// Whether domains flow from a model into one that it instantiates, or out of that into the one around it.
        virtual bool crossModelBoundary(const Model &from, const Model &to) const = 0;
    };
    /// Everything takes part.
    class ORVO_API DefaultInferenceModifier : public InferenceModifier {
      public:
        bool accept(const Model &model) const override;
        bool crossModelBoundary(const Model &from, const Model &to) const override;
    };
    /// Stops at the models that are scheduled.
    class ORVO_API UnscheduledInferenceModifier : public InferenceModifier {
      public:
        bool accept(const Model &model) const override;
        bool crossModelBoundary(const Model &from, const Model &to) const override;
    };

    enum SignpostKind : unsigned int { SIGNPOST_BEGIN = 0, SIGNPOST_END = 1 };

    /// One edge of a domain. A begin sends its domain forward only, with the flow of data, an end backward only. The
    /// point keeps its domain whatever reaches it.
    struct SignpostInfo {
        SignpostKind kind = SIGNPOST_BEGIN;
        PureValueRef domain;
        /// With an id of 0.
        DomainPoint point;
    };
    /// One model's edges, in the order of its parameter.
    struct ParsedDomains {
        std::vector<SignpostInfo> begins;
        std::vector<SignpostInfo> ends;
    };
    /// The edges of several models.
    using DomainDeliminators = std::map<const Model *, std::map<DomainPoint, SignpostInfo>>;

    DomainInference() = delete;
    /// The domains below all output roots of the design. Of two domains that meet at a point, the one with the shorter
    /// way stands; of equally long ways that which goes along nets before it goes through blocks; of equal ways the
    /// lesser domain. Each other domain is reported once a point.
    static DomainAnalysisInfo inferDomains(const Design &design, const InferenceModifier &modifier);
    /// The same below the given models, whatever they are.
    static DomainAnalysisInfo inferDomains(const std::vector<const Model *> &roots, const InferenceModifier &modifier);
    /// Whether the model is marked as one that output is made of.
    static bool isOutputRoot(const Model &model);

    /// Reads a model's A_SYNTH_SCHEDULE_DOMAINS. What is wrong is reported and left out.
    static ParsedDomains parseScheduledDomainsParameter(const Model &model);
    /// The edges of the model and of all models below it that take part, each read once. Of several edges at one point
    /// the first stands; the others are reported.
    static DomainDeliminators parsedDomainsModelTree(const Model &model, const InferenceModifier &modifier);

    /// Gives ids to all instances below the output roots.
    static void calculateRefChainDatabase(const Design &design, const InferenceModifier &modifier,
                                          RefChainCollection &collection);
    /// Gives ids to one instance of the model and to all below it.
    static void addToDatabase(const Model &model, const RefChain &refChain, const InferenceModifier &modifier,
                              RefChainCollection &collection);

    /// Writes what was found onto the design, under the key (domainDumpKey refChainTag portsPartTag wiresPartTag), as a
    /// tuple with an entry an instance: ((refChainTag MODEL ((MODEL BLOCK)...)) (portsPartTag (BLOCK PORT DOMAIN)...)
    /// (wiresPartTag (BLOCK WIRE DOMAIN)...)), the chain from the top down. Points without a domain are left out.
    static void domainDump(Design &design, const DomainAnalysisInfo &info);
};

} // namespace orvo
