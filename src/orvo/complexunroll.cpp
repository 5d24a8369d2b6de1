// The engine of complex unrolling.
#include "orvo/complexunroll.h"

#include "orvo/typedifference.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>

#include <algorithm>

namespace orvo::internal_complex {

BlockUnrollerImpl::BlockUnrollerImpl(Block &block, const std::vector<RefChain> &instances,
                                     std::shared_ptr<ComplexUnroller> unroller, GlobalTypePass &types)
    : mBlock(block), mInstances(instances), mUnroller(std::move(unroller)) {
    mUnroller->setTypePassRefChain(types, mInstances.front());
    mUnroller->setInstances(mInstances);
    bool typesDiffer = false;
    bool zerosDiffer = false;
    std::string mixed;
    mWires.reserve(block.getWireCount());
    std::vector<RefChain> some;
    for (Wire &wire : block) {
        const std::vector<RefChain> &telling = internal::tellingInstances(wire, mInstances, types, some);
        if (telling.empty()) {
            continue;
        }
        const SignalType signal = typeOf(wire, telling, types);
        if (!fits(signal)) {
            rejectWire(wire);
        }
        mWires.push_back({&wire, signal.decor, mUnroller->originalWire(wire, signal.decor)});
        mExpand = mExpand || signal.decor.isComplex();
        typesDiffer = typesDiffer || !signal.isUnique;
    }
    mPorts.reserve(block.getPortCount());
    for (Port &port : block.ports()) {
        const SignalType signal = typeOf(port, mInstances, types);
        if (!fits(signal)) {
            rejectPort(port.getName());
        }
        const ComplexPortKind kind = mUnroller->originalPort(port, signal.decor);
        // Whole, it would take the real number for the complex one.
        const std::size_t realDrivers =
            kind != ComplexPortKind::Whole && signal.decor.isComplex() ? countRealDrivers(port, types) : 0;
        const bool isRealDriven = realDrivers == mInstances.size();
        if (realDrivers != 0 && !isRealDriven && mixed.empty()) {
            mixed = internal::typeDifference(*port.peekWire(), mInstances, types);
        }
        mPorts.push_back({MaybePort(port), signal.decor, kind, signal.type, isRealDriven});
        mExpand = mExpand || signal.decor.isComplex();
        typesDiffer = typesDiffer || !signal.isUnique;
        const bool getsZero = isRealDriven || (kind == ComplexPortKind::SplitOrZero && signal.decor.isReal());
        zerosDiffer = zerosDiffer || (getsZero && !signal.isUnique);
    }
    if (!hasWork()) {
        return;
    }
    if (const std::string reason = mUnroller->reason(); !reason.empty()) {
        failToExpand(reason);
    } else if (!mixed.empty()) {
        failToExpand(mixed);
    }
    mPlainZeros = zerosDiffer && mUnroller->takesPlainZeros();
    if (!mFailed && ((zerosDiffer && !mPlainZeros) || (typesDiffer && mUnroller->writesTypes()))) {
        failToExpand(difference(types));
    }
}

std::string BlockUnrollerImpl::difference(GlobalTypePass &types) const {
    std::string detail;
    for (auto info = mPorts.begin(); detail.empty() && info != mPorts.end(); ++info) {
        detail = internal::typeDifference(*info->port.getPort(), mInstances, types);
    }
    for (auto info = mWires.begin(); detail.empty() && info != mWires.end(); ++info) {
        detail = internal::typeDifference(*info->wire, mInstances, types);
    }
    return detail;
}

template <class End>
BlockUnrollerImpl::SignalType BlockUnrollerImpl::typeOf(const End &end, const std::vector<RefChain> &instances,
                                                        GlobalTypePass &types) const {
    Context *context = mBlock.getContext();
    SignalType signal{types.getType(end, instances.front()), {}, true};
    signal.decor = ComplexDecorSpec(signal.type, context);
    // One netlist serves all instances.
    for (auto instance = instances.begin() + 1; instance != instances.end(); ++instance) {
        const PureValueRef other = types.getType(end, *instance);
        signal.isUnique = signal.isUnique && other == signal.type;
        const ComplexDecorSpec decor(other, context);
        if (!decor.valid() || decor.isComplex() != signal.decor.isComplex()) {
            signal.decor.invalidate();
        }
    }
    return signal;
}

std::size_t BlockUnrollerImpl::countRealDrivers(const Port &port, GlobalTypePass &types) const {
    const Wire *wire = port.peekWire();
    const auto isReal = [&](const RefChain &instance) {
        return ComplexDecorSpec(types.getType(*wire, instance), mBlock.getContext()).isReal();
    };
    return wire == nullptr ? 0 : static_cast<std::size_t>(std::count_if(mInstances.begin(), mInstances.end(), isReal));
}

bool BlockUnrollerImpl::fits(const SignalType &signal) const {
    return signal.decor.valid() && (signal.decor.isReal() || mUnroller->takesVectors() ||
                                    !VectorDecorSpec(signal.type, mBlock.getContext()).isVector());
}

void BlockUnrollerImpl::rejectWire(const Wire &wire) {
    log::msg(msg::error::UNCOMPLEX_INVALID_WIRE_TYPE, log::p("wire", wire.value()));
    mFailed = true;
}

void BlockUnrollerImpl::rejectPort(const PureValueRef &key) {
    log::msg(msg::error::UNCOMPLEX_INVALID_PORT_TYPE, log::p("port", key) % log::p("block", mBlock.value()));
    mFailed = true;
}

void BlockUnrollerImpl::failOnBoundary() { failToExpand("both sides of the boundary disagree"); }

void BlockUnrollerImpl::failToExpand(const std::string &detail) {
    log::msg(msg::error::UNCOMPLEX_INVALID_EXPAND_TYPE, log::p("block", mBlock.value()) % log::p("detail", detail));
    mFailed = true;
}

Block &BlockUnrollerImpl::create(const PureValueRef &key, const char *word, const StaticString &type) const {
    Context *context = mBlock.getContext();
    const PureValueRef name =
        PureTupleValue::get(mBlock.getName(), key, PureValueRef(StringValue::get(word, context)), context);
    Block &made = *Block::create(mBlock.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    return made;
}

void BlockUnrollerImpl::unroll(GlobalTypePass &) {
    if (!hasWork()) {
        return;
    }
    mExpand = false;
    mUnroller->preAttach();
    for (const PortInfo &info : mPorts) {
        if (info.kind != ComplexPortKind::Leave) {
            unrollPort(info);
        }
    }
    for (const WireInfo &info : mWires) {
        if (info.kind != ComplexWireKind::Leave) {
            unrollWire(info);
        }
    }
    mUnroller->postAttach();
}

void BlockUnrollerImpl::attachPort(const PortInfo &info, bool imaginary, Wire &driver) {
    mUnroller->clearAttachedPorts();
    mUnroller->attachPort(*info.port.getPort(), info.decor, imaginary, driver);
    mUnroller->notifyUnrollAttachedPorts(mBlock, info.port.getKey());
}

void BlockUnrollerImpl::unrollPort(const PortInfo &info) {
    // Neighbours that were taken apart before have connected the port anew.
    ORVO_ASSERT(info.port.getPort() != nullptr, "a neighbour went without handing over its readers");
    Wire &wire = *info.port.getPort()->peekWire();
    if (info.decor.isComplex() && info.kind != ComplexPortKind::Whole && !info.isRealDriven) {
        Block &unpack = create(info.port.getKey(), "cunpack", A_CUNPACK_BLOCK);
        unpack.setParam(A_CUNPACK_PORT_IN, wire);
        Wire &real = *Wire::create(unpack, A_CUNPACK_WIRE_REAL);
        Wire &imaginary = *Wire::create(unpack, A_CUNPACK_WIRE_IMAG);
        attachPort(info, false, real);
        attachPort(info, true, imaginary);
        return;
    }
    attachPort(info, false, wire);
    if (info.kind == ComplexPortKind::Share) {
        attachPort(info, true, wire);
    } else if (info.kind == ComplexPortKind::SplitOrZero || info.isRealDriven) {
        Context *context = mBlock.getContext();
        NumTypeSpec type = mPlainZeros ? NumTypeSpec::boolean() : NumTypeSpec(info.type, context);
        type.setComplex(false);
        Block &zero = create(info.port.getKey(), "imagZero", A_CONST_BLOCK);
        zero.setParam(A_CONST_VALUE, NumberValue::get(0, context));
        zero.setParam(A_CONST_TYPE, type.toValue(context));
        attachPort(info, true, *Wire::create(zero, A_PRIM_WIRE_OUT));
    }
}

void BlockUnrollerImpl::unrollWire(const WireInfo &info) {
    const std::vector<MaybePort> readers = maybePortsOf(*info.wire);
    const auto attach = [&](bool imaginary, const std::vector<MaybePort> &ports) {
        if (const Wire *taken = mUnroller->attachWire(*info.wire, info.decor, imaginary, ports)) {
            mUnroller->notifyUnrollWire(mBlock, info.wire->getName(), taken->getBlock(), taken->getName());
        }
    };
    if (!info.decor.isComplex() || info.kind == ComplexWireKind::Whole) {
        attach(false, readers);
        return;
    }
    std::vector<MaybePort> real;
    std::vector<MaybePort> imaginary;
    if (!readers.empty()) {
        Block &pack = create(info.wire->getName(), "cpack", A_CPACK_BLOCK);
        Wire &whole = *Wire::create(pack, A_CPACK_WIRE_OUT);
        for (const MaybePort &reader : readers) {
            reader.setWire(whole);
        }
        real.emplace_back(pack, A_CPACK_PORT_REAL);
        imaginary.emplace_back(pack, A_CPACK_PORT_IMAG);
    }
    attach(false, real);
    attach(true, imaginary);
}

} // namespace orvo::internal_complex
