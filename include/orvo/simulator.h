// The reference simulator: what a design computes, bit by bit and cycle by cycle, at any stage of its lowering. It is
// the executable definition of the block types.
#pragma once

#include <orvo/api.h>
#include <orvo/value.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvo {
class Design;
class Model;
} // namespace orvo

namespace orvo::sim {

/// A design that cannot be simulated: a block type without a meaning, a signal without a type, a combinational loop.
class ORVO_API SimulationError : public std::runtime_error {
  public:
    SimulationError(const std::string &reason, std::vector<std::string> blocks);
    /// Where: paths of instances, as top/a/b/block.
    const std::vector<std::string> &blocks() const { return mBlocks; }

  private:
    std::vector<std::string> mBlocks;
};

/// One scalar at the edge of the top model.
struct Scalar {
    /// The name of the wire or port, then the lanes and parts, as in x[2].re or r.1[0].
    std::string name;
    /// Bits; a float takes its whole width.
    std::uint32_t width;
    bool isSigned;
    bool isFloat;
    /// Fraction bits of a fixed-point scalar: its value is the integer times two to minus this many.
    std::int32_t fraction;
    /// The name that this scalar has where lanes and parts have become wires and ports of their own, as in (x real 2).
    /// Of a probe, the model and the block that the wire comes from, and the wire's name made like that.
    std::string origin{};
    /// Exponent bits of a float of IEEE 754, behind the sign; 0 for any other scalar.
    std::uint32_t exponent = 0;
    /// The float comes out of a block whose rounding may go either way between neighbours.
    bool isFaithful = false;
    /// How late in the cycle it settles: never before what it is computed from.
    std::uint32_t rank = 0;
};

/// Whether a block type has a meaning here, with signals of fixed point or with floats.
ORVO_API bool canSimulate(const Value *blockType);

/// What to keep beside the edges.
struct SimulatorOptions {
    /// Wires to look at, as top/a/b/block/wire: the top model, the model blocks on the way, the block, the wire.
    std::vector<std::string> probes;
    /// Looks at every wire of every instance, too.
    bool probeAll = false;
    /// Keeps track of the bits that nothing settles: what comes from ports that are not connected, memories without
    /// content, divisions by zero and the like. Else these read as zero.
    bool trackUnknown = false;
};

/// Compiles the instances below a model into a flat program and runs it. The design must not change meanwhile, and must
/// outlive nothing: all that is needed is taken over. Belongs to the thread that made it.
class ORVO_API Simulator {
  public:
    /// Throws `SimulationError`, also for a probe that leads nowhere.
    Simulator(const Design &design, const Model &top, const SimulatorOptions &options = {});
    ~Simulator();
    Simulator(const Simulator &) = delete;
    Simulator &operator=(const Simulator &) = delete;

    /// The scalars of the top model's input and output blocks, then those of the interfaces of all instances, in the
    /// order of their names. A signal of an interface is named by the pair of the interface and the signal.
    const std::vector<Scalar> &inputs() const;
    const std::vector<Scalar> &outputs() const;
    /// Wires of the input blocks that nobody reads and that have no type; they are not among the inputs.
    const std::vector<std::string> &idleInputs() const;
    /// The scalars of the probed wires, in the order of the options.
    const std::vector<Scalar> &probes() const;

    /// The bits of an input for the next steps, lowest word first; bits above the width are cut off.
    void setInput(std::size_t input, const std::vector<std::uint64_t> &words);
    /// The same for a scalar of at most 64 bits; a signed one is extended by its sign.
    void setInput(std::size_t input, std::int64_t value);
    /// The bits of an input as they stand.
    std::vector<std::uint64_t> input(std::size_t input) const;
    /// One cycle: values settle, then every stateful block takes its next state.
    void step();
    /// Back to the state before the first cycle. Inputs stay.
    void reset();
    /// What the output was in the latest cycle, as `setInput` takes it.
    std::vector<std::uint64_t> output(std::size_t output) const;
    std::vector<std::uint64_t> probe(std::size_t probe) const;
    /// The bits of the output in the latest cycle that are unknown: one in their places. They are found by running the
    /// design many times at once, with these bits filled in differently, so that a bit which no unknown one can change
    /// is never told as unknown; the other way round one may be missed that is very seldom different.
    std::vector<std::uint64_t> unknownOutput(std::size_t output) const;
    std::vector<std::uint64_t> unknownProbe(std::size_t probe) const;
    /// Whether anything in the design can be unknown, and that is tracked.
    bool tracksUnknown() const;
    /// How often the design runs at once, and what an output was in one of these runs. In the first, unknown bits are
    /// zero.
    std::size_t runs() const;
    std::vector<std::uint64_t> outputInRun(std::size_t output, std::size_t run) const;
    /// Fills in other bits for unknown ones from the next reset on.
    void reseed(std::uint64_t seed);
    /// The same as a number: the integer of a fixed-point scalar of at most 64 bits.
    std::int64_t outputInteger(std::size_t output) const;

    /// Operations in one cycle.
    std::size_t operations() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace orvo::sim
