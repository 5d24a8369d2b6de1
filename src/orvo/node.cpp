// Names, children, parameters and the propagation of change, common to all kinds of node. Connectivity follows from the
// parameters and lives in block.cpp.
#include <orvo/node.h>

#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include "orvo/contextimpl.h"

#include <cctype>
#include <cmath>

namespace orvo {

namespace {

/// Schedule bookkeeping must not look like a change of the netlist.
bool structuralParam(const Value *key) {
    return key != A_SYNTH_SCHEDULE_CONSTRAINTS.get_ptr() && key != A_SCHEDULE_CONSTRAINT_PORTS.get_ptr() &&
           key != A_SCHEDULE_CONSTRAINT_WIRES.get_ptr() && key != A_SCHEDULE_CONSTRAINT_COUNT.get_ptr();
}

/// The number and the base of a name that a clash made; a null base for any other name.
struct DuplicateName {
    std::int64_t number = 0;
    PureValueRef base;
};

DuplicateName splitDuplicateName(const PureValueRef &name) {
    PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() != 3 || !(tuple->at(0) == A_DUPLICATE_NAME)) {
        return {};
    }
    // A number that a clash cannot have made, or cannot count on from, is part of a name like any other.
    constexpr double kMost = 1e15;
    NumberValueRef number = numberVR(tuple->at(1));
    if (!number || !number->isInteger() || !(std::abs(number->toDouble()) <= kMost)) {
        return {};
    }
    return {number->toInt64(0), tuple->at(2)};
}

constexpr ProcessFlags kSelf = 1;
constexpr ProcessFlags kChildren = 2;
constexpr ProcessFlags kGrandchildren = 4;
constexpr ProcessFlags kBelow = 8;
constexpr ProcessFlags kBirth = 16;

} // namespace

NodeParamRef &NodeParamRef::operator=(const ValueRef &value) {
    mNode->setParam(mKey, value);
    return *this;
}

NodeParamRef &NodeParamRef::operator=(Node &node) {
    mNode->setParam(mKey, node);
    return *this;
}

// Assigns a parameter, of which this object is only the place.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
NodeParamRef &NodeParamRef::operator=(const NodeParamRef &other) {
    mNode->setParam(mKey, ValueRef(other));
    return *this;
}

Value *NodeParamRef::get_ptr() const { return mNode->findParam(mKey.get_ptr()); }

Node::Node(NodeKind kind, const PureValueRef &name, Node *parent)
    : mName(name ? name : PureValueRef(A_INVALID_NAME)), mParent(parent), mKind(kind) {}

Node::~Node() {
    ORVO_ASSERT(mValue == nullptr, "a node goes while a value is bound to it");
    ORVO_ASSERT(mChildren.empty(), "a node goes before its children");
}

void Node::onParamChanging(const PureValueRef &, const ValueRef &, const ValueRef &) {}

Node *Node::getRoot() {
    Node *node = this;
    while (node->mParent != nullptr) {
        node = node->mParent;
    }
    return node;
}

const Node *Node::getRoot() const { return const_cast<Node *>(this)->getRoot(); }

Node *Node::getChild(const PureValueRef &name) const {
    Node *const *child = name ? mChildren.find(name.get_ptr()) : nullptr;
    return child != nullptr ? *child : nullptr;
}

Node *Node::getNextSibling() const {
    const ChildMap &siblings = mParent->mChildren;
    auto at = siblings.isTree() ? siblings.behind(mPlace) : siblings.iteratorAt(mName.get_ptr());
    if (!siblings.isTree()) {
        ORVO_ASSERT(at != siblings.end(), "a node is not among its parent's children");
        ++at;
    }
    return at == mParent->mChildren.end() ? nullptr : (*at).second;
}

Node *Node::getChildBehind(const PureValueRef &name, const Node *likely) const {
    if (likely != nullptr && mChildren.isTree() && mChildren.isUpperBound(likely->mPlace, name)) {
        return const_cast<Node *>(likely);
    }
    auto at = mChildren.upperBound(name);
    return at == mChildren.end() ? nullptr : (*at).second;
}

ValueRef Node::getParam(const PureValueRef &key) const {
    Value *value = findParam(key.get_ptr());
    return value == nullptr ? ValueRef() : ValueRef(FromPtr<Value>(value));
}

Value *Node::findParam(const Value *key) const {
    const ValueRef *value = key == nullptr ? nullptr : mParams.find(key);
    return value == nullptr ? nullptr : value->get_ptr();
}

void Node::setParam(const PureValueRef &key, const ValueRef &value) {
    if (!key) {
        return;
    }
    // Held by value: the caller may hand in a reference to the very entry that changes.
    const PureValueRef heldKey = key; // NOLINT(performance-unnecessary-copy-initialization)
    ValueRef newValue = value;
    if (mKind == NodeKind::Block) {
        onParamChanging(heldKey, getParam(heldKey), newValue);
    }
    if (ValueRef *entry = mParams.find(heldKey.get_ptr()); entry == nullptr) {
        if (newValue) {
            mParams.insert(heldKey, std::move(newValue));
        }
    } else if (newValue) {
        *entry = std::move(newValue);
    } else {
        mParams.erase(heldKey.get_ptr());
    }
    countEdit();
    if (structuralParam(heldKey.get_ptr())) {
        fireChanged(kSelf);
    }
}

void Node::setParam(const PureValueRef &key, Node &node) { setParam(key, ValueRef(node.value())); }

NodeValueRef Node::value() { return NodeValue::get(this); }

ConstNodeValueRef Node::value() const { return NodeValue::get(this); }

Node *Node::fromValue(const Value *value) {
    return value != nullptr && value->kind() == CoreType::Node ? static_cast<const NodeValue *>(value)->getNode()
                                                               : nullptr;
}

void Node::fireChanged(ProcessFlags flags) {
    if ((flags & kChildren) != 0) {
        flags |= kSelf;
    }
    if ((flags & kGrandchildren) != 0) {
        flags |= kBelow;
    }
    for (Node *node = this; flags != 0;) {
        if (node->mFlags != 0) {
            if (node->mKind != NodeKind::Wire) {
                node->sendChangedEvent();
            }
            node->mFlags &= ~flags;
        }
        ProcessFlags above = flags;
        if ((flags & kSelf) != 0) {
            above = (above & ~(kSelf | kGrandchildren | kBelow)) | kBelow;
        } else {
            above &= ~kGrandchildren;
        }
        if ((flags & kChildren) != 0) {
            above = (above & ~kChildren) | kGrandchildren;
        }
        if ((above & kBirth) != 0) {
            above = (above & ~kBirth) | kChildren;
        }
        if (node->mParent == nullptr) {
            return;
        }
        node = node->mParent;
        flags = above;
    }
}

void Node::fireDeath() {
    if (!mDyingSent) {
        mDyingSent = true;
        sendDyingEvent();
    }
}

void Node::rename(const PureValueRef &name) { mName = name ? name : PureValueRef(A_INVALID_NAME); }

void Node::countEdit() {
    Node *root = getRoot();
    if (root->mKind == NodeKind::Design) {
        ++static_cast<Design *>(root)->mEditCount;
    }
}

void Node::cleanup() {
    // Listeners may make or delete siblings meanwhile.
    Node *child = mChildren.empty() ? nullptr : (*mChildren.begin()).second;
    while (child != nullptr) {
        child->fireDeath();
        child = child->getNextSibling();
    }
    fireDeath();
    fireChanged(kChildren);
    if (mValue != nullptr) {
        mValue->invalidate();
    }
    ORVO_ASSERT(mValue == nullptr, "a value stays bound to a dying node");
    // The children take themselves out of the map.
    while (!mChildren.empty()) {
        delete (*mChildren.begin()).second;
    }
}

void Node::prefetchEnd() const {
    __builtin_prefetch(mParent->mChildren.placeOf(mName.get_ptr()));
    internal::implOf(*getContext()).prefetch(*mName);
}

PureValueRef Node::uniqueNameFor(const PureValueRef &name) {
    PureValueRef candidate = name;
    while (mChildren.find(candidate.get_ptr()) != nullptr) {
        if (!mNameCounters) {
            mNameCounters = std::make_unique<NameCounters>();
        }
        DuplicateName duplicate = splitDuplicateName(candidate);
        PureValueRef base = duplicate.base ? duplicate.base : candidate;
        auto [counter, isNew] = mNameCounters->try_emplace(base, duplicate.base ? duplicate.number + 1 : 0);
        const std::int64_t number = counter->second++;
        Context *context = getContext();
        candidate = PureTupleValue::get(A_DUPLICATE_NAME, NumberValue::get(number, context), base, context);
    }
    return candidate;
}

void Node::insertChild(Node *child) {
    const bool wasTree = mChildren.isTree();
    mChildren.insert(child->mName, child);
    if (wasTree) {
        child->mPlace = mChildren.positionOf(child->mName.get_ptr());
    } else if (mChildren.isTree()) {
        for (auto entry : mChildren) {
            entry.second->mPlace = mChildren.positionOf(entry.first.get_ptr());
        }
    }
}

void Node::addChild(Node *child) {
    child->mName = uniqueNameFor(child->mName);
    insertChild(child);
    countEdit();
    if ((mFlags & kBirth) != 0) {
        mFlags &= ~kBirth;
        child->mFlags |= kBirth;
        child->fireChanged(kBirth);
    } else {
        fireChanged(kChildren);
    }
}

void Node::removeChild(Node *child) {
    countEdit();
    [[maybe_unused]] std::size_t before = mChildren.size();
    mChildren.erase(child->mName.get_ptr());
    ORVO_ASSERT(mChildren.size() + 1 == before, "a node is not among its parent's children");
}

std::string Node::legaliseString(const std::string &text) {
    std::string legal = text;
    for (char &c : legal) {
        bool printing = c > 0x20 && c < 0x7f;
        if (!printing || c == '"' || c == '\'' || c == '/') {
            c = '_';
        }
    }
    return legal;
}

PureValueRef getPreUnrolledPrefix(const PureValueRef &name) {
    PureValueRef prefix = name;
    for (;;) {
        PureTupleValueRef tuple = pureTupleVR(prefix);
        if (!tuple || tuple->size() == 0 || splitDuplicateName(prefix).base) {
            return prefix;
        }
        prefix = tuple->at(0);
    }
}

} // namespace orvo
