// Declares the well-known texts: `A_` keys, values and block types, `P_` pass parameters, `U_` block types of
// unscheduled regions. The list is staticstrings.def; a new text is one row there.
#pragma once

#include <orvo/value.h>

#include <span>

namespace orvo {

#define ORVO_STRING_GROUP(name)
#define ORVO_STRING(name, text) extern ORVO_API const StaticString name;
#include <orvo/staticstrings.def>
#undef ORVO_STRING
#undef ORVO_STRING_GROUP

/// One row of the list: a constant's name, and the constant.
struct StaticStringEntry {
    const char *name;
    const StaticString *string;
};

/// All well-known texts in the order of the list.
ORVO_API std::span<const StaticStringEntry> staticStrings();

} // namespace orvo
