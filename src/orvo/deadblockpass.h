// The passes that delete what nothing reads.
#pragma once

#include <orvo/pass.h>

#include <memory>
#include <unordered_map>
#include <vector>

namespace orvo {

namespace internal {
class ReaderTypes;
}

/// Deletes each block whose wires nobody reads, then those that only it read, up the chain. Blocks that a host, a pin
/// or another model needs stay. Where what stays had its type from a block that goes, a type pin keeps it.
///     a -> b -> c,  a -> out        c is read by nobody
///     a -> out                      b and c are gone
class DeadBlockPass : public ModelPass {
    ORVO_PASS(DeadBlockPass)
    DeadBlockPass();
    ~DeadBlockPass() override;
    using ModelPass::apply;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  protected:
    class Immortality;
    Immortality &immortality() { return *mImmortality; }
    /// Whether blocks that only an early pass must keep may go.
    virtual bool isLate() const;
    /// The blocks that go, each behind those that read it where that can be.
    virtual std::vector<Block *> deadBlocks(Model &model);

  private:
    std::unique_ptr<Immortality> mImmortality;
    std::unordered_map<const Model *, std::vector<Block *>> mDead;
    std::unique_ptr<internal::ReaderTypes> mTypes;
};

/// As DeadBlockPass, near the end of a pipeline: terminals, boundaries and the like may go, too, and type pins that
/// still read something stay.
class DeadBlockLatePass final : public DeadBlockPass {
    ORVO_PASS(DeadBlockLatePass)

  protected:
    bool isLate() const override;
};

/// Keeps what blocks that must live depend on and deletes all else, loops that feed nothing included.
///     r1 -> r2 -> r1,  a -> out     the loop drives nothing
///     a -> out                      the loop is gone
class AggressiveDeadBlockPass : public DeadBlockPass {
    ORVO_PASS(AggressiveDeadBlockPass)

  protected:
    std::vector<Block *> deadBlocks(Model &model) override;
};

/// As AggressiveDeadBlockPass, with the late pass's view of what must live.
class AggressiveDeadBlockLatePass final : public AggressiveDeadBlockPass {
    ORVO_PASS(AggressiveDeadBlockLatePass)

  protected:
    bool isLate() const override;
};

} // namespace orvo
