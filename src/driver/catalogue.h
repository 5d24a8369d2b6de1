// Blocks against the catalogue, for the verb "check" and for --verify-each: the findings as messages of the driver.
#pragma once

#include "driver/console.h"
#include "driver/jsontext.h"

#include <vector>

namespace orvo {
class Block;
class BlocksInfo;
class Design;
} // namespace orvo

namespace orvo::driver {

/// One finding as a message.
struct Finding {
    const char *tag;
    Console::Params params;
    /// Null for what is no finding of a block.
    const Block *block = nullptr;
    Severity severity = Severity::Error;
};

/// All findings of all models, in the order of the design.
std::vector<Finding> checkDesign(const Design &design, const BlocksInfo &catalogue);
/// Those of them that passes cannot bear: an input that reads another model's wire loses it when a model is dissolved.
std::vector<Finding> findForeignWires(const Design &design);

Json toJson(const Finding &finding);

} // namespace orvo::driver
