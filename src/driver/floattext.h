// Floating-point scalars as decimal numbers.
#pragma once

#include "driver/waveform.h"

namespace orvo::driver {

/// The shortest decimal that reads back as the same number, or inf, -inf or nan.
std::string floatText(const sim::Scalar &scalar, const Words &words);
/// The bits of the number of the format that is nearest, ties to even. None for what is no number.
std::optional<Words> parseFloat(const sim::Scalar &scalar, const std::string &text);

} // namespace orvo::driver
