// What most likely lies behind errors of passes whose texts can only tell what stopped the pass.
#pragma once

#include <string>
#include <vector>

namespace orvo {
class Design;
} // namespace orvo

namespace orvo::driver {

class Console;

/// Lines for people below the errors that were told, if there is more to say; `input` is the file that the design came
/// from. The design is as the passes left it.
std::vector<std::string> hintsAfter(const Console &console, const Design &design, const std::string &input);

} // namespace orvo::driver
