// The verb "check": a design against the block catalogue, its latency constraints, and its types.
#include "driver/verbs.h"

#include "driver/catalogue.h"
#include "driver/constraints.h"
#include "driver/openeddesign.h"
#include "driver/typefailures.h"

#include <orvo/blocksinfo.h>

#include <CLI/CLI.hpp>

#include <memory>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string input;
    std::vector<std::string> traced;
};

int check(const Arguments &arguments, Console &console) {
    OpenedDesign opened(arguments.input, console);
    opened.progress.phase("checking");
    std::vector<Finding> findings = checkDesign(*opened.design, getBlocksInfo());
    for (Finding &finding : checkConstraints(*opened.design)) {
        findings.push_back(std::move(finding));
    }
    opened.progress.phase("inferring types");
    TypeFailures types(*opened.design);
    opened.progress.hide();
    for (const std::string &block : arguments.traced) {
        if (const std::string reason = types.addTrace(block); !reason.empty()) {
            console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", reason}});
        }
    }
    const int exitCode = findings.empty() && !types.any() && console.errors() == 0 ? kFine : kDesignErrors;
    if (!console.json()) {
        for (const Finding &finding : findings) {
            console.report(Severity::Error, finding.tag, finding.params, {opened.file.name()});
        }
        if (types.any()) {
            console.report(Severity::Error, "DRIVER_CHECK_MISSING_TYPES",
                           {{"blocks", std::to_string(types.blocks())}, {"models", std::to_string(types.models())}},
                           {opened.file.name()});
            console.emit(types.text());
        }
        return exitCode;
    }
    Json json;
    json["schema"] = "orvo.check/1";
    json["input"] = arguments.input;
    json["findings"] = Json::array();
    for (const Finding &finding : findings) {
        json["findings"].push_back(toJson(finding));
    }
    json["types"] = types.json();
    console.emit(documentText(json));
    return exitCode;
}

} // namespace

void addCheckVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb =
        addVerb(app, "check", "Check a design against the block catalogue, its latency constraints, and its types");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("--trace", arguments->traced,
                     "Tell how missing types came to this block, as top/a/block; may be repeated")
        ->type_name("BLOCK")
        ->allow_extra_args(false);
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return check(*arguments, host.console); }; });
}

} // namespace orvo::driver
