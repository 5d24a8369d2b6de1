// What inference leaves: points, the ids of instances, the domains of points, and their form as a value on the design.
#include <orvo/domaininfer.h>

#include "orvo/domaintable.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo {

const Block *DomainPoint::block() const {
    return isWire() ? &wire()->getBlock() : valid() ? &port()->getBlock() : nullptr;
}

PureValueRef DomainPoint::name() const {
    return isWire() ? wire()->getName() : valid() ? port()->getName() : PureValueRef();
}

bool DomainPoint::operator<(const DomainPoint &other) const {
    if (!valid() || !other.valid()) {
        return !valid() && other.valid();
    }
    if (mEnd == other.mEnd) {
        return mRefChainId < other.mRefChainId;
    }
    const DeepValueCmp before;
    if (const Block *mine = block(), *others = other.block(); mine != others) {
        if (mine->getName() == others->getName()) {
            return before(mine->getModel().getName(), others->getModel().getName()) ||
                   (mine->getModel().getName() == others->getModel().getName() && mine < others);
        }
        return before(mine->getName(), others->getName());
    }
    return isWire() == other.isWire() ? before(name(), other.name()) : other.isWire();
}

std::size_t RefChainCollection::Hash::operator()(const Instance &instance) const {
    const auto bits = static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(instance.block));
    return (bits >> 4U) * 0x9e3779b97f4a7c15ULL + instance.above * 0xc2b2ae3d27d4eb4fULL;
}

unsigned long RefChainCollection::idOf(const Instance &instance) {
    const auto [at, isNew] = mIds.try_emplace(instance, mInstances.size());
    if (isNew) {
        mInstances.push_back(instance);
    }
    return at->second;
}

unsigned long RefChainCollection::getOrCreateId(unsigned long above, const Block &block) {
    return idOf({above, &block});
}

unsigned long RefChainCollection::getOrCreateId(const RefChain &refChain) {
    unsigned long id = idOf({});
    for (const Block *block : refChain) {
        id = getOrCreateId(id, *block);
    }
    return id;
}

unsigned long RefChainCollection::findId(unsigned long above, const Block &block) const {
    const auto hit = mIds.find({above, &block});
    return hit == mIds.end() ? kNone : hit->second;
}

RefChain RefChainCollection::getRefChain(unsigned long id) const {
    RefChain chain;
    for (; mInstances[id].block != nullptr; id = mInstances[id].above) {
        chain.push_back(mInstances[id].block);
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

namespace internal {

std::size_t DomainTable::home(const DomainPoint &point) const {
    const std::uint64_t bits = point.mEnd + point.mRefChainId * 0xc2b2ae3d27d4eb4fULL;
    return static_cast<std::size_t>((bits * 0x9e3779b97f4a7c15ULL) >> 20U) & (mSlots.size() - 1);
}

std::size_t DomainTable::place(const DomainPoint &point) const {
    std::size_t at = home(point);
    while (mSlots[at].point.valid() && mSlots[at].point != point) {
        at = (at + 1) & (mSlots.size() - 1);
    }
    return at;
}

const DomainTable::Slot *DomainTable::find(const DomainPoint &point) const {
    if (mSlots.empty()) {
        return nullptr;
    }
    const Slot &slot = mSlots[place(point)];
    return slot.point.valid() ? &slot : nullptr;
}

DomainTable::Slot &DomainTable::get(const DomainPoint &point) {
    // At most three quarters full.
    if (4 * (mCount + 1) > 3 * mSlots.size()) {
        grow();
    }
    Slot &slot = mSlots[place(point)];
    if (!slot.point.valid()) {
        slot.point = point;
        ++mCount;
    }
    return slot;
}

void DomainTable::grow() {
    Slots old(mSlots.empty() ? 16 : 2 * mSlots.size());
    old.swap(mSlots);
    for (const Slot &slot : old) {
        if (slot.point.valid()) {
            mSlots[place(slot.point)] = slot;
        }
    }
}

std::uint32_t DomainTable::numberOf(const PureValueRef &domain) {
    if (!domain) {
        return 0;
    }
    const auto [at, isNew] = mNumbers.try_emplace(domain.get_ptr(), static_cast<std::uint32_t>(mDomains.size()));
    if (isNew) {
        mDomains.push_back(domain);
    }
    return at->second;
}

} // namespace internal

DomainAnalysisInfo::DomainAnalysisInfo() : mTable(std::make_unique<internal::DomainTable>()) {}
DomainAnalysisInfo::~DomainAnalysisInfo() = default;
DomainAnalysisInfo::DomainAnalysisInfo(DomainAnalysisInfo &&) noexcept = default;
DomainAnalysisInfo &DomainAnalysisInfo::operator=(DomainAnalysisInfo &&) noexcept = default;

PureValueRef DomainAnalysisInfo::getDomain(const DomainPoint &point) const {
    const internal::DomainTable::Slot *slot = mTable->find(point);
    return slot == nullptr ? PureValueRef() : mTable->domain(slot->domain);
}

PureValueRef DomainAnalysisInfo::getDomain(const Port &port, unsigned long refChainId) const {
    return getDomain(DomainPoint(port, refChainId));
}

PureValueRef DomainAnalysisInfo::getDomain(const Wire &wire, unsigned long refChainId) const {
    return getDomain(DomainPoint(wire, refChainId));
}

void DomainAnalysisInfo::setDomain(const DomainPoint &point, const PureValueRef &domain) {
    if (point.valid()) {
        mTable->get(point).domain = mTable->numberOf(domain);
    }
}

void DomainAnalysisInfo::setDomain(const Port &port, unsigned long refChainId, const PureValueRef &domain) {
    setDomain(DomainPoint(port, refChainId), domain);
}

void DomainAnalysisInfo::setDomain(const Wire &wire, unsigned long refChainId, const PureValueRef &domain) {
    setDomain(DomainPoint(wire, refChainId), domain);
}

namespace {

/// The parts of one instance's entry.
struct DumpParts {
    explicit DumpParts(Context *owner) : context(owner) {}
    void add(std::vector<PureValueRef> &part, const DomainPoint &point, const PureValueRef &domain) {
        if (domain) {
            part.emplace_back(PureTupleValue::get(point.block()->getName(), point.name(), domain, context));
        }
    }
    Context *context;
    std::vector<PureValueRef> ports{A_DOMAIN_DUMP_PORTS_TAG};
    std::vector<PureValueRef> wires{A_DOMAIN_DUMP_WIRES_TAG};
};

DumpParts partsOf(const Model &model, unsigned long id, const DomainAnalysisInfo &info) {
    DumpParts parts(model.getContext());
    for (const Block &block : model) {
        for (const Port &port : block.ports()) {
            parts.add(parts.ports, DomainPoint(port, id), info.getDomain(port, id));
        }
        for (const Wire &wire : block) {
            parts.add(parts.wires, DomainPoint(wire, id), info.getDomain(wire, id));
        }
    }
    return parts;
}

PureValueRef entryOf(const Model &model, const RefChain &chain, const DumpParts &parts) {
    std::vector<PureValueRef> steps;
    for (const Block *block : chain) {
        steps.emplace_back(PureTupleValue::get(block->getModel().getName(), block->getName(), parts.context));
    }
    return PureTupleValue::get(PureTupleValue::get(A_DOMAIN_DUMP_REFCHAIN_TAG, model.getName(),
                                                   PureTupleValue::get(steps, parts.context), parts.context),
                               PureTupleValue::get(parts.ports, parts.context),
                               PureTupleValue::get(parts.wires, parts.context), parts.context);
}

} // namespace

void DomainInference::domainDump(Design &design, const DomainAnalysisInfo &info) {
    Context *context = design.getContext();
    const RefChainCollection &chains = info.getRefChainCollection();
    std::vector<PureValueRef> entries;
    for (unsigned long id = 0; id < chains.size(); ++id) {
        const RefChain chain = chains.getRefChain(id);
        if (!chain.empty()) {
            const auto *model = Node::from<Model>((*chain.back())[A_MODEL_NODE]);
            if (model != nullptr) {
                entries.push_back(entryOf(*model, chain, partsOf(*model, id, info)));
            }
            continue;
        }
        for (const Model &model : design) {
            const DumpParts parts = partsOf(model, id, info);
            if (isOutputRoot(model) || parts.ports.size() > 1 || parts.wires.size() > 1) {
                entries.push_back(entryOf(model, chain, parts));
            }
        }
    }
    design.setParam(PureTupleValue::get(A_DOMAIN_DUMP_KEY, A_DOMAIN_DUMP_REFCHAIN_TAG, A_DOMAIN_DUMP_PORTS_TAG,
                                        A_DOMAIN_DUMP_WIRES_TAG, context),
                    PureTupleValue::get(entries, context));
}

} // namespace orvo
