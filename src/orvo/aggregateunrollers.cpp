// The unrollers of block types that are more than one block a member, and the table of all.
#include "orvo/aggregateunrollers.h"

#include "orvo/boundaryaggregateunroller.h"
#include "orvo/pairsin.h"
#include "orvo/pipeinput.h"
#include "orvo/stallnumbers.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/logging.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>

#include <fmt/format.h>

#include <algorithm>

namespace orvo::internal {

namespace {

PureValueRef numberOf(int number) { return NumberValue::get(number, ContextMgr::getThreadContext()); }

void connect(const std::vector<MaybePort> &readers, Wire &wire) {
    for (const MaybePort &reader : readers) {
        reader.setWire(wire);
    }
}

/// Each member starts at its own value.
class RegisterAggregateUnroller final : public SimplePrimAggregateUnroller {
  public:
    using SimplePrimAggregateUnroller::SimplePrimAggregateUnroller;

  protected:
    ValueRef memberValue(const PureValueRef &key, const ValueRef &value, int flatIndex,
                         const AggregateTypeManager &manager) const override {
        return key == A_REGISTER_INIT_VALUE || key == A_SYNC_REGISTER_INIT_VALUE
                   ? valueOfMember(value, manager.pathTo(spec(), flatIndex))
                   : SimplePrimAggregateUnroller::memberValue(key, value, flatIndex, manager);
    }
};

/// The block chooses between records whole, and between numbers, but not between vectors of records.
class MuxAggregateUnroller : public SimplePrimAggregateUnroller {
  public:
    using SimplePrimAggregateUnroller::SimplePrimAggregateUnroller;

  protected:
    bool needsScalars(const PureValueRef &memberType) const override { return isVectorOfRecords(memberType); }
};

/// Valid takes the vectors and parts of the data, so it comes from a block of its own.
class SelectAggregateUnroller final : public MuxAggregateUnroller {
  public:
    using MuxAggregateUnroller::MuxAggregateUnroller;
    void preAttach(const AggregateTypeManager &manager) override {
        MuxAggregateUnroller::preAttach(manager);
        if (block().getWire(A_SELECT_WIRE_VALID) == nullptr) {
            return;
        }
        for (Block *member : memberBlocks()) {
            delete member->getWire(A_SELECT_WIRE_VALID);
        }
        Context *context = block().getContext();
        Block &one = create("one", A_CONST_BLOCK);
        one.setParam(A_CONST_VALUE, numberOf(1));
        one.setParam(A_CONST_TYPE, NumTypeSpec::boolean().toValue(context));
        mOne = Wire::create(one, A_PRIM_WIRE_OUT);
        mValid = &create("valid", A_SELECT_BLOCK);
        for (auto param : Params(block())) {
            if (isTakenOver(param.first, param.second)) {
                mValid->setParam(param.first, param.second);
            }
        }
        mValid->setParam(A_SELECT_PORT_DEFAULT_DATA, *mOne);
        Wire::create(*mValid, A_PRIM_WIRE_OUT);
        OrvoUtils::copyParams(*Wire::create(*mValid, A_SELECT_WIRE_VALID), *block().getWire(A_SELECT_WIRE_VALID));
    }
    void attachPort(Port &port, const AggregateTypeSpec &member, int flatIndex, Wire &driver,
                    const AggregateTypeManager &manager) override {
        MuxAggregateUnroller::attachPort(port, member, flatIndex, driver, manager);
        const PureTupleValueRef key = pureTupleVR(port.getName());
        if (mValid != nullptr && key && key->size() == 2 && key->at(0) == A_SELECT_PORTKEY_CTRL) {
            attach(*mValid, key, driver);
            const PureValueRef data = PureTupleValue::get(A_SELECT_PORTKEY_DATA, key->at(1), block().getContext());
            mValid->setParam(data, *mOne);
        }
    }
    Wire *attachWire(Wire &wire, const AggregateTypeSpec &member, int flatIndex, const std::vector<MaybePort> &readers,
                     const AggregateTypeManager &manager) override {
        if (!(wire.getName() == A_SELECT_WIRE_VALID)) {
            return MuxAggregateUnroller::attachWire(wire, member, flatIndex, readers, manager);
        }
        Wire *valid = mValid->getWire(A_SELECT_WIRE_VALID);
        connect(readers, *valid);
        return valid;
    }

  private:
    Block &create(const char *word, const StaticString &type) const {
        Context *context = block().getContext();
        const PureValueRef name = PureTupleValue::get(block().getName(), StringValue::get(word, context), context);
        Block &made = *Block::create(block().getModel(), name);
        made.setParam(A_BLOCK_TYPE, type);
        return made;
    }

    Block *mValid = nullptr;
    Wire *mOne = nullptr;
};

/// Without a scalar's type to cast to the block takes records, and gives them on as they are.
class CastAggregateUnroller final : public SimplePrimAggregateUnroller {
  public:
    using SimplePrimAggregateUnroller::SimplePrimAggregateUnroller;
    AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        mGivesNumber = mGivesNumber || (wire.getName() == A_PRIM_WIRE_OUT && !spec.isAggregate());
        return SimplePrimAggregateUnroller::originalWire(wire, spec, manager);
    }
    /// Comes behind all wires.
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        if (mGivesNumber && spec.isAggregate()) {
            fail("a record is cast to a number");
        }
        return SimplePrimAggregateUnroller::originalPort(port, spec, manager);
    }

  protected:
    ValueRef memberValue(const PureValueRef &key, const ValueRef &value, int flatIndex,
                         const AggregateTypeManager &manager) const override {
        // A record's type does not change the record, so that the members' types must not change the members.
        return key == A_CAST_OUTPUT_TYPE ? ValueRef()
                                         : SimplePrimAggregateUnroller::memberValue(key, value, flatIndex, manager);
    }

  private:
    bool mGivesNumber = false;
};

/// Of a vector the block makes outputs without lanes, of a record with a vector in it the whole record.
class DemuxAggregateUnroller final : public SimplePrimAggregateUnroller {
  public:
    using SimplePrimAggregateUnroller::SimplePrimAggregateUnroller;

  protected:
    bool needsScalars(const PureValueRef &memberType) const override {
        return VectorDecorSpec(memberType, nullptr).isVector();
    }
};

/// A list of settings as the lanes of the whole take it, over and over: a member of more lanes would go on with it.
ValueRef settingsOfLanes(const ValueRef &value, std::size_t lanes) {
    const TupleValueRef list = nodeVR(value) ? TupleValueRef() : tupleVR(value);
    if (!list || list->size() == 0 || list->at(0) == A_VECTOR_ROLL_TAG || lanes % list->size() == 0) {
        return value;
    }
    if (lanes == 1) {
        return list->at(0);
    }
    std::vector<ValueRef> settings;
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        settings.push_back(list->at(lane % list->size()));
    }
    return TupleValue::get(settings, value->context());
}

/// A record is late as a whole.
class DelayAggregateUnroller final : public SimplePrimAggregateUnroller {
  public:
    using SimplePrimAggregateUnroller::SimplePrimAggregateUnroller;

  protected:
    ValueRef memberValue(const PureValueRef &key, const ValueRef &value, int flatIndex,
                         const AggregateTypeManager &manager) const override {
        return key == A_DELAY_LENGTH ? settingsOfLanes(value, 1)
                                     : SimplePrimAggregateUnroller::memberValue(key, value, flatIndex, manager);
    }
};

/// The output may have vectors in its members that the input has not: those of the conditions. There is one queue of
/// records for each lane of these.
class QueueAggregateUnroller final : public PrimAggregateUnroller {
  public:
    using PrimAggregateUnroller::PrimAggregateUnroller;
    AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        noteLanes(spec);
        return PrimAggregateUnroller::originalWire(wire, spec, manager);
    }
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        if (!(port.getName() == A_FIFO_PORT_FLUSH)) {
            noteLanes(spec);
        }
        return PrimAggregateUnroller::originalPort(port, spec, manager);
    }

  protected:
    bool sharesVectors() const override { return true; }
    ValueRef memberValue(const PureValueRef &key, const ValueRef &value, int flatIndex,
                         const AggregateTypeManager &manager) const override {
        const bool isSetting = key == A_FIFO_DEPTH || key == A_FIFO_LOW_THRESHOLD || key == A_FIFO_HIGH_THRESHOLD;
        return isSetting ? settingsOfLanes(value, mLanes)
                         : PrimAggregateUnroller::memberValue(key, value, flatIndex, manager);
    }

  private:
    void noteLanes(const AggregateTypeSpec &spec) {
        if (spec.valid() && !spec.isAggregate()) {
            mLanes = std::max(mLanes, VectorDecorSpec(spec.at(0), block().getContext()).elementCount());
        }
    }

    std::size_t mLanes = 1;
};

/// Ports and wires that have names of their own inside a model.
class PrimBoundaryAggregateUnroller : public BoundaryAggregateUnroller {
  public:
    using BoundaryAggregateUnroller::BoundaryAggregateUnroller;
    AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        const AggregateUnrollKind kind = BoundaryAggregateUnroller::originalWire(wire, spec, manager);
        failOnClash();
        return kind;
    }
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        const AggregateUnrollKind kind = BoundaryAggregateUnroller::originalPort(port, spec, manager);
        failOnClash();
        return kind;
    }

  private:
    void failOnClash() {
        if (namesClash()) {
            fail("the name of a member is in use");
        }
    }
};

/// The map of types names the members.
class LatencyPlaceholderAggregateUnroller final : public PrimBoundaryAggregateUnroller {
  public:
    using PrimBoundaryAggregateUnroller::PrimBoundaryAggregateUnroller;
    void preAttach(const AggregateTypeManager &manager) override {
        Context *context = block().getContext();
        const auto add = [&](const PureValueRef &name, const PureValueRef &type) {
            const AggregateTypeSpec &spec = manager.specOf(type);
            if (!manager.comesApart(spec)) {
                mEntries.emplace_back(PureTupleValue::get(name, type, context));
            }
            int number = 0;
            for (const PureValueRef &part : manager.getFlatContainerTypes(spec)) {
                mEntries.emplace_back(PureTupleValue::get(makeName(name, spec, number++), part, context));
            }
        };
        forPairsIn(block().getParam(A_LATENCY_PLACEHOLDER_TYPEMAP), add);
    }
    void postAttach() override {
        block().setParam(A_LATENCY_PLACEHOLDER_TYPEMAP, PureTupleValue::get(mEntries, block().getContext()));
        PrimBoundaryAggregateUnroller::postAttach();
    }

  private:
    std::vector<PureValueRef> mEntries;
};

/// Data of a region that can stall; each member gets a number of its own.
class StallBoundaryAggregateUnroller final : public BoundaryAggregateUnroller {
  public:
    explicit StallBoundaryAggregateUnroller(Block &block) : BoundaryAggregateUnroller(block), mNumbers(block) {}
    AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        return StallNumbers::isData(wire.getName()) ? BoundaryAggregateUnroller::originalWire(wire, spec, manager)
                                                    : AggregateUnrollKind::Leave;
    }
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        return StallNumbers::isData(port.getName()) ? BoundaryAggregateUnroller::originalPort(port, spec, manager)
                                                    : AggregateUnrollKind::Leave;
    }

  protected:
    PureValueRef nameOf(const PureValueRef &name, const AggregateTypeSpec &, int flatIndex) override {
        return mNumbers.nameOf(name, flatIndex);
    }

  private:
    StallNumbers mNumbers;
};

/// One pin that tells the type of each number. What its ports are called means nothing, so that all are numbered
/// through by their order, the members of one record side by side; a wire goes with the port of its name.
class TypePinAggregateUnroller final : public AggregateUnroller {
  public:
    explicit TypePinAggregateUnroller(Block &block) : mBlock(block) {}
    bool writesTypes() const override { return true; }
    AggregateUnrollKind originalWire(Wire &, const AggregateTypeSpec &, const AggregateTypeManager &) override {
        return AggregateUnrollKind::Flat;
    }
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override {
        const std::vector<PureValueRef> types = spec.isAggregate() ? manager.getFlatContainerTypes(spec) : spec.types();
        mFirst.emplace(port.getName(), static_cast<int>(mTypes.size()));
        mTypes.insert(mTypes.end(), types.begin(), types.end());
        return AggregateUnrollKind::Flat;
    }
    void preAttach(const AggregateTypeManager &) override {
        Context *context = mBlock.getContext();
        mSubstitute = Block::create(mBlock.getModel(),
                                    StringValue::get(fmt::format("{}_aunroll", mBlock.getName()->toString()), context));
        for (auto param : Params(mBlock)) {
            if (isTakenOver(param.first, param.second)) {
                mSubstitute->setParam(param.first, param.second);
            }
        }
    }
    void attachPort(Port &port, const AggregateTypeSpec &, int flatIndex, Wire &driver,
                    const AggregateTypeManager &) override {
        const MaybePort attached(*mSubstitute, numberOf(mFirst.at(port.getName()) + flatIndex));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire *attachWire(Wire &wire, const AggregateTypeSpec &member, int flatIndex, const std::vector<MaybePort> &readers,
                     const AggregateTypeManager &) override {
        // The main output is that of the first port.
        const bool isMain = wire.getName() == A_PRIM_WIRE_OUT && mBlock.port_size() != 0;
        const auto first = mFirst.find(isMain ? mBlock.port_begin()->getName() : wire.getName());
        Wire &made = first == mFirst.end() ? pinOfItsOwn(wire, member, flatIndex)
                                           : numberedWire(numberOf(first->second + flatIndex));
        OrvoUtils::copyParams(made, wire);
        connect(readers, made);
        return &made;
    }
    void postAttach() override {
        if (mSubstitute->port_size() == 0) {
            delete mSubstitute;
        } else {
            mSubstitute->setParam(A_TYPE_PIN_TYPE, nullptr);
            mSubstitute->setParam(A_TYPE_PIN_PORT_TYPES, PureTupleValue::get(mTypes, mBlock.getContext()));
        }
        delete &mBlock;
    }

  private:
    /// Without an input a pin has but one type.
    Wire &pinOfItsOwn(Wire &wire, const AggregateTypeSpec &member, int flatIndex) const {
        Block &pin = *Block::create(mBlock.getModel(), PureTupleValue::get(mBlock.getName(), wire.getName(),
                                                                           numberOf(flatIndex), mBlock.getContext()));
        pin.setParam(A_BLOCK_TYPE, A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, member.at(0));
        return *Wire::create(pin, A_PRIM_WIRE_OUT);
    }
    /// The main output may be there as that of its port, too.
    Wire &numberedWire(const PureValueRef &name) const {
        Wire *made = mSubstitute->getWire(name);
        return made != nullptr ? *made : *Wire::create(*mSubstitute, name);
    }

    Block &mBlock;
    Block *mSubstitute = nullptr;
    /// The first number of each port.
    std::map<PureValueRef, int> mFirst;
    /// Of each number.
    std::vector<PureValueRef> mTypes;
};

const AggregateUnrollHandler *defaultHandler() {
    static const AggregateUnrollHandler handler;
    return &handler;
}

template <class U> const AggregateUnrollHandler *handler() {
    static const AggregateUnrollHandlerT<U> handler;
    return &handler;
}

constexpr const char *kMember = "one block a member";
constexpr const char *kNames = "one block with a port and a wire a member";
constexpr const char *kNumbers = "its type rule takes numbers";
constexpr const char *kBits = "its type rule takes the bits of numbers";
constexpr const char *kCompared = "it compares numbers, and gives bits";
constexpr const char *kFloats = "its type rule takes floats";
constexpr const char *kCounts = "limits and counts are numbers";
constexpr const char *kCrossModel = "the boundaries of models come apart together, in UnrollAggregateCrossModelPass";
constexpr const char *kTags = "both ends of a tag must stay alike; ElideFromGotoPass makes wires of them";
constexpr const char *kJoins = "what joins members, lanes and parts stays";
constexpr const char *kVectors = "it moves elements of vectors whole; UnrollVectorPass makes wires of it";
constexpr const char *kControls = "all its signals are bits";
constexpr const char *kSamples = "its data are samples, which are numbers";
constexpr const char *kStream = "its signals are those of a stream outside, each of them one word";
constexpr const char *kBus = "its signals are those of a bus, words and bits";
constexpr const char *kAddresses = "it computes addresses and angles from counts";
constexpr const char *kTransform = "it is part of a Fourier transform, whose data are complex numbers and bits";

// clang-format off
const AggregateUnrollRow kRows[] = {
    {&A_ADD_BLOCK, nullptr, kNumbers},
    {&A_MONSTER_ADD_BLOCK, nullptr, kNumbers},
    {&A_SUB_BLOCK, nullptr, kNumbers},
    {&A_MULT_BLOCK, nullptr, kNumbers},
    {&A_MONSTER_MULT_BLOCK, nullptr, kNumbers},
    {&A_ADD_REDUCE_BLOCK, nullptr, kNumbers},
    {&A_SCALAR_PRODUCT_BLOCK, nullptr, kNumbers},
    {&A_ADDSUB_BLOCK, nullptr, kNumbers},
    {&A_ADDSUBFUSED_BLOCK, nullptr, kNumbers},
    {&A_ADD_SLOAD_BLOCK, nullptr, kNumbers},
    {&A_MINMAX_BLOCK, nullptr, kNumbers},
    {&A_MIN_BLOCK, nullptr, kNumbers},
    {&A_MAX_BLOCK, nullptr, kNumbers},
    {&A_SATURATE_BLOCK, nullptr, kNumbers},
    {&A_DIM_BLOCK, nullptr, kNumbers},
    {&A_MAGMIN_BLOCK, nullptr, kNumbers},
    {&A_MAGMAX_BLOCK, nullptr, kNumbers},
    {&A_AND_BLOCK, nullptr, kBits},
    {&A_NAND_BLOCK, nullptr, kBits},
    {&A_OR_BLOCK, nullptr, kBits},
    {&A_NOR_BLOCK, nullptr, kBits},
    {&A_XOR_BLOCK, nullptr, kBits},
    {&A_XNOR_BLOCK, nullptr, kBits},
    {&A_AND_REDUCE_BLOCK, nullptr, kBits},
    {&A_NAND_REDUCE_BLOCK, nullptr, kBits},
    {&A_OR_REDUCE_BLOCK, nullptr, kBits},
    {&A_NOR_REDUCE_BLOCK, nullptr, kBits},
    {&A_XOR_REDUCE_BLOCK, nullptr, kBits},
    {&A_XNOR_REDUCE_BLOCK, nullptr, kBits},
    {&A_BIT_JOIN_BLOCK, nullptr, kBits},
    {&A_BIT_JOIN_REDUCE_BLOCK, nullptr, kBits},
    {&A_NOT_BLOCK, nullptr, kNumbers},
    {&A_REVERSE_BLOCK, nullptr, kNumbers},
    {&A_DELAY_BLOCK, handler<DelayAggregateUnroller>, kMember},
    {&A_RECIPROCAL_BLOCK, nullptr, kNumbers},
    {&A_RECIP_SQRT_BLOCK, nullptr, kNumbers},
    {&A_SQRT_BLOCK, nullptr, kNumbers},
    {&A_REGISTER_BLOCK, handler<RegisterAggregateUnroller>, kMember},
    {&A_NEG_BLOCK, nullptr, kNumbers},
    {&A_COMPLEX_CONJUGATE_BLOCK, nullptr, kNumbers},
    {&A_ABS_BLOCK, nullptr, kNumbers},
    {&A_CMP_EQ_BLOCK, nullptr, kCompared},
    {&A_CMP_NE_BLOCK, nullptr, kCompared},
    {&A_CMP_GE_BLOCK, nullptr, kCompared},
    {&A_CMP_LT_BLOCK, nullptr, kCompared},
    {&A_COMPARECTRL_BLOCK, nullptr, kCompared},
    {&A_BIT_COUNT_BLOCK, nullptr, kBits},
    {&A_CTPOP_BLOCK, nullptr, kBits},
    {&A_TRUNCATE_BLOCK, nullptr, kBits},
    {&A_TRUNCATE_TO_ZERO_BLOCK, nullptr, kBits},
    {&A_BIASED_ROUND_BLOCK, nullptr, kBits},
    {&A_UNBIASED_ROUND_BLOCK, nullptr, kBits},
    {&A_CONST_BLOCK, nullptr, "the type of a constant is a number's"},
    {&A_DIVIDE_BLOCK, nullptr, kNumbers},
    {&A_MOD_MULT_BLOCK, nullptr, kNumbers},
    {&A_CONSTMULT_BLOCK, nullptr, kNumbers},
    {&A_CONSTDIV_BLOCK, nullptr, kNumbers},
    {&A_RAW_SHIFT_BLOCK, nullptr, kBits},
    {&A_BARREL_LEFT_BLOCK, nullptr, kBits},
    {&A_BARREL_RIGHT_BLOCK, nullptr, kBits},
    {&A_BARREL_RIGHT_LZC_BLOCK, nullptr, kBits},
    {&A_BIT_SELECT_BLOCK, nullptr, kBits},
    {&A_CHOOSE_BITS_BLOCK, nullptr, kBits},
    {&A_CAST_BLOCK, handler<CastAggregateUnroller>, kMember},
    {&A_MUX_BLOCK, handler<MuxAggregateUnroller>, kMember},
    {&A_SELECT_BLOCK, handler<SelectAggregateUnroller>, "one block a member, and one for valid"},
    {&A_TAN_BLOCK, nullptr, kFloats},
    {&A_COT_BLOCK, nullptr, kFloats},
    {&A_TANPIX_BLOCK, nullptr, kFloats},
    {&A_COTPIX_BLOCK, nullptr, kFloats},
    {&A_ARCCOSPI_BLOCK, nullptr, kFloats},
    {&A_ARCSINPI_BLOCK, nullptr, kFloats},
    {&A_ARCTANPI_BLOCK, nullptr, kFloats},
    {&A_CUBEROOT_BLOCK, nullptr, kFloats},
    {&A_RINT_BLOCK, nullptr, kFloats},
    {&A_ROUND_BLOCK, nullptr, kFloats},
    {&A_FLOOR_BLOCK, nullptr, kFloats},
    {&A_CEIL_BLOCK, nullptr, kFloats},
    {&A_TRUNC_BLOCK, nullptr, kFloats},
    {&A_EXP2_BLOCK, nullptr, kFloats},
    {&A_EXP10_BLOCK, nullptr, kFloats},
    {&A_LOG2_BLOCK, nullptr, kFloats},
    {&A_LOG10_BLOCK, nullptr, kFloats},
    {&A_EXPM1_BLOCK, nullptr, kFloats},
    {&A_LOG1P_BLOCK, nullptr, kFloats},
    {&A_FRAC_BLOCK, nullptr, kFloats},
    {&A_ASIN_BLOCK, nullptr, kFloats},
    {&A_ACOS_BLOCK, nullptr, kFloats},
    {&A_ATAN_BLOCK, nullptr, kFloats},
    {&A_POLYNOMIAL_BLOCK, nullptr, kNumbers},
    {&A_HYPOT_BLOCK, nullptr, kFloats},
    {&A_HYPOT3D_BLOCK, nullptr, kFloats},
    {&A_ARCTAN2_BLOCK, nullptr, kFloats},
    {&A_MOD_BLOCK, nullptr, kFloats},
    {&A_POW_BLOCK, nullptr, kFloats},
    {&A_POWR_BLOCK, nullptr, kFloats},
    {&A_POWN_BLOCK, nullptr, kFloats},
    {&A_MULT_POW2_BLOCK, nullptr, kNumbers},
    {&A_ILOGB_BLOCK, nullptr, kFloats},
    {&A_LOG_BLOCK, nullptr, kNumbers},
    {&A_EXP_BLOCK, nullptr, kNumbers},
    {&A_SIN_BLOCK, nullptr, kNumbers},
    {&A_COS_BLOCK, nullptr, kNumbers},
    {&A_SINCOSFUSED_BLOCK, nullptr, kNumbers},
    {&A_SINPIX_BLOCK, nullptr, kNumbers},
    {&A_COSPIX_BLOCK, nullptr, kNumbers},
    {&A_SINCOSPIXFUSED_BLOCK, nullptr, kNumbers},
    {&A_CORDIC_BLOCK, nullptr, "its vector and its angle are fixed-point numbers"},
    {&A_FLOAT_MULTADD_BLOCK, nullptr, kFloats},
    {&A_FLOAT_MULTSUB_BLOCK, nullptr, kFloats},
    {&A_FLOAT_CLASS_BLOCK, nullptr, kFloats},
    {&A_DUAL_MEM_BLOCK, nullptr, "the type of its content is a number's"},
    {&A_LUT_BLOCK, nullptr, "the type of its content is a number's"},
    {&A_SYNC_REGISTER_BLOCK, handler<RegisterAggregateUnroller>, kMember},
    {&A_FIFO_BLOCK, handler<QueueAggregateUnroller>, kMember},
    {&A_FIFO_DELAY_BLOCK, handler<QueueAggregateUnroller>, kMember},
    {&A_SEQUENCE_BLOCK, nullptr, "it carries pulses"},
    {&A_COUNTER_BLOCK, nullptr, kCounts},
    {&A_LD_COUNTER_BLOCK, nullptr, kCounts},
    {&A_LOOP_BLOCK, nullptr, kCounts},
    {&A_FOR_LOOP_BLOCK, nullptr, kCounts},
    {&A_ACC_BLOCK, nullptr, kNumbers},
    {&A_FLOAT_MULTACC_BLOCK, nullptr, kFloats},
    {&A_DECODE_BLOCK, nullptr, kCompared},
    {&A_DEMUX_BLOCK, handler<DemuxAggregateUnroller>, "one block a member, of vectors one a scalar"},
    {&A_FANOUT_BLOCK, defaultHandler, kMember},
    {&A_MODEL_BLOCK, nullptr, kCrossModel},
    {&A_INPUT_BLOCK, nullptr, kCrossModel},
    {&A_OUTPUT_BLOCK, nullptr, kCrossModel},
    {&A_SIGNAL_IN_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_SIGNAL_OUT_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_TERMINAL_BLOCK, defaultHandler, kMember},
    {&A_FOLDING_KERNEL_BOUNDARY_BLOCK, defaultHandler, kMember},
    {&A_CHANNEL_IN_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_CHANNEL_OUT_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_TYPE_PIN_BLOCK, handler<TypePinAggregateUnroller>, "one pin with a port a member"},
    {&A_VPACK_BLOCK, nullptr, kJoins},
    {&A_VUNPACK_BLOCK, nullptr, kJoins},
    {&A_VCONCAT_BLOCK, nullptr, kVectors},
    {&A_VSPLIT_BLOCK, nullptr, kVectors},
    {&A_VSELECTOR_BLOCK, nullptr, kVectors},
    {&A_CPACK_BLOCK, nullptr, kJoins},
    {&A_CUNPACK_BLOCK, nullptr, kJoins},
    {&A_APACK_BLOCK, nullptr, kJoins},
    {&A_AUNPACK_BLOCK, nullptr, kJoins},
    {&A_UNSCHED_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_BOUNDARY_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_HIDDEN_IFACE_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_EXT_IFACE_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_LATENCY_PLACEHOLDER_BLOCK, handler<LatencyPlaceholderAggregateUnroller>, kNames},
    {&A_SCHEDULED_MODEL_BLOCK, nullptr, "its ports follow the mappings of the scheduled model"},
    {&A_UNSUPPORTED_BLOCK, nullptr, "nothing is known of what it computes"},
    {&A_STALLREG_BLOCK, handler<StallBoundaryAggregateUnroller>, "one block with a numbered signal a member"},
    {&A_STALLENABLE_BLOCK, nullptr, kControls},
    {&A_STALLENTER_BLOCK, handler<StallBoundaryAggregateUnroller>, "one block with a numbered signal a member"},
    {&A_STALLEXIT_BLOCK, handler<StallBoundaryAggregateUnroller>, "one block with a numbered signal a member"},
    {&A_STALLVALID_CONNECTOR_BLOCK, nullptr, kControls},
    {&A_ENABLE_SINK_BLOCK, nullptr, kControls},
    {&A_ENABLE_SRC_BLOCK, nullptr, kControls},
    {&A_READY_BLOCK, nullptr, kControls},
    {&A_ECC_SRC_BLOCK, nullptr, "the status is two bits"},
    {&A_PIPE_BLOCK, handler<PipeUnroller<PrimBoundaryAggregateUnroller>>, kNames},
    {&A_FIXED_MFUNC_BLOCK, nullptr, "its operands are fixed-point numbers"},
    {&A_FLOAT_MFUNC_BLOCK, nullptr, kFloats},
    {&A_CIC_BLOCK, nullptr, kSamples},
    {&A_FIR_BLOCK, nullptr, kSamples},
    {&A_SCALE_BLOCK, nullptr, kSamples},
    {&A_MIXER_BLOCK, nullptr, kSamples},
    {&A_NCO_BLOCK, nullptr, kSamples},
    {&A_CHANVIEW_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_SHARED_FIFO_BLOCK, handler<PrimBoundaryAggregateUnroller>, kNames},
    {&A_AXI4_STREAM_RECEIVER_BLOCK, nullptr, kStream},
    {&A_AXI4_STREAM_TRANSMITTER_BLOCK, nullptr, kStream},
    {&A_BFU_BLOCK, nullptr, kTransform},
    {&A_BFU_LONG_BLOCK, nullptr, kTransform},
    {&A_BFU_SHORT_BLOCK, nullptr, kTransform},
    {&A_BITREVCORE_BLOCK, nullptr, kTransform},
    {&A_BITREV_BLOCK, nullptr, kTransform},
    {&A_BUS_IN_BLOCK, nullptr, kBus},
    {&A_BUS_OUT_BLOCK, nullptr, kBus},
    {&A_BUS_SIGNALS_BLOCK, nullptr, kBus},
    {&A_BUTTERFLY_ROUTER_BLOCK, nullptr, kTransform},
    {&A_BUTTERFLY_STAGE_BLOCK, nullptr, kTransform},
    {&A_DELAY_VALID_BLOCK, nullptr, "it carries pulses"},
    {&A_ECC_SINK_BLOCK, nullptr, "the status is two bits"},
    {&A_EDGE_DETECT_BLOCK, nullptr, "it carries pulses"},
    {&A_EXTMEM_READ_BLOCK, nullptr, "its signals are words of a memory outside"},
    {&A_EXTMEM_WRITE_BLOCK, nullptr, "its signals are words of a memory outside"},
    {&A_FFT2_BLOCK, nullptr, kTransform},
    {&A_FFT4_BLOCK, nullptr, kTransform},
    {&A_FFTCORE_BLOCK, nullptr, kTransform},
    {&A_FFTNP_BLOCK, nullptr, kTransform},
    {&A_FFTNX_BLOCK, nullptr, kTransform},
    {&A_FFT_BLOCK, nullptr, kTransform},
    {&A_FFT_CHOOSE_BITS_BLOCK, nullptr, "it selects bits of a count"},
    {&A_FFT_LIGHT_BLOCK, nullptr, kTransform},
    {&A_FLUTTERBY_PATH_BLOCK, nullptr, kTransform},
    {&A_FLUTTERBY_ROUTER_BLOCK, nullptr, kTransform},
    {&A_FROM_BLOCK, nullptr, kTags},
    {&A_GENERAL_MULT_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_GENERAL_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_GOTO_BLOCK, nullptr, kTags},
    {&A_HYBRID_FFT_BLOCK, nullptr, kTransform},
    {&A_LATCH_0L_BLOCK, nullptr, "nothing tells the type of what it holds; the transforms that make it hold bits in it"},
    {&A_MEM_ADDR_GEN_BLOCK, nullptr, kAddresses},
    {&A_MM_REGISTER_BLOCK, nullptr, kBus},
    {&A_MULTIWIRE_TRANSPOSE_BLOCK, nullptr, kTransform},
    {&A_PFFT_PIPE_BLOCK, nullptr, kTransform},
    {&A_PULSE_DIVIDER_BLOCK, nullptr, "it carries pulses"},
    {&A_PULSE_MULTIPLIER_BLOCK, nullptr, "it carries pulses"},
    {&A_READ_ACCESS_LUT_BLOCK, nullptr, "the type of its content is a number's"},
    {&A_SARNET_MM_MASTER_IN_BLOCK, nullptr, kBus},
    {&A_SARNET_MM_MASTER_OUT_BLOCK, nullptr, kBus},
    {&A_SARNET_MM_SLAVE_IN_BLOCK, nullptr, kBus},
    {&A_SARNET_MM_SLAVE_OUT_BLOCK, nullptr, kBus},
    {&A_SARNET_ST_SINK_BLOCK, nullptr, kStream},
    {&A_SARNET_ST_SINK_IN_BLOCK, nullptr, kStream},
    {&A_SARNET_ST_SINK_OUT_BLOCK, nullptr, kStream},
    {&A_SARNET_ST_SOURCE_BLOCK, nullptr, kStream},
    {&A_SARNET_ST_SOURCE_IN_BLOCK, nullptr, kStream},
    {&A_SARNET_ST_SOURCE_OUT_BLOCK, nullptr, kStream},
    {&A_SHARED_MEM_BLOCK, nullptr, kBus},
    {&A_SHARED_MEM_PLACEHOLDER_BLOCK, nullptr, kBus},
    {&A_SPLIT_SPATIAL_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_STAGE_DROP_BLOCK, nullptr, kTransform},
    {&A_TA0MN_BLOCK, nullptr, kAddresses},
    {&A_TAL1N_BLOCK, nullptr, kAddresses},
    {&A_TAL2N_BLOCK, nullptr, kAddresses},
    {&A_TALM1_BLOCK, nullptr, kAddresses},
    {&A_TALM2_BLOCK, nullptr, kAddresses},
    {&A_TALMN_BLOCK, nullptr, kAddresses},
    {&A_TRANSPOSE_ADDR_BLOCK, nullptr, kAddresses},
    {&A_TRANSPOSE_BLOCK, nullptr, kTransform},
    {&A_TRIVIAL_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY1_8F_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY1_8P_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY3_8F_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBY3_8P_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBYF_BLOCK, nullptr, kTransform},
    {&A_TWIDDLEBYP_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_ADD_SUB_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_ANGLE_BLOCK, nullptr, kAddresses},
    {&A_TWIDDLE_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_COUNTER_BLOCK, nullptr, kAddresses},
    {&A_TWIDDLE_MULT_ANGLE_BLOCK, nullptr, kAddresses},
    {&A_TWIDDLE_MULT_ROM_BLOCK, nullptr, kTransform},
    {&A_TWIDDLE_ROM_BLOCK, nullptr, kTransform},
    {&A_VBITREVCORE_BLOCK, nullptr, kTransform},
    {&A_VBITREV_BLOCK, nullptr, kTransform},
    {&A_VBR_BLOCK, nullptr, kTransform},
    {&A_VECTOR_FANOUT_BLOCK, nullptr, kTransform},
    {&A_VFFT2_BLOCK, nullptr, kTransform},
    {&A_VFFT4_BLOCK, nullptr, kTransform},
    {&A_VFFTCORE_BLOCK, nullptr, kTransform},
    {&A_VFFT_BLOCK, nullptr, kTransform},
    {&A_VFFT_LIGHT_BLOCK, nullptr, kTransform},
    {&A_VFFT_PIPE_BLOCK, nullptr, kTransform},
    {&A_VPD_BLOCK, nullptr, "it carries pulses"},
    {&A_VPM_BLOCK, nullptr, "it carries pulses"},
    {&A_VTWIDDLE_BLOCK, nullptr, kTransform},
    {&A_XOR_BITS_BLOCK, nullptr, "it selects bits of a count"},
    {&A_XSWITCH_BLOCK, nullptr, kTransform},
    {&U_ADD_BLOCK, nullptr, kNumbers},
    {&U_AND_BLOCK, nullptr, kBits},
    {&U_AND_REDUCE_BLOCK, nullptr, kBits},
    {&U_BIT_JOIN_BLOCK, nullptr, kBits},
    {&U_BIT_SELECT_BLOCK, nullptr, kBits},
    {&U_CAST_BLOCK, handler<CastAggregateUnroller>, kMember},
    {&U_CMP_EQ_BLOCK, nullptr, kCompared},
    {&U_CMP_GE_BLOCK, nullptr, kCompared},
    {&U_CMP_LT_BLOCK, nullptr, kCompared},
    {&U_CMP_NE_BLOCK, nullptr, kCompared},
    {&U_MUX_BLOCK, handler<MuxAggregateUnroller>, kMember},
    {&U_NAND_BLOCK, nullptr, kBits},
    {&U_NAND_REDUCE_BLOCK, nullptr, kBits},
    {&U_NOR_BLOCK, nullptr, kBits},
    {&U_NOR_REDUCE_BLOCK, nullptr, kBits},
    {&U_NOT_BLOCK, nullptr, kNumbers},
    {&U_OR_BLOCK, nullptr, kBits},
    {&U_OR_REDUCE_BLOCK, nullptr, kBits},
    {&U_REGISTER_BLOCK, handler<RegisterAggregateUnroller>, kMember},
    {&U_SUB_BLOCK, nullptr, kNumbers},
    {&U_XNOR_BLOCK, nullptr, kBits},
    {&U_XNOR_REDUCE_BLOCK, nullptr, kBits},
    {&U_XOR_BLOCK, nullptr, kBits},
    {&U_XOR_REDUCE_BLOCK, nullptr, kBits},
};
// clang-format on

} // namespace

std::span<const AggregateUnrollRow> aggregateUnrollRows() { return kRows; }

void registerAggregateUnrollers(Context *context) {
    for (const AggregateUnrollRow &row : kRows) {
        if (row.handler != nullptr) {
            context->getBlockClass(*row.blockType)->registerHandler<AggregateUnrollHandler>(row.handler(), false);
        }
    }
}

} // namespace orvo::internal
