// Which models the flattening passes look at; the copying is the flattener's.
#include "orvo/flatteneverythingpass.h"

#include "orvo/flattener.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <algorithm>

namespace orvo {

ORVO_DEFINE_PASS(FlattenEverythingPass,
                 "Dissolves every sub-model but folding kernels and the models of a bus: its blocks take the place of "
                 "each block that instantiates it, and carry that block's metadata. Gotos and Froms are copied as "
                 "they are, so that ElideFromGotoPass is to run first: a warning tells of tags that others see then.")

void FlattenEverythingPass::apply(PassContext &context) {
    mDissolved.clear();
    Design &design = context.getDesign();
    internal::Flattener flattener(
        design, [&](const Model &model) { return srcPredicate(model, context); }, mDissolved);
    for (Model &model : design) {
        if (dstPredicate(model, context)) {
            flattener.flatten(model);
        }
    }
    flattener.finish();
    validateSubsystemNesting(design, context);
}

bool FlattenEverythingPass::dstPredicate(const Model &, PassContext &) { return true; }

bool FlattenEverythingPass::srcPredicate(const Model &model, PassContext &) { return mayDissolve(model); }

bool FlattenEverythingPass::mayDissolve(const Model &model) {
    return model.findParam(A_FOLDING_IS_FOLDING_KERNEL) != A_TRUE.get_ptr() &&
           std::none_of(model.begin(), model.end(), [](const Block &block) {
               return block.type() == A_BUS_IN_BLOCK.get_ptr() || block.type() == A_BUS_OUT_BLOCK.get_ptr();
           });
}

void FlattenEverythingPass::validateSubsystemNesting(const Design &, PassContext &) {}

} // namespace orvo
