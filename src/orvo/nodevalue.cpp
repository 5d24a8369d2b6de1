// References to nodes of a netlist: bound to the node while it lives, a path before and after.
#include <orvo/corevalues.h>

#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/node.h>

#include "orvo/contextimpl.h"
#include "orvo/valuetext.h"

#include <istream>
#include <vector>

namespace orvo {

namespace {

constexpr std::uint64_t kNodeSeed = 0x6e6f6465;

std::uint32_t hashPath(std::string_view path) {
    return internal::finishHash(internal::mixHash(kNodeSeed, internal::hashText(path)));
}

std::uint32_t hashNode(const Node *node) {
    return internal::finishHash(internal::mixHash(kNodeSeed, reinterpret_cast<std::uintptr_t>(node)));
}

// Reads the names of a path one after the other. Nearly all are plain words, which are cut out of the text; others go
// through a stream that is made when the first one comes.
class PathCursor {
  public:
    PathCursor(std::string_view path, Context *context) : mRest(path), mContext(context) {}

    bool atEnd() {
        skipSpace();
        return mRest.empty();
    }
    /// The name behind the next "/"; null for bad text.
    PureValueRef next() {
        if (mRest.empty() || mRest[0] != '/') {
            return {};
        }
        mRest.remove_prefix(1);
        skipSpace();
        if (mRest.empty()) {
            return {};
        }
        const std::string_view word = internal::wordPrefix(mRest);
        if (word.empty()) {
            return nextValue();
        }
        mRest.remove_prefix(word.size());
        return StringValue::get(word, mContext);
    }

  private:
    void skipSpace() {
        while (!mRest.empty() && internal::isSpaceChar(mRest[0])) {
            mRest.remove_prefix(1);
        }
    }
    PureValueRef nextValue() {
        internal::TextViewBuffer buffer(mRest);
        std::istream in(&buffer);
        PureValueRef value = Value::parse(in, mContext);
        mRest.remove_prefix(buffer.position());
        return value;
    }

    std::string_view mRest;
    Context *mContext;
};

std::string pathOf(const Node *node) {
    std::vector<const Node *> way;
    for (; node->getParent() != nullptr; node = node->getParent()) {
        way.push_back(node);
    }
    std::string path;
    for (auto at = way.rbegin(); at != way.rend(); ++at) {
        path += '/';
        internal::appendText(path, *(*at)->getName());
    }
    return path;
}

} // namespace

NodeValue::NodeValue(Node *node) : Value(CoreType::Node, nullptr, hashNode(node)), mNode(node) {}

NodeValue::NodeValue(PathText path, Context *context)
    : Value(CoreType::Node, context, hashPath(path)), mPath(std::move(path)) {}

NodeValue::~NodeValue() {
    if (mNode != nullptr) {
        mNode->mValue = nullptr;
    }
}

NodeValueRef NodeValue::get(Node *node) {
    if (node == nullptr) {
        return {};
    }
    if (node->mValue == nullptr) {
        node->mValue = new NodeValue(node);
    }
    return FromPtr<NodeValue>(node->mValue);
}

ConstNodeValueRef NodeValue::get(const Node *node) { return get(const_cast<Node *>(node)); }

NodeValueRef NodeValue::get(const std::string &path, Context *context) {
    ORVO_ASSERT(context != nullptr, "a value is made in a context");
    NodeValue probe(PathText(path), context);
    return static_ref_cast<NodeValue>(context->internValue(&probe));
}

std::string NodeValue::getPath() const { return mNode != nullptr ? pathOf(mNode) : std::string(mPath); }

void NodeValue::invalidate() {
    if (mNode != nullptr) {
        const std::string path = pathOf(mNode);
        mPath.assign(path.data(), path.size());
        mNode->mValue = nullptr;
        mNode = nullptr;
    }
}

ValueRef NodeValue::resolve(Design *design) {
    if (mNode != nullptr) {
        return FromPtr<Value>(this);
    }
    Node *node = design;
    PathCursor path(mPath, design->getContext());
    while (!path.atEnd()) {
        const PureValueRef name = path.next();
        node = name ? node->getChild(name) : nullptr;
        if (node == nullptr) {
            return {};
        }
    }
    return NodeValue::get(node);
}

const ValueMetaData &NodeValue::getMetaData() const { return internal::nodeMetaData(); }

bool NodeValue::deepBefore(const Value *other) const { return before(other); }

void NodeValue::print(std::ostream &out) const {
    out.put('[');
    out << WriteWithDelim(']', getPath());
}

bool NodeValue::before(const Value *other) const {
    const auto *theirs = static_cast<const NodeValue *>(other);
    if (mNode == nullptr && theirs->mNode == nullptr) {
        return mPath < theirs->mPath;
    }
    return getPath() < theirs->getPath();
}

Value *NodeValue::createOnHeap() { return new NodeValue(std::move(mPath), context()); }

ValueRef NodeValue::parse(Context *context, std::istream &in) {
    std::streambuf &buffer = *in.rdbuf();
    std::string path;
    if (internal::skipSpace(buffer) != '[' || buffer.sbumpc() == std::streambuf::traits_type::eof() ||
        !internal::readWithDelim(buffer, ']', path)) {
        in.setstate(std::ios::failbit);
        return {};
    }
    return get(path, context);
}

} // namespace orvo
