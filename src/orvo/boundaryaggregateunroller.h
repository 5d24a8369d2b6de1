// Blocks whose ports and wires have names of their own: a record becomes so many ports or wires of the same block.
#pragma once

#include <orvo/aggregateunroller.h>

#include <set>
#include <vector>

namespace orvo {

/// Keeps the block. Port x of a record becomes (x, n) for its flat members n, wires likewise; a name that is a tuple of
/// several elements gets n before its last one.
class ORVO_API BoundaryAggregateUnroller : public AggregateUnroller {
  public:
    explicit BoundaryAggregateUnroller(Block &block) : mBlock(block) {}
    static PureValueRef makeName(const PureValueRef &name, const AggregateTypeSpec &spec, int flatIndex);

    AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override;
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override;
    void preAttach(const AggregateTypeManager &manager) override;
    void attachPort(Port &port, const AggregateTypeSpec &member, int flatIndex, Wire &driver,
                    const AggregateTypeManager &manager) override;
    Wire *attachWire(Wire &wire, const AggregateTypeSpec &member, int flatIndex, const std::vector<MaybePort> &readers,
                     const AggregateTypeManager &manager) override;
    void postAttach() override;

    /// What became of the ports, and of the wires.
    const UnrollMappings &portMappings() const { return mPortMappings; }
    const UnrollMappings &wireMappings() const { return mWireMappings; }
    /// Whether a new name is already that of another port or wire of the block.
    bool namesClash() const { return mNamesClash; }
    Block &block() const { return mBlock; }

  protected:
    /// What a member of a port or wire is called.
    virtual PureValueRef nameOf(const PureValueRef &name, const AggregateTypeSpec &spec, int flatIndex);
    /// What stands in front in the names of the members of a wire. Wires that agree in it become the same ones.
    virtual PureValueRef baseOf(const Wire &wire) const;

  private:
    /// The new names of each port or wire that falls apart.
    using Names = std::map<PureValueRef, std::vector<PureValueRef>>;
    template <class IsTaken>
    AggregateUnrollKind note(const PureValueRef &name, const PureValueRef &base, const AggregateTypeSpec &spec,
                             const AggregateTypeManager &manager, UnrollMappings &mappings, Names &names,
                             IsTaken isTaken);

    Block &mBlock;
    bool mNamesClash = false;
    UnrollMappings mPortMappings;
    UnrollMappings mWireMappings;
    Names mPortNames;
    Names mWireNames;
};

class ORVO_API BoundaryAggregateUnrollHandler : public AggregateUnrollHandler {
  public:
    std::shared_ptr<AggregateUnroller> createUnroller(Block &block) const override;
};

} // namespace orvo
