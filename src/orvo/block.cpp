// The operations of a design, and the heart of connectivity: ports, class and the instantiated model's list of parents
// follow each parameter as it changes.
#include <orvo/block.h>

#include <orvo/annotation.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo {

namespace {

bool isModelBlockType(const ValueRef &type) { return type == A_MODEL_BLOCK; }

void unregisterParentOf(Model *model, Block *block) {
    if (model != nullptr) {
        model->unregisterParent(block);
    }
}

} // namespace

Block::Block(Model &model, const PureValueRef &name)
    : Node(NodeKind::Block, name, &model), mDesign(&model.getDesign()),
      mClass(mDesign->getContext()->getBlockClass(nullptr)) {
    model.registerBlock(this);
    mLife = Life::Alive;
    mDesign->events().blockBorn.fire(*this);
}

Block *Block::create(Model &model, const PureValueRef &name) { return new Block(model, name); }

Block *Block::create(Model &model, const std::string &name) {
    return new Block(model, StringValue::get(name, model.getContext()));
}

Block *Block::create(Model &model, const std::string &name, const PureValueRef &type) {
    Block *made = create(model, name);
    made->setParam(A_BLOCK_TYPE, type);
    return made;
}

Block::~Block() {
    mLife = Life::Dying;
    prefetchEnd();
    while (!mPortMap.empty()) {
        PureValueRef key = (*mPortMap.begin()).first;
        setParam(key, nullptr);
    }
    if (type() == A_MODEL_BLOCK.get_ptr()) {
        unregisterParentOf(from<Model>((*this)[A_MODEL_NODE]), this);
    }
    cleanup();
    getModel().unregisterBlock(this);
}

void Block::setName(const PureValueRef &name) {
    getModel().unregisterBlock(this);
    rename(name);
    getModel().registerBlock(this);
}

void Block::sendChangedEvent() { mDesign->events().blockChanged.fire(*this); }

void Block::sendDyingEvent() { mDesign->events().blockDying.fire(*this); }

Model &Block::getModel() const { return *static_cast<Model *>(getParent()); }

Value *Block::type() const { return findParam(A_BLOCK_TYPE); }

Wire *Block::getWire(const PureValueRef &name) const { return static_cast<Wire *>(getChild(name)); }

Port *Block::getPort(const PureValueRef &name) const {
    Port *const *port = name ? mPortMap.find(name.get_ptr()) : nullptr;
    return port == nullptr ? nullptr : *port;
}

bool Block::hasReader() const {
    return std::any_of(begin(), end(), [](const Wire &wire) { return wire.port_size() != 0; });
}

void Block::registerWire(Wire *wire) { addChild(wire); }

void Block::unregisterWire(Wire *wire) { removeChild(wire); }

void Block::onParamChanging(const PureValueRef &key, const ValueRef &oldValue, const ValueRef &newValue) {
    if (key == A_BLOCK_TYPE) {
        onTypeChanging(oldValue, newValue);
    }
    if (key == A_METADATA) {
        mDesign->mHasCarriedMetadata = mDesign->mHasCarriedMetadata || newValue;
        if (mLogged != 0) {
            mDesign->getMetadataTransferListener()->onMetadataChanging(*this);
        }
    }
    Wire *oldWire = from<Wire>(oldValue);
    Wire *newWire = from<Wire>(newValue);
    if (oldWire != nullptr || newWire != nullptr) {
        onConnectionChanging(key, oldWire, newWire);
    }
    if (key == A_MODEL_NODE && type() == A_MODEL_BLOCK.get_ptr()) {
        unregisterParentOf(from<Model>(oldValue), this);
        if (Model *model = from<Model>(newValue); model != nullptr) {
            model->registerParent(this);
        }
    }
}

void Block::onTypeChanging(const ValueRef &oldType, const ValueRef &newType) {
    mClass = getContext()->getBlockClass(newType);
    getModel().retypeBlock(this, oldType.get_ptr(), newType.get_ptr());
    if (isModelBlockType(oldType) == isModelBlockType(newType)) {
        return;
    }
    Model *model = from<Model>((*this)[A_MODEL_NODE]);
    if (isModelBlockType(oldType)) {
        unregisterParentOf(model, this);
    } else if (model != nullptr) {
        model->registerParent(this);
    }
}

void Block::onConnectionChanging(const PureValueRef &key, Wire *oldWire, Wire *newWire) {
    auto &driven = mDesign->events().blockDriven;
    std::unique_ptr<Port> kept;
    if (oldWire != nullptr) {
        mDesign->mOpenedPort = newWire == nullptr ? &key : nullptr;
        driven.fire(*oldWire, *this, kGraphStateGone);
        mDesign->mOpenedPort = nullptr;
        Port **port = mPortMap.find(key.get_ptr());
        ORVO_ASSERT(port != nullptr, "a connected parameter has no port");
        kept.reset(*port);
        oldWire->unregisterPort(kept.get());
        if (newWire == nullptr) {
            mPortMap.erase(key.get_ptr());
        }
    }
    if (newWire == nullptr) {
        return;
    }
    if (kept) {
        kept->mWire = newWire;
    } else {
        kept = std::make_unique<Port>(this, key, newWire);
        mPortMap.insert(key, kept.get());
    }
    newWire->registerPort(kept.release());
    mDesign->mConnecting = true;
    driven.fire(*newWire, *this, kGraphStatePresent);
    mDesign->mConnecting = false;
}

} // namespace orvo
