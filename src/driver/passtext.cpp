// Reading and printing lists of passes. The reader goes through the text once, by hand: the values inside are read by
// the library, from the same characters, so that no second grammar of values can drift from the first.
#include "driver/passtext.h"

#include "driver/suggest.h"

#include <orvo/limits.h>
#include <orvo/pass.h>

#include <algorithm>
#include <istream>
#include <streambuf>

namespace orvo::driver {

namespace {

bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isNameChar(char c) { return isNameStart(c) || (c >= '0' && c <= '9'); }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

/// Reads from characters that somebody else holds.
class ViewBuffer : public std::streambuf {
  public:
    explicit ViewBuffer(std::string_view text) {
        char *begin = const_cast<char *>(text.data());
        setg(begin, begin, begin + text.size());
    }
    std::size_t taken() const { return static_cast<std::size_t>(gptr() - eback()); }
};

/// One reading of a text. Each reading function returns false after noting what is wrong.
class Reader {
  public:
    Reader(std::string_view text, Context *context, std::vector<PassText> &passes)
        : mText(text), mContext(context), mPasses(passes) {}

    std::optional<PassTextError> read() {
        if (mText.size() > limits::kPassTextBytes) {
            fail("the text is longer than " + std::to_string(limits::kPassTextBytes) + " bytes");
            return mError;
        }
        skip(true);
        while (!atEnd()) {
            if (!readItem() || !readSeparator()) {
                return mError;
            }
        }
        return std::nullopt;
    }

  private:
    bool atEnd() const { return mAt == mText.size(); }
    char peek() const { return atEnd() ? '\0' : mText[mAt]; }

    void advance(std::size_t count) {
        for (; count > 0; --count, ++mAt) {
            if (mText[mAt] == '\n') {
                ++mPosition.line;
                mPosition.column = 1;
            } else {
                ++mPosition.column;
            }
        }
    }

    /// Skips blanks and comments, and new lines if `lines`; tells whether a new line came.
    bool skip(bool lines) {
        bool newLine = false;
        while (!atEnd()) {
            const char c = peek();
            if (c == '#') {
                advance(std::min(mText.find('\n', mAt), mText.size()) - mAt);
            } else if (isBlank(c) || (lines && c == '\n')) {
                newLine = newLine || c == '\n';
                advance(1);
            } else {
                break;
            }
        }
        return newLine;
    }

    bool fail(std::string reason) {
        mError = PassTextError{mPosition, std::move(reason)};
        return false;
    }

    /// What stands next, for an error's text.
    std::string found() const {
        if (atEnd()) {
            return "the end of the text";
        }
        const char c = peek();
        if (c == '\n') {
            return "the end of the line";
        }
        return c > ' ' && c <= '~' ? std::string("'") + c + "'" : std::string("an odd character");
    }

    bool readName(const char *what, std::string &name) {
        if (atEnd() || !isNameStart(peek())) {
            return fail(std::string("expected ") + what + ", found " + found());
        }
        std::size_t end = mAt;
        while (end < mText.size() && isNameChar(mText[end])) {
            ++end;
        }
        name = mText.substr(mAt, end - mAt);
        advance(end - mAt);
        return true;
    }

    bool readItem() {
        PassText pass;
        pass.position = mPosition;
        if (!readName("the name of a pass", pass.name)) {
            return false;
        }
        skip(false);
        if (pass.name == "repeat" && peek() == '(') {
            return readTurns(pass.position);
        }
        if (peek() == '{' && !readParams(pass)) {
            return false;
        }
        mPasses.push_back(std::move(pass));
        return true;
    }

    bool readTurns(const TextPosition &position) {
        if (mInTurns) {
            mPosition = position;
            return fail("a repeat stands in another");
        }
        advance(1);
        skip(true);
        if (peek() == ')') {
            return fail("expected the name of a pass, found ')'");
        }
        mInTurns = true;
        const std::size_t first = mPasses.size();
        while (peek() != ')') {
            if (!readItem() || !readSeparator()) {
                return false;
            }
            if (atEnd()) {
                return fail("expected ')', found the end of the text");
            }
        }
        advance(1);
        mInTurns = false;
        mPasses[first].beginsTurns = true;
        mPasses.back().endsTurns = true;
        skip(false);
        return true;
    }

    /// A comma, a new line, or the end; further new lines and one comma behind a new line count as the same separator.
    bool readSeparator() {
        const bool newLine = skip(true);
        if (atEnd() || (mInTurns && peek() == ')')) {
            return true;
        }
        if (peek() == ',') {
            advance(1);
            skip(true);
            return true;
        }
        return newLine || fail("expected a comma, found " + found());
    }

    bool readParams(PassText &pass) {
        advance(1);
        skip(true);
        while (peek() != '}') {
            if (!readParam(pass)) {
                return false;
            }
            skip(true);
            if (peek() == ',') {
                advance(1);
                skip(true);
            } else if (peek() != '}') {
                return fail("expected ',' or '}', found " + found());
            }
        }
        advance(1);
        return true;
    }

    bool readParam(PassText &pass) {
        const TextPosition position = mPosition;
        std::string name;
        if (!readName("the name of a parameter", name)) {
            return false;
        }
        for (const auto &param : pass.params) {
            if (param.first == name) {
                mPosition = position;
                return fail("parameter '" + name + "' is given twice");
            }
        }
        skip(true);
        if (peek() != '=') {
            return fail("expected '=', found " + found());
        }
        advance(1);
        skip(true);
        PureValueRef value;
        if (!readValue(name, value)) {
            return false;
        }
        pass.params.emplace_back(std::move(name), std::move(value));
        pass.paramPositions.push_back(position);
        return true;
    }

    bool readValue(const std::string &name, PureValueRef &value) {
        ViewBuffer buffer(mText.substr(mAt));
        std::istream in(&buffer);
        const ValueRef read = Value::parse(in, mContext);
        if (!read) {
            return fail("the value of '" + name + "' is not well written");
        }
        value = PureValueRef(read);
        if (!value) {
            return fail("the value of '" + name + "' refers to a node of a design, which a parameter cannot");
        }
        advance(buffer.taken());
        return true;
    }

    std::string_view mText;
    Context *mContext;
    std::vector<PassText> &mPasses;
    std::size_t mAt = 0;
    bool mInTurns = false;
    TextPosition mPosition;
    std::optional<PassTextError> mError;
};

std::vector<std::string> paramNames(const internal::DefaultParamSettings &settings) {
    std::vector<std::string> names;
    for (const internal::ParamDeclaration &declaration : settings.declarations()) {
        names.push_back(declaration.getParamName());
    }
    return names;
}

} // namespace

std::optional<PassTextError> parsePassText(std::string_view text, Context *context, std::vector<PassText> &passes) {
    std::vector<PassText> read;
    std::optional<PassTextError> error = Reader(text, context, read).read();
    if (!error) {
        passes.insert(passes.end(), std::make_move_iterator(read.begin()), std::make_move_iterator(read.end()));
    }
    return error;
}

std::string printPassText(const PassText &pass) {
    std::string text = pass.name;
    const char *separator = "{";
    for (const auto &[name, value] : pass.params) {
        text += separator + name + "=" + value->toString();
        separator = ", ";
    }
    if (!pass.params.empty()) {
        text += '}';
    }
    return text;
}

namespace {

using PassTexts = std::vector<PassText>::const_iterator;

/// The last of the passes in turns that begin here; `end` if none begin, or their last is cut off.
PassTexts lastOfTurns(PassTexts pass, PassTexts end) {
    return pass->beginsTurns ? std::find_if(pass, end, [](const PassText &of) { return of.endsTurns; }) : end;
}

} // namespace

std::vector<PassText> passesFrom(const std::vector<PassText> &passes, std::size_t first) {
    const auto due = passes.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end = passes.end();
    if (due == end) {
        return {};
    }
    const auto edge = std::find_if(due, end, [](const PassText &of) { return of.beginsTurns || of.endsTurns; });
    auto begin = due;
    while (begin != passes.begin() && !begin->beginsTurns) {
        --begin;
    }
    if (edge == end || edge->beginsTurns || !begin->beginsTurns) {
        return {due, end};
    }
    std::vector<PassText> rest(due, edge + 1);
    rest.back().endsTurns = false;
    rest.insert(rest.end(), begin, end);
    return rest;
}

void addPasses(PassScheduler &scheduler, const std::vector<PassText> &passes) {
    bool inTurns = false;
    for (auto pass = passes.begin(); pass != passes.end(); ++pass) {
        if (lastOfTurns(pass, passes.end()) != passes.end()) {
            scheduler.beginTurns();
            inTurns = true;
        }
        ParamContext::Settings settings;
        for (const auto &[name, value] : pass->params) {
            settings[name] = value;
        }
        scheduler.addPass(pass->name, ParamContext(settings));
        if (pass->endsTurns && inTurns) {
            scheduler.endTurns();
            inTurns = false;
        }
    }
}

std::vector<std::string> printPassItems(const std::vector<PassText> &passes) {
    std::vector<std::string> items;
    for (auto pass = passes.begin(); pass != passes.end(); ++pass) {
        const auto last = lastOfTurns(pass, passes.end());
        if (last == passes.end()) {
            items.push_back(printPassText(*pass));
            continue;
        }
        std::string turns = "repeat(";
        for (; pass != last; ++pass) {
            turns += printPassText(*pass) + ", ";
        }
        items.push_back(turns + printPassText(*last) + ")");
    }
    return items;
}

std::string printPassTexts(const std::vector<PassText> &passes) {
    std::string text;
    for (const std::string &item : printPassItems(passes)) {
        text += (text.empty() ? "" : ", ") + item;
    }
    return text;
}

std::optional<UnknownInPassText> findUnknown(const std::vector<PassText> &passes) {
    for (const PassText &pass : passes) {
        const internal::DefaultParamSettings *settings = internal::findPassSettings(pass.name);
        if (settings == nullptr) {
            return UnknownInPassText{pass.position, pass.name, "", suggest(pass.name, internal::registeredPasses())};
        }
        for (std::size_t i = 0; i < pass.params.size(); ++i) {
            const std::string &name = pass.params[i].first;
            if (settings->find(name) == nullptr) {
                return UnknownInPassText{pass.paramPositions[i], pass.name, name, suggest(name, paramNames(*settings))};
            }
        }
    }
    return std::nullopt;
}

} // namespace orvo::driver
