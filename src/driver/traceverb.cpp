// The verb "trace": where a signal of a design is in what the design was lowered to.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/openeddesign.h"
#include "driver/passrun.h"
#include "driver/signaltrace.h"
#include "driver/suggest.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string source;
    std::string lowered;
    std::string signal;
};

std::string text(const std::vector<SignalTrace> &traces) {
    std::string out;
    for (const SignalTrace &trace : traces) {
        out += trace.signal + "\n";
        if (!trace.via.empty()) {
            out += fmt::format("  because {}\n", trace.via);
        }
        for (const SignalPlace &place : trace.places) {
            out += fmt::format("  is {}/{}.{}", place.model, place.block, place.wire);
            out += place.steps.empty() ? "" : fmt::format(": {}", fmt::join(place.steps, ", "));
            out += place.reader.empty() ? "" : fmt::format(", read by {}", place.reader);
            out += place.isJoint ? ", the whole signal\n" : "\n";
        }
        if (!trace.gone.empty()) {
            out += fmt::format("  {}\n", trace.gone);
        } else if (trace.places.empty()) {
            out += "  goes on below\n";
        }
    }
    return out;
}

Json toJson(const SignalPlace &place) {
    return {{"model", place.model}, {"block", place.block},
            {"wire", place.wire},   {"reader", place.reader.empty() ? Json() : Json(place.reader)},
            {"steps", place.steps}, {"whole", place.isJoint}};
}

Json toJson(const Arguments &arguments, const std::vector<SignalTrace> &traces) {
    Json json{{"schema", "orvo.trace/1"},
              {"source", arguments.source},
              {"lowered", arguments.lowered},
              {"signal", arguments.signal},
              {"traces", Json::array()}};
    for (const SignalTrace &trace : traces) {
        Json one{{"signal", trace.signal},
                 {"via", trace.via.empty() ? Json() : Json(trace.via)},
                 {"places", Json::array()},
                 {"gone", trace.gone.empty() ? Json() : Json(trace.gone)}};
        for (const SignalPlace &place : trace.places) {
            one["places"].push_back(toJson(place));
        }
        json["traces"].push_back(std::move(one));
    }
    return json;
}

int trace(const Arguments &arguments, Console &console) {
    const auto refuse = [&console](const char *reason) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", reason}});
    };
    if (arguments.source.empty() || arguments.lowered.empty()) {
        refuse("a design and what it was lowered to are needed");
    }
    if (arguments.source == "-" && arguments.lowered == "-") {
        refuse("only one design can come from standard input");
    }
    if (arguments.signal.empty()) {
        refuse("--signal is missing");
    }
    Progress progress(console);
    ContextMgr guard;
    guard.context()->setListener(&console);
    const std::unique_ptr<Design> source = readDesignOfAnswer(arguments.source, guard.context(), progress, console);
    const std::unique_ptr<Design> lowered = readDesignOfAnswer(arguments.lowered, guard.context(), progress, console);
    progress.phase("tracing");
    const FoundSignal found = findSignal(*source, arguments.signal);
    if (!found.signal) {
        const std::string near = suggest(found.wrong, found.known);
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE",
                     {{"reason", fmt::format("the design has no signal '{}'{}", arguments.signal,
                                             near.empty() ? "" : fmt::format(": did you mean '{}'?", near))}});
    }
    const std::vector<SignalTrace> traces = traceSignal(*found.signal, *source, *lowered);
    progress.hide();
    console.emit(console.json() ? documentText(toJson(arguments, traces)) : text(traces));
    const bool isFound =
        std::any_of(traces.begin(), traces.end(), [](const SignalTrace &one) { return !one.places.empty(); });
    return isFound ? kFine : kDesignErrors;
}

} // namespace

void addTraceVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "trace", "Tell where a signal of a design is in what it was lowered to");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->source, "Design XML as it was; - is standard input")->type_name("FILE");
    verb->add_option("OUT", arguments->lowered, "Design XML that came of it")->type_name("FILE");
    verb->add_option("--signal", arguments->signal, "A wire or port of IN, as model/block.wire or top/a/b/block/wire")
        ->type_name("PATH")
        ->check(namesSomething());
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return trace(*arguments, host.console); }; });
}

} // namespace orvo::driver
