// Reading pipelines line by line; a line that is a pass is read as a list of one.
#include "driver/pipeline.h"

#include "driver/suggest.h"

#include <orvo/limits.h>
#include <util/root.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <unordered_map>

namespace orvo::driver {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
bool isNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-'; }

/// A part of a line, and where it begins there, counted from 0.
struct Piece {
    std::string_view text;
    std::size_t at;
};

Piece trimmed(std::string_view line) {
    std::size_t begin = 0;
    while (begin < line.size() && isBlank(line[begin])) {
        ++begin;
    }
    std::size_t end = line.size();
    while (end > begin && isBlank(line[end - 1])) {
        --end;
    }
    return {line.substr(begin, end - begin), begin};
}

class Reader {
  public:
    Reader(Context *context, std::vector<Preset> &presets) : mContext(context), mPresets(presets) {}

    std::optional<PassTextError> read(std::string_view text) {
        static constexpr std::string_view mark = "\xef\xbb\xbf";
        if (text.substr(0, mark.size()) == mark) {
            text.remove_prefix(mark.size());
        }
        if (text.size() > limits::kPipelineBytes) {
            mError = PassTextError{{}, "the text is longer than " + std::to_string(limits::kPipelineBytes) + " bytes"};
        }
        while (!text.empty() && !mError) {
            ++mLine;
            const std::size_t end = std::min(text.find('\n'), text.size());
            readLine(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        return mError;
    }

  private:
    void fail(std::size_t at, std::string reason) {
        mError = PassTextError{{mLine, static_cast<int>(at) + 1}, std::move(reason)};
    }

    void readLine(std::string_view line) {
        const Piece whole = trimmed(line);
        if (whole.text.empty() || whole.text.front() == '#') {
            return;
        }
        if (whole.text.front() == '[') {
            readHeader(whole);
            return;
        }
        if (mPresets.empty()) {
            fail(whole.at, "expected a preset like [structural] before the first pass");
            return;
        }
        const std::size_t word = std::min(whole.text.find_first_of(" \t#"), whole.text.size());
        if (whole.text.substr(0, word) == "include") {
            readInclude(whole, word, false);
        } else if (whole.text.substr(0, word) == "repeat" &&
                   trimmed(whole.text.substr(word)).text.substr(0, 1) != "(") {
            readInclude(whole, word, true);
        } else {
            readPass(line, whole.at);
        }
    }

    /// The name that `rest` of a line is, without a comment behind it. Empty, after an error, if it is none.
    std::string readName(std::string_view rest, std::size_t at) {
        const Piece name = trimmed(rest.substr(0, rest.find('#')));
        const bool isName = !name.text.empty() && std::all_of(name.text.begin(), name.text.end(), isNameChar);
        if (!isName) {
            fail(at + name.at, "expected the name of a preset, of letters, digits, '_' and '-'");
        }
        return isName ? std::string(name.text) : std::string();
    }

    void readHeader(const Piece &line) {
        const std::size_t close = line.text.find(']');
        if (close == std::string_view::npos) {
            fail(line.at, "expected ']' behind the name of the preset");
            return;
        }
        const Piece behind = trimmed(line.text.substr(close + 1));
        if (!behind.text.empty() && behind.text.front() != '#') {
            fail(line.at + close + 1 + behind.at, "expected the end of the line behind ']'");
            return;
        }
        const std::string name = readName(line.text.substr(1, close - 1), line.at + 1);
        if (mError) {
            return;
        }
        if (!mByName.emplace(name, mPresets.size()).second) {
            fail(line.at, "preset '" + name + "' stands twice");
            return;
        }
        mPresets.push_back({name, {}});
    }

    void readInclude(const Piece &line, std::size_t word, bool inTurns) {
        const std::string name = readName(line.text.substr(word), line.at + word);
        if (mError) {
            return;
        }
        const auto at = mByName.find(name);
        if (at == mByName.end() || at->second + 1 == mPresets.size()) {
            std::vector<std::string> above;
            for (std::size_t i = 0; i + 1 < mPresets.size(); ++i) {
                above.push_back(mPresets[i].name);
            }
            const std::string near = suggest(name, above);
            fail(line.at, "there is no preset '" + name + "' above" +
                              (near.empty() ? std::string() : ": did you mean '" + near + "'?"));
            return;
        }
        const std::vector<PassText> &included = mPresets[at->second].passes;
        if (inTurns &&
            std::any_of(included.begin(), included.end(), [](const PassText &of) { return of.beginsTurns; })) {
            fail(line.at, "preset '" + name + "' has a repeat, which cannot stand in another");
            return;
        }
        if (takeRoom(included.size(), line.at) && !included.empty()) {
            std::vector<PassText> &passes = mPresets.back().passes;
            const auto first = passes.insert(passes.end(), included.begin(), included.end());
            first->beginsTurns = first->beginsTurns || inTurns;
            passes.back().endsTurns = passes.back().endsTurns || inTurns;
        }
    }

    void readPass(std::string_view line, std::size_t at) {
        std::vector<PassText> passes;
        mError = parsePassText(line, mContext, passes);
        if (mError) {
            mError->position.line = mLine;
            return;
        }
        if (passes.empty()) {
            fail(at, "expected the name of a pass");
            return;
        }
        // Passes that run in turns are one item.
        const auto last = passes[0].beginsTurns ? std::find_if(passes.begin(), passes.end(),
                                                               [](const PassText &of) { return of.endsTurns; })
                                                : passes.begin();
        if (const auto behind = std::next(last); behind != passes.end()) {
            fail(static_cast<std::size_t>(behind->position.column) - 1, "expected one pass a line");
            return;
        }
        for (PassText &pass : passes) {
            pass.position.line = mLine;
            for (TextPosition &position : pass.paramPositions) {
                position.line = mLine;
            }
        }
        if (takeRoom(passes.size(), at)) {
            std::vector<PassText> &all = mPresets.back().passes;
            all.insert(all.end(), std::make_move_iterator(passes.begin()), std::make_move_iterator(passes.end()));
        }
    }

    /// Includes of includes double with each line, so that what they make is counted before it is made.
    bool takeRoom(std::size_t passes, std::size_t at) {
        if (passes > limits::kPipelinePasses - mPasses) {
            fail(at, "the presets have more than " + std::to_string(limits::kPipelinePasses) +
                         " passes with what they include");
            return false;
        }
        mPasses += passes;
        return true;
    }

    Context *mContext;
    std::vector<Preset> &mPresets;
    /// Where each preset is in `mPresets`.
    std::unordered_map<std::string, std::size_t> mByName;
    /// Of all presets so far, with what they include.
    std::size_t mPasses = 0;
    int mLine = 0;
    std::optional<PassTextError> mError;
};

} // namespace

std::optional<PassTextError> parsePipelines(std::string_view text, Context *context, std::vector<Preset> &presets) {
    std::vector<Preset> read;
    std::optional<PassTextError> error = Reader(context, read).read(text);
    if (!error) {
        presets = std::move(read);
    }
    return error;
}

std::string printPipeline(const Preset &preset) {
    std::string text = "[" + preset.name + "]\n";
    for (const std::string &item : printPassItems(preset.passes)) {
        text += item + "\n";
    }
    return text;
}

std::string installedPipelines() { return GetLumoBackendRootDir() + "/include/orvo/orvo_pipelines.txt"; }

} // namespace orvo::driver
