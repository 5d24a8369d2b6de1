// Designs that must compute the same.
#pragma once

#include <orvo/simcompare.h>

#include <gtest/gtest.h>

namespace orvo {
class Design;
class Model;
} // namespace orvo

namespace orvo::test {

/// Simulates both from the model of this name in each and compares all outputs, bit by bit.
::testing::AssertionResult sameBehaviour(const Design &before, const Design &after, const std::string &top,
                                         const sim::CompareOptions &options = {});

/// The same as an expectation.
void expectSameBehaviour(const Design &before, const Design &after, const std::string &top = "top",
                         const sim::CompareOptions &options = {});

} // namespace orvo::test
