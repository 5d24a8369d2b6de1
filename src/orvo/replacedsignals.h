// Ports and wires of a block that stays while others take their places.
#pragma once

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/wire.h>

#include <vector>

namespace orvo::internal {

/// They go last, for what takes their places is made beside them.
class ReplacedSignals {
  public:
    void add(const Port &port) { mPorts.push_back(port.getName()); }
    void add(Wire &wire) { mWires.push_back(&wire); }
    void removeFrom(Block &block) const {
        for (const PureValueRef &port : mPorts) {
            block.setParam(port, nullptr);
        }
        for (Wire *wire : mWires) {
            delete wire;
        }
    }

  private:
    std::vector<PureValueRef> mPorts;
    std::vector<Wire *> mWires;
};

} // namespace orvo::internal
