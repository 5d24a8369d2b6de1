// The words that the driver has for each message: the library knows tags and parameters only. Also the texts of the
// design XML reader's errors and of what the driver itself reports.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::driver {

/// What the driver says about one tag. All parts point at constant data.
struct MessageText {
    /// The tag, in capitals.
    std::string_view tag;
    /// The one-line text, a template for renderMessage: {name} is the parameter of that name, and a part in square
    /// brackets stands only if all its parameters are present.
    std::string_view text;
    /// What has happened, in whole sentences.
    std::string_view meaning;
    /// What the user should do about it, in whole sentences.
    std::string_view cure;
};

/// The entry of `tag`, or null if there is none. Tags are compared letter by letter.
const MessageText *findMessageText(std::string_view tag);

/// All entries: errors, warnings, errors of the XML reader and the driver's own, each group in order of the tag.
std::vector<const MessageText *> allMessageTexts();

/// The text of `tag` with its parameters filled in. A placeholder whose parameter is absent is left out together with
/// its quotes and the blank before it. Parameters that found no place in the text follow as " (name=value, ...)". A tag
/// without an entry stands for its own text.
std::string renderMessage(std::string_view tag, const std::map<std::string, std::string> &params);

} // namespace orvo::driver
