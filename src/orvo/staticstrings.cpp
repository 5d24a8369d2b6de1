// Defines the well-known texts. They are made before other globals of the library, so that a table with static lifetime
// may refer to them.
#include <orvo/staticstrings.h>

#include <string_view>

namespace orvo {

namespace {

struct ListRow {
    std::string_view name;
    bool opensGroup;
};

constexpr ListRow kRows[] = {
#define ORVO_STRING_GROUP(name) {#name, true},
#define ORVO_STRING(name, text) {#name, false},
#include <orvo/staticstrings.def>
#undef ORVO_STRING
#undef ORVO_STRING_GROUP
};

constexpr bool groupsAreSorted() {
    for (std::size_t i = 1; i < std::size(kRows); ++i) {
        if (!kRows[i].opensGroup && !kRows[i - 1].opensGroup && kRows[i - 1].name >= kRows[i].name) {
            return false;
        }
    }
    return true;
}

static_assert(groupsAreSorted(), "inside a group of staticstrings.def the rows stand in ASCII order of the constant");

} // namespace

#define ORVO_STRING_GROUP(name)
#define ORVO_STRING(name, text) __attribute__((init_priority(1000))) const StaticString name(text);
#include <orvo/staticstrings.def>
#undef ORVO_STRING
#undef ORVO_STRING_GROUP

namespace {

constexpr StaticStringEntry kEntries[] = {
#define ORVO_STRING_GROUP(name)
#define ORVO_STRING(name, text) {#name, &name},
#include <orvo/staticstrings.def>
#undef ORVO_STRING
#undef ORVO_STRING_GROUP
};

} // namespace

std::span<const StaticStringEntry> staticStrings() { return kEntries; }

} // namespace orvo
