// Node, the named thing with parameters that designs, models, blocks and wires are. Every fact about a netlist is a
// parameter of a node: a connection is a parameter that refers to a wire, a sub-model one that refers to a model.
#pragma once

#include <orvo/corevalues.h>
#include <orvo/keyedmap.h>

#include <memory>

namespace orvo {

namespace internal {
class ChangeLog;
}

class Block;
class Design;
class Model;
class Node;
class Wire;

/// Levels of change, as bits: 1 this node changed, 2 its set of children changed, 4 the set of children of a direct
/// child changed, 8 something below changed at any depth, 16 a child was born.
using ProcessFlags = std::uint32_t;

enum class NodeKind : std::uint8_t { Design, Model, Block, Wire };

/// What `node[key]` gives: reads as a reference, assigns as `setParam`.
class ORVO_API NodeParamRef {
  public:
    NodeParamRef(Node *node, PureValueRef key) : mNode(node), mKey(std::move(key)) {}
    NodeParamRef(const NodeParamRef &) = default;
    NodeParamRef &operator=(const ValueRef &value);
    NodeParamRef &operator=(Node &node);
    NodeParamRef &operator=(const NodeParamRef &other);
    /// Null for an absent parameter. Valid while the parameter holds the value.
    Value *get_ptr() const;
    Value *operator->() const { return get_ptr(); }
    explicit operator bool() const { return get_ptr() != nullptr; }
    bool operator!() const { return get_ptr() == nullptr; }

  private:
    Node *mNode;
    PureValueRef mKey;
};

/// A parameter of a node that is only read.
class ORVO_API ConstNodeParamRef {
  public:
    explicit ConstNodeParamRef(const Value *value) : mValue(value) {}
    const Value *get_ptr() const { return mValue; }
    const Value *operator->() const { return mValue; }
    explicit operator bool() const { return mValue != nullptr; }
    bool operator!() const { return mValue == nullptr; }

  private:
    const Value *mValue;
};

class ORVO_API Node : public util::Pooled {
  public:
    using ChildMap = internal::KeyedMap<Node *>;
    using ParamMap = internal::KeyedMap<ValueRef>;
    using iterator = ChildMap::iterator;
    using param_iterator = ParamMap::iterator;

    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    virtual Context *getContext() const = 0;
    /// Takes the node out of its parent, renames it and enters it again; a clash gives a (dupName k name) tuple.
    virtual void setName(const PureValueRef &name) = 0;
    virtual ~Node();
    /// Runs before a parameter changes, so that `getParam` still gives the old value. Either value may be null.
    virtual void onParamChanging(const PureValueRef &key, const ValueRef &oldValue, const ValueRef &newValue);
    virtual void sendChangedEvent() = 0;
    virtual void sendDyingEvent() = 0;

    NodeKind nodeKind() const { return mKind; }
    const PureValueRef &getName() const { return mName; }
    /// Null for a design only.
    Node *getParent() const { return mParent; }
    Node *getRoot();
    const Node *getRoot() const;
    /// Null if there is no child of that name.
    Node *getChild(const PureValueRef &name) const;
    /// The children in `DeepValueCmp` order of their names, as pairs of name and node.
    iterator begin() const { return mChildren.begin(); }
    iterator end() const { return mChildren.end(); }
    std::size_t size() const { return mChildren.size(); }
    /// The sibling behind this node in the order of the parent, null behind the last.
    Node *getNextSibling() const;
    /// The first child whose name is behind this one, null if there is none. `likely` (a child, or null) is looked at
    /// first.
    Node *getChildBehind(const PureValueRef &name, const Node *likely) const;

    /// Null for an absent or null key.
    ValueRef getParam(const PureValueRef &key) const;
    /// The same without counting a reference: valid while the parameter holds the value.
    Value *findParam(const Value *key) const;
    Value *findParam(const StaticString &key) const { return findParam(key.get_ptr()); }
    NodeParamRef operator[](const PureValueRef &key) { return {this, key}; }
    ConstNodeParamRef operator[](const PureValueRef &key) const { return ConstNodeParamRef(findParam(key.get_ptr())); }
    /// The parameters in `DeepValueCmp` order of their keys, as pairs of key and value. An iterator lasts until
    /// its own parameter is removed.
    param_iterator param_begin() const { return mParams.begin(); }
    param_iterator param_end() const { return mParams.end(); }
    std::size_t param_size() const { return mParams.size(); }
    /// A null value removes the parameter; a null key does nothing.
    void setParam(const PureValueRef &key, const ValueRef &value);
    void setParam(const PureValueRef &key, Node &node);

    /// The one `NodeValue` bound to this node.
    NodeValueRef value();
    ConstNodeValueRef value() const;

    /// Arms this node: its changed event fires at the next change of one of these levels. A handler of that event
    /// cannot arm the node again, since the levels are cleared behind it.
    void process(ProcessFlags flags) const { mFlags |= flags; }
    ProcessFlags armedFlags() const { return mFlags; }
    /// Tells this node and the nodes above it of a change.
    void fireChanged(ProcessFlags flags);
    void fireDeath();

    /// A copy of `text` with all that is not a printing character, and every quote and "/", replaced by "_".
    static std::string legaliseString(const std::string &text);

    /// The node that a reference's `NodeValue` is bound to, as a `T`; null if it is none.
    template <class T, class R> static T *from(const R &ref) {
        Node *node = fromValue(ref.get_ptr());
        return node != nullptr && node->mKind == T::kKind ? static_cast<T *>(node) : nullptr;
    }
    static Node *fromValue(const Value *value);

  protected:
    Node(NodeKind kind, const PureValueRef &name, Node *parent);
    void cleanup();
    /// Fetches ahead what the end of this node will need of large tables.
    void prefetchEnd() const;
    void addChild(Node *child);
    void removeChild(Node *child);
    /// A null name becomes `A_INVALID_NAME`.
    void rename(const PureValueRef &name);

  private:
    friend class NodeValue;
    using NameCounters = std::map<PureValueRef, std::int64_t>;

    PureValueRef uniqueNameFor(const PureValueRef &name);
    void insertChild(Node *child);
    void countEdit();

    PureValueRef mName;
    Node *mParent;
    NodeValue *mValue = nullptr;
    /// In the parent's children, while those have their tree form.
    ChildMap::Position mPlace{};
    ChildMap mChildren;
    ParamMap mParams;
    mutable ProcessFlags mFlags = 0;
    NodeKind mKind;
    bool mDyingSent = false;
    std::unique_ptr<NameCounters> mNameCounters;
};

/// The parameters of a node, for a range-based loop.
class Params {
  public:
    explicit Params(const Node &node) : mNode(node) {}
    Node::param_iterator begin() const { return mNode.param_begin(); }
    Node::param_iterator end() const { return mNode.param_end(); }

  private:
    const Node &mNode;
};

/// Walks the children of a node as `T`s. Follows the rules of `KeyedMap::iterator`.
template <class T> class ChildIterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T *;
    using reference = T &;
    ChildIterator() = default;
    explicit ChildIterator(Node::iterator it) : mIt(it) {}
    T &operator*() const { return *static_cast<T *>((*mIt).second); }
    T *operator->() const { return static_cast<T *>((*mIt).second); }
    ChildIterator &operator++() {
        ++mIt;
        return *this;
    }
    ChildIterator operator++(int) {
        ChildIterator old = *this;
        ++mIt;
        return old;
    }
    bool operator==(const ChildIterator &other) const { return mIt == other.mIt; }
    bool operator!=(const ChildIterator &other) const { return !(mIt == other.mIt); }

  private:
    Node::iterator mIt;
};

/// The names that a rewrite gave on top of the original one: element 0 of a tuple name, repeatedly, while the name is a
/// tuple that does not come from a clash. A plain name is its own prefix.
ORVO_API PureValueRef getPreUnrolledPrefix(const PureValueRef &name);

} // namespace orvo
