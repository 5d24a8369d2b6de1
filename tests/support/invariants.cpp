// The walk over a whole design.
#include "support/invariants.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <map>
#include <set>
#include <string>

namespace orvo::test {

namespace {

class Checker {
  public:
    explicit Checker(const Design &design) : mDesign(design) {}

    std::string run() {
        walk(mDesign);
        for (const auto &[model, referring] : mReferring) {
            const std::multiset<const Block *> known(model->getParentBlocks().begin(), model->getParentBlocks().end());
            require(known == referring, *model, "the parents of a model are not the blocks that refer to it");
        }
        for (const auto &[wire, readers] : mReaders) {
            std::multiset<const Port *> listed;
            for (const Port &port : wire->ports()) {
                listed.insert(&port);
            }
            require(listed == readers && listed.size() == wire->port_size(), *wire, "the readers of a wire are wrong");
        }
        return mFault;
    }

  private:
    void require(bool holds, const Node &node, const std::string &what) {
        if (!holds && mFault.empty()) {
            mFault = what + " at " + node.value()->getPath();
        }
    }

    void walk(const Node &node) {
        checkParams(node);
        const Value *previous = nullptr;
        for (auto child : node) {
            require(child.second->getParent() == &node, *child.second, "a child has another parent");
            require(child.second->getName() == child.first, *child.second, "a child stands under another name");
            require(node.getChild(child.first) == child.second, *child.second, "a child is not found by its name");
            require(previous == nullptr || DeepValueCmp()(previous, child.first.get_ptr()), *child.second,
                    "children are out of order");
            previous = child.first.get_ptr();
            checkKind(node, *child.second);
            walk(*child.second);
        }
        if (node.nodeKind() == NodeKind::Block) {
            checkBlock(static_cast<const Block &>(node));
        } else if (node.nodeKind() == NodeKind::Wire) {
            mReaders.try_emplace(static_cast<const Wire *>(&node));
        } else if (node.nodeKind() == NodeKind::Model) {
            mReferring.try_emplace(static_cast<const Model *>(&node));
        }
    }

    void checkKind(const Node &parent, const Node &child) {
        const bool fits = (parent.nodeKind() == NodeKind::Design && child.nodeKind() == NodeKind::Model) ||
                          (parent.nodeKind() == NodeKind::Model && child.nodeKind() == NodeKind::Block) ||
                          (parent.nodeKind() == NodeKind::Block && child.nodeKind() == NodeKind::Wire);
        require(fits, child, "a node stands under a node of the wrong kind");
    }

    void checkParams(const Node &node) {
        const Value *previous = nullptr;
        for (auto param : Params(node)) {
            require(static_cast<bool>(param.first) && static_cast<bool>(param.second), node, "a null parameter");
            require(node.getParam(param.first) == param.second, node, "a parameter is not found by its key");
            require(previous == nullptr || DeepValueCmp()(previous, param.first.get_ptr()), node,
                    "parameters are out of order");
            previous = param.first.get_ptr();
            if (const Node *target = Node::fromValue(param.second.get_ptr()); target != nullptr) {
                require(target->value() == param.second, node, "a node has two values");
            }
        }
    }

    void checkBlock(const Block &block) {
        std::size_t connections = 0;
        for (auto param : Params(block)) {
            const Wire *wire = Node::from<Wire>(param.second);
            const Port *port = block.getPort(param.first);
            require((wire != nullptr) == (port != nullptr), block, "ports and parameters disagree");
            if (wire != nullptr && port != nullptr) {
                ++connections;
                require(port->peekWire() == wire && &port->getBlock() == &block && port->getName() == param.first,
                        block, "a port is not what its parameter says");
                require(port->getBackReference() == PortIterator(const_cast<Port *>(port)), block,
                        "a port does not know its place");
                mReaders[wire].insert(port);
            }
        }
        require(connections == block.port_size(), block, "a block has ports without parameters");
        const ValueRef type = block.getParam(A_BLOCK_TYPE);
        require(block.getClass() == block.getContext()->getBlockClass(type), block, "a block has another type's class");
        const Model *model = type == A_MODEL_BLOCK ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
        if (model != nullptr) {
            mReferring[model].insert(&block);
        }
        require(!block.dying() && !block.newBorn(), block, "a block is not alive");
    }

    const Design &mDesign;
    std::map<const Wire *, std::multiset<const Port *>> mReaders;
    std::map<const Model *, std::multiset<const Block *>> mReferring;
    std::string mFault;
};

} // namespace

::testing::AssertionResult checkInvariants(const Design &design) {
    const std::string fault = Checker(design).run();
    return fault.empty() ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << fault;
}

} // namespace orvo::test
