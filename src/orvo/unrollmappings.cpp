// Mappings of ports through the taking apart of their signals, one after the other.
#include <orvo/unrollmappings.h>

#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <algorithm>

namespace orvo {

namespace {

/// Whether a part of a port has parts of its own beside itself. Composing such mappings could name one part twice.
bool hasPartInPart(const UnrollMappings::Parts &parts) {
    using Step = CompoundDecorIndex::Step;
    using Path = std::vector<Step>;
    std::vector<const Path *> paths;
    for (const auto &[index, name] : parts) {
        paths.push_back(&index.steps());
    }
    // Step by step, so that a path stands right before the paths that continue it.
    std::sort(paths.begin(), paths.end(), [](const Path *a, const Path *b) {
        return std::lexicographical_compare(
            a->begin(), a->end(), b->begin(), b->end(), [](const Step &left, const Step &right) {
                return std::pair(left.kind, left.index) < std::pair(right.kind, right.index);
            });
    });
    const auto continues = [](const Path *shorter, const Path *longer) {
        return shorter->size() < longer->size() && std::equal(shorter->begin(), shorter->end(), longer->begin());
    };
    return std::adjacent_find(paths.begin(), paths.end(), continues) != paths.end();
}

bool mapsPartInPart(const UnrollMappings &mappings) {
    const UnrollMappings::PortMapping &ports = mappings.portMapping();
    return std::any_of(ports.begin(), ports.end(), [](const auto &port) { return hasPartInPart(port.second); });
}

} // namespace

void UnrollMappings::addMapping(const PureValueRef &originalPortName, const CompoundDecorIndex &index,
                                const PureValueRef &mappedPortName) {
    ORVO_ASSERT(originalPortName && index.valid() && mappedPortName, "a mapping of ports misses a part");
    const auto [place, isNew] = mPortMapping[originalPortName].emplace(index, mappedPortName);
    ORVO_ASSERT(isNew || place->second == mappedPortName, "one part of a port is mapped to two ports");
    mMappedNames.insert(mappedPortName);
}

PureValueRef UnrollMappings::getUnrolledPortName(const PureValueRef &portName, const CompoundDecorIndex &index) const {
    const auto port = portName ? mPortMapping.find(portName) : mPortMapping.end();
    if (port == mPortMapping.end()) {
        return {};
    }
    const auto part = port->second.find(index);
    return part == port->second.end() ? PureValueRef() : part->second;
}

std::vector<PureValueRef> UnrollMappings::getUnrolledPortNameList(const PureValueRef &portName) const {
    std::vector<PureValueRef> names;
    const auto port = portName ? mPortMapping.find(portName) : mPortMapping.end();
    if (port != mPortMapping.end()) {
        for (const auto &[index, name] : port->second) {
            names.push_back(name);
        }
    }
    return names;
}

UnrollMappings UnrollMappings::operator<<(const UnrollMappings &later) const {
    if (!mValid || !later.mValid || mapsPartInPart(*this) || mapsPartInPart(later)) {
        return invalid();
    }
    UnrollMappings both;
    for (const auto &[original, parts] : mPortMapping) {
        for (const auto &[index, between] : parts) {
            const auto next = later.mPortMapping.find(between);
            if (next == later.mPortMapping.end()) {
                both.addMapping(original, index, between);
                continue;
            }
            for (const auto &[inner, mapped] : next->second) {
                both.addMapping(original, index << inner, mapped);
            }
        }
    }
    for (const auto &[original, parts] : later.mPortMapping) {
        if (!isMappedName(original)) {
            // A port that has come apart is not there to come apart again.
            if (mPortMapping.count(original) != 0) {
                return invalid();
            }
            for (const auto &[index, mapped] : parts) {
                both.addMapping(original, index, mapped);
            }
        }
    }
    return both;
}

PureValueRef UnrollMappings::toValue(Context *context) const {
    if (!mValid) {
        return {};
    }
    std::vector<PureValueRef> elements{A_UNROLL_MAPPINGS_TAG};
    for (const auto &[original, parts] : mPortMapping) {
        std::vector<PureValueRef> pairs;
        for (const auto &[index, mapped] : parts) {
            pairs.emplace_back(PureTupleValue::get(index.toValue(context), mapped, context));
        }
        elements.emplace_back(PureTupleValue::get(original, PureTupleValue::get(pairs, context), context));
    }
    return PureTupleValue::get(elements, context);
}

UnrollMappings UnrollMappings::invalid() {
    UnrollMappings none;
    none.mValid = false;
    return none;
}

bool UnrollMappings::addFromValue(const PureValueRef &entry) {
    const PureTupleValueRef port = pureTupleVR(entry);
    const PureTupleValueRef pairs = port && port->size() == 2 ? pureTupleVR(port->at(1)) : PureTupleValueRef();
    if (!pairs || pairs->size() == 0) {
        return false;
    }
    const auto [parts, isNewPort] = mPortMapping.try_emplace(port->at(0));
    if (!isNewPort) {
        return false;
    }
    for (const PureValueRef element : *pairs) {
        const PureTupleValueRef pair = pureTupleVR(element);
        if (!pair || pair->size() != 2) {
            return false;
        }
        const CompoundDecorIndex index = CompoundDecorIndex::fromValue(pair->at(0));
        if (!index.valid() || !parts->second.emplace(index, pair->at(1)).second) {
            return false;
        }
        mMappedNames.insert(pair->at(1));
    }
    return !hasPartInPart(parts->second);
}

UnrollMappings UnrollMappings::fromValue(const PureValueRef &value) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    if (!tuple || !(tuple->maybeAt(0) == A_UNROLL_MAPPINGS_TAG)) {
        return invalid();
    }
    UnrollMappings mappings;
    for (std::size_t i = 1; i < tuple->size(); ++i) {
        if (!mappings.addFromValue(tuple->at(i))) {
            return invalid();
        }
    }
    return mappings;
}

BoundaryUnrollMappingStateItem::BoundaryUnrollMappingStateItem() = default;

BoundaryUnrollMappingStateItem::~BoundaryUnrollMappingStateItem() {
    for (Design *design : mWatched) {
        unhook(*design);
    }
}

BoundaryUnrollMappingStateItem *BoundaryUnrollMappingStateItem::find(const PassContext &context) {
    return dynamic_cast<BoundaryUnrollMappingStateItem *>(context.lookupStateItem(A_BOUNDARY_UNROLL_STATE_KEY));
}

BoundaryUnrollMappingStateItem *BoundaryUnrollMappingStateItem::findOrCreate(const PassContext &context) {
    BoundaryUnrollMappingStateItem *item = find(context);
    if (item == nullptr && context.state() != nullptr) {
        item = new BoundaryUnrollMappingStateItem;
        context.state()->setItemOfState(A_BOUNDARY_UNROLL_STATE_KEY, item);
    }
    return item;
}

const UnrollMappings &BoundaryUnrollMappingStateItem::lookUp(const ByModel &mappings, const Model &model) {
    static const UnrollMappings none;
    const auto hit = mappings.find(&model);
    return hit == mappings.end() ? none : hit->second;
}

const UnrollMappings &BoundaryUnrollMappingStateItem::getInputUnrollMapping(const Model &model) const {
    return lookUp(mInputs, model);
}

const UnrollMappings &BoundaryUnrollMappingStateItem::getOutputUnrollMapping(const Model &model) const {
    return lookUp(mOutputs, model);
}

void BoundaryUnrollMappingStateItem::setInputUnrollMapping(const Model &model, const UnrollMappings &mappings) {
    watch(model.getDesign());
    mInputs[&model] = mappings;
}

void BoundaryUnrollMappingStateItem::setOutputUnrollMapping(const Model &model, const UnrollMappings &mappings) {
    watch(model.getDesign());
    mOutputs[&model] = mappings;
}

void BoundaryUnrollMappingStateItem::onModelDying(Model &model) {
    // A new model may get the address of a dead one.
    mInputs.erase(&model);
    mOutputs.erase(&model);
}

void BoundaryUnrollMappingStateItem::onDesignDying(Design &design) {
    for (Model &model : design) {
        onModelDying(model);
    }
    mWatched.erase(&design);
}

void BoundaryUnrollMappingStateItem::watch(Design &design) {
    if (!mWatched.insert(&design).second) {
        return;
    }
    using Item = BoundaryUnrollMappingStateItem;
    design.events().modelDying.add(util::Function<void(Model &)>::bind<&Item::onModelDying>(this));
    design.events().designDying.add(util::Function<void(Design &)>::bind<&Item::onDesignDying>(this));
}

void BoundaryUnrollMappingStateItem::unhook(Design &design) {
    using Item = BoundaryUnrollMappingStateItem;
    design.events().modelDying.remove(util::Function<void(Model &)>::bind<&Item::onModelDying>(this));
    design.events().designDying.remove(util::Function<void(Design &)>::bind<&Item::onDesignDying>(this));
}

} // namespace orvo
