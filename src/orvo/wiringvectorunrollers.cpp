// Blocks that only join, part or choose lanes: wires and packs take their place.
#include "orvo/wiringvectorunrollers.h"

#include "orvo/vectorsplit.h"
#include "orvo/vectorunrollparts.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace orvo::internal {

namespace {

/// Of the blocks that only join wires: what they make is wired once all is known.
class WiringVectorUnroller : public VectorUnroller {
  public:
    explicit WiringVectorUnroller(Block &block) : mBlock(block) {}
    bool mandatoryUnrolling() const override { return true; }
    VectorUnrollKind originalWire(Wire &, const VectorDecorSpec &) override { return VectorUnrollKind::Leave; }
    VectorUnrollKind originalPort(Port &, const VectorDecorSpec &) override { return VectorUnrollKind::Leave; }
    void preAttach(const VectorDecorSpec &) override {}
    void attachPort(Port &, const VectorDecorSpec &, const std::vector<int> &, Wire &) override {}
    Wire *attachWire(Wire &, const VectorDecorSpec &, const std::vector<int> &,
                     const std::vector<MaybePort> &) override {
        return nullptr;
    }

  protected:
    Block &block() const { return mBlock; }
    /// An unpack of the outermost dimension in place of a port.
    Block &unpack(const PureValueRef &name, const PureValueRef &port, int length) const {
        Block &made = unpacked(name, *mBlock.getPort(port)->getWire(), length);
        notifyUnrollPort(mBlock, port, made, A_VUNPACK_PORT_IN);
        return made;
    }
    Block &unpacked(const PureValueRef &name, Wire &vector, int length) const {
        Block &made = createBeside(mBlock, name, A_VUNPACK_BLOCK);
        made.setParam(A_VUNPACK_PORT_IN, vector);
        for (int i = 0; i < length; ++i) {
            Wire::create(made, numberOf(static_cast<std::size_t>(i)));
        }
        return made;
    }
    void replaceWire(Wire &wire, Wire &by) const {
        OrvoUtils::copyParams(by, wire);
        wire.replace(by);
        notifyUnrollWire(mBlock, wire.getName(), by.getBlock(), by.getName());
    }

  private:
    Block &mBlock;
};

/// An unpack for each vector that goes in, and one pack.
class VecConcatUnroller final : public WiringVectorUnroller {
  public:
    using WiringVectorUnroller::WiringVectorUnroller;
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        if (wire.getName() == A_PRIM_WIRE_OUT) {
            mElement = belowOutermost(typeOf(wire), wire.getContext());
            mOut = &wire;
        }
        return WiringVectorUnroller::originalWire(wire, vectors);
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        if (port.getName()->kind() == CoreType::Number) {
            mParts.push_back(
                {port.getName(), outermostLength(vectors), belowOutermost(typeOf(port), port.getBlock().getContext())});
            mConverts = mConverts || (mOut != nullptr && isConverted(port));
        }
        return WiringVectorUnroller::originalPort(port, vectors);
    }
    bool writesTypeOf(const Wire &) const override { return mConverts; }
    bool writesTypeOf(const Port &) const override { return mConverts; }
    void postAttach() override {
        Block &pack = createBeside(block(), named("{0}_vp", block().getName()), A_VPACK_BLOCK);
        Wire &whole = *Wire::create(pack, A_VPACK_WIRE_OUT);
        std::size_t next = 0;
        const auto put = [&](Wire &element, const PureValueRef &type) {
            PureValueRef key = numberOf(next++);
            const PureValueRef name = PureTupleValue::get(pack.getName(), key, pack.getContext());
            pack.setParam(key, mElement ? spread(name, element, type, mElement) : element);
            return key;
        };
        for (const Part &part : mParts) {
            const int number = static_cast<const NumberValue *>(part.key.get_ptr())->toInt();
            if (part.length == 0) {
                const PureValueRef key = put(*block().getPort(part.key)->getWire(), part.element);
                notifyUnrollPort(block(), part.key, pack, key);
                continue;
            }
            for (Wire &element : unpack(named("{0}_vup{1}", block().getName(), number), part.key, part.length)) {
                put(element, part.element);
            }
        }
        if (Wire *wire = block().getWire(A_PRIM_WIRE_OUT)) {
            replaceWire(*wire, whole);
        }
        delete &block();
    }

  private:
    struct Part {
        PureValueRef key;
        int length;
        PureValueRef element;
    };
    /// Whether its numbers are of another type than those that come out, in any instance.
    bool isConverted(const Port &port) const {
        Context *context = block().getContext();
        return std::any_of(instances().begin(), instances().end(), [&](const RefChain &instance) {
            return elementType(typeOf(port, instance), context) != elementType(typeOf(*mOut, instance), context);
        });
    }
    PureValueRef below(const PureValueRef &name, const PureValueRef &key) const {
        return PureTupleValue::get(name, key, block().getContext());
    }
    PureValueRef below(const PureValueRef &name, const char *word) const {
        return below(name, StringValue::get(word, block().getContext()));
    }
    /// A wire as an element. One of fewer dimensions is in each place of the others; one of another type is brought to
    /// it number by number.
    Wire &spread(const PureValueRef &name, Wire &wire, const PureValueRef &type, const PureValueRef &wanted) const {
        Context *context = block().getContext();
        if (type == wanted) {
            return wire;
        }
        const VectorDecorSpec have(type, context);
        const VectorDecorSpec want(wanted, context);
        const int length = outermostLength(want);
        if (length == 0) {
            return brought(name, wire, type, wanted);
        }
        const PureValueRef inner = belowOutermost(wanted, context);
        const bool isBroadcast = have.vectorDepth() < want.vectorDepth();
        Wire *each = isBroadcast ? &spread(below(name, numberOf(0)), wire, type, inner) : nullptr;
        const Block *row = isBroadcast ? nullptr : &unpacked(below(name, "vup"), wire, length);
        Block &pack = createBeside(block(), name, A_VPACK_BLOCK);
        for (std::size_t i = 0; i < static_cast<std::size_t>(length); ++i) {
            const PureValueRef key = numberOf(i);
            pack.setParam(
                key, isBroadcast ? *each
                                 : spread(below(name, key), *row->getWire(key), belowOutermost(type, context), inner));
        }
        return *Wire::create(pack, A_VPACK_WIRE_OUT);
    }
    /// A number in another type. What a cast would make of the imaginary part that a real float has not, is not known.
    Wire &brought(const PureValueRef &name, Wire &wire, const PureValueRef &type, const PureValueRef &wanted) const {
        Context *context = block().getContext();
        const NumTypeSpec from(type, context);
        NumTypeSpec real(wanted, context);
        if (from == real) {
            return rewritten(block(), name, wire, wanted);
        }
        if (!real.isFloat() || !real.isComplex() || from.isComplex()) {
            return widened(block(), name, wire, wanted);
        }
        real.setComplex(false);
        const PureValueRef part = real.toValue(context);
        Block &zero = createBeside(block(), below(name, "zero"), A_CONST_BLOCK);
        zero.setParam(A_CONST_VALUE, numberOf(0));
        zero.setParam(A_CONST_TYPE, part);
        Block &pack = createBeside(block(), name, A_CPACK_BLOCK);
        pack.setParam(A_CPACK_PORT_REAL, from == real ? wire : widened(block(), below(name, "real"), wire, part));
        pack.setParam(A_CPACK_PORT_IMAG, *Wire::create(zero, A_PRIM_WIRE_OUT));
        return *Wire::create(pack, A_CPACK_WIRE_OUT);
    }

    const Wire *mOut = nullptr;
    bool mConverts = false;
    PureValueRef mElement;
    std::vector<Part> mParts;
};

/// One unpack, and a pack for each vector that comes out.
class VecSplitUnroller final : public WiringVectorUnroller {
  public:
    using WiringVectorUnroller::WiringVectorUnroller;
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        if (port.getName() == numberOf(0)) {
            mLength = outermostLength(vectors);
        }
        return WiringVectorUnroller::originalPort(port, vectors);
    }
    bool canUnroll() const override { return mLength > 0 && VectorSplit(block(), mLength).fits(); }
    std::string reason() const override { return "its input is no vector, or its parts are longer than that"; }
    void postAttach() override {
        const VectorSplit split(block(), mLength);
        const Block &elements = unpack(named("{}_vup", block().getName()), numberOf(0), mLength);
        for (Wire &wire : block()) {
            if (const std::optional<SplitPart> part = split.partOf(wire)) {
                replaceWire(wire, joined(elements, wire, *part));
            }
        }
        delete &block();
    }

  private:
    /// One element stands for itself.
    Wire &joined(const Block &elements, const Wire &wire, const SplitPart &part) const {
        const auto element = [&](std::int64_t i) -> Wire & {
            return *elements.getWire(numberOf(static_cast<std::size_t>(part.first + i)));
        };
        if (part.length == 1) {
            return element(0);
        }
        Block &pack = createBeside(block(), named("{}_vp{}", block().getName(), numberVR(wire.getName())->toInt()),
                                   A_VPACK_BLOCK);
        for (std::int64_t i = 0; i < part.length; ++i) {
            pack.setParam(numberOf(static_cast<std::size_t>(i)), element(i));
        }
        return *Wire::create(pack, A_VPACK_WIRE_OUT);
    }

    int mLength = 0;
};

/// The readers of each lane that comes out read the lane that was selected.
class VecSelectorUnroller final : public WiringVectorUnroller {
  public:
    using WiringVectorUnroller::WiringVectorUnroller;
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        if (!(port.getName() == A_VSELECTOR_PORT_IN)) {
            return VectorUnrollKind::Leave;
        }
        mIn = vectors;
        mLanes.resize(vectors.elementCount());
        return VectorUnrollKind::Own;
    }
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        if (!(wire.getName() == A_PRIM_WIRE_OUT)) {
            return VectorUnrollKind::Leave;
        }
        mOutCount = vectors.elementCount();
        return VectorUnrollKind::Own;
    }
    bool canUnroll() const override {
        const TupleValueRef levels = tupleVR(block().getParam(A_VSELECTOR_INDICIES));
        if (!levels || levels->size() > mIn.vectorDepth()) {
            return false;
        }
        // All that is chosen comes out, so that there is no more of it than the output's type allows.
        std::size_t count = mIn.elementCount();
        for (std::size_t level = 0; level < levels->size(); ++level) {
            const TupleValueRef chosen = tupleVR(levels->at(level));
            const int length = mIn.vectorLengthRev(level);
            if (!chosen ||
                !std::all_of(chosen->begin(), chosen->end(),
                             [length](const ValueRef &index) { return isWithin(index, length); }) ||
                __builtin_mul_overflow(count / static_cast<std::size_t>(length), chosen->size(), &count)) {
                return false;
            }
        }
        return count == mOutCount.value_or(count);
    }
    std::string reason() const override { return "its indices do not select elements of its input"; }
    void preAttach(const VectorDecorSpec &) override {
        if (mOutCount) {
            select(*tupleVR(block().getParam(A_VSELECTOR_INDICIES)));
        }
    }
    void attachPort(Port &, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        mLanes[lanes.elementIndex(indices)] = &driver;
    }
    Wire *attachWire(Wire &, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override {
        const std::size_t at = lanes.elementIndex(indices);
        const std::size_t run = at / mRunLength;
        ORVO_ASSERT(run < mRuns.size(), "a vector selector gives more lanes than it selects");
        Wire *lane = mLanes[mRuns[run] + at % mRunLength];
        connectReaders(readers, *lane);
        // What read the selector now reads the lane that went in.
        for (const MaybePort &reader : readers) {
            notifyUnrollPort(block(), A_VSELECTOR_PORT_IN, reader.getBlock(), reader.getKey());
        }
        return lane;
    }
    void postAttach() override { delete &block(); }

  private:
    static bool isWithin(const ValueRef &index, int length) {
        const NumberValueRef number = numberVR(index);
        return number && number->isInt() && number->toInt() >= 0 && number->toInt() < length;
    }
    /// Each level takes its elements out of all that the levels around it took.
    void select(const TupleValue &levels) {
        mRunLength = mIn.elementCount();
        for (std::size_t level = 0; level < levels.size(); ++level) {
            const TupleValueRef chosen = tupleVR(levels.at(level));
            mRunLength /= static_cast<std::size_t>(mIn.vectorLengthRev(level));
            std::vector<std::size_t> runs;
            for (const std::size_t run : mRuns) {
                for (const ValueRef &index : *chosen) {
                    runs.push_back(run + static_cast<std::size_t>(numberVR(index)->toInt()) * mRunLength);
                }
            }
            mRuns.swap(runs);
        }
    }

    VectorDecorSpec mIn;
    /// Nothing if nothing comes out.
    std::optional<std::size_t> mOutCount;
    std::vector<Wire *> mLanes;
    /// The first lanes of the runs that are selected, in the order of the output.
    std::vector<std::size_t> mRuns{0};
    std::size_t mRunLength = 1;
};

} // namespace

const VectorUnrollHandler *vecConcatHandler() { return vectorUnrollHandler<VecConcatUnroller>(); }
const VectorUnrollHandler *vecSplitHandler() { return vectorUnrollHandler<VecSplitUnroller>(); }
const VectorUnrollHandler *vecSelectorHandler() { return vectorUnrollHandler<VecSelectorUnroller>(); }

} // namespace orvo::internal
