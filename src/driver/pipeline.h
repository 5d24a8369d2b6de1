// The text form of pipelines, as the file that comes with the library has it:
//
//     [structural]                          # begins a preset
//     ElideFromGotoPass                     # one pass a line, with parameters as in lists of passes
//     [primitives]
//     include structural                    # all passes of a preset above
//     repeat records                        # the same, in turns until a turn changes nothing
#pragma once

#include "driver/passtext.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::driver {

/// A named row of passes. Included ones stand in their place, positions tell where each was written.
struct Preset {
    std::string name;
    std::vector<PassText> passes;
};

/// Reads all presets of a text, in its order; none of them has the name of another. Whether the passes exist is not
/// looked at. Texts beyond `limits::kPipelineBytes` and presets beyond `limits::kPipelinePasses` are errors like any
/// other.
std::optional<PassTextError> parsePipelines(std::string_view text, Context *context, std::vector<Preset> &presets);

/// One pass a line under the preset's name, which `parsePipelines` reads back to the same preset.
std::string printPipeline(const Preset &preset);

/// The file of pipelines that was installed with the library.
std::string installedPipelines();

} // namespace orvo::driver
