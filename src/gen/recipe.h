// What a design by chance is made from: a list of recipes, one a block, each a list of numbers. Taking recipes out of
// the list or making numbers smaller gives a smaller or simpler design, which is how a failure shrinks.
#pragma once

#include <util/random.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo::gen {

struct Recipe {
    /// Which kind of thing to add.
    std::uint32_t kind = 0;
    /// What the choices on the way read, one after the other; zeros behind the last. Zero is always the simplest.
    std::vector<std::uint32_t> choices;
};

/// Reads the choices of a recipe. Further attempts read other numbers made from the same ones.
class Chooser {
  public:
    Chooser(const Recipe &recipe, std::uint32_t attempt) : mRecipe(recipe), mAttempt(attempt) {}
    std::uint32_t next() {
        const std::uint32_t number = mAt < mRecipe.choices.size() ? mRecipe.choices[mAt] : 0;
        ++mAt;
        return mAttempt == 0 ? number
                             : static_cast<std::uint32_t>(util::SplitMix::at(number + mAttempt * kStride, mAt) >> 32U);
    }
    /// Below a bound that is not zero.
    std::size_t below(std::size_t bound) { return next() % bound; }
    /// True in `count` of `of` cases; zero gives false.
    bool chance(std::size_t count, std::size_t of) { return below(of) >= of - count; }

  private:
    static constexpr std::uint64_t kStride = std::uint64_t{1} << 32U;

    const Recipe &mRecipe;
    std::uint64_t mAttempt;
    std::size_t mAt = 0;
};

} // namespace orvo::gen
