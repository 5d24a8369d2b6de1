// What the passes for dead logic delete, and what they leave.
#include "orvo/deadblockpass.h"
#include "orvo/readertypes.h"

#include "support/invariants.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/deadblock.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <map>

namespace orvo {
namespace {

class DeadLogicTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    PureValueRef number(int n) { return NumberValue::get(n, mgr.context()); }
    Block *block(Model &in, const std::string &name, const StaticString &type,
                 std::initializer_list<Block *> drivers = {}) {
        Block *made = Block::create(in, name);
        made->setParam(A_BLOCK_TYPE, type);
        Wire::create(*made, A_PRIM_WIRE_OUT);
        int port = 0;
        for (Block *driver : drivers) {
            made->setParam(number(port++), *driver->begin());
        }
        return made;
    }
    Block *block(const std::string &name, const StaticString &type, std::initializer_list<Block *> drivers = {}) {
        return block(model, name, type, drivers);
    }
    void run(const std::string &pass, const ParamContext &params = ParamContext()) {
        PassScheduler scheduler;
        scheduler.addPass(pass, params);
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
    }
    std::string left() { return left(model); }
    std::string left(const Model &in) {
        std::string names;
        for (const Block &one : in) {
            names += (names.empty() ? "" : " ") + one.getName()->toString();
        }
        return names;
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
};

TEST_F(DeadLogicTest, deletesADeadChainInOneSweepAndKeepsWhatLives) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *z = block("z", A_ADD_BLOCK, {in, in});
    Block *y = block("y", A_ADD_BLOCK, {z, in});
    block("a", A_ADD_BLOCK, {y, z});
    block("out", A_OUTPUT_BLOCK, {in});
    run("DeadBlockPass");
    EXPECT_EQ(left(), "in out");
}

TEST_F(DeadLogicTest, leavesALoopToTheAggressivePass) {
    Block *first = block("r1", A_REGISTER_BLOCK);
    Block *second = block("r2", A_REGISTER_BLOCK, {first});
    first->setParam(number(0), *second->begin());
    run("DeadBlockPass");
    EXPECT_EQ(left(), "r1 r2");
    run("AggressiveDeadBlockPass");
    EXPECT_EQ(left(), "");
}

TEST_F(DeadLogicTest, deletesABlockThatOnlyFeedsItselfAggressively) {
    Block *self = block("self", A_REGISTER_BLOCK);
    self->setParam(number(0), *self->begin());
    run("DeadBlockPass");
    EXPECT_EQ(left(), "self");
    run("AggressiveDeadBlockPass");
    EXPECT_EQ(left(), "");
}

TEST_F(DeadLogicTest, keepsATypePinThatReadsSomethingOnlyInLatePasses) {
    Block *in = block("in", A_INPUT_BLOCK);
    block("pin", A_TYPE_PIN_BLOCK, {in});
    run("DeadBlockLatePass");
    EXPECT_EQ(left(), "in pin");
    run("DeadBlockPass");
    EXPECT_EQ(left(), "in");
    block("free", A_TYPE_PIN_BLOCK);
    run("AggressiveDeadBlockLatePass");
    EXPECT_EQ(left(), "in");
}

/// Signals whose types come from behind, from blocks that nobody reads.
class ReaderTypesTest : public DeadLogicTest {
  protected:
    Block *pin(const std::string &name, const std::string &type, Block *driver) {
        Block *made = block(name, A_TYPE_PIN_BLOCK, {driver});
        made->setParam(A_TYPE_PIN_TYPE, ValueRef(value(type)));
        return made;
    }
    /// The types of all wires that are read, "?" for none.
    std::map<std::string, std::string> types() {
        PassScheduler scheduler;
        scheduler.requirePass("GlobalTypePass");
        const PassResults results = scheduler.apply(design);
        std::map<std::string, std::string> all;
        for (const Block &one : model) {
            for (const Wire &wire : one) {
                const PureValueRef type = results.getPass<GlobalTypePass>()->getType(wire, RefChain());
                if (wire.port_size() != 0) {
                    all[one.getName()->toString() + " " + wire.getName()->toString()] = type ? type->toString() : "?";
                }
            }
        }
        return all;
    }
    /// Nothing that is still there has lost its type, and a second run finds nothing to do.
    void runAndKeep(const std::string &pass) {
        const auto before = types();
        run(pass);
        for (const auto &[wire, type] : types()) {
            const auto was = before.find(wire);
            EXPECT_TRUE(was == before.end() || was->second == type) << wire << " is " << type;
        }
        const std::string once = left();
        run(pass);
        EXPECT_EQ(left(), once);
    }
};

TEST_F(ReaderTypesTest, hangsAPinWhereOneThatGoesToldTheType) {
    Block *in = block("in", A_INPUT_BLOCK);
    pin("p", "(typeSFixed 8 0)", in);
    Block *product = block("mu", A_MULT_BLOCK, {in, in});
    block("out", A_OUTPUT_BLOCK, {product});
    runAndKeep("DeadBlockPass");
    EXPECT_EQ(left(), "in mu out (in typePin primWireOut)");
    EXPECT_EQ(types().at("in primWireOut"), "(typeSFixed 8 0)");
}

TEST_F(ReaderTypesTest, keepsTheTypeOfALoopThatAHangingPinTold) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *typed = pin("p", "(typeSFixed 8 0)", in);
    Block *delay = block("d", A_DELAY_BLOCK);
    Block *most = block("mx", A_MAX_BLOCK, {delay, typed});
    delay->setParam(number(0), *most->begin());
    pin("p2", "(typeSFixed 8 0)", delay);
    block("out", A_OUTPUT_BLOCK, {most});
    runAndKeep("AggressiveDeadBlockPass");
    EXPECT_EQ(types().at("mx primWireOut"), "(typeSFixed 8 0)");
    EXPECT_EQ(left(), "d in mx out p (d typePin primWireOut)");
}

TEST_F(ReaderTypesTest, keepsATypeThatCameThroughDelaysRegistersAndTerminals) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *delay = block("d", A_DELAY_BLOCK, {in});
    Block *held = block("r", A_REGISTER_BLOCK, {delay});
    pin("p", "(typeSFixed 8 0)", held);
    Block *sum = block("ad", A_ADD_BLOCK, {in, in});
    block("out", A_OUTPUT_BLOCK, {sum});
    for (const char *pass : {"DeadBlockPass", "AggressiveDeadBlockPass"}) {
        runAndKeep(pass);
        EXPECT_EQ(left(), "ad in out (in typePin primWireOut)") << pass;
    }
    EXPECT_EQ(types().at("in primWireOut"), "(typeSFixed 8 0)");
}

TEST_F(ReaderTypesTest, keepsTheTypeOfAVectorThatItsElementsTogetherTold) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *unpack = Block::create(model, "u");
    unpack->setParam(A_BLOCK_TYPE, A_VUNPACK_BLOCK);
    unpack->setParam(A_VUNPACK_PORT_IN, *in->begin());
    for (int element = 0; element < 2; ++element) {
        Block *made = block("p" + std::to_string(element), A_TYPE_PIN_BLOCK);
        made->setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeSFixed 8 0)")));
        made->setParam(number(0), *Wire::create(*unpack, number(element)));
    }
    block("out", A_OUTPUT_BLOCK, {model.getBlock(value("p0"))});
    EXPECT_EQ(types().at("in primWireOut"), "(typeVector 2 (typeSFixed 8 0))");
    runAndKeep("DeadBlockPass");
    EXPECT_EQ(types().at("in primWireOut"), "(typeVector 2 (typeSFixed 8 0))");
    EXPECT_EQ(left(), "in out p0 u (u typePin 1)");
}

TEST_F(ReaderTypesTest, addsNoPinWhereTheTypeIsKnownFromAhead) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *typed = pin("p", "(typeSFixed 8 0)", in);
    Block *sum = block("ad", A_ADD_BLOCK, {typed, typed});
    pin("p2", "(typeSFixed 9 0)", sum);
    block("out", A_OUTPUT_BLOCK, {sum});
    runAndKeep("DeadBlockPass");
    EXPECT_EQ(left(), "ad in out p");
}

TEST_F(ReaderTypesTest, keepsTheTypeOfAnInputThatNobodyReadsWhereADesignIsWrittenOut) {
    Block *in = block("in", A_INPUT_BLOCK);
    pin("p", "(typeSFixed 8 0)", in);
    block("out", A_OUTPUT_BLOCK, {block("c", A_COUNTER_BLOCK)});
    model.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    runAndKeep("DeadBlockPass");
    EXPECT_EQ(left(), "c in out (in typePin primWireOut)");
    model.setParam(A_SYNTH_OUTPUT_MODE, ValueRef());
    runAndKeep("DeadBlockPass");
    EXPECT_EQ(left(), "c in out");
}

TEST_F(ReaderTypesTest, keepsTheTypesOfALoopInAModelWhoseOutputADeadPinRead) {
    Model &below = *Model::create(design, "below");
    Block *first = block(below, "d", A_DELAY_BLOCK);
    Block *second = block(below, "d2", A_DELAY_BLOCK, {first});
    first->setParam(number(0), *second->begin());
    Block *product = block(below, "mu", A_MULT_BLOCK, {first, first});
    Block *ends = block(below, "out", A_OUTPUT_BLOCK);
    ends->setParam(value("y"), *first->begin());
    ends->setParam(value("z"), *product->begin());
    Block *instance = Block::create(model, "i");
    instance->setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    instance->setParam(A_MODEL_NODE, below);
    Wire &read = *Wire::create(*instance, value("y"));
    Block *hanging = block("p", A_TYPE_PIN_BLOCK);
    hanging->setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeSFixed 8 0)")));
    hanging->setParam(number(0), read);
    block("out", A_OUTPUT_BLOCK)->setParam(value("z"), *Wire::create(*instance, value("z")));
    const auto before = types();
    EXPECT_EQ(before.at("i z"), "(typeSFixed 16 0)");
    runAndKeep("DeadBlockPass");
    EXPECT_EQ(types().at("i z"), "(typeSFixed 16 0)");
}

TEST_F(ReaderTypesTest, keepsTypesInAModelOfWhichAnInstanceGoesToo) {
    Model &below = *Model::create(design, "below");
    Block *in = block(below, "in", A_INPUT_BLOCK);
    Block *hanging = block(below, "p", A_TYPE_PIN_BLOCK, {in});
    hanging->setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeSFixed 8 0)")));
    Block *ends = block(below, "out", A_OUTPUT_BLOCK);
    ends->setParam(value("y"), *block(below, "d", A_DELAY_BLOCK, {in})->begin());
    for (const char *name : {"dead", "live"}) {
        Block *instance = Block::create(model, name);
        instance->setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
        instance->setParam(A_MODEL_NODE, below);
        Wire::create(*instance, value("y"));
    }
    block("out", A_OUTPUT_BLOCK)->setParam(value("y"), *model.getBlock(value("live"))->getWire(value("y")));
    runAndKeep("DeadBlockPass");
    EXPECT_EQ(left(), "live out");
    EXPECT_EQ(left(below), "d in out (in typePin primWireOut)");
    EXPECT_EQ(types().at("live y"), "(typeSFixed 8 0)");
}

/// What each type of block tells a driver whose type nobody else knows, through each of its ports.
TEST_F(ReaderTypesTest, asksForTypesWhereverABlockMayTellSome) {
    std::size_t silent = 0;
    for (const auto &[name, info] : getBlocksInfo().blocks()) {
        const std::string *type = getBlocksInfo().findMapping(name);
        for (const BlockConnection &connection : info.connections) {
            if (type == nullptr || connection.kind != "Port" || connection.name == "ANY") {
                continue;
            }
            const bool isNumbered = connection.name.rfind("0...", 0) == 0;
            const std::string *text = getBlocksInfo().findMapping(connection.name);
            const PureValueRef key = isNumbered ? number(0) : text == nullptr ? PureValueRef() : value(*text);
            if (!key) {
                continue;
            }
            while (model.begin() != model.end()) {
                delete &*model.begin();
            }
            Block *in = block("in", A_INPUT_BLOCK);
            Block *known = pin("known", "(typeUFixed 1 0)", block("other", A_INPUT_BLOCK));
            Block *asked = Block::create(model, "asked");
            asked->setParam(A_BLOCK_TYPE, ValueRef(value(*type)));
            for (int i = 0; i < 4; ++i) {
                asked->setParam(number(i), *known->begin());
            }
            for (const BlockConnection &other : info.connections) {
                const std::string *port = getBlocksInfo().findMapping(other.name);
                if (other.kind == "Port" && port != nullptr) {
                    asked->setParam(value(*port), *known->begin());
                }
            }
            asked->setParam(key, *in->begin());
            if (internal::mayTellTypes(*asked)) {
                continue;
            }
            ++silent;
            EXPECT_EQ(types().at("in primWireOut"), "?") << name << " " << connection.name;
        }
    }
    EXPECT_GT(silent, 50U);
}

TEST_F(DeadLogicTest, deletesAChainOfManyBlocksWithoutNesting) {
    Block *last = block("in", A_INPUT_BLOCK);
    for (int i = 0; i < 200000; ++i) {
        last = block("b" + std::to_string(1000000 + i), A_ADD_BLOCK, {last});
    }
    run("DeadBlockPass");
    EXPECT_EQ(left(), "in");
}

/// Whether a block of a type lives without readers, in early and in late passes.
struct Life {
    const StaticString *type;
    bool early;
    bool late;
};

// An edge without its end would be told of as a mistake by whoever reads the edges.
TEST_F(DeadLogicTest, deletesTheEdgesOfDomainsAtDeadBlocksAndNoOthers) {
    const std::string kept = "(scheduleDomainBegin red (in wireTag primWireOut))";
    for (const char *pass :
         {"DeadBlockPass", "DeadBlockLatePass", "AggressiveDeadBlockPass", "AggressiveDeadBlockLatePass"}) {
        Block *in = block("in", A_INPUT_BLOCK);
        block("b", A_ADD_BLOCK, {block("a", A_ADD_BLOCK, {in})});
        model.setParam(A_SYNTH_SCHEDULE_DOMAINS, value("((scheduleDomainEnd blue (a portTag 0)) " + kept +
                                                       " (scheduleDomainBegin blue (b wireTag primWireOut)))"));
        run(pass);
        EXPECT_EQ(left(), "in") << pass;
        EXPECT_EQ(model.getParam(A_SYNTH_SCHEDULE_DOMAINS)->toString(), "(" + kept + ")") << pass;
        delete in;
    }
}

TEST_F(DeadLogicTest, knowsTheTypesThatMustLive) {
    const Life lives[] = {
        {&A_INPUT_BLOCK, true, true},
        {&A_OUTPUT_BLOCK, true, true},
        {&A_CHANNEL_IN_BLOCK, true, true},
        {&A_CHANNEL_OUT_BLOCK, true, true},
        {&A_SIGNAL_IN_BLOCK, true, true},
        {&A_SIGNAL_OUT_BLOCK, true, true},
        {&A_BUS_IN_BLOCK, true, true},
        {&A_BUS_OUT_BLOCK, true, true},
        {&A_BUS_SIGNALS_BLOCK, true, true},
        {&A_SARNET_MM_SLAVE_IN_BLOCK, true, true},
        {&A_SARNET_MM_SLAVE_OUT_BLOCK, true, true},
        {&A_SARNET_MM_MASTER_IN_BLOCK, true, true},
        {&A_SARNET_MM_MASTER_OUT_BLOCK, true, true},
        {&A_TERMINAL_BLOCK, true, false},
        {&A_UNSCHED_BLOCK, true, false},
        {&A_BOUNDARY_BLOCK, true, false},
        {&A_FOLDING_KERNEL_BOUNDARY_BLOCK, true, false},
        {&A_GOTO_BLOCK, true, false},
        {&A_STALLENTER_BLOCK, true, false},
        {&A_STALLEXIT_BLOCK, true, false},
        {&A_STALLREG_BLOCK, true, false},
        {&A_STALLENABLE_BLOCK, true, false},
        {&A_STALLVALID_CONNECTOR_BLOCK, true, true},
        {&A_SARNET_ST_SINK_BLOCK, true, true},
        {&A_SARNET_ST_SOURCE_BLOCK, true, true},
        {&A_SARNET_ST_SINK_IN_BLOCK, true, true},
        {&A_SARNET_ST_SINK_OUT_BLOCK, true, true},
        {&A_SARNET_ST_SOURCE_IN_BLOCK, true, true},
        {&A_SARNET_ST_SOURCE_OUT_BLOCK, true, true},
        {&A_AXI4_STREAM_RECEIVER_BLOCK, true, true},
        {&A_AXI4_STREAM_TRANSMITTER_BLOCK, true, true},
        {&A_EXTMEM_READ_BLOCK, true, true},
        {&A_EXTMEM_WRITE_BLOCK, true, true},
        {&A_MM_REGISTER_BLOCK, true, true},
        {&A_SHARED_MEM_BLOCK, true, true},
        {&A_EXT_IFACE_BLOCK, true, true},
        {&A_HIDDEN_IFACE_BLOCK, true, true},
        {&A_ENABLE_SINK_BLOCK, false, false},
        {&A_ECC_SINK_BLOCK, false, false},
        {&A_MODEL_BLOCK, false, false},
        {&A_ADD_BLOCK, false, false},
    };
    for (const Life &life : lives) {
        for (const auto &[pass, lasts] :
             {std::make_pair("DeadBlockPass", life.early), std::make_pair("AggressiveDeadBlockPass", life.early),
              std::make_pair("DeadBlockLatePass", life.late),
              std::make_pair("AggressiveDeadBlockLatePass", life.late)}) {
            block("b", *life.type);
            run(pass);
            EXPECT_EQ(left(), lasts ? "b" : "") << life.type->text() << " " << pass;
            while (model.size() != 0) {
                delete &*model.begin();
            }
        }
    }
}

TEST_F(DeadLogicTest, letsParametersAndPortsDecide) {
    Block *in = block("in", A_INPUT_BLOCK);
    block("iface", A_EXT_IFACE_BLOCK)->setParam(A_EXT_IFACE_NO_SIDE_EFFECTS, A_TRUE);
    block("reg", A_MM_REGISTER_BLOCK)->setParam(A_BUS_ACCESS_MODE, A_BUS_ACCESS_CONSTANT);
    block("reg2", A_MM_REGISTER_BLOCK)->setParam(A_BUS_ACCESS_MODE, A_BUS_ACCESS_READ);
    block("enable", A_ENABLE_SINK_BLOCK, {in});
    block("ecc", A_ECC_SINK_BLOCK, {in});
    run("DeadBlockPass");
    EXPECT_EQ(left(), "ecc enable in reg2");
}

TEST_F(DeadLogicTest, keepsAModelBlockWhoseModelHoldsWhatMustLive) {
    Model &plain = *Model::create(design, "plain");
    block(plain, "in", A_INPUT_BLOCK);
    block(plain, "out", A_OUTPUT_BLOCK);
    Model &busy = *Model::create(design, "busy");
    Model &outer = *Model::create(design, "outer");
    block(busy, "mem", A_EXTMEM_WRITE_BLOCK);
    block(outer, "inner", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, busy);
    block("usePlain", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, plain);
    block("useBusy", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, busy);
    block("useOuter", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, outer);
    run("DeadBlockPass");
    EXPECT_EQ(left(), "useBusy useOuter");
    EXPECT_EQ(left(outer), "inner");
}

TEST_F(DeadLogicTest, keepsAModelBlockWithATerminalInsideOnlyInEarlyPasses) {
    Model &watched = *Model::create(design, "watched");
    block(watched, "watch", A_TERMINAL_BLOCK, {block(watched, "in", A_INPUT_BLOCK)});
    block("use", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, watched);
    run("DeadBlockPass");
    EXPECT_EQ(left(), "use");
    run("AggressiveDeadBlockPass");
    EXPECT_EQ(left(), "use");
    run("DeadBlockLatePass");
    EXPECT_EQ(left(), "");
}

TEST_F(DeadLogicTest, deletesAModelBlockWithoutAModelWhateverItReads) {
    for (const char *pass :
         {"DeadBlockPass", "DeadBlockLatePass", "AggressiveDeadBlockPass", "AggressiveDeadBlockLatePass"}) {
        block("use", A_MODEL_BLOCK, {block("in", A_INPUT_BLOCK)});
        run(pass);
        EXPECT_EQ(left(), "in") << pass;
        delete &*model.begin();
    }
}

TEST_F(DeadLogicTest, answersForModelsThatInstantiateEachOther) {
    Model &a = *Model::create(design, "a");
    Model &b = *Model::create(design, "b");
    Model &c = *Model::create(design, "c");
    block(a, "b", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, b);
    block(b, "a", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, a);
    block(b, "c", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, c);
    block("use", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, a);
    block(c, "mem", A_EXTMEM_WRITE_BLOCK);
    run("DeadBlockPass");
    EXPECT_EQ(left(), "use");
    EXPECT_EQ(left(a), "b");
    EXPECT_EQ(left(b), "a c");
}

TEST_F(DeadLogicTest, looksOnceAtAModelThatIsUsedOften) {
    Model &often = *Model::create(design, "often");
    for (int i = 0; i < 3000; ++i) {
        block(often, "add" + std::to_string(i), A_ADD_BLOCK);
        block("use" + std::to_string(i), A_MODEL_BLOCK)->setParam(A_MODEL_NODE, often);
    }
    run("DeadBlockPass");
    EXPECT_EQ(left(), "");
    EXPECT_EQ(left(often), "");
}

TEST_F(DeadLogicTest, asksDeepAndCircularHierarchiesWithoutEnd) {
    Model *above = &model;
    for (int i = 0; i < 5000; ++i) {
        Model *below = Model::create(design, "level" + std::to_string(i));
        block(*above, "use", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, *below);
        above = below;
    }
    Block *back = block(*above, "back", A_MODEL_BLOCK);
    back->setParam(A_MODEL_NODE, *Node::from<Model>((*model.begin())[A_MODEL_NODE]));
    run("DeadBlockPass");
    EXPECT_EQ(left(), "");
}

TEST(DeadBlockHandlerBase, answersEachQuestionThroughTheOneBefore) {
    class Plain final : public DeadBlockHandler {
      public:
        using DeadBlockHandler::isImmortal;
    };
    ContextMgr mgr;
    Design design(mgr.context());
    const Block &block = *Block::create(*Model::create(design, "m"), "b");
    EXPECT_FALSE(Plain().isImmortal(block));
    EXPECT_FALSE(Plain().isImmortal(block, true));
}

TEST_F(DeadLogicTest, keepsTheModelsThatAnOutputNeeds) {
    Model &used = *Model::create(design, "used");
    Model &deep = *Model::create(design, "deep");
    Model::create(design, "old");
    block("use", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, used);
    block(used, "use", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, deep);
    model.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    run("DeadModelPass");
    EXPECT_EQ(design.size(), 3U);
    EXPECT_EQ(design.getModel(value("old")), nullptr);
}

TEST_F(DeadLogicTest, warnsOfAModelBlockWithoutAModel) {
    block("use", A_MODEL_BLOCK);
    model.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    ::testing::internal::CaptureStderr();
    run("DeadModelPass");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ORVO Warning: MODEL_BLOCK_WITHOUT_MODEL_NODE: block='/m/use'.\n");
}

TEST_F(DeadLogicTest, doesNotWarnOfAModelBlockInAModelThatGoes) {
    model.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    block(*Model::create(design, "old"), "use", A_MODEL_BLOCK);
    ::testing::internal::CaptureStderr();
    run("DeadModelPass");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(design.size(), 1U);
}

TEST_F(DeadLogicTest, deletesAllModelsWhenNoneIsAnOutput) {
    Model::create(design, "other");
    run("DeadModelPass");
    EXPECT_EQ(design.size(), 0U);
}

TEST_F(DeadLogicTest, forgetsTheDeadModelsThatInstantiateALivingOne) {
    model.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    Model &used = *Model::create(design, "used");
    Block *use = block("use", A_MODEL_BLOCK);
    use->setParam(A_MODEL_NODE, used);
    Model &old = *Model::create(design, "old");
    Model &older = *Model::create(design, "older");
    block(old, "use", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, used);
    block(old, "older", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, older);
    block(older, "old", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, old);
    run("DeadModelPass");
    EXPECT_EQ(design.size(), 2U);
    EXPECT_EQ(used.getParentBlocks(), (std::list<Block *>{use}));
}

TEST_F(DeadLogicTest, takesOutATerminalThatReadsItself) {
    Block *terminal = block("terminal", A_TERMINAL_BLOCK);
    terminal->setParam(number(0), *terminal->begin());
    Block *reader = block("reader", A_OUTPUT_BLOCK, {terminal});
    run("ElideTerminalPass");
    EXPECT_EQ(left(), "reader");
    EXPECT_EQ(reader->port_size(), 0U);
}

TEST_F(DeadLogicTest, replacesAWireOfATerminalThatHasSeveral) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *terminal = block("terminal", A_TERMINAL_BLOCK, {in});
    Wire::create(*terminal, number(0));
    Block *reader = block("reader", A_OUTPUT_BLOCK);
    reader->setParam(number(0), *terminal->begin());
    run("ElideTerminalPass");
    EXPECT_EQ(left(), "in reader");
    EXPECT_EQ(&reader->getPort(number(0))->peekWire()->getBlock(), in);
}

TEST_F(DeadLogicTest, takesOutADrivenTerminal) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *terminal = block("terminal", A_TERMINAL_BLOCK, {in});
    Block *reader = block("reader", A_OUTPUT_BLOCK, {terminal});
    block("dangling", A_TERMINAL_BLOCK);
    run("ElideTerminalPass");
    EXPECT_EQ(left(), "dangling in reader");
    EXPECT_EQ(&reader->getPort(number(0))->peekWire()->getBlock(), in);
}

TEST_F(DeadLogicTest, takesOutATerminalWithoutAWireAndChainsOfThem) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *first = block("t2", A_TERMINAL_BLOCK, {in});
    Block *second = block("t1", A_TERMINAL_BLOCK, {first});
    delete &*second->begin();
    run("ElideTerminalPass");
    EXPECT_EQ(left(), "in");
}

class ElideUnpackTest : public DeadLogicTest {
  protected:
    ElideUnpackTest() {
        pack = Block::create(model, "pack");
        pack->setParam(A_BLOCK_TYPE, A_CPACK_BLOCK);
        pack->setParam(A_CPACK_PORT_REAL, *re->begin());
        pack->setParam(A_CPACK_PORT_IMAG, *im->begin());
        unpack = Block::create(model, "unpack");
        unpack->setParam(A_BLOCK_TYPE, A_CUNPACK_BLOCK);
        unpack->setParam(A_CUNPACK_PORT_IN, *Wire::create(*pack, A_CPACK_WIRE_OUT));
        out->setParam(number(0), *Wire::create(*unpack, A_CUNPACK_WIRE_IMAG));
        out->setParam(number(1), *Wire::create(*unpack, A_CUNPACK_WIRE_REAL));
    }
    Block *driver(int port) { return &out->getPort(number(port))->peekWire()->getBlock(); }
    Block *re = block("re", A_INPUT_BLOCK);
    Block *im = block("im", A_INPUT_BLOCK);
    Block *out = block("out", A_OUTPUT_BLOCK);
    Block *pack = nullptr;
    Block *unpack = nullptr;
};

TEST_F(ElideUnpackTest, joinsRealAndImaginaryPartsAcrossThePair) {
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out re");
    EXPECT_EQ(driver(0), im);
    EXPECT_EQ(driver(1), re);
}

TEST_F(ElideUnpackTest, keepsAPackThatSomethingElseReads) {
    out->setParam(number(2), *pack->begin());
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out pack re");
}

TEST_F(ElideUnpackTest, leavesAPackAndAnUnpackOfDifferentKinds) {
    unpack->setParam(A_BLOCK_TYPE, A_VUNPACK_BLOCK);
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out pack re unpack");
}

TEST_F(ElideUnpackTest, leavesAPairWhoseMetadataDifferUnlessTold) {
    unpack->setParam(A_METADATA, value("(x)"));
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out pack re unpack");
    run("ElideUnpackPass", WithParam("P_IGNORE_METADATA", A_TRUE));
    EXPECT_EQ(left(), "im out re");
    EXPECT_EQ(re->getParam(A_METADATA), ValueRef(value("(x)")));
    EXPECT_EQ(im->getParam(A_METADATA), ValueRef(value("(x)")));
}

TEST_F(ElideUnpackTest, takesOutAPairOfEqualMetadata) {
    pack->setParam(A_METADATA, value("(x)"));
    unpack->setParam(A_METADATA, value("(x)"));
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out re");
    EXPECT_EQ(re->getParam(A_METADATA), ValueRef(value("(x)")));
    EXPECT_EQ(im->getParam(A_METADATA), ValueRef(value("(x)")));
}

TEST_F(ElideUnpackTest, givesTheDriversWhatBothBlocksOfThePairCarried) {
    pack->setParam(A_METADATA, value("(p)"));
    unpack->setParam(A_METADATA, value("(u)"));
    re->setParam(A_METADATA, value("(r)"));
    run("ElideUnpackPass", WithParam("P_IGNORE_METADATA", A_TRUE));
    EXPECT_EQ(re->getParam(A_METADATA), ValueRef(value("(r u p)")));
    EXPECT_EQ(im->getParam(A_METADATA), ValueRef(value("(u p)")));
}

TEST_F(ElideUnpackTest, keepsOnThePackWhatAnUnpackCarriedThatNobodyReads) {
    unpack->setParam(A_METADATA, value("(u)"));
    out->setParam(number(0), nullptr);
    out->setParam(number(1), *pack->begin());
    run("ElideUnpackPass", WithParam("P_IGNORE_METADATA", A_TRUE));
    EXPECT_EQ(left(), "im out pack re");
    EXPECT_EQ(pack->getParam(A_METADATA), ValueRef(value("(u)")));
    EXPECT_FALSE(re->getParam(A_METADATA));
}

TEST_F(ElideUnpackTest, givesTheDriversWhatAPairCarriedThatNobodyReads) {
    unpack->setParam(A_METADATA, value("(u)"));
    out->setParam(number(0), nullptr);
    out->setParam(number(1), nullptr);
    run("ElideUnpackPass", WithParam("P_IGNORE_METADATA", A_TRUE));
    EXPECT_EQ(left(), "im out re");
    EXPECT_EQ(re->getParam(A_METADATA), ValueRef(value("(u)")));
    EXPECT_EQ(im->getParam(A_METADATA), ValueRef(value("(u)")));
}

TEST_F(ElideUnpackTest, takesOutEveryUnpackBehindAPack) {
    Block *second = Block::create(model, "second", A_CUNPACK_BLOCK);
    second->setParam(A_CUNPACK_PORT_IN, *pack->begin());
    out->setParam(number(2), *Wire::create(*second, A_CUNPACK_WIRE_REAL));
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out re");
    EXPECT_EQ(driver(2), re);
}

TEST_F(ElideUnpackTest, takesAnUnpackThatReadsThePackTwiceForOne) {
    unpack->setParam(value("other"), *pack->begin());
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out re");
    EXPECT_EQ(driver(0), im);
}

TEST_F(ElideUnpackTest, leavesAPairThatReadsWhatWasNotPacked) {
    pack->setParam(A_CPACK_PORT_IMAG, nullptr);
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "im out pack re unpack");
}

TEST_F(DeadLogicTest, takesOutAVectorPairThroughWhichAnElementGoesTwice) {
    Block *in = block("in", A_INPUT_BLOCK);
    Block *pack = block("pack", A_VPACK_BLOCK);
    Block *unpack = block("unpack", A_VUNPACK_BLOCK, {pack});
    pack->setParam(number(0), *Wire::create(*unpack, number(1)));
    pack->setParam(number(1), *in->begin());
    unpack->setParam(A_METADATA, value("(u)"));
    pack->setParam(A_METADATA, value("(u)"));
    Block *out = block("out", A_OUTPUT_BLOCK);
    out->setParam(number(0), *Wire::create(*unpack, number(0)));
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "in out");
    EXPECT_EQ(&out->getPort(number(0))->peekWire()->getBlock(), in);
    EXPECT_EQ(in->getParam(A_METADATA), ValueRef(value("(u)")));
}

TEST_F(DeadLogicTest, keepsAVectorPackThatAnotherBlockReads) {
    Block *a = block("a", A_INPUT_BLOCK);
    Block *pack = block("pack", A_VPACK_BLOCK, {a});
    Block *unpack = block("unpack", A_VUNPACK_BLOCK, {pack});
    Block *out = block("out", A_OUTPUT_BLOCK);
    out->setParam(number(0), *Wire::create(*unpack, number(0)));
    out->setParam(number(1), *pack->begin());
    run("ElideUnpackPass");
    EXPECT_EQ(left(), "a out pack");
}

TEST_F(DeadLogicTest, takesOutNestedPairsInOneRunWhateverTheirNames) {
    for (const auto &[inner, outer] : {std::make_pair("a", "b"), std::make_pair("b", "a")}) {
        Block *in = block("in", A_INPUT_BLOCK);
        Block *innerPack = block(inner, A_VPACK_BLOCK, {in});
        Block *outerPack = block(outer, A_VPACK_BLOCK, {innerPack});
        Block *outerUnpack = block("u", A_VUNPACK_BLOCK, {outerPack});
        Block *innerUnpack = block("v", A_VUNPACK_BLOCK);
        innerUnpack->setParam(number(0), *Wire::create(*outerUnpack, number(0)));
        block("out", A_OUTPUT_BLOCK)->setParam(number(0), *Wire::create(*innerUnpack, number(0)));
        run("ElideUnpackPass");
        EXPECT_EQ(left(), "in out") << inner;
        while (model.size() != 0) {
            delete &*model.begin();
        }
    }
}

TEST_F(DeadLogicTest, joinsNumberedElementsAcrossVectorAndRecordPairs) {
    const StaticString *pairs[][2] = {{&A_VPACK_BLOCK, &A_VUNPACK_BLOCK}, {&A_APACK_BLOCK, &A_AUNPACK_BLOCK}};
    for (const auto &pair : pairs) {
        Block *a = block("a", A_INPUT_BLOCK);
        Block *b = block("b", A_INPUT_BLOCK);
        Block *pack = block("pack", *pair[0], {a, b});
        Block *unpack = block("unpack", *pair[1], {pack});
        Block *out = block("out", A_OUTPUT_BLOCK);
        out->setParam(number(0), *Wire::create(*unpack, number(1)));
        run("ElideUnpackPass");
        EXPECT_EQ(left(), "a b out");
        EXPECT_EQ(&out->getPort(number(0))->peekWire()->getBlock(), b);
        while (model.size() != 0) {
            delete &*model.begin();
        }
    }
}

} // namespace
} // namespace orvo
