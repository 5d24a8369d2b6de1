// The reader of design XML: a SAX2 handler that builds the nodes as their elements come, so that no image of the
// document is ever held. Node paths in values are bound at the end, when all nodes are there.
#include "orvo/xmlreader.h"

#include "orvo/valuetext.h"
#include "orvo/xmlform.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/wire.h>

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/SAX2XMLReaderImpl.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <deque>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvo::internal {

namespace {

using ErrorType = XMLServices::ErrorType;

/// Ends the parser's work from inside a handler.
struct StopReading {};

/// Finds the first byte that is no UTF-8: the parser tells only where the block of bytes begins that it was decoding.
class Utf8Checker {
  public:
    void feed(const unsigned char *bytes, std::size_t count) {
        for (std::size_t i = 0; i < count && !mBad; ++i) {
            const unsigned char byte = bytes[i];
            if (mMissing == 0) {
                start(byte);
            } else {
                mBad = byte < mLow || byte > mHigh;
                mLow = 0x80;
                mHigh = 0xbf;
                --mMissing;
            }
        }
    }
    bool bad() const { return mBad; }
    int row() const { return mRow; }
    int column() const { return mColumn; }

  private:
    /// The first byte of a character tells how many follow, and bounds the second one.
    void start(unsigned char byte) {
        if (byte == '\n') {
            ++mRow;
            mColumn = 0;
            return;
        }
        ++mColumn;
        if (byte < 0x80) {
            return;
        }
        mBad = byte < 0xc2 || byte > 0xf4;
        mMissing = byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
        mLow = byte == 0xe0 ? 0xa0 : byte == 0xf0 ? 0x90 : 0x80;
        mHigh = byte == 0xed ? 0x9f : byte == 0xf4 ? 0x8f : 0xbf;
    }

    int mRow = 1;
    int mColumn = 0;
    int mMissing = 0;
    unsigned char mLow = 0x80;
    unsigned char mHigh = 0xbf;
    bool mBad = false;
};

/// What is known of the document's bytes so far.
struct SourceState {
    std::size_t bytes = 0;
    Utf8Checker utf8;
};

/// Gives the parser the bytes of a standard stream.
class IStreamBinAdaptor final : public xercesc::BinInputStream {
  public:
    IStreamBinAdaptor(std::istream &in, SourceState &state) : mIn(in), mState(state) {}
    XMLFilePos curPos() const override { return mPosition; }
    XMLSize_t readBytes(XMLByte *const to, const XMLSize_t most) override {
        if (!mIn.good() || mIn.rdbuf() == nullptr) {
            return 0;
        }
        const auto count = mIn.rdbuf()->sgetn(reinterpret_cast<char *>(to), static_cast<std::streamsize>(most));
        if (count < static_cast<std::streamsize>(most)) {
            mIn.setstate(std::ios::eofbit);
        }
        mPosition += static_cast<XMLFilePos>(count);
        mState.bytes += static_cast<std::size_t>(count);
        mState.utf8.feed(to, static_cast<std::size_t>(count));
        return static_cast<XMLSize_t>(count);
    }
    const XMLCh *getContentType() const override { return nullptr; }

  private:
    std::istream &mIn;
    SourceState &mState;
    XMLFilePos mPosition = 0;
};

class IStreamSourceAdaptor final : public xercesc::InputSource {
  public:
    IStreamSourceAdaptor(std::istream &in, SourceState &state) : mIn(in), mState(state) {}
    xercesc::BinInputStream *makeStream() const override { return new IStreamBinAdaptor(mIn, mState); }

  private:
    std::istream &mIn;
    SourceState &mState;
};

bool equals(const XMLCh *text, const char *ascii) {
    while (*ascii != '\0' && *text == static_cast<XMLCh>(*ascii)) {
        ++text;
        ++ascii;
    }
    return *ascii == '\0' && *text == 0;
}

/// Appends UTF-16 as UTF-8. The parser has checked that surrogates come in pairs, but may hand them over in two pieces.
class Utf8Appender {
  public:
    void operator()(std::string &out, const XMLCh *text, std::size_t length) {
        for (std::size_t i = 0; i < length; ++i) {
            const std::uint32_t unit = text[i];
            if (unit < 0x80) {
                out += static_cast<char>(unit);
            } else if (unit >= 0xd800 && unit < 0xdc00) {
                mHigh = unit;
            } else if (unit >= 0xdc00 && unit < 0xe000) {
                append(out, 0x10000 + ((mHigh - 0xd800) << 10) + (unit - 0xdc00));
            } else {
                append(out, unit);
            }
        }
    }

  private:
    static void append(std::string &out, std::uint32_t c) {
        const auto tail = [&](unsigned int shift) { out += static_cast<char>(0x80 | ((c >> shift) & 0x3f)); };
        if (c < 0x800) {
            out += static_cast<char>(0xc0 | (c >> 6));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xe0 | (c >> 12));
            tail(6);
        } else {
            out += static_cast<char>(0xf0 | (c >> 18));
            tail(12);
            tail(6);
        }
        tail(0);
    }
    std::uint32_t mHigh = 0xd800;
};

/// A value, and whether anything but white space stands behind it.
struct ReadValue {
    ValueRef value;
    bool hasRest = false;
};

/// Reads values, and remembers those of short texts that come again and again: keys, block types, flags.
class CachedValueReader {
  public:
    explicit CachedValueReader(Context *context) : mReader(context), mContext(context), mIn(&mBuffer), mSlots(kSlots) {}
    ReadValue parse(const std::string &text) {
        // Node paths and names hardly ever repeat.
        if (text.size() > kLongest || text.empty() || text.front() == '[') {
            return read(text);
        }
        Slot &slot = mSlots[std::hash<std::string_view>()(text) % kSlots];
        if (slot.text != text) {
            ReadValue read = this->read(text);
            if (!read.value) {
                return read;
            }
            slot = {text, std::move(read)};
        }
        return slot.read;
    }
    ReadValue parseOnce(const std::string &text) { return read(text); }
    std::size_t repeatedElements() const { return mReader.repeatedElements(); }

  private:
    static constexpr std::size_t kSlots = 512;
    static constexpr std::size_t kLongest = 40;
    struct Slot {
        std::string text;
        ReadValue read;
    };

    ReadValue read(const std::string &text) {
        // The most frequent text needs no stream.
        if (isNakedWord(text)) {
            return {mReader.parse(text)};
        }
        mBuffer.reset(text);
        mIn.clear();
        ValueRef value = Value::parse(mIn, mContext);
        const bool hasRest = value && skipSpace(mBuffer) != TextViewBuffer::traits_type::eof();
        return {std::move(value), hasRest};
    }

    ValueTextReader mReader;
    Context *mContext;
    TextViewBuffer mBuffer;
    std::istream mIn;
    std::vector<Slot> mSlots;
};

/// Where the values stand that are still to be bound, to tell the place of one that cannot be. Bounded: what comes
/// beyond the bound is bound all the same, and its errors have no place.
class PendingPlaces {
  public:
    struct Place {
        const Node *node;
        const Value *key;
        int row;
        int column;
    };
    void add(const Node *node, const Value *key, int row, int column) {
        if (mPlaces.size() < kMost) {
            mPlaces.push_back({node, key, row, column});
        }
    }
    /// The place, or rows and columns of -1.
    Place find(const Node *node, const Value *key) {
        if (!mSorted) {
            std::sort(mPlaces.begin(), mPlaces.end(), before);
            mSorted = true;
        }
        const Place probe{node, key, -1, -1};
        auto at = std::lower_bound(mPlaces.begin(), mPlaces.end(), probe, before);
        return at != mPlaces.end() && at->node == node && at->key == key ? *at : probe;
    }

  private:
    static constexpr std::size_t kMost = std::size_t{3} << 19;
    static bool before(const Place &a, const Place &b) {
        return a.node != b.node ? std::less<const Node *>()(a.node, b.node) : std::less<const Value *>()(a.key, b.key);
    }
    std::deque<Place> mPlaces;
    bool mSorted = false;
};

class DesignHandler final : public xercesc::DefaultHandler {
  public:
    DesignHandler(Design &design, const XMLServices::ErrorFunc &errorFunc)
        : mDesign(design), mErrorFunc(errorFunc), mReader(design.getContext()) {}

    /// Of the document, so far.
    SourceState source;
    bool failed() const { return mFailed; }
    /// Reports what only the end of the document tells, and binds the node paths.
    void finish();
    void report(ErrorType type, int row, int column) { mFailed = mErrorFunc(type, row, column) || mFailed; }

    /// With the place of the byte where the parser met one that is no character.
    void reportMalformed(int row, int column, const XMLCh *message) {
        static const XMLCh about[] = {'b', 'y', 't', 'e', 0};
        const bool isEncoding =
            source.utf8.bad() && message != nullptr && xercesc::XMLString::patternMatch(message, about) >= 0;
        report(XMLServices::ERR_MALFORMED_XML, isEncoding ? source.utf8.row() : row,
               isEncoding ? source.utf8.column() : column);
    }

    void setDocumentLocator(const xercesc::Locator *const locator) override { mLocator = locator; }
    void refuseDocumentType() { malformed(); }
    void startElement(const XMLCh *const uri, const XMLCh *const localName, const XMLCh *const,
                      const xercesc::Attributes &attributes) override;
    void endElement(const XMLCh *const, const XMLCh *const, const XMLCh *const) override;
    void characters(const XMLCh *const text, const XMLSize_t length) override;
    void ignorableWhitespace(const XMLCh *const text, const XMLSize_t length) override { characters(text, length); }
    void fatalError(const xercesc::SAXParseException &exception) override {
        reportMalformed(static_cast<int>(exception.getLineNumber()), static_cast<int>(exception.getColumnNumber()),
                        exception.getMessage());
        throw StopReading();
    }
    xercesc::InputSource *resolveEntity(const XMLCh *const, const XMLCh *const) override {
        // Nothing but the given stream is ever opened.
        static const XMLByte nothing[1] = {0};
        return new xercesc::MemBufInputSource(nothing, 0, "nothing");
    }

  private:
    /// What the innermost element that matters is.
    enum class State { Document, Root, Node, Param };
    struct Frame {
        State state;
        Node *node;
    };

    void reportHere(ErrorType type) {
        report(type, mLocator == nullptr ? -1 : static_cast<int>(mLocator->getLineNumber()),
               mLocator == nullptr ? -1 : static_cast<int>(mLocator->getColumnNumber()));
    }
    [[noreturn]] void malformed() {
        reportHere(XMLServices::ERR_MALFORMED_XML);
        throw StopReading();
    }
    void startRoot(const XMLCh *uri, const XMLCh *localName);
    void startInRoot(const XMLCh *localName, const xercesc::Attributes &attributes);
    void startInNode(Node &node, const XMLCh *localName, const xercesc::Attributes &attributes);
    void startParam(Node &node, const xercesc::Attributes &attributes);
    void endParam();
    template <class Child, class Parent>
    void startChild(Node &node, const xercesc::Attributes &attributes, ErrorType unexpected, ErrorType badName);
    bool readAttribute(const xercesc::Attributes &attributes, const char *name, std::string &text);
    bool isOurs(const XMLCh *uri);
    bool tooManyRepeats() const {
        const std::size_t bound =
            std::max(limits::kDocumentRepeatedElements, source.bytes * limits::kDocumentRepeatedElementsPerByte);
        return mReader.repeatedElements() > bound;
    }
    void skip() { mSkipDepth = 1; }
    void resolveNode(Node &node);

    Design &mDesign;
    const XMLServices::ErrorFunc &mErrorFunc;
    const xercesc::Locator *mLocator = nullptr;
    CachedValueReader mReader;
    Utf8Appender mAppendUtf8;
    PendingPlaces mPending;
    std::vector<Frame> mFrames{{State::Document, nullptr}};
    std::vector<PureValueRef> mKeys;
    std::string mText;
    PureValueRef mKey;
    const XMLCh *mOurUri = nullptr;
    std::size_t mDepth = 0;
    /// Elements open inside one that is skipped, that one included.
    std::size_t mSkipDepth = 0;
    /// Elements open inside a "param", whose text counts as the param's.
    std::size_t mInnerDepth = 0;
    /// The end of the document, for errors that only it tells: the locator is gone by then.
    int mEndRow = -1;
    int mEndColumn = -1;
    bool mTextTooLong = false;
    bool mDesignSeen = false;
    bool mDesignSkipped = false;
    bool mFailed = false;
};

/// The parser hands out the same text for the same namespace, so that mostly an address is compared.
bool DesignHandler::isOurs(const XMLCh *uri) {
    if (uri == mOurUri) {
        return true;
    }
    if (!equals(uri, kXmlNamespace)) {
        return false;
    }
    mOurUri = uri;
    return true;
}

bool DesignHandler::readAttribute(const xercesc::Attributes &attributes, const char *name, std::string &text) {
    text.clear();
    for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
        if (equals(attributes.getLocalName(i), name) && *attributes.getURI(i) == 0) {
            const XMLCh *value = attributes.getValue(i);
            mAppendUtf8(text, value, xercesc::XMLString::stringLen(value));
            return text.size() <= limits::kXmlAttributeBytes;
        }
    }
    return true;
}

void DesignHandler::startElement(const XMLCh *const uri, const XMLCh *const localName, const XMLCh *const,
                                 const xercesc::Attributes &attributes) {
    if (++mDepth > limits::kXmlDepth || attributes.getLength() > limits::kXmlAttributes) {
        malformed();
    }
    if (mSkipDepth != 0) {
        ++mSkipDepth;
        return;
    }
    const Frame frame = mFrames.back();
    if (frame.state == State::Param) {
        ++mInnerDepth;
    } else if (frame.state == State::Document) {
        startRoot(uri, localName);
    } else if (!isOurs(uri)) {
        skip();
    } else if (frame.state == State::Root) {
        startInRoot(localName, attributes);
    } else {
        startInNode(*frame.node, localName, attributes);
    }
}

void DesignHandler::endElement(const XMLCh *const, const XMLCh *const, const XMLCh *const) {
    if (--mDepth == 0) {
        mEndRow = static_cast<int>(mLocator->getLineNumber());
        mEndColumn = static_cast<int>(mLocator->getColumnNumber());
    }
    if (mSkipDepth != 0) {
        --mSkipDepth;
    } else if (mInnerDepth != 0) {
        --mInnerDepth;
    } else {
        if (mFrames.back().state == State::Param) {
            endParam();
        }
        mFrames.pop_back();
    }
}

void DesignHandler::characters(const XMLCh *const text, const XMLSize_t length) {
    if (mFrames.back().state != State::Param || mTextTooLong) {
        return;
    }
    mAppendUtf8(mText, text, length);
    if (mText.size() > limits::kXmlTextBytes) {
        mTextTooLong = true;
        mText = std::string();
    }
}

void DesignHandler::startRoot(const XMLCh *uri, const XMLCh *localName) {
    if (!isOurs(uri)) {
        reportHere(XMLServices::ERR_BAD_TOPLEVEL_NAMESPACE);
    }
    if (!mFailed && !equals(localName, kXmlRoot)) {
        reportHere(XMLServices::ERR_BAD_TOPLEVEL_ELEMENT);
    }
    if (mFailed) {
        throw StopReading();
    }
    mFrames.push_back({State::Root, nullptr});
}

void DesignHandler::startInRoot(const XMLCh *localName, const xercesc::Attributes &attributes) {
    if (!equals(localName, "design")) {
        skip();
        return;
    }
    std::string version;
    readAttribute(attributes, "version", version);
    if (version != kXmlVersion) {
        mDesignSkipped = true;
        skip();
    } else if (mDesignSeen) {
        reportHere(XMLServices::ERR_UNEXPECTED_DESIGN_ELEMENT);
        skip();
    } else {
        mDesignSeen = true;
        mFrames.push_back({State::Node, &mDesign});
    }
}

void DesignHandler::startInNode(Node &node, const XMLCh *localName, const xercesc::Attributes &attributes) {
    if (equals(localName, "param")) {
        startParam(node, attributes);
    } else if (equals(localName, "wire")) {
        startChild<Wire, Block>(node, attributes, XMLServices::ERR_UNEXPECTED_WIRE_ELEMENT,
                                XMLServices::ERR_BAD_WIRE_NAME);
    } else if (equals(localName, "block")) {
        startChild<Block, Model>(node, attributes, XMLServices::ERR_UNEXPECTED_BLOCK_ELEMENT,
                                 XMLServices::ERR_BAD_BLOCK_NAME);
    } else if (equals(localName, "model")) {
        startChild<Model, Design>(node, attributes, XMLServices::ERR_UNEXPECTED_MODEL_ELEMENT,
                                  XMLServices::ERR_BAD_MODEL_NAME);
    } else {
        if (equals(localName, "design")) {
            reportHere(XMLServices::ERR_UNEXPECTED_DESIGN_ELEMENT);
        }
        skip();
    }
}

template <class Child, class Parent>
void DesignHandler::startChild(Node &node, const xercesc::Attributes &attributes, ErrorType unexpected,
                               ErrorType badName) {
    if (node.nodeKind() != Parent::kKind) {
        reportHere(unexpected);
        skip();
        return;
    }
    ReadValue read;
    if (readAttribute(attributes, "name", mText)) {
        // Blocks have names of their own; wires share a handful.
        read = Child::kKind == NodeKind::Wire ? mReader.parse(mText) : mReader.parseOnce(mText);
    }
    const PureValueRef name(read.value);
    if (tooManyRepeats()) {
        reportHere(badName);
        throw StopReading();
    }
    Node *child = Child::create(static_cast<Parent &>(node), name);
    if (!(child->getName() == name) || read.hasRest) {
        reportHere(badName);
    }
    mFrames.push_back({State::Node, child});
}

void DesignHandler::startParam(Node &node, const xercesc::Attributes &attributes) {
    const ReadValue read = readAttribute(attributes, "name", mText) ? mReader.parse(mText) : ReadValue();
    // A key that was meant to be longer is not the one that its beginning names.
    mKey = read.hasRest ? PureValueRef() : PureValueRef(read.value);
    if (tooManyRepeats()) {
        reportHere(XMLServices::ERR_BAD_PARAM_NAME);
        throw StopReading();
    }
    if (!mKey) {
        reportHere(XMLServices::ERR_BAD_PARAM_NAME);
        skip();
    } else if (node.findParam(mKey.get_ptr()) != nullptr) {
        reportHere(XMLServices::ERR_DUPLICATE_PARAM_NAME);
        skip();
    } else {
        mText.clear();
        mTextTooLong = false;
        mFrames.push_back({State::Param, &node});
    }
}

void DesignHandler::endParam() {
    const auto [value, hasRest] = mTextTooLong ? ReadValue() : mReader.parse(mText);
    if (!value || tooManyRepeats()) {
        reportHere(XMLServices::ERR_BAD_PARAM_VALUE);
        if (value) {
            throw StopReading();
        }
        return;
    }
    // The first value counts, but nobody writes more than one by intent.
    if (hasRest) {
        reportHere(XMLServices::ERR_BAD_PARAM_VALUE);
    }
    Node &node = *mFrames.back().node;
    node.setParam(mKey, value);
    if (!value->isPure()) {
        mPending.add(&node, mKey.get_ptr(), static_cast<int>(mLocator->getLineNumber()),
                     static_cast<int>(mLocator->getColumnNumber()));
    }
}

void DesignHandler::finish() {
    if (!mDesignSeen) {
        report(mDesignSkipped ? XMLServices::ERR_NO_COMPATIBLE_DESIGN_ELEMENT : XMLServices::ERR_NO_DESIGN_ELEMENT,
               mEndRow, mEndColumn);
    }
    if (!mFailed) {
        resolveNode(mDesign);
    }
}

/// Whether a path somewhere in a tuple named nothing: behind one that did, it leaves a hole and not the whole null. A
/// short text may repeat a tuple at many levels: each is looked at once.
bool hasHole(const Value &value) {
    if (value.kind() != CoreType::Tuple) {
        return false;
    }
    std::unordered_set<const Value *> seen{&value};
    std::vector<const TupleValue *> open{static_cast<const TupleValue *>(&value)};
    while (!open.empty()) {
        const TupleValue &tuple = *open.back();
        open.pop_back();
        for (const ValueRef &element : tuple) {
            if (!element) {
                return true;
            }
            if (element->kind() == CoreType::Tuple && seen.insert(element.get_ptr()).second) {
                open.push_back(static_cast<const TupleValue *>(element.get_ptr()));
            }
        }
    }
    return false;
}

void DesignHandler::resolveNode(Node &node) {
    mKeys.clear();
    for (auto param : Params(node)) {
        if (!param.second->isPure()) {
            mKeys.push_back(param.first);
        }
    }
    for (const PureValueRef &key : mKeys) {
        const ValueRef value = node.getParam(key);
        const ValueRef resolved = value->resolve(&mDesign);
        // The names in a path are read only now.
        const bool tooMany = tooManyRepeats();
        if (!resolved || hasHole(*resolved) || tooMany) {
            const PendingPlaces::Place place = mPending.find(&node, key.get_ptr());
            report(XMLServices::ERR_VALUE_RESOLUTION_FAILED, place.row, place.column);
            if (tooMany) {
                throw StopReading();
            }
        } else if (!(resolved == value)) {
            node.setParam(key, resolved);
        }
    }
    for (auto child : node) {
        resolveNode(*child.second);
    }
}

/// A parser that stops at a document type, before anything in it or behind it is read.
class Parser final : public xercesc::SAX2XMLReaderImpl {
  public:
    explicit Parser(DesignHandler &handler) : mHandler(handler) {}
    void doctypeDecl(const xercesc::DTDElementDecl &, const XMLCh *const, const XMLCh *const, const bool,
                     const bool) override {
        mHandler.refuseDocumentType();
    }

  private:
    DesignHandler &mHandler;
};

/// Features that keep the parser at its text: no validation, no grammar of any kind, no other file.
void configure(Parser &parser) {
    using xercesc::XMLUni;
    parser.setFeature(XMLUni::fgSAX2CoreNameSpaces, true);
    parser.setFeature(XMLUni::fgSAX2CoreNameSpacePrefixes, false);
    parser.setFeature(XMLUni::fgSAX2CoreValidation, false);
    parser.setFeature(XMLUni::fgXercesDynamic, false);
    parser.setFeature(XMLUni::fgXercesSchema, false);
    parser.setFeature(XMLUni::fgXercesLoadSchema, false);
    parser.setFeature(XMLUni::fgXercesLoadExternalDTD, false);
    parser.setFeature(XMLUni::fgXercesSkipDTDValidation, true);
    parser.setFeature(XMLUni::fgXercesDisableDefaultEntityResolution, true);
}

} // namespace

bool readDesign(std::istream &in, Design &design, const XMLServices::ErrorFunc &errorFunc) {
    DesignHandler handler(design, errorFunc);
    try {
        Parser parser(handler);
        configure(parser);
        parser.setContentHandler(&handler);
        parser.setErrorHandler(&handler);
        // Without a lexical handler the parser tells nobody of a document type.
        parser.setLexicalHandler(&handler);
        parser.setEntityResolver(&handler);
        parser.parse(IStreamSourceAdaptor(in, handler.source));
        handler.finish();
    } catch (const StopReading &) {
        // The error was heard where it arose; what was not read cannot be let pass.
        return false;
    } catch (const xercesc::XMLException &exception) {
        handler.reportMalformed(-1, -1, exception.getMessage());
        return false;
    } catch (const xercesc::SAXException &) {
        handler.report(XMLServices::ERR_MALFORMED_XML, -1, -1);
        return false;
    } catch (const xercesc::OutOfMemoryException &) {
        handler.report(XMLServices::ERR_MALFORMED_XML, -1, -1);
        return false;
    }
    return !handler.failed();
}

} // namespace orvo::internal
