// Widths of integers, and the steps between the machine's integers and those of any size.
#pragma once

#include <orvo/api.h>

#include <gmp.h>

#include <cstdint>

namespace util {

/// Bits that hold the unsigned value: 1 for 0 and 1, 2 for 2 and 3.
ORVO_API int bitsForValue(std::uint64_t value);
/// Bits of an address of that many places: 1 for up to two places.
ORVO_API int bitsForAddr(std::uint64_t places);
/// `value` times two to the power of `shift`; a negative shift drops low bits, toward minus infinity. `out` must be
/// initialised and may be `value`.
ORVO_API void AMShift(mpz_t out, const mpz_t value, int shift);
/// Sets `out`, which must be initialised.
ORVO_API void sintToMPZ(mpz_t out, std::int64_t value);
/// The low 64 bits as two's complement.
ORVO_API std::int64_t mpzToSINT(const mpz_t value);

} // namespace util
