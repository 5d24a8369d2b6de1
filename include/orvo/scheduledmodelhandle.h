// What a design needs to know of a model that was scheduled and generated elsewhere and comes back as one opaque block:
// the value of `A_SCHEDULED_MODEL_VALUE`, read and written. What is malformed reads as an invalid object, and an
// invalid object is written as null.
#pragma once

#include <orvo/unrollmappings.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

namespace internal {

/// A value for each port at a boundary, as the types and the domains are.
class ORVO_API BoundaryValues {
  public:
    using Map = std::map<PureValueRef, PureValueRef>;
    BoundaryValues() = default;
    BoundaryValues(Map inputs, Map outputs);
    bool valid() const { return mValid; }
    bool operator==(const BoundaryValues &other) const {
        return mValid == other.mValid && mInputs == other.mInputs && mOutputs == other.mOutputs;
    }
    PureValueRef input(const PureValueRef &name) const { return lookUp(mInputs, name); }
    PureValueRef output(const PureValueRef &name) const { return lookUp(mOutputs, name); }
    PureValueRef toValue(const StaticString &tag, Context *context) const;
    static BoundaryValues fromValue(const StaticString &tag, const PureValueRef &value);

  private:
    static PureValueRef lookUp(const Map &map, const PureValueRef &name);
    bool mValid = false;
    Map mInputs;
    Map mOutputs;
};

} // namespace internal

/// The names of the ports, in order.
class ORVO_API ScheduledModelPortList {
  public:
    /// Invalid.
    ScheduledModelPortList() = default;
    /// Invalid if a name is null.
    ScheduledModelPortList(std::vector<PureValueRef> inputs, std::vector<PureValueRef> outputs);
    bool valid() const { return mValid; }
    const std::vector<PureValueRef> &getInputNames() const { return mInputs; }
    const std::vector<PureValueRef> &getOutputNames() const { return mOutputs; }
    bool operator==(const ScheduledModelPortList &other) const {
        return mValid == other.mValid && mInputs == other.mInputs && mOutputs == other.mOutputs;
    }
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    static ScheduledModelPortList fromValue(const PureValueRef &value);

  private:
    bool mValid = false;
    std::vector<PureValueRef> mInputs;
    std::vector<PureValueRef> mOutputs;
};

/// The types of the ports.
class ORVO_API ScheduledModelTypes {
  public:
    using Map = std::map<PureValueRef, PureValueRef>;
    /// Invalid.
    ScheduledModelTypes() = default;
    /// Invalid if a name or a type is null.
    static ScheduledModelTypes createScheduledModelTypes(const Map &inputs, const Map &outputs) {
        return ScheduledModelTypes(internal::BoundaryValues(inputs, outputs));
    }
    bool valid() const { return mTypes.valid(); }
    /// Null for an unknown name.
    PureValueRef getInputPortType(const PureValueRef &name) const { return mTypes.input(name); }
    PureValueRef getOutputPortType(const PureValueRef &name) const { return mTypes.output(name); }
    bool operator==(const ScheduledModelTypes &other) const { return mTypes == other.mTypes; }
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    static ScheduledModelTypes fromValue(const PureValueRef &value);

  private:
    explicit ScheduledModelTypes(internal::BoundaryValues types) : mTypes(std::move(types)) {}
    internal::BoundaryValues mTypes;
};

/// The domains of the ports.
class ORVO_API ScheduledModelDomains {
  public:
    using Map = std::map<PureValueRef, PureValueRef>;
    /// Invalid.
    ScheduledModelDomains() = default;
    /// Invalid if a name or a domain is null.
    static ScheduledModelDomains createScheduledModelDomains(const Map &inputs, const Map &outputs) {
        return ScheduledModelDomains(internal::BoundaryValues(inputs, outputs));
    }
    bool valid() const { return mDomains.valid(); }
    /// Null for an unknown name.
    PureValueRef getInputPortDomain(const PureValueRef &name) const { return mDomains.input(name); }
    PureValueRef getOutputPortDomain(const PureValueRef &name) const { return mDomains.output(name); }
    bool operator==(const ScheduledModelDomains &other) const { return mDomains == other.mDomains; }
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    static ScheduledModelDomains fromValue(const PureValueRef &value);

  private:
    explicit ScheduledModelDomains(internal::BoundaryValues domains) : mDomains(std::move(domains)) {}
    internal::BoundaryValues mDomains;
};

/// When each input is taken and each output given, in cycles from the model's start.
class ORVO_API ScheduledModelTimesteps {
  public:
    using Map = std::map<PureValueRef, int>;
    /// Invalid.
    ScheduledModelTimesteps() = default;
    /// Invalid if a name is null.
    ScheduledModelTimesteps(Map inputs, Map outputs);
    bool valid() const { return mValid; }
    /// 0 for an unknown name.
    int getInputTimestep(const PureValueRef &name) const { return lookUp(mInputs, name); }
    int getOutputTimestep(const PureValueRef &name) const { return lookUp(mOutputs, name); }
    bool operator==(const ScheduledModelTimesteps &other) const {
        return mValid == other.mValid && mInputs == other.mInputs && mOutputs == other.mOutputs;
    }
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    static ScheduledModelTimesteps fromValue(const PureValueRef &value);

  private:
    static int lookUp(const Map &map, const PureValueRef &name);
    bool mValid = false;
    Map mInputs;
    Map mOutputs;
};

/// How long the model takes to stall, in cycles, and the marks at which its queues count as almost full or empty, in
/// entries by the name of the queue.
class ORVO_API StallLatencyReport {
  public:
    /// Invalid.
    StallLatencyReport() = default;
    static StallLatencyReport createStallLatencyReport(int upstream, int downstream,
                                                       const std::map<std::string, int> &almostFullOrEmpty);
    bool valid() const { return mValid; }
    int getInternalUpstreamLatency() const { return mUpstream; }
    int getInternalDownstreamLatency() const { return mDownstream; }
    /// 0 for an unknown key.
    int getAlmostFullOrEmptyValue(const std::string &key) const;
    bool operator==(const StallLatencyReport &other) const {
        return mValid == other.mValid && mUpstream == other.mUpstream && mDownstream == other.mDownstream &&
               mAlmostFullOrEmpty == other.mAlmostFullOrEmpty;
    }
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    static StallLatencyReport fromValue(const PureValueRef &value);

  private:
    bool mValid = false;
    int mUpstream = 0;
    int mDownstream = 0;
    std::map<std::string, int> mAlmostFullOrEmpty;
};

struct ScheduledModelHandleInternal;

/// The record of a scheduled model. Copies share one record, so that what is set through one is seen through all; who
/// sets something writes the value back to the block. All but `valid` and `toValue` need a valid handle.
class ORVO_API ScheduledModelHandle {
  public:
    /// Invalid.
    ScheduledModelHandle() = default;
    /// With empty unroll mappings. `generationInfo` is the generator's own and not looked at. A handle made with a part
    /// that is null or invalid has no value.
    static ScheduledModelHandle
    createScheduledModelHandle(const PureValueRef &generationInfo, const ScheduledModelPortList &ports,
                               const ScheduledModelTypes &types, const ScheduledModelDomains &domains,
                               const ScheduledModelTimesteps &timesteps, const StallLatencyReport &stallLatencies);
    bool valid() const { return mInternal != nullptr; }
    /// Whether the records are equal; all invalid handles are.
    bool operator==(const ScheduledModelHandle &other) const;
    PureValueRef toValue(Context *context = ContextMgr::getThreadContext()) const;
    static ScheduledModelHandle fromValue(const PureValueRef &value);

    const PureValueRef &getGenerationInfoValue() const;
    const std::vector<PureValueRef> &getInputNames() const;
    const std::vector<PureValueRef> &getOutputNames() const;
    /// 0 for an unknown name.
    int getInputTimestep(const PureValueRef &name) const;
    int getOutputTimestep(const PureValueRef &name) const;
    const ScheduledModelTypes &getScheduledModelTypes() const;
    const ScheduledModelDomains &getScheduledModelDomains() const;
    /// Of the model before its compound signals were taken apart; null if not set, owned by the record.
    const ScheduledModelTypes *getOriginalModelTypes() const;
    const ScheduledModelDomains *getOriginalModelDomains() const;
    const StallLatencyReport &getStallLatencyReport() const;
    const UnrollMappings &getInputUnrollMappings() const;
    const UnrollMappings &getOutputUnrollMappings() const;
    void setOriginalModelTypes(const ScheduledModelTypes &types);
    void setOriginalModelDomains(const ScheduledModelDomains &domains);
    void setInputUnrollMappings(const UnrollMappings &mappings);
    void setOutputUnrollMappings(const UnrollMappings &mappings);
    /// The port that one part of a compound port has become; null if the mappings do not tell.
    PureValueRef getCompoundInputIndexName(const PureValueRef &name, const CompoundDecorIndex &index) const;
    PureValueRef getCompoundOutputIndexName(const PureValueRef &name, const CompoundDecorIndex &index) const;

  private:
    ScheduledModelHandleInternal &record() const;
    std::shared_ptr<ScheduledModelHandleInternal> mInternal;
};

} // namespace orvo
