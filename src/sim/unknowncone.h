// The part of a program that unknown values can reach: all else is the same however they are filled in.
#pragma once

#include "sim/program.h"

#include <vector>

namespace orvo::sim {

struct UnknownCone {
    /// Of the program, in its order.
    std::vector<Op> ops;
    std::vector<Op> commits;
    /// What these read from outside the cone.
    std::vector<Operand> read;
    /// By word: whether unknown values can reach it.
    std::vector<bool> reached;
};

UnknownCone unknownConeOf(const Program &program);

} // namespace orvo::sim
