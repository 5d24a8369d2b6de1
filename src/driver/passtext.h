// The text form of a list of passes, as the option --passes and pass files have it:
//
//     ElideTerminalPass, DumpXMLPass{P_FILENAME="out.xml", P_CLOBBER=A_TRUE}   # a comment
//
// Passes stand apart by commas or new lines. Those in "repeat(...)" run in turns until a turn changes nothing. Reading
// tells where a text is wrong; whether the passes exist and know
// their parameters is a second step, so that a text can be read without a library that knows them.
#pragma once

#include <orvo/value.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvo {
class PassScheduler;
}

namespace orvo::driver {

/// Where something stands in a text, both counted from 1; columns count bytes.
struct TextPosition {
    int line = 1;
    int column = 1;
    bool operator==(const TextPosition &other) const { return line == other.line && column == other.column; }
};

/// One pass of a list.
struct PassText {
    std::string name;
    /// In the order of the text; no name comes twice.
    std::vector<std::pair<std::string, PureValueRef>> params;
    TextPosition position;
    /// Where each parameter's name stands, in the order of `params`.
    std::vector<TextPosition> paramPositions;
    /// Whether the pass is the first, and the last, of those that run in turns.
    bool beginsTurns = false;
    bool endsTurns = false;
};

/// What is wrong with a text, and where.
struct PassTextError {
    TextPosition position;
    std::string reason;
};

/// Reads a whole list, which may be empty, and appends it to `passes`; what stood there stays. Names are letters,
/// digits and "_" and begin with a letter or "_". Values are in their text form and refer to no node. A text beyond
/// `limits::kPassTextBytes` is an error like any other.
std::optional<PassTextError> parsePassText(std::string_view text, Context *context, std::vector<PassText> &passes);

/// One pass without its neighbours, or a whole list on one line, which `parsePassText` reads back to the same list.
std::string printPassText(const PassText &pass);
std::string printPassTexts(const std::vector<PassText> &passes);

/// The list's items one by one: a pass that stands alone, or all that run in turns. Turns that are cut off at either
/// end of the list run once.
std::vector<std::string> printPassItems(const std::vector<PassText> &passes);

/// What is still to run when a pass of the list is due: that pass and all behind it. Inside turns the rest of the turn
/// comes first, and then the turns begin anew.
std::vector<PassText> passesFrom(const std::vector<PassText> &passes, std::size_t first);

/// Hands the list to a scheduler. Passes and parameters that do not exist are assertions.
void addPasses(PassScheduler &scheduler, const std::vector<PassText> &passes);

/// A pass or a parameter that does not exist.
struct UnknownInPassText {
    TextPosition position;
    std::string pass;
    /// Empty if the pass itself is unknown.
    std::string param;
    /// The nearest known name; empty if none is near.
    std::string suggestion;
};

/// The first thing in the list that the registered passes do not know.
std::optional<UnknownInPassText> findUnknown(const std::vector<PassText> &passes);

} // namespace orvo::driver
