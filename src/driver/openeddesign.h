// A design that a verb reads and looks at.
#pragma once

#include "driver/files.h"
#include "driver/progress.h"

#include <orvo/context.h>
#include <orvo/design.h>

#include <memory>
#include <string>

namespace orvo::driver {

/// Ends the verb if no input is named; gives the console.
Console &requireInput(const std::string &input, Console &console);
/// Ends the verb unless two inputs are named, at most one of them standard input.
void requireTwoInputs(const std::string &first, const std::string &second, Console &console);

/// What looking at a design takes. What the library says goes to the console; a design that cannot be read ends the
/// verb.
struct OpenedDesign {
    OpenedDesign(const std::string &input, Console &console);

    Progress progress;
    ContextMgr guard;
    InputFile file;
    std::unique_ptr<Design> design;
};

/// A design for a verb whose code 1 is an answer: one that cannot be read ends it with the code of a file that cannot.
std::unique_ptr<Design> readDesignOfAnswer(const std::string &input, Context *context, Progress &progress,
                                           Console &console);

} // namespace orvo::driver
