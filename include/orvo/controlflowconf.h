// How far a model is told apart into signals of control, which a reset has to settle, and of data, which need none.
#pragma once

#include <orvo/api.h>

namespace orvo {

class Model;

/// The settings of one model. Each is worked out from the design, the model and its device, unless the feature of its
/// name is set.
struct ORVO_API ControlFlowConf {
    bool controlFlow = true;
    bool controlFlowPermissive = false;
    bool controlFlowChannel = false;
    bool dataFlowGPIO = false;
    bool delayMemResetFree = false;
    bool submodelFloatIsDataFlow = false;
    /// Cycles, at least 1.
    int minResetPulseWidth = 1;
    bool controlFlowPhasing = true;
    bool controlFlowRegPhasing = true;
    bool controlFlowFIR = false;
    bool controlFlowStats = false;

    /// A pulse width that is no integer, or below 1, is an assertion.
    void setFromModel(const Model &model);
    bool operator==(const ControlFlowConf &other) const = default;
};

} // namespace orvo
