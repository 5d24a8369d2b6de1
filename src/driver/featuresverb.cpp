// The verb "features": the process-wide switches, with their kinds and defaults.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/suggest.h"

#include <util/features.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

const char *kindName(KelmarFeature::Kind kind) {
    switch (kind) {
    case KelmarFeature::Kind::Boolean:
        return "boolean";
    case KelmarFeature::Kind::Integer:
        return "integer";
    case KelmarFeature::Kind::Number:
        return "number";
    case KelmarFeature::Kind::String:
        break;
    }
    return "text";
}

int features(const std::string &name, Console &console) {
    Json json;
    json["schema"] = "orvo.features/1";
    json["features"] = Json::array();
    std::string text;
    for (const KelmarFeature &feature : util::KnownFeatures()) {
        if (!name.empty() && feature.name != name) {
            continue;
        }
        Json entry;
        entry["name"] = feature.name;
        entry["kind"] = kindName(feature.kind);
        entry["default"] = feature.defaultText;
        entry["description"] = feature.description;
        json["features"].push_back(std::move(entry));
        text += fmt::format("{:<34} {:<8} {:<9} {}\n", feature.name, kindName(feature.kind), feature.defaultText,
                            feature.description);
    }
    if (text.empty()) {
        const std::string near = suggest(name, featureNames());
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE",
                     {{"reason",
                       "there is no feature '" + name + "'" + (near.empty() ? "" : ": did you mean '" + near + "'?")}});
    }
    console.emit(console.json() ? documentText(json) : text);
    return kFine;
}

} // namespace

void addFeaturesVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "features", "List the features that --feature sets, or describe one");
    auto name = std::make_shared<std::string>();
    verb->add_option("NAME", *name, "The feature")->type_name("FEATURE");
    verb->callback([&host, name] { host.action = [&host, name] { return features(*name, host.console); }; });
}

} // namespace orvo::driver
