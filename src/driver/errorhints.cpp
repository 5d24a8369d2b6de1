// A type that is missing is missed first where signals come apart, far from the block that should have given it; and a
// tag may fail to reach its readers for a model that is in nobody's way later.
#include "driver/errorhints.h"

#include "driver/catalogue.h"
#include "driver/console.h"
#include "driver/message_texts.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <set>
#include <unordered_set>

namespace orvo::driver {

namespace {

constexpr const char *kMissingTypes[] = {
    "UNAGG_INVALID_PORT_TYPE", "UNAGG_INVALID_WIRE_TYPE", "UNCOMPLEX_INVALID_PORT_TYPE", "UNCOMPLEX_INVALID_WIRE_TYPE",
    "UNVEC_INVALID_PORT_TYPE", "UNVEC_INVALID_WIRE_TYPE", "UNABLE_TO_INFER_TYPE"};
constexpr const char *kBrokenRoutes[] = {"FROM_NO_REFCHAIN", "GOTO_NO_REFCHAIN", "FROM_GOTO_NO_ROUTE"};
/// More would hide the errors themselves.
constexpr std::size_t kLargestCount = 3;

template <std::size_t N> bool hasToldOneOf(const Console &console, const char *const (&tags)[N]) {
    return std::any_of(std::begin(tags), std::end(tags), [&](const char *tag) { return console.hasTold(tag); });
}

/// One block for each type that is none.
void addUnknownTypes(const Design &design, std::vector<std::string> &hints) {
    std::set<std::string> told;
    for (const Finding &finding : checkDesign(design, getBlocksInfo())) {
        const bool isUnknown = std::strcmp(finding.tag, "DRIVER_CHECK_UNKNOWN_BLOCK") == 0;
        if (isUnknown && told.size() < kLargestCount && told.insert(finding.params.at("type")).second) {
            hints.push_back(renderMessage(finding.tag, finding.params));
        }
    }
}

/// Whether there are models that none to be written out instantiates.
bool hasSpareModels(const Design &design) {
    std::vector<const Model *> needed;
    std::unordered_set<const Model *> known;
    std::size_t models = 0;
    for (const Model &model : design) {
        ++models;
        if (model[A_SYNTH_OUTPUT_MODE]) {
            needed.push_back(&model);
            known.insert(&model);
        }
    }
    for (std::size_t i = 0; i < needed.size(); ++i) {
        for (const Block &block : *needed[i]) {
            const Model *below =
                block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            if (below != nullptr && known.insert(below).second) {
                needed.push_back(below);
            }
        }
    }
    return !needed.empty() && needed.size() < models;
}

/// A file's name as one word of a command, which a shell takes as it is.
std::string asWord(const std::string &name) {
    std::string word = name[0] == '-' ? "./" : "";
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            return "IN";
        }
        const bool isPlain = byte >= 0x80 || std::isalnum(byte) != 0 || std::strchr("_./+-=:@%,", c) != nullptr;
        word += isPlain ? std::string(1, c) : std::string{'\\', c};
    }
    return word;
}

} // namespace

std::vector<std::string> hintsAfter(const Console &console, const Design &design, const std::string &input) {
    std::vector<std::string> hints;
    const std::string file = input.empty() || input == "-" ? "IN" : asWord(input);
    if (hasToldOneOf(console, kMissingTypes)) {
        addUnknownTypes(design, hints);
        hints.push_back(fmt::format("'orvo check {}' tells which types are missing or do not fit", file));
    }
    if (hasToldOneOf(console, kBrokenRoutes) && hasSpareModels(design)) {
        hints.push_back(fmt::format("models that none to be written out needs may be in the way; 'orvo opt {} -p "
                                    "DeadModelPass -o OUT' deletes them",
                                    file));
    }
    return hints;
}

} // namespace orvo::driver
