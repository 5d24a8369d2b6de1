// Looks for a block that needs more than logic around it.
#include "orvo/analysedesignpass.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/synthesis_options.h>

#include <algorithm>
#include <iterator>
#include <unordered_set>

namespace orvo {

ORVO_DEFINE_PASS(AnalyseDesignPass,
                 "Where the design leaves open what is to be wrapped around it (A_LIB_WRAPPER_TYPE is "
                 "A_LIB_WRAPPER_TYPE_AUTOMATIC), says so: \"libWrapperTypeFull\" if the design has a delay, a memory, "
                 "a counter, a filter, an oscillator, a transform or another block of those that need clock, reset and "
                 "schedule around them, else \"libWrapperTypeCombinatorial\". Registers alone do not count. Changes "
                 "nothing else.")

namespace {

constexpr const StaticString *kNeedFullWrapper[] = {
    &A_ACC_BLOCK,
    &A_FIR_BLOCK,
    &A_NCO_BLOCK,
    &A_DELAY_BLOCK,
    &A_DUAL_MEM_BLOCK,
    &A_FIFO_BLOCK,
    &A_LOOP_BLOCK,
    &A_CIC_BLOCK,
    &A_COUNTER_BLOCK,
    &A_FLOAT_MULTACC_BLOCK,
    &A_SEQUENCE_BLOCK,
    &A_LATCH_0L_BLOCK,
    &A_TRIVIAL_TWIDDLE_BLOCK,
    &A_TWIDDLE_ROM_BLOCK,
    &A_VFFT2_BLOCK,
    &A_VFFT4_BLOCK,
    &A_FFT2_BLOCK,
    &A_FFT4_BLOCK,
    &A_VFFTCORE_BLOCK,
    &A_VFFT_BLOCK,
    &A_FFTCORE_BLOCK,
    &A_FFT_BLOCK,
    &A_HYBRID_FFT_BLOCK,
};

bool needsFullWrapper(const Design &design) {
    std::unordered_set<const Value *> types;
    for (const StaticString *type : kNeedFullWrapper) {
        types.insert(type->get_ptr());
    }
    return std::any_of(design.begin(), design.end(), [&types](const Model &model) {
        return std::any_of(model.begin(), model.end(),
                           [&types](const Block &block) { return types.count(block.type()) != 0; });
    });
}

} // namespace

void AnalyseDesignPass::apply(PassContext &context) {
    Design &design = context.getDesign();
    const Node *asks = nodeOfDesignOption(design, A_LIB_WRAPPER_TYPE);
    if (asks == nullptr || asks->findParam(A_LIB_WRAPPER_TYPE) != A_LIB_WRAPPER_TYPE_AUTOMATIC.get_ptr()) {
        return;
    }
    Node &asked = asks == &design ? static_cast<Node &>(design) : *design.getChild(asks->getName());
    asked.setParam(A_LIB_WRAPPER_TYPE, StringValue::get(needsFullWrapper(design) ? kFullWrapper : kCombinatorialWrapper,
                                                        design.getContext()));
}

} // namespace orvo
