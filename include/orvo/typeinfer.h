// What a type rule is: the two interfaces of handlers, and the views of one block in one instance of its model through
// which they read and set types. A rule reads what is known, sets what follows, and leaves the rest alone; it is asked
// again when more is known.
#pragma once

#include <orvo/block.h>
#include <orvo/blockclass.h>

#include <memory>
#include <vector>

namespace orvo {

namespace internal {
class BlockTypeInfo;
}

/// Only 0 is in use.
enum class InferenceMode : std::uint32_t { Normal = 0 };

/// What the step of a block asks of the levels beside it.
enum FlagBits : std::uint32_t {
    /// The model behind this block must run.
    TYPE_FLAG_UPDATE_CHILD = 1,
    /// The block that holds this model must run.
    TYPE_FLAG_UPDATE_PARENT = 2,
};

/// Gives names one after the other, null at the end.
class ORVO_API NameEnumeratorSrc {
  public:
    virtual PureValueRef next() = 0;
    virtual ~NameEnumeratorSrc();
};

class ORVO_API PortsEnumeratorSrc final : public NameEnumeratorSrc {
  public:
    explicit PortsEnumeratorSrc(const Block &block) : mAt(block.port_begin()), mEnd(block.port_end()) {}
    PureValueRef next() override;

  private:
    BlockPortIterator mAt;
    BlockPortIterator mEnd;
};

class ORVO_API WiresEnumeratorSrc final : public NameEnumeratorSrc {
  public:
    explicit WiresEnumeratorSrc(const Block &block) : mAt(block.Node::begin()), mEnd(block.Node::end()) {}
    PureValueRef next() override;

  private:
    Node::iterator mAt;
    Node::iterator mEnd;
};

/// Walks names: `while (names.next()) use(names.get());`.
class ORVO_API NameEnumerator {
  public:
    explicit NameEnumerator(std::unique_ptr<NameEnumeratorSrc> source) : mSource(std::move(source)) {}
    /// Steps on; whether there is a current name.
    bool next();
    const PureValueRef &get() const { return mCurrent; }

  private:
    std::unique_ptr<NameEnumeratorSrc> mSource;
    PureValueRef mCurrent;
};

/// The part of a growing list that nobody has looked at yet. An element that joins while the part is walked belongs to
/// it.
template <class T> class NewlySet {
  public:
    using List = std::vector<const T *>;
    class iterator {
      public:
        iterator(const List *list, std::size_t at) : mList(list), mAt(at) {}
        const T &operator*() const { return *(*mList)[mAt]; }
        iterator &operator++() {
            ++mAt;
            return *this;
        }
        bool operator!=(const iterator &) const { return mAt < mList->size(); }

      private:
        const List *mList;
        std::size_t mAt;
    };
    NewlySet(const List *list, std::size_t start) : mList(list), mStart(start) {}
    iterator begin() const { return {mList, mStart}; }
    iterator end() const { return {mList, mList->size()}; }
    bool empty() const { return mStart >= mList->size(); }

  private:
    const List *mList;
    std::size_t mStart;
};

/// One block in one instance, as new-style rules see it. Names that the block has not are passed over.
class ORVO_API TypeInferAPI2 {
  public:
    explicit TypeInferAPI2(InferenceMode mode) : mMode(mode) {}
    virtual ~TypeInferAPI2();
    TypeInferAPI2(const TypeInferAPI2 &) = delete;
    TypeInferAPI2 &operator=(const TypeInferAPI2 &) = delete;

    InferenceMode getInferenceMode() const { return mMode; }
    virtual const Block &getBlock() const = 0;
    virtual ValueRef getParam(const PureValueRef &key) const = 0;
    /// A parameter of the model that holds the block.
    virtual ValueRef getModelParam(const PureValueRef &key) const = 0;
    virtual NameEnumerator getPortNames() const = 0;
    virtual NameEnumerator getWireNames() const = 0;
    /// Null while unknown.
    virtual PureValueRef getPortType(const PureValueRef &name) = 0;
    virtual PureValueRef getWireType(const PureValueRef &name) = 0;
    /// A null type changes nothing; a second, different type is a message, and the first one stands.
    virtual void setPortType(const PureValueRef &name, const PureValueRef &type) = 0;
    virtual void setWireType(const PureValueRef &name, const PureValueRef &type) = 0;
    virtual bool allPortsHaveTypes() const = 0;
    virtual bool allWiresHaveTypes() const = 0;
    /// Those whose net got a type since the rule last ran.
    virtual NewlySet<Port> iterateNewlySetPorts() const = 0;
    virtual NewlySet<Wire> iterateNewlySetWires() const = 0;
    /// At the block that instantiates this model; nothing happens at the top.
    virtual void setParentPortType(const PureValueRef &name, const PureValueRef &type) = 0;
    virtual void setParentWireType(const PureValueRef &name, const PureValueRef &type) = 0;
    virtual void setFlag(FlagBits flag) = 0;

  private:
    InferenceMode mMode;
};

/// The same as old-style rules see it.
class ORVO_API TypeInferAPI {
  public:
    explicit TypeInferAPI(internal::BlockTypeInfo &info) : mInfo(info) {}

    const Block &getBlock() const;
    ValueRef getParam(const PureValueRef &key) const;
    /// Null if there is none.
    const Port *getPort(const PureValueRef &key) const;
    const Wire *getWire(const PureValueRef &key) const;
    void setType(const Port &port, const PureValueRef &type);
    void setType(const Port *port, const PureValueRef &type);
    void setType(const Wire &wire, const PureValueRef &type);
    void setType(const Wire *wire, const PureValueRef &type);
    /// Null while unknown. A port or wire of another block is an assertion; null gives null.
    PureValueRef getConnectedType(const Port &port);
    PureValueRef getConnectedType(const Port *port);
    PureValueRef getConnectedType(const Wire &wire);
    PureValueRef getConnectedType(const Wire *wire);

  private:
    internal::BlockTypeInfo &mInfo;
};

/// A rule that sets what it can each time it is called.
class ORVO_API TypeInferHandler : public BlockHandler {
  public:
    virtual void inferTypes(TypeInferAPI &api) const;
};

/// A rule in three parts: what holds from the start, what follows from the inputs, what follows from the outputs.
class ORVO_API TypeInferHandler2 : public BlockHandler {
  public:
    virtual bool enoughPortsHaveTypes(TypeInferAPI2 &api) const;
    virtual bool enoughWiresHaveTypes(TypeInferAPI2 &api) const;
    virtual void inferStatic(TypeInferAPI2 &api) const;
    virtual void inferForward(TypeInferAPI2 &api) const;
    virtual void inferBackward(TypeInferAPI2 &api) const;
};

/// The type rule of a block type in one line; null if the type has none, so that its ends get types by their nets
/// alone.
ORVO_API const char *typeRuleSummary(const Value *blockType);

} // namespace orvo
