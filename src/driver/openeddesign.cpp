// Opening a design.
#include "driver/openeddesign.h"

namespace orvo::driver {

Console &requireInput(const std::string &input, Console &console) {
    if (input.empty()) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "the input design is missing"}});
    }
    return console;
}

void requireTwoInputs(const std::string &first, const std::string &second, Console &console) {
    if (first.empty() || second.empty()) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "two designs are needed"}});
    }
    if (first == "-" && second == "-") {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "only one design can come from standard input"}});
    }
}

OpenedDesign::OpenedDesign(const std::string &input, Console &console)
    : progress(requireInput(input, console)), file(input, console) {
    guard.context()->setListener(&console);
    progress.phase("reading");
    design = readDesign(file, guard.context(), console);
}

std::unique_ptr<Design> readDesignOfAnswer(const std::string &input, Context *context, Progress &progress,
                                           Console &console) {
    InputFile file(input, console);
    progress.phase("reading " + input);
    try {
        return readDesign(file, context, console);
    } catch (const VerbFailure &) {
        throw VerbFailure{kWrongUsage};
    }
}

} // namespace orvo::driver
