// The formulas of filter designs behind the type rules of the IP blocks. Rates and the clock are in one unit; widths in
// bits. Nonsense gives 0, which is no width.
#pragma once

#include <orvo/api.h>

namespace orvo::internal {

/// Width behind a decimating filter of `stages` stages with rate factor `rate` and comb delay `delay`. Hogenauer, "An
/// economical class of digital filters for decimation and interpolation" (1981).
ORVO_API int CIC_DecimCalcOutputWidth(int inputWidth, int stages, int rate, int delay);
/// Width behind an interpolating filter: that of its last stage.
ORVO_API int CIC_InterpCalcOutputWidth(int inputWidth, int stages, int rate, int delay);
/// Width behind stage `stage`, counted from 1 through combs and integrators.
ORVO_API int CIC_InterpCalcStageWidth(int inputWidth, int stages, int rate, int delay, int stage);
ORVO_API double CIC_InterpCalcStageGain(int stages, int rate, int delay, int stage);
/// The gain of a decimating filter as an integer, 1 for no stages; the largest `long` beyond it.
ORVO_API long CIC_DecimCalcGain(int stages, int rate, int delay);
ORVO_API double CIC_InterpCalcGain(int stages, int rate, int delay);
/// Physical channels that carry `channels` at `rate` samples with the clock.
ORVO_API int CIC_CalcPhysChanIn(double rate, double clock, int channels);
/// Physical channels behind a change of rate by `factor`, for each of `physicalInputs`.
ORVO_API int CIC_CalcPhysChanOut(double clock, double rate, double factor, int channels, int physicalInputs);

} // namespace orvo::internal
