// Tables and JSON of estimates.
#include "driver/resources.h"

#include <fmt/format.h>

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

std::string headings() {
    std::string text;
    for (const Figure &figure : kFigures) {
        text += fmt::format(" {:>{}}", figure.heading, figure.width);
    }
    return text;
}

std::string figures(const Usage &usage) {
    std::string text;
    for (const Figure &figure : kFigures) {
        text += fmt::format(" {:>{}}", usage.*figure.field, figure.width);
    }
    return text;
}

} // namespace

std::string resourcesText(const generator::DesignEstimate &estimate) {
    std::string text = fmt::format("{:<30} {:>10}{} {:>10}\n", "resources", "instances", headings(), "uncounted");
    for (const generator::ModelEstimate &model : estimate.models) {
        text += fmt::format("  {:<28} {:>10}{} {:>10}\n", model.name->toString(), model.instances, figures(model.usage),
                            model.uncounted);
    }
    return text + fmt::format("{:<30} {:>10}{} {:>10}\n", "total", "", figures(estimate.total), estimate.uncounted);
}

Json toJson(const Usage &usage) {
    Json json;
    for (const Figure &figure : kFigures) {
        json[figure.key] = usage.*figure.field;
    }
    return json;
}

Json toJson(const generator::DesignEstimate &estimate) {
    Json json{{"models", Json::array()}, {"total", toJson(estimate.total)}};
    json["total"]["uncounted"] = estimate.uncounted;
    for (const generator::ModelEstimate &model : estimate.models) {
        Json one = toJson(model.usage);
        one["name"] = model.name->toString();
        one["instances"] = model.instances;
        one["uncounted"] = model.uncounted;
        json["models"].push_back(one);
    }
    return json;
}

std::string resourcesHeading() { return fmt::format("{:>5}  {:<32}{}\n", "", "resources", headings()); }

std::string resourcesRow(const std::string &number, const std::string &name, const Usage &usage) {
    return fmt::format("{:>5}  {:<32}{}\n", number, name, figures(usage));
}

std::string resourcesChange(const std::string &number, const std::string &name, const Usage &before,
                            const Usage &after) {
    std::string text = fmt::format("{:>5}  {:<32}", number, name);
    for (const Figure &figure : kFigures) {
        // Neither is negative: the difference does not overflow.
        text += fmt::format(" {:>+{}}", after.*figure.field - before.*figure.field, figure.width);
    }
    return text + "\n";
}

} // namespace orvo::driver
