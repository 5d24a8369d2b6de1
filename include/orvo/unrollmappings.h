// Which port stands for which part of which port of before, once compound signals have been taken apart, and where
// passes keep that for each model.
#pragma once

#include <orvo/compoundtypeinfo.h>
#include <orvo/pass.h>

#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

namespace orvo {

/// For each original port, the ports that its parts have become. Empty and valid at first; only a malformed tuple gives
/// invalid ones.
class ORVO_API UnrollMappings {
  public:
    /// The new ports of one original port, by the path of the part.
    using Parts = std::map<CompoundDecorIndex, PureValueRef>;
    using PortMapping = std::map<PureValueRef, Parts, DeepValueCmp>;

    bool valid() const { return mValid; }
    bool empty() const { return mPortMapping.empty(); }
    const PortMapping &portMapping() const { return mPortMapping; }
    bool operator==(const UnrollMappings &other) const {
        return mValid == other.mValid && mPortMapping == other.mPortMapping;
    }
    bool operator!=(const UnrollMappings &other) const { return !(*this == other); }

    /// Naming another new port for the same part than before is an assertion, as are null names and an invalid index.
    /// A part that is mapped whole must not be mapped in parts as well; the value of such mappings is not read back.
    void addMapping(const PureValueRef &originalPortName, const CompoundDecorIndex &index,
                    const PureValueRef &mappedPortName);
    /// Null for a part that is not mapped.
    PureValueRef getUnrolledPortName(const PureValueRef &portName, const CompoundDecorIndex &index) const;
    /// In the order of the paths; empty for a port that is not mapped.
    std::vector<PureValueRef> getUnrolledPortNameList(const PureValueRef &portName) const;
    /// Whether something has become this port.
    bool isMappedName(const PureValueRef &name) const { return mMappedNames.count(name) != 0; }

    /// This unrolling, and behind it `later`, which names the ports as this one leaves them: the two as one. Invalid if
    /// either is or could not be read back, and if `later` maps a port that this one has taken away.
    UnrollMappings operator<<(const UnrollMappings &later) const;

    /// Null if invalid.
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    /// A port that is told twice or without parts is malformed, too, as is a part told twice or beside parts of itself.
    static UnrollMappings fromValue(const PureValueRef &value);

  private:
    static UnrollMappings invalid();
    bool addFromValue(const PureValueRef &entry);

    bool mValid = true;
    PortMapping mPortMapping;
    std::set<PureValueRef> mMappedNames;
};

/// What the passes that take model boundaries apart leave for each other: the mappings of each model's inputs and
/// outputs. Forgets a model that dies.
class ORVO_API BoundaryUnrollMappingStateItem final : public PassSchedulerStateItem {
  public:
    BoundaryUnrollMappingStateItem();
    ~BoundaryUnrollMappingStateItem() override;
    BoundaryUnrollMappingStateItem(const BoundaryUnrollMappingStateItem &) = delete;
    BoundaryUnrollMappingStateItem &operator=(const BoundaryUnrollMappingStateItem &) = delete;

    /// The item of a run; null if there is none.
    static BoundaryUnrollMappingStateItem *find(const PassContext &context);
    /// The same, made if there is none; null only if the run keeps no state.
    static BoundaryUnrollMappingStateItem *findOrCreate(const PassContext &context);

    /// Empty mappings for an unknown model. Valid until the entry is replaced or its model dies.
    const UnrollMappings &getInputUnrollMapping(const Model &model) const;
    const UnrollMappings &getOutputUnrollMapping(const Model &model) const;
    void setInputUnrollMapping(const Model &model, const UnrollMappings &mappings);
    void setOutputUnrollMapping(const Model &model, const UnrollMappings &mappings);

  private:
    using ByModel = std::unordered_map<const Model *, UnrollMappings>;
    static const UnrollMappings &lookUp(const ByModel &mappings, const Model &model);
    void onModelDying(Model &model);
    void onDesignDying(Design &design);
    void watch(Design &design);
    void unhook(Design &design);

    ByModel mInputs;
    ByModel mOutputs;
    std::set<Design *> mWatched;
};

} // namespace orvo
