// The tables of the families: what each block type computes, one row a type.
#pragma once

#include "sim/compiler.h"

#include <orvo/api.h>

#include <span>

namespace orvo::sim {

ORVO_API std::span<const BlockRow> wiringRows();
ORVO_API std::span<const BlockRow> arithmeticRows();
/// For blocks of which an end is a float; a type without a row here works on the bits of floats as on any.
std::span<const BlockRow> floatRows();
ORVO_API std::span<const BlockRow> steeringRows();
ORVO_API std::span<const BlockRow> sequentialRows();
ORVO_API std::span<const BlockRow> memoryRows();
std::span<const BlockRow> fftRows();
std::span<const BlockRow> fftSpatialRows();
std::span<const BlockRow> stallRows();
std::span<const BlockRow> interfaceRows();
std::span<const BlockRow> busRows();
std::span<const BlockRow> pulseRows();
std::span<const BlockRow> accumulatorRows();
std::span<const BlockRow> functionRows();
std::span<const BlockRow> filterRows();

/// What the blocks of one bus compute together.
void writeBus(std::vector<BlockWriter> &users);

} // namespace orvo::sim
