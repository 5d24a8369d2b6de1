// The verb "version".
#include "driver/verbs.h"

#include "driver/jsontext.h"

#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <util/features.h>

#include <CLI/CLI.hpp>

namespace orvo::driver {

namespace {

int version(Console &console) {
    ContextMgr guard;
    const std::size_t passes = passNames().size();
    const std::size_t blocks = blockNames().size();
    if (console.json()) {
        Json json;
        json["schema"] = "orvo.version/1";
        json["version"] = ORVO_VERSION;
        json["design_xml"] = "1.2";
        json["compiler"] = __VERSION__;
        json["passes"] = passes;
        json["blocks"] = blocks;
        console.emit(documentText(json));
    } else {
        console.emit("orvo " ORVO_VERSION "\ndesign XML 1.2, " + std::to_string(passes) + " passes, " +
                     std::to_string(blocks) + " block types\nbuilt with " __VERSION__ "\n");
    }
    return kFine;
}

} // namespace

std::vector<std::string> featureNames() {
    // The feature of the root directory is a text that only the look-up of the catalogue reads.
    std::vector<std::string> names = {"rootDirectory"};
    for (const KelmarFeature &feature : util::KnownFeatures()) {
        names.emplace_back(feature.name);
    }
    return names;
}

void addVersionVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "version", "Print the version");
    verb->callback([&host] { host.action = [&host] { return version(host.console); }; });
}

} // namespace orvo::driver
