// Latency constraints: bounds on the delay between two points of a netlist, for the scheduler outside. The record of a
// constraint stands on the model that is scheduled as a whole, and each end on its block refers to it by an id, so that
// a rewrite that keeps the block keeps its constraints.
#pragma once

#include <orvo/model.h>
#include <orvo/port.h>

#include <array>
#include <unordered_set>
#include <vector>

namespace orvo {

/// Whether the ports (or else the wires) of blocks of this type may be ends of constraints: those of interface markers
/// that face the design.
ORVO_API bool latencyConstraintAllowed(const Value *blockType, bool isPort);
/// On a side at least.
ORVO_API bool latencyConstraintAllowedOnBlock(const Value *blockType);
ORVO_API bool latencyConstraintAllowedOnPort(const Value *blockType);
ORVO_API bool latencyConstraintAllowedOnWire(const Value *blockType);

/// Writes one constraint: both ends in either order, then one relation, then modifiers, then `end`. Any call out of
/// turn is an assertion, as is an end at a block that may have none.
class ORVO_API LatencyConstraintCreator {
  public:
    enum class Status { Success };

    explicit LatencyConstraintCreator(Design &design);

    /// An end in one instance of its model, or, with an empty chain, in every instance.
    LatencyConstraintCreator &from(const Port *port, const RefChain &refChain = {});
    LatencyConstraintCreator &from(const Wire *wire, const RefChain &refChain = {});
    LatencyConstraintCreator &to(const Port *port, const RefChain &refChain = {});
    LatencyConstraintCreator &to(const Wire *wire, const RefChain &refChain = {});

    /// The delay from the first end to the second is so related to `latency`, in cycles.
    LatencyConstraintCreator &lessThan(int latency);
    LatencyConstraintCreator &lessEqual(int latency);
    LatencyConstraintCreator &equal(int latency);
    LatencyConstraintCreator &greaterEqual(int latency);
    LatencyConstraintCreator &greaterThan(int latency);
    /// Ties the schedules of both ends together.
    LatencyConstraintCreator &scheduleLink(int latency);

    /// Joins the record as it is; its meaning is the scheduler's.
    LatencyConstraintCreator &modifier(const PureValueRef &value);
    Status end();

  private:
    /// `FromDone` and `ToDone` are bits, `BothDone` their union; the others count on from it.
    enum State : unsigned int { Nothing = 0, FromDone = 1, ToDone = 2, BothDone = 3, Related = 4, Written = 5 };
    struct Point {
        Block *block = nullptr;
        PureValueRef key;
        bool isPort = false;
        PureValueRef chain;
        Model *root = nullptr;
    };

    LatencyConstraintCreator &setPoint(State done, const Block &block, const PureValueRef &key, bool isPort,
                                       const RefChain &refChain);
    LatencyConstraintCreator &relate(const StaticString &relation, int latency);
    PureValueRef optionalChain(const RefChain &refChain) const;
    Model &constrainedModel() const;
    void backReferenceConstraint(std::size_t slot, const PureValueRef &id) const;

    Design &mDesign;
    unsigned int mState = Nothing;
    Point mFrom;
    Point mTo;
    PureValueRef mRelation;
    int mLatency = 0;
    std::vector<PureValueRef> mModifiers;
};

/// Remembers the constraints of a model and of all models below it, records and ends, around an attempt that may have
/// to be undone.
class ORVO_API LatencyConstraintsCheckpoint {
  public:
    /// A null model remembers nothing.
    explicit LatencyConstraintsCheckpoint(Model *model);
    /// Puts everything back on the nodes that still exist. A constraint that was made since goes altogether, with its
    /// record and its end outside these models. May be called again.
    void restore() const;

  private:
    using Ids = std::unordered_set<const Value *>;
    Ids idsSince() const;
    /// Held by its value, which outlives the node and then tells that it is gone.
    struct Saved {
        NodeValueRef node;
        std::array<ValueRef, 2> values;
    };
    /// The model and those below it, and behind them others that hold their records.
    std::vector<Saved> mModels;
    std::size_t mBelow = 0;
    std::vector<Saved> mBlocks;
};

} // namespace orvo
