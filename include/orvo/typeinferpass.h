// GlobalTypePass, which answers for the type of any port or wire in any instance. Types are found by one fixed point
// over the whole hierarchy when somebody asks, and kept until the netlist changes.
#pragma once

#include <orvo/model.h>
#include <orvo/pass.h>

#include <memory>

namespace orvo {

class ModelTreePass;
class Port;
class Wire;
enum class CompoundKind : std::uint8_t;

namespace internal {
struct GlobalTypeImpl;
}

/// What one run of the inference did, for measurements.
struct TypeInferStatistics {
    /// Steps of blocks in all evaluations together.
    std::uint64_t steps = 0;
    /// Full and minimal evaluations.
    std::uint64_t fullEvaluations = 0;
    std::uint64_t minimalEvaluations = 0;
};

class ORVO_API GlobalTypePass final : public Pass {
    ORVO_PASS(GlobalTypePass)

    GlobalTypePass();
    ~GlobalTypePass() override;
    /// From here on the pass forgets what it knows when the design changes.
    void bindEvents(const Design &design) override;
    void unbindEvents() override;

    /// The type, null if nothing establishes one. The chain leads from the model to start at, whose types come from
    /// nowhere above, to the instance asked about; empty for that model itself.
    PureValueRef getType(const Wire &wire, const RefChain &refChain);
    PureValueRef getType(const Wire *wire, const RefChain &refChain);
    PureValueRef getType(const Port &port, const RefChain &refChain);
    PureValueRef getType(const Port *port, const RefChain &refChain);

    /// Whether a port or wire of the model may be of that kind in some instance below the models that nothing
    /// instantiates: false only if all their types are known and well formed, and none is of it. The first question
    /// behind a change of the netlist infers all types, further ones cost nothing. Not to be asked while types are
    /// frozen.
    bool mayCarry(const Model &model, CompoundKind kind);

    /// Takes a type as that of a wire in an instance, as if something in the design established it, and draws from it
    /// what follows: for a connection that the netlist does not draw. Nothing happens where a type is known already. A
    /// change of the netlist ends it like all that is known.
    void suppose(const Wire &wire, const RefChain &refChain, const PureValueRef &type);

    /// Between these two, changes of the netlist do not throw away what is known. They must alternate.
    void freeze();
    void thaw();

    /// Lets a query try a part of the design first. The tree pass must outlive the queries.
    void enableMinimalSet(ModelTreePass *tree);
    void disableMinimalSet();
    /// Blocks of such a part at most; 500 unless set. Has no effect when a feature sets the limit.
    void limitMinimalSetSize(std::size_t blocks);

    const TypeInferStatistics &statistics() const;

  private:
    std::unique_ptr<internal::GlobalTypeImpl> mImpl;
};

} // namespace orvo
