// The blocks that designs by chance have with told pins.
#include "gen/toldblocks.h"

#include "gen/designgenerator.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/simulator.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace orvo::gen {
namespace {

class Ear final : public ContextListener {
  public:
    void onMessage(int, const char *tag, const log::LogParams &) override { heard += tag; }
    std::string heard;
};

// The numbers that choices are made from are all zero: the first inputs that fit, cast to what is told.
TEST(ToldBlocks, standInADesignThatInfersAndRunsInSilence) {
    for (std::uint32_t i = 0; i < toldBlocks().size(); ++i) {
        const ToldBlock &told = toldBlocks()[i];
        SCOPED_TRACE(told.type->text());
        ContextMgr mgr;
        Ear ear;
        mgr.context()->setListener(&ear);
        DesignGenerator generator(mgr.context());
        // Every 32nd kind of recipe makes one of them.
        std::size_t found = 0;
        std::unique_ptr<Design> design;
        for (std::uint32_t k = 0; k < toldBlocks().size(); ++k) {
            design = generator.make({{8 + 32 * k, {}}});
            const Model &top = *design->getModel(PureValueRef(StringValue::get("top", mgr.context())));
            const bool isThis = std::any_of(top.begin(), top.end(), [&](const Block &block) {
                return block.type() == told.type->get_ptr() && block.port_size() == told.ports.size() &&
                       block.getWireCount() == told.wires.size();
            });
            if (isThis) {
                ++found;
                sim::Simulator simulator(*design, top);
                simulator.step();
            }
        }
        EXPECT_GE(found, 1U);
        EXPECT_EQ(ear.heard, "");
    }
}

TEST(ToldBlocks, haveOnlyWhatTheCatalogueKnows) {
    const BlocksInfo &catalogue = getBlocksInfo();
    ContextMgr mgr;
    const auto valueOf = [&](const std::string &name) {
        const std::string *text = catalogue.findMapping(name);
        return text != nullptr ? *text : name;
    };
    for (const BlockShape &shape : blockShapes(mgr.context())) {
        for (const ToldBlock &told : toldBlocks()) {
            if (shape.type != *told.type) {
                continue;
            }
            const auto isKnown = [&](const char *kind, const ToldPin &pin) {
                const auto &known = catalogue.blocks().at(shape.name).connections;
                return std::any_of(known.begin(), known.end(), [&](const BlockConnection &one) {
                    return one.kind == kind && (one.name == "ANY" || one.name == "0..." ||
                                                valueOf(one.name) == pin.key || valueOf(one.name) == pin.key + "...");
                });
            };
            for (const BlockConnection &one : catalogue.blocks().at(shape.name).connections) {
                const auto isGiven = [&](const auto &keys, auto keyOf) {
                    return std::any_of(keys.begin(), keys.end(), [&](const auto &given) {
                        // Levels may come together, under the key alone.
                        return keyOf(given) == valueOf(one.name) || keyOf(given) + "..." == valueOf(one.name);
                    });
                };
                const auto keyOfPin = [](const ToldPin &pin) { return pin.key; };
                EXPECT_TRUE(one.optional || isGiven(told.ports, keyOfPin) || isGiven(told.wires, keyOfPin) ||
                            isGiven(told.params, [](const auto &param) { return param.first; }))
                    << shape.name << " " << one.name;
            }
            for (const ToldPin &port : told.ports) {
                EXPECT_TRUE(isKnown("Port", port)) << shape.name << " " << port.key;
            }
            for (const ToldPin &wire : told.wires) {
                EXPECT_TRUE(isKnown("Wire", wire)) << shape.name << " " << wire.key;
            }
        }
    }
}

} // namespace
} // namespace orvo::gen
