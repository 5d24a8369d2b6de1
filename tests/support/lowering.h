// Lowering designs by chance: the orders in which passes may run, and what must hold behind them.
#pragma once

#include <orvo/value.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace orvo {
class Design;
class PassSchedulerState;
class UnrollMappings;
} // namespace orvo

namespace orvo::test {

/// Passes in an order in which a front end may run them.
struct Route {
    std::string name;
    /// With their parameters, as texts.
    std::vector<std::string> passes;
    /// Whether nothing compound and no hierarchy is left behind it.
    bool everything;
    /// Whether no block is left behind it that primitives can stand for.
    bool primitives = false;
};
/// Every structural pass alone, then all of them in each sensible order; the presets that are installed among them.
const std::vector<Route> &routes();

/// Whether tags find each other in the design: one by chance may be out of reach.
bool tagsMeet(Design &design);
/// Marks models by the bits of a number, so that the passes that look for marks find some work.
void markModels(Design &design, std::uint32_t marks);
/// Gives some of the blocks metadata by chance, so that neighbours differ in them.
void markBlocks(Design &design, std::uint32_t marks);

/// Whether a pass says that it leaves a block whole for which no scalar ones can stand. Designs by chance have a few.
bool isRefusal(const std::string &message);

/// How often a pass met blocks of a type with signals of a class.
using Coverage = std::map<std::tuple<std::string, std::string, std::string>, std::size_t>;
void countSignals(Design &design, const std::string &pass, Coverage &coverage);

/// What is noted while passes run.
struct LoweringNotes {
    /// Counts what the passes meet if there is a table.
    Coverage *coverage = nullptr;
    /// What passes said of blocks that they leave whole, for reasons that are known.
    std::vector<std::string> refusals;
};

/// Runs the passes one by one. Fails at the first message that is no known refusal and at the first netlist that is not
/// sound.
::testing::AssertionResult lower(Design &design, const std::vector<std::string> &passes, PassSchedulerState &state,
                                 LoweringNotes &notes);

/// Whether no signal of any model is compound, no model is instantiated, and each block leads back to the source.
::testing::AssertionResult isFlatAndPlain(const Design &source, Design &lowered);

/// Whether no block is left whose type comes apart into primitives, but those that no primitives stand for: of floats,
/// or with an end that is open.
::testing::AssertionResult isPrimitive(Design &lowered);

/// Whether the ports that the mappings name have the types of their parts in the source.
::testing::AssertionResult boundariesAreAsMapped(Design &source, Design &lowered, PassSchedulerState &state);

} // namespace orvo::test
