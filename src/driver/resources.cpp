// Tables and JSON of estimates.
#include "driver/resources.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace orvo::driver {

namespace {

using generator::Usage;

/// One figure of a cost: the key in JSON, the heading in text, its column's width.
struct Figure {
    std::int64_t Usage::*field;
    const char *key;
    const char *heading;
    int width;
};
constexpr Figure kFigures[] = {{&Usage::luts, "luts", "LUTs", 12},
                               {&Usage::multipliers, "multipliers", "multipliers", 12},
                               {&Usage::memoryBlocks, "memory_blocks", "mem blocks", 11},
                               {&Usage::memoryBits, "memory_bits", "mem bits", 13},
                               {&Usage::latency, "latency", "latency", 8}};
/// Behind the figures.
constexpr int kUncountedWidth = 10;

std::string headings() {
    std::string text;
    for (const Figure &figure : kFigures) {
        text += fmt::format(" {:>{}}", figure.heading, figure.width);
    }
    return text + fmt::format(" {:>{}}\n", "uncounted", kUncountedWidth);
}

std::string figures(const DesignCost &cost) {
    std::string text;
    for (const Figure &figure : kFigures) {
        text += fmt::format(" {:>{}}", cost.usage.*figure.field, figure.width);
    }
    return text + fmt::format(" {:>{}}{}\n", cost.uncounted, kUncountedWidth, cost.isComplete ? "" : "  incomplete");
}

} // namespace

DesignCost costOf(const generator::DesignEstimate &estimate) {
    return {estimate.total, estimate.uncounted, estimate.isComplete()};
}

std::string resourcesText(const generator::DesignEstimate &estimate) {
    std::string text = fmt::format("{:<30} {:>10}{}", "resources", "instances", headings());
    for (const generator::ModelEstimate &model : estimate.models) {
        text += fmt::format("  {:<28} {:>10}{}", model.name->toString(), model.instances,
                            figures({model.usage, model.uncounted}));
    }
    text += fmt::format("{:<30} {:>10}{}", "total", "", figures(costOf(estimate)));
    if (!estimate.isComplete()) {
        text += fmt::format("incomplete: lowering the design told {}\n", fmt::join(estimate.errors, ", "));
    }
    return text;
}

Json toJson(const DesignCost &cost) {
    Json json;
    for (const Figure &figure : kFigures) {
        json[figure.key] = cost.usage.*figure.field;
    }
    json["uncounted"] = cost.uncounted;
    json["complete"] = cost.isComplete;
    return json;
}

Json toJson(const generator::DesignEstimate &estimate) {
    Json json{{"models", Json::array()}, {"total", toJson(costOf(estimate))}, {"errors", estimate.errors}};
    for (const generator::ModelEstimate &model : estimate.models) {
        Json one = toJson(DesignCost{model.usage, model.uncounted});
        one.erase("complete");
        one["name"] = model.name->toString();
        one["instances"] = model.instances;
        json["models"].push_back(one);
    }
    return json;
}

std::string resourcesHeading() { return fmt::format("{:>5}  {:<32}{}", "", "resources", headings()); }

std::string resourcesRow(const std::string &number, const std::string &name, const DesignCost &cost) {
    return fmt::format("{:>5}  {:<32}{}", number, name, figures(cost));
}

std::string resourcesChange(const std::string &number, const std::string &name, const DesignCost &before,
                            const DesignCost &after) {
    std::string text = fmt::format("{:>5}  {:<32}", number, name);
    for (const Figure &figure : kFigures) {
        // Neither is negative: the difference does not overflow.
        text += fmt::format(" {:>+{}}", after.usage.*figure.field - before.usage.*figure.field, figure.width);
    }
    return text + fmt::format(" {:>+{}}{}\n", after.uncounted - before.uncounted, kUncountedWidth,
                              before.isComplete && after.isComplete ? "" : "  incomplete");
}

} // namespace orvo::driver
