// Types that signals have from behind, from blocks that read them and are about to go.
#pragma once

#include <orvo/api.h>
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

/// Whether the block may tell its drivers a type that it has from nowhere behind it. Those of the most common types do
/// not: they pass on what they hear from behind at best.
ORVO_API bool mayTellTypes(const Block &block);

/// Has a new pin read the wire and tell its type, beside all that read it: in the line, it would keep domains apart.
/// Named by the wire's block and the wire.
void hangTypePin(Wire &wire, const PureValueRef &type);

/// Keeps the types of what stays. A pin that nobody reads may be all that tells what the wire carries that it reads, or
/// that a delay reads which leads to it; when these have gone, a pin of its own keeps the type. Types are asked for
/// only where a block goes that may tell them.
///     x -> delay -> pin s8.0,  x -> mult -> out       x is s8.0
///     x -> pin s8.0,  x -> mult -> out                the same, without the delay
/// What instances of a model have in different types is not kept.
class ReaderTypes {
  public:
    ReaderTypes();
    ~ReaderTypes();
    /// To be called for all models before any changes.
    void note(Model &model, const std::vector<Block *> &going);
    /// To be called when all of the blocks have gone.
    void restore();

  private:
    struct Noted {
        Wire *wire;
        PureValueRef type;
    };
    struct Answers;

    std::unique_ptr<Answers> mBefore;
    std::vector<Noted> mNoted;
    std::unordered_set<const Wire *> mSeen;
};

} // namespace orvo::internal
