// What stands where a replaced block stood is seen by what its drivers feed and what feeds its readers.
#include "orvo/rewrittenpoints.h"

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo::internal {

using BlockCallback = util::Function<void(Block &)>;

const std::string &RewrittenPoints::Notifier::getSuffix() const {
    static const std::string none;
    return none;
}

RewrittenPoints::RewrittenPoints(const PassContext &context, Model &model, const std::vector<RefChain> &instances,
                                 bool movesDomainEdges)
    : mModel(model), mUpdater(context, model, instances.front()), mEdges(model), mMovesDomainEdges(movesDomainEdges) {
    mUpdater.setInstances(instances);
    mUpdater.leaveDomainEdges();
    mUpdater.setupUnrollerNotifier(&mNotifier);
}

RewrittenPoints::~RewrittenPoints() { end(); }

bool RewrittenPoints::concerns(const Block &block) const {
    return hasReferencePoints(block) || mEdges.has(block) || mUpdater.mapping().isSuccessor(block);
}

void RewrittenPoints::hook(bool on) {
    EventManager &events = mModel.getDesign().events();
    const auto born = BlockCallback::bind<&RewrittenPoints::onBlockBorn>(this);
    const auto dying = BlockCallback::bind<&RewrittenPoints::onBlockDying>(this);
    if (on) {
        events.blockBorn.add(born);
        events.blockDying.add(dying);
    } else {
        events.blockBorn.remove(born);
        events.blockDying.remove(dying);
    }
}

void RewrittenPoints::begin(Block &block) {
    end();
    mBlock = &block;
    for (const Port &port : block.ports()) {
        mInputs.push_back({port.getName(), port.peekWire()});
    }
    const PureValueRef input = NumberValue::get(0, block.getContext());
    for (Wire &wire : block) {
        const std::size_t before = mReaders.size();
        for (const Port &port : wire.ports()) {
            if (&port.getBlock() != &block) {
                mReaders.push_back({port.getBlock().getName(), port.getName()});
            }
        }
        if (mReaders.size() != before) {
            mOutputs.push_back({wire.getName(), before, mReaders.size(), mReaders[before]});
            continue;
        }
        Block &probe = *Block::create(mModel, "probe", A_TERMINAL_BLOCK);
        probe.setParam(input, wire);
        mProbes.push_back(&probe);
        mOutputs.push_back({wire.getName(), before, before, {probe.getName(), input}});
    }
    hook(true);
}

void RewrittenPoints::end() {
    if (mBlock != nullptr || !mOutputs.empty() || !mInputs.empty()) {
        hook(false);
    }
    for (Block *probe : mProbes) {
        delete probe;
    }
    mBlock = nullptr;
    mInputs.clear();
    mOutputs.clear();
    mReaders.clear();
    mBorn.clear();
    mBornBlocks.clear();
    mBornPorts.clear();
    mProbes.clear();
}

bool RewrittenPoints::hasEdge(const Port &port) const {
    return static_cast<bool>(mEdges.find(placeOf(MaybePort(port))));
}

void RewrittenPoints::copyBegin(const Wire &from, const Wire &to) {
    if (const ValueRef edge = mEdges.find(placeOf(from)); edge && beginsDomain(edge)) {
        mEdges.copy(edge, placeOf(to));
    }
}

void RewrittenPoints::spread(const Wire &from, const std::vector<const Wire *> &to, bool stays) {
    const Block &block = from.getBlock();
    for (const Wire *wire : to) {
        mNotifier.notifyUnrollWire(block, from.getName(), wire->getBlock(), wire->getName());
    }
    if (stays) {
        mNotifier.notifyUnrollWire(block, from.getName(), block, from.getName());
    } else {
        mEdges.remove(block);
    }
}

void RewrittenPoints::onBlockDying(Block &block) {
    if (&block == mBlock) {
        tell();
    }
    std::erase(mBorn, &block);
}

const Wire *RewrittenPoints::newWire(const Output &output) const {
    const Block *reader = mModel.getBlock(output.reader.block);
    const Port *port = reader == nullptr ? nullptr : reader->getPort(output.reader.port);
    return port == nullptr || &port->peekWire()->getBlock() == mBlock ? nullptr : port->peekWire();
}

/// The edges at the block on their way, once all readers have moved.
class RewrittenPoints::Domains {
  public:
    explicit Domains(RewrittenPoints &of) : mOf(of), mBlock(*of.mBlock), mEdges(of.mEdges), mTree(of.mEdges) {}

    void move() {
        mTree.leaveOut(mBlock);
        for (const Block *probe : mOf.mProbes) {
            mTree.leaveOut(*probe);
        }
        findInside();
        for (const Input &input : mOf.mInputs) {
            addInput(input);
        }
        for (const Output &output : mOf.mOutputs) {
            if (const Wire *wire = mOf.newWire(output)) {
                addOutput(output, *wire);
            }
        }
        for (const Input &input : mOf.mInputs) {
            if (mUsed.count(input.driver) == 0 && !edgeAt(input) && mInside) {
                addEnd(mInside, *input.driver);
            }
        }
        mTree.settle();
        mEdges.remove(mBlock);
    }

  private:
    using Point = DomainEdgeTree::Point;
    static constexpr Point kNone = DomainEdgeTree::kNone;
    struct Way {
        /// Null where an input without an edge has the driver.
        ValueRef edge;
        Point end = kNone;
    };

    ValueRef edgeAt(const Input &input) const { return mEdges.find({mBlock.getName(), true, input.name}); }
    ValueRef edgeAt(const Output &output) const { return mEdges.find({mBlock.getName(), false, output.name}); }

    /// The block lies in one domain; an edge tells which.
    void findInside() {
        for (const Input &input : mOf.mInputs) {
            if (const ValueRef edge = edgeAt(input); edge && beginsDomain(edge) && !mInside) {
                mInside = edge;
            }
        }
        for (const Output &output : mOf.mOutputs) {
            if (const ValueRef edge = edgeAt(output); edge && !beginsDomain(edge) && !mInside) {
                mInside = edge;
            }
        }
    }
    Point addEnd(const ValueRef &edge, const Wire &root) {
        const Point point = mTree.add(edge, false, DomainEdgeTree::Sort::Port);
        mTree.setRoot(point, root);
        return point;
    }
    Point addBegin(const ValueRef &edge, const Wire &root, Point above) {
        const Point point = mTree.add(edge, true, DomainEdgeTree::Sort::Wire);
        if (above == kNone) {
            mTree.setRoot(point, root);
        } else {
            mTree.setAbove(point, above);
        }
        return point;
    }

    void addInput(const Input &input) {
        const auto [way, isNew] = mWays.try_emplace(input.driver);
        const ValueRef edge = edgeAt(input);
        const auto ports = mOf.mBornPorts.find(input.driver);
        const bool isRead = ports != mOf.mBornPorts.end();
        if (isRead) {
            mUsed.insert(input.driver);
        }
        if (!edge) {
            way->second.edge = ValueRef();
            return;
        }
        const bool begins = beginsDomain(edge);
        const Point point =
            begins ? (isRead ? addBegin(edge, *input.driver, kNone) : kNone) : addEnd(edge, *input.driver);
        if (isNew) {
            way->second = {edge, begins ? kNone : point};
        }
        for (std::size_t i = 0; isRead && i < ports->second.size(); ++i) {
            mTree.addReader(ports->second[i], point);
        }
        mStays = mStays || (isRead && begins);
    }

    std::vector<MaybePort> readersOf(const Output &output, const Wire &wire) const {
        std::vector<MaybePort> readers;
        for (std::size_t i = output.firstReader; i < output.endReader; ++i) {
            const Reader &reader = mOf.mReaders[i];
            Block *block = mOf.mModel.getBlock(reader.block);
            const Port *port = block == nullptr ? nullptr : block->getPort(reader.port);
            if (port != nullptr && port->peekWire() == &wire) {
                readers.emplace_back(*port);
            }
        }
        return readers;
    }

    void addOutput(const Output &output, const Wire &wire) {
        const ValueRef edge = edgeAt(output);
        const std::vector<MaybePort> readers = readersOf(output, wire);
        const auto way = mWays.find(&wire);
        Point point = kNone;
        ValueRef behind = edge && beginsDomain(edge) ? edge : ValueRef();
        if (mOf.isBorn(wire.getBlock())) {
            if (edge && readers.size() + (readers.empty() ? 1 : 0) == wire.port_size()) {
                mEdges.copy(edge, placeOf(wire));
                return;
            }
            point = edge && !beginsDomain(edge) ? addEnd(edge, wire) : kNone;
            // Nothing else has a port at which the block's domain could begin.
            behind = !edge && !mStays ? mInside : behind;
        } else {
            mUsed.insert(&wire);
            const ValueRef before = way == mWays.end() ? ValueRef() : way->second.edge;
            point = before ? way->second.end : mInside ? addEnd(mInside, wire) : kNone;
            behind = edge ? behind : mInside;
        }
        if (behind) {
            point = addBegin(behind, wire, point);
        }
        for (std::size_t i = 0; point != kNone && i < readers.size(); ++i) {
            mTree.addReader(readers[i], point);
        }
    }

    RewrittenPoints &mOf;
    const Block &mBlock;
    DomainEdgeList &mEdges;
    DomainEdgeTree mTree;
    ValueRef mInside;
    std::unordered_map<const Wire *, Way> mWays;
    /// The drivers that are still read in the place of the block.
    std::unordered_set<const Wire *> mUsed;
    /// Whether a domain begins at a port in the place of the block.
    bool mStays = false;
};

/// The block still has the constraints, and all readers have moved.
void RewrittenPoints::tell() {
    for (Block *born : mBorn) {
        mBornBlocks.insert(born);
        for (const Port &port : born->ports()) {
            mBornPorts[port.peekWire()].emplace_back(port);
        }
    }
    for (const Input &input : mInputs) {
        tellPort(input);
    }
    for (const Output &output : mOutputs) {
        if (const Wire *wire = newWire(output)) {
            mNotifier.notifyUnrollWire(*mBlock, output.name, wire->getBlock(), wire->getName());
        }
    }
    if (mMovesDomainEdges && mEdges.has(*mBlock)) {
        Domains(*this).move();
    }
}

void RewrittenPoints::tellPort(const Input &input) const {
    if (const auto ports = mBornPorts.find(input.driver); ports != mBornPorts.end()) {
        for (const MaybePort &port : ports->second) {
            mNotifier.notifyUnrollPort(*mBlock, input.name, port.getBlock(), port.getKey());
        }
        return;
    }
    for (const Reader &reader : mReaders) {
        if (const Block *block = mModel.getBlock(reader.block)) {
            mNotifier.notifyUnrollPort(*mBlock, input.name, *block, reader.port);
        }
    }
}

} // namespace orvo::internal
