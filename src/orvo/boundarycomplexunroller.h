// Blocks whose ports and wires have names of their own: a complex signal becomes two ports or wires of the same block.
#pragma once

#include "orvo/replacedsignals.h"

#include <orvo/complexunroller.h>
#include <orvo/unrollmappings.h>

#include <vector>

namespace orvo {

/// Keeps the block. Complex port x becomes (x, "real") and (x, "imag"), wires likewise; a name that is a tuple of
/// several elements gets the word before its last one.
class ORVO_API BoundaryComplexUnroller : public ComplexUnroller {
  public:
    explicit BoundaryComplexUnroller(Block &block) : mBlock(block) {}
    static PureValueRef makeName(const PureValueRef &name, const ComplexDecorSpec &decor, bool imaginary);

    std::string reason() const override { return mNamesClash ? "the name of a part is in use" : ""; }
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override;
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override;
    void preAttach() override;
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &decor, bool imaginary,
                     const std::vector<MaybePort> &readers) override;
    void attachPort(Port &port, const ComplexDecorSpec &decor, bool imaginary, Wire &driver) override;
    void postAttach() override;

    /// What became of the ports, and of the wires.
    const UnrollMappings &portMappings() const { return mPortMappings; }
    const UnrollMappings &wireMappings() const { return mWireMappings; }
    /// Whether a new name is already that of another port or wire of the block.
    bool namesClash() const { return mNamesClash; }
    Block &block() const { return mBlock; }

  protected:
    /// What stands in front in the names of the parts of a wire. Wires that agree in it become the same ones.
    virtual PureValueRef baseOf(const Wire &wire) const;

  private:
    Block &mBlock;
    bool mNamesClash = false;
    UnrollMappings mPortMappings;
    UnrollMappings mWireMappings;
    internal::ReplacedSignals mReplaced;
};

/// That of block types inside models whose ports and wires have names of their own.
class ORVO_API BoundaryComplexUnrollHandler final : public ComplexUnrollHandler {
  public:
    std::shared_ptr<ComplexUnroller> createUnroller(Block &block) const override;
};

} // namespace orvo
