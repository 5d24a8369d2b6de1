// Noting the types of wires whose readers go, and pinning those that are lost with them.
#include "orvo/readertypes.h"

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo::internal {

namespace {

/// Whether it matters to anybody what the wire carries. An input of the whole design that nobody reads tells something
/// to those outside, if it is to be written out.
bool tellsAnybody(const Wire &wire) {
    const Block &driver = wire.getBlock();
    const Model &model = driver.getModel();
    return wire.port_size() != 0 || driver.type() != A_INPUT_BLOCK.get_ptr() || !model.getParentBlocks().empty() ||
           model.findParam(A_SYNTH_OUTPUT_MODE) != nullptr;
}

} // namespace

bool mayTellTypes(const Block &block) {
    static const std::unordered_set<const Value *> silent = [] {
        std::unordered_set<const Value *> types;
        for (const StaticString *type : {&A_ABS_BLOCK,         &A_ADDSUB_BLOCK,
                                         &A_ADD_BLOCK,         &A_ADD_REDUCE_BLOCK,
                                         &A_AND_BLOCK,         &A_AND_REDUCE_BLOCK,
                                         &A_APACK_BLOCK,       &A_AUNPACK_BLOCK,
                                         &A_BARREL_LEFT_BLOCK, &A_BARREL_RIGHT_BLOCK,
                                         &A_BIT_SELECT_BLOCK,  &A_CAST_BLOCK,
                                         &A_CMP_EQ_BLOCK,      &A_CMP_GE_BLOCK,
                                         &A_CMP_LT_BLOCK,      &A_CMP_NE_BLOCK,
                                         &A_CONSTMULT_BLOCK,   &A_CONST_BLOCK,
                                         &A_COUNTER_BLOCK,     &A_CPACK_BLOCK,
                                         &A_CUNPACK_BLOCK,     &A_DELAY_BLOCK,
                                         &A_DIVIDE_BLOCK,      &A_MAX_BLOCK,
                                         &A_MIN_BLOCK,         &A_MULT_BLOCK,
                                         &A_MUX_BLOCK,         &A_NAND_BLOCK,
                                         &A_NAND_REDUCE_BLOCK, &A_NEG_BLOCK,
                                         &A_NOR_BLOCK,         &A_NOR_REDUCE_BLOCK,
                                         &A_NOT_BLOCK,         &A_OR_BLOCK,
                                         &A_OR_REDUCE_BLOCK,   &A_RAW_SHIFT_BLOCK,
                                         &A_REGISTER_BLOCK,    &A_SCALAR_PRODUCT_BLOCK,
                                         &A_SELECT_BLOCK,      &A_SIGNAL_IN_BLOCK,
                                         &A_SIGNAL_OUT_BLOCK,  &A_SUB_BLOCK,
                                         &A_TERMINAL_BLOCK,    &A_VPACK_BLOCK,
                                         &A_VUNPACK_BLOCK,     &A_XNOR_BLOCK,
                                         &A_XNOR_REDUCE_BLOCK, &A_XOR_BLOCK,
                                         &A_XOR_REDUCE_BLOCK}) {
            types.insert(type->get_ptr());
        }
        return types;
    }();
    return block.port_size() != 0 && silent.count(block.type()) == 0;
}

void hangTypePin(Wire &wire, const PureValueRef &type) {
    Block &driver = wire.getBlock();
    Context *context = driver.getContext();
    const PureValueRef key = NumberValue::get(0, context);
    const PureValueRef name =
        PureTupleValue::get({driver.getName(), StringValue::get("typePin", context), wire.getName()}, context);
    Block &made = *Block::create(driver.getModel(), name);
    made.setParam(A_BLOCK_TYPE, A_TYPE_PIN_BLOCK);
    made.setParam(A_TYPE_PIN_TYPE, ValueRef(type));
    made.setParam(key, wire);
    Wire::create(made, key);
}

/// Of its own, and of the netlist as it is: passes that rarely ask are not to require others.
struct ReaderTypes::Answers {
    GlobalTypePass types;
    ModelTreePass tree;
    DistinctInstances distinct{tree, types};
    std::unordered_map<const Model *, std::vector<RefChain>> instances;

    const std::vector<RefChain> &instancesOf(Model &model) {
        const auto [at, isNew] = instances.try_emplace(&model);
        if (isNew) {
            at->second = distinct.of(model);
        }
        return at->second;
    }
};

ReaderTypes::ReaderTypes() = default;

ReaderTypes::~ReaderTypes() = default;

void ReaderTypes::note(Model &model, const std::vector<Block *> &going) {
    if (std::none_of(going.begin(), going.end(), [](const Block *block) { return mayTellTypes(*block); })) {
        return;
    }
    if (!mBefore) {
        mBefore = std::make_unique<Answers>();
    }
    const std::unordered_set<const Block *> gone(going.begin(), going.end());
    for (const Block *block : going) {
        for (const Port &port : block->ports()) {
            Wire &wire = *port.getWire();
            const bool stays = &wire.getBlock().getModel() == &model && gone.count(&wire.getBlock()) == 0;
            if (!stays || !mSeen.insert(&wire).second) {
                continue;
            }
            if (const PureValueRef type = typeInAll(wire, mBefore->instancesOf(model), mBefore->types)) {
                mNoted.push_back({&wire, type});
            }
        }
    }
}

void ReaderTypes::restore() {
    if (mNoted.empty()) {
        return;
    }
    // Instances may have gone, too.
    mBefore.reset();
    Answers after;
    std::erase_if(mNoted, [&](const Noted &noted) {
        const Wire &wire = *noted.wire;
        const std::vector<RefChain> &instances = after.instancesOf(wire.getBlock().getModel());
        return !tellsAnybody(wire) || std::all_of(instances.begin(), instances.end(), [&](const RefChain &instance) {
            return after.types.getType(wire, instance);
        });
    });
    for (const Noted &noted : mNoted) {
        hangTypePin(*noted.wire, noted.type);
    }
    mNoted.clear();
}

} // namespace orvo::internal
