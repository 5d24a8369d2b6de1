// Blocks that know lanes by the keys of their ports and wires: what they become has a key a lane.
#include "orvo/keyedvectorunrollers.h"

#include "orvo/boundaryvectorunroller.h"
#include "orvo/pairsin.h"
#include "orvo/pipeinput.h"
#include "orvo/replacedsignals.h"
#include "orvo/stallnumbers.h"
#include "orvo/vectorunrollparts.h"

#include <orvo/block.h>
#include <orvo/limits.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <algorithm>
#include <map>
#include <vector>

namespace orvo::internal {

namespace {

/// Ports and wires that have names of their own inside a model.
class PrimBoundaryVectorUnroller : public BoundaryVectorUnroller {
  public:
    using BoundaryVectorUnroller::BoundaryVectorUnroller;
    bool canUnroll() const override { return !namesClash(); }
};

/// Filters and oscillators. Their data goes by number, and what a lane of it becomes is known by its number and lane.
class IPVectorUnroller final : public BoundaryVectorUnroller {
  public:
    using BoundaryVectorUnroller::BoundaryVectorUnroller;
    bool canUnroll() const override { return !namesClash(); }
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
        forPairsIn(types(), [&](const PureValueRef &name, const PureValueRef &type) {
            PureValueRef element;
            const VectorDecorSpec vectors(type, element, context);
            if (!vectors.valid()) {
                entries.emplace_back(PureTupleValue::get(name, type, context));
                return;
            }
            for (LaneCounter lane(vectors); !lane.atEnd(); lane.next()) {
                entries.emplace_back(PureTupleValue::get(makeName(name, vectors, lane.indices()), element, context));
            }
        });
        block().setParam(A_LATENCY_PLACEHOLDER_TYPEMAP, PureTupleValue::get(entries, context));
        BoundaryVectorUnroller::postAttach();
    }

  private:
    ValueRef types() const { return block().getParam(A_LATENCY_PLACEHOLDER_TYPEMAP); }
    /// An entry need not be that of a signal.
    bool hasHugeTypes() const {
        bool found = false;
        forPairsIn(types(), [&](const PureValueRef &, const PureValueRef &type) {
            found = found || VectorDecorSpec(type, block().getContext()).elementCount() > limits::kLanes;
        });
        return found;
    }
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
        connectReaders(readers, *level);
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
        connectReaders(readers, *lane);
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
    using VectorUnroller::writesTypeOf;
    bool writesTypeOf(const Port &) const override { return mBlock.findParam(A_TYPE_PIN_PORT_TYPES) != nullptr; }
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
        mPin = &createBeside(mBlock, named("{}_vunroll", mBlock.getName()), A_TYPE_PIN_BLOCK);
        copyPlainParams(*mPin, mBlock);
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
        OrvoUtils::copyParams(*lane, wire);
        connectReaders(readers, *lane);
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
        if (port.getName() == A_DEMUX_PORT_DATA) {
            attach(mSubstitutes[lanes.elementIndex(indices)], port.getName(), driver);
            return;
        }
        for (Block *lane : mSubstitutes) {
            attach(lane, port.getName(), driver);
        }
    }
    Wire *attachWire(Wire &wire, const VectorDecorSpec &, const std::vector<int> &,
                     const std::vector<MaybePort> &readers) override {
        const PureValueRef output = numberOf(static_cast<std::size_t>(numberVR(wire.getName())->toInt() % channels()));
        Block &lane = *mSubstitutes[laneOf(wire)];
        Wire *made = lane.getWire(output);
        made = made == nullptr ? Wire::create(lane, output) : made;
        OrvoUtils::copyParams(*made, wire);
        connectReaders(readers, *made);
        return made;
    }
    void postAttach() override { delete &mBlock; }

  private:
    void attach(Block *lane, const PureValueRef &key, Wire &driver) {
        if (lane != nullptr) {
            const MaybePort attached(*lane, key);
            attached.setWire(driver);
            addAttachedPort(attached);
        }
    }
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
        copyPlainParams(made, mBlock);
        // A demultiplexer has its first output, read or not.
        Wire::create(made, numberOf(0));
        return made;
    }

    Block &mBlock;
    VectorDecorSpec mLanes;
    /// By lane, null where none of its outputs is there.
    std::vector<Block *> mSubstitutes;
};

} // namespace

const VectorUnrollHandler *primBoundaryVectorHandler() { return vectorUnrollHandler<PrimBoundaryVectorUnroller>(); }
const VectorUnrollHandler *pipeVectorHandler() {
    return vectorUnrollHandler<PipeUnroller<PrimBoundaryVectorUnroller>>();
}
const VectorUnrollHandler *ipVectorHandler() { return vectorUnrollHandler<IPVectorUnroller>(); }
const VectorUnrollHandler *latencyPlaceholderVectorHandler() {
    return vectorUnrollHandler<LatencyPlaceholderVectorUnroller>();
}
const VectorUnrollHandler *loopVectorHandler() { return vectorUnrollHandler<LoopVecUnroller>(); }
const VectorUnrollHandler *stallBoundaryVectorHandler() { return vectorUnrollHandler<StallBoundaryVectorUnroller>(); }
const VectorUnrollHandler *typePinVectorHandler() { return vectorUnrollHandler<TypePinVectorUnroller>(); }
const VectorUnrollHandler *demuxVectorHandler() { return vectorUnrollHandler<DemuxVectorUnroller>(); }

} // namespace orvo::internal
