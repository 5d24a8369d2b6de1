// The walk along connections: a queue of places still to be passed, so that long chains and deep hierarchies do not
// nest, and a set of those that were.
#include <orvo/connectiontrace.h>

#include <orvo/block.h>
#include <orvo/limits.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <deque>
#include <map>

namespace orvo {

namespace {

enum class Direction : std::uint8_t { Forward, Backward };

class AllPorts final : public ConnectionTrace::PortIterator {
  public:
    explicit AllPorts(const Block &block) : mAt(block.port_begin()), mEnd(block.port_end()) {}
    bool hasNext() const override { return !(mAt == mEnd); }
    const Port &next() override {
        const Port &port = *mAt;
        ++mAt;
        return port;
    }

  private:
    BlockPortIterator mAt;
    BlockPortIterator mEnd;
};

class AllWires final : public ConnectionTrace::WireIterator {
  public:
    explicit AllWires(const Block &block) : mAt(block.begin()), mEnd(block.end()) {}
    bool hasNext() const override { return !(mAt == mEnd); }
    const Wire &next() override {
        const Wire &wire = *mAt;
        ++mAt;
        return wire;
    }

  private:
    Block::iterator mAt;
    Block::iterator mEnd;
};

} // namespace

ConnectionTrace::PortIterator::~PortIterator() = default;
ConnectionTrace::WireIterator::~WireIterator() = default;

/// The places to pass, each in an instance. Instances are interned, so that a visit is told by addresses alone.
struct ConnectionTrace::Walk {
    struct Instance {
        const Instance *parent = nullptr;
        RefChain chain;
    };
    struct Visit {
        const Instance *instance;
        const void *object;
        const Value *name;
        Direction direction;
        bool operator==(const Visit &other) const = default;
    };
    struct VisitHash {
        std::size_t operator()(const Visit &visit) const {
            std::size_t hash = reinterpret_cast<std::uintptr_t>(visit.instance);
            for (const void *part : {visit.object, static_cast<const void *>(visit.name)}) {
                hash = (hash ^ reinterpret_cast<std::uintptr_t>(part)) * 0x9e3779b97f4a7c15ULL;
                hash ^= hash >> 32U;
            }
            return hash + static_cast<std::size_t>(visit.direction);
        }
    };
    /// A wire to step from backward, or a port to step from forward.
    struct Place {
        const Instance *instance;
        const Wire *wire;
        const Port *port;
    };

    explicit Walk(ConnectionTrace &owner) : trace(owner) {}

    const Instance &startInstance() {
        const Instance *at = &top;
        for (const Block *block : trace.mStart) {
            at = &below(*at, *block);
        }
        return *at;
    }
    const Instance &below(const Instance &instance, const Block &block) {
        std::unique_ptr<Instance> &made = instances[{&instance, &block}];
        if (made == nullptr) {
            made = std::make_unique<Instance>(Instance{&instance, instance.chain});
            made->chain.push_back(&block);
        }
        return *made;
    }
    /// The instance behind a block of one; null if the model stands around it already, which would never end, and
    /// beyond the bound of instances.
    const Instance *entered(const Instance &instance, const Block &block, const Model &model) {
        if (const auto known = instances.find({&instance, &block}); known != instances.end()) {
            return known->second.get();
        }
        const auto isOfModel = [&](const Block *step) { return &step->getModel() == &model; };
        if (isOfModel(&block) || std::any_of(instance.chain.begin(), instance.chain.end(), isOfModel) ||
            instances.size() >= limits::kTypeInstances) {
            return nullptr;
        }
        return &below(instance, block);
    }
    bool isNew(const Instance &at, const void *object, const PureValueRef &name, Direction direction) {
        if (name) {
            names.push_back(name);
        }
        return visited.insert({&at, object, name.get_ptr(), direction}).second;
    }

    void backFromPort(const Port &port, const Instance &at) {
        if (isNew(at, &port, {}, Direction::Backward) && trace.goesOn(trace.keep(port, at.chain), port) &&
            port.peekWire() != nullptr) {
            backFromWire(*port.peekWire(), at);
        }
    }
    void backFromWire(const Wire &wire, const Instance &at) {
        const auto wireGoesOn = [](TraceAction action) { return action == TRACE_PASS || action == TRACE_KEEP; };
        if (isNew(at, &wire, {}, Direction::Backward) && wireGoesOn(trace.keep(wire, at.chain))) {
            queue.push_back({&at, &wire, nullptr});
        }
    }
    void onFromPort(const Port &port, const Instance &at) {
        if (isNew(at, &port, {}, Direction::Forward) && trace.goesOn(trace.keep(port, at.chain), port)) {
            queue.push_back({&at, nullptr, &port});
        }
    }
    void onFromWire(const Wire &wire, const Instance &at) {
        if (!isNew(at, &wire, {}, Direction::Forward)) {
            return;
        }
        const TraceAction action = trace.keep(wire, at.chain);
        if (action == TRACE_PASS || action == TRACE_KEEP) {
            for (const Port &port : wire.ports()) {
                onFromPort(port, at);
            }
        }
    }

    /// Calls `step(parent block, its instance)` for each block through which this instance is left.
    template <class Step> void ascend(const Model &model, const Instance &at, Step step) {
        const auto leave = [&](const Block &parent, const Instance &above) {
            if (trace.mTraceModelBlocks && !trace.goesOn(trace.keep(parent, above.chain), parent)) {
                return;
            }
            step(parent, above);
        };
        if (!at.chain.empty()) {
            leave(*at.chain.back(), *at.parent);
        } else if (trace.mTree != nullptr) {
            for (const Block *parent : trace.mTree->getRefBlocks(const_cast<Model &>(model))) {
                leave(*parent, at);
            }
        }
    }
    bool passesEdge(const Block &edge, const Instance &at) {
        return !trace.mTraceEdges || trace.goesOn(trace.keep(edge, at.chain), edge);
    }

    void backThroughBlock(const Wire &wire, const Instance &at) {
        const Block &block = wire.getBlock();
        const PureValueRef &name = wire.getName();
        if (!isNew(at, &block, trace.keyForWireName(block, name), Direction::Backward)) {
            return;
        }
        const Model *model = instantiated(block);
        if (block.type() == A_INPUT_BLOCK.get_ptr()) {
            if (passesEdge(block, at)) {
                ascend(block.getModel(), at, [&](const Block &parent, const Instance &above) {
                    if (const Port *port = parent.getPort(name)) {
                        backFromPort(*port, above);
                    }
                });
            }
        } else if (!trace.goesOn(trace.keep(block, at.chain, &wire), block)) {
            return;
        } else if (model != nullptr) {
            const Block *output = model->getOutputBlock();
            const Port *port = output != nullptr ? output->getPort(name) : nullptr;
            const Instance *inside = port != nullptr ? entered(at, block, *model) : nullptr;
            if (inside != nullptr && passesEdge(*output, *inside)) {
                backFromPort(*port, *inside);
            }
        } else {
            const auto ports = trace.portIterator(const_cast<Block &>(block), name);
            if (isWhole<AllPorts>(*ports) && !passed.insert({&at, &block, nullptr, Direction::Backward}).second) {
                return;
            }
            while (ports->hasNext()) {
                backFromPort(ports->next(), at);
            }
        }
    }

    void onThroughBlock(const Port &port, const Instance &at) {
        const Block &block = port.getBlock();
        const PureValueRef &name = port.getName();
        if (!isNew(at, &block, trace.keyForPortName(block, name), Direction::Forward)) {
            return;
        }
        const Model *model = instantiated(block);
        if (block.type() == A_OUTPUT_BLOCK.get_ptr()) {
            if (passesEdge(block, at)) {
                ascend(block.getModel(), at, [&](const Block &parent, const Instance &above) {
                    if (const Wire *wire = parent.getWire(name)) {
                        onFromWire(*wire, above);
                    }
                });
            }
        } else if (!trace.goesOn(trace.keep(block, at.chain, &port), block)) {
            return;
        } else if (model != nullptr) {
            const Block *input = model->getInputBlock();
            const Wire *wire = input != nullptr ? input->getWire(name) : nullptr;
            const Instance *inside = wire != nullptr ? entered(at, block, *model) : nullptr;
            if (inside != nullptr && passesEdge(*input, *inside)) {
                onFromWire(*wire, *inside);
            }
        } else {
            const auto wires = trace.wireIterator(const_cast<Block &>(block), name);
            if (isWhole<AllWires>(*wires) && !passed.insert({&at, &block, nullptr, Direction::Forward}).second) {
                return;
            }
            while (wires->hasNext()) {
                onFromWire(wires->next(), at);
            }
        }
    }

    /// All ends of a block are gone through once, by whichever of many ends it is reached.
    template <class All, class Iterator> static bool isWhole(const Iterator &iterator) {
        return dynamic_cast<const All *>(&iterator) != nullptr;
    }
    static const Model *instantiated(const Block &block) {
        return block.type() == A_MODEL_BLOCK.get_ptr() ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
    }

    void run() {
        while (!queue.empty()) {
            const Place place = queue.front();
            queue.pop_front();
            if (place.wire != nullptr) {
                backThroughBlock(*place.wire, *place.instance);
            } else {
                onThroughBlock(*place.port, *place.instance);
            }
        }
    }

    ConnectionTrace &trace;
    Instance top;
    std::map<std::pair<const Instance *, const Block *>, std::unique_ptr<Instance>> instances;
    std::unordered_set<Visit, VisitHash> visited;
    /// The blocks from which the walk has gone on by all their ends.
    std::unordered_set<Visit, VisitHash> passed;
    /// Keeps the keys of visits alive.
    std::vector<PureValueRef> names;
    std::deque<Place> queue;
};

ConnectionTrace::ConnectionTrace() : mTree(nullptr), mWalk(std::make_unique<Walk>(*this)) {}
ConnectionTrace::ConnectionTrace(ModelTreePass &tree) : mTree(&tree), mWalk(std::make_unique<Walk>(*this)) {}
ConnectionTrace::~ConnectionTrace() = default;

void ConnectionTrace::reset() {
    mBlocks.clear();
    mPorts.clear();
    mRecordedBlocks.clear();
    mRecordedPorts.clear();
    mWalk = std::make_unique<Walk>(*this);
}

TraceAction ConnectionTrace::keep(const Block &, const RefChain &) { return TRACE_KEEP; }
TraceAction ConnectionTrace::keep(const Block &block, const RefChain &refChain, const Wire *) {
    return keep(block, refChain);
}
TraceAction ConnectionTrace::keep(const Block &block, const RefChain &refChain, const Port *) {
    return keep(block, refChain);
}
TraceAction ConnectionTrace::keep(const Wire &, const RefChain &) { return TRACE_KEEP; }
TraceAction ConnectionTrace::keep(const Port &, const RefChain &) { return TRACE_KEEP; }

PureValueRef ConnectionTrace::keyForWireName(const Block &, const PureValueRef &name) { return name; }

PureValueRef ConnectionTrace::keyForPortName(const Block &, const PureValueRef &name) { return name; }

std::unique_ptr<ConnectionTrace::PortIterator> ConnectionTrace::portIterator(Block &block, const PureValueRef &) {
    return std::make_unique<AllPorts>(block);
}

std::unique_ptr<ConnectionTrace::WireIterator> ConnectionTrace::wireIterator(Block &block, const PureValueRef &) {
    return std::make_unique<AllWires>(block);
}

bool ConnectionTrace::goesOn(TraceAction action, const Block &block) {
    if ((action == TRACE_KEEP || action == TRACE_KEEP_STOP) && mRecordedBlocks.insert(&block).second) {
        mBlocks.push_back(&block);
    }
    return action == TRACE_PASS || action == TRACE_KEEP;
}

bool ConnectionTrace::goesOn(TraceAction action, const Port &port) {
    if ((action == TRACE_KEEP || action == TRACE_KEEP_STOP) && mRecordedPorts.insert(&port).second) {
        mPorts.push_back(&port);
    }
    return action == TRACE_PASS || action == TRACE_KEEP;
}

void ConnectionTrace::traceForward(const Block &block) {
    const auto wires = wireIterator(const_cast<Block &>(block), {});
    while (wires->hasNext()) {
        mWalk->onFromWire(wires->next(), mWalk->startInstance());
    }
    mWalk->run();
}

void ConnectionTrace::traceForward(const Wire &wire) {
    mWalk->onFromWire(wire, mWalk->startInstance());
    mWalk->run();
}

void ConnectionTrace::traceForward(const Port &port) {
    mWalk->onFromPort(port, mWalk->startInstance());
    mWalk->run();
}

void ConnectionTrace::traceBackward(const Block &block) {
    const auto ports = portIterator(const_cast<Block &>(block), {});
    while (ports->hasNext()) {
        mWalk->backFromPort(ports->next(), mWalk->startInstance());
    }
    mWalk->run();
}

void ConnectionTrace::traceBackward(const Wire &wire) {
    mWalk->backFromWire(wire, mWalk->startInstance());
    mWalk->run();
}

void ConnectionTrace::traceBackward(const Port &port) {
    mWalk->backFromPort(port, mWalk->startInstance());
    mWalk->run();
}

namespace {

/// How a block hands its inputs on.
enum class Passage : std::uint8_t { None, OneInput, ByName };

struct PassageRow {
    const StaticString *type;
    TraceFlags flag;
    Passage passage;
};

constexpr PassageRow kPassages[] = {
    {&A_TYPE_PIN_BLOCK, TRACE_THROUGH_TYPE_PINS, Passage::OneInput},
    {&A_FANOUT_BLOCK, TRACE_THROUGH_FANOUTS, Passage::OneInput},
    {&A_TERMINAL_BLOCK, TRACE_THROUGH_FANOUTS, Passage::OneInput},
    {&A_SIGNAL_IN_BLOCK, TRACE_THROUGH_MARKERS, Passage::ByName},
    {&A_SIGNAL_OUT_BLOCK, TRACE_THROUGH_MARKERS, Passage::ByName},
    {&A_BOUNDARY_BLOCK, TRACE_THROUGH_MARKERS, Passage::ByName},
};

Passage passageOf(const Block &block, TraceFlags flags) {
    for (const PassageRow &row : kPassages) {
        if (block.type() == row.type->get_ptr()) {
            return (static_cast<unsigned int>(row.flag) & static_cast<unsigned int>(flags)) != 0 ? row.passage
                                                                                                 : Passage::None;
        }
    }
    return Passage::None;
}

/// The input that a wire of a passed block shows; null if it is not connected.
const Port *inputOf(const Wire &wire, Passage passage) {
    const Block &block = wire.getBlock();
    if (passage == Passage::ByName) {
        return block.getPort(wire.getName());
    }
    return block.port_size() == 1 ? &*block.port_begin() : nullptr;
}

} // namespace

void traceWireForward(const Wire &wire, TraceFlags flags, std::vector<const Port *> &ends) {
    std::vector<const Wire *> queue{&wire};
    std::unordered_set<const Wire *> visited{&wire};
    for (std::size_t i = 0; i < queue.size(); ++i) {
        for (const Port &port : queue[i]->ports()) {
            const Passage passage = passageOf(port.getBlock(), flags);
            if (passage == Passage::None) {
                ends.push_back(&port);
                continue;
            }
            for (const Wire &next : port.getBlock()) {
                if (inputOf(next, passage) == &port && visited.insert(&next).second) {
                    queue.push_back(&next);
                }
            }
        }
    }
}

const Port *traceWireForward(const Wire &wire, TraceFlags flags) {
    std::vector<const Port *> ends;
    traceWireForward(wire, flags, ends);
    return ends.size() == 1 ? ends.front() : nullptr;
}

const Wire *tracePortBackward(const Port &port, TraceFlags flags) {
    std::unordered_set<const Port *> visited;
    for (const Port *at = &port; at != nullptr && visited.insert(at).second;) {
        const Wire &wire = *at->peekWire();
        const Passage passage = passageOf(wire.getBlock(), flags);
        if (passage == Passage::None) {
            return &wire;
        }
        at = inputOf(wire, passage);
    }
    return nullptr;
}

void tracePortBackward(const Block &block, TraceFlags flags, std::vector<const Wire *> &ends) {
    std::unordered_set<const Wire *> known;
    for (const Port &port : block.ports()) {
        const Wire *wire = tracePortBackward(port, flags);
        if (wire != nullptr && known.insert(wire).second) {
            ends.push_back(wire);
        }
    }
}

} // namespace orvo
