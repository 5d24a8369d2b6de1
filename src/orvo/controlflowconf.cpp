// The settings from their four facts: the design's generator, the device, and what the model says of resets.
#include <orvo/controlflowconf.h>

#include <orvo/basedevice.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/synthesis_options.h>

#include <util/features.h>

#include <optional>

namespace orvo {

namespace {

/// A longer pulse lets every register in a region without a reset fill with what follows from those that have one.
constexpr int kPulseOfMinimisedReset = 1024;
/// Registers in the routing lengthen the way of the reset by one.
constexpr int kPulseWithFabricRegisters = 2;

int pulseWidth(const Model &model, bool minimisesResets, bool fabricRegisters) {
    if (model.findParam(A_MIN_RESET_PULSE_WIDTH) != nullptr) {
        const NumberValueRef given = numberVR(model[A_MIN_RESET_PULSE_WIDTH]);
        ORVO_ASSERT(given && given->isInt(), "the least width of a reset pulse is not an integer");
        return given->toInt();
    }
    return minimisesResets ? kPulseOfMinimisedReset : fabricRegisters ? kPulseWithFabricRegisters : 1;
}

} // namespace

void ControlFlowConf::setFromModel(const Model &model) {
    const bool generated = designOption(model.getDesign(), A_DESIGN_GENERATOR) == A_DESIGN_GENERATOR_IS_KELMAR;
    const bool fabricRegisters = getBaseDeviceFromModel(model).SupportsFabricRegisters();
    const Value *global = model.findParam(A_RESET_MINIMIZATION_GLOBAL_ENABLE);
    const Value *own = model.findParam(A_RESET_MINIMIZATION_MODEL_ENABLE);
    const Value *floats = model.findParam(A_RESET_MINIMIZE_FLOAT_SUBMODELS);
    const Value *yes = A_TRUE.get_ptr();
    const Value *no = A_FALSE.get_ptr();
    // What the design leaves open follows the device.
    const bool minimises = generated && own != no && (global == yes || (global != no && fabricRegisters));

    using util::GetFeatureBooleanWithDefault;
    controlFlow = GetFeatureBooleanWithDefault("controlFlow", true);
    controlFlowPermissive = GetFeatureBooleanWithDefault("controlFlowPermissive", generated);
    controlFlowChannel = GetFeatureBooleanWithDefault("controlFlowChannel", generated);
    dataFlowGPIO = GetFeatureBooleanWithDefault("dataFlowGPIO", own == yes);
    delayMemResetFree = GetFeatureBooleanWithDefault("delayMemResetFree", minimises);
    submodelFloatIsDataFlow =
        GetFeatureBooleanWithDefault("submodelFloatIsDataFlow", floats != nullptr ? floats == yes : fabricRegisters);
    // What the feature overrides need not be right.
    const std::optional<int> pulse = util::parseInteger(util::GetFeatureStringWithDefault("minResetPulseWidth", ""));
    minResetPulseWidth = pulse ? *pulse : pulseWidth(model, minimises, fabricRegisters);
    controlFlowPhasing = GetFeatureBooleanWithDefault("controlFlowPhasing", true);
    controlFlowRegPhasing = GetFeatureBooleanWithDefault("controlFlowRegPhasing", true);
    controlFlowFIR = GetFeatureBooleanWithDefault("controlFlowFIR", minimises);
    controlFlowStats = GetFeatureBooleanWithDefault("controlFlowStats", false);
    ORVO_ASSERT(minResetPulseWidth >= 1, "a reset pulse lasts less than a cycle");
}

} // namespace orvo
