// All questions about types come before the first edit, so that they are inferred once, and not at all for a design
// without relaxed conditions.
#include "orvo/unrelaxboolspass.h"

#include "orvo/blockbuilder.h"
#include "orvo/unrollpasses.h"
#include "orvo/vectorunrollparts.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/unrelaxbools.h>
#include <orvo/wire.h>

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace orvo {

ORVO_DEFINE_PASS(UnrelaxBoolsPass,
                 "Has blocks that take conditions of any width (A_PRIM_RELAX_BOOLS) take them as one bit: a condition "
                 "that is wider is brought to a bit that tells whether it is not zero. A block with a wide condition "
                 "that is a vector, or whose type is not known, stays as it is, and so does one whose type of block "
                 "has no rule for that, which is reported. Blocks that read one signal share its bit. Where the "
                 "catalogue knows of no conditions, the parameter says nothing and goes.")

namespace {

/// Of a block without a type nobody knows what it would take.
bool relaxesBools(const Block &block) {
    return block.type() != nullptr && block.findParam(A_PRIM_RELAX_BOOLS) == A_TRUE.get_ptr();
}

bool isOneBit(const NumTypeSpec &type) { return type.intBits() == 1 && type.fracBits() == 0; }

/// In each instance; null where it is unknown.
std::vector<PureValueRef> typesOf(const Wire &wire, const std::vector<RefChain> &instances, GlobalTypePass &types) {
    std::vector<PureValueRef> all;
    for (const RefChain &instance : instances) {
        all.push_back(types.getType(wire, instance));
    }
    return all;
}

/// Whether a block like this may have conditions, as those may that the catalogue does not know.
bool mayHaveConditions(const Block &block) {
    const BlocksInfo &catalogue = getBlocksInfo();
    const std::string *name = catalogue.findReversedMapping(block.type()->toString());
    if (name == nullptr || !catalogue.blockExists(*name)) {
        return true;
    }
    const std::vector<BlockConnection> &connections = catalogue.getBlockInfo(*name).connections;
    return std::any_of(connections.begin(), connections.end(),
                       [](const BlockConnection &one) { return one.name == "A_PRIM_RELAX_BOOLS"; });
}

/// A bit that is one where any bit of the signal is, whatever its type. Named by the end that asks for it.
Wire &anyBit(const Block &block, const PureValueRef &port, Wire &wire) {
    Context *context = block.getContext();
    const PureValueRef end = PureTupleValue::get(block.getName(), port, context);
    const auto named = [&](const char *word) -> PureValueRef {
        return PureTupleValue::get(end, StringValue::get(word, context), context);
    };
    const internal::MadeBlock bit(internal::createBeside(block, named("unrelaxReduce"), A_OR_REDUCE_BLOCK));
    bit.in(0, wire);
    const internal::MadeBlock cast(internal::createBeside(block, named("unrelaxCast"), A_CAST_BLOCK));
    cast.set(A_CAST_MODE, A_CAST_MODE_CONVERT).type(A_CAST_OUTPUT_TYPE, NumTypeSpec::boolean()).in(0, bit);
    return cast;
}

} // namespace

void UnrelaxBoolsPass::declare(PassDeclarations &declarations) { internal::declareForUnrolling(declarations); }

/// False for a block that has to stay as it is.
bool UnrelaxBoolsPass::narrow(Block &block, const UnrelaxBoolsHandler &handler, const std::vector<RefChain> &instances,
                              GlobalTypePass &types, Strict &strict) {
    for (const PureValueRef &key : handler.controlPorts(block)) {
        const Port *port = block.getPort(key);
        if (port == nullptr) {
            continue;
        }
        const std::vector<PureValueRef> all = typesOf(*port->peekWire(), instances, types);
        bool isWide = false;
        bool isVector = false;
        for (const PureValueRef &type : all) {
            const NumTypeSpec spec(type, block.getContext());
            if (!spec.isFixed() || spec.isComplex()) {
                return false;
            }
            isWide = isWide || !isOneBit(spec);
            isVector = isVector || spec.isVector();
        }
        if (isWide && isVector) {
            return false;
        }
        if (isWide) {
            strict.wide.push_back(key);
        }
        // The pulse of a sequence is the least step of its enable's type.
        if (isWide && block.type() == A_SEQUENCE_BLOCK.get_ptr()) {
            strict.outputType = all.front();
            if (std::any_of(all.begin(), all.end(), [&](const PureValueRef &type) { return !(type == all.front()); })) {
                return false;
            }
        }
    }
    return true;
}

void UnrelaxBoolsPass::before(PassContext &context) {
    GlobalTypePass &types = internal::unrolledTypes(context);
    internal::DistinctInstances distinct(internal::unrolledTree(context), types);
    std::unordered_set<const BlockClass *> missing;
    for (Model &model : context.getDesign()) {
        std::vector<RefChain> instances;
        for (Block &block : model) {
            if (!relaxesBools(block)) {
                continue;
            }
            const BlockClass *of = block.getClass();
            const auto *handler = of == nullptr ? nullptr : of->get<UnrelaxBoolsHandler>();
            if (handler == nullptr) {
                if (!mayHaveConditions(block)) {
                    mWork[&model].push_back({&block, {}, {}});
                } else if (missing.insert(of).second) {
                    log::msg(msg::warning::MISSING_UNRELAX_BOOLS_HANDLER);
                }
                continue;
            }
            if (instances.empty()) {
                instances = distinct.of(model);
            }
            Strict strict{&block, {}, {}};
            if (narrow(block, *handler, instances, types, strict)) {
                mWork[&model].push_back(std::move(strict));
            }
        }
    }
}

void UnrelaxBoolsPass::apply(ModelPassContext &context) {
    const auto work = mWork.find(&context.getModel());
    if (work == mWork.end()) {
        return;
    }
    // What blocks read says alike to all of them.
    std::unordered_map<const Wire *, Wire *> bits;
    for (const Strict &strict : work->second) {
        Block &block = *strict.block;
        for (const PureValueRef &key : strict.wide) {
            Wire &wide = *block.getPort(key)->getWire();
            const auto [bit, isNew] = bits.try_emplace(&wide, nullptr);
            if (isNew) {
                bit->second = &anyBit(block, key, wide);
            }
            block.setParam(key, *bit->second);
        }
        if (strict.outputType) {
            const NumTypeSpec read(strict.outputType, block.getContext());
            internal::BlockBuilder(block).convertOutput(A_PRIM_WIRE_OUT, "castBack", read, internal::Keep::Bits);
        }
        block.setParam(A_PRIM_RELAX_BOOLS, nullptr);
    }
}

void UnrelaxBoolsPass::after(PassContext &) { mWork.clear(); }

} // namespace orvo
