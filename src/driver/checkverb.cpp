// The verb "check": a design against the block catalogue, and its latency constraints against the design.
#include "driver/verbs.h"

#include "driver/catalogue.h"
#include "driver/constraints.h"
#include "driver/files.h"
#include "driver/progress.h"

#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/design.h>

#include <CLI/CLI.hpp>

#include <memory>

namespace orvo::driver {

namespace {

int check(const std::string &input, Console &console) {
    if (input.empty()) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "the input design is missing"}});
    }
    Progress progress(console);
    ContextMgr guard;
    guard.context()->setListener(&console);
    InputFile file(input, console);
    progress.phase("reading");
    const std::unique_ptr<Design> design = readDesign(file, guard.context(), console);
    progress.phase("checking");
    std::vector<Finding> findings = checkDesign(*design, getBlocksInfo());
    for (Finding &finding : checkConstraints(*design)) {
        findings.push_back(std::move(finding));
    }
    if (!console.json()) {
        for (const Finding &finding : findings) {
            console.report(Severity::Error, finding.tag, finding.params, {file.name()});
        }
        return findings.empty() ? kFine : kDesignErrors;
    }
    Json json;
    json["schema"] = "orvo.check/1";
    json["input"] = input;
    json["findings"] = Json::array();
    for (const Finding &finding : findings) {
        json["findings"].push_back(toJson(finding));
    }
    console.emit(documentText(json));
    return findings.empty() ? kFine : kDesignErrors;
}

} // namespace

void addCheckVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "check", "Check a design against the block catalogue, and its latency constraints");
    auto input = std::make_shared<std::string>();
    verb->add_option("IN", *input, "Design XML to read; - is standard input")->type_name("FILE");
    verb->callback([&host, input] { host.action = [&host, input] { return check(*input, host.console); }; });
}

} // namespace orvo::driver
