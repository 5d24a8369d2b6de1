// The unrollers of block types that are more than one block a lane, and the table of all.
#include "orvo/vectorunrollers.h"

#include "orvo/boundaryvectorunroller.h"
#include "orvo/replacedsignals.h"
#include "orvo/stallnumbers.h"
#include "orvo/vectorsplit.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>

namespace orvo::internal {

namespace {

/// Ports and wires that have names of their own inside a model.
class PrimBoundaryVectorUnroller final : public BoundaryVectorUnroller {
  public:
    using BoundaryVectorUnroller::BoundaryVectorUnroller;
    bool canUnroll() const override { return !namesClash(); }
};

/// The type inside all vector layers; null for null.
PureValueRef elementType(const PureValueRef &type, Context *context) {
    PureValueRef inner;
    const VectorDecorSpec vectors(type, inner, context);
    return inner;
}

/// The type below the outermost dimension; a scalar is its own.
PureValueRef belowOutermost(const PureValueRef &type, Context *context) {
    PureValueRef inner;
    VectorDecorSpec vectors(type, inner, context);
    if (vectors.isVector()) {
        vectors.removeVector();
    }
    return vectors.toValue(inner, context);
}

/// 0 for a scalar.
int outermostLength(const VectorDecorSpec &vectors) { return vectors.isVector() ? vectors.vectorLengthRev(0) : 0; }

PureValueRef named(const char *pattern, const PureValueRef &name, int number = 0) {
    return StringValue::get(fmt::format(fmt::runtime(pattern), name->toString(), number),
                            ContextMgr::getThreadContext());
}

PureValueRef numberOf(std::size_t number) {
    return NumberValue::get(static_cast<int>(number), ContextMgr::getThreadContext());
}

Block &create(const Block &beside, const PureValueRef &name, const StaticString &type) {
    Block &made = *Block::create(beside.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    return made;
}

/// The wire brought to a type that holds all that its own does.
Wire &widened(const Block &beside, const PureValueRef &name, Wire &wire, const PureValueRef &type) {
    Block &cast = create(beside, name, A_CAST_BLOCK);
    cast.setParam(A_CAST_OUTPUT_TYPE, type);
    cast.setParam(A_CAST_SATURATE_MODE, A_SATURATE_NONE);
    cast.setParam(numberOf(0), wire);
    return *Wire::create(cast, A_PRIM_WIRE_OUT);
}

void connect(const std::vector<MaybePort> &readers, Wire &wire) {
    for (const MaybePort &reader : readers) {
        reader.setWire(wire);
    }
}

bool isOneOf(const PureValueRef &key, std::initializer_list<const StaticString *> keys) {
    return std::any_of(keys.begin(), keys.end(), [&](const StaticString *one) { return *one == key; });
}

bool isTagged(const TupleValueRef &tuple, const StaticString &tag) {
    return tuple && tuple->size() != 0 && tuple->at(0) == tag;
}

/// Some parameters give each lane its own value by a tuple that is not rolled.
class LaneTupleVectorUnroller : public DefaultVectorUnroller {
  public:
    using DefaultVectorUnroller::DefaultVectorUnroller;

  protected:
    ValueRef laneValue(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged,
                       const std::vector<int> &indices) const override {
        TupleValueRef tuple = tupleVR(value);
        if (!tuple || tuple->size() == 0 || isTagged(tuple, A_VECTOR_ROLL_TAG)) {
            return DefaultVectorUnroller::laneValue(key, value, merged, indices);
        }
        if (isOneOf(key, {&A_COUNTER_LIMIT, &A_COUNTER_INITIAL, &A_COUNTER_STEP, &A_FIFO_DEPTH, &A_FIFO_LOW_THRESHOLD,
                          &A_FIFO_HIGH_THRESHOLD})) {
            return tuple->at(merged.elementIndex(indices) % tuple->size());
        }
        if (isOneOf(key, {&A_REGISTER_INIT_VALUE, &A_SYNC_REGISTER_INIT_VALUE})) {
            return nested(value, indices);
        }
        return DefaultVectorUnroller::laneValue(key, value, merged, indices);
    }

  private:
    /// A tuple a dimension, the outermost one outside.
    static ValueRef nested(ValueRef value, const std::vector<int> &indices) {
        for (std::size_t k = indices.size(); k-- > 0;) {
            const TupleValueRef tuple = tupleVR(value);
            if (!tuple || isTagged(tuple, A_COMPLEX_ROLL_TAG)) {
                break;
            }
            value = tuple->maybeAt(static_cast<std::size_t>(indices[k]));
        }
        return value;
    }
};

/// Knows the type of the result's elements; null without one.
class ResultVectorUnroller : public DefaultVectorUnroller {
  public:
    using DefaultVectorUnroller::DefaultVectorUnroller;
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        if (wire.getName() == A_PRIM_WIRE_OUT) {
            mType = elementType(typeOf(wire), wire.getContext());
        }
        return DefaultVectorUnroller::originalWire(wire, vectors);
    }

  protected:
    const PureValueRef &type() const { return mType; }

  private:
    PureValueRef mType;
};

/// The element's type stands in a parameter of each lane, whose own value may need fewer bits.
template <const StaticString &kType> class TypedVectorUnroller : public ResultVectorUnroller {
  public:
    using ResultVectorUnroller::ResultVectorUnroller;
    void preAttach(const VectorDecorSpec &merged) override {
        ResultVectorUnroller::preAttach(merged);
        for (Block *lane : substitutes()) {
            if (type()) {
                lane->setParam(kType, type());
            }
        }
    }
};

using ConstVectorUnroller = TypedVectorUnroller<A_CONST_TYPE>;

/// Each lane's contents are its own: of a vector of tables one table, of a table of vectors their elements.
class LUTVectorUnroller final : public TypedVectorUnroller<A_LUT_TYPE> {
  public:
    using TypedVectorUnroller<A_LUT_TYPE>::TypedVectorUnroller;
    bool canUnroll() const override {
        const ValueRef data = block().getParam(A_LUT_DATA);
        return !isTable(elementOfLane(data, std::vector<int>(layersOf(data), 0))) || holdsTables(data);
    }
    std::string reason() const override { return "its contents give some lanes a table and others none"; }
    void preAttachExtended(const VectorDecorSpec &merged, GlobalTypePass &, const RefChain &) override {
        preAttach(merged);
    }

  protected:
    ValueRef laneValue(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged,
                       const std::vector<int> &indices) const override {
        return key == A_LUT_DATA ? contentOfLane(value, indices)
                                 : DefaultVectorUnroller::laneValue(key, value, merged, indices);
    }

  private:
    static bool isTable(const ValueRef &value) {
        const TupleValueRef entries = tupleVR(value);
        return entries && entries->size() != 0 && !isTagged(entries, A_COMPLEX_ROLL_TAG);
    }
    /// Whether each lane that a value tells of has a table.
    static bool holdsTables(const ValueRef &value) {
        const TupleValueRef tuple = tupleVR(value);
        if (!isTagged(tuple, A_VECTOR_ROLL_TAG) || tuple->size() < 2) {
            return isTable(value);
        }
        return std::all_of(std::next(tuple->begin()), tuple->end(), holdsTables);
    }
    static std::size_t layersOf(const ValueRef &value) {
        std::size_t layers = 0;
        TupleValueRef tuple = tupleVR(value);
        for (; isTagged(tuple, A_VECTOR_ROLL_TAG) && tuple->size() > 1; tuple = tupleVR(tuple->at(1))) {
            ++layers;
        }
        return layers;
    }
    static ValueRef contentOfLane(const ValueRef &value, const std::vector<int> &indices) {
        const ValueRef table = elementOfLane(value, std::vector<int>(layersOf(value), 0));
        if (!isTable(table)) {
            return elementOfLane(value, indices);
        }
        const TupleValueRef entries = tupleVR(table);
        // The dimensions of the entries lie inside those of the tables.
        const std::size_t inner = std::min(layersOf(entries->at(0)), indices.size());
        const auto split = indices.begin() + static_cast<std::ptrdiff_t>(inner);
        const TupleValueRef own = tupleVR(elementOfLane(value, std::vector<int>(split, indices.end())));
        std::vector<ValueRef> content;
        for (const ValueRef &entry : *own) {
            content.push_back(elementOfLane(entry, std::vector<int>(indices.begin(), split)));
        }
        return TupleValue::get(content, table->context());
    }
};

/// Both sides keep their types, which came from the whole content.
class DualMemVectorUnroller final : public DefaultVectorUnroller {
  public:
    using DefaultVectorUnroller::DefaultVectorUnroller;
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        mTypes.emplace_back(wire.getName() == A_DUAL_MEM_WIRE_DATA1 ? &A_DUAL_MEM_TYPE_DATA1 : &A_DUAL_MEM_TYPE_DATA2,
                            elementType(typeOf(wire), wire.getContext()));
        return DefaultVectorUnroller::originalWire(wire, vectors);
    }
    void preAttach(const VectorDecorSpec &merged) override {
        DefaultVectorUnroller::preAttach(merged);
        for (Block *lane : substitutes()) {
            for (const auto &[key, type] : mTypes) {
                lane->setParam(*key, type);
            }
        }
    }

  protected:
    ValueRef laneValue(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged,
                       const std::vector<int> &indices) const override {
        const TupleValueRef content = tupleVR(value);
        if (!(key == A_DUAL_MEM_DATA) || !content || isTagged(content, A_VECTOR_ROLL_TAG)) {
            return DefaultVectorUnroller::laneValue(key, value, merged, indices);
        }
        std::vector<ValueRef> entries;
        for (const ValueRef &entry : *content) {
            entries.push_back(elementOfLane(entry, indices));
        }
        return TupleValue::get(entries, block().getContext());
    }

  private:
    std::vector<std::pair<const StaticString *, PureValueRef>> mTypes;
};

/// A lane with a value of its own may get a narrower type than the others; behind it a cast makes them equal again.
class WideningVectorUnroller : public LaneTupleVectorUnroller {
  public:
    using LaneTupleVectorUnroller::LaneTupleVectorUnroller;
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        mTypes[&wire] = elementType(typeOf(wire), wire.getContext());
        // Floats keep their type whatever the value, and a cast would flush subnormals.
        mWidens = mWidens || !NumTypeSpec(mTypes[&wire], wire.getContext()).isFloat();
        return LaneTupleVectorUnroller::originalWire(wire, vectors);
    }
    void preAttach(const VectorDecorSpec &merged) override {
        for (auto param : Params(block())) {
            const bool isTuple = !nodeVR(param.second) && !!tupleVR(param.second);
            mDiffers = mDiffers || (mWidens && isTuple && differs(param.first, param.second, merged));
        }
        LaneTupleVectorUnroller::preAttach(merged);
    }
    Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override {
        // Floats have one type whatever their values.
        if (!mDiffers || NumTypeSpec(mTypes[&wire], wire.getContext()).isFloat()) {
            return LaneTupleVectorUnroller::attachWire(wire, lanes, indices, readers);
        }
        const Block &lane = *substitutes()[lanes.elementIndex(indices)];
        const PureValueRef name =
            PureTupleValue::get(lane.getName(), StringValue::get("cast", lane.getContext()), lane.getContext());
        Wire &wide = widened(lane, name, *lane.getWire(wire.getName()), mTypes[&wire]);
        connect(readers, wide);
        return &wide;
    }

  private:
    bool differs(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged) const {
        const ValueRef first = laneValue(key, value, merged, std::vector<int>(merged.vectorDepth(), 0));
        for (LaneCounter lane(merged); !lane.atEnd(); lane.next()) {
            if (!(laneValue(key, value, merged, lane.indices()) == first)) {
                return true;
            }
        }
        return false;
    }

    std::map<const Wire *, PureValueRef> mTypes;
    bool mWidens = false;
    bool mDiffers = false;
};

/// A count that was never enabled shows an initial value as far as its type holds it, in which lanes may differ.
class CounterVectorUnroller final : public WideningVectorUnroller {
  public:
    using WideningVectorUnroller::WideningVectorUnroller;
    bool canUnroll() const override {
        const auto [least, most] = rangeOf(A_COUNTER_LIMIT);
        const auto [first, last] = rangeOf(A_COUNTER_INITIAL);
        return least == most || block().getPort(A_PORT_ENABLE) == nullptr || (first >= 0 && last < least);
    }
    std::string reason() const override {
        return "its lanes show initial values outside their range before they count";
    }

  private:
    std::pair<double, double> rangeOf(const StaticString &key) const {
        const ValueRef value = block().getParam(key);
        const TupleValueRef tuple = tupleVR(value);
        const auto numberIn = [](const ValueRef &one) { return numberVR(one) ? numberVR(one)->toDouble() : 0; };
        std::pair<double, double> range{numberIn(value), numberIn(value)};
        for (std::size_t i = isTagged(tuple, A_VECTOR_ROLL_TAG) ? 1 : 0, n = i; tuple && i < tuple->size(); ++i) {
            const double number = numberIn(tuple->at(i));
            range = i == n ? std::pair(number, number)
                           : std::pair(std::min(range.first, number), std::max(range.second, number));
        }
        return range;
    }
};

/// Products are brought to the type of the whole, which a lane's own constant might make narrower.
class ConstMultVectorUnroller final : public ResultVectorUnroller {
  public:
    using ResultVectorUnroller::ResultVectorUnroller;
    void preAttach(const VectorDecorSpec &merged) override {
        ResultVectorUnroller::preAttach(merged);
        Context *context = block().getContext();
        if (isTagged(tupleVR(block().getParam(A_CONST_VALUE)), A_VECTOR_ROLL_TAG) &&
            NumTypeSpec(type(), context).isFixed()) {
            for (Block *lane : substitutes()) {
                lane->setParam(A_OUTPUT_PRECISION, PureTupleValue::get(A_TYPE_SPECIFIED, type(), context));
            }
        }
    }
};

/// One pin whose ports are numbered lane by lane.
class TypePinVectorUnroller final : public VectorUnroller {
  public:
    explicit TypePinVectorUnroller(Block &block) : mBlock(block) {}
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        mWires.emplace_back(wire.getName(), vectors);
        return VectorUnrollKind::Own;
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        reserve(port.getName(), vectors, elementType(typeOf(port), mBlock.getContext()));
        return VectorUnrollKind::Own;
    }
    void preAttach(const VectorDecorSpec &) override {
        Context *context = mBlock.getContext();
        // The main output is that of the first port.
        for (const auto &[name, vectors] : mWires) {
            if (name == A_PRIM_WIRE_OUT && mBlock.port_size() != 0) {
                mFirst.emplace(name, mFirst.at(mBlock.port_begin()->getName()));
            } else if (mFirst.count(name) == 0) {
                reserve(name, vectors, elementType(PureValueRef(mBlock.getParam(A_TYPE_PIN_TYPE)), context));
            }
        }
        mPin = &create(mBlock, named("{}_vunroll", mBlock.getName()), A_TYPE_PIN_BLOCK);
        for (auto param : Params(mBlock)) {
            if (!nodeVR(param.second)) {
                mPin->setParam(param.first, param.second);
            }
        }
        if (const PureValueRef type = PureValueRef(mBlock.getParam(A_TYPE_PIN_TYPE))) {
            mPin->setParam(A_TYPE_PIN_TYPE, elementType(type, context));
        }
        if (mBlock.getParam(A_TYPE_PIN_PORT_TYPES)) {
            mPin->setParam(A_TYPE_PIN_PORT_TYPES, PureTupleValue::get(mTypes, context));
        }
    }
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const MaybePort attached(*mPin, numberOf(mFirst.at(port.getName()) + lanes.elementIndex(indices)));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override {
        const PureValueRef name = numberOf(mFirst.at(wire.getName()) + lanes.elementIndex(indices));
        Wire *lane = mPin->getWire(name);
        lane = lane == nullptr ? Wire::create(*mPin, name) : lane;
        connect(readers, *lane);
        return lane;
    }
    void postAttach() override { delete &mBlock; }

  private:
    void reserve(const PureValueRef &name, const VectorDecorSpec &vectors, const PureValueRef &type) {
        mFirst.emplace(name, mTypes.size());
        mTypes.insert(mTypes.end(), vectors.elementCount(), type);
    }

    Block &mBlock;
    Block *mPin = nullptr;
    std::vector<std::pair<PureValueRef, VectorDecorSpec>> mWires;
    std::map<PureValueRef, std::size_t, DeepValueCmp> mFirst;
    /// Of each number, null where nothing is pinned.
    std::vector<PureValueRef> mTypes;
};

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
        Block &made = create(mBlock, name, A_VUNPACK_BLOCK);
        made.setParam(A_VUNPACK_PORT_IN, *mBlock.getPort(port)->getWire());
        for (int i = 0; i < length; ++i) {
            Wire::create(made, numberOf(static_cast<std::size_t>(i)));
        }
        notifyUnrollPort(mBlock, port, made, A_VUNPACK_PORT_IN);
        return made;
    }
    void replaceWire(Wire &wire, Wire &by) const {
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
        }
        return WiringVectorUnroller::originalWire(wire, vectors);
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        if (port.getName()->kind() == CoreType::Number) {
            mParts.push_back(
                {port.getName(), outermostLength(vectors), belowOutermost(typeOf(port), port.getBlock().getContext())});
        }
        return WiringVectorUnroller::originalPort(port, vectors);
    }
    void postAttach() override {
        Block &pack = create(block(), named("{0}_vp", block().getName()), A_VPACK_BLOCK);
        Wire &whole = *Wire::create(pack, A_VPACK_WIRE_OUT);
        std::size_t next = 0;
        const auto put = [&](Wire &element, const PureValueRef &type) {
            const PureValueRef key = numberOf(next++);
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
    /// A wire as an element. One of fewer dimensions is in each place of the others: for floats by packs, for a cast
    /// would flush subnormals.
    Wire &spread(const PureValueRef &name, Wire &wire, const PureValueRef &type, const PureValueRef &wanted) const {
        if (type == wanted) {
            return wire;
        }
        Context *context = block().getContext();
        const int length = outermostLength(VectorDecorSpec(wanted, context));
        if (length == 0 || !NumTypeSpec(wanted, context).isFloat()) {
            return widened(block(), name, wire, wanted);
        }
        Wire &inner =
            spread(PureTupleValue::get(name, numberOf(0), context), wire, type, belowOutermost(wanted, context));
        Block &pack = create(block(), name, A_VPACK_BLOCK);
        for (int i = 0; i < length; ++i) {
            pack.setParam(numberOf(static_cast<std::size_t>(i)), inner);
        }
        return *Wire::create(pack, A_VPACK_WIRE_OUT);
    }

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
        Block &pack =
            create(block(), named("{}_vp{}", block().getName(), numberVR(wire.getName())->toInt()), A_VPACK_BLOCK);
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
        connect(readers, *lane);
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

/// What combines the elements of vectors: blocks of numbered scalars, one for each lane that is left.
class CombiningVectorUnroller : public VectorUnroller {
  public:
    explicit CombiningVectorUnroller(Block &block) : mBlock(block) {}
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        if (!(wire.getName() == A_PRIM_WIRE_OUT)) {
            return VectorUnrollKind::Leave;
        }
        mOut = vectors;
        mType = elementType(typeOf(wire), wire.getContext());
        return VectorUnrollKind::Own;
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        mIn.emplace(port.getName(), vectors);
        return VectorUnrollKind::Own;
    }
    bool canUnroll() const override { return !!mType; }
    std::string reason() const override { return "its result has no type"; }
    void preAttach(const VectorDecorSpec &) override {
        for (LaneCounter lane(mOut); !lane.atEnd(); lane.next()) {
            std::vector<PureValueRef> name{named("{}_vunroll", mBlock.getName())};
            for (const int index : lane.indices()) {
                name.emplace_back(NumberValue::get(index, mBlock.getContext()));
            }
            const bool isOne = name.size() == 1;
            Block &made = *Block::create(
                mBlock.getModel(), isOne ? name[0] : PureValueRef(PureTupleValue::get(name, mBlock.getContext())));
            for (auto param : Params(mBlock)) {
                if (!nodeVR(param.second)) {
                    made.setParam(param.first, param.second);
                }
            }
            finish(made);
            mLanes.push_back(&made);
            mResults.push_back(Wire::create(made, A_PRIM_WIRE_OUT));
        }
    }
    Wire *attachWire(Wire &, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override {
        const std::size_t lane = lanes.elementIndex(indices);
        Wire &result = shaped(*mResults[lane]);
        connect(readers, result);
        return &result;
    }
    void postAttach() override { delete &mBlock; }

  protected:
    /// What a block gets beside the parameters of the original.
    virtual void finish(Block &lane) const = 0;
    /// What the result must go through.
    virtual Wire &shaped(Wire &result) const { return result; }
    Block &block() const { return mBlock; }
    const PureValueRef &type() const { return mType; }
    std::size_t laneCount() const { return mLanes.size(); }
    const std::map<PureValueRef, VectorDecorSpec, DeepValueCmp> &inputs() const { return mIn; }
    void attach(std::size_t lane, const PureValueRef &key, Wire &driver) { attachTo(*mLanes[lane], key, driver); }
    void attachTo(Block &made, const PureValueRef &key, Wire &driver) {
        const MaybePort attached(made, key);
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire &result(std::size_t lane) const { return *mResults[lane]; }
    void setResult(std::size_t lane, Wire &wire) { mResults[lane] = &wire; }
    std::size_t outCount() const { return mOut.elementCount(); }

  private:
    Block &mBlock;
    VectorDecorSpec mOut;
    PureValueRef mType;
    std::map<PureValueRef, VectorDecorSpec, DeepValueCmp> mIn;
    std::vector<Block *> mLanes;
    std::vector<Wire *> mResults;
};

/// The elements of one input, outermost dimension first, or those of several inputs lane by lane.
class PrimReduceVectorUnroller final : public CombiningVectorUnroller {
  public:
    using CombiningVectorUnroller::CombiningVectorUnroller;
    bool mandatoryUnrolling() const override { return true; }
    bool canUnroll() const override {
        const auto isVector = [](const auto &input) { return input.second.isVector(); };
        const bool joinsVectors = isJoin() && std::any_of(inputs().begin(), inputs().end(), isVector);
        return CombiningVectorUnroller::canUnroll() && !(joinsVectors && inputs().size() > 1);
    }
    std::string reason() const override {
        return type() ? "it joins several vectors" : CombiningVectorUnroller::reason();
    }
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const std::size_t element = lanes.elementIndex(indices);
        if (inputs().size() == 1) {
            attach(element % laneCount(), numberOf(element / laneCount()), driver);
            return;
        }
        for (std::size_t lane = element; lane < laneCount(); lane += lanes.elementCount()) {
            attach(lane, port.getName(), driver);
        }
    }

  protected:
    void finish(Block &lane) const override {
        lane.setParam(A_BLOCK_TYPE, isJoin() ? A_BIT_JOIN_BLOCK : A_ADD_BLOCK);
        if (!isJoin()) {
            // A reduction leaves a margin in its type that a sum does not.
            lane.setParam(A_ADD_TYPE, type());
        }
    }
    Wire &shaped(Wire &result) const override {
        const NumTypeSpec spec(type(), block().getContext());
        if (!isJoin() || (inputs().size() == 1 && !mHasFraction)) {
            return result;
        }
        // The bits as they are, as an integer.
        const PureValueRef name = PureTupleValue::get(
            result.getBlock().getName(), StringValue::get("bits", block().getContext()), block().getContext());
        Block &bits = create(block(), name, A_BIT_SELECT_BLOCK);
        bits.setParam(A_BIT_SELECT_BIT_OFFSET, numberOf(0));
        bits.setParam(A_BIT_SELECT_OUTPUT_TYPE, type());
        bits.setParam(numberOf(0), result);
        return *Wire::create(bits, A_PRIM_WIRE_OUT);
    }

  public:
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        const NumTypeSpec spec(typeOf(port), block().getContext());
        mHasFraction = mHasFraction || (spec.fracBits() != 0 && vectors.isVector());
        return CombiningVectorUnroller::originalPort(port, vectors);
    }

  private:
    bool isJoin() const { return block().type() == A_BIT_JOIN_REDUCE_BLOCK.get_ptr(); }
    bool mHasFraction = false;
};

/// The products of all elements of the pairs in one sum.
class ScalarProductVectorUnroller final : public CombiningVectorUnroller {
  public:
    using CombiningVectorUnroller::CombiningVectorUnroller;
    void preAttach(const VectorDecorSpec &merged) override {
        CombiningVectorUnroller::preAttach(merged);
        // Pairs of lengths of their own follow each other.
        std::size_t number = 0;
        Operand first;
        for (const auto &[key, vectors] : inputs()) {
            if (key->kind() != CoreType::Number) {
                continue;
            }
            Operand operand{number / 2, number % 2, mTerms, vectors.elementCount()};
            if (++number % 2 != 0) {
                first = operand;
                mOperands[key] = operand;
                mFirstKey = key;
                continue;
            }
            const std::size_t terms = std::max<std::size_t>(std::max(first.elements, operand.elements) / outCount(), 1);
            operand.terms = first.terms = terms;
            mOperands[mFirstKey] = first;
            mOperands[key] = operand;
            mTerms += terms;
            mLastBase = first.base;
        }
        if (isDirected() && isSubtractive() && mLastBase + 1 < mTerms) {
            for (std::size_t lane = 0; lane < laneCount(); ++lane) {
                makeChain(lane);
            }
        }
    }
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const auto at = mOperands.find(port.getName());
        if (at == mOperands.end()) {
            for (std::size_t lane = lanes.elementIndex(indices); lane < laneCount(); lane += lanes.elementCount()) {
                if (mChains.empty()) {
                    attach(lane, port.getName(), driver);
                } else {
                    attachTo(addChainIn(lane), numberOf(1), driver);
                }
            }
            return;
        }
        const Operand &operand = at->second;
        Wire *negated = nullptr;
        for (std::size_t place = lanes.elementIndex(indices); place < operand.terms * laneCount();
             place += operand.elements) {
            const std::size_t term = operand.base + place / laneCount();
            if (!mChains.empty() && term > mLastBase) {
                attachTo(*mChains[place % laneCount()][term - mLastBase - 1], numberOf(operand.side), driver);
                continue;
            }
            const bool negates = mChains.empty() && isSubtracted(operand) && operand.side == 0 && term + 1 < mTerms;
            if (negates && negated == nullptr) {
                negated = &negation(port, driver, term, place % laneCount());
            }
            attach(place % laneCount(), numberOf(2 * term + operand.side), negates ? *negated : driver);
        }
    }

  protected:
    void finish(Block &lane) const override { lane.setParam(A_MULT_TYPE, type()); }

  private:
    struct Operand {
        std::size_t pair = 0;
        std::size_t side = 0;
        std::size_t base = 0;
        std::size_t elements = 1;
        std::size_t terms = 1;
    };
    /// A block subtracts only its last product; those of the same pair before it have a factor negated.
    bool isSubtracted(const Operand &operand) const {
        return isSubtractive() && operand.base + operand.terms == mTerms;
    }
    bool isSubtractive() const { return block().findParam(A_SUBTRACTIVE) == A_TRUE.get_ptr(); }
    /// Whether the sign of a product turns the way that it rounds.
    bool isDirected() const {
        const Value *mode = block().findParam(A_FLOAT_ROUNDING_MODE);
        return type() && NumTypeSpec(type(), block().getContext()).isFloat() &&
               (mode == A_ROUNDING_RNDU.get_ptr() || mode == A_ROUNDING_RNDD.get_ptr());
    }
    PureValueRef nameOf(const char *word, std::size_t term, std::size_t lane) const {
        return PureTupleValue::get(block().getName(), StringValue::get(word, block().getContext()), numberOf(term),
                                   numberOf(lane), block().getContext());
    }
    Wire &negation(Port &port, Wire &driver, std::size_t term, std::size_t lane) const {
        const NumTypeSpec factor(elementType(typeOf(port), block().getContext()), block().getContext());
        Wire *from = &driver;
        if (factor.isFixed() && !factor.isSigned()) {
            // A negation keeps the sign of its type.
            NumTypeSpec wide = NumTypeSpec::sfixed(factor.intBits() + 1, factor.fracBits());
            wide.setComplex(factor.isComplex());
            from = &widened(block(), nameOf("sign", term, lane), driver, wide.toValue(block().getContext()));
        }
        Block &neg = create(block(), nameOf("neg", term, lane), A_NEG_BLOCK);
        if (const ValueRef subnormals = block().getParam(A_FLOAT_SUBNORMALS)) {
            neg.setParam(A_FLOAT_SUBNORMALS, subnormals);
        }
        neg.setParam(numberOf(0), *from);
        return *Wire::create(neg, A_PRIM_WIRE_OUT);
    }
    /// A block for each further product that is subtracted, each behind the one before.
    void makeChain(std::size_t lane) {
        std::vector<Block *> &chain = mChains.emplace_back();
        for (std::size_t term = mLastBase + 1; term < mTerms; ++term) {
            Block &made = create(block(), nameOf("chain", term, lane), A_SCALAR_PRODUCT_BLOCK);
            for (auto param : Params(block())) {
                if (!nodeVR(param.second)) {
                    made.setParam(param.first, param.second);
                }
            }
            finish(made);
            made.setParam(A_SUBTRACTIVE_CHAININ, A_FALSE);
            made.setParam(A_SCALAR_PRODUCT_PORT_CHAININ, result(lane));
            setResult(lane, *Wire::create(made, A_PRIM_WIRE_OUT));
            chain.push_back(&made);
        }
    }
    /// What adds the original's chain-in behind all products.
    Block &addChainIn(std::size_t lane) {
        const bool subtracts = block().findParam(A_SUBTRACTIVE_CHAININ) == A_TRUE.get_ptr();
        Block &made = create(block(), nameOf("chain", mTerms, lane), subtracts ? A_SUB_BLOCK : A_ADD_BLOCK);
        for (const StaticString *key : {&A_FLOAT_ROUNDING, &A_FLOAT_ROUNDING_MODE, &A_FLOAT_SUBNORMALS}) {
            if (block().findParam(*key) != nullptr) {
                made.setParam(*key, PureValueRef(block().getParam(*key)));
            }
        }
        made.setParam(A_ADD_TYPE, type());
        made.setParam(numberOf(0), result(lane));
        setResult(lane, *Wire::create(made, A_PRIM_WIRE_OUT));
        return made;
    }

    std::map<PureValueRef, Operand, DeepValueCmp> mOperands;
    PureValueRef mFirstKey;
    std::size_t mTerms = 0;
    /// The number of the first product of the last pair.
    std::size_t mLastBase = 0;
    /// By lane; empty if one block a lane does.
    std::vector<std::vector<Block *>> mChains;
};

/// A demultiplexer for each lane of the data that comes out. Outputs are numbered through, those of one lane side by
/// side.
class DemuxVectorUnroller final : public VectorUnroller {
  public:
    explicit DemuxVectorUnroller(Block &block) : mBlock(block) {}
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        if (port.getName() == A_DEMUX_PORT_DATA) {
            mLanes = vectors;
        }
        return port.getName() == A_DEMUX_PORT_DATA ? VectorUnrollKind::Own : VectorUnrollKind::Whole;
    }
    VectorUnrollKind originalWire(Wire &, const VectorDecorSpec &) override { return VectorUnrollKind::Own; }
    bool canUnroll() const override {
        return channels() > 0 && std::all_of(mBlock.begin(), mBlock.end(), [this](const Wire &wire) {
                   const NumberValueRef number = numberVR(wire.getName());
                   return number && number->isInt() && number->toInt() >= 0 &&
                          static_cast<std::size_t>(number->toInt() / channels()) < mLanes.elementCount();
               });
    }
    std::string reason() const override {
        return channels() > 0 ? "a wire has a name that is not the number of an output"
                              : "its count of channels is not positive";
    }
    void preAttach(const VectorDecorSpec &) override {
        mSubstitutes.resize(mLanes.elementCount());
        for (const Wire &wire : mBlock) {
            Block *&lane = mSubstitutes[laneOf(wire)];
            lane = lane == nullptr ? &createLane(laneOf(wire)) : lane;
        }
    }
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const bool isData = port.getName() == A_DEMUX_PORT_DATA;
        for (std::size_t lane = 0; lane < mSubstitutes.size(); ++lane) {
            if (mSubstitutes[lane] != nullptr && (!isData || lane == lanes.elementIndex(indices))) {
                const MaybePort attached(*mSubstitutes[lane], port.getName());
                attached.setWire(driver);
                addAttachedPort(attached);
            }
        }
    }
    Wire *attachWire(Wire &wire, const VectorDecorSpec &, const std::vector<int> &,
                     const std::vector<MaybePort> &readers) override {
        const PureValueRef output = numberOf(static_cast<std::size_t>(numberVR(wire.getName())->toInt() % channels()));
        Block &lane = *mSubstitutes[laneOf(wire)];
        Wire *made = lane.getWire(output);
        made = made == nullptr ? Wire::create(lane, output) : made;
        connect(readers, *made);
        return made;
    }
    void postAttach() override { delete &mBlock; }

  private:
    int channels() const {
        const NumberValueRef count = numberVR(mBlock.getParam(A_DEMUX_CHANNEL_COUNT));
        return count && count->isInt() ? count->toInt() : 0;
    }
    std::size_t laneOf(const Wire &wire) const {
        return static_cast<std::size_t>(numberVR(wire.getName())->toInt() / channels());
    }
    Block &createLane(std::size_t lane) const {
        Context *context = mBlock.getContext();
        const PureValueRef name =
            PureTupleValue::get(mBlock.getName(), StringValue::get(getSuffix(), context), numberOf(lane), context);
        Block &made = *Block::create(mBlock.getModel(), name);
        for (auto param : Params(mBlock)) {
            if (!nodeVR(param.second)) {
                made.setParam(param.first, param.second);
            }
        }
        // A demultiplexer has its first output, read or not.
        Wire::create(made, numberOf(0));
        return made;
    }

    Block &mBlock;
    VectorDecorSpec mLanes;
    /// By lane, null where none of its outputs is there.
    std::vector<Block *> mSubstitutes;
};

/// Filters and oscillators. Their data goes by number, and what a lane of it becomes is known by its number and lane.
class IPVectorUnroller final : public BoundaryVectorUnroller {
  public:
    using BoundaryVectorUnroller::BoundaryVectorUnroller;
    bool canUnroll() const override { return !namesClash(); }
};

/// One loop whose levels, the elements of a vector of limits, have keys of their own.
class LoopVecUnroller final : public VectorUnroller {
  public:
    explicit LoopVecUnroller(Block &block) : mBlock(block) {}
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        return kindOf(wire.getName(), vectors, {&A_LOOP_WIRE_VALUE, &A_LOOP_WIRE_FIRST_ITER, &A_LOOP_WIRE_LAST_ITER});
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        return kindOf(port.getName(), vectors, {&A_LOOP_PORT_LIMIT});
    }
    bool canUnroll() const override { return !mHasOtherVectors && !mHasKeys; }
    std::string reason() const override {
        return mHasKeys ? "its levels stand both in vectors and under keys of their own"
                        : "a signal other than its levels is a vector";
    }
    void preAttach(const VectorDecorSpec &) override { mLoop = &createSubstitute(mBlock); }
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const MaybePort attached(*mLoop, BoundaryVectorUnroller::makeName(port.getName(), lanes, indices));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override {
        Wire *level = Wire::create(*mLoop, BoundaryVectorUnroller::makeName(wire.getName(), lanes, indices));
        OrvoUtils::copyParams(*level, wire);
        connect(readers, *level);
        return level;
    }
    void postAttach() override { delete &mBlock; }

  private:
    VectorUnrollKind kindOf(const PureValueRef &name, const VectorDecorSpec &vectors,
                            std::initializer_list<const StaticString *> ofLevels) {
        const bool isOfLevels = isOneOf(name, ofLevels);
        mHasOtherVectors = mHasOtherVectors || (vectors.isVector() && !isOfLevels);
        const PureTupleValueRef key = pureTupleVR(name);
        mHasKeys = mHasKeys || (key && key->size() == 2 && isOneOf(key->at(0), ofLevels));
        return isOfLevels ? VectorUnrollKind::Own : VectorUnrollKind::Whole;
    }

    Block &mBlock;
    Block *mLoop = nullptr;
    bool mHasOtherVectors = false;
    /// Levels under keys stand beside the vector, which would clash.
    bool mHasKeys = false;
};

/// Data of a region that can stall; each lane gets a number of its own.
class StallBoundaryVectorUnroller final : public VectorUnroller {
  public:
    explicit StallBoundaryVectorUnroller(Block &block) : mBlock(block), mNumbers(block) {}
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        const VectorUnrollKind kind = kindOf(wire.getName(), vectors);
        if (kind == VectorUnrollKind::Own) {
            mReplaced.add(wire);
        }
        return kind;
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        const VectorUnrollKind kind = kindOf(port.getName(), vectors);
        if (kind == VectorUnrollKind::Own) {
            mReplaced.add(port);
        }
        return kind;
    }
    bool canUnroll() const override { return !mHasOtherVectors; }
    std::string reason() const override { return "a signal that controls the stalling is a vector"; }
    void preAttach(const VectorDecorSpec &) override {}
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const MaybePort attached(mBlock, laneName(port.getName(), lanes, indices));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override {
        Wire *lane = Wire::create(mBlock, laneName(wire.getName(), lanes, indices));
        OrvoUtils::copyParams(*lane, wire);
        connect(readers, *lane);
        return lane;
    }
    void postAttach() override { mReplaced.removeFrom(mBlock); }

  private:
    VectorUnrollKind kindOf(const PureValueRef &name, const VectorDecorSpec &vectors) {
        const bool isData = StallNumbers::isData(name);
        mHasOtherVectors = mHasOtherVectors || (!isData && vectors.isVector());
        return isData && vectors.isVector() ? VectorUnrollKind::Own : VectorUnrollKind::Leave;
    }
    PureValueRef laneName(const PureValueRef &name, const VectorDecorSpec &lanes, const std::vector<int> &indices) {
        return mNumbers.nameOf(name, static_cast<int>(lanes.elementIndex(indices)));
    }

    Block &mBlock;
    StallNumbers mNumbers;
    bool mHasOtherVectors = false;
    ReplacedSignals mReplaced;
};

/// The map of types names the lanes.
class LatencyPlaceholderVectorUnroller final : public BoundaryVectorUnroller {
  public:
    using BoundaryVectorUnroller::BoundaryVectorUnroller;
    bool canUnroll() const override { return !namesClash() && !hasHugeTypes(); }
    std::string reason() const override {
        return hasHugeTypes() ? "its map of types holds a vector of too many lanes" : BoundaryVectorUnroller::reason();
    }
    void postAttach() override {
        Context *context = block().getContext();
        std::vector<PureValueRef> entries;
        const TupleValueRef types = tupleVR(block().getParam(A_LATENCY_PLACEHOLDER_TYPEMAP));
        for (std::size_t i = 0; types && i < types->size(); ++i) {
            const PureTupleValueRef pair = pureTupleVR(types->at(i));
            if (!pair || pair->size() != 2) {
                continue;
            }
            PureValueRef element;
            const VectorDecorSpec vectors(pair->at(1), element, context);
            if (!vectors.valid()) {
                entries.emplace_back(pair);
                continue;
            }
            for (LaneCounter lane(vectors); !lane.atEnd(); lane.next()) {
                entries.emplace_back(
                    PureTupleValue::get(makeName(pair->at(0), vectors, lane.indices()), element, context));
            }
        }
        block().setParam(A_LATENCY_PLACEHOLDER_TYPEMAP, PureTupleValue::get(entries, context));
        BoundaryVectorUnroller::postAttach();
    }

  private:
    /// An entry need not be that of a signal.
    bool hasHugeTypes() const {
        const TupleValueRef types = tupleVR(block().getParam(A_LATENCY_PLACEHOLDER_TYPEMAP));
        return types && std::any_of(types->begin(), types->end(), [this](const ValueRef &entry) {
                   const PureTupleValueRef pair = pureTupleVR(entry);
                   return pair && pair->size() == 2 &&
                          VectorDecorSpec(pair->at(1), block().getContext()).elementCount() > limits::kLanes;
               });
    }
};

const VectorUnrollHandler *defaultHandler() {
    static const VectorUnrollHandler handler;
    return &handler;
}

template <class U> const VectorUnrollHandler *handler() {
    static const VectorUnrollHandlerT<U> handler;
    return &handler;
}

constexpr const char *kLane = "one block a lane";
constexpr const char *kNames = "one block with a port and a wire a lane";
constexpr const char *kScalars = "all its signals are single numbers";
constexpr const char *kOutside = "what is outside knows its signals by their names";
constexpr const char *kWords = "a word of the bus is one number";
constexpr const char *kTag = "the ends of a tag have no names for lanes; a tag goes before vectors do";
constexpr const char *kTransform = "a part of a transform, whose lanes are those of the blocks that it is made of";
constexpr const char *kOne = "one block for all elements of the outermost dimension";

// clang-format off
const VectorUnrollRow kRows[] = {
    {&A_ADD_BLOCK, defaultHandler, kLane},
    {&A_MONSTER_ADD_BLOCK, defaultHandler, kLane},
    {&A_SUB_BLOCK, defaultHandler, kLane},
    {&A_MULT_BLOCK, defaultHandler, kLane},
    {&A_MONSTER_MULT_BLOCK, defaultHandler, kLane},
    {&A_ADD_REDUCE_BLOCK, handler<PrimReduceVectorUnroller>, kOne},
    {&A_SCALAR_PRODUCT_BLOCK, handler<ScalarProductVectorUnroller>, "one scalar product of the products of all elements"},
    {&A_ADDSUB_BLOCK, defaultHandler, kLane},
    {&A_ADDSUBFUSED_BLOCK, defaultHandler, kLane},
    {&A_ADD_SLOAD_BLOCK, defaultHandler, kLane},
    {&A_MINMAX_BLOCK, defaultHandler, kLane},
    {&A_MIN_BLOCK, defaultHandler, kLane},
    {&A_MAX_BLOCK, defaultHandler, kLane},
    {&A_SATURATE_BLOCK, defaultHandler, kLane},
    {&A_DIM_BLOCK, defaultHandler, kLane},
    {&A_MAGMIN_BLOCK, defaultHandler, kLane},
    {&A_MAGMAX_BLOCK, defaultHandler, kLane},
    {&A_AND_BLOCK, defaultHandler, kLane},
    {&A_NAND_BLOCK, defaultHandler, kLane},
    {&A_OR_BLOCK, defaultHandler, kLane},
    {&A_NOR_BLOCK, defaultHandler, kLane},
    {&A_XOR_BLOCK, defaultHandler, kLane},
    {&A_XNOR_BLOCK, defaultHandler, kLane},
    {&A_AND_REDUCE_BLOCK, defaultHandler, kLane},
    {&A_NAND_REDUCE_BLOCK, defaultHandler, kLane},
    {&A_OR_REDUCE_BLOCK, defaultHandler, kLane},
    {&A_NOR_REDUCE_BLOCK, defaultHandler, kLane},
    {&A_XOR_REDUCE_BLOCK, defaultHandler, kLane},
    {&A_XNOR_REDUCE_BLOCK, defaultHandler, kLane},
    {&A_BIT_JOIN_BLOCK, defaultHandler, kLane},
    {&A_BIT_JOIN_REDUCE_BLOCK, handler<PrimReduceVectorUnroller>, kOne},
    {&A_NOT_BLOCK, defaultHandler, kLane},
    {&A_REVERSE_BLOCK, defaultHandler, kLane},
    {&A_DELAY_BLOCK, defaultHandler, kLane},
    {&A_RECIPROCAL_BLOCK, defaultHandler, kLane},
    {&A_RECIP_SQRT_BLOCK, defaultHandler, kLane},
    {&A_SQRT_BLOCK, defaultHandler, kLane},
    {&A_REGISTER_BLOCK, handler<LaneTupleVectorUnroller>, kLane},
    {&A_NEG_BLOCK, defaultHandler, kLane},
    {&A_COMPLEX_CONJUGATE_BLOCK, defaultHandler, kLane},
    {&A_ABS_BLOCK, defaultHandler, kLane},
    {&A_CMP_EQ_BLOCK, defaultHandler, kLane},
    {&A_CMP_NE_BLOCK, defaultHandler, kLane},
    {&A_CMP_GE_BLOCK, defaultHandler, kLane},
    {&A_CMP_LT_BLOCK, defaultHandler, kLane},
    {&A_COMPARECTRL_BLOCK, defaultHandler, kLane},
    {&A_BIT_COUNT_BLOCK, defaultHandler, kLane},
    {&A_CTPOP_BLOCK, defaultHandler, kLane},
    {&A_TRUNCATE_BLOCK, defaultHandler, kLane},
    {&A_TRUNCATE_TO_ZERO_BLOCK, defaultHandler, kLane},
    {&A_BIASED_ROUND_BLOCK, defaultHandler, kLane},
    {&A_UNBIASED_ROUND_BLOCK, defaultHandler, kLane},
    {&A_CONST_BLOCK, handler<ConstVectorUnroller>, kLane},
    {&A_DIVIDE_BLOCK, defaultHandler, kLane},
    {&A_MOD_MULT_BLOCK, defaultHandler, kLane},
    {&A_CONSTMULT_BLOCK, handler<ConstMultVectorUnroller>, kLane},
    {&A_CONSTDIV_BLOCK, handler<WideningVectorUnroller>, kLane},
    {&A_RAW_SHIFT_BLOCK, defaultHandler, kLane},
    {&A_BARREL_LEFT_BLOCK, defaultHandler, kLane},
    {&A_BARREL_RIGHT_BLOCK, defaultHandler, kLane},
    {&A_BARREL_RIGHT_LZC_BLOCK, defaultHandler, kLane},
    {&A_BIT_SELECT_BLOCK, defaultHandler, kLane},
    {&A_CHOOSE_BITS_BLOCK, defaultHandler, kLane},
    {&A_CAST_BLOCK, defaultHandler, kLane},
    {&A_MUX_BLOCK, defaultHandler, kLane},
    {&A_SELECT_BLOCK, defaultHandler, kLane},
    {&A_TAN_BLOCK, defaultHandler, kLane},
    {&A_COT_BLOCK, defaultHandler, kLane},
    {&A_TANPIX_BLOCK, defaultHandler, kLane},
    {&A_COTPIX_BLOCK, defaultHandler, kLane},
    {&A_ARCCOSPI_BLOCK, defaultHandler, kLane},
    {&A_ARCSINPI_BLOCK, defaultHandler, kLane},
    {&A_ARCTANPI_BLOCK, defaultHandler, kLane},
    {&A_CUBEROOT_BLOCK, defaultHandler, kLane},
    {&A_RINT_BLOCK, defaultHandler, kLane},
    {&A_ROUND_BLOCK, defaultHandler, kLane},
    {&A_FLOOR_BLOCK, defaultHandler, kLane},
    {&A_CEIL_BLOCK, defaultHandler, kLane},
    {&A_TRUNC_BLOCK, defaultHandler, kLane},
    {&A_EXP2_BLOCK, defaultHandler, kLane},
    {&A_EXP10_BLOCK, defaultHandler, kLane},
    {&A_LOG2_BLOCK, defaultHandler, kLane},
    {&A_LOG10_BLOCK, defaultHandler, kLane},
    {&A_EXPM1_BLOCK, defaultHandler, kLane},
    {&A_LOG1P_BLOCK, defaultHandler, kLane},
    {&A_FRAC_BLOCK, defaultHandler, kLane},
    {&A_ASIN_BLOCK, defaultHandler, kLane},
    {&A_ACOS_BLOCK, defaultHandler, kLane},
    {&A_ATAN_BLOCK, defaultHandler, kLane},
    {&A_POLYNOMIAL_BLOCK, defaultHandler, kLane},
    {&A_HYPOT_BLOCK, defaultHandler, kLane},
    {&A_HYPOT3D_BLOCK, defaultHandler, kLane},
    {&A_ARCTAN2_BLOCK, defaultHandler, kLane},
    {&A_MOD_BLOCK, defaultHandler, kLane},
    {&A_POW_BLOCK, defaultHandler, kLane},
    {&A_POWR_BLOCK, defaultHandler, kLane},
    {&A_POWN_BLOCK, defaultHandler, kLane},
    {&A_MULT_POW2_BLOCK, defaultHandler, kLane},
    {&A_ILOGB_BLOCK, defaultHandler, kLane},
    {&A_LOG_BLOCK, defaultHandler, kLane},
    {&A_EXP_BLOCK, defaultHandler, kLane},
    {&A_SIN_BLOCK, defaultHandler, kLane},
    {&A_COS_BLOCK, defaultHandler, kLane},
    {&A_SINCOSFUSED_BLOCK, defaultHandler, kLane},
    {&A_SINPIX_BLOCK, defaultHandler, kLane},
    {&A_COSPIX_BLOCK, defaultHandler, kLane},
    {&A_SINCOSPIXFUSED_BLOCK, defaultHandler, kLane},
    {&A_CORDIC_BLOCK, defaultHandler, kLane},
    {&A_FLOAT_MULTADD_BLOCK, defaultHandler, kLane},
    {&A_FLOAT_MULTSUB_BLOCK, defaultHandler, kLane},
    {&A_FLOAT_CLASS_BLOCK, defaultHandler, kLane},
    {&A_DUAL_MEM_BLOCK, handler<DualMemVectorUnroller>, kLane},
    {&A_LUT_BLOCK, handler<LUTVectorUnroller>, "one table a lane, with its own contents"},
    {&A_SYNC_REGISTER_BLOCK, handler<LaneTupleVectorUnroller>, kLane},
    {&A_FIFO_BLOCK, handler<LaneTupleVectorUnroller>, kLane},
    {&A_FIFO_DELAY_BLOCK, handler<LaneTupleVectorUnroller>, kLane},
    {&A_SEQUENCE_BLOCK, handler<LaneTupleVectorUnroller>, kLane},
    {&A_COUNTER_BLOCK, handler<CounterVectorUnroller>, kLane},
    {&A_LD_COUNTER_BLOCK, handler<LaneTupleVectorUnroller>, kLane},
    {&A_LOOP_BLOCK, handler<LoopVecUnroller>, "one loop with a level an element"},
    {&A_FOR_LOOP_BLOCK, defaultHandler, kLane},
    {&A_ACC_BLOCK, defaultHandler, kLane},
    {&A_FLOAT_MULTACC_BLOCK, defaultHandler, kLane},
    {&A_DECODE_BLOCK, defaultHandler, kLane},
    {&A_DEMUX_BLOCK, handler<DemuxVectorUnroller>, "one demultiplexer a lane of the data"},
    {&A_FANOUT_BLOCK, defaultHandler, kLane},
    {&A_MODEL_BLOCK, nullptr, "the boundaries of models come apart together, in UnrollVectorCrossModelPass"},
    {&A_INPUT_BLOCK, nullptr, "the boundaries of models come apart together, in UnrollVectorCrossModelPass"},
    {&A_OUTPUT_BLOCK, nullptr, "the boundaries of models come apart together, in UnrollVectorCrossModelPass"},
    {&A_SIGNAL_IN_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_SIGNAL_OUT_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_TERMINAL_BLOCK, defaultHandler, kLane},
    {&A_FOLDING_KERNEL_BOUNDARY_BLOCK, defaultHandler, kLane},
    {&A_CHANNEL_IN_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_CHANNEL_OUT_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_TYPE_PIN_BLOCK, handler<TypePinVectorUnroller>, "one pin with a port a lane"},
    {&A_VPACK_BLOCK, nullptr, "what joins lanes stays"},
    {&A_VUNPACK_BLOCK, nullptr, "what joins lanes stays"},
    {&A_VCONCAT_BLOCK, handler<VecConcatUnroller>, "unpacks and a pack"},
    {&A_VSPLIT_BLOCK, handler<VecSplitUnroller>, "an unpack and packs"},
    {&A_VSELECTOR_BLOCK, handler<VecSelectorUnroller>, "wires"},
    {&A_CPACK_BLOCK, defaultHandler, kLane},
    {&A_CUNPACK_BLOCK, defaultHandler, kLane},
    {&A_APACK_BLOCK, nullptr, "what joins lanes stays"},
    {&A_AUNPACK_BLOCK, nullptr, "what joins lanes stays"},
    {&A_UNSCHED_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_BOUNDARY_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_HIDDEN_IFACE_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_EXT_IFACE_BLOCK, handler<PrimBoundaryVectorUnroller>, kNames},
    {&A_LATENCY_PLACEHOLDER_BLOCK, handler<LatencyPlaceholderVectorUnroller>, "one block with a port and a wire a lane"},
    {&A_SCHEDULED_MODEL_BLOCK, nullptr, "its ports follow the mappings of the scheduled model"},
    {&A_UNSUPPORTED_BLOCK, nullptr, "nothing is known of what it computes"},
    {&A_STALLREG_BLOCK, handler<StallBoundaryVectorUnroller>, "one block with a number a lane"},
    {&A_STALLENABLE_BLOCK, nullptr, "it carries conditions of whole regions and no data"},
    {&A_STALLENTER_BLOCK, handler<StallBoundaryVectorUnroller>, "one block with a number a lane"},
    {&A_STALLEXIT_BLOCK, handler<StallBoundaryVectorUnroller>, "one block with a number a lane"},
    {&A_STALLVALID_CONNECTOR_BLOCK, nullptr, kScalars},
    {&A_ENABLE_SINK_BLOCK, nullptr, kScalars},
    {&A_ENABLE_SRC_BLOCK, nullptr, kScalars},
    {&A_READY_BLOCK, nullptr, kScalars},
    {&A_ECC_SRC_BLOCK, nullptr, kScalars},
    {&A_PIPE_BLOCK, defaultHandler, kLane},
    {&A_FIXED_MFUNC_BLOCK, defaultHandler, kLane},
    {&A_FLOAT_MFUNC_BLOCK, defaultHandler, kLane},
    {&A_CIC_BLOCK, handler<IPVectorUnroller>, kNames},
    {&A_FIR_BLOCK, handler<IPVectorUnroller>, kNames},
    {&A_SCALE_BLOCK, handler<IPVectorUnroller>, kNames},
    {&A_MIXER_BLOCK, handler<IPVectorUnroller>, kNames},
    {&A_NCO_BLOCK, handler<IPVectorUnroller>, kNames},
    {&A_CHANVIEW_BLOCK, handler<IPVectorUnroller>, kNames},
    {&A_SHARED_FIFO_BLOCK, handler<IPVectorUnroller>, kNames},
    {&A_VFFTCORE_BLOCK, nullptr, kTransform},
    {&A_FFTCORE_BLOCK, nullptr, kTransform},
    {&A_BITREVCORE_BLOCK, nullptr, kTransform},
    {&A_VBITREVCORE_BLOCK, nullptr, kTransform},
    {&A_VFFT_BLOCK, nullptr, kTransform},
    {&A_FFT_BLOCK, nullptr, kTransform},
    {&A_BITREV_BLOCK, nullptr, kTransform},
    {&A_VBITREV_BLOCK, nullptr, kTransform},
    {&A_FFT_LIGHT_BLOCK, nullptr, kTransform},
    {&A_VFFT_PIPE_BLOCK, nullptr, kTransform},
    {&A_VFFT2_BLOCK, nullptr, kTransform},
    {&A_FFT2_BLOCK, nullptr, kTransform},
    {&A_VFFT4_BLOCK, nullptr, kTransform},
    {&A_FFT4_BLOCK, nullptr, kTransform},
    {&A_TRIVIAL_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_VTWIDDLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_ANGLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_ROM_BLOCK, nullptr, kTransform},
    {&A_READ_ACCESS_LUT_BLOCK, nullptr, kTransform},
    {&A_XSWITCH_BLOCK, nullptr, kTransform},
    {&A_TALM1_BLOCK, nullptr, kTransform},
    {&A_TAL1N_BLOCK, nullptr, kTransform},
    {&A_TALM2_BLOCK, nullptr, kTransform},
    {&A_TAL2N_BLOCK, nullptr, kTransform},
    {&A_TA0MN_BLOCK, nullptr, kTransform},
    {&A_TALMN_BLOCK, nullptr, kTransform},
    {&A_VECTOR_FANOUT_BLOCK, nullptr, kTransform},
    {&A_DELAY_VALID_BLOCK, nullptr, kTransform},
    {&A_BFU_BLOCK, nullptr, kTransform},
    {&A_BFU_SHORT_BLOCK, nullptr, kTransform},
    {&A_BFU_LONG_BLOCK, nullptr, kTransform},
    {&A_TRANSPOSE_BLOCK, nullptr, kTransform},
    {&A_LATCH_0L_BLOCK, nullptr, kTransform},
    {&A_PULSE_DIVIDER_BLOCK, nullptr, kTransform},
    {&A_PULSE_MULTIPLIER_BLOCK, nullptr, kTransform},
    {&A_TRANSPOSE_ADDR_BLOCK, nullptr, kTransform},
    {&A_EDGE_DETECT_BLOCK, nullptr, kTransform},
    {&A_XOR_BITS_BLOCK, nullptr, kTransform},
    {&A_VBR_BLOCK, nullptr, kTransform},
    {&A_VPD_BLOCK, nullptr, kTransform},
    {&A_VPM_BLOCK, nullptr, kTransform},
    {&A_MEM_ADDR_GEN_BLOCK, nullptr, kTransform},
    {&A_VFFT_LIGHT_BLOCK, nullptr, kTransform},
    {&A_STAGE_DROP_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_COUNTER_BLOCK, nullptr, kTransform},
    {&A_FFTNP_BLOCK, nullptr, kTransform},
    {&A_FFTNX_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_ADD_SUB_BLOCK, nullptr, kTransform},
    {&A_SPLIT_SPATIAL_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY1_8F_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY3_8F_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBYF_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY1_8P_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY3_8P_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBYP_BLOCK, nullptr, kTransform},
    {&A_PFFT_PIPE_BLOCK, nullptr, kTransform},
    {&A_MULTIWIRE_TRANSPOSE_BLOCK, nullptr, kTransform},
    {&A_GENERAL_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_BUTTERFLY_ROUTER_BLOCK, nullptr, kTransform},
    {&A_FLUTTERBY_ROUTER_BLOCK, nullptr, kTransform},
    {&A_BUTTERFLY_STAGE_BLOCK, nullptr, kTransform},
    {&A_FLUTTERBY_PATH_BLOCK, nullptr, kTransform},
    {&A_HYBRID_FFT_BLOCK, nullptr, kTransform},
    {&A_GENERAL_MULT_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_MULT_ANGLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_MULT_ROM_BLOCK, nullptr, kTransform},
    {&A_FFT_CHOOSE_BITS_BLOCK, nullptr, kTransform},
    {&A_AXI4_STREAM_RECEIVER_BLOCK, nullptr, kOutside},
    {&A_AXI4_STREAM_TRANSMITTER_BLOCK, nullptr, kOutside},
    {&A_BUS_IN_BLOCK, nullptr, kOutside},
    {&A_BUS_OUT_BLOCK, nullptr, kOutside},
    {&A_BUS_SIGNALS_BLOCK, nullptr, kWords},
    {&A_ECC_SINK_BLOCK, nullptr, kScalars},
    {&A_EXTMEM_READ_BLOCK, nullptr, kOutside},
    {&A_EXTMEM_WRITE_BLOCK, nullptr, kOutside},
    {&A_FROM_BLOCK, nullptr, kTag},
    {&A_GOTO_BLOCK, nullptr, kTag},
    {&A_MM_REGISTER_BLOCK, nullptr, kWords},
    {&A_SARNET_MM_MASTER_IN_BLOCK, nullptr, kOutside},
    {&A_SARNET_MM_MASTER_OUT_BLOCK, nullptr, kOutside},
    {&A_SARNET_MM_SLAVE_IN_BLOCK, nullptr, kOutside},
    {&A_SARNET_MM_SLAVE_OUT_BLOCK, nullptr, kOutside},
    {&A_SARNET_ST_SINK_BLOCK, nullptr, kOutside},
    {&A_SARNET_ST_SINK_IN_BLOCK, nullptr, kOutside},
    {&A_SARNET_ST_SINK_OUT_BLOCK, nullptr, kOutside},
    {&A_SARNET_ST_SOURCE_BLOCK, nullptr, kOutside},
    {&A_SARNET_ST_SOURCE_IN_BLOCK, nullptr, kOutside},
    {&A_SARNET_ST_SOURCE_OUT_BLOCK, nullptr, kOutside},
    {&A_SHARED_MEM_BLOCK, nullptr, kWords},
    {&A_SHARED_MEM_PLACEHOLDER_BLOCK, nullptr, kWords},
};
// clang-format on

} // namespace

std::span<const VectorUnrollRow> vectorUnrollRows() { return kRows; }

void registerVectorUnrollers(Context *context) {
    for (const VectorUnrollRow &row : kRows) {
        if (row.handler != nullptr) {
            context->getBlockClass(*row.blockType)->registerHandler<VectorUnrollHandler>(row.handler(), false);
        }
    }
}

} // namespace orvo::internal
