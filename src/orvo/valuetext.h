// The pieces of the text form of values: words and quoted texts, on strings and on streams, and the registry that finds
// the reader of a value by its first characters. White space and letters are those of ASCII, whatever the locale.
#pragma once

#include <orvo/corevalues.h>

#include <istream>
#include <map>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace orvo {

/// `in >> MatchString(s)` skips white space and reads exactly `s`; the fail bit tells that something else stands there.
struct ORVO_API MatchString {
    explicit MatchString(std::string_view expected) : text(expected) {}
    std::string_view text;
};
ORVO_API std::istream &operator>>(std::istream &in, const MatchString &match);

/// `in >> TryReadNaked(out)` skips white space and reads the longest word of a letter, then letters, digits and "_".
/// Empty, with the stream as it was, if no letter stands there.
struct ORVO_API TryReadNaked {
    explicit TryReadNaked(std::string &word) : out(word) {}
    std::string &out;
};
ORVO_API std::istream &operator>>(std::istream &in, const TryReadNaked &read);

/// `out << WriteWithDelim(delim, s)` writes `s` with a "\" before every `delim` and "\", then `delim`.
struct ORVO_API WriteWithDelim {
    WriteWithDelim(char end, std::string_view body) : delim(end), text(body) {}
    char delim;
    std::string_view text;
};
ORVO_API std::ostream &operator<<(std::ostream &out, const WriteWithDelim &write);

/// `in >> ReadWriteWithDelim(delim, out)` is the reverse. A text without its end sets the fail bit.
struct ORVO_API ReadWriteWithDelim {
    ReadWriteWithDelim(char end, std::string &body) : delim(end), out(body) {}
    char delim;
    std::string &out;
};
ORVO_API std::istream &operator>>(std::istream &in, const ReadWriteWithDelim &read);

namespace internal {

constexpr bool isSpaceChar(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool isDigitChar(int c) { return c >= '0' && c <= '9'; }
constexpr int toLowerChar(int c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; }
constexpr bool isLetterChar(int c) { return toLowerChar(c) >= 'a' && toLowerChar(c) <= 'z'; }
constexpr bool isWordChar(int c) { return isLetterChar(c) || isDigitChar(c) || c == '_'; }

/// Whether a string is written without quotes.
ORVO_API bool isNakedWord(std::string_view text);
/// The word that `text` starts with: a letter, then letters, digits and "_". Empty if it starts with no letter.
std::string_view wordPrefix(std::string_view text);
/// Appends the text form.
ORVO_API void appendText(std::string &out, const Value &value);
void appendWithDelim(std::string &out, char delim, std::string_view text);

/// The next character without taking it, or the end-of-file value. Never touches the state of a stream.
inline int peekChar(std::streambuf &in) { return in.sgetc(); }
/// Skips white space; gives the next character without taking it.
int skipSpace(std::streambuf &in);
/// False if the end comes before an unescaped `delim`.
bool readWithDelim(std::streambuf &in, char delim, std::string &out);

/// A word of any length that needs no memory from the heap while it is short.
class WordBuffer {
  public:
    void push(int c) {
        if (mSize < sizeof(mShort)) {
            mShort[mSize++] = static_cast<char>(c);
            return;
        }
        spill(static_cast<char>(c));
    }
    std::size_t size() const { return mSize; }
    std::string_view view() const { return mLong.empty() ? std::string_view(mShort, mSize) : std::string_view(mLong); }

  private:
    void spill(char c);

    char mShort[64];
    std::size_t mSize = 0;
    std::string mLong;
};

/// Reads a run of word characters.
void readWord(std::streambuf &in, WordBuffer &word);

/// Reads from a text that somebody else holds.
class ORVO_API TextViewBuffer : public std::streambuf {
  public:
    TextViewBuffer() = default;
    explicit TextViewBuffer(std::string_view text) { reset(text); }
    void reset(std::string_view text) {
        char *begin = const_cast<char *>(text.data());
        setg(begin, begin, begin + text.size());
    }
    /// How much of the text was taken.
    std::size_t position() const { return static_cast<std::size_t>(gptr() - eback()); }
};

/// A trie over keys of characters: one map per level.
template <class Key, class T> class RadixTree {
  public:
    struct Node {
        T value{};
        bool hasValue = false;
        std::map<typename Key::value_type, Node> children;

        const Node *child(typename Key::value_type c) const {
            const auto found = children.find(c);
            return found != children.end() ? &found->second : nullptr;
        }
    };

    void insert(const Key &key, T value) {
        Node *node = &mRoot;
        for (const auto c : key) {
            node = &node->children[c];
        }
        node->value = std::move(value);
        node->hasValue = true;
    }
    const Node &root() const { return mRoot; }

  private:
    Node mRoot;
};

using ValueParser = ValueRef (*)(Context *, std::istream &);

/// Makes `parser` the reader of texts that start with one of the prefixes. Runs at start-up, before any text is read.
void registerValue(const ValueMetaData &prefixes, ValueParser parser);
/// Registers the four kinds: strings, numbers, nodes, tuples.
void registerCoreValues();
/// The reader for what stands next in `in`, which is left as it was; null if no prefix fits.
ValueParser findValueParser(std::streambuf &in);

/// The prefix tables of the kinds.
ORVO_API const ValueMetaData &stringMetaData();
ORVO_API const ValueMetaData &numberMetaData();
ORVO_API const ValueMetaData &tupleMetaData();
ORVO_API const ValueMetaData &nodeMetaData();

} // namespace internal
} // namespace orvo
