// The pass that writes what type inference found onto the design.
#include "orvo/dumptypespass.h"

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <algorithm>
#include <unordered_set>

namespace orvo {

ORVO_DEFINE_PASS(DumpTypesPass,
                 "Sets the parameter A_DUMP_TYPES on each wire and on each block with ports to a text that tells their "
                 "types. A model that is used in one place is shown with its types there, any other with the types "
                 "that it has by itself.",
                 {{"P_MODEL", nullptr, "the name of the only model to look at; absent, all models"}})

namespace {

std::string shown(const PureValueRef &type) { return type ? "#=" + type->toString() + "=#" : "*INVALID*"; }

/// The way down to a model that is used in one place; empty for any other.
RefChain onlyChain(const Model &model) {
    RefChain chain;
    std::unordered_set<const Model *> passed;
    const Model *at = &model;
    while (at->getParentBlocks().size() == 1 && passed.insert(at).second) {
        const Block *parent = at->getParentBlocks().front();
        chain.push_back(parent);
        at = &parent->getModel();
    }
    if (!at->getParentBlocks().empty()) {
        return {};
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

std::string typesOfPorts(GlobalTypePass &types, const Block &block, const RefChain &chain) {
    const std::string path = block.value()->getPath();
    std::string text;
    for (const Port &port : block.ports()) {
        text += (text.empty() ? "[" : ", ") + path + "/" + port.getName()->toString() + " " +
                shown(types.getType(port, chain));
    }
    return text + "]";
}

} // namespace

void DumpTypesPass::declare(PassDeclarations &declarations) { declarations.requirePass(GlobalTypePass::sName); }

void DumpTypesPass::apply(PassContext &context) {
    auto &types = *static_cast<GlobalTypePass *>(context.getPass(GlobalTypePass::sName));
    const PureValueRef only = context.getParam(this, "P_MODEL");
    // Each parameter that is set throws the types away, so all are asked for first.
    std::vector<std::pair<Node *, std::string>> texts;
    for (Model &model : context.getDesign()) {
        if (only && !(model.getName() == only)) {
            continue;
        }
        const RefChain chain = onlyChain(model);
        for (Block &block : model) {
            for (Wire &wire : block) {
                texts.emplace_back(&wire, shown(types.getType(wire, chain)));
            }
            if (block.port_size() != 0) {
                texts.emplace_back(&block, typesOfPorts(types, block, chain));
            }
        }
    }
    for (const auto &[node, text] : texts) {
        node->setParam(A_DUMP_TYPES, StringValue::get(text, context.getDesign().getContext()));
    }
}

} // namespace orvo
