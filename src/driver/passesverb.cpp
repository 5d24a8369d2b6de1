// The verb "passes": what each pass does, needs and takes, as the passes themselves tell it.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/suggest.h"

#include <orvo/context.h>
#include <orvo/pass.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

std::vector<PassRequest> requirements(const std::string &name) {
    const std::unique_ptr<Pass> pass(internal::findPassFactory(name)());
    PassDeclarations declarations;
    pass->declare(declarations);
    return declarations.getRequiredPasses();
}

std::string firstSentence(const std::string &text) {
    const std::size_t end = text.find(". ");
    return end == std::string::npos ? text : text.substr(0, end + 1);
}

Json toJson(const std::string &name) {
    const internal::DefaultParamSettings &settings = *internal::findPassSettings(name);
    Json json;
    json["name"] = name;
    json["description"] = settings.description();
    json["requires"] = Json::array();
    for (const PassRequest &request : requirements(name)) {
        json["requires"].push_back(request.name);
    }
    json["params"] = Json::array();
    for (const internal::ParamDeclaration &param : settings.declarations()) {
        const PureValueRef &value = param.getDefaultValue();
        Json entry;
        entry["name"] = param.getParamName();
        entry["default"] = value ? Json(value->toString()) : Json();
        entry["description"] = param.description();
        json["params"].push_back(std::move(entry));
    }
    return json;
}

std::string describe(const std::string &name) {
    const internal::DefaultParamSettings &settings = *internal::findPassSettings(name);
    std::string text = name + "\n\n" + settings.description() + "\n\nrequires: ";
    const char *separator = "";
    const std::vector<PassRequest> required = requirements(name);
    for (const PassRequest &request : required) {
        text += separator + request.name;
        separator = ", ";
    }
    text += required.empty() ? "nothing\n" : "\n";
    for (const internal::ParamDeclaration &param : settings.declarations()) {
        const PureValueRef &value = param.getDefaultValue();
        text += fmt::format("\n{} (default: {})\n  {}\n", param.getParamName(), value ? value->toString() : "none",
                            param.description());
    }
    return text;
}

std::string listAll(bool json) {
    if (json) {
        Json document;
        document["schema"] = "orvo.passes/1";
        document["passes"] = Json::array();
        for (const std::string &name : passNames()) {
            document["passes"].push_back(toJson(name));
        }
        return documentText(document);
    }
    std::string text;
    for (const std::string &name : passNames()) {
        text += fmt::format("{:<28} {}\n", name, firstSentence(internal::findPassSettings(name)->description()));
    }
    return text;
}

int passes(const std::string &name, Console &console) {
    ContextMgr guard;
    if (name.empty()) {
        console.emit(listAll(console.json()));
        return kFine;
    }
    if (internal::findPassSettings(name) == nullptr) {
        Console::Params params{{"pass", name}};
        if (const std::string near = suggest(name, passNames()); !near.empty()) {
            params["suggestion"] = near;
        }
        console.fail(kWrongUsage, "DRIVER_UNKNOWN_PASS", params);
    }
    if (console.json()) {
        Json document;
        document["schema"] = "orvo.passes/1";
        document["passes"] = Json::array({toJson(name)});
        console.emit(documentText(document));
    } else {
        console.emit(describe(name));
    }
    return kFine;
}

} // namespace

std::vector<std::string> passNames() { return internal::registeredPasses(); }

void addPassesVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "passes", "List the passes, or describe one");
    auto name = std::make_shared<std::string>();
    verb->add_option("NAME", *name, "The pass to describe")->type_name("PASS");
    verb->callback([&host, name] { host.action = [&host, name] { return passes(*name, host.console); }; });
}

} // namespace orvo::driver
