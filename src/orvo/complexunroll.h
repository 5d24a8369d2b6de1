// The engine that takes blocks of complex signals apart: it looks at the signals of a block, lets the block's unroller
// make what stands in its place, and joins that to the neighbours through packs and unpacks.
#pragma once

#include <orvo/complexunroller.h>
#include <orvo/compoundtypeinfo.h>

#include <memory>
#include <string>
#include <vector>

namespace orvo {

namespace internal_complex {

struct PortInfo {
    MaybePort port;
    ComplexDecorSpec decor;
    ComplexPortKind kind;
    PureValueRef type;
    /// Real numbers drive it, although it takes complex ones.
    bool isRealDriven;
};

struct WireInfo {
    Wire *wire;
    ComplexDecorSpec decor;
    ComplexWireKind kind;
};

/// One block on its way. Types are read when it is made, before anything changes.
class BlockUnrollerImpl {
  public:
    static constexpr CompoundKind kKind = CompoundKind::Complex;

    /// The chains are those of all instances of the block's model, in which the same signals must be complex. They must
    /// outlive this.
    BlockUnrollerImpl(Block &block, const std::vector<RefChain> &instances, std::shared_ptr<ComplexUnroller> unroller,
                      GlobalTypePass &types);

    Block &block() const { return mBlock; }
    ComplexUnroller &unroller() const { return *mUnroller; }
    const std::vector<PortInfo> &ports() const { return mPorts; }
    const std::vector<WireInfo> &wires() const { return mWires; }
    /// Whether a type is missing or does not fit; that was reported, and the block stays as it is.
    bool failed() const { return mFailed; }
    void fail() { mFailed = true; }
    /// Gives up on a boundary that cannot come apart with the other side, and tells so.
    void failOnBoundary();
    bool hasWork() const { return !mFailed && mExpand; }
    /// Takes the block apart if there is anything to do. The block is gone afterwards if its unroller deletes it.
    void unroll(GlobalTypePass &types);

  private:
    struct SignalType {
        PureValueRef type;
        ComplexDecorSpec decor;
        /// The same in all instances.
        bool isUnique;
    };
    template <class End>
    SignalType typeOf(const End &end, const std::vector<RefChain> &instances, GlobalTypePass &types) const;
    /// In how many instances real numbers drive the port.
    std::size_t countRealDrivers(const Port &port, GlobalTypePass &types) const;
    bool fits(const SignalType &signal) const;
    void rejectPort(const PureValueRef &key);
    void rejectWire(const Wire &wire);
    void failToExpand(const std::string &detail);
    /// Names a signal that is of several types.
    std::string difference(GlobalTypePass &types) const;
    Block &create(const PureValueRef &key, const char *word, const StaticString &type) const;
    void attachPort(const PortInfo &info, bool imaginary, Wire &driver);
    void unrollPort(const PortInfo &info);
    void unrollWire(const WireInfo &info);

    Block &mBlock;
    const std::vector<RefChain> &mInstances;
    std::shared_ptr<ComplexUnroller> mUnroller;
    bool mExpand = false;
    bool mFailed = false;
    /// Whether zeros for missing parts are of one bit, for no type would do in all instances.
    bool mPlainZeros = false;
    std::vector<PortInfo> mPorts;
    std::vector<WireInfo> mWires;
};

} // namespace internal_complex

} // namespace orvo
