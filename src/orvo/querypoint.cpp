// Making of query points, with the checks of what they name.
#include <orvo/querypoint.h>

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

namespace orvo {

QPInfo::~QPInfo() = default;

QueryPoint::QueryPoint(const Model &model, const RefChain &refChain, const PureValueRef &name, IoType ioType,
                       UnrollingState unrollingState)
    : mQueryPointType(QP_TYPE_MODEL_BOUNDARY), mModel(&model), mRefChain(refChain),
      mInfo(std::make_unique<QPInfoModelIO>(name, ioType, unrollingState)) {
    const Block *input = model.getInputBlock();
    const Block *output = model.getOutputBlock();
    if (ioType == IoType::Input && (input == nullptr || input->getWire(name) == nullptr)) {
        log::msg(msg::error::QUERY_POINT_INVALID_INPUT, log::p("model", model.value()) % log::p("inputName", name));
    }
    if (ioType == IoType::Output && (output == nullptr || output->getPort(name) == nullptr)) {
        log::msg(msg::error::QUERY_POINT_INVALID_OUTPUT, log::p("model", model.value()) % log::p("outputName", name));
    }
}

QueryPoint::QueryPoint(QueryPointType type, const Block &block, const PureValueRef &name, const RefChain &refChain)
    : mQueryPointType(type), mModel(&block.getModel()), mRefChain(refChain),
      mInfo(std::make_unique<QPInfoExtIpBlockIO>(block, name)) {
    if (block.type() != A_EXT_IFACE_BLOCK.get_ptr()) {
        log::msg(msg::error::QUERY_POINT_UNSUPPORTED_BLOCK_TYPE, log::p("blockType", block[A_BLOCK_TYPE]) %
                                                                     log::p("block", block.value()) %
                                                                     log::p("model", mModel->value()));
    }
}

QueryPoint::QueryPoint(const Port &port, const RefChain &refChain)
    : QueryPoint(QP_TYPE_EXT_IP_BLOCK_INPUT, port.getBlock(), port.getName(), refChain) {}

QueryPoint::QueryPoint(const Wire &wire, const RefChain &refChain)
    : QueryPoint(QP_TYPE_EXT_IP_BLOCK_OUTPUT, wire.getBlock(), wire.getName(), refChain) {}

QueryPoint::~QueryPoint() = default;
QueryPoint::QueryPoint(QueryPoint &&) noexcept = default;
QueryPoint &QueryPoint::operator=(QueryPoint &&) noexcept = default;

const QPInfoModelIO &QueryPoint::getModelIOInfo() const {
    ORVO_ASSERT(mQueryPointType == QP_TYPE_MODEL_BOUNDARY, "only a pin of a model has its information");
    return static_cast<const QPInfoModelIO &>(*mInfo);
}

const QPInfoExtIpBlockIO &QueryPoint::getExtIpIOInfo() const {
    ORVO_ASSERT(mQueryPointType != QP_TYPE_MODEL_BOUNDARY, "only an end of an external interface has its information");
    return static_cast<const QPInfoExtIpBlockIO &>(*mInfo);
}

} // namespace orvo
