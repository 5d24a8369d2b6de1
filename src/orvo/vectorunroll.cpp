// The engine of vector unrolling.
#include "orvo/vectorunroll.h"

#include "orvo/typedifference.h"
#include "orvo/unrollpasses.h"
#include "orvo/vectorunrollparts.h"

#include <orvo/block.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <unordered_set>

namespace orvo::internal_vector {

namespace {

VectorDecorSpec scalar() {
    VectorDecorSpec none;
    none.setVector(0);
    return none;
}

/// Whether members of a record, or members of those, are vectors.
bool holdsVectors(const PureValueRef &type, Context *context) {
    PureValueRef inner;
    const VectorDecorSpec vectors(type, inner, context);
    std::vector<PureValueRef> open{inner};
    std::unordered_set<const Value *> met;
    while (!open.empty()) {
        const PureTupleValueRef tuple = pureTupleVR(open.back());
        open.pop_back();
        if (!tuple || tuple->size() == 0 || !met.insert(tuple.get_ptr()).second) {
            continue;
        }
        if (tuple->at(0) == A_TYPE_VECTOR) {
            return true;
        }
        open.insert(open.end(), std::next(tuple->begin()), tuple->end());
    }
    return false;
}

/// Pins say what a signal is, packs and unpacks join and part what is there, boundaries have the same signal on both
/// sides: none makes a vector of a number.
bool handsOnAsIs(const Block &block) {
    const StaticString *const handing[] = {&A_TYPE_PIN_BLOCK, &A_VPACK_BLOCK, &A_VUNPACK_BLOCK, &A_OUTPUT_BLOCK,
                                           &A_MODEL_BLOCK};
    return std::any_of(std::begin(handing), std::end(handing),
                       [&](const StaticString *type) { return block.type() == type->get_ptr(); });
}

/// Names a port that takes complex numbers although real ones drive it, or the other way round; empty for others. What
/// takes the vector apart would get the reader's parts.
std::string partsDifference(const Port &port, const std::vector<RefChain> &instances, GlobalTypePass &types) {
    const Wire *wire = port.peekWire();
    Context *context = port.getBlock().getContext();
    for (const RefChain &instance : instances) {
        const ComplexDecorSpec own(types.getType(port, instance), context);
        const ComplexDecorSpec driver(wire == nullptr ? PureValueRef() : types.getType(*wire, instance), context);
        if (own.valid() && driver.valid() && own.isComplex() != driver.isComplex()) {
            return fmt::format("port '{}' takes {} numbers, but {} ones drive it", port.getName()->toString(),
                               own.isComplex() ? "complex" : "real", driver.isComplex() ? "complex" : "real");
        }
    }
    return {};
}

/// The element of a signal that serves a lane.
std::vector<int> elementFor(const VectorDecorSpec &signal, std::vector<int> lane) {
    lane.resize(signal.vectorDepth(), 0);
    for (std::size_t k = 0; k < lane.size(); ++k) {
        lane[k] = signal.vectorLength(k) == 1 ? 0 : lane[k];
    }
    return lane;
}

} // namespace

bool takesDriver(const Port &port, const VectorDecorSpec &own, const VectorDecorSpec &driver) {
    if (driver == own || !own.valid() || !driver.valid() || handsOnAsIs(port.getBlock())) {
        return driver == own;
    }
    const std::vector<int> &given = driver.vectorLengths();
    const std::vector<int> &asked = own.vectorLengths();
    const auto beyond = std::mismatch(given.begin(), given.end(), asked.begin(), asked.end()).first;
    return std::all_of(beyond, given.end(), [](int length) { return length == 1; });
}

VectorPackManager::VectorPackManager(const VectorDecorSpec &lanes, const VectorDecorSpec &signal, Model &model,
                                     const PureValueRef &name)
    : mDepth(std::min(lanes.vectorDepth(), signal.vectorDepth())), mPacker(shapeOf(lanes, signal), model, name) {}

CompoundTypeInfo VectorPackManager::shapeOf(const VectorDecorSpec &lanes, const VectorDecorSpec &signal) {
    if (!lanes.isVector()) {
        return {};
    }
    ORVO_ASSERT(signal.vectorDepth() <= lanes.vectorDepth(), "a signal has more dimensions than its lanes");
    for (std::size_t k = 0; k < signal.vectorDepth(); ++k) {
        ORVO_ASSERT(lanes.vectorLength(k) == signal.vectorLength(k), "a signal has another length than its lanes");
    }
    return CompoundTypeInfo::createVectorInfo(signal);
}

CompoundDecorIndex VectorPackManager::pathOf(const std::vector<int> &indices) const {
    CompoundDecorIndex path = CompoundDecorIndex::createEmptyIndex();
    for (std::size_t k = mDepth; k-- > 0;) {
        path = path << CompoundDecorIndex::createVectorIndex(indices[k]);
    }
    return path;
}

Wire &VectorPackManager::getUnpackedWire(const std::vector<int> &indices) const {
    Wire *wire = mPacker.getUnpackedWire(pathOf(indices));
    ORVO_ASSERT(wire != nullptr, "a lane has no wire after the unpack");
    return *wire;
}

std::vector<MaybePort> VectorPackManager::getPackedPorts(const std::vector<int> &indices) const {
    return mPacker.getPackedPorts(pathOf(indices));
}

BlockUnrollerImpl::BlockUnrollerImpl(Block &block, const std::vector<RefChain> &instances,
                                     std::shared_ptr<VectorUnroller> unroller, GlobalTypePass &types)
    : mBlock(block), mInstances(instances), mUnroller(std::move(unroller)), mMerged(scalar()) {
    mUnroller->setTypePassRefChain(types, mInstances.front());
    mUnroller->setInstances(mInstances);
    mWires.reserve(block.getWireCount());
    std::vector<RefChain> some;
    for (Wire &wire : block) {
        const std::vector<RefChain> &telling = internal::tellingInstances(wire, mInstances, types, some);
        if (telling.empty()) {
            continue;
        }
        const auto [vectors, isUnique] = typeOf(wire, telling, types);
        if (!vectors.valid()) {
            log::msg(msg::error::UNVEC_INVALID_WIRE_TYPE, log::p("wire", wire.value()));
            mFailed = true;
        }
        const VectorUnrollKind kind = mUnroller->originalWire(wire, vectors);
        note(vectors, kind);
        mWires.push_back({&wire, vectors, kind, isUnique});
    }
    mPorts.reserve(block.getPortCount());
    for (Port &port : block.ports()) {
        const auto [vectors, isUnique] = typeOf(port, mInstances, types);
        const VectorUnrollKind kind = mUnroller->originalPort(port, vectors);
        mPorts.push_back({MaybePort(port), vectors, driverOf(port, vectors, types), kind, isUnique});
        if (!vectors.valid() || !canServe(mPorts.back())) {
            log::msg(msg::error::UNVEC_INVALID_PORT_TYPE,
                     log::p("port", port.getName()->toString()) % log::p("block", block.value()));
            mFailed = true;
        }
        note(vectors, kind);
        mNarrows = mNarrows || isNarrowed(mPorts.back());
    }
    if (!mFailed && !mMerged.valid()) {
        failToExpand("its vectors have different lengths");
    } else if (const std::string clashing = hasWork() ? clash(types) : std::string(); !clashing.empty()) {
        failToExpand(clashing);
    } else if (!mFailed && losesRecords(types)) {
        failToExpand("its records come apart before its vectors");
    } else if (comesApart() && !mUnroller->canUnroll()) {
        failToExpand(mUnroller->reason());
    } else if (const std::string detail = comesApart() ? difference(types) : std::string(); !detail.empty()) {
        failToExpand(detail);
    }
}

std::string BlockUnrollerImpl::difference(GlobalTypePass &types) const {
    for (const WireInfo &info : mWires) {
        if (!info.isUnique && mUnroller->writesTypeOf(*info.wire)) {
            return internal::typeDifference(*info.wire, mInstances, types);
        }
    }
    for (const PortInfo &info : mPorts) {
        if (!info.isUnique && mUnroller->writesTypeOf(*info.port.getPort())) {
            return internal::typeDifference(*info.port.getPort(), mInstances, types);
        }
    }
    return {};
}

std::string BlockUnrollerImpl::clash(GlobalTypePass &types) {
    const bool judgesParts = !handsOnAsIs(mBlock);
    for (PortInfo &info : mPorts) {
        if (!judgesParts || !(info.vectors.isVector() || info.given.isVector())) {
            continue;
        }
        const Port &port = *info.port.getPort();
        std::string detail = partsDifference(port, mInstances, types);
        if (detail.empty()) {
            continue;
        }
        const PureValueRef driver = types.getType(*port.peekWire(), mInstances.front());
        if (ComplexDecorSpec(driver, mBlock.getContext()).isComplex() ||
            !internal::typeDifference(*port.peekWire(), mInstances, types).empty()) {
            return detail;
        }
        info.realElement = internal::elementType(driver, mBlock.getContext());
    }
    if (mBlock.type() != A_INPUT_BLOCK.get_ptr() && mBlock.type() != A_MODEL_BLOCK.get_ptr()) {
        return {};
    }
    for (const WireInfo &info : mWires) {
        const bool fits =
            !info.vectors.isVector() || std::all_of(info.wire->port_begin(), info.wire->port_end(), [&](Port &reader) {
                const VectorDecorSpec told = typeOf(reader, mInstances, types).vectors;
                return !told.valid() || told == info.vectors;
            });
        if (!fits) {
            return fmt::format("what reads '{}' takes other vectors, and has to come apart first",
                               info.wire->getName()->toString());
        }
    }
    return {};
}

bool BlockUnrollerImpl::losesRecords(GlobalTypePass &types) const {
    const auto losesIn = [&](const WireInfo &info, const RefChain &instance) {
        return holdsVectors(types.getType(*info.wire, instance), mBlock.getContext());
    };
    return mMerged.isVector() && std::any_of(mWires.begin(), mWires.end(), [&](const WireInfo &info) {
               const auto end = info.isUnique ? mInstances.begin() + 1 : mInstances.end();
               return info.kind == VectorUnrollKind::Merged && !(info.vectors == mMerged) &&
                      std::any_of(mInstances.begin(), end,
                                  [&](const RefChain &instance) { return losesIn(info, instance); });
           });
}

void BlockUnrollerImpl::failOnBoundary() {
    const std::string known = mUnroller->reason();
    failToExpand(known.empty() ? "it comes apart in another way than the other side of the boundary" : known);
}

void BlockUnrollerImpl::failToExpand(const std::string &detail) {
    if (detail.empty()) {
        log::msg(msg::error::UNVEC_INVALID_EXPAND_TYPE, log::p("block", mBlock.value()));
    } else {
        log::msg(msg::error::UNVEC_INVALID_EXPAND_TYPE, log::p("block", mBlock.value()) % log::p("detail", detail));
    }
    mFailed = true;
}

template <class End>
BlockUnrollerImpl::SignalType BlockUnrollerImpl::typeOf(const End &end, const std::vector<RefChain> &instances,
                                                        GlobalTypePass &types) const {
    Context *context = mBlock.getContext();
    const PureValueRef type = types.getType(end, instances.front());
    SignalType signal{VectorDecorSpec(type, context), true};
    // One netlist serves all instances.
    const bool agree = std::all_of(instances.begin() + 1, instances.end(), [&](const RefChain &instance) {
        const PureValueRef other = types.getType(end, instance);
        if (other == type) {
            return true;
        }
        signal.isUnique = false;
        return VectorDecorSpec(other, context) == signal.vectors;
    });
    const VectorDecorSpec &vectors = signal.vectors;
    if (!agree || vectors.vectorDepth() > limits::kTupleDepth || vectors.elementCount() > limits::kLanes) {
        signal.vectors = VectorDecorSpec();
    }
    return signal;
}

VectorDecorSpec BlockUnrollerImpl::driverOf(const Port &port, const VectorDecorSpec &own, GlobalTypePass &types) const {
    const Wire *wire = port.peekWire();
    if (wire == nullptr) {
        return own;
    }
    const auto in = [&](const RefChain &instance) {
        const PureValueRef driver = types.getType(*wire, instance);
        return driver ? VectorDecorSpec(driver, mBlock.getContext()) : own;
    };
    const VectorDecorSpec driver = in(mInstances.front());
    const bool agree = std::all_of(mInstances.begin() + 1, mInstances.end(),
                                   [&](const RefChain &instance) { return in(instance) == driver; });
    return agree && driver.vectorDepth() <= limits::kTupleDepth ? driver : VectorDecorSpec();
}

bool BlockUnrollerImpl::canServe(const PortInfo &info) const {
    const bool fallsApart = info.kind == VectorUnrollKind::Own || info.kind == VectorUnrollKind::Merged;
    return info.given == info.vectors ||
           ((fallsApart || isNarrowed(info)) && takesDriver(*info.port.getPort(), info.vectors, info.given));
}

void BlockUnrollerImpl::note(const VectorDecorSpec &vectors, VectorUnrollKind kind) {
    if (kind == VectorUnrollKind::Merged) {
        mMerged.mergeVectors(vectors);
    }
    mExpand = mExpand || vectors.isVector();
}

VectorDecorSpec BlockUnrollerImpl::lanesOf(VectorUnrollKind kind, const VectorDecorSpec &own) const {
    VectorDecorSpec lanes = kind == VectorUnrollKind::Whole ? scalar() : kind == VectorUnrollKind::Own ? own : mMerged;
    ORVO_ASSERT(lanes.valid() && own.valid(), "a block of unknown types is taken apart");
    return lanes;
}

PureValueRef BlockUnrollerImpl::packerName(const PureValueRef &key) const {
    return PureTupleValue::get(mBlock.getName(), key, mBlock.getContext());
}

void BlockUnrollerImpl::unroll(GlobalTypePass &types) {
    if (!hasWork()) {
        return;
    }
    for (PortInfo &info : mPorts) {
        if (isNarrowed(info)) {
            narrowPort(info);
        }
    }
    mNarrows = false;
    if (!comesApart()) {
        return;
    }
    mExpand = false;
    mUnroller->preAttachExtended(mMerged, types, mInstances.front());
    for (const PortInfo &info : mPorts) {
        if (info.kind != VectorUnrollKind::Leave) {
            unrollPort(info);
        }
    }
    for (const WireInfo &info : mWires) {
        if (info.kind != VectorUnrollKind::Leave) {
            unrollWire(info);
        }
    }
    mUnroller->postAttach();
}

void BlockUnrollerImpl::narrowPort(PortInfo &info) {
    Port *port = info.port.getPort();
    ORVO_ASSERT(port != nullptr, "a neighbour went without handing over its readers");
    VectorPackManager packs(info.given, info.given, mBlock.getModel(), packerName(info.port.getKey()));
    packs.doUnpack(*port->peekWire());
    info.port.setWire(elementOf(info, packs.getUnpackedWire(elementFor(info.given, {})), 0));
    info.given = info.vectors;
}

/// A reader of complex numbers would give the wire of an unpack its own type: a pin says that it is real.
Wire &BlockUnrollerImpl::elementOf(const PortInfo &info, Wire &unpacked, std::size_t number) const {
    if (!info.realElement || !info.given.isVector()) {
        return unpacked;
    }
    Context *context = mBlock.getContext();
    const PureValueRef name =
        PureTupleValue::get(packerName(info.port.getKey()), PureValueRef(StringValue::get("real", context)),
                            internal::numberOf(number), context);
    return internal::rewritten(mBlock, name, unpacked, info.realElement);
}

void BlockUnrollerImpl::unrollPort(const PortInfo &info) {
    const VectorDecorSpec lanes = lanesOf(info.kind, info.vectors);
    // Neighbours that were taken apart before have connected the port anew.
    Port *port = info.port.getPort();
    ORVO_ASSERT(port != nullptr, "a neighbour went without handing over its readers");
    VectorPackManager packs(lanes.isVector() ? info.given : lanes, info.given, mBlock.getModel(),
                            packerName(info.port.getKey()));
    packs.doUnpack(*port->peekWire());
    std::size_t number = 0;
    for (LaneCounter lane(lanes); !lane.atEnd(); lane.next()) {
        mUnroller->clearAttachedPorts();
        const std::vector<int> element = lanes.isVector() ? elementFor(info.given, lane.indices()) : std::vector<int>();
        mUnroller->attachPort(*port, lanes, lane.indices(), elementOf(info, packs.getUnpackedWire(element), number++));
        mUnroller->notifyUnrollAttachedPorts(mBlock, info.port.getKey());
    }
}

void BlockUnrollerImpl::unrollWire(const WireInfo &info) {
    const VectorDecorSpec lanes = lanesOf(info.kind, info.vectors);
    const std::vector<MaybePort> readers = maybePortsOf(*info.wire);
    const auto attach = [&](const VectorDecorSpec &of, const std::vector<int> &indices,
                            const std::vector<MaybePort> &ports) {
        if (const Wire *taken = mUnroller->attachWire(*info.wire, of, indices, ports)) {
            mUnroller->notifyUnrollWire(mBlock, info.wire->getName(), taken->getBlock(), taken->getName());
        }
    };
    if (!info.vectors.isVector()) {
        attach(lanes, std::vector<int>(lanes.vectorDepth(), 0), readers);
        return;
    }
    VectorPackManager packs(lanes, info.vectors, mBlock.getModel(), packerName(info.wire->getName()));
    packs.doPack(readers);
    // Of further dimensions the first lane drives what the signal has one element for.
    for (LaneCounter lane(lanes.isVector() ? info.vectors : lanes); !lane.atEnd(); lane.next()) {
        std::vector<int> indices = lane.indices();
        indices.resize(lanes.vectorDepth(), 0);
        attach(lanes, indices, packs.getPackedPorts(indices));
    }
}

} // namespace orvo::internal_vector
