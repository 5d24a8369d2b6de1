// The links of a netlist: parents and children, parameters and ports, ports and wires, model blocks and models.
#include "driver/invariants.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <unordered_map>
#include <unordered_set>

namespace orvo::driver {

namespace {

class Walk {
  public:
    explicit Walk(std::size_t most) : mMost(most) {}

    void visit(const Design &design) {
        for (const Model &model : design) {
            visitChild(design, model);
            visitInstances(model);
            for (const Block &block : model) {
                visitChild(model, block);
                visit(block);
            }
        }
    }

    /// Each model's list of instances holds as many blocks as instantiate it.
    void finish(const Design &design) {
        for (const Model &model : design) {
            const auto counted = mInstances.find(&model);
            expect(model.getParentBlocks().size() == (counted == mInstances.end() ? 0 : counted->second), model,
                   "misses an instance in its list");
        }
    }

    std::vector<std::string> take() { return std::move(mFaults); }

  private:
    void expect(bool holds, const Node &node, const std::string &fault) {
        if (!holds && mFaults.size() < mMost) {
            mFaults.push_back(node.value()->toString() + " " + fault);
        }
    }

    static const Model *instantiated(const Block &block) {
        return block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
    }

    void visitInstances(const Model &model) {
        std::unordered_set<const Block *> seen;
        for (const Block *parent : model.getParentBlocks()) {
            expect(instantiated(*parent) == &model, *parent,
                   "is listed as an instance of a model that it does not instantiate");
            expect(seen.insert(parent).second, *parent, "is listed twice as an instance");
        }
    }

    void visitChild(const Node &parent, const Node &child) {
        expect(child.getParent() == &parent, child, "does not know its parent");
        expect(parent.getChild(child.getName()) == &child, child, "is not found by its name");
    }

    void visit(const Block &block) {
        std::size_t connections = 0;
        for (const auto &[key, value] : Params(block)) {
            const auto *wire = Node::from<Wire>(value);
            if (wire == nullptr) {
                continue;
            }
            ++connections;
            const Port *port = block.getPort(key);
            expect(port != nullptr && port->peekWire() == wire, block,
                   "has no port for its parameter " + key->toString());
        }
        expect(connections == block.port_size(), block, "has a port without a parameter");
        for (const Port &port : block.ports()) {
            expect(&port.getBlock() == &block, block, "has a port of another block");
            expect(port.peekWire() != nullptr, block, "has a port that reads nothing");
        }
        for (const Wire &wire : block) {
            visitChild(block, wire);
            visit(wire);
        }
        if (const Model *model = instantiated(block); model != nullptr) {
            ++mInstances[model];
        }
    }

    void visit(const Wire &wire) {
        std::size_t readers = 0;
        for (const Port &port : wire.ports()) {
            ++readers;
            expect(port.peekWire() == &wire, wire, "lists a reader that reads another wire");
            expect(port.getBlock().getPort(port.getName()) == &port, wire,
                   "lists a reader that its block does not have");
            if (readers > wire.port_size()) {
                break;
            }
        }
        expect(readers == wire.port_size(), wire, "miscounts its readers");
    }

    std::size_t mMost;
    std::unordered_map<const Model *, std::size_t> mInstances;
    std::vector<std::string> mFaults;
};

} // namespace

std::vector<std::string> findBrokenLinks(const Design &design, std::size_t most) {
    Walk walk(most);
    walk.visit(design);
    walk.finish(design);
    return walk.take();
}

} // namespace orvo::driver
