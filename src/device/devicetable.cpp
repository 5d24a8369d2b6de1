// The reader of the table of devices: a line a fact, below the header of the family that it belongs to.
#include <device/devicetable.h>

#include <util/features.h>
#include <util/root.h>
#include <util/strings.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <unordered_set>

namespace device {

namespace {

/// Beyond these a fact is a slip of the pen, and sums over a design stay far from overflowing.
constexpr int kMostBits = 1 << 20;
constexpr int kMostBlocks = 100'000'000;
constexpr double kMostFactor = 1000.0;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words = util::split(text, " \t\r");
    words.erase(std::remove(words.begin(), words.end(), std::string()), words.end());
    return words;
}

std::string inSmallLetters(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

class Reader {
  public:
    std::optional<DeviceTable> read(std::string_view text, TableError &error);

  private:
    using Words = std::vector<std::string>;
    using Fact = void (Reader::*)(const Words &words);
    struct FactRow {
        const char *name;
        std::size_t words;
        bool once;
        Fact read;
        const char *form;
    };
    static const FactRow kFacts[];

    void fail(std::string reason) {
        if (mError.reason.empty()) {
            mError = {mLine, std::move(reason)};
        }
    }
    bool failed() const { return !mError.reason.empty(); }
    Family &family() { return mFamilies.back(); }

    void readLine(std::string_view line);
    void readHeader(std::string_view line);
    void readFact(std::string_view line);
    void endFamily();
    int wholeNumber(const std::string &word, int least, int most);
    double factor(const std::string &word);

    void dspType(const Words &words) { family().dspType = wholeNumber(words[1], 1, 5); }
    void hardFloat(const Words &words);
    void fabricRegisters(const Words &words);
    void lutInputs(const Words &words) { family().lutInputs = wholeNumber(words[1], 2, 8); }
    void mult18InLut4(const Words &words) { family().mult18InLut4 = wholeNumber(words[1], 1, kMostBlocks); }
    void multiplier(const Words &words);
    void memory(const Words &words);
    void routing(const Words &words);
    void grade(const Words &words);
    void part(const Words &words);

    std::vector<Family> mFamilies;
    /// Of all families, in small letters.
    std::unordered_set<std::string> mParts;
    /// The facts of the family so far.
    std::vector<std::string> mSeen;
    int mLine = 0;
    /// Of the family's header.
    int mHeaderLine = 0;
    TableError mError;
};

// clang-format off
const Reader::FactRow Reader::kFacts[] = {
    {"dsp-type",         2, true,  &Reader::dspType,         "dsp-type NUMBER"},
    {"hard-float",       0, true,  &Reader::hardFloat,       "hard-float none, half, single, or half single"},
    {"fabric-registers", 2, true,  &Reader::fabricRegisters, "fabric-registers yes or no"},
    {"lut-inputs",       2, true,  &Reader::lutInputs,       "lut-inputs NUMBER"},
    {"mult18-in-lut4",   2, true,  &Reader::mult18InLut4,    "mult18-in-lut4 NUMBER"},
    {"multiplier",       3, false, &Reader::multiplier,      "multiplier WIDTHxWIDTH BLOCKS"},
    {"memory",           3, false, &Reader::memory,          "memory BITS WIDTH"},
    {"routing",          3, false, &Reader::routing,         "routing WIDTH FACTOR"},
    {"grade",            3, false, &Reader::grade,           "grade NAME FACTOR"},
    {"part",             6, false, &Reader::part,            "part NAME GRADE LUTS MULTIPLIER-BLOCKS MEMORY-BLOCKS"},
};
// clang-format on

std::optional<DeviceTable> Reader::read(std::string_view text, TableError &error) {
    static constexpr std::string_view mark = "\xef\xbb\xbf";
    if (text.substr(0, mark.size()) == mark) {
        text.remove_prefix(mark.size());
    }
    while (!text.empty() && !failed()) {
        ++mLine;
        const std::size_t end = std::min(text.find('\n'), text.size());
        readLine(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (!failed()) {
        endFamily();
    }
    if (!failed() && mFamilies.empty()) {
        fail("the table has no family");
    }
    if (failed()) {
        error = mError;
        return std::nullopt;
    }
    return DeviceTable(std::move(mFamilies));
}

void Reader::readLine(std::string_view line) {
    line = trimmed(line.substr(0, line.find('#')));
    if (line.empty()) {
        return;
    }
    if (line.front() == '[') {
        readHeader(line);
    } else if (mFamilies.empty()) {
        fail("expected a family like [Halcyon V] before the first fact");
    } else {
        readFact(line);
    }
}

void Reader::readHeader(std::string_view line) {
    const std::string_view name = line.back() == ']' ? trimmed(line.substr(1, line.size() - 2)) : std::string_view();
    if (name.empty()) {
        fail("expected the name of a family in [ ]");
        return;
    }
    endFamily();
    if (std::any_of(mFamilies.begin(), mFamilies.end(),
                    [name](const Family &one) { return util::caseInsensitiveEquals(one.name, name); })) {
        fail("family '" + std::string(name) + "' stands twice");
    }
    mHeaderLine = mLine;
    mFamilies.emplace_back().name = name;
}

void Reader::readFact(std::string_view line) {
    const Words words = wordsOf(line);
    const auto row = std::find_if(std::begin(kFacts), std::end(kFacts),
                                  [&words](const FactRow &one) { return words.front() == one.name; });
    if (row == std::end(kFacts)) {
        fail("'" + words.front() + "' is no fact of a family");
        return;
    }
    if (row->words == 0 ? words.size() < 2 : words.size() != row->words) {
        fail(std::string("expected: ") + row->form);
        return;
    }
    const bool seen = std::find(mSeen.begin(), mSeen.end(), words.front()) != mSeen.end();
    if (seen && row->once) {
        fail("'" + words.front() + "' stands twice in family '" + family().name + "'");
        return;
    }
    if (!seen) {
        mSeen.push_back(words.front());
    }
    (this->*row->read)(words);
}

/// What only the whole family can show.
void Reader::endFamily() {
    if (mFamilies.empty() || failed()) {
        return;
    }
    // A missing fact has no line of its own.
    const int last = mLine;
    mLine = mHeaderLine;
    for (const FactRow &row : kFacts) {
        if (std::find(mSeen.begin(), mSeen.end(), row.name) == mSeen.end()) {
            fail("family '" + family().name + "' does not tell: " + row.form);
        }
    }
    if ((family().halfFloat || family().singleFloat) && family().dspType < 3) {
        fail("family '" + family().name + "' has hard-float, which needs dsp-type 3 or more");
    }
    mSeen.clear();
    mLine = last;
}

int Reader::wholeNumber(const std::string &word, int least, int most) {
    const std::optional<int> number = util::parseInteger(word);
    if (!number || *number < least || *number > most) {
        fail("expected a whole number from " + std::to_string(least) + " to " + std::to_string(most) + ", not '" +
             word + "'");
        return least;
    }
    return *number;
}

double Reader::factor(const std::string &word) {
    double value = 0;
    const char *end = word.data() + word.size();
    const auto [behind, problem] = std::from_chars(word.data(), end, value);
    if (problem != std::errc() || behind != end || !(value > 0.0) || value > kMostFactor) {
        fail("expected a factor above 0 and up to 1000, not '" + word + "'");
        return 1.0;
    }
    return value;
}

void Reader::hardFloat(const Words &words) {
    for (std::size_t i = 1; i < words.size(); ++i) {
        const bool none = words[i] == "none" && words.size() == 2;
        bool *fact = words[i] == "half" ? &family().halfFloat : words[i] == "single" ? &family().singleFloat : nullptr;
        if (!none && (fact == nullptr || *fact)) {
            fail("expected: hard-float none, half, single, or half single");
            return;
        }
        if (fact != nullptr) {
            *fact = true;
        }
    }
}

void Reader::fabricRegisters(const Words &words) {
    if (words[1] != "yes" && words[1] != "no") {
        fail("expected yes or no, not '" + words[1] + "'");
    }
    family().fabricRegisters = words[1] == "yes";
}

void Reader::multiplier(const Words &words) {
    const std::vector<std::string> widths = util::split(words[1], "x");
    if (widths.size() != 2) {
        fail("expected two widths like 18x18, not '" + words[1] + "'");
        return;
    }
    const MultiplierMode mode{wholeNumber(widths[0], 1, kMostBits), wholeNumber(widths[1], 1, kMostBits),
                              wholeNumber(words[2], 1, kMostBlocks)};
    if (!family().multipliers.empty() && mode.widthA <= family().multipliers.back().widthA) {
        fail("expected multipliers from narrow to wide");
    }
    family().multipliers.push_back(mode);
}

void Reader::memory(const Words &words) {
    const MemoryKind kind{wholeNumber(words[1], 1, kMostBlocks), wholeNumber(words[2], 1, kMostBits)};
    if (!family().memories.empty() && kind.bits <= family().memories.back().bits) {
        fail("expected memories from small to large");
    }
    if (kind.maxWidth > kind.bits) {
        fail("the word of a memory has more bits than the memory");
    }
    family().memories.push_back(kind);
}

void Reader::routing(const Words &words) {
    const RoutingStep step{wholeNumber(words[1], 1, kMostBits), static_cast<float>(factor(words[2]))};
    if (!family().routing.empty() && step.maxWidth <= family().routing.back().maxWidth) {
        fail("expected routing from narrow to wide");
    }
    family().routing.push_back(step);
}

void Reader::grade(const Words &words) {
    for (const SpeedGrade &other : family().grades) {
        if (util::caseInsensitiveEquals(other.name, words[1])) {
            fail("grade '" + words[1] + "' stands twice in family '" + family().name + "'");
        }
    }
    family().grades.push_back({words[1], factor(words[2])});
}

void Reader::part(const Words &words) {
    if (!mParts.insert(inSmallLetters(words[1])).second) {
        fail("part '" + words[1] + "' stands twice");
    }
    const auto &grades = family().grades;
    const auto grade = std::find_if(grades.begin(), grades.end(), [&words](const SpeedGrade &one) {
        return util::caseInsensitiveEquals(one.name, words[2]);
    });
    if (grade == grades.end()) {
        fail("there is no grade '" + words[2] + "' above in family '" + family().name + "'");
        return;
    }
    family().parts.push_back({words[1], grade->name, wholeNumber(words[3], 0, kMostBlocks),
                              wholeNumber(words[4], 0, kMostBlocks), wholeNumber(words[5], 0, kMostBlocks)});
}

/// The row of that name, null if there is none.
template <class Row> const Row *rowOf(const std::vector<Row> &rows, std::string_view name) {
    const auto at = std::find_if(rows.begin(), rows.end(),
                                 [name](const Row &row) { return util::caseInsensitiveEquals(row.name, name); });
    return at == rows.end() ? nullptr : &*at;
}

template <class Row> std::string namesOf(const std::vector<Row> &rows) {
    std::string names;
    for (const Row &row : rows) {
        names += (names.empty() ? "" : ", ") + row.name;
    }
    return names;
}

} // namespace

std::optional<DeviceChoice> DeviceTable::find(std::string_view family, std::string_view part,
                                              std::string_view speedGrade, std::string *error) const {
    const auto refuse = [error](std::string reason) {
        if (error != nullptr) {
            *error = std::move(reason);
        }
        return std::nullopt;
    };
    DeviceChoice choice;
    if (!family.empty()) {
        choice.family = rowOf(mFamilies, family);
        if (choice.family == nullptr) {
            return refuse("there is no device family '" + std::string(family) + "', but " + namesOf(mFamilies));
        }
        choice.part = part.empty() ? &choice.family->parts.front() : rowOf(choice.family->parts, part);
    } else if (part.empty()) {
        choice.family = &mFamilies.front();
        choice.part = &choice.family->parts.front();
    } else {
        for (auto one = mFamilies.begin(); one != mFamilies.end() && choice.part == nullptr; ++one) {
            choice.family = &*one;
            choice.part = rowOf(one->parts, part);
        }
        if (choice.part == nullptr) {
            return refuse("no device family has a part '" + std::string(part) + "'");
        }
    }
    if (choice.part == nullptr) {
        return refuse("device family '" + choice.family->name + "' has no part '" + std::string(part) + "', but " +
                      namesOf(choice.family->parts));
    }
    const std::string_view grade = speedGrade.empty() ? std::string_view(choice.part->speedGrade) : speedGrade;
    choice.grade = rowOf(choice.family->grades, grade);
    if (choice.grade == nullptr) {
        return refuse("device family '" + choice.family->name + "' has no speed grade '" + std::string(speedGrade) +
                      "', but " + namesOf(choice.family->grades));
    }
    return choice;
}

std::optional<DeviceTable> readDeviceTable(std::string_view text, TableError &error) {
    return Reader().read(text, error);
}

std::string installedDeviceTable() { return GetLumoBackendRootDir() + "/include/orvo/orvo_devices.txt"; }

} // namespace device
