// The writer of design XML: a walk over the nodes straight into the stream. The bytes are those of Xerces-C's pretty
// printing DOM serialiser; plain runs of characters are copied, the others go through its formatter.
#include "orvo/xmlwriter.h"

#include "orvo/valuetext.h"
#include "orvo/xmlform.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/wire.h>

#include <xercesc/framework/XMLFormatter.hpp>

#include <array>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::internal {

namespace {

using xercesc::XMLFormatter;

constexpr std::size_t kBufferBytes = std::size_t{1} << 17;
constexpr std::size_t kCacheSlots = 1024;
constexpr std::size_t kLongestCached = 64;

/// What XML 1.0 can carry, beyond ASCII and as long as the text is UTF-8 at all.
bool isXmlCharacter(std::uint32_t c) {
    return (c >= 0x20 && c <= 0xd7ff) || (c >= 0xe000 && c <= 0xfffd) || (c >= 0x10000 && c <= 0x10ffff) || c == '\t' ||
           c == '\n' || c == '\r';
}

/// One character from UTF-8; 0 at a sequence that is none, shortest forms only.
std::uint32_t decode(std::string_view text, std::size_t &at) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i])); };
    const std::uint32_t lead = byte(at);
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0x80) {
        ++at;
        return lead;
    }
    if (lead < 0xc2 || lead > 0xf4 || at + length > text.size()) {
        return 0;
    }
    std::uint32_t c = lead & (0x7fU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xc0) != 0x80) {
            return 0;
        }
        c = (c << 6) | (byte(at + i) & 0x3f);
    }
    at += length;
    constexpr std::uint32_t kShortest[] = {0, 0, 0x80, 0x800, 0x10000};
    return c < kShortest[length] ? 0 : c;
}

/// Text to UTF-16; false if XML cannot carry it.
bool transcode(std::string_view text, std::vector<XMLCh> &out) {
    out.clear();
    for (std::size_t at = 0; at < text.size();) {
        const std::uint32_t c = decode(text, at);
        if (!isXmlCharacter(c)) {
            return false;
        }
        if (c >= 0x10000) {
            out.push_back(static_cast<XMLCh>(0xd7c0 + (c >> 10)));
            out.push_back(static_cast<XMLCh>(0xdc00 + (c & 0x3ff)));
        } else {
            out.push_back(static_cast<XMLCh>(c));
        }
    }
    return true;
}

/// Whether a byte stands for itself in any text or attribute.
constexpr std::array<bool, 256> plainBytes() {
    std::array<bool, 256> plain{};
    for (std::size_t c = 0x20; c < 0x7f; ++c) {
        plain[c] = c != '&' && c != '<' && c != '>' && c != '"';
    }
    return plain;
}
constexpr std::array<bool, 256> kPlain = plainBytes();

bool isPlain(std::string_view text) {
    for (char c : text) {
        if (!kPlain[static_cast<unsigned char>(c)]) {
            return false;
        }
    }
    return true;
}

/// The bridge from the formatter to the writer's buffer, which goes to the stream.
class OStreamTargetAdaptor final : public xercesc::XMLFormatTarget {
  public:
    explicit OStreamTargetAdaptor(std::ostream &out) : mOut(out) { mBuffer.reserve(2 * kBufferBytes); }
    void writeChars(const XMLByte *const bytes, const XMLSize_t count, XMLFormatter *const) override {
        mBuffer.append(reinterpret_cast<const char *>(bytes), count);
    }
    std::string &buffer() { return mBuffer; }
    void spill(std::size_t limit) {
        if (mBuffer.size() > limit) {
            mOut.write(mBuffer.data(), static_cast<std::streamsize>(mBuffer.size()));
            mBuffer.clear();
        }
    }

  private:
    std::ostream &mOut;
    std::string mBuffer;
};

class Writer {
  public:
    explicit Writer(std::ostream &out)
        : mOut(out), mTarget(out), mBuffer(mTarget.buffer()),
          mFormatter("UTF-8", "1.0", &mTarget, XMLFormatter::NoEscapes, XMLFormatter::UnRep_CharRef),
          mKeys(kCacheSlots), mValues(kCacheSlots) {}

    void write(const Design &design) {
        mBuffer += "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>\n<";
        mBuffer += std::string(kXmlRoot) + " xmlns=\"" + kXmlNamespace + "\">\n\n";
        openTag(design, 1);
        writeParams(design, 2);
        for (const Model &model : design) {
            writeModel(model);
        }
        closeTag(design, 1);
        mBuffer += "\n</" + std::string(kXmlRoot) + ">\n";
        mTarget.spill(0);
        if (!mGood) {
            mOut.setstate(std::ios::failbit);
        }
    }

  private:
    /// The escaped text of a value that was written before, by the value's identity.
    struct CacheSlot {
        const Value *value = nullptr;
        std::string text;
    };

    static bool isLeaf(const Node &node) { return node.size() == 0 && node.param_size() == 0; }

    static const char *tagOf(const Node &node) {
        switch (node.nodeKind()) {
        case NodeKind::Design:
            return "design";
        case NodeKind::Model:
            return "model";
        case NodeKind::Block:
            return "block";
        case NodeKind::Wire:
            return "wire";
        }
        return "";
    }

    void writeModel(const Model &model) {
        openTag(model, 2);
        writeParams(model, 3);
        for (const Block &block : model) {
            if (!mGood || !mOut) {
                return;
            }
            openTag(block, 3);
            writeParams(block, 4);
            for (const Wire &wire : block) {
                openTag(wire, 4);
                writeParams(wire, 5);
                closeTag(wire, 4);
            }
            closeTag(block, 3);
            mTarget.spill(kBufferBytes);
        }
        closeTag(model, 2);
    }

    void openTag(const Node &node, std::size_t depth) {
        mBuffer.append(2 * depth, ' ');
        mBuffer += '<';
        mBuffer += tagOf(node);
        if (node.nodeKind() == NodeKind::Design) {
            mBuffer += " version=\"";
            mBuffer += kXmlVersion;
        } else {
            mBuffer += " name=\"";
            escapeAppended(XMLFormatter::AttrEscapes, *node.getName().get_ptr());
        }
        mBuffer += isLeaf(node) ? "\"/>\n" : "\">\n";
    }

    void closeTag(const Node &node, std::size_t depth) {
        if (isLeaf(node)) {
            return;
        }
        mBuffer.append(2 * depth, ' ');
        mBuffer += "</";
        mBuffer += tagOf(node);
        mBuffer += ">\n";
    }

    void writeParams(const Node &node, std::size_t depth) {
        for (auto param : Params(node)) {
            mBuffer.append(2 * depth, ' ');
            mBuffer += "<param name=\"";
            writeCached(mKeys, XMLFormatter::AttrEscapes, *param.first.get_ptr());
            mBuffer += "\">";
            const Value &value = *param.second.get_ptr();
            if (value.kind() == CoreType::Node) {
                escapeAppended(XMLFormatter::CharEscapes, value);
            } else {
                writeCached(mValues, XMLFormatter::CharEscapes, value);
            }
            mBuffer += "</param>\n";
        }
        mTarget.spill(kBufferBytes);
    }

    void writeCached(std::vector<CacheSlot> &cache, XMLFormatter::EscapeFlags flags, const Value &value) {
        CacheSlot &slot = cache[(reinterpret_cast<std::uintptr_t>(&value) >> 4) % kCacheSlots];
        if (slot.value == &value) {
            mBuffer += slot.text;
            return;
        }
        const std::size_t start = mBuffer.size();
        escapeAppended(flags, value);
        if (mBuffer.size() - start <= kLongestCached) {
            slot.value = &value;
            slot.text.assign(mBuffer, start);
        }
    }

    /// Appends a value's text, and takes what has to be escaped through the formatter.
    void escapeAppended(XMLFormatter::EscapeFlags flags, const Value &value) {
        const std::size_t start = mBuffer.size();
        appendText(mBuffer, value);
        if (isPlain(std::string_view(mBuffer).substr(start))) {
            return;
        }
        const std::string text = mBuffer.substr(start);
        mBuffer.resize(start);
        if (transcode(text, mWide)) {
            mFormatter.formatBuf(mWide.data(), mWide.size(), flags);
        } else {
            mGood = false;
        }
    }

    std::ostream &mOut;
    OStreamTargetAdaptor mTarget;
    std::string &mBuffer;
    XMLFormatter mFormatter;
    std::vector<CacheSlot> mKeys;
    std::vector<CacheSlot> mValues;
    std::vector<XMLCh> mWide;
    bool mGood = true;
};

} // namespace

void writeDesign(std::ostream &out, const Design &design) { Writer(out).write(design); }

} // namespace orvo::internal
