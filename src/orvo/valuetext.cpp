// Words and quoted texts of the values' text form, and the registry of readers.
#include "orvo/valuetext.h"

#include <orvo/logging.h>

#include <array>
#include <iterator>

namespace orvo {

namespace internal {

namespace {

constexpr int kEnd = std::streambuf::traits_type::eof();

// What the registry holds, with the first level beside it as an array, since nearly every prefix is one character.
struct ParsePrefixRegistry {
    using Tree = RadixTree<std::string, ValueParser>;
    Tree tree;
    std::array<const Tree::Node *, 256> first{};
};

ParsePrefixRegistry &prefixRegistry() {
    static ParsePrefixRegistry gParsePrefixRegistry;
    return gParsePrefixRegistry;
}

const std::string *stringPrefixes() {
    static const auto names = [] {
        std::array<std::string, 53> all;
        all[0] = "\"";
        for (std::size_t i = 0; i < 26; ++i) {
            all[1 + i] = std::string(1, static_cast<char>('a' + i));
            all[27 + i] = std::string(1, static_cast<char>('A' + i));
        }
        return all;
    }();
    return names.data();
}

} // namespace

std::string_view wordPrefix(std::string_view text) {
    if (text.empty() || !isLetterChar(text[0])) {
        return {};
    }
    std::size_t size = 1;
    while (size < text.size() && isWordChar(text[size])) {
        ++size;
    }
    return text.substr(0, size);
}

bool isNakedWord(std::string_view text) { return !text.empty() && wordPrefix(text).size() == text.size(); }

void appendWithDelim(std::string &out, char delim, std::string_view text) {
    for (const char c : text) {
        if (c == delim || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    out += delim;
}

int skipSpace(std::streambuf &in) {
    int c = in.sgetc();
    while (isSpaceChar(c)) {
        c = in.snextc();
    }
    return c;
}

bool readWithDelim(std::streambuf &in, char delim, std::string &out) {
    for (int c = in.sbumpc(); c != kEnd; c = in.sbumpc()) {
        if (c == static_cast<unsigned char>(delim)) {
            return true;
        }
        if (c == '\\') {
            c = in.sbumpc();
            if (c == kEnd) {
                return false;
            }
        }
        out += static_cast<char>(c);
    }
    return false;
}

void WordBuffer::spill(char c) {
    if (mLong.empty()) {
        mLong.assign(mShort, mSize);
    }
    mLong += c;
    ++mSize;
}

void readWord(std::streambuf &in, WordBuffer &word) {
    for (int c = in.sgetc(); isWordChar(c); c = in.snextc()) {
        word.push(c);
    }
}

void registerValue(const ValueMetaData &prefixes, ValueParser parser) {
    ParsePrefixRegistry &registry = prefixRegistry();
    for (const std::string &prefix : prefixes) {
        ORVO_ASSERT(!prefix.empty(), "a value's prefix must have a character");
        registry.tree.insert(prefix, parser);
        const auto start = static_cast<unsigned char>(prefix[0]);
        registry.first[start] = registry.tree.root().child(prefix[0]);
    }
}

void registerCoreValues() {
    registerValue(stringMetaData(), &StringValue::parse);
    registerValue(numberMetaData(), &NumberValue::parse);
    registerValue(nodeMetaData(), &NodeValue::parse);
    registerValue(tupleMetaData(), &TupleValue::parse);
}

ValueParser findValueParser(std::streambuf &in) {
    int c = in.sgetc();
    if (c == kEnd) {
        return nullptr;
    }
    const ParsePrefixRegistry::Tree::Node *node = prefixRegistry().first[static_cast<std::size_t>(c)];
    ValueParser parser = nullptr;
    int taken = 0;
    while (node != nullptr) {
        if (node->hasValue) {
            parser = node->value;
        }
        if (node->children.empty()) {
            break;
        }
        c = in.snextc();
        ++taken;
        node = c != kEnd ? node->child(static_cast<char>(c)) : nullptr;
    }
    for (; taken > 0; --taken) {
        if (in.sungetc() == kEnd) {
            return nullptr;
        }
    }
    return parser;
}

const ValueMetaData &stringMetaData() {
    static const ValueMetaData metadata_names_StringValue(stringPrefixes(), 53);
    return metadata_names_StringValue;
}

const ValueMetaData &numberMetaData() {
    static const std::string names[] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "+", "-"};
    static const ValueMetaData metadata_names_NumberValue(names, std::size(names));
    return metadata_names_NumberValue;
}

const ValueMetaData &tupleMetaData() {
    static const std::string names[] = {"("};
    static const ValueMetaData metadata_names_TupleValue(names, std::size(names));
    return metadata_names_TupleValue;
}

const ValueMetaData &nodeMetaData() {
    static const std::string names[] = {"["};
    static const ValueMetaData metadata_names_NodeValue(names, std::size(names));
    return metadata_names_NodeValue;
}

} // namespace internal

std::istream &operator>>(std::istream &in, const MatchString &match) {
    if (in.fail()) {
        return in;
    }
    std::streambuf &buffer = *in.rdbuf();
    internal::skipSpace(buffer);
    for (const char expected : match.text) {
        if (buffer.sgetc() != static_cast<unsigned char>(expected)) {
            in.setstate(std::ios::failbit);
            return in;
        }
        buffer.sbumpc();
    }
    return in;
}

std::istream &operator>>(std::istream &in, const TryReadNaked &read) {
    read.out.clear();
    if (in.fail()) {
        return in;
    }
    std::streambuf &buffer = *in.rdbuf();
    if (internal::isLetterChar(internal::skipSpace(buffer))) {
        internal::WordBuffer word;
        internal::readWord(buffer, word);
        read.out = word.view();
    }
    return in;
}

std::ostream &operator<<(std::ostream &out, const WriteWithDelim &write) {
    std::string text;
    internal::appendWithDelim(text, write.delim, write.text);
    return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

std::istream &operator>>(std::istream &in, const ReadWriteWithDelim &read) {
    read.out.clear();
    if (!in.fail() && !internal::readWithDelim(*in.rdbuf(), read.delim, read.out)) {
        in.setstate(std::ios::failbit);
    }
    return in;
}

} // namespace orvo
