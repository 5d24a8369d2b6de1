// Finding the model to run, and compiling it.
#include "driver/simulation.h"

#include "driver/suggest.h"

#include <orvo/design.h>
#include <orvo/model.h>

#include <fmt/format.h>

#include <vector>

namespace orvo::driver {

const Model &topModel(const Design &design, const std::string &name, Console &console) {
    std::vector<std::string> tops;
    const Model *top = nullptr;
    for (const Model &model : design) {
        const std::string text = model.getName()->toString();
        if (text == name) {
            return model;
        }
        if (model.getParentBlocks().empty()) {
            tops.push_back(text);
            top = &model;
        }
    }
    if (!name.empty()) {
        const std::string near = suggest(name, tops);
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE",
                     {{"reason", fmt::format("the design has no model '{}'{}", name,
                                             near.empty() ? "" : fmt::format(": did you mean '{}'?", near))}});
    }
    if (tops.size() != 1) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE",
                     {{"reason", fmt::format("the design has {} top models; name one with --top{}", tops.size(),
                                             tops.empty() ? "" : fmt::format(": {}", fmt::join(tops, ", ")))}});
    }
    return *top;
}

void failToSimulate(const sim::SimulationError &error, Console &console, int exitCode) {
    Console::Params params{{"reason", error.what()}};
    if (!error.blocks().empty()) {
        params["blocks"] = fmt::format("{}", fmt::join(error.blocks(), ", "));
    }
    console.fail(exitCode, "DRIVER_CANNOT_SIMULATE", params);
}

std::unique_ptr<sim::Simulator> compileSimulator(const Design &design, const Model &top,
                                                 const sim::SimulatorOptions &options, Console &console) {
    return orFail([&] { return std::make_unique<sim::Simulator>(design, top, options); }, console);
}

} // namespace orvo::driver
