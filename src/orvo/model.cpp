// A level of hierarchy: its blocks, and who instantiates it.
#include <orvo/model.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

namespace orvo {

Model::Model(Design &design, const PureValueRef &name) : Node(NodeKind::Model, name, &design) {
    design.registerModel(this);
    design.events().modelBorn.fire(*this);
}

Model *Model::create(Design &design, const PureValueRef &name) { return new Model(design, name); }

Model *Model::create(Design &design, const std::string &name) {
    return new Model(design, StringValue::get(name, design.getContext()));
}

Model::~Model() {
    cleanup();
    getDesign().unregisterModel(this);
}

void Model::setName(const PureValueRef &name) {
    getDesign().unregisterModel(this);
    rename(name);
    getDesign().registerModel(this);
}

void Model::sendChangedEvent() { getDesign().events().modelChanged.fire(*this); }

void Model::sendDyingEvent() { getDesign().events().modelDying.fire(*this); }

Design &Model::getDesign() const { return *static_cast<Design *>(getParent()); }

Block *Model::getBlock(const PureValueRef &name) const { return static_cast<Block *>(getChild(name)); }

Block *Model::getInputBlock() const { return mInputs.empty() ? nullptr : *mInputs.begin(); }

Block *Model::getOutputBlock() const { return mOutputs.empty() ? nullptr : *mOutputs.begin(); }

Block *Model::getBlockByPrefix(const PureValueRef &prefix, const ValueRefBase<const Value> &type) const {
    for (Block &block : *this) {
        if ((!type || block.type() == type.get_ptr()) && (!prefix || getPreUnrolledPrefix(block.getName()) == prefix)) {
            return &block;
        }
    }
    return nullptr;
}

bool Model::ByName::operator()(const Block *a, const Block *b) const {
    return DeepValueCmp()(a->getName(), b->getName());
}

Model::BlockSet *Model::endsOfType(const Value *type) {
    if (type == A_INPUT_BLOCK.get_ptr()) {
        return &mInputs;
    }
    return type == A_OUTPUT_BLOCK.get_ptr() ? &mOutputs : nullptr;
}

void Model::registerBlock(Block *block) {
    addChild(block);
    retypeBlock(block, nullptr, block->type());
}

void Model::unregisterBlock(Block *block) {
    retypeBlock(block, block->type(), nullptr);
    removeChild(block);
}

void Model::retypeBlock(Block *block, const Value *oldType, const Value *newType) {
    if (BlockSet *ends = endsOfType(oldType)) {
        ends->erase(block);
    }
    if (BlockSet *ends = endsOfType(newType)) {
        ends->insert(block);
    }
}

void Model::registerParent(Block *block) {
    mParents.push_back(block);
    bool isNew = mParentAt.emplace(block, std::prev(mParents.end())).second;
    ORVO_ASSERT(isNew, "a model block registers twice with its model");
}

void Model::unregisterParent(Block *block) {
    auto at = mParentAt.find(block);
    ORVO_ASSERT(at != mParentAt.end(), "a model does not know the model block that leaves it");
    mParents.erase(at->second);
    mParentAt.erase(at);
}

} // namespace orvo
