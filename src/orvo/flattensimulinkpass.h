// FlattenSimulinkPass flattens scheduled subsystems and checks how they are nested.
#pragma once

#include "orvo/flatteneverythingpass.h"

#include <orvo/connectiontrace.h>

#include <unordered_set>
#include <vector>

namespace orvo {

/// Dissolves scheduled subsystems of a drawing into the scheduled subsystem around them, but for those that are
/// scheduled on a tier of their own. Then reports interface blocks outside of scheduled subsystems, and blocks between
/// an interface block and the pins of its subsystem.
///     top: sub,  sub (scheduled): in -> f -> out,  f (scheduled): in -> neg -> out
///     top: sub,  sub (scheduled): in -> (f neg) -> out
class FlattenSimulinkPass final : public FlattenEverythingPass {
    ORVO_PASS(FlattenSimulinkPass)
    bool dstPredicate(const Model &model, PassContext &context) override;
    bool srcPredicate(const Model &model, PassContext &context) override;
    void validateSubsystemNesting(const Design &design, PassContext &context) override;
};

/// Records the first block that stands between the pins of a model and its interface blocks, looking through those that
/// only pack and unpack signals. Several traces may share what they know of blocks behind which nothing stands.
class FindInterveningBlocks final : public ConnectionTrace {
  public:
    /// From pins to channel and signal blocks, or else from these to pins; with the flow of data or against it. Blocks
    /// of `clear` are not looked through again.
    FindInterveningBlocks(bool expectChannel, bool forward, const std::unordered_set<const Block *> *clear = nullptr);
    using ConnectionTrace::keep;
    TraceAction keep(const Block &block, const RefChain &refChain) override;
    /// The blocks that the trace looked through.
    const std::vector<const Block *> &passed() const { return mPassed; }

  private:
    bool isExpectedEnd(const Block &block) const;

    bool expectChannel;
    bool forward;
    const std::unordered_set<const Block *> *mClear;
    std::vector<const Block *> mPassed;
};

} // namespace orvo
