// The state of a compilation.
#pragma once

#include "sim/compiler.h"

#include <orvo/simulator.h>

#include <orvo/model.h>
#include <orvo/typeinferpass.h>

#include <map>
#include <optional>
#include <unordered_map>

namespace orvo::sim {

/// The scalar at an edge of the top model.
struct Edge {
    std::string name;
    std::string origin;
    ScalarType type;
    Operand operand;
    bool isFaithful = false;
    std::uint32_t rank = 0;
};

class Compiler {
  public:
    Compiler(const Design &design, const Model &top, const SimulatorOptions &options);
    ~Compiler();
    Compiler(const Compiler &) = delete;
    Compiler &operator=(const Compiler &) = delete;

    /// Throws `CompileError`.
    void compile();

    Program program;
    std::vector<Edge> inputs;
    std::vector<std::string> idleInputs;
    std::vector<Edge> outputs;
    std::vector<Edge> probed;

  private:
    friend class BlockWriter;
    friend class TagJoiner;

    struct Instance {
        const Model *model;
        RefChain chain;
        std::uint32_t parent;
    };
    /// Where a wire's scalars begin, in one instance.
    using WireMap = std::unordered_map<const Wire *, Signal>;

    void layOut(std::uint32_t instance);
    bool hasFloats(const Block &block, std::uint32_t instance);
    void writeBlock(const Block &block, std::uint32_t instance);
    void findInstances();
    void joinInstance(std::uint32_t below);
    Signal signalOf(const Wire *wire, std::uint32_t instance);
    void addEdges();
    void addProbe(const std::string &path);
    void addAllProbes();
    void addEdge(std::vector<Edge> &edges, const std::string &prefix, const PureValueRef &name, const Signal &signal);
    void resolveAliases();
    void markUnsettled();
    void order();
    void place();
    /// The path of an instance, with a slash at its end.
    std::string placeOf(std::uint32_t instance) const;
    std::string placeOf(const Block &block, std::uint32_t instance) const;
    [[noreturn]] void failOnMissingType(const Wire &wire, std::uint32_t instance);
    [[noreturn]] void failOnType(const Block &block, std::uint32_t instance) const;
    [[noreturn]] void failOnWireLoop(Leaf first) const;
    [[noreturn]] void failOnLoop(const std::vector<std::uint32_t> &waits) const;

    const Model &mTop;
    const SimulatorOptions &mOptions;
    GlobalTypePass mTypesOfSignals;
    SignalTypes mTypes;
    std::vector<Instance> mInstances;
    /// Of a model block that cannot be followed; told once the types are known to be sound.
    std::optional<CompileError> mFault;
    std::vector<WireMap> mWires;
    /// The runs of leaves that belong to wires; those between are temporaries.
    std::vector<std::pair<Leaf, Leaf>> mWireLeaves;
    std::map<PureValueRef, std::vector<BlockWriter>, DeepValueCmp> mBuses;
    /// What the outside drives, and what it is shown, with the place of the block that drives it.
    std::map<PureValueRef, Signal, DeepValueCmp> mOutside;
    std::map<PureValueRef, std::pair<Signal, std::string>, DeepValueCmp> mShown;
    std::vector<ScalarType> mLeaves;
    /// The leaf that each leaf stands for; itself if it has a value of its own.
    std::vector<Leaf> mAliases;
    /// The operation that writes a leaf, plus one; 0 for none.
    std::vector<std::uint32_t> mProducers;
    /// The block of each operation, for messages.
    struct Origin {
        const Block *block;
        std::uint32_t instance;
    };
    std::vector<Origin> mOrigins;
    std::uint32_t mStateWords = 0;
    std::vector<std::pair<std::uint32_t, std::uint64_t>> mInitial;
    /// Constant leaves with their bits.
    std::vector<std::pair<Leaf, std::vector<std::uint64_t>>> mConstants;
};

/// The row of a block type, with or without floats; null for a type that has no meaning here.
const BlockRow *rowOf(const Value *blockType, bool hasFloats);

} // namespace orvo::sim
