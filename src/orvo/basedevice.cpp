// From a model's options to a device.
#include <orvo/basedevice.h>

#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/synthesis_options.h>

namespace orvo {

namespace {

bool namesDevice(const Node &node) {
    return node.findParam(A_SYNTH_DEVICE_FAMILY) != nullptr || node.findParam(A_SYNTH_DEVICE_PART) != nullptr;
}

/// Whose options tell the device. All come from one node: a part of one family and a grade of another make no device.
const Node *nodeOfDevice(const Model &model) {
    if (namesDevice(model)) {
        return &model;
    }
    const Node *family = nodeOfDesignOption(model.getDesign(), A_SYNTH_DEVICE_FAMILY);
    return family != nullptr ? family : nodeOfDesignOption(model.getDesign(), A_SYNTH_DEVICE_PART);
}

std::string textOf(const Node *node, const StaticString &key) {
    const StringValueRef text = node == nullptr ? StringValueRef() : stringVR(node->getParam(key));
    return text ? text->str() : std::string();
}

} // namespace

device::Device &getBaseDeviceFromModel(const Model &model) {
    const Node *node = nodeOfDevice(model);
    return device::deviceFactory.GetDeviceOrDefault(textOf(node, A_SYNTH_DEVICE_FAMILY),
                                                    textOf(node, A_SYNTH_DEVICE_PART),
                                                    textOf(node, A_SYNTH_DEVICE_SPEED_GRADE));
}

} // namespace orvo
