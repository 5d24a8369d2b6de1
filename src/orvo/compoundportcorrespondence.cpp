// Names of ports and wires through the taking apart of blocks: who stands for whom now.
#include <orvo/compoundportcorrespondence.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

namespace orvo {

Port *MaybePort::getPort() const { return mBlock->getPort(mKey); }

Wire *MaybePort::getWire() const {
    const Port *port = getPort();
    return port == nullptr ? nullptr : port->peekWire();
}

void MaybePort::setWire(Wire &wire) const { mBlock->setParam(mKey, wire); }

std::vector<MaybePort> maybePortsOf(const Wire &wire) {
    std::vector<MaybePort> ports;
    for (const Port &port : wire.ports()) {
        ports.emplace_back(port);
    }
    return ports;
}

UnrollerNotifier::~UnrollerNotifier() = default;

void DefaultUnrollerNotifier::unrollPort(const Block &, const PureValueRef &, const Block &, const PureValueRef &) {}

void DefaultUnrollerNotifier::unrollWire(const Block &, const PureValueRef &, const Block &, const PureValueRef &) {}

namespace {

UnrollerNotifier *defaultNotifier() {
    static DefaultUnrollerNotifier notifier;
    return &notifier;
}

} // namespace

Unroller::Unroller() : mNotifier(defaultNotifier()) {}

Unroller::~Unroller() = default;

void Unroller::setUnrollerNotifier(UnrollerNotifier *notifier) {
    mNotifier = notifier == nullptr ? defaultNotifier() : notifier;
}

Block &Unroller::createSubstitute(Block &block) const {
    Context *context = block.getContext();
    const PureTupleValueRef name =
        PureTupleValue::get(block.getName(), StringValue::get(getSuffix(), context), context);
    Block &substitute = *Block::create(block.getModel(), name);
    for (auto param : Params(block)) {
        if (!nodeVR(param.second)) {
            substitute.setParam(param.first, param.second);
        }
    }
    return substitute;
}

void Unroller::notifyUnrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                const PureValueRef &newName) const {
    mNotifier->unrollPort(oldBlock, oldName, newBlock, newName);
}

void Unroller::notifyUnrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                const PureValueRef &newName) const {
    mNotifier->unrollWire(oldBlock, oldName, newBlock, newName);
}

void Unroller::notifyUnrollAttachedPorts(const Block &oldBlock, const PureValueRef &oldName) const {
    for (const MaybePort &port : mAttachedPorts) {
        notifyUnrollPort(oldBlock, oldName, port.getBlock(), port.getKey());
    }
}

UnrolledPortWireNames::UnrolledPortWireNames(const Model &model, PureValueRef blockName, bool isPort, PureValueRef name)
    : mModel(model), mBlockName(std::move(blockName)), mIsPort(isPort), mName(std::move(name)) {}

/// Whether the block itself was taken apart, so that only its prefix is known.
bool UnrolledPortWireNames::findBlock() {
    if (mBlockName == A_INPUT_BLOCK) {
        mBlock = mModel.getInputBlock();
    } else if (mBlockName == A_OUTPUT_BLOCK) {
        mBlock = mModel.getOutputBlock();
    } else {
        mBlock = mModel.getBlock(mBlockName);
    }
    if (mBlock == nullptr && mBlockName) {
        mBlock = mModel.getBlockByPrefix(mBlockName, nullptr);
        return mBlock != nullptr;
    }
    return false;
}

/// Null away from boundaries of models.
const UnrollMappings *UnrolledPortWireNames::boundaryMappings(const BoundaryUnrollMappingStateItem *state) const {
    static const UnrollMappings none;
    enum class Side { Input, Output };
    const auto mappings = [state](const Model &model, Side side) {
        if (state == nullptr) {
            return &none;
        }
        return side == Side::Input ? &state->getInputUnrollMapping(model) : &state->getOutputUnrollMapping(model);
    };
    for (const StaticString *type : {&A_INPUT_BLOCK, &A_CHANNEL_IN_BLOCK, &A_SIGNAL_IN_BLOCK}) {
        if (mBlock->type() == type->get_ptr()) {
            return mappings(mModel, Side::Input);
        }
    }
    for (const StaticString *type : {&A_OUTPUT_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_SIGNAL_OUT_BLOCK}) {
        if (mBlock->type() == type->get_ptr()) {
            return mappings(mModel, Side::Output);
        }
    }
    const Model *below = state != nullptr && mBlock->type() == A_MODEL_BLOCK.get_ptr()
                             ? Node::from<Model>(ValueRef(mBlock->getParam(A_MODEL_NODE)))
                             : nullptr;
    return below == nullptr ? nullptr : mappings(*below, mIsPort ? Side::Input : Side::Output);
}

void UnrolledPortWireNames::addPoint(const PureValueRef &name) {
    if (mIsPort) {
        if (Port *port = mBlock->getPort(name)) {
            mPorts.push_back(port);
        }
    } else if (Wire *wire = mBlock->getWire(name); wire != nullptr && mWireSet.insert(wire).second) {
        mWires.push_back(wire);
    }
}

void UnrolledPortWireNames::unrollNames(const BoundaryUnrollMappingStateItem *state) {
    mBlock = nullptr;
    mPorts.clear();
    mWires.clear();
    mWireSet.clear();
    const bool isPrefix = findBlock();
    if (mBlock == nullptr || !mName) {
        return;
    }
    const UnrollMappings *mappings = boundaryMappings(state);
    ORVO_ASSERT(mappings == nullptr || !isPrefix, "a block at the boundary of a model was itself taken apart");
    const std::vector<PureValueRef> names =
        mappings == nullptr ? std::vector<PureValueRef>() : mappings->getUnrolledPortNameList(mName);
    if (names.empty()) {
        // A plain signal keeps its name at a boundary, too.
        addPoint(mName);
    }
    for (const PureValueRef &name : names) {
        addPoint(name);
    }
}

namespace {

PureTupleValueRef pointOf(const Block &block, const PureValueRef &name) {
    return PureTupleValue::get(block.getName(), name, block.getContext());
}

const StaticString &constraintKey(bool isPort) {
    return isPort ? A_SCHEDULE_CONSTRAINT_PORTS : A_SCHEDULE_CONSTRAINT_WIRES;
}

/// An entry of a block's list of constrained points.
constexpr std::size_t kEntrySize = 4;
constexpr std::size_t kEntryChain = 1;
constexpr std::size_t kEntryStarts = 2;
constexpr std::size_t kEntryEnds = 3;

TupleValueRef entryOf(const ValueRef &value) {
    const TupleValueRef entry = tupleVR(value);
    return entry && entry->size() == kEntrySize ? entry : TupleValueRef();
}

/// Whether an entry speaks of this instance: it names the model blocks on the way, or stands for all instances.
bool isOfInstance(const PureValueRef &chain, const RefChain &instance) {
    if (chain == A_TRUE) {
        return true;
    }
    const PureTupleValueRef links = pureTupleVR(chain);
    if (!links || links->size() == 0 || links->size() != instance.size()) {
        return false;
    }
    for (std::size_t i = 0; i < instance.size(); ++i) {
        const PureTupleValueRef link = pureTupleVR(links->at(i));
        if (!link || link->size() != 2 || !(link->at(0) == instance[i]->getModel().getName()) ||
            !(link->at(1) == instance[i]->getName())) {
            return false;
        }
    }
    return true;
}

ValueRef renamed(const TupleValue &entry, const PureValueRef &name, Context *context) {
    std::vector<ValueRef> elements(entry.begin(), entry.end());
    elements.front() = name;
    return TupleValue::get(elements, context);
}

/// The numbers of both, each once.
ValueRef joinNumbers(const ValueRef &a, const ValueRef &b, Context *context) {
    std::vector<ValueRef> numbers;
    std::set<const Value *> known;
    for (const ValueRef &list : {a, b}) {
        if (const TupleValueRef tuple = tupleVR(list)) {
            for (const ValueRef &number : *tuple) {
                if (known.insert(number.get_ptr()).second) {
                    numbers.push_back(number);
                }
            }
        }
    }
    return TupleValue::get(numbers, context);
}

/// The list of a block's constrained points in the making.
class PointEntries {
  public:
    explicit PointEntries(Context *context) : mContext(context) {}
    /// As it is.
    void keep(const ValueRef &value) {
        if (const TupleValueRef entry = entryOf(value)) {
            mPlaces.emplace(keyOf(entry), mEntries.size());
        }
        mEntries.push_back(value);
    }
    /// One for the same point and instance takes it in.
    void add(const ValueRef &value) {
        const TupleValueRef entry = entryOf(value);
        const auto [place, isNew] = mPlaces.try_emplace(keyOf(entry), mEntries.size());
        if (isNew) {
            mEntries.push_back(value);
            return;
        }
        ValueRef &present = mEntries[place->second];
        const TupleValueRef other = entryOf(present);
        present = TupleValue::get(entry->at(0), entry->at(kEntryChain),
                                  joinNumbers(other->at(kEntryStarts), entry->at(kEntryStarts), mContext),
                                  joinNumbers(other->at(kEntryEnds), entry->at(kEntryEnds), mContext), mContext);
    }
    /// Null for an empty list.
    ValueRef toValue() const { return mEntries.empty() ? ValueRef() : ValueRef(TupleValue::get(mEntries, mContext)); }

  private:
    using Key = std::pair<const Value *, const Value *>;
    static Key keyOf(const TupleValueRef &entry) { return {entry->at(0).get_ptr(), entry->at(kEntryChain).get_ptr()}; }

    Context *mContext;
    std::vector<ValueRef> mEntries;
    std::map<Key, std::size_t> mPlaces;
};

} // namespace

void ReferenceNameMapping::unrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                      const PureValueRef &newName) {
    mPorts[pointOf(oldBlock, oldName)].push_back(pointOf(newBlock, newName));
}

void ReferenceNameMapping::unrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                                      const PureValueRef &newName) {
    mWires[pointOf(oldBlock, oldName)].push_back(pointOf(newBlock, newName));
}

std::vector<PureTupleValueRef> ReferenceNameMapping::latestPoints(const PureTupleValueRef &point, bool isPort) const {
    const Table &table = isPort ? mPorts : mWires;
    std::vector<PureTupleValueRef> latest;
    std::set<PureTupleValueRef> met{point};
    std::set<PureTupleValueRef> given;
    const auto give = [&](const PureTupleValueRef &at) {
        if (given.insert(at).second) {
            latest.push_back(at);
        }
    };
    const std::function<void(const std::vector<PureTupleValueRef> &, const PureTupleValueRef &)> follow =
        [&](const std::vector<PureTupleValueRef> &replacements, const PureTupleValueRef &from) {
            for (const PureTupleValueRef &at : replacements) {
                const auto next = table.find(at);
                // A point that stays, beside others or alone, is told as its own replacement.
                if (next == table.end() || at == from) {
                    give(at);
                } else if (met.insert(at).second) {
                    follow(next->second, at);
                }
            }
        };
    if (const auto replaced = table.find(point); replaced != table.end()) {
        follow(replaced->second, point);
    }
    return latest;
}

NetlistReferencePointsUpdater::NetlistReferencePointsUpdater(const PassContext &context, Model &model,
                                                             RefChain refChain)
    : mModel(model), mRefChain(std::move(refChain)) {
    ORVO_ASSERT(&model.getDesign() == &context.getDesign(), "a model of another design");
}

NetlistReferencePointsUpdater::~NetlistReferencePointsUpdater() { unrollLatencyConstraints(); }

void NetlistReferencePointsUpdater::unrollLatencyConstraints() {
    if (mMapping.empty()) {
        return;
    }
    for (const bool isPort : {true, false}) {
        const StaticString &key = constraintKey(isPort);
        MovedEntries moved;
        for (Block &block : mModel) {
            if (const TupleValueRef entries = tupleVR(block.getParam(key))) {
                unrollPortWireNames(block, entries, isPort, moved);
            }
        }
        for (const auto &[block, values] : moved) {
            PointEntries list(block->getContext());
            if (const TupleValueRef present = tupleVR(block->getParam(key))) {
                std::for_each(present->begin(), present->end(), [&list](const ValueRef &value) { list.keep(value); });
            }
            std::for_each(values.begin(), values.end(), [&list](const ValueRef &value) { list.add(value); });
            block->setParam(key, list.toValue());
        }
    }
}

void NetlistReferencePointsUpdater::unrollPortWireNames(Block &block, const TupleValueRef &entries, bool isPort,
                                                        MovedEntries &moved) {
    PointEntries list(block.getContext());
    bool isChanged = false;
    for (const ValueRef &value : *entries) {
        const TupleValueRef entry = entryOf(value);
        const PureValueRef name = entry ? PureValueRef(entry->at(0)) : PureValueRef();
        const std::vector<PureTupleValueRef> points =
            name && isOfInstance(PureValueRef(entry->at(kEntryChain)), mRefChain)
                ? mMapping.latestPoints(pointOf(block, name), isPort)
                : std::vector<PureTupleValueRef>();
        isChanged = isChanged || !points.empty();
        if (points.empty()) {
            list.keep(value);
        }
        for (const PureTupleValueRef &point : points) {
            const ValueRef renamedEntry = renamed(*entry, point->at(1), block.getContext());
            if (point->at(0) == block.getName()) {
                list.add(renamedEntry);
            } else if (Block *other = mModel.getBlock(point->at(0))) {
                moved[other].push_back(renamedEntry);
            }
        }
    }
    if (isChanged) {
        block.setParam(constraintKey(isPort), list.toValue());
    }
}

} // namespace orvo
