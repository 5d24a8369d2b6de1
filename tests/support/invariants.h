// An independent check of everything that a netlist promises.
#pragma once

#include <gtest/gtest.h>

namespace orvo {
class Design;
}

namespace orvo::test {

/// Walks the whole design: links, names and their order, ports against parameters, readers of wires, parents of models
/// and the values bound to nodes. The failure says what does not hold, and where.
::testing::AssertionResult checkInvariants(const Design &design);

} // namespace orvo::test
