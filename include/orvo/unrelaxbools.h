// Which inputs of a block are conditions.
#pragma once

#include <orvo/blockclass.h>

#include <vector>

namespace orvo {

/// Tells the inputs of its block types that take any real fixed-point signal where blocks relax their conditions, and
/// one bit where they do not. The types of such blocks without a handler stay relaxed.
class ORVO_API UnrelaxBoolsHandler : public BlockHandler {
  public:
    /// The keys of the block's control ports, whether something is connected there or not, always in the same order.
    virtual std::vector<PureValueRef> controlPorts(const Block &block) const = 0;
};

} // namespace orvo
