// The verb "check": a design against the block catalogue, its latency constraints, what may stand in front of the
// scheduler, and its types.
#include "driver/verbs.h"

#include "driver/catalogue.h"
#include "driver/constraints.h"
#include "driver/findingcollector.h"
#include "driver/openeddesign.h"
#include "driver/typefailures.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string_view>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string input;
    std::vector<std::string> traced;
};

/// Whether tags connect signals, across which no type goes before they are wires.
bool hasTags(const Design &design) {
    return std::any_of(design.begin(), design.end(), [](const Model &model) {
        return std::any_of(model.begin(), model.end(), [](const Block &block) {
            return block.type() == A_FROM_BLOCK.get_ptr() || block.type() == A_GOTO_BLOCK.get_ptr();
        });
    });
}

/// Runs the gate in front of the scheduler, and keeps the types that it asked for.
PassResults validate(Design &design) {
    PassScheduler scheduler;
    scheduler.requirePass(GlobalTypePass::sName);
    if (hasTags(design)) {
        scheduler.addPass("ElideFromGotoPass");
    }
    scheduler.addPass("ValidateModelPass");
    return scheduler.apply(design);
}

/// What the gate says of signals without a type, the report on types says together with the cause.
bool isOfReport(const Finding &finding) {
    return std::string_view(finding.tag) == msg::error::UNABLE_TO_INFER_TYPE.text;
}

bool isError(const Finding &finding) { return finding.severity == Severity::Error; }

void tell(const std::vector<Finding> &findings, const TypeFailures &types, const std::string &file, Console &console) {
    for (const Finding &finding : findings) {
        console.report(finding.severity, finding.tag, finding.params, {file});
    }
    if (types.any()) {
        console.report(Severity::Error, "DRIVER_CHECK_MISSING_TYPES",
                       {{"blocks", std::to_string(types.blocks())}, {"models", std::to_string(types.models())}},
                       {file});
        console.emit(types.text());
    }
}

Json documentOf(const std::vector<Finding> &findings, const TypeFailures &types, const std::string &input) {
    Json json;
    json["schema"] = "orvo.check/1";
    json["input"] = input;
    json["findings"] = Json::array();
    for (const Finding &finding : findings) {
        json["findings"].push_back(toJson(finding));
    }
    json["types"] = types.json();
    return json;
}

int check(const Arguments &arguments, Console &console) {
    OpenedDesign opened(arguments.input, console);
    opened.progress.phase("checking");
    std::vector<Finding> findings = checkDesign(*opened.design, getBlocksInfo());
    for (Finding &finding : checkConstraints(*opened.design)) {
        findings.push_back(std::move(finding));
    }
    opened.progress.phase("inferring types");
    const FindingCollector collector(*opened.design->getContext());
    const PassResults results = validate(*opened.design);
    TypeFailures types(*results.getPass<GlobalTypePass>(), *opened.design);
    std::remove_copy_if(collector.findings().begin(), collector.findings().end(), std::back_inserter(findings),
                        isOfReport);
    opened.progress.hide();
    for (const std::string &block : arguments.traced) {
        if (const std::string reason = types.addTrace(block); !reason.empty()) {
            console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", reason}});
        }
    }
    const bool fails = std::any_of(findings.begin(), findings.end(), isError) || types.any() || console.errors() != 0;
    if (console.json()) {
        console.emit(documentText(documentOf(findings, types, arguments.input)));
    } else {
        tell(findings, types, opened.file.name(), console);
    }
    return fails ? kDesignErrors : kFine;
}

} // namespace

void addCheckVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "check",
                             "Check a design against the block catalogue, its latency constraints, what the scheduler "
                             "takes, and its types");
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
