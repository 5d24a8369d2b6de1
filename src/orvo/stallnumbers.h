// The data of a region that can stall: ports and wires that are pairs of a key and a number, a port and the wire of its
// number belonging together. The block stays one, so that all of it moves together.
#pragma once

#include <orvo/corevalues.h>

#include <map>
#include <set>
#include <utility>

namespace orvo {

class Block;

namespace internal {

/// Gives each part of a signal a number that is free, the same one before the block and behind it.
class StallNumbers {
  public:
    explicit StallNumbers(const Block &block);
    /// Whether the port or wire of that name is a signal of data.
    static bool isData(const PureValueRef &name);
    /// Of a signal of data.
    PureValueRef nameOf(const PureValueRef &name, int part);

  private:
    void reserve(const PureValueRef &name);
    int takeFree();

    /// By the old number and the part.
    std::map<std::pair<PureValueRef, int>, int> mNumbers;
    std::set<int> mTaken;
    /// No number below is free.
    int mLowest = 0;
};

} // namespace internal

} // namespace orvo
