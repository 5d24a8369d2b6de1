// The verb "explain": what a message means and what to do about it.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/message_texts.h"
#include "driver/suggest.h"

#include <orvo/logging.h>
#include <util/strings.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

/// The parameters that the text of a message of the driver names, in the order of the text.
std::vector<std::string> placeholders(std::string_view text) {
    std::vector<std::string> names;
    for (std::size_t open = text.find('{'); open != std::string_view::npos; open = text.find('{', open + 1)) {
        names.emplace_back(text.substr(open + 1, text.find('}', open) - open - 1));
    }
    return names;
}

std::vector<std::string> paramsOf(const MessageText &message) {
    const MessageInfo *info = findMessage(message.tag);
    if (info == nullptr) {
        return placeholders(message.text);
    }
    return *info->parameters == '\0' ? std::vector<std::string>() : util::split(info->parameters, ",");
}

const char *severityOf(const MessageText &message) {
    const std::string_view tag = message.tag;
    if (tag == "DRIVER_BAD_FEATURE" || tag == "DRIVER_DIAGNOSTIC") {
        return "error or warning";
    }
    const MessageInfo *info = findMessage(message.tag);
    return info != nullptr && info->severity == Severity::Warning ? "warning" : "error";
}

Json toJson(const MessageText &message) {
    Json json;
    json["tag"] = message.tag;
    json["severity"] = severityOf(message);
    json["text"] = message.text;
    json["params"] = paramsOf(message);
    json["meaning"] = message.meaning;
    json["cure"] = message.cure;
    return json;
}

std::string describe(const MessageText &message) {
    std::string text = fmt::format("{} ({})\n\n{}\n\n{}\n\nWhat to do: {}\n", message.tag, severityOf(message),
                                   message.text, message.meaning, message.cure);
    const std::vector<std::string> params = paramsOf(message);
    if (!params.empty()) {
        text += fmt::format("\nParameters: {}\n", fmt::join(params, ", "));
    }
    return text;
}

std::string documentOf(const std::vector<const MessageText *> &messages) {
    Json json;
    json["schema"] = "orvo.explain/1";
    json["messages"] = Json::array();
    for (const MessageText *message : messages) {
        json["messages"].push_back(toJson(*message));
    }
    return documentText(json);
}

int explain(const std::string &tag, Console &console) {
    if (tag.empty()) {
        std::string text;
        for (const MessageText *message : allMessageTexts()) {
            text += fmt::format("{:<16} {}\n", severityOf(*message), message->tag);
        }
        console.emit(console.json() ? documentOf(allMessageTexts()) : text);
        return kFine;
    }
    const MessageText *message = findMessageText(tag);
    if (message == nullptr) {
        Console::Params params{{"tag", tag}};
        if (const std::string near = suggest(tag, messageTags()); !near.empty()) {
            params["suggestion"] = near;
        }
        console.fail(kWrongUsage, "DRIVER_UNKNOWN_MESSAGE", params);
    }
    console.emit(console.json() ? documentOf({message}) : describe(*message));
    return kFine;
}

} // namespace

std::vector<std::string> messageTags() {
    std::vector<std::string> tags;
    for (const MessageText *message : allMessageTexts()) {
        tags.emplace_back(message->tag);
    }
    return tags;
}

void addExplainVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "explain", "Explain a message by its tag, or list the tags");
    auto tag = std::make_shared<std::string>();
    verb->add_option("TAG", *tag, "The tag, as it stands in brackets behind the message")->type_name("TAG");
    verb->callback([&host, tag] { host.action = [&host, tag] { return explain(*tag, host.console); }; });
}

} // namespace orvo::driver
