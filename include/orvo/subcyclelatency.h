// SubCycleLatencyCreator tells how much logic stands behind the ends of an external interface block.
#pragma once

#include <orvo/node.h>
#include <orvo/port.h>

#include <map>

namespace orvo {

/// Collects depths, in levels of look-up tables between an end and its register, and writes them with `finalise` and
/// not before. A later depth of the same end holds.
class ORVO_API SubCycleLatencyCreator {
  public:
    /// The block is of type `A_EXT_IFACE_BLOCK`.
    explicit SubCycleLatencyCreator(Block &block);
    /// Ends of this block only; a depth is not below 0.
    void set(const Port &port, int lutDepth);
    void set(const Wire &wire, int lutDepth);
    /// All that the block has now.
    void setForAllPorts(int lutDepth);
    void setForAllWires(int lutDepth);
    /// Sets `A_EXT_IFACE_SUBCYCLE_LATENCY` to (ports, wires), each a tuple of (key, depth) pairs.
    void finalise();

  private:
    using Depths = std::map<PureValueRef, PureValueRef>;
    void put(Depths &depths, const PureValueRef &key, int lutDepth);

    Block &mBlock;
    Depths mPorts;
    Depths mWires;
};

} // namespace orvo
