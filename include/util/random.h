// Numbers by chance that are the same on every machine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace util {

/// The generator of Steele, Lea and Flood, "Fast splittable pseudorandom number generators" (2014).
class SplitMix {
  public:
    explicit SplitMix(std::uint64_t seed) : mState(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (mState += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31U);
    }
    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(next() % bound); }
    /// The number at one place of the sequence of a seed, without those before it.
    static std::uint64_t at(std::uint64_t seed, std::uint64_t place) {
        return SplitMix(seed + place * 0x9e3779b97f4a7c15ULL).next();
    }

  private:
    std::uint64_t mState;
};

} // namespace util
