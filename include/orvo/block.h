// Block, an operation of a design. It owns its output wires and its ports; what its type does in a pass is found
// through its block class.
#pragma once

#include <orvo/node.h>
#include <orvo/port.h>

namespace orvo {

class BlockClass;
template <class Blk> class WorkQueueImpl;

/// Walks the ports of a block in `DeepValueCmp` order of their names.
class BlockPortIterator {
  public:
    using Map = internal::KeyedMap<Port *>;
    using iterator_category = std::input_iterator_tag;
    using value_type = Port;
    using difference_type = std::ptrdiff_t;
    using pointer = Port *;
    using reference = Port &;
    BlockPortIterator() = default;
    explicit BlockPortIterator(Map::iterator it) : mIt(it) {}
    Port &operator*() const { return *(*mIt).second; }
    Port *operator->() const { return (*mIt).second; }
    BlockPortIterator &operator++() {
        ++mIt;
        return *this;
    }
    BlockPortIterator operator++(int) {
        BlockPortIterator old = *this;
        ++mIt;
        return old;
    }
    bool operator==(const BlockPortIterator &other) const { return mIt == other.mIt; }
    bool operator!=(const BlockPortIterator &other) const { return !(mIt == other.mIt); }

  private:
    Map::iterator mIt;
};

/// A view of the ports of a block.
class BlockPorts {
  public:
    BlockPorts(BlockPortIterator first, BlockPortIterator last) : mFirst(first), mLast(last) {}
    BlockPortIterator begin() const { return mFirst; }
    BlockPortIterator end() const { return mLast; }

  private:
    BlockPortIterator mFirst;
    BlockPortIterator mLast;
};

class ORVO_API Block final : public Node {
  public:
    static constexpr NodeKind kKind = NodeKind::Block;
    using iterator = ChildIterator<Wire>;

    /// Makes a block that the model owns; `delete` ends it. Its class follows from `A_BLOCK_TYPE`, set next.
    static Block *create(Model &model, const PureValueRef &name);
    static Block *create(Model &model, const std::string &name);
    /// The same with `A_BLOCK_TYPE` set to `type`.
    static Block *create(Model &model, const std::string &name, const PureValueRef &type);
    ~Block() override;

    Context *getContext() const override { return getParent()->getContext(); }
    void setName(const PureValueRef &name) override;
    /// Keeps ports, class and the instantiated model's list of parents true to the parameters.
    void onParamChanging(const PureValueRef &key, const ValueRef &oldValue, const ValueRef &newValue) override;
    void sendChangedEvent() override;
    void sendDyingEvent() override;

    Model &getModel() const;
    Design &getDesign() const { return *mDesign; }
    BlockClass *getClass() const { return mClass; }
    /// The value of `A_BLOCK_TYPE`; null for an untyped block.
    Value *type() const;
    /// Null if there is no wire of that name.
    Wire *getWire(const PureValueRef &name) const;
    iterator begin() const { return iterator(Node::begin()); }
    iterator end() const { return iterator(Node::end()); }
    /// Null if no parameter of that name holds a wire.
    Port *getPort(const PureValueRef &name) const;
    BlockPortIterator port_begin() const { return BlockPortIterator(mPortMap.begin()); }
    BlockPortIterator port_end() const { return BlockPortIterator(mPortMap.end()); }
    std::size_t port_size() const { return mPortMap.size(); }
    std::size_t getPortCount() const { return mPortMap.size(); }
    std::size_t getWireCount() const { return Node::size(); }
    BlockPorts ports() const { return {port_begin(), port_end()}; }
    void registerWire(Wire *wire);
    void unregisterWire(Wire *wire);
    /// Whether any port reads a wire of this block.
    bool hasReader() const;
    bool newBorn() const { return mLife == Life::NewBorn; }
    bool dying() const { return mLife == Life::Dying; }

  private:
    friend class internal::ChangeLog;
    template <class Blk> friend class WorkQueueImpl;
    enum class Life : std::uint8_t { NewBorn = 0, Alive = 1, Dying = 2 };

    Block(Model &model, const PureValueRef &name);
    void onTypeChanging(const ValueRef &oldType, const ValueRef &newType);
    void onConnectionChanging(const PureValueRef &key, Wire *oldWire, Wire *newWire);

    Design *mDesign;
    BlockClass *mClass;
    internal::KeyedMap<Port *> mPortMap;
    Life mLife = Life::NewBorn;
    /// How many work queues hold this block: the end of a block that none holds costs them nothing.
    mutable std::uint32_t mQueues = 0;
    /// Where the log of changes keeps what it knows of this block.
    mutable std::uint32_t mLogged = 0;
};

} // namespace orvo
