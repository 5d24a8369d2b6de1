// Elementary functions of fixed-point numbers: the exact value, rounded to the nearest number of the output's type,
// ties to even; beyond its range the nearest end. Poles, and what has no value, are zero.
#pragma once

#include "sim/program.h"

#include <orvo/api.h>

namespace orvo::sim {

/// The circular functions of an angle in radians, or in parts of pi.
enum class FixedFunction { Sqrt, Reciprocal, RecipSqrt, Exp, Log, Sin, Cos, SinPi, CosPi };

/// Of input 0. An input's `shift` is its fraction bits; so is the output's.
ORVO_API Kernel fixedFunctionKernel(FixedFunction function);
/// Input 0 to the power of the integer in input 1.
ORVO_API Kernel fixedPowerKernel();

/// What shift-and-add iterations without end give (Volder, "The CORDIC trigonometric computing technique", 1959). A
/// rotation stretches by their gain, 1.6467...
enum class Cordic { RotatedX, RotatedY, Length, Direction };
/// Of the vector in inputs 0 and 1 and the angle in input 2, in radians: the vector rotated by the angle; its length;
/// the angle and the vector's own.
ORVO_API Kernel cordicKernel(Cordic what);

} // namespace orvo::sim
