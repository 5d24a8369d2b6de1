// The table of message texts, made from its list, and the filling in of parameters. The templates come from the list
// alone, never from a user, so that their form is checked by a test and not here.
#include "driver/message_texts.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace orvo::driver {

namespace {

using Parameters = std::map<std::string, std::string>;

constexpr MessageText kMessageTexts[] = {
#define ORVO_MESSAGE_TEXT(tag, text, meaning, cure) {#tag, text, meaning, cure},
#include "driver/message_texts.def"
#undef ORVO_MESSAGE_TEXT
};

/// A text with its parameters filled in so far, and the names of those that have found a place.
class Rendering {
  public:
    explicit Rendering(const Parameters &params) : mParams(params) {}

    /// Fills in a whole template, with its parts in square brackets.
    void addTemplate(std::string_view text) {
        while (!text.empty()) {
            const auto open = text.find('[');
            addPlain(text.substr(0, open));
            if (open == std::string_view::npos)
                return;
            const auto close = std::min(text.find(']', open), text.size());
            const auto part = text.substr(open + 1, close - open - 1);
            if (hasAllParameters(part))
                addPlain(part);
            text.remove_prefix(std::min(close + 1, text.size()));
        }
    }

    /// Appends the parameters that have found no place in the text.
    void addUnusedParameters() {
        const char *separator = " (";
        for (const auto &[name, value] : mParams) {
            if (mUsed.count(name) != 0)
                continue;
            mOut.append(separator).append(name).append("=").append(value);
            separator = ", ";
        }
        if (separator[0] == ',')
            mOut += ')';
    }

    const std::string &text() const { return mOut; }

  private:
    /// The name inside the first placeholder of `text`, which is cut down to what follows it; `before` gets what stands
    /// in front. False when there is no placeholder, with all of the text in `before`.
    static bool nextPlaceholder(std::string_view &text, std::string_view &before, std::string_view &name) {
        const auto open = text.find('{');
        const auto close = open == std::string_view::npos ? open : text.find('}', open);
        if (close == std::string_view::npos) {
            before = text;
            text = {};
            return false;
        }
        before = text.substr(0, open);
        name = text.substr(open + 1, close - open - 1);
        text.remove_prefix(close + 1);
        return true;
    }

    bool hasAllParameters(std::string_view part) const {
        std::string_view before;
        std::string_view name;
        while (nextPlaceholder(part, before, name)) {
            if (mParams.count(std::string(name)) == 0)
                return false;
        }
        return true;
    }

    void addPlain(std::string_view text) {
        std::string_view before;
        std::string_view name;
        while (nextPlaceholder(text, before, name)) {
            mOut.append(before);
            const auto found = mParams.find(std::string(name));
            if (found != mParams.end()) {
                mOut.append(found->second);
                mUsed.insert(found->first);
            } else {
                dropQuotesAndBlank(before, text);
            }
        }
        mOut.append(before);
    }

    /// Takes away what would be left around an absent parameter: a pair of quotes and one blank.
    void dropQuotesAndBlank(std::string_view before, std::string_view &after) {
        if (!before.empty() && before.back() == '\'' && !after.empty() && after.front() == '\'') {
            mOut.pop_back();
            before.remove_suffix(1);
            after.remove_prefix(1);
        }
        if (!before.empty() && before.back() == ' ')
            mOut.pop_back();
        else if (mOut.empty() && !after.empty() && after.front() == ' ')
            after.remove_prefix(1);
    }

    const Parameters &mParams;
    std::set<std::string> mUsed;
    std::string mOut;
};

} // namespace

const MessageText *findMessageText(std::string_view tag) {
    const auto *const found = std::find_if(std::begin(kMessageTexts), std::end(kMessageTexts),
                                           [tag](const MessageText &entry) { return entry.tag == tag; });
    return found == std::end(kMessageTexts) ? nullptr : found;
}

std::vector<const MessageText *> allMessageTexts() {
    std::vector<const MessageText *> all;
    all.reserve(std::size(kMessageTexts));
    for (const MessageText &entry : kMessageTexts)
        all.push_back(&entry);
    return all;
}

std::string renderMessage(std::string_view tag, const std::map<std::string, std::string> &params) {
    const MessageText *const entry = findMessageText(tag);
    Rendering rendering(params);
    rendering.addTemplate(entry != nullptr ? entry->text : tag);
    rendering.addUnusedParameters();
    return rendering.text();
}

} // namespace orvo::driver
