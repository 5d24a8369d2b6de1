// The edit distance with swaps of neighbours (Damerau 1964, in the restricted form of "optimal string alignment"), and
// the choice among candidates.
#include "driver/suggest.h"

#include <algorithm>

namespace orvo::driver {

namespace {

/// Nothing of ours has a name of this length, so that a longer text is near to nothing.
constexpr std::size_t kLongestName = 200;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool same(char a, char b) { return lower(a) == lower(b); }

bool beginsWith(std::string_view text, std::string_view start) {
    return text.size() > start.size() && std::equal(start.begin(), start.end(), text.begin(), same);
}

} // namespace

std::size_t editDistance(std::string_view a, std::string_view b) {
    const std::size_t width = b.size() + 1;
    std::vector<std::size_t> beforeLast(width);
    std::vector<std::size_t> last(width);
    std::vector<std::size_t> row(width);
    for (std::size_t j = 0; j < width; ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = i;
        for (std::size_t j = 1; j < width; ++j) {
            const std::size_t replaced = last[j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1])) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
    }
    return row.back();
}

std::string suggest(std::string_view wrong, const std::vector<std::string> &candidates) {
    if (wrong.empty() || wrong.size() > kLongestName) {
        return {};
    }
    const std::string *best = nullptr;
    std::size_t bestDistance = (wrong.size() + 2) / 3 + 1;
    for (const std::string &candidate : candidates) {
        const std::size_t distance = editDistance(wrong, candidate);
        if (distance < bestDistance && distance < candidate.size()) {
            best = &candidate;
            bestDistance = distance;
        }
    }
    if (best != nullptr) {
        return *best;
    }
    for (const std::string &candidate : candidates) {
        if (beginsWith(candidate, wrong) && (best == nullptr || candidate.size() < best->size())) {
            best = &candidate;
        }
    }
    return best != nullptr ? *best : std::string();
}

} // namespace orvo::driver
