// The driver's texts against the library's list of messages, row by row in both directions, and how parameters are
// filled into them.
#include "driver/message_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvo {

namespace {

struct MessageInfo {
    const char *severity;
    const char *tag;
    const char *params;
};

constexpr MessageInfo kMessages[] = {
#define ORVO_MESSAGE(severity, tag, params) {#severity, #tag, params},
#include <orvo/messages.def>
#undef ORVO_MESSAGE
};

constexpr const char *kXmlErrors[] = {
    "ERR_MALFORMED_XML",
    "ERR_BAD_TOPLEVEL_NAMESPACE",
    "ERR_BAD_TOPLEVEL_ELEMENT",
    "ERR_BAD_PARAM_NAME",
    "ERR_BAD_PARAM_VALUE",
    "ERR_DUPLICATE_PARAM_NAME",
    "ERR_UNEXPECTED_WIRE_ELEMENT",
    "ERR_BAD_WIRE_NAME",
    "ERR_UNEXPECTED_BLOCK_ELEMENT",
    "ERR_BAD_BLOCK_NAME",
    "ERR_UNEXPECTED_MODEL_ELEMENT",
    "ERR_BAD_MODEL_NAME",
    "ERR_UNEXPECTED_DESIGN_ELEMENT",
    "ERR_NO_DESIGN_ELEMENT",
    "ERR_NO_COMPATIBLE_DESIGN_ELEMENT",
    "ERR_VALUE_RESOLUTION_FAILED",
};

std::vector<std::string> parameterNames(std::string_view list) {
    std::vector<std::string> names;
    while (!list.empty()) {
        const auto comma = std::min(list.find(','), list.size());
        names.emplace_back(list.substr(0, comma));
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
    return names;
}

std::set<std::string> placeholders(std::string_view text) {
    std::set<std::string> names;
    for (auto open = text.find('{'); open != std::string_view::npos; open = text.find('{', open + 1))
        names.emplace(text.substr(open + 1, text.find('}', open) - open - 1));
    return names;
}

/// Whether optional parts and placeholders open and close in turn, optional parts are not nested, and each holds a
/// placeholder.
bool isWellFormed(std::string_view text) {
    bool inPart = false;
    bool inName = false;
    bool partHasName = false;
    for (const char c : text) {
        const bool legal = c == '['   ? !inPart && !inName
                           : c == ']' ? inPart && !inName && partHasName
                           : c == '{' ? !inName
                           : c == '}' ? inName
                                      : true;
        if (!legal)
            return false;
        inPart = (inPart || c == '[') && c != ']';
        inName = (inName || c == '{') && c != '}';
        partHasName = inPart && c != '[' && (partHasName || c == '{');
    }
    return !inPart && !inName;
}

const MessageInfo *findMessage(std::string_view tag) {
    for (const MessageInfo &message : kMessages) {
        if (tag == message.tag)
            return &message;
    }
    return nullptr;
}

bool isXmlError(std::string_view tag) {
    return std::find(std::begin(kXmlErrors), std::end(kXmlErrors), tag) != std::end(kXmlErrors);
}

TEST(MessageList, isSortedByTagWithErrorsBeforeWarnings) {
    for (std::size_t i = 1; i < std::size(kMessages); ++i) {
        const auto &previous = kMessages[i - 1];
        const auto &current = kMessages[i];
        const int severities = std::strcmp(previous.severity, current.severity);
        EXPECT_TRUE(severities < 0 || (severities == 0 && std::strcmp(previous.tag, current.tag) < 0)) << current.tag;
    }
}

TEST(MessageList, namesEachParameterOnce) {
    for (const MessageInfo &message : kMessages) {
        const auto names = parameterNames(message.params);
        EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size()) << message.tag;
        for (const auto &name : names)
            EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"),
                      std::string::npos)
                << message.tag << ": " << name;
    }
}

TEST(MessageTexts, hasAnEntryForEachMessage) {
    for (const MessageInfo &message : kMessages)
        EXPECT_NE(driver::findMessageText(message.tag), nullptr)
            << message.tag << ": add it to src/driver/message_texts.def";
}

TEST(MessageTexts, hasAnEntryForEachErrorOfTheXmlReader) {
    for (const char *const tag : kXmlErrors)
        EXPECT_NE(driver::findMessageText(tag), nullptr) << tag;
}

TEST(MessageTexts, hasNoEntryForAnUnknownTag) {
    for (const driver::MessageText *entry : driver::allMessageTexts()) {
        const bool known =
            findMessage(entry->tag) != nullptr || isXmlError(entry->tag) || entry->tag.substr(0, 7) == "DRIVER_";
        EXPECT_TRUE(known) << entry->tag;
    }
    EXPECT_EQ(driver::findMessageText("NO_SUCH_TAG"), nullptr);
    EXPECT_EQ(driver::findMessageText("from_unknown_tag"), nullptr);
    EXPECT_EQ(driver::findMessageText(""), nullptr);
}

TEST(MessageTexts, hasOneEntryForATag) {
    std::set<std::string_view> tags;
    for (const driver::MessageText *entry : driver::allMessageTexts()) {
        EXPECT_TRUE(tags.insert(entry->tag).second) << entry->tag;
        EXPECT_EQ(driver::findMessageText(entry->tag), entry);
    }
}

TEST(MessageTexts, saysTextMeaningAndCureInDifferentWords) {
    std::set<std::string_view> texts;
    std::set<std::string_view> meanings;
    for (const driver::MessageText *entry : driver::allMessageTexts()) {
        EXPECT_FALSE(entry->text.empty()) << entry->tag;
        EXPECT_FALSE(entry->meaning.empty()) << entry->tag;
        EXPECT_FALSE(entry->cure.empty()) << entry->tag;
        EXPECT_NE(entry->text, entry->meaning) << entry->tag;
        EXPECT_NE(entry->meaning, entry->cure) << entry->tag;
        EXPECT_NE(entry->text, entry->cure) << entry->tag;
        EXPECT_TRUE(texts.insert(entry->text).second) << entry->tag;
        EXPECT_TRUE(meanings.insert(entry->meaning).second) << entry->tag;
    }
}

TEST(MessageTexts, writesMeaningAndCureAsSentencesAndTextsAsLines) {
    for (const driver::MessageText *entry : driver::allMessageTexts()) {
        ASSERT_FALSE(entry->text.empty() || entry->meaning.empty() || entry->cure.empty()) << entry->tag;
        EXPECT_NE(entry->text.back(), '.') << entry->tag;
        EXPECT_EQ(entry->meaning.back(), '.') << entry->tag;
        EXPECT_EQ(entry->cure.back(), '.') << entry->tag;
        for (const std::string_view part : {entry->text, entry->meaning, entry->cure}) {
            EXPECT_EQ(part.find('\n'), std::string_view::npos) << entry->tag;
            EXPECT_EQ(part.find("  "), std::string_view::npos) << entry->tag;
        }
    }
}

TEST(MessageTexts, hasWellFormedTemplates) {
    for (const driver::MessageText *entry : driver::allMessageTexts())
        EXPECT_TRUE(isWellFormed(entry->text)) << entry->tag << ": " << entry->text;
}

TEST(MessageTexts, hasAPlaceholderForEachParameterAndNoOther) {
    for (const MessageInfo &message : kMessages) {
        const driver::MessageText *const entry = driver::findMessageText(message.tag);
        ASSERT_NE(entry, nullptr) << message.tag;
        const auto names = parameterNames(message.params);
        EXPECT_EQ(placeholders(entry->text), std::set<std::string>(names.begin(), names.end())) << message.tag;
    }
}

TEST(MessageTexts, rendersEveryMessageWithAllParametersWithoutLeftovers) {
    for (const MessageInfo &message : kMessages) {
        std::map<std::string, std::string> params;
        for (const auto &name : parameterNames(message.params))
            params[name] = "<" + name + ">";
        const std::string text = driver::renderMessage(message.tag, params);
        EXPECT_EQ(text.find_first_of("{}[]="), std::string::npos) << text;
        for (const auto &[name, value] : params)
            EXPECT_NE(text.find(value), std::string::npos) << text << " lacks " << name;
    }
}

TEST(MessageTexts, rendersEveryMessageWithoutParametersWithoutGaps) {
    for (const driver::MessageText *entry : driver::allMessageTexts()) {
        const std::string text = driver::renderMessage(entry->tag, {});
        EXPECT_FALSE(text.empty()) << entry->tag;
        EXPECT_EQ(text.find_first_of("{}[]"), std::string::npos) << text;
        EXPECT_EQ(text.find("  "), std::string::npos) << text;
        EXPECT_EQ(text.find("''"), std::string::npos) << text;
        EXPECT_NE(text.front(), ' ') << text;
        EXPECT_NE(text.back(), ' ') << text;
    }
}

/// Renders with parameters written as name=value.
std::string render(const char *tag, const std::vector<std::string> &assignments) {
    std::map<std::string, std::string> params;
    for (const auto &assignment : assignments) {
        const auto equals = assignment.find('=');
        params[assignment.substr(0, equals)] = assignment.substr(equals + 1);
    }
    return driver::renderMessage(tag, params);
}

TEST(RenderMessage, fillsInParameters) {
    EXPECT_EQ(render("FROM_UNKNOWN_TAG", {"tag=clk", "block=[/top/From]"}),
              "no Goto block with tag 'clk' is visible to From block '[/top/From]'");
}

TEST(RenderMessage, leavesOutAnAbsentParameterWithItsQuotesAndBlank) {
    EXPECT_EQ(render("FROM_UNKNOWN_TAG", {"tag=clk"}), "no Goto block with tag 'clk' is visible to From block");
    EXPECT_EQ(render("DUALMEM_ADDRESS_TRUNCATION", {"block=ram"}),
              "address of dual memory 'ram' is wider than the bits that its depth needs: the upper bits are ignored");
}

TEST(RenderMessage, leavesOutAnOptionalPartThatLacksAParameter) {
    EXPECT_EQ(render("MISSING_DATATYPE", {"portOrWire=q", "block=add"}), "no type is known for 'q' of block 'add'");
    EXPECT_EQ(render("MISSING_DATATYPE", {"portOrWire=q"}), "no type is known for 'q'");
}

TEST(RenderMessage, appendsParametersThatHaveNoPlaceInOrderOfName) {
    EXPECT_EQ(render("FROM_MISSING_TAG", {"zone=2", "block=f", "model=m"}),
              "From block 'f' has no tag (model=m, zone=2)");
}

TEST(RenderMessage, appendsAParameterWhoseOptionalPartIsLeftOut) {
    EXPECT_EQ(render("NON_TREE_INLINED_SCHEDULE", {"model=m", "refer=2"}),
              "model 'm' is to be scheduled inline but has more than one instance (refer=2)");
}

TEST(RenderMessage, takesValuesAsTheyAre) {
    EXPECT_EQ(render("GOTO_MISSING_TAG", {"block={block}[x]'"}), "Goto block '{block}[x]'' has no tag");
}

TEST(RenderMessage, saysTheTagItselfWithoutAnEntry) {
    EXPECT_EQ(render("NO_SUCH_TAG", {}), "NO_SUCH_TAG");
    EXPECT_EQ(render("NO_SUCH_TAG", {"a=1", "b=2"}), "NO_SUCH_TAG (a=1, b=2)");
}

} // namespace

} // namespace orvo
