// The output of a block and the list of its readers, which the ports themselves link.
#include <orvo/wire.h>

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>

namespace orvo {

Wire::Wire(Block &block, const PureValueRef &name) : Node(NodeKind::Wire, name, &block), mDesign(&block.getDesign()) {
    block.registerWire(this);
    mDesign->events().wireBorn.fire(*this);
}

Wire *Wire::create(Block &block, const PureValueRef &name) {
    Wire *wire = new Wire(block, name);
    wire->mDesign->events().wireDriven.fire(block, *wire, kGraphStateNew);
    return wire;
}

Wire *Wire::create(Block &block, const std::string &name) {
    return create(block, StringValue::get(name, block.getContext()));
}

Wire::~Wire() {
    while (mFirst != nullptr) {
        mFirst->getBlock().setParam(mFirst->getName(), nullptr);
    }
    cleanup();
    getBlock().unregisterWire(this);
}

void Wire::setName(const PureValueRef &name) {
    getBlock().unregisterWire(this);
    rename(name);
    getBlock().registerWire(this);
}

void Wire::sendDyingEvent() { mDesign->events().wireDying.fire(*this); }

Block &Wire::getBlock() const { return *static_cast<Block *>(getParent()); }

void Wire::replace(Wire &other) {
    if (&other == this) {
        return;
    }
    mDesign->events().wireDriven.fire(getBlock(), *this, kGraphStateGone);
    if (TransferMetadataListener *listener = mDesign->getMetadataTransferListener();
        mFirst == nullptr && listener != nullptr) {
        listener->onReplacedUnread(*this, other);
    }
    for (Port *port = mFirst; port != nullptr;) {
        // The port leaves this wire's list as its parameter changes.
        Port *next = port->mNext;
        port->getBlock().setParam(port->getName(), other);
        port = next;
    }
}

void Wire::registerPort(Port *port) {
    port->mPrevious = mLast;
    port->mNext = nullptr;
    (mLast == nullptr ? mFirst : mLast->mNext) = port;
    mLast = port;
    ++mPortCount;
    port->setBackReference(PortIterator(port));
}

void Wire::unregisterPort(Port *port) {
    ORVO_ASSERT(port->mWire == this && port->getBackReference() == PortIterator(port) && mPortCount > 0,
                "a wire does not know its port");
    (port->mPrevious == nullptr ? mFirst : port->mPrevious->mNext) = port->mNext;
    (port->mNext == nullptr ? mLast : port->mNext->mPrevious) = port->mPrevious;
    port->mPrevious = nullptr;
    port->mNext = nullptr;
    port->setBackReference(PortIterator());
    --mPortCount;
}

} // namespace orvo
