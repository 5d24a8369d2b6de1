// The device that a model is built for.
#pragma once

#include <device/device.h>

namespace orvo {

class Model;

/// The device of the model's own options (`A_SYNTH_DEVICE_FAMILY`, `..._PART` and `..._SPEED_GRADE`); of a model that
/// names neither family nor part, that of the design's options; the table's default where these name none either. Names
/// that the table of devices does not have give the default device, too, after a warning. It takes a look into the
/// table: ask once a model.
ORVO_API device::Device &getBaseDeviceFromModel(const Model &model);

} // namespace orvo
