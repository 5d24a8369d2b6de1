// Designs made in a few lines, and run.
#pragma once

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/simulator.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <util/random.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace orvo::test {

using Numbers = std::vector<std::int64_t>;

/// Numbers by chance below 2^32, the same in each run.
class Chance {
  public:
    explicit Chance(std::uint64_t seed) : mNumbers(seed) {}
    std::int64_t operator()() { return static_cast<std::int64_t>(mNumbers.next() >> 32U); }

  private:
    util::SplitMix mNumbers;
};

class SimulatorFixture : public ::testing::Test {
  protected:
    using Texts = std::vector<std::pair<const char *, const char *>>;

    PureValueRef value(const std::string &text);
    /// A new input of the model, of a type in the short form of `typeText`.
    Wire &input(Model &model, const std::string &name, const std::string &type);
    /// The wire brought to a type by a type pin.
    Wire &pinned(Wire &wire, const std::string &type);
    /// A block of a type's text with its parameters.
    Block &block(Model &model, const std::string &name, const std::string &type, const Texts &params = {});
    void output(Model &model, const std::string &name, Wire &wire);
    /// A block that reads the wire at its port 0, and its main output.
    Block &unary(Model &model, const std::string &name, const std::string &type, Wire &wire, const Texts &params = {});
    /// The main output of a block, made if it has none.
    static Wire &out(Block &block);
    /// A model of one block: ports on inputs of their names, wires on outputs of theirs. Keys and types as texts; a
    /// type pin stands on a wire with a type.
    Model &oneBlock(Design &design, const std::string &type, const Texts &inputs, const Texts &outputs,
                    const Texts &params = {});

    /// The names of a block's ports, and of its wires, as texts.
    static std::vector<std::string> portsOf(const Block &block);
    static std::vector<std::string> wiresOf(const Block &block);

    static Numbers stepWith(sim::Simulator &simulator, const Numbers &in);
    /// Sets inputs by name, steps, and gives the outputs by name.
    static std::map<std::string, std::int64_t> stepByName(sim::Simulator &simulator,
                                                          const std::map<std::string, std::int64_t> &in);
    /// Why a design cannot be simulated, and where.
    static std::string refusal(const Design &design, const Model &top);

    ContextMgr mgr;
};

} // namespace orvo::test
