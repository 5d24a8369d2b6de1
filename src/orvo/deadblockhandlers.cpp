// The handlers, and the table of the block types that have one. A type that is not in the table is mortal.
#include "orvo/deadblockhandlers.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo {

bool DeadBlockHandler::isImmortal(const Block &) const { return false; }

bool DeadBlockHandler::isImmortal(const Block &block, bool) const { return isImmortal(block); }

bool DeadBlockHandler::isImmortalQuery(const Block &block, bool late, ImmortalModelQuery &) const {
    return isImmortal(block, late);
}

namespace {

const Model *instantiatedModel(const Block &block) { return Node::from<Model>(block[A_MODEL_NODE]); }

bool isEdge(const Block &block) {
    return block.type() == A_INPUT_BLOCK.get_ptr() || block.type() == A_OUTPUT_BLOCK.get_ptr();
}

/// Whether a model lives by a block of its own; `below` gets the models that it instantiates.
bool livesByItself(const Model &model, bool late, std::vector<const Model *> &below) {
    bool lives = false;
    for (const Block &block : model) {
        if (const Model *used = block.type() == A_MODEL_BLOCK.get_ptr() ? instantiatedModel(block) : nullptr) {
            below.push_back(used);
            continue;
        }
        const auto *handler = isEdge(block) ? nullptr : block.getClass()->get<DeadBlockHandler>();
        lives = lives || (handler != nullptr && handler->isImmortal(block, late));
    }
    return lives;
}

} // namespace

bool ImmortalModelQuery::isModelImmortal(const Model &model) {
    if (const auto known = mKnown.find(&model); known != mKnown.end()) {
        return known->second;
    }
    // The models below, each once, whatever the depth and whatever instantiates itself; then life goes up from those
    // that have it.
    std::vector<const Model *> order{&model};
    std::unordered_map<const Model *, std::vector<const Model *>> parents;
    std::vector<const Model *> immortal;
    mKnown.emplace(&model, false);
    for (std::size_t i = 0; i < order.size(); ++i) {
        const Model *at = order[i];
        std::vector<const Model *> below;
        bool lives = livesByItself(*at, mLate, below);
        for (const Model *used : below) {
            const auto [known, isNew] = mKnown.emplace(used, false);
            if (isNew) {
                order.push_back(used);
            }
            lives = lives || known->second;
            if (parents[used].empty() || parents[used].back() != at) {
                parents[used].push_back(at);
            }
        }
        if (lives) {
            mKnown[at] = true;
            immortal.push_back(at);
        }
    }
    while (!immortal.empty()) {
        const Model *at = immortal.back();
        immortal.pop_back();
        for (const Model *above : parents[at]) {
            if (!std::exchange(mKnown[above], true)) {
                immortal.push_back(above);
            }
        }
    }
    return mKnown.at(&model);
}

namespace internal {

bool UnDeadBlockHandler::isImmortal(const Block &) const { return true; }

bool UnDeadBlockHandler::isImmortal(const Block &, bool late) const { return !late; }

bool VeryUnDeadBlockHandler::isImmortal(const Block &) const { return true; }

bool ModelDeadBlockHandler::isImmortalQuery(const Block &block, bool late, ImmortalModelQuery &query) const {
    const Model *model = instantiatedModel(block);
    return model != nullptr ? query.isModelImmortal(*model) : DeadBlockHandler::isImmortalQuery(block, late, query);
}

bool TypePinDeadBlockHandler::isImmortal(const Block &block, bool late) const { return late && block.port_size() != 0; }

bool IfaceDeadBlockHandler::isImmortal(const Block &block) const {
    return !(block[A_EXT_IFACE_NO_SIDE_EFFECTS] == A_TRUE);
}

bool BusDeadBlockHandler::isImmortal(const Block &block) const {
    return !(block[A_BUS_ACCESS_MODE] == A_BUS_ACCESS_CONSTANT);
}

bool DrivenSinkDeadBlockHandler::isImmortal(const Block &block) const {
    return block.getPort(NumberValue::get(0, block.getContext())) != nullptr;
}

bool ConnectorDeadBlockHandler::isImmortal(const Block &) const { return true; }

namespace {

template <class Handler> const DeadBlockHandler *make() { return new Handler; }

struct Row {
    const StaticString *type;
    BlockModule module;
    const DeadBlockHandler *(*make)();
};

// clang-format off
constexpr Row kRows[] = {
    {&A_INPUT_BLOCK,                     BlockModule::Common, make<VeryUnDeadBlockHandler>},
    {&A_OUTPUT_BLOCK,                    BlockModule::Common, make<VeryUnDeadBlockHandler>},
    {&A_CHANNEL_IN_BLOCK,                BlockModule::Common, make<VeryUnDeadBlockHandler>},
    {&A_CHANNEL_OUT_BLOCK,               BlockModule::Common, make<VeryUnDeadBlockHandler>},
    {&A_SIGNAL_IN_BLOCK,                 BlockModule::Common, make<VeryUnDeadBlockHandler>},
    {&A_SIGNAL_OUT_BLOCK,                BlockModule::Common, make<VeryUnDeadBlockHandler>},
    {&A_MODEL_BLOCK,                     BlockModule::Common, make<ModelDeadBlockHandler>},
    {&A_TERMINAL_BLOCK,                  BlockModule::Common, make<UnDeadBlockHandler>},
    {&A_UNSCHED_BLOCK,                   BlockModule::Common, make<UnDeadBlockHandler>},
    {&A_BOUNDARY_BLOCK,                  BlockModule::Common, make<UnDeadBlockHandler>},
    {&A_FOLDING_KERNEL_BOUNDARY_BLOCK,   BlockModule::Common, make<UnDeadBlockHandler>},
    {&A_GOTO_BLOCK,                      BlockModule::Common, make<UnDeadBlockHandler>},
    {&A_TYPE_PIN_BLOCK,                  BlockModule::Prim,   make<TypePinDeadBlockHandler>},
    {&A_BUS_IN_BLOCK,                    BlockModule::Bus,    make<VeryUnDeadBlockHandler>},
    {&A_BUS_OUT_BLOCK,                   BlockModule::Bus,    make<VeryUnDeadBlockHandler>},
    {&A_BUS_SIGNALS_BLOCK,               BlockModule::Bus,    make<VeryUnDeadBlockHandler>},
    {&A_MM_REGISTER_BLOCK,               BlockModule::Bus,    make<BusDeadBlockHandler>},
    {&A_SHARED_MEM_BLOCK,                BlockModule::Bus,    make<BusDeadBlockHandler>},
    {&A_SARNET_MM_MASTER_IN_BLOCK,       BlockModule::Sarnet, make<VeryUnDeadBlockHandler>},
    {&A_SARNET_MM_MASTER_OUT_BLOCK,      BlockModule::Sarnet, make<VeryUnDeadBlockHandler>},
    {&A_SARNET_MM_SLAVE_IN_BLOCK,        BlockModule::Sarnet, make<VeryUnDeadBlockHandler>},
    {&A_SARNET_MM_SLAVE_OUT_BLOCK,       BlockModule::Sarnet, make<VeryUnDeadBlockHandler>},
    {&A_SARNET_ST_SINK_BLOCK,            BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_SARNET_ST_SINK_IN_BLOCK,         BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_SARNET_ST_SINK_OUT_BLOCK,        BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_SARNET_ST_SOURCE_BLOCK,          BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_SARNET_ST_SOURCE_IN_BLOCK,       BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_SARNET_ST_SOURCE_OUT_BLOCK,      BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_AXI4_STREAM_RECEIVER_BLOCK,      BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_AXI4_STREAM_TRANSMITTER_BLOCK,   BlockModule::Sarnet, make<SarnetSTDeadBlockHandler>},
    {&A_EXTMEM_READ_BLOCK,               BlockModule::ExtMem, make<ExtMemDeadBlockHandler>},
    {&A_EXTMEM_WRITE_BLOCK,              BlockModule::ExtMem, make<ExtMemDeadBlockHandler>},
    {&A_EXT_IFACE_BLOCK,                 BlockModule::Misc,   make<IfaceDeadBlockHandler>},
    {&A_HIDDEN_IFACE_BLOCK,              BlockModule::Misc,   make<IfaceDeadBlockHandler>},
    {&A_ENABLE_SINK_BLOCK,               BlockModule::Misc,   make<EnableDeadBlockHandler>},
    {&A_ECC_SINK_BLOCK,                  BlockModule::Misc,   make<ECCDeadBlockHandler>},
    {&A_STALLENTER_BLOCK,                BlockModule::Misc,   make<UnDeadBlockHandler>},
    {&A_STALLEXIT_BLOCK,                 BlockModule::Misc,   make<UnDeadBlockHandler>},
    {&A_STALLREG_BLOCK,                  BlockModule::Misc,   make<UnDeadBlockHandler>},
    {&A_STALLENABLE_BLOCK,               BlockModule::Misc,   make<UnDeadBlockHandler>},
    {&A_STALLVALID_CONNECTOR_BLOCK,      BlockModule::Misc,   make<StallValidConnectorDeadBlockHandler>},
};
// clang-format on

} // namespace

void registerDeadBlockHandlers(Context *context, BlockModule module) {
    for (const Row &row : kRows) {
        if (row.module == module) {
            context->getBlockClass(*row.type)->registerHandler<DeadBlockHandler>(row.make());
        }
    }
}

} // namespace internal

} // namespace orvo
