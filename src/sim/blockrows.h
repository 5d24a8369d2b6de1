// The tables of the families: what each block type computes, one row a type.
#pragma once

#include "sim/compiler.h"

#include <span>

namespace orvo::sim {

std::span<const BlockRow> wiringRows();
std::span<const BlockRow> arithmeticRows();
std::span<const BlockRow> steeringRows();
std::span<const BlockRow> sequentialRows();
std::span<const BlockRow> memoryRows();

} // namespace orvo::sim
