// Blocks that become one block a lane, where a lane gets a value, contents or a type of its own.
#include "orvo/lanevectorunrollers.h"

#include "orvo/vectorunrollparts.h"

#include <orvo/block.h>
#include <orvo/complexunroller.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace orvo::internal {

namespace {

/// Whether a rolled value has elements that differ.
bool hasLanesOfTheirOwn(const ValueRef &value) {
    const TupleValueRef tuple = tupleVR(value);
    return isTagged(tuple, A_VECTOR_ROLL_TAG) && tuple->size() > 1 &&
           (std::any_of(std::next(tuple->begin()), tuple->end(),
                        [&](const ValueRef &element) { return !(element == tuple->at(1)); }) ||
            hasLanesOfTheirOwn(tuple->at(1)));
}

/// Some parameters give each lane its own value by a tuple that is not rolled.
class LaneTupleVectorUnroller : public DefaultVectorUnroller {
  public:
    using DefaultVectorUnroller::DefaultVectorUnroller;
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        if (isOneOf(wire.getName(),
                    {&A_PRIM_WIRE_OUT, &A_SYNC_REGISTER_WIRE_ICLK_DATA, &A_SYNC_REGISTER_WIRE_OCLK_DATA})) {
            mDepth = vectors.vectorDepth();
        }
        return DefaultVectorUnroller::originalWire(wire, vectors);
    }

  protected:
    ValueRef laneValue(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged,
                       const std::vector<int> &indices) const override {
        TupleValueRef tuple = tupleVR(value);
        if (!tuple || tuple->size() == 0 || isTagged(tuple, A_VECTOR_ROLL_TAG)) {
            return DefaultVectorUnroller::laneValue(key, value, merged, indices);
        }
        if (isOneOf(key, {&A_COUNTER_LIMIT, &A_COUNTER_INITIAL, &A_COUNTER_STEP, &A_DELAY_LENGTH, &A_FIFO_DEPTH,
                          &A_FIFO_LOW_THRESHOLD, &A_FIFO_HIGH_THRESHOLD})) {
            return tuple->at(merged.elementIndex(indices) % tuple->size());
        }
        if (isOneOf(key, {&A_REGISTER_INIT_VALUE, &A_SYNC_REGISTER_INIT_VALUE})) {
            return nested(value, indices);
        }
        return DefaultVectorUnroller::laneValue(key, value, merged, indices);
    }

  private:
    /// A tuple a dimension of what is held, the outermost one outside. A condition may have more dimensions, further
    /// out.
    ValueRef nested(ValueRef value, const std::vector<int> &indices) const {
        for (std::size_t k = std::min(mDepth, indices.size()); k-- > 0;) {
            const TupleValueRef tuple = tupleVR(value);
            if (!tuple || isTagged(tuple, A_COMPLEX_ROLL_TAG)) {
                break;
            }
            if (isTagged(tuple, A_VECTOR_ROLL_TAG)) {
                return elementOfLane(value, {indices.begin(), indices.begin() + static_cast<std::ptrdiff_t>(k + 1)});
            }
            value = tuple->maybeAt(static_cast<std::size_t>(indices[k]));
        }
        return value;
    }

    /// The dimensions of what a register holds.
    std::size_t mDepth = 0;
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
    using ResultVectorUnroller::writesTypeOf;
    bool writesTypeOf(const Wire &wire) const override { return wire.getName() == A_PRIM_WIRE_OUT; }
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

/// Both sides keep their types where those came from the whole content. Without one they come from what is written.
class DualMemVectorUnroller final : public DefaultVectorUnroller {
  public:
    using DefaultVectorUnroller::DefaultVectorUnroller;
    /// A side whose type came from a content of fewer dimensions does not tell what it reads.
    bool canUnroll() const override { return reason().empty(); }
    std::string reason() const override {
        for (const auto &[wire, lanes] : mOut) {
            const auto data = mData.find(wire == A_DUAL_MEM_WIRE_DATA1 ? A_DUAL_MEM_PORT_DATA1.get_ptr()
                                                                       : A_DUAL_MEM_PORT_DATA2.get_ptr());
            if (data != mData.end() && lanes < data->second) {
                return "a side gives out fewer lanes than it takes";
            }
        }
        return DefaultVectorUnroller::reason();
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        mData[port.getName().get_ptr()] = vectors.elementCount();
        return DefaultVectorUnroller::originalPort(port, vectors);
    }
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        mOut.emplace_back(wire.getName(), vectors.elementCount());
        mTypes.emplace_back(wire.getName() == A_DUAL_MEM_WIRE_DATA1 ? &A_DUAL_MEM_TYPE_DATA1 : &A_DUAL_MEM_TYPE_DATA2,
                            elementType(typeOf(wire), wire.getContext()));
        return DefaultVectorUnroller::originalWire(wire, vectors);
    }
    void preAttach(const VectorDecorSpec &merged) override {
        DefaultVectorUnroller::preAttach(merged);
        if (!hasContent()) {
            return;
        }
        for (Block *lane : substitutes()) {
            for (const auto &[key, type] : mTypes) {
                lane->setParam(*key, type);
            }
        }
    }
    using DefaultVectorUnroller::writesTypeOf;
    bool writesTypeOf(const Wire &) const override { return hasContent(); }

  protected:
    ValueRef laneValue(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged,
                       const std::vector<int> &indices) const override {
        const TupleValueRef content = tupleVR(value);
        if (!(key == A_DUAL_MEM_DATA) || !content) {
            return DefaultVectorUnroller::laneValue(key, value, merged, indices);
        }
        if (isTagged(content, A_VECTOR_ROLL_TAG)) {
            return asLane(DefaultVectorUnroller::laneValue(key, value, merged, indices));
        }
        std::vector<ValueRef> entries;
        for (const ValueRef &entry : *content) {
            entries.push_back(elementOfLane(entry, indices));
        }
        return asLane(TupleValue::get(entries, block().getContext()));
    }

  private:
    /// The first number of a content tells whether it is complex, as that of another lane may have been.
    ValueRef asLane(const ValueRef &content) const {
        const TupleValueRef entries = tupleVR(content);
        Context *context = block().getContext();
        const bool isComplex = std::any_of(mTypes.begin(), mTypes.end(), [&](const auto &type) {
            return ComplexDecorSpec(type.second, context).isComplex();
        });
        if (!isComplex || !entries || entries->size() == 0 || !numberVR(entries->at(0))) {
            return content;
        }
        std::vector<ValueRef> made(entries->begin(), entries->end());
        made.front() = TupleValue::get(A_COMPLEX_ROLL_TAG, made.front(), NumberValue::get(0, context), context);
        return TupleValue::get(made, context);
    }
    bool hasContent() const { return block().findParam(A_DUAL_MEM_DATA) != nullptr; }

    std::vector<std::pair<const StaticString *, PureValueRef>> mTypes;
    /// The lanes of each port, and those of the wires.
    std::map<const Value *, std::size_t> mData;
    std::vector<std::pair<PureValueRef, std::size_t>> mOut;
};

/// A lane with a value of its own may get a narrower type than the others; behind it a cast makes them equal again.
class WideningVectorUnroller : public LaneTupleVectorUnroller {
  public:
    using LaneTupleVectorUnroller::LaneTupleVectorUnroller;
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        mTypes[&wire] = elementType(typeOf(wire), wire.getContext());
        // Floats keep their type whatever the value, and a cast would flush subnormals.
        const auto mayGrow = [&](const RefChain &instance) {
            return !NumTypeSpec(typeOf(wire, instance), wire.getContext()).isFloat();
        };
        mWidens = mWidens || std::any_of(instances().begin(), instances().end(), mayGrow);
        return LaneTupleVectorUnroller::originalWire(wire, vectors);
    }
    using LaneTupleVectorUnroller::writesTypeOf;
    bool writesTypeOf(const Wire &) const override {
        return mWidens && std::any_of(Params(block()).begin(), Params(block()).end(), [](const auto &param) {
                   return !nodeVR(param.second) && hasLanesOfTheirOwn(param.second);
               });
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
        OrvoUtils::copyParams(wide, wire);
        connectReaders(readers, wide);
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
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        const auto isFixed = [&](const RefChain &instance) {
            return NumTypeSpec(typeOf(wire, instance), wire.getContext()).isFixed();
        };
        mIsBrought = hasLanesOfTheirOwn(block().getParam(A_CONST_VALUE)) &&
                     std::any_of(instances().begin(), instances().end(), isFixed);
        return ResultVectorUnroller::originalWire(wire, vectors);
    }
    using ResultVectorUnroller::writesTypeOf;
    bool writesTypeOf(const Wire &) const override { return mIsBrought; }
    void preAttach(const VectorDecorSpec &merged) override {
        ResultVectorUnroller::preAttach(merged);
        Context *context = block().getContext();
        if (mIsBrought) {
            for (Block *lane : substitutes()) {
                lane->setParam(A_OUTPUT_PRECISION, PureTupleValue::get(A_TYPE_SPECIFIED, type(), context));
            }
        }
    }

  protected:
    /// The type stands behind a tag. One complex number makes the products of all lanes complex.
    ValueRef laneValue(const PureValueRef &key, const ValueRef &value, const VectorDecorSpec &merged,
                       const std::vector<int> &indices) const override {
        if (key == A_CONST_VALUE) {
            const ValueRef own = ResultVectorUnroller::laneValue(key, value, merged, indices);
            return numberVR(own) && hasComplexPart(value)
                       ? PureTupleValue::get(A_COMPLEX_ROLL_TAG, PureValueRef(own), numberOf(0), block().getContext())
                       : own;
        }
        const PureTupleValueRef precision = pureTupleVR(value);
        if (!(key == A_OUTPUT_PRECISION) || !precision || precision->size() != 2) {
            return ResultVectorUnroller::laneValue(key, value, merged, indices);
        }
        Context *context = block().getContext();
        return PureTupleValue::get(precision->at(0), elementType(PureValueRef(precision->at(1)), context), context);
    }

  private:
    bool mIsBrought = false;
};

} // namespace

const VectorUnrollHandler *laneTupleVectorHandler() { return vectorUnrollHandler<LaneTupleVectorUnroller>(); }
const VectorUnrollHandler *constVectorHandler() { return vectorUnrollHandler<ConstVectorUnroller>(); }
const VectorUnrollHandler *lutVectorHandler() { return vectorUnrollHandler<LUTVectorUnroller>(); }
const VectorUnrollHandler *dualMemVectorHandler() { return vectorUnrollHandler<DualMemVectorUnroller>(); }
const VectorUnrollHandler *wideningVectorHandler() { return vectorUnrollHandler<WideningVectorUnroller>(); }
const VectorUnrollHandler *counterVectorHandler() { return vectorUnrollHandler<CounterVectorUnroller>(); }
const VectorUnrollHandler *constMultVectorHandler() { return vectorUnrollHandler<ConstMultVectorUnroller>(); }

} // namespace orvo::internal
