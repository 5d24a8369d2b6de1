// The exact arithmetic of fixed-point scalars. Each function here picks, for one operation, the kernel that computes in
// the narrowest of three kinds of integers that holds every step: one machine word, two, or as many as it takes.
#pragma once

#include "sim/program.h"

#include <orvo/api.h>

namespace orvo::sim {

enum class Relation { Equal, NotEqual, GreaterEqual, Less };
enum class Logic { And, Or, Xor };
/// How low bits go: dropped, toward zero, half upward, half to even, half away from zero, upward.
enum class Rounding { Floor, ToZero, HalfUp, HalfEven, HalfAway, Ceiling };
enum class Saturation { Wrap, Symmetric, Asymmetric };

/// The sum of the inputs, each shifted and, if marked, negated. One input converts a value.
ORVO_API Kernel sumKernel(const Op &op);
/// The sum of products of neighbouring inputs: 0 times 1, 2 times 3, ... The sign of the first of each pair counts.
ORVO_API Kernel productSumKernel(const Op &op);
/// The product of all inputs.
ORVO_API Kernel productKernel(const Op &op);
/// One bit: how input 0 stands to input 1.
ORVO_API Kernel compareKernel(const Op &op, Relation relation);
/// The larger or the smaller of the inputs; of equal ones the first. `op.aux` is 1 for the larger.
ORVO_API Kernel extremeKernel(const Op &op);
/// Bit by bit over the inputs; `op.aux` is 1 if the result is complemented.
ORVO_API Kernel logicKernel(const Op &op, Logic logic);
/// One bit: the logic over the bits of input 0; `op.aux` as above.
ORVO_API Kernel reduceKernel(const Op &op, Logic logic);
/// The data input whose number input 0 holds as a bit pattern: input 1 + n. Beyond the last, zero,
/// or with `op.aux` 1 the last input, which then is no data but has the output's type and stands for what is unknown.
ORVO_API Kernel muxKernel(const Op &op);
/// The number of ones in input 0.
ORVO_API Kernel countOnesKernel(const Op &op);
/// Input 0 with its bits in the other order, as a pattern.
ORVO_API Kernel reverseKernel(const Op &op);
/// Inputs as patterns side by side, input 0 lowest.
ORVO_API Kernel joinKernel(const Op &op);
/// Input 0, in which `op.out.shift` low bits go by the rounding, brought into the output's range.
ORVO_API Kernel castKernel(const Op &op, Rounding rounding, Saturation saturation);
/// One bit: whether `castKernel` of the same arguments met a bound. `op.aux` is the width of the range, with bit 24 set
/// for a signed one.
ORVO_API Kernel clipKernel(const Op &op, Rounding rounding, Saturation saturation);
/// Input 0 divided by input 1, toward zero; input 2 when dividing by zero, zero without one.
ORVO_API Kernel divideKernel(const Op &op);
/// The non-negative rest of input 0 divided by input 1; input 2 when dividing by zero, zero without one.
ORVO_API Kernel moduloKernel(const Op &op);
/// Input 0 times two to plus (`op.aux` 1) or minus (0) input 1, a bit pattern.
ORVO_API Kernel barrelKernel(const Op &op);
/// Input 0 as a pattern, shifted left by the number of its leading zeros; that number if `op.aux` is 1.
ORVO_API Kernel normaliseKernel(const Op &op);

} // namespace orvo::sim
