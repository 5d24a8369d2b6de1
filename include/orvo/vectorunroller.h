// How blocks of vectors become blocks of their lanes: what each block type says to it, and what most of them say.
#pragma once

#include <orvo/compoundportcorrespondence.h>
#include <orvo/handlers.h>
#include <orvo/types.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvo {

class GlobalTypePass;

/// What becomes of one signal of a block.
enum class VectorUnrollKind {
    /// Nothing; the unroller sees to it itself.
    Leave = 0,
    /// It stays whole and is attached once.
    Whole = 1,
    /// It falls apart by its own dimensions.
    Own = 2,
    /// It falls apart, or serves all lanes, by the dimensions of all signals of this kind together.
    Merged = 3,
};

/// Takes one block of vectors apart. The steps come in the order in which they stand here. Indices of a lane are given
/// innermost dimension first, as `VectorDecorSpec` counts.
class ORVO_API VectorUnroller : public Unroller {
  public:
    static const std::string mNameSuffix;
    const std::string &getSuffix() const override { return mNameSuffix; }

    /// Whether the block goes even if none of its signals is a vector.
    virtual bool mandatoryUnrolling() const;
    /// Whether the block, once all its signals are known, is one that the unroller knows how to take apart.
    virtual bool canUnroll() const;
    /// Why not, for the user; empty if that is not known, or if it can.
    virtual std::string reason() const;
    /// Where types may be asked for while `originalWire` and `originalPort` run.
    void setTypePassRefChain(GlobalTypePass &types, const RefChain &refChain);
    /// All instances of the block's model, the one of the chain first. They must outlive the unroller.
    void setInstances(const std::vector<RefChain> &instances) { mInstances = &instances; }
    /// Whether the element type of a signal becomes a parameter or decides what is made, so that it must be the same
    /// in all instances of the model. Asked when all signals are known.
    virtual bool writesTypeOf(const Wire &wire) const;
    virtual bool writesTypeOf(const Port &port) const;

    /// Called for every signal of the block before anything changes.
    virtual VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors);
    virtual VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors);
    /// What stands in the block's place, given the dimensions of all its signals that are merged.
    virtual void preAttach(const VectorDecorSpec &merged) = 0;
    virtual void preAttachExtended(const VectorDecorSpec &merged, GlobalTypePass &types, const RefChain &refChain);
    /// Has a wire drive a lane of a port; what now reads it is told by `addAttachedPort`.
    virtual void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                            Wire &driver) = 0;
    /// Has the readers read a lane of a wire. Gives what took the wire's place, null for nothing.
    virtual Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                             const std::vector<MaybePort> &readers) = 0;
    virtual void postAttach() = 0;

  protected:
    /// Null if nothing establishes a type.
    PureValueRef typeOf(const Wire &wire) const;
    PureValueRef typeOf(const Port &port) const;
    /// In one of the instances.
    PureValueRef typeOf(const Wire &wire, const RefChain &instance) const;
    PureValueRef typeOf(const Port &port, const RefChain &instance) const;
    /// None if they were not told.
    std::span<const RefChain> instances() const;

  private:
    GlobalTypePass *mTypes = nullptr;
    const RefChain *mRefChain = nullptr;
    const std::vector<RefChain> *mInstances = nullptr;
};

/// One block a lane, each with the parameters of the original. Of a rolled value a lane gets its own element, of a
/// vector type the element's type.
class ORVO_API DefaultVectorUnroller : public VectorUnroller {
  public:
    explicit DefaultVectorUnroller(Block &block) : mBlock(block) {}
    void preAttach(const VectorDecorSpec &merged) override;
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override;
    Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override;
    void postAttach() override;

  protected:
    /// What a lane gets of a parameter's value.
    virtual ValueRef laneValue(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged,
                               const std::vector<int> &indices) const;
    Block &block() const { return mBlock; }
    /// In the order of `VectorDecorSpec::elementIndex`.
    const std::vector<Block *> &substitutes() const { return mSubstitutes; }

  private:
    Block &createLane(const VectorDecorSpec &merged, const std::vector<int> &indices);

    Block &mBlock;
    std::vector<Block *> mSubstitutes;
};

/// Makes the unroller that it is told.
template <class U> class VectorUnrollHandlerT final : public VectorUnrollHandler {
  public:
    std::shared_ptr<VectorUnroller> createUnroller(Block &block) const override { return std::make_shared<U>(block); }
};

/// The indices of all lanes, innermost dimension first and fastest.
class ORVO_API LaneCounter {
  public:
    explicit LaneCounter(const VectorDecorSpec &lanes) : mLanes(lanes), mIndices(lanes.vectorDepth(), 0) {}
    bool atEnd() const { return mAtEnd; }
    const std::vector<int> &indices() const { return mIndices; }
    void next();

  private:
    const VectorDecorSpec &mLanes;
    std::vector<int> mIndices;
    bool mAtEnd = false;
};

namespace internal {

/// What is left of a value for a lane once the layers of vectors are taken off: `(vectorRollTag, ...)` gives the lane's
/// own element, the last one to lanes beyond the end, and `(typeVector, length, type)` the type. A value of d layers
/// belongs to the d innermost dimensions.
ORVO_API ValueRef elementOfLane(ValueRef value, const std::vector<int> &indices);

} // namespace internal

} // namespace orvo
