// QueryPoint, a point of a design whose latency can be asked for and that can be named across rewrites: a pin of a
// model or an end of an external interface block, in one instance.
#pragma once

#include <orvo/model.h>
#include <orvo/port.h>

#include <memory>

namespace orvo {

enum QueryPointType : unsigned int {
    QP_TYPE_MODEL_BOUNDARY = 0,
    QP_TYPE_EXT_IP_BLOCK_INPUT,
    QP_TYPE_EXT_IP_BLOCK_OUTPUT,
};

enum class IoType { Input, Output };

/// Whether a pin's name is the one from before the unrolling of compound signals or from after it.
enum class UnrollingState { PreUnrolling, PostUnrolling };

/// What a point is beside its place.
struct ORVO_API QPInfo {
    virtual ~QPInfo();
};

/// A pin of a model: the wire of its input block or the port of its output block.
struct ORVO_API QPInfoModelIO final : QPInfo {
    QPInfoModelIO(PureValueRef key, IoType type, UnrollingState state)
        : name(std::move(key)), ioType(type), unrollingState(state) {}
    PureValueRef name;
    IoType ioType;
    UnrollingState unrollingState;
};

/// A port or wire of an external interface block.
struct ORVO_API QPInfoExtIpBlockIO final : QPInfo {
    QPInfoExtIpBlockIO(const Block &owner, PureValueRef key) : block(&owner), name(std::move(key)) {}
    const Block *block;
    PureValueRef name;
};

/// A point whose pin is missing, or whose block is no external interface, is reported, and is made all the same.
class ORVO_API QueryPoint {
  public:
    QueryPoint(const Model &model, const RefChain &refChain, const PureValueRef &name, IoType ioType,
               UnrollingState unrollingState);
    QueryPoint(const Port &port, const RefChain &refChain);
    QueryPoint(const Wire &wire, const RefChain &refChain);
    ~QueryPoint();
    QueryPoint(QueryPoint &&) noexcept;
    QueryPoint &operator=(QueryPoint &&) noexcept;

    const Model &getModel() const { return *mModel; }
    QueryPointType getQueryPointType() const { return mQueryPointType; }
    const RefChain &getRefChain() const { return mRefChain; }
    /// Of a pin of a model only.
    const QPInfoModelIO &getModelIOInfo() const;
    /// Of an end of an external interface block only.
    const QPInfoExtIpBlockIO &getExtIpIOInfo() const;

  private:
    QueryPoint(QueryPointType type, const Block &block, const PureValueRef &name, const RefChain &refChain);

    QueryPointType mQueryPointType;
    const Model *mModel;
    RefChain mRefChain;
    std::unique_ptr<QPInfo> mInfo;
};

} // namespace orvo
