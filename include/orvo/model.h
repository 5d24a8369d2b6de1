// Model, a level of hierarchy: it owns blocks, and model blocks anywhere in the design instantiate it.
#pragma once

#include <orvo/generic.h>
#include <orvo/node.h>

#include <list>
#include <set>
#include <unordered_map>
#include <vector>

namespace orvo {

/// The model blocks on the way from a top model to one instance of a model; empty at the top.
using RefChain = std::vector<const Block *>;

class ORVO_API Model final : public Node, public GenericModel {
  public:
    static constexpr NodeKind kKind = NodeKind::Model;
    using iterator = ChildIterator<Block>;
    struct ByName {
        ORVO_API bool operator()(const Block *a, const Block *b) const;
    };
    using BlockSet = std::set<Block *, ByName>;

    /// Makes a model that the design owns; `delete` ends it. A clash of names gives a (dupName k name) tuple.
    static Model *create(Design &design, const PureValueRef &name);
    static Model *create(Design &design, const std::string &name);
    ~Model() override;

    Context *getContext() const override { return getParent()->getContext(); }
    void setName(const PureValueRef &name) override;
    void sendChangedEvent() override;
    void sendDyingEvent() override;

    Design &getDesign() const;
    /// Null if there is no block of that name.
    Block *getBlock(const PureValueRef &name) const;
    iterator begin() const { return iterator(Node::begin()); }
    iterator end() const { return iterator(Node::end()); }
    /// The first block of type `A_INPUT_BLOCK`, null if there is none.
    Block *getInputBlock() const;
    Block *getOutputBlock() const;
    /// All blocks of these types, in the order of the model.
    const BlockSet &getInputBlocks() const { return mInputs; }
    const BlockSet &getOutputBlocks() const { return mOutputs; }
    /// The first block whose name has this prefix and whose type is this one, each test only if the argument is not
    /// null.
    Block *getBlockByPrefix(const PureValueRef &prefix, const ValueRefBase<const Value> &type) const;
    void registerBlock(Block *block);
    void unregisterBlock(Block *block);
    /// Called by a block of this model before its type changes.
    void retypeBlock(Block *block, const Value *oldType, const Value *newType);
    /// Called by the model blocks that instantiate this model.
    void registerParent(Block *block);
    void unregisterParent(Block *block);
    /// The model blocks that instantiate this model, in the order in which they came to do so.
    const std::list<Block *> &getParentBlocks() const { return mParents; }

  private:
    Model(Design &design, const PureValueRef &name);
    BlockSet *endsOfType(const Value *type);

    BlockSet mInputs;
    BlockSet mOutputs;
    std::list<Block *> mParents;
    std::unordered_map<Block *, std::list<Block *>::iterator> mParentAt;
};

} // namespace orvo
