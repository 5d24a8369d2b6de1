// From a design to a program. The compiler lays out the scalars of every signal in every instance, lets each block's
// row in the tables write its operations, and puts these in the order in which they run.
#pragma once

#include "sim/program.h"
#include "sim/signaltype.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

namespace orvo::sim {

class Compiler;

/// A signal while the program is written: its type, and the number of its first scalar; the others follow.
struct Signal {
    const SignalType *type = nullptr;
    std::uint32_t first = 0;
    bool known() const { return type != nullptr; }
};

/// Stands for one scalar of a signal.
using Leaf = std::uint32_t;

/// A fault of the design that ends compilation.
struct CompileError {
    std::string reason;
    /// The places of the blocks, as paths of instances.
    std::vector<std::string> blocks;
};

/// Thrown where a block lacks an input that it cannot do without: what it would drive is unknown.
struct MissingInput {};

/// One block in one instance, as its row sees it.
class BlockWriter {
  public:
    BlockWriter(Compiler &compiler, const Block &block, std::uint32_t instance)
        : mCompiler(compiler), mBlock(block), mInstance(instance) {}

    const Block &block() const { return mBlock; }
    Context *context() const { return mBlock.getContext(); }
    SignalTypes &types() const;
    ValueRef param(const StaticString &key) const { return mBlock.getParam(key); }
    bool isTrue(const StaticString &key) const { return mBlock.findParam(key) == A_TRUE.get_ptr(); }
    /// An integer parameter, `fallback` where there is none. Anything else ends compilation.
    std::int64_t integer(const StaticString &key, std::int64_t fallback) const;

    /// The signal at a port, unknown if the port is not connected.
    Signal in(const PureValueRef &key) const;
    Signal in(int number) const;
    /// The type that the block tells of a port, which may have more or less to it than what drives that; null if none.
    const SignalType *taken(const Port &port) const;
    /// The signals at numbered ports, in the order of the numbers.
    std::vector<std::pair<int, Signal>> numberedPorts() const;
    std::vector<Signal> numbered() const;
    /// A wire of the block, unknown if there is none.
    Signal out(const PureValueRef &key) const;
    Signal out(int number) const;
    Signal out() const { return out(A_PRIM_WIRE_OUT); }

    ScalarType scalar(Leaf leaf) const;
    /// How a leaf of an input is read for a result of these fraction bits.
    Operand aligned(Leaf leaf, std::int32_t fraction) const;
    Operand raw(Leaf leaf) const;

    /// A scalar of the block's own: a value between two operations.
    Leaf temporary(const ScalarType &type);
    /// A scalar that nothing settles: unknown in each cycle anew, zero where a run does not track that.
    Leaf unknown(const ScalarType &type);
    /// Words that last from cycle to cycle, with what they hold at reset.
    std::uint32_t state(std::uint32_t words);
    void setInitial(std::uint32_t at, std::uint64_t word);
    /// So many bits of the state are unknown at reset: those from the given one of the word on.
    void setUnknown(std::uint32_t at, std::uint32_t firstBit, std::uint32_t bits);

    /// Adds an operation. Its kernel is picked by `pick` once the operands stand.
    template <class Pick>
    void emit(Leaf out, std::int32_t drop, const std::vector<Operand> &in, Pick pick, int aux = 0) {
        Op &op = begin(out, drop, in, aux);
        op.run = pick(op);
    }
    /// The same for one that reads state.
    void emitFromState(Leaf out, std::uint32_t state, std::uint32_t words, const std::vector<Operand> &in,
                       Kernel kernel, int aux = 0) {
        Op &op = begin(out, 0, in, aux);
        op.run = kernel;
        op.state = state;
        op.stateWords = words;
    }
    /// An operation on state at the end of the cycle.
    void commit(std::uint32_t state, std::uint32_t words, const std::vector<Operand> &in, Kernel kernel, int aux = 0);
    /// One leaf is another: no operation runs for it.
    void alias(Leaf out, Leaf in);
    /// Converts a value to the output's type; of floats, to the nearest.
    void convert(Leaf out, Leaf in);
    /// The bits of a number in a fixed-point type: rounded, halves away from zero, and brought into the type's range.
    static std::vector<std::uint64_t> quantised(const NumberValueRef &number, const ScalarType &type);
    /// Gives a temporary an integer that it holds for good.
    void setConstant(Leaf leaf, std::uint64_t integer);
    /// The constant of a parameter, brought to the type of the signal.
    void constant(const Signal &out, const ValueRef &value);

    /// A parameter of the block or, if it has none, of the nearest model that holds it in this instance and has one.
    ValueRef inherited(const StaticString &key) const;
    /// Has `writeBus` called, once all blocks are written, for all blocks that joined the bus of this name.
    void joinBus(const PureValueRef &bus);
    /// A signal that the outside drives under a name; all who ask for the name share it. It becomes an input of the
    /// simulator.
    Signal outside(const PureValueRef &name, const SignalType &type);
    /// Drives a signal to the outside; it becomes an output of the simulator. One block may drive a name.
    void show(const PureValueRef &name, const Signal &signal);

    [[noreturn]] void fail(const std::string &reason) const;
    [[noreturn]] void missing() const { throw MissingInput(); }

  private:
    void convertFloat(Leaf out, Leaf in);
    Op &begin(Leaf out, std::int32_t drop, const std::vector<Operand> &in, int aux);

    Compiler &mCompiler;
    const Block &mBlock;
    std::uint32_t mInstance;
};

/// A row of a family's table.
struct BlockRow {
    const StaticString *type;
    void (*write)(BlockWriter &writer);
};

} // namespace orvo::sim
