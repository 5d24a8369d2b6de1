// The value form of what is known of a scheduled model.
#include <orvo/scheduledmodelhandle.h>

#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <optional>

namespace orvo {

namespace {

/// A tuple (tag, of the inputs, of the outputs), which both are tuples. None if the value is something else.
struct TaggedPair {
    PureTupleValueRef inputs;
    PureTupleValueRef outputs;
};

std::optional<TaggedPair> taggedPair(const StaticString &tag, const PureValueRef &value) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    if (!tuple || tuple->size() != 3 || !(tuple->at(0) == tag)) {
        return std::nullopt;
    }
    TaggedPair pair{pureTupleVR(tuple->at(1)), pureTupleVR(tuple->at(2))};
    return pair.inputs && pair.outputs ? std::optional(pair) : std::nullopt;
}

/// Calls `add(key, value)` for each pair. False if an element is no pair or `add` takes one not.
template <class Add> bool readPairs(const PureTupleValue &tuple, Add add) {
    for (const PureValueRef element : tuple) {
        const PureTupleValueRef pair = pureTupleVR(element);
        if (!pair || pair->size() != 2 || !add(pair->at(0), pair->at(1))) {
            return false;
        }
    }
    return true;
}

std::optional<int> readInteger(const PureValueRef &value) {
    const NumberValueRef number = numberVR(value);
    return number && number->isInt() ? std::optional(number->toInt()) : std::nullopt;
}

std::optional<std::map<PureValueRef, PureValueRef>> readValues(const PureTupleValue &tuple) {
    std::map<PureValueRef, PureValueRef> map;
    const bool isRead = readPairs(
        tuple, [&map](const PureValueRef &name, const PureValueRef &value) { return map.emplace(name, value).second; });
    return isRead ? std::optional(std::move(map)) : std::nullopt;
}

std::optional<std::map<PureValueRef, int>> readTimes(const PureTupleValue &tuple) {
    std::map<PureValueRef, int> map;
    const bool isRead = readPairs(tuple, [&map](const PureValueRef &name, const PureValueRef &value) {
        const std::optional<int> time = readInteger(value);
        return time && map.emplace(name, *time).second;
    });
    return isRead ? std::optional(std::move(map)) : std::nullopt;
}

PureValueRef timesToValue(const std::map<PureValueRef, int> &times, Context *context) {
    std::map<PureValueRef, PureValueRef> values;
    for (const auto &[name, time] : times) {
        values.emplace(name, NumberValue::get(time, context));
    }
    return PureTupleValue::get(values, context);
}

template <class Value> bool hasNullName(const std::map<PureValueRef, Value> &map) {
    return std::any_of(map.begin(), map.end(), [](const auto &entry) { return !entry.first; });
}

bool hasNull(const std::vector<PureValueRef> &names) {
    return std::any_of(names.begin(), names.end(), [](const PureValueRef &name) { return !name; });
}

} // namespace

namespace internal {

BoundaryValues::BoundaryValues(Map inputs, Map outputs) : mInputs(std::move(inputs)), mOutputs(std::move(outputs)) {
    const auto isWhole = [](const auto &entry) { return entry.first && entry.second; };
    mValid =
        std::all_of(mInputs.begin(), mInputs.end(), isWhole) && std::all_of(mOutputs.begin(), mOutputs.end(), isWhole);
}

PureValueRef BoundaryValues::lookUp(const Map &map, const PureValueRef &name) {
    const auto hit = map.find(name);
    return hit == map.end() ? PureValueRef() : hit->second;
}

PureValueRef BoundaryValues::toValue(const StaticString &tag, Context *context) const {
    return mValid ? PureValueRef(PureTupleValue::get(tag, PureTupleValue::get(mInputs, context),
                                                     PureTupleValue::get(mOutputs, context), context))
                  : PureValueRef();
}

BoundaryValues BoundaryValues::fromValue(const StaticString &tag, const PureValueRef &value) {
    const std::optional<TaggedPair> pair = taggedPair(tag, value);
    if (!pair) {
        return {};
    }
    auto inputs = readValues(*pair->inputs);
    auto outputs = readValues(*pair->outputs);
    return inputs && outputs ? BoundaryValues(std::move(*inputs), std::move(*outputs)) : BoundaryValues();
}

} // namespace internal

ScheduledModelPortList::ScheduledModelPortList(std::vector<PureValueRef> inputs, std::vector<PureValueRef> outputs)
    : mValid(!hasNull(inputs) && !hasNull(outputs)), mInputs(std::move(inputs)), mOutputs(std::move(outputs)) {}

PureValueRef ScheduledModelPortList::toValue(Context *context) const {
    return mValid
               ? PureValueRef(PureTupleValue::get(A_SCHEDULED_MODEL_PORTLIST_TAG, PureTupleValue::get(mInputs, context),
                                                  PureTupleValue::get(mOutputs, context), context))
               : PureValueRef();
}

ScheduledModelPortList ScheduledModelPortList::fromValue(const PureValueRef &value) {
    const std::optional<TaggedPair> names = taggedPair(A_SCHEDULED_MODEL_PORTLIST_TAG, value);
    if (!names) {
        return {};
    }
    return {{names->inputs->begin(), names->inputs->end()}, {names->outputs->begin(), names->outputs->end()}};
}

PureValueRef ScheduledModelTypes::toValue(Context *context) const {
    return mTypes.toValue(A_SCHEDULED_MODEL_TYPES_TAG, context);
}

ScheduledModelTypes ScheduledModelTypes::fromValue(const PureValueRef &value) {
    return ScheduledModelTypes(internal::BoundaryValues::fromValue(A_SCHEDULED_MODEL_TYPES_TAG, value));
}

PureValueRef ScheduledModelDomains::toValue(Context *context) const {
    return mDomains.toValue(A_SCHEDULED_MODEL_DOMAINS_TAG, context);
}

ScheduledModelDomains ScheduledModelDomains::fromValue(const PureValueRef &value) {
    return ScheduledModelDomains(internal::BoundaryValues::fromValue(A_SCHEDULED_MODEL_DOMAINS_TAG, value));
}

ScheduledModelTimesteps::ScheduledModelTimesteps(Map inputs, Map outputs)
    : mValid(!hasNullName(inputs) && !hasNullName(outputs)), mInputs(std::move(inputs)), mOutputs(std::move(outputs)) {}

int ScheduledModelTimesteps::lookUp(const Map &map, const PureValueRef &name) {
    const auto hit = map.find(name);
    return hit == map.end() ? 0 : hit->second;
}

PureValueRef ScheduledModelTimesteps::toValue(Context *context) const {
    return mValid ? PureValueRef(PureTupleValue::get(A_SCHEDULED_MODEL_TIMESTEPS_TAG, timesToValue(mInputs, context),
                                                     timesToValue(mOutputs, context), context))
                  : PureValueRef();
}

ScheduledModelTimesteps ScheduledModelTimesteps::fromValue(const PureValueRef &value) {
    const std::optional<TaggedPair> pair = taggedPair(A_SCHEDULED_MODEL_TIMESTEPS_TAG, value);
    if (!pair) {
        return {};
    }
    auto inputs = readTimes(*pair->inputs);
    auto outputs = readTimes(*pair->outputs);
    return inputs && outputs ? ScheduledModelTimesteps(std::move(*inputs), std::move(*outputs))
                             : ScheduledModelTimesteps();
}

StallLatencyReport StallLatencyReport::createStallLatencyReport(int upstream, int downstream,
                                                                const std::map<std::string, int> &almostFullOrEmpty) {
    StallLatencyReport report;
    report.mValid = true;
    report.mUpstream = upstream;
    report.mDownstream = downstream;
    report.mAlmostFullOrEmpty = almostFullOrEmpty;
    return report;
}

int StallLatencyReport::getAlmostFullOrEmptyValue(const std::string &key) const {
    const auto hit = mAlmostFullOrEmpty.find(key);
    return hit == mAlmostFullOrEmpty.end() ? 0 : hit->second;
}

PureValueRef StallLatencyReport::toValue(Context *context) const {
    if (!mValid) {
        return {};
    }
    std::vector<PureValueRef> pairs;
    for (const auto &[key, mark] : mAlmostFullOrEmpty) {
        pairs.emplace_back(
            PureTupleValue::get(StringValue::get(key, context), NumberValue::get(mark, context), context));
    }
    return PureTupleValue::get(NumberValue::get(mUpstream, context), NumberValue::get(mDownstream, context),
                               PureTupleValue::get(pairs, context), context);
}

StallLatencyReport StallLatencyReport::fromValue(const PureValueRef &value) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    if (!tuple || tuple->size() != 3) {
        return {};
    }
    const std::optional<int> upstream = readInteger(tuple->at(0));
    const std::optional<int> downstream = readInteger(tuple->at(1));
    const PureTupleValueRef pairs = pureTupleVR(tuple->at(2));
    std::map<std::string, int> marks;
    const auto addMark = [&marks](const PureValueRef &key, const PureValueRef &mark) {
        const StringValueRef text = stringVR(key);
        const std::optional<int> number = readInteger(mark);
        return text && number && marks.emplace(text->str(), *number).second;
    };
    if (!upstream || !downstream || !pairs || !readPairs(*pairs, addMark)) {
        return {};
    }
    return createStallLatencyReport(*upstream, *downstream, marks);
}

/// What all copies of a handle share.
struct ScheduledModelHandleInternal {
    PureValueRef generationInfo;
    ScheduledModelPortList ports;
    ScheduledModelTypes types;
    ScheduledModelDomains domains;
    ScheduledModelTimesteps timesteps;
    UnrollMappings inputMappings;
    UnrollMappings outputMappings;
    StallLatencyReport stallLatencies;
    std::optional<ScheduledModelTypes> originalTypes;
    std::optional<ScheduledModelDomains> originalDomains;

    bool isWhole() const {
        return generationInfo && ports.valid() && types.valid() && domains.valid() && timesteps.valid() &&
               inputMappings.valid() && outputMappings.valid() && stallLatencies.valid() &&
               (!originalTypes || originalTypes->valid()) && (!originalDomains || originalDomains->valid());
    }
    bool operator==(const ScheduledModelHandleInternal &other) const {
        return generationInfo == other.generationInfo && ports == other.ports && types == other.types &&
               domains == other.domains && timesteps == other.timesteps && inputMappings == other.inputMappings &&
               outputMappings == other.outputMappings && stallLatencies == other.stallLatencies &&
               originalTypes == other.originalTypes && originalDomains == other.originalDomains;
    }
    /// A pair behind the parts that every handle has. False for an unknown tag and for what was told before.
    bool readOption(const PureValueRef &tag, const PureValueRef &value) {
        if (tag == A_SCHEDULED_MODEL_HANDLE_ORIGINALTYPES_TAG && !originalTypes) {
            originalTypes = ScheduledModelTypes::fromValue(value);
            return true;
        }
        if (tag == A_SCHEDULED_MODEL_HANDLE_ORIGINALDOMAINS_TAG && !originalDomains) {
            originalDomains = ScheduledModelDomains::fromValue(value);
            return true;
        }
        return false;
    }
};

namespace {

constexpr std::size_t kFirstOption = 9;
constexpr std::size_t kMostElements = 13;

} // namespace

ScheduledModelHandle ScheduledModelHandle::createScheduledModelHandle(const PureValueRef &generationInfo,
                                                                      const ScheduledModelPortList &ports,
                                                                      const ScheduledModelTypes &types,
                                                                      const ScheduledModelDomains &domains,
                                                                      const ScheduledModelTimesteps &timesteps,
                                                                      const StallLatencyReport &stallLatencies) {
    ScheduledModelHandle handle;
    handle.mInternal = std::make_shared<ScheduledModelHandleInternal>();
    handle.mInternal->generationInfo = generationInfo;
    handle.mInternal->ports = ports;
    handle.mInternal->types = types;
    handle.mInternal->domains = domains;
    handle.mInternal->timesteps = timesteps;
    handle.mInternal->stallLatencies = stallLatencies;
    return handle;
}

bool ScheduledModelHandle::operator==(const ScheduledModelHandle &other) const {
    return mInternal == other.mInternal || (valid() && other.valid() && *mInternal == *other.mInternal);
}

PureValueRef ScheduledModelHandle::toValue(Context *context) const {
    if (!valid() || !mInternal->isWhole()) {
        return {};
    }
    const ScheduledModelHandleInternal &record = *mInternal;
    std::vector<PureValueRef> elements{A_SCHEDULED_MODEL_HANDLE_TAG,          record.generationInfo,
                                       record.ports.toValue(context),         record.types.toValue(context),
                                       record.domains.toValue(context),       record.timesteps.toValue(context),
                                       record.inputMappings.toValue(context), record.outputMappings.toValue(context),
                                       record.stallLatencies.toValue(context)};
    if (record.originalTypes) {
        elements.insert(elements.end(),
                        {A_SCHEDULED_MODEL_HANDLE_ORIGINALTYPES_TAG, record.originalTypes->toValue(context)});
    }
    if (record.originalDomains) {
        elements.insert(elements.end(),
                        {A_SCHEDULED_MODEL_HANDLE_ORIGINALDOMAINS_TAG, record.originalDomains->toValue(context)});
    }
    return PureTupleValue::get(elements, context);
}

ScheduledModelHandle ScheduledModelHandle::fromValue(const PureValueRef &value) {
    const PureTupleValueRef tuple = pureTupleVR(value);
    // What comes behind the parts comes in pairs.
    if (!tuple || tuple->size() < kFirstOption || tuple->size() > kMostElements ||
        (tuple->size() - kFirstOption) % 2 != 0 || !(tuple->at(0) == A_SCHEDULED_MODEL_HANDLE_TAG)) {
        return {};
    }
    ScheduledModelHandle handle = createScheduledModelHandle(
        tuple->at(1), ScheduledModelPortList::fromValue(tuple->at(2)), ScheduledModelTypes::fromValue(tuple->at(3)),
        ScheduledModelDomains::fromValue(tuple->at(4)), ScheduledModelTimesteps::fromValue(tuple->at(5)),
        StallLatencyReport::fromValue(tuple->at(8)));
    ScheduledModelHandleInternal &record = *handle.mInternal;
    record.inputMappings = UnrollMappings::fromValue(tuple->at(6));
    record.outputMappings = UnrollMappings::fromValue(tuple->at(7));
    for (std::size_t i = kFirstOption; i < tuple->size(); i += 2) {
        if (!record.readOption(tuple->at(i), tuple->at(i + 1))) {
            return {};
        }
    }
    return record.isWhole() ? handle : ScheduledModelHandle();
}

ScheduledModelHandleInternal &ScheduledModelHandle::record() const {
    ORVO_ASSERT(valid(), "an invalid handle of a scheduled model is asked");
    return *mInternal;
}

const PureValueRef &ScheduledModelHandle::getGenerationInfoValue() const { return record().generationInfo; }

const std::vector<PureValueRef> &ScheduledModelHandle::getInputNames() const { return record().ports.getInputNames(); }

const std::vector<PureValueRef> &ScheduledModelHandle::getOutputNames() const {
    return record().ports.getOutputNames();
}

int ScheduledModelHandle::getInputTimestep(const PureValueRef &name) const {
    return record().timesteps.getInputTimestep(name);
}

int ScheduledModelHandle::getOutputTimestep(const PureValueRef &name) const {
    return record().timesteps.getOutputTimestep(name);
}

const ScheduledModelTypes &ScheduledModelHandle::getScheduledModelTypes() const { return record().types; }

const ScheduledModelDomains &ScheduledModelHandle::getScheduledModelDomains() const { return record().domains; }

const ScheduledModelTypes *ScheduledModelHandle::getOriginalModelTypes() const {
    const auto &types = record().originalTypes;
    return types ? &*types : nullptr;
}

const ScheduledModelDomains *ScheduledModelHandle::getOriginalModelDomains() const {
    const auto &domains = record().originalDomains;
    return domains ? &*domains : nullptr;
}

const StallLatencyReport &ScheduledModelHandle::getStallLatencyReport() const { return record().stallLatencies; }

const UnrollMappings &ScheduledModelHandle::getInputUnrollMappings() const { return record().inputMappings; }

const UnrollMappings &ScheduledModelHandle::getOutputUnrollMappings() const { return record().outputMappings; }

void ScheduledModelHandle::setOriginalModelTypes(const ScheduledModelTypes &types) { record().originalTypes = types; }

void ScheduledModelHandle::setOriginalModelDomains(const ScheduledModelDomains &domains) {
    record().originalDomains = domains;
}

void ScheduledModelHandle::setInputUnrollMappings(const UnrollMappings &mappings) { record().inputMappings = mappings; }

void ScheduledModelHandle::setOutputUnrollMappings(const UnrollMappings &mappings) {
    record().outputMappings = mappings;
}

PureValueRef ScheduledModelHandle::getCompoundInputIndexName(const PureValueRef &name,
                                                             const CompoundDecorIndex &index) const {
    return getInputUnrollMappings().getUnrolledPortName(name, index);
}

PureValueRef ScheduledModelHandle::getCompoundOutputIndexName(const PureValueRef &name,
                                                              const CompoundDecorIndex &index) const {
    return getOutputUnrollMappings().getUnrolledPortName(name, index);
}

} // namespace orvo
