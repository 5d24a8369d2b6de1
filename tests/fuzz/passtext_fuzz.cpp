// Fuzz target: any text as a list of passes. What is read must print to a text that reads back to the same list.
#include "driver/passtext.h"

#include <orvo/context.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace orvo;
    static ContextMgr guard;
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    std::vector<driver::PassText> passes;
    if (driver::parsePassText(text, guard.context(), passes)) {
        return 0;
    }
    driver::findUnknown(passes);
    std::vector<driver::PassText> again;
    if (driver::parsePassText(driver::printPassTexts(passes), guard.context(), again) ||
        again.size() != passes.size()) {
        std::abort();
    }
    for (std::size_t i = 0; i < passes.size(); ++i) {
        if (passes[i].name != again[i].name || passes[i].params != again[i].params) {
            std::abort();
        }
    }
    return 0;
}
