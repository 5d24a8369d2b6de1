// All small fixed-point types, those whose point lies outside their bits included.
#pragma once

#include <string>
#include <vector>

namespace orvo::test {

struct SmallFormat {
    int width;
    int fraction;
    bool isSigned;
    /// As a type's value.
    std::string text() const {
        return std::string(isSigned ? "(typeSFixed " : "(typeUFixed ") + std::to_string(width - fraction) + " " +
               std::to_string(fraction) + ")";
    }
};

/// From one bit on up to so many; the point stands up to so many places beyond either end.
inline std::vector<SmallFormat> smallFormats(int mostBits, int beyond = 2) {
    std::vector<SmallFormat> all;
    for (int width = 1; width <= mostBits; ++width) {
        for (int fraction = -beyond; fraction <= width + beyond; ++fraction) {
            all.push_back({width, fraction, false});
            all.push_back({width, fraction, true});
        }
    }
    return all;
}

} // namespace orvo::test
