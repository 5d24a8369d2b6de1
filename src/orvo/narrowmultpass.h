// NarrowMultPass undoes the widening of multipliers' operands where the product is cut again.
#pragma once

#include <orvo/model.h>
#include <orvo/pass.h>

#include <array>
#include <memory>
#include <unordered_map>
#include <vector>

namespace orvo {

class GlobalTypePass;
class Wire;

/// What a pattern found around a block, in one instance of its model.
class PatternInfo {
  public:
    PatternInfo() = default;
    PatternInfo(const PatternInfo &) = delete;
    PatternInfo &operator=(const PatternInfo &) = delete;
    virtual ~PatternInfo();
    /// Makes the replacement.
    virtual void substitute() = 0;
    /// Whether the other, of the same pattern and block in another instance, would make the same replacement.
    virtual bool agrees(const PatternInfo &other) const = 0;
    /// Blocks that lose a reader.
    virtual std::vector<const Block *> bypassed() const = 0;
};

class Pattern {
  public:
    Pattern() = default;
    Pattern(const Pattern &) = delete;
    Pattern &operator=(const Pattern &) = delete;
    virtual ~Pattern();
    /// Null if the block is not of this pattern. Changes nothing.
    virtual std::unique_ptr<PatternInfo> check(Block &block, GlobalTypePass &types, const RefChain &refChain) const = 0;
};

/// A product of signed integers of one width, of which a cast keeps no more than that width, and whose operands were
/// widened from narrower integers.
class IntMultPattern final : public Pattern {
  public:
    std::unique_ptr<PatternInfo> check(Block &block, GlobalTypePass &types, const RefChain &refChain) const override;
};

class IntMultPatternInfo final : public PatternInfo {
  public:
    /// What widens an operand, from the multiplier backwards; none if nothing does.
    using Widening = std::vector<Block *>;

    /// With `isFull`, the multiplier gets the full product of what it reads as its type, whatever was given.
    IntMultPatternInfo(Block &mult, std::array<Widening, 2> widenings, bool isFull);
    void substitute() override;
    bool agrees(const PatternInfo &other) const override;
    std::vector<const Block *> bypassed() const override;

  private:
    Block &mMult;
    const std::array<Widening, 2> mWidenings;
    const bool mIsFull;
};

/// Has multipliers read what their operands were widened from, where a cast cuts the product anyway.
///     x: s4.0 -> cast to s16.0, y: s6.0 -> cast to s16.0, casts -> mult: s32.0 -> cast to s16.0
///     x, y -> mult: s10.0 -> cast to s16.0
class NarrowMultPass final : public OptimizeModelPass {
    ORVO_PASS(NarrowMultPass)
    NarrowMultPass();
    ~NarrowMultPass() override;
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void before(PassContext &context) override;
    void apply(ModelPassContext &context) override;
    void after(PassContext &context) override;

  private:
    std::unique_ptr<PatternInfo> infoOf(Block &block, GlobalTypePass &types,
                                        const std::vector<RefChain> &instances) const;

    std::vector<std::unique_ptr<const Pattern>> mPatterns;
    std::unordered_map<const Model *, std::vector<std::unique_ptr<PatternInfo>>> mFound;
};

} // namespace orvo
