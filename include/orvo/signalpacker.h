// Taking a compound signal apart into leaves, and putting one together from them.
#pragma once

#include <orvo/compoundportcorrespondence.h>
#include <orvo/compoundtypeinfo.h>

#include <memory>
#include <vector>

namespace orvo {

namespace internal {
class SignalPackerImpl;
}

/// Makes the tree of unpacks or of packs for one signal. The blocks are named (name, word, index...): the word tells
/// the kind of the level, "aup", "vup" or "cup" for unpacks and "ap", "vp" or "cp" for packs, and the indices lead to
/// the level. A plain signal, which has no shape, goes through without a block.
class ORVO_API SignalPacker {
  public:
    SignalPacker(const CompoundTypeInfo &shape, Model &model, const PureValueRef &name);
    ~SignalPacker();
    SignalPacker(const SignalPacker &) = delete;
    SignalPacker &operator=(const SignalPacker &) = delete;

    /// Takes the signal of a wire apart.
    void doUnpack(Wire &wire);
    /// Builds the signal that the ports will read, from leaves that are yet to come. Nothing is built for no ports.
    void doPack(const std::vector<MaybePort> &ports);

    /// The wire of a leaf, null for a path that leads to none or before `doUnpack`.
    Wire *getUnpackedWire(const CompoundDecorIndex &index) const;
    /// The ports that a leaf must drive; empty for a path that `doPack` never saw.
    std::vector<MaybePort> getPackedPorts(const CompoundDecorIndex &index) const;

  private:
    std::unique_ptr<internal::SignalPackerImpl> mImpl;
};

} // namespace orvo
