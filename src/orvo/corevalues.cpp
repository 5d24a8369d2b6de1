// Strings and tuples, the text form of values and its reader. Numbers and nodes stand in files of their own.
#include <orvo/corevalues.h>

#include <orvo/limits.h>
#include <orvo/logging.h>
#include <util/pool.h>

#include "orvo/contextimpl.h"
#include "orvo/valuetext.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace orvo {

namespace {

using internal::implOf;

// What the readers of nested tuples of one text share. The elements of all open tuples stand in one vector, each
// tuple's behind those of the one around it, so that a short tuple costs no memory of its own.
struct TupleReaderState {
    std::size_t depth = 0;
    std::size_t repeated = 0;
    /// What all texts of this thread have repeated.
    std::size_t repeatedEver = 0;
    /// Elements that the text of the last value stands for when it is written again.
    std::size_t weight = 1;
    std::vector<ValueRef> elements;
    std::vector<std::size_t> weights;
};

thread_local TupleReaderState tl_tuple_reader;

/// From this length on, equal elements are written as one with a count.
constexpr std::size_t kShortestRun = 4;

class TupleReaderScope {
  public:
    explicit TupleReaderScope(TupleReaderState &state) : mState(state), mBase(state.elements.size()) {
        if (mState.depth++ == 0) {
            mState.repeated = 0;
        }
    }
    ~TupleReaderScope() {
        --mState.depth;
        mState.elements.resize(mBase);
        mState.weights.resize(mBase);
        if (mState.depth != 0) {
            return;
        }
        mState.repeatedEver += mState.repeated;
        if (mState.elements.capacity() > kKeptCapacity) {
            mState.elements = {};
            mState.weights = {};
        }
    }
    TupleReaderScope(const TupleReaderScope &) = delete;
    TupleReaderScope &operator=(const TupleReaderScope &) = delete;

    std::size_t base() const { return mBase; }

  private:
    // What one huge tuple took is not kept for the life of the thread.
    static constexpr std::size_t kKeptCapacity = 4096;

    TupleReaderState &mState;
    std::size_t mBase;
};

// The count behind a "^", 0 if there is none that the limits allow.
std::size_t readRepeatCount(std::streambuf &in) {
    int c = internal::skipSpace(in);
    if (c == '+') {
        c = in.snextc();
    }
    std::size_t count = 0;
    for (; internal::isDigitChar(c); c = in.snextc()) {
        count = std::min(count * 10 + static_cast<std::size_t>(c - '0'), limits::kRepeatCount + 1);
    }
    return count <= limits::kRepeatCount ? count : 0;
}

bool readRepeat(std::streambuf &in, TupleReaderState &state, std::size_t base) {
    const std::size_t count = readRepeatCount(in);
    if (count == 0 || state.elements.size() == base) {
        return false;
    }
    // A short run is written in full, so that nested ones would multiply: it is charged with all that it stands for.
    const bool inFull = count < kShortestRun;
    const std::size_t weight = inFull ? state.weights.back() : 0;
    state.repeated += (count - 1) * std::max<std::size_t>(weight, 1);
    if (state.repeated > limits::kRepeatedElements) {
        return false;
    }
    const ValueRef last = state.elements.back();
    state.elements.insert(state.elements.end(), count - 1, last);
    state.weights.insert(state.weights.end(), count - 1, weight);
    return true;
}

// Reads up to and with the ")". False for bad text.
bool readElements(Context *context, std::istream &in, TupleReaderState &state, std::size_t base) {
    std::streambuf &buffer = *in.rdbuf();
    for (;;) {
        const int c = internal::skipSpace(buffer);
        if (c == ')') {
            buffer.sbumpc();
            return true;
        }
        if (c == '^') {
            buffer.sbumpc();
            if (!readRepeat(buffer, state, base)) {
                return false;
            }
            continue;
        }
        state.weight = 1;
        ValueRef element = Value::parse(in, context);
        if (!element) {
            return false;
        }
        state.elements.push_back(std::move(element));
        state.weights.push_back(state.weight);
    }
}

std::uint32_t hashElements(CoreType kind, const ValueRef *elements, std::size_t count) {
    std::uint64_t hash = static_cast<std::uint64_t>(kind) + (count << 8);
    for (std::size_t i = 0; i < count; ++i) {
        hash = internal::mixHash(hash, elements[i] ? elements[i]->hash() : 0);
    }
    return internal::finishHash(hash);
}

bool sameElements(const TupleValue &tuple, const ValueRef *elements, std::size_t count) {
    return tuple.size() == count && std::equal(elements, elements + count, tuple.begin());
}

// A tuple that is being written, the element that comes next, and how often that stands there.
struct OpenTuple {
    const TupleValue *tuple;
    TupleValue::const_iterator at;
    std::size_t run;
};

std::size_t runAt(const OpenTuple &open, std::size_t repeatsLeft) {
    const std::size_t longest =
        std::min({static_cast<std::size_t>(open.tuple->end() - open.at), limits::kRepeatCount, repeatsLeft + 1});
    std::size_t run = 1;
    while (run < longest && open.at[static_cast<std::ptrdiff_t>(run)] == *open.at) {
        ++run;
    }
    return run;
}

// Behind an element. `repeatsLeft` is what a reader allows one text to repeat; beyond it, elements are written one by
// one.
void appendRepeat(std::string &out, OpenTuple &open, std::size_t &repeatsLeft) {
    const std::size_t run = std::min(open.run, repeatsLeft + 1);
    if (run >= kShortestRun) {
        repeatsLeft -= run - 1;
        out += " ^" + std::to_string(run);
        open.at += static_cast<std::ptrdiff_t>(run);
    } else {
        ++open.at;
    }
    open.run = 0;
}

// Tuples that were made and not read may stand inside each other more often than calls can.
void appendTuple(std::string &out, const TupleValue &outermost) {
    std::size_t repeatsLeft = limits::kRepeatedElements;
    std::vector<OpenTuple> open{{&outermost, outermost.begin(), 0}};
    out += '(';
    while (!open.empty()) {
        OpenTuple &top = open.back();
        if (top.run != 0) {
            appendRepeat(out, top, repeatsLeft);
        }
        if (top.at == top.tuple->end()) {
            out += ')';
            open.pop_back();
            continue;
        }
        if (top.at != top.tuple->begin()) {
            out += ' ';
        }
        top.run = runAt(top, repeatsLeft);
        const Value *element = top.at->get_ptr();
        if (element == nullptr) {
            out += "*INVALID*";
        } else if (internal::isKindOf<TupleValue>(element->kind())) {
            const auto &tuple = *static_cast<const TupleValue *>(element);
            out += '(';
            open.push_back({&tuple, tuple.begin(), 0});
        } else {
            internal::appendText(out, *element);
        }
    }
}

void writeText(std::ostream &out, const Value &value) {
    std::string text;
    internal::appendText(text, value);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace

namespace internal {

void appendText(std::string &out, const Value &value) {
    switch (value.kind()) {
    case CoreType::String: {
        const std::string &text = static_cast<const StringValue &>(value).str();
        if (isNakedWord(text)) {
            out += text;
        } else {
            out += '"';
            appendWithDelim(out, '"', text);
        }
        return;
    }
    case CoreType::Number:
        out += static_cast<const NumberValue &>(value).toString(16, 0);
        return;
    case CoreType::Tuple:
    case CoreType::PureTuple:
        appendTuple(out, static_cast<const TupleValue &>(value));
        return;
    case CoreType::Node:
        out += '[';
        appendWithDelim(out, ']', static_cast<const NodeValue &>(value).getPath());
        return;
    }
}

} // namespace internal

ValueRef Value::parse(std::istream &in, Context *context) {
    ORVO_ASSERT(context != nullptr, "a value is read into a context");
    if (in.fail()) {
        return {};
    }
    internal::skipSpace(*in.rdbuf());
    const internal::ValueParser parser = internal::findValueParser(*in.rdbuf());
    if (parser == nullptr) {
        in.setstate(std::ios::failbit);
        return {};
    }
    ValueRef value = parser(context, in);
    return in.fail() ? ValueRef() : value;
}

ValueRef Value::parse(const std::string &text, Context *context) {
    internal::TextViewBuffer buffer(text);
    std::istream in(&buffer);
    return parse(in, context);
}

// Strings.

StringValue::StringValue(std::string text, Context *context, std::uint32_t hash, bool refCounted)
    : PureValue(CoreType::String, context, hash, refCounted), mText(std::move(text)) {}

StringValueRef StringValue::get(std::string_view text, Context *context) {
    ORVO_ASSERT(context != nullptr, "a value is made in a context");
    return FromPtr<StringValue>(implOf(*context).internText(text));
}

StringValueRef StringValue::get(const std::string &text, Context *context) {
    return get(std::string_view(text), context);
}

StringValueRef StringValue::get(const char *text, Context *context) { return get(std::string_view(text), context); }

const ValueMetaData &StringValue::getMetaData() const { return internal::stringMetaData(); }

bool StringValue::deepBefore(const Value *other) const { return before(other); }

void StringValue::print(std::ostream &out) const { writeText(out, *this); }

bool StringValue::before(const Value *other) const {
    // The traits of char compare as bytes without sign.
    return mText < static_cast<const StringValue *>(other)->mText;
}

Value *StringValue::createOnHeap() { return new StringValue(std::move(mText), context(), hash(), isRefCounted()); }

ValueRef StringValue::parse(Context *context, std::istream &in) {
    std::streambuf &buffer = *in.rdbuf();
    const int first = internal::skipSpace(buffer);
    if (internal::isLetterChar(first)) {
        internal::WordBuffer word;
        internal::readWord(buffer, word);
        return get(word.view(), context);
    }
    std::string text;
    if (first != '"') {
        in.setstate(std::ios::failbit);
        return {};
    }
    buffer.sbumpc();
    if (!internal::readWithDelim(buffer, '"', text)) {
        in.setstate(std::ios::failbit);
        return {};
    }
    return get(text, context);
}

// Tuples.

// The elements begin where the object ends, and a pure tuple has no members of its own.
static_assert(sizeof(TupleValue) % alignof(ValueRef) == 0 && sizeof(PureTupleValue) == sizeof(TupleValue));

TupleValue::TupleValue(CoreType kind, const ValueRef *elements, std::size_t count, Context *context, std::uint32_t hash)
    : Value(kind, context, hash), mSize(static_cast<std::uint32_t>(count)) {
    std::uninitialized_copy_n(elements, count, reinterpret_cast<ValueRef *>(this + 1));
}

PureTupleValue::PureTupleValue(const ValueRef *elements, std::size_t count, Context *context, std::uint32_t hash)
    : TupleValue(CoreType::PureTuple, elements, count, context, hash) {}

TupleValue::~TupleValue() { std::destroy_n(reinterpret_cast<ValueRef *>(this + 1), mSize); }

TupleValue *TupleValue::create(CoreType kind, const ValueRef *elements, std::size_t count, Context *context,
                               std::uint32_t hash) {
    ORVO_ASSERT(count <= std::numeric_limits<std::uint32_t>::max(), "a tuple has fewer elements");
    void *cell = util::poolAllocate(sizeof(TupleValue) + count * sizeof(ValueRef));
    return kind == CoreType::PureTuple ? ::new (cell) PureTupleValue(elements, count, context, hash)
                                       : ::new (cell) TupleValue(kind, elements, count, context, hash);
}

void TupleValue::operator delete(TupleValue *tuple, std::destroying_delete_t) noexcept {
    const std::size_t bytes = sizeof(TupleValue) + tuple->mSize * sizeof(ValueRef);
    tuple->~TupleValue();
    util::poolRelease(tuple, bytes);
}

void TupleValue::throwOutOfRange() { throw std::out_of_range("a tuple has fewer elements"); }

TupleValueRef TupleValue::intern(const ValueRef *elements, std::size_t count, Context *context) {
    ORVO_ASSERT(context != nullptr, "a value is made in a context");
    CoreType kind = CoreType::PureTuple;
    for (std::size_t i = 0; i < count && kind == CoreType::PureTuple; ++i) {
        if (!elements[i]) {
            return {};
        }
        if (!elements[i]->isPure()) {
            kind = CoreType::Tuple;
        }
    }
    const std::uint32_t hash = hashElements(kind, elements, count);
    const auto isSame = [=](const Value *other) {
        return other->kind() == kind && sameElements(*static_cast<const TupleValue *>(other), elements, count);
    };
    const auto make = [=]() -> Value * { return create(kind, elements, count, context, hash); };
    return FromPtr<TupleValue>(static_cast<TupleValue *>(implOf(*context).internBy(hash, isSame, make)));
}

TupleValueRef TupleValue::get(const std::vector<ValueRef> &elements, Context *context) {
    return intern(elements.data(), elements.size(), context);
}

TupleValueRef TupleValue::get(std::vector<ValueRef> &&elements, Context *context) {
    return intern(elements.data(), elements.size(), context);
}

TupleValueRef TupleValue::get(const std::vector<ValueRefBase<const Value>> &elements, Context *context) {
    std::vector<ValueRef> plain;
    plain.reserve(elements.size());
    for (const ValueRefBase<const Value> &element : elements) {
        plain.push_back(FromPtr<Value>(const_cast<Value *>(element.get_ptr())));
    }
    return intern(plain.data(), plain.size(), context);
}

TupleValueRef TupleValue::get(Context *context) { return intern(nullptr, 0, context); }

TupleValueRef TupleValue::get(const ValueRef &a, Context *context) { return intern(&a, 1, context); }

TupleValueRef TupleValue::get(const ValueRef &a, const ValueRef &b, Context *context) {
    const ValueRef elements[] = {a, b};
    return intern(elements, std::size(elements), context);
}

TupleValueRef TupleValue::get(const ValueRef &a, const ValueRef &b, const ValueRef &c, Context *context) {
    const ValueRef elements[] = {a, b, c};
    return intern(elements, std::size(elements), context);
}

TupleValueRef TupleValue::get(const ValueRef &a, const ValueRef &b, const ValueRef &c, const ValueRef &d,
                              Context *context) {
    const ValueRef elements[] = {a, b, c, d};
    return intern(elements, std::size(elements), context);
}

TupleValueRef TupleValue::get(const ValueRef &a, const ValueRef &b, const ValueRef &c, const ValueRef &d,
                              const ValueRef &e, Context *context) {
    const ValueRef elements[] = {a, b, c, d, e};
    return intern(elements, std::size(elements), context);
}

// A short text may stand for a value in which one tuple occurs very often, at many levels: each is bound once.
ValueRef TupleValue::resolveIn(Design *design, ResolvedTuples &known) const {
    std::vector<ValueRef> resolved;
    resolved.reserve(size());
    const Value *last = nullptr;
    for (const ValueRef &element : *this) {
        if (element.get_ptr() == last && last != nullptr) {
            resolved.push_back(ValueRef(resolved.back()));
            continue;
        }
        last = element.get_ptr();
        if (last == nullptr || last->isPure()) {
            resolved.push_back(element);
        } else if (last->kind() == CoreType::Tuple) {
            auto at = known.find(last);
            if (at == known.end()) {
                ValueRef made = static_cast<const TupleValue *>(last)->resolveIn(design, known);
                at = known.emplace(last, std::move(made)).first;
            }
            resolved.push_back(at->second);
        } else {
            resolved.push_back(element->resolve(design));
        }
    }
    return get(std::move(resolved), context());
}

ValueRef TupleValue::resolve(Design *design) {
    ResolvedTuples known;
    return resolveIn(design, known);
}

const ValueMetaData &TupleValue::getMetaData() const { return internal::tupleMetaData(); }

bool TupleValue::deepBefore(const Value *other) const {
    const auto &theirs = *static_cast<const TupleValue *>(other);
    const auto [mine, their] = std::mismatch(begin(), end(), theirs.begin(), theirs.end());
    if (mine == end() || their == theirs.end()) {
        return size() < theirs.size();
    }
    if (!*mine || !*their) {
        return !*mine;
    }
    return DeepValueCmp()(*mine, *their);
}

void TupleValue::print(std::ostream &out) const { writeText(out, *this); }

bool TupleValue::before(const Value *other) const {
    const auto &theirs = *static_cast<const TupleValue *>(other);
    if (size() != theirs.size()) {
        return size() < theirs.size();
    }
    const auto [mine, their] = std::mismatch(begin(), end(), theirs.begin());
    return mine != end() && *mine < *their;
}

Value *TupleValue::createOnHeap() { return create(kind(), begin(), size(), context(), hash()); }

ValueRef TupleValue::parse(Context *context, std::istream &in) {
    TupleReaderState &state = tl_tuple_reader;
    std::streambuf &buffer = *in.rdbuf();
    if (internal::skipSpace(buffer) != '(' || state.depth >= limits::kTupleDepth) {
        in.setstate(std::ios::failbit);
        return {};
    }
    buffer.sbumpc();
    const TupleReaderScope scope(state);
    if (!readElements(context, in, state, scope.base())) {
        in.setstate(std::ios::failbit);
        return {};
    }
    state.weight = std::accumulate(state.weights.begin() + static_cast<std::ptrdiff_t>(scope.base()),
                                   state.weights.end(), std::size_t{1});
    return intern(state.elements.data() + scope.base(), state.elements.size() - scope.base(), context);
}

PureTupleValueRef PureTupleValue::get(const PureValueRef &a, Context *context) {
    const ValueRef elements[] = {a};
    return static_ref_cast<PureTupleValue>(intern(elements, std::size(elements), context));
}

PureTupleValueRef PureTupleValue::get(const PureValueRef &a, const PureValueRef &b, Context *context) {
    const ValueRef elements[] = {a, b};
    return static_ref_cast<PureTupleValue>(intern(elements, std::size(elements), context));
}

PureTupleValueRef PureTupleValue::get(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                      Context *context) {
    const ValueRef elements[] = {a, b, c};
    return static_ref_cast<PureTupleValue>(intern(elements, std::size(elements), context));
}

PureTupleValueRef PureTupleValue::get(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                      const PureValueRef &d, Context *context) {
    const ValueRef elements[] = {a, b, c, d};
    return static_ref_cast<PureTupleValue>(intern(elements, std::size(elements), context));
}

PureTupleValueRef PureTupleValue::get(const PureValueRef &a, const PureValueRef &b, const PureValueRef &c,
                                      const PureValueRef &d, const PureValueRef &e, Context *context) {
    const ValueRef elements[] = {a, b, c, d, e};
    return static_ref_cast<PureTupleValue>(intern(elements, std::size(elements), context));
}

PureTupleValueRef PureTupleValue::get(const std::vector<PureValueRef> &elements, Context *context) {
    const std::vector<ValueRef> plain(elements.begin(), elements.end());
    return static_ref_cast<PureTupleValue>(intern(plain.data(), plain.size(), context));
}

PureTupleValueRef PureTupleValue::get(const std::map<PureValueRef, PureValueRef> &entries, Context *context) {
    std::vector<std::pair<PureValueRef, PureValueRef>> sorted(entries.begin(), entries.end());
    for (const auto &[key, value] : sorted) {
        if (!key || !value) {
            return {};
        }
    }
    std::sort(sorted.begin(), sorted.end(),
              [](const auto &a, const auto &b) { return DeepValueCmp()(a.first, b.first); });
    std::vector<PureValueRef> pairs;
    pairs.reserve(sorted.size());
    for (const auto &[key, value] : sorted) {
        pairs.push_back(get(key, value, context));
    }
    return get(pairs, context);
}

ValueRef PureTupleValue::resolve(Design *) { return FromPtr<Value>(this); }

// The reader of many short texts.

struct ValueTextReader::Impl {
    explicit Impl(Context *owner) : context(owner), in(&buffer) {}
    Context *context;
    internal::TextViewBuffer buffer;
    std::istream in;
    std::size_t repeatedBefore = tl_tuple_reader.repeatedEver;
};

ValueTextReader::ValueTextReader(Context *context) : mImpl(new Impl(context)) {}
ValueTextReader::~ValueTextReader() { delete mImpl; }

ValueRef ValueTextReader::parse(std::string_view text) {
    // The most frequent text, a plain word, needs no stream.
    const std::string_view word = internal::wordPrefix(text);
    if (!word.empty()) {
        return StringValue::get(word, mImpl->context);
    }
    mImpl->buffer.reset(text);
    mImpl->in.clear();
    return Value::parse(mImpl->in, mImpl->context);
}

std::size_t ValueTextReader::repeatedElements() const { return tl_tuple_reader.repeatedEver - mImpl->repeatedBefore; }

} // namespace orvo
