// Blocks whose ports and wires have names of their own: a vector becomes so many ports or wires of the same block.
#pragma once

#include "orvo/replacedsignals.h"

#include <orvo/unrollmappings.h>
#include <orvo/vectorunroller.h>

#include <vector>

namespace orvo {

/// Keeps the block. Port x of a vector becomes (x, n) for its lanes n, wires likewise; a name that is a tuple of
/// several elements gets n before its last one.
class ORVO_API BoundaryVectorUnroller : public VectorUnroller {
  public:
    explicit BoundaryVectorUnroller(Block &block) : mBlock(block) {}
    static PureValueRef makeName(const PureValueRef &name, const VectorDecorSpec &vectors,
                                 const std::vector<int> &indices);

    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override;
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override;
    void preAttach(const VectorDecorSpec &merged) override;
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override;
    Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override;
    void postAttach() override;

    /// What became of the ports, and of the wires.
    const UnrollMappings &portMappings() const { return mPortMappings; }
    const UnrollMappings &wireMappings() const { return mWireMappings; }
    /// Whether a new name is already that of another port or wire of the block.
    bool namesClash() const { return mNamesClash; }
    std::string reason() const override { return mNamesClash ? "the name of a lane is in use" : ""; }
    Block &block() const { return mBlock; }

  protected:
    /// What stands in front in the names of the lanes of a wire. Wires that agree in it become the same ones.
    virtual PureValueRef baseOf(const Wire &wire) const;

  private:
    Block &mBlock;
    bool mNamesClash = false;
    UnrollMappings mPortMappings;
    UnrollMappings mWireMappings;
    internal::ReplacedSignals mReplaced;
};

} // namespace orvo
