// How much of an exhaustive test is run: all of it, but under a sanitizer, which makes each step many times slower,
// one case in so many.
#pragma once

#include <cstdint>

namespace orvo::testing {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint64_t kExhaustiveStride = 23;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr std::uint64_t kExhaustiveStride = 23;
#else
constexpr std::uint64_t kExhaustiveStride = 1;
#endif
#else
constexpr std::uint64_t kExhaustiveStride = 1;
#endif

} // namespace orvo::testing
