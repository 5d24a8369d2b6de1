// Types that signals have from behind, from blocks that read them and are about to go.
#pragma once

#include <orvo/modeltreepass.h>
#include <orvo/pass.h>
#include <orvo/value.h>

#include <memory>
#include <unordered_set>
#include <vector>

namespace orvo {
class Block;
class Model;
class Wire;
} // namespace orvo

namespace orvo::internal {

/// Keeps the types of what stays. A pin that nobody reads may be all that tells what the wire carries that it reads;
/// when it has gone, a pin in the line takes its place. Types are asked for only where a block goes that may tell them.
///     x -> pin s8.0,  x -> mult -> out        x is s8.0
///     x -> pin s8.0 -> mult -> out            the same, without the block that nobody read
class ReaderTypes {
  public:
    explicit ReaderTypes(PassContext &context);
    ~ReaderTypes();
    static void declare(PassDeclarations &declarations);
    /// To be called for all models before any changes.
    void note(Model &model, const std::vector<Block *> &going);
    /// To be called when all of the blocks have gone.
    void restore();

  private:
    struct Noted {
        Wire *wire;
        PureValueRef type;
        std::shared_ptr<const std::vector<RefChain>> instances;
    };
    struct Asked;
    void noteWire(Wire &wire, const std::shared_ptr<const std::vector<RefChain>> &instances);

    PassContext &mContext;
    std::unique_ptr<Asked> mAsked;
    std::vector<Noted> mNoted;
    std::unordered_set<const Wire *> mSeen;
};

} // namespace orvo::internal
