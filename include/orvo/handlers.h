// The handler interfaces by which passes ask a block type for its behaviour. What stands here is their identity, which
// the start-up needs to hand the handlers of one type to another; the passes add the operations.
#pragma once

#include <orvo/blockclass.h>

#include <memory>

namespace orvo {

class AggregateUnroller;
class ComplexUnroller;
class VectorUnroller;

/// How a block of compound signals becomes blocks of their parts.
class ORVO_API AggregateUnrollHandler : public BlockHandler {
  public:
    /// The default makes one block a member.
    virtual std::shared_ptr<AggregateUnroller> createUnroller(Block &block) const;
};
class ORVO_API ComplexUnrollHandler : public BlockHandler {
  public:
    /// The default makes a block of the real parts and one of the imaginary parts.
    virtual std::shared_ptr<ComplexUnroller> createUnroller(Block &block) const;
};
class ORVO_API VectorUnrollHandler : public BlockHandler {
  public:
    /// The default makes one block a lane.
    virtual std::shared_ptr<VectorUnroller> createUnroller(Block &block) const;
};

} // namespace orvo
