// The tables of the families: what each block type computes, one row a type.
#pragma once

#include "sim/compiler.h"

#include <span>

namespace orvo::sim {

std::span<const BlockRow> wiringRows();
std::span<const BlockRow> arithmeticRows();
/// For blocks of which an end is a float; a type without a row here works on the bits of floats as on any.
std::span<const BlockRow> floatRows();
std::span<const BlockRow> steeringRows();
std::span<const BlockRow> sequentialRows();
std::span<const BlockRow> memoryRows();
std::span<const BlockRow> stallRows();
std::span<const BlockRow> interfaceRows();
std::span<const BlockRow> pulseRows();
std::span<const BlockRow> accumulatorRows();
std::span<const BlockRow> functionRows();
std::span<const BlockRow> filterRows();

} // namespace orvo::sim
