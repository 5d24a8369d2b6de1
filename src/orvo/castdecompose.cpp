// A cast as rounding, selection of bits and clipping.
#include "orvo/castdecompose.h"

#include "orvo/fixednumbers.h"

#include <orvo/design.h>
#include <orvo/filesystem.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <util/features.h>

#include <fmt/format.h>
#include <gmpxx.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace orvo::internal {

namespace {

bool reinterprets(const Block &block) { return block.getParam(A_CAST_MODE) == A_CAST_MODE_REINTERP; }

int bitsOf(const NumTypeSpec &type) { return type.isFloat() ? type.floatBits() : type.fixedBits(); }

/// The design as it is when a cast meets a type that it cannot have; the comment follows the declaration, which has to
/// come first in the file.
void dumpDesign(const Block &block, const char *end) {
    std::ofstream file;
    if (!util::GetFeatureBoolean(Features::DUMP_XML_ON_INVALID_NETLIST) ||
        !FileSystem::openForWriting(file, util::io::Path("FAIL_CastDecomposeHandler_decompose.xml"))) {
        return;
    }
    std::ostringstream text;
    XMLServices().toXML(text, block.getDesign());
    std::string xml = text.str();
    std::string comment = fmt::format(fmt::runtime(end), block.getName()->toString());
    // Two dashes would end a comment.
    for (std::size_t at = comment.find("--"); at != std::string::npos; at = comment.find("--")) {
        comment.replace(at, 2, "- -");
    }
    const bool isDeclared = xml.rfind("<?xml", 0) == 0;
    const std::size_t at = isDeclared ? std::min(xml.find('\n'), xml.size() - 1) + 1 : 0;
    xml.insert(at, "<!-- " + comment + " -->\n");
    file << xml;
}

/// Tells of a signal without a type, which is most often a mistake of the design, before the assertion.
void tellOfMissingType(const Block &block, const char *port, const char *side) {
    log::msg(msg::error::UNABLE_TO_INFER_TYPE, log::p("port", port) % log::p("block", block.getName()) %
                                                   log::p("model", block.getModel().getName()) % log::p("side", side));
}

void requireTypes(const Block &block, const NumTypeSpec &in, const NumTypeSpec &out) {
    if (!in.valid()) {
        tellOfMissingType(block, "data port 0", "input");
        dumpDesign(block, "On block input: {}");
    } else if (!out.valid()) {
        tellOfMissingType(block, "port primWireOut", "output");
        dumpDesign(block, "On block output: {}");
    }
    ORVO_ASSERT(in.valid(), "a cast reads a signal without a type");
    ORVO_ASSERT(out.valid(), "a cast has an output without a type");
}

mpz_class powerOfTwo(int exponent) { return mpz_class(1) << static_cast<unsigned>(std::max(exponent, 0)); }

/// One cast on its way.
class CastDecomposition {
  public:
    CastDecomposition(Block &block, const NumTypeSpec &in, const NumTypeSpec &out)
        : mBuilder(block), mContext(block.getContext()), mIn(in), mOut(out), mRounding(block[A_CAST_ROUNDING_MODE]),
          mSaturation(block[A_CAST_SATURATE_MODE]) {}

    void reinterpret();
    void convert();

  private:
    bool saturates() const { return mSaturation == A_SATURATE_ASYM || mSaturation == A_SATURATE_SYM; }
    bool roundsToNearest() const { return mRounding == A_ROUNDING_BIASED || mRounding == A_ROUNDING_UNBIASED; }
    const StaticString &roundBlock() const;
    int droppedBits() const { return mIn.fracBits() - mOut.fracBits(); }
    /// Of what rounding can give; truncation to zero counts as the floor does.
    int roundedWidth() const {
        return mIn.fixedBits() - droppedBits() + (roundsToNearest() && droppedBits() >= 1 ? 1 : 0);
    }
    bool needsClip() const;
    mpz_class highBound() const;
    mpz_class lowBound() const;
    MadeBlock constant(const char *word, const NumTypeSpec &type, const mpz_class &raw) const;
    MadeBlock select(Wire &wire) const;
    void replaceByConstants();
    Wire &flag(const char *comparison, const char *negation, Wire &larger, Wire &smaller) const;
    MadeBlock clip(Wire &rounded, const NumTypeSpec &type, Wire &selected) const;
    void finishClipped(const MadeBlock &mux);
    void finish(Wire &wire, Wire *clipped);

    BlockBuilder mBuilder;
    Context *mContext;
    const NumTypeSpec mIn;
    const NumTypeSpec mOut;
    const ValueRef mRounding;
    const ValueRef mSaturation;
};

const StaticString &CastDecomposition::roundBlock() const {
    return mRounding == A_ROUNDING_BIASED          ? A_BIASED_ROUND_BLOCK
           : mRounding == A_ROUNDING_UNBIASED      ? A_UNBIASED_ROUND_BLOCK
           : mRounding == A_ROUNDING_TRUNC_TO_ZERO ? A_TRUNCATE_TO_ZERO_BLOCK
                                                   : A_TRUNCATE_BLOCK;
}

/// The constant that stands for the raw integer; what is out of the type's range saturates.
MadeBlock CastDecomposition::constant(const char *word, const NumTypeSpec &type, const mpz_class &raw) const {
    const MadeBlock made = mBuilder.makeSuffixed(A_CONST_BLOCK, word);
    made.type(A_CONST_TYPE, type).set(A_CONST_VALUE, ValueRef(numberOfSteps(raw, type.fracBits(), mContext)));
    return made;
}

MadeBlock CastDecomposition::select(Wire &wire) const {
    const MadeBlock made = mBuilder.make(A_BIT_SELECT_BLOCK, "sel");
    made.set(A_BIT_SELECT_BIT_OFFSET, 0).type(A_BIT_SELECT_OUTPUT_TYPE, mOut).in(0, wire);
    return made;
}

/// Without a wire for the flag, nothing clips.
void CastDecomposition::finish(Wire &wire, Wire *clipped) {
    mBuilder.replaceOutput(A_PRIM_WIRE_OUT, wire);
    if (mBuilder.block().getWire(A_CAST_WIRE_CLIP) != nullptr) {
        if (clipped == nullptr) {
            NumTypeSpec bit = mOut;
            bit.setToFixed(false, 1, 0);
            const MadeBlock ground = mBuilder.makeSuffixed(A_CONST_BLOCK, "gndClip");
            clipped = &static_cast<Wire &>(ground.type(A_CONST_TYPE, bit).set(A_CONST_VALUE, 0));
        }
        mBuilder.replaceOutput(A_CAST_WIRE_CLIP, *clipped);
    }
    mBuilder.done();
}

void CastDecomposition::reinterpret() {
    const int wanted = bitsOf(mOut);
    const int given = bitsOf(mIn);
    Wire *in = &mBuilder.input(0);
    NumTypeSpec type = mIn;
    if (mIn.isFloat() && given != wanted) {
        type.setToFixed(false, given, 0);
        const MadeBlock made = mBuilder.makeSuffixed(A_CAST_BLOCK, "preCast");
        made.set(A_CAST_MODE, A_CAST_MODE_REINTERP).type(A_CAST_OUTPUT_TYPE, type).in(0, *in);
        in = &made.out(A_PRIM_WIRE_OUT);
    }
    if (given < wanted) {
        const MadeBlock pad = mBuilder.makeSuffixed(A_CAST_BLOCK, "extendPad");
        type.setToFixed(type.isSigned(), wanted - type.fracBits(), type.fracBits());
        pad.type(A_CAST_OUTPUT_TYPE, type);
        pad.set(A_CAST_MODE, A_CAST_MODE_CONVERT).set(A_CAST_ROUNDING_MODE, A_ROUNDING_TRUNC);
        pad.set(A_CAST_SATURATE_MODE, A_SATURATE_NONE).in(0, *in);
        in = &pad.out(A_PRIM_WIRE_OUT);
    }
    finish(select(*in), nullptr);
}

/// No bit of the input survives: 0 or, of the floor, -1 below 0.
void CastDecomposition::replaceByConstants() {
    const bool isFloor = !roundsToNearest() && !(mRounding == A_ROUNDING_TRUNC_TO_ZERO);
    if (!isFloor || !mIn.isSigned()) {
        finish(constant("replace_constant", mOut, 0), nullptr);
        return;
    }
    // -1 wraps to all ones in a type without a sign, and a bound takes its place where it is out of range.
    const bool isWrapped = !mOut.isSigned() && !saturates();
    const mpz_class minusOne = isWrapped     ? powerOfTwo(mOut.fixedBits()) - 1
                               : saturates() ? std::max(mpz_class(-1), lowBound())
                                             : mpz_class(-1);
    const MadeBlock zero = constant("replace_zero_const", mOut, 0);
    const MadeBlock allOnes = constant("replace_allones_const", mOut, minusOne);
    const MadeBlock sign = mBuilder.makeSuffixed(A_BIT_SELECT_BLOCK, "msb_select");
    sign.set(A_BIT_SELECT_BIT_OFFSET, mIn.fixedBits() - 1)
        .type(A_BIT_SELECT_OUTPUT_TYPE, likeScalar(mIn, NumTypeSpec::boolean()))
        .in(0, mBuilder.input(0));
    const MadeBlock mux = mBuilder.makeSuffixed(A_MUX_BLOCK, "const_select_mux");
    finish(mux.in(A_MUX_PORT_SELECT, sign).in(0, zero).in(1, allOnes), nullptr);
}

bool CastDecomposition::needsClip() const {
    if (!saturates()) {
        return false;
    }
    const int width = roundedWidth();
    const int room = mOut.fixedBits();
    const bool fits = mIn.isSigned()    ? mOut.isSigned() && width <= room
                      : mOut.isSigned() ? width < room
                                        : width <= room;
    // The most negative value has no positive twin.
    return !fits || (mSaturation == A_SATURATE_SYM && mIn.isSigned() && width == room);
}

mpz_class CastDecomposition::highBound() const { return powerOfTwo(mOut.fixedBits() - (mOut.isSigned() ? 1 : 0)) - 1; }

mpz_class CastDecomposition::lowBound() const {
    if (!mOut.isSigned()) {
        return 0;
    }
    return mSaturation == A_SATURATE_SYM ? mpz_class(-highBound()) : mpz_class(-highBound() - 1);
}

/// Whether the first is below the second.
Wire &CastDecomposition::flag(const char *comparison, const char *negation, Wire &larger, Wire &smaller) const {
    const MadeBlock holds = mBuilder.makeSuffixed(A_CMP_GE_BLOCK, comparison);
    return mBuilder.makeSuffixed(A_NOT_BLOCK, negation).in(0, holds.in(0, larger).in(1, smaller));
}

/// The value, or the bound that it is beyond.
MadeBlock CastDecomposition::clip(Wire &rounded, const NumTypeSpec &type, Wire &selected) const {
    const MadeBlock mux = mBuilder.makeSuffixed(A_SELECT_BLOCK, "mux");
    int number = 0;
    const auto add = [&](Wire &control, Wire &bound) {
        const PureValueRef at = NumberValue::get(number++, mContext);
        mux.in(PureTupleValue::get(A_SELECT_PORTKEY_CTRL, at, mContext), control);
        mux.in(PureTupleValue::get(A_SELECT_PORTKEY_DATA, at, mContext), bound);
    };
    if (mIn.isSigned()) {
        Wire &low = constant("lconst", type, lowBound());
        add(flag("lcmp", "lnot", rounded, low), constant("lbound", scalarOf(mOut), lowBound()));
    }
    Wire &high = constant("hconst", type, highBound());
    add(flag("hcmp", "hnot", high, rounded), constant("hbound", scalarOf(mOut), highBound()));
    mux.in(A_SELECT_PORT_DEFAULT_DATA, selected);
    return mux;
}

/// A cast has its types whatever comes in, a selector has not: in a loop, pins say them.
void CastDecomposition::finishClipped(const MadeBlock &mux) {
    const bool isTyped = isTypedWithout(mBuilder.input(0), mBuilder.block());
    const auto typed = [&](const char *word, Wire &wire, const NumTypeSpec &type) -> Wire & {
        return isTyped ? wire : mBuilder.pinned(word, wire, type.toValue(mContext));
    };
    Wire *clipped = nullptr;
    if (mBuilder.block().getWire(A_CAST_WIRE_CLIP) != nullptr) {
        clipped = &typed("clipPin", mux.out(A_SELECT_WIRE_VALID), likeScalar(mOut, NumTypeSpec::boolean()));
    }
    finish(typed("typePin", mux, mOut), clipped);
}

void CastDecomposition::convert() {
    const int dropped = droppedBits();
    if (dropped > mIn.fixedBits() || roundedWidth() < 1) {
        replaceByConstants();
        return;
    }
    const StaticString &rounding = roundBlock();
    const MadeBlock rounded = mBuilder.makeSuffixed(rounding, "rnd");
    rounded.set(A_ROUND_BITS, dropped).in(0, mBuilder.input(0));
    const MadeBlock selected = select(rounded);
    if (!needsClip()) {
        finish(selected, nullptr);
        return;
    }
    // Any of these blocks but the plain truncation has one bit more for a carry.
    const bool carries = dropped >= 1 && !(rounding == A_TRUNCATE_BLOCK);
    const int width = mIn.fixedBits() - dropped + (carries ? 1 : 0);
    const NumTypeSpec type = NumTypeSpec::fixed(mIn.isSigned(), width - mOut.fracBits(), mOut.fracBits());
    finishClipped(clip(rounded, type, selected));
}

} // namespace

bool CastDecomposeHandler::applicable(GlobalTypeCache &cache) const {
    const Block &block = cache.getBlock();
    if (block.getWire(A_PRIM_WIRE_OUT) == nullptr) {
        return false;
    }
    const PureValueRef given = cache.getTypePort(NumberValue::get(0, block.getContext()));
    const PureValueRef wanted = cache.getTypeWire(A_PRIM_WIRE_OUT);
    if (!given || !wanted) {
        return true; // To be told of.
    }
    const NumTypeSpec in(given, block.getContext());
    const NumTypeSpec out(wanted, block.getContext());
    if (!reinterprets(block) && (in.isFloat() || out.isFloat())) {
        return false;
    }
    // Lanes are converted one by one.
    return hasRealNumbers(cache) && likeScalar(in, out) == out;
}

void CastDecomposeHandler::decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const {
    const BlockTypes types(block, query, refChain);
    const NumTypeSpec in = types.port(0);
    const NumTypeSpec out = types.wire(A_PRIM_WIRE_OUT);
    requireTypes(block, in, out);
    CastDecomposition decomposition(block, in, out);
    if (reinterprets(block)) {
        decomposition.reinterpret();
    } else {
        decomposition.convert();
    }
}

namespace {

const DecomposeRow kRows[] = {
    {&A_CAST_BLOCK, decomposeHandler<CastDecomposeHandler>, "rounding, the low bits, and bounds where values clip"},
};

} // namespace

std::span<const DecomposeRow> castDecompositions() { return kRows; }

} // namespace orvo::internal
