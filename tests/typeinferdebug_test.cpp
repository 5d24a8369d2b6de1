// The reports on missing types: each kind of cause, levels of hierarchy, and the way back from a block.
#include <orvo/typeinferdebug.h>

#include "support/randomdesigns.h"
#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <sstream>

namespace orvo {
namespace {

class TypeFailures : public ::testing::Test {
  protected:
    TypeFailures() { top.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT); }
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Wire &wireOf(Block &block, const std::string &name) { return *Wire::create(block, value(name)); }
    Block &make(Model &model, const std::string &name, const StaticString &type) {
        return *Block::create(model, name, type);
    }
    Wire &typed(Model &model, const std::string &name) {
        Block &block = make(model, name, A_TYPE_PIN_BLOCK);
        block.setParam(A_TYPE_PIN_TYPE, value("(typeSFixed 8 4)"));
        return wireOf(block, "primWireOut");
    }
    /// A block of which nothing is known, so that its output has no type whatever it reads.
    Wire &opaque(Model &model, const std::string &name, Wire *input = nullptr) {
        Block &block = make(model, name, A_SCHEDULED_MODEL_BLOCK);
        if (input != nullptr) {
            block.setParam(value("d"), *input);
        }
        return wireOf(block, "q");
    }
    Wire &negated(Model &model, const std::string &name, Wire &input) {
        Block &block = make(model, name, A_NEG_BLOCK);
        block.setParam(value("0"), input);
        return wireOf(block, "primWireOut");
    }
    void output(Model &model, const std::string &signal, Wire &wire) {
        Block *block = model.getOutputBlock();
        (block != nullptr ? *block : make(model, "out", A_OUTPUT_BLOCK)).setParam(value(signal), wire);
    }
    Block &instance(Model &model, const std::string &name, Model &of) {
        Block &block = make(model, name, A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, of);
        return block;
    }
    /// Two delays and adders in a ring that nothing from outside gives a type.
    void ring(Model &model) {
        Block &delay = make(model, "delay", A_DELAY_BLOCK);
        delay.setParam(A_DELAY_LENGTH, value("1"));
        delay.setParam(value("0"), negated(model, "neg", wireOf(delay, "primWireOut")));
    }
    std::string cause() {
        std::ostringstream out;
        TypeInferDebug(types, design).getLikelyFailureCause(out);
        return out.str();
    }
    std::string trace(const Block &block, const RefChain &chain = {}) {
        std::ostringstream out;
        TypeInferDebug(types, design).getLikelyFailureTrace(out, block, chain);
        return out.str();
    }
    Block &at(Model &model, const std::string &name) { return *model.getBlock(value(name)); }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    GlobalTypePass types;
};

TEST_F(TypeFailures, areNoneWhereAllTypesAreKnown) {
    output(top, "y", negated(top, "neg", typed(top, "pin")));
    TypeInferDebug debug(types, design);
    EXPECT_FALSE(debug.invalidTypesPresent());
    EXPECT_TRUE(debug.locations().empty());
    EXPECT_TRUE(debug.causes().empty());
    EXPECT_EQ(cause(), "");
}

TEST_F(TypeFailures, areLookedForBelowModelsThatAreToBeWrittenOut) {
    Model &other = *Model::create(design, "other");
    opaque(other, "odd");
    EXPECT_FALSE(TypeInferDebug(types, design).invalidTypesPresent());
    EXPECT_TRUE(TypeInferDebug(types, {&other}).invalidTypesPresent());
}

TEST_F(TypeFailures, nameABlockThatHadAllThatItNeeded) {
    Wire &odd = opaque(top, "odd", &typed(top, "pin"));
    output(top, "y", negated(top, "second", negated(top, "first", odd)));
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: block \"odd\", type scheduledModelBlock\n");
    EXPECT_EQ(trace(at(top, "out")), "Type inferencing failed in model \"top\"\n"
                                     "\tfrom block \"out\", type outputBlock\n"
                                     "\t\tfrom input y, from block \"second\", type negBlock\n"
                                     "\t\t\tfrom input 0, from block \"first\", type negBlock\n"
                                     "\t\t\t\tfrom input 0, from block \"odd\", type scheduledModelBlock\n");
}

TEST_F(TypeFailures, nameACauseOnceHoweverManyWaysLeadToIt) {
    Wire &odd = opaque(top, "odd");
    Block &sum = make(top, "sum", A_ADD_BLOCK);
    sum.setParam(value("0"), negated(top, "a", odd));
    sum.setParam(value("1"), negated(top, "b", odd));
    output(top, "y", wireOf(sum, "primWireOut"));
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: block \"odd\", type scheduledModelBlock\n");
    EXPECT_EQ(trace(sum), "Type inferencing failed in model \"top\"\n"
                          "\tfrom block \"sum\", type addBlock\n"
                          "\t\tfrom input 0, from block \"a\", type negBlock\n"
                          "\t\t\tfrom input 0, from block \"odd\", type scheduledModelBlock\n"
                          "\t\tfrom input 1, from block \"b\", type negBlock\n"
                          "\t\t\tfrom input 0, from block \"odd\", already seen\n");
}

TEST_F(TypeFailures, nameTheBlocksOfALoop) {
    ring(top);
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: LOOP involving the following blocks:\n"
                       "\t\t\tblock \"delay\", type delayBlock\n"
                       "\t\t\tblock \"neg\", type negBlock\n");
    output(top, "y", *at(top, "delay").getWire(A_PRIM_WIRE_OUT));
    EXPECT_EQ(trace(at(top, "out")), "Type inferencing failed in model \"top\"\n"
                                     "\tfrom block \"out\", type outputBlock\n"
                                     "\t\tfrom input y, from LOOP, involving the following:\n"
                                     "\t\t\tblock \"delay\", type delayBlock\n"
                                     "\t\t\tblock \"neg\", type negBlock\n");
}

TEST_F(TypeFailures, showALoopInTheOrderOfDistanceFromTheInputs) {
    Wire &x = wireOf(make(top, "in", A_INPUT_BLOCK), "x");
    Block &last = make(top, "a", A_NEG_BLOCK);
    Block &first = make(top, "b", A_ADD_BLOCK);
    first.setParam(value("0"), x);
    first.setParam(value("1"), wireOf(last, "primWireOut"));
    last.setParam(value("0"), wireOf(first, "primWireOut"));
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: external, input \"x\"\n"
                       "\t\tLikely failure cause: LOOP involving the following blocks:\n"
                       "\t\t\tblock \"b\", type addBlock\n"
                       "\t\t\tblock \"a\", type negBlock\n");
    EXPECT_EQ(trace(last), "Type inferencing failed in model \"top\"\n"
                           "\tfrom LOOP, involving the following:\n"
                           "\t\tblock \"b\", type addBlock\n"
                           "\t\tblock \"a\", type negBlock\n"
                           "\t\tfrom input 0, from block \"in\", type inputBlock\n"
                           "\t\t\tfrom input x, external\n");
    TypeInferDebug debug(types, design);
    ASSERT_EQ(debug.locations().size(), 3u);
    EXPECT_EQ(debug.locations()[0]->distance, 2);
    EXPECT_EQ(debug.locations()[1]->distance, 1);
    EXPECT_EQ(debug.locations()[2]->distance, 0);
}

TEST_F(TypeFailures, nameAnInputThatNothingConnects) {
    output(top, "y", wireOf(make(top, "in", A_INPUT_BLOCK), "x"));
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: external, input \"x\"\n");
    EXPECT_EQ(trace(at(top, "out")), "Type inferencing failed in model \"top\"\n"
                                     "\tfrom block \"out\", type outputBlock\n"
                                     "\t\tfrom input y, from block \"in\", type inputBlock\n"
                                     "\t\t\tfrom input x, external\n");
}

/// top reads y2 of a model, of which y1 comes back as its x; the cause of y1 stands in the model.
class TypeFailuresOnALoopThroughAModel : public TypeFailures {
  protected:
    TypeFailuresOnALoopThroughAModel() {
        Wire &x = wireOf(make(leaf, "in", A_INPUT_BLOCK), "x");
        output(leaf, "y1", opaque(leaf, "odd"));
        output(leaf, "y2", negated(leaf, "neg", x));
        Wire &y1 = wireOf(sub, "y1");
        sub.setParam(value("x"), y1);
        output(top, "y", wireOf(sub, "y2"));
    }
    Model &leaf = *Model::create(design, "leaf");
    Block &sub = instance(top, "sub", leaf);
};

TEST_F(TypeFailuresOnALoopThroughAModel, areTracedIntoTheModelByTheSignalThatClosesTheLoopAndByTheOneAskedFor) {
    EXPECT_EQ(trace(at(top, "out")), "Type inferencing failed in model \"top\"\n"
                                     "\tfrom block \"out\", type outputBlock\n"
                                     "\t\tfrom input y, from LOOP, involving the following:\n"
                                     "\t\t\tblock \"sub\", type modelBlock\n"
                                     "\t\t\tFrom Model \"top/sub\"\n"
                                     "\t\t\t\tfrom block \"out\", type outputBlock\n"
                                     "\t\t\t\t\tfrom input y1, from block \"odd\", type scheduledModelBlock\n"
                                     "\t\t\tFrom Model \"top/sub\"\n"
                                     "\t\t\t\tfrom block \"out\", already seen\n"
                                     "\t\t\t\t\tfrom input y2, from block \"neg\", type negBlock\n"
                                     "\t\t\t\t\t\tfrom input 0, from block \"in\", type inputBlock\n"
                                     "\t\t\t\t\t\t\tfrom input x, From Model \"top\"\n"
                                     "\t\t\t\t\t\t\t\tfrom block \"sub\", already seen\n");
}

TEST_F(TypeFailuresOnALoopThroughAModel, areTracedIntoTheModelWhereTheTraceBeginsAtIt) {
    const std::string told = trace(sub);
    EXPECT_NE(told.find("\n\t\t\t\tfrom input y1, from block \"odd\", type scheduledModelBlock\n"), std::string::npos)
        << told;
    EXPECT_NE(told.find("\n\t\t\t\tfrom input y2, from block \"neg\", type negBlock\n"), std::string::npos) << told;
}

TEST_F(TypeFailuresOnALoopThroughAModel, areTracedOnByASignalThatComesLaterAndNoOther) {
    output(leaf, "y3", opaque(leaf, "other"));
    output(leaf, "y4", opaque(leaf, "unasked"));
    wireOf(sub, "y4");
    Block &sum = make(top, "sum", A_ADD_BLOCK);
    sum.setParam(value("0"), *sub.getWire(value("y1")));
    sum.setParam(value("1"), wireOf(sub, "y3"));
    EXPECT_EQ(trace(sum), "Type inferencing failed in model \"top\"\n"
                          "\tfrom block \"sum\", type addBlock\n"
                          "\t\tfrom input 0, from LOOP, involving the following:\n"
                          "\t\t\tblock \"sub\", type modelBlock\n"
                          "\t\t\tFrom Model \"top/sub\"\n"
                          "\t\t\t\tfrom block \"out\", type outputBlock\n"
                          "\t\t\t\t\tfrom input y1, from block \"odd\", type scheduledModelBlock\n"
                          "\t\tfrom input 1, from block \"sub\", already seen\n"
                          "\t\t\tFrom Model \"top/sub\"\n"
                          "\t\t\t\tfrom block \"out\", already seen\n"
                          "\t\t\t\t\tfrom input y3, from block \"other\", type scheduledModelBlock\n");
}

TEST_F(TypeFailures, tellAModelBlockOnceAndGoOnByItsOtherSignals) {
    Model &leaf = *Model::create(design, "leaf");
    Wire &x1 = wireOf(make(leaf, "in", A_INPUT_BLOCK), "x1");
    output(leaf, "y1", x1);
    output(leaf, "y2", wireOf(at(leaf, "in"), "x2"));
    Block &sub = instance(top, "sub", leaf);
    Wire &odd = opaque(top, "odd");
    sub.setParam(value("x1"), odd);
    sub.setParam(value("x2"), odd);
    Wire &y1 = wireOf(sub, "y1");
    Block &sum = make(top, "sum", A_ADD_BLOCK);
    sum.setParam(value("0"), y1);
    sum.setParam(value("1"), wireOf(sub, "y2"));
    sum.setParam(value("2"), y1);
    EXPECT_EQ(trace(sum), "Type inferencing failed in model \"top\"\n"
                          "\tfrom block \"sum\", type addBlock\n"
                          "\t\tfrom input 0, from block \"sub\", type modelBlock\n"
                          "\t\t\tFrom Model \"top/sub\"\n"
                          "\t\t\t\tfrom block \"out\", type outputBlock\n"
                          "\t\t\t\t\tfrom input y1, from block \"in\", type inputBlock\n"
                          "\t\t\t\t\t\tfrom input x1, From Model \"top\"\n"
                          "\t\t\t\t\t\t\tfrom block \"odd\", type scheduledModelBlock\n"
                          "\t\tfrom input 1, from block \"sub\", already seen\n"
                          "\t\t\tFrom Model \"top/sub\"\n"
                          "\t\t\t\tfrom block \"out\", already seen\n"
                          "\t\t\t\t\tfrom input y2, from block \"in\", already seen\n"
                          "\t\t\t\t\t\tfrom input x2, From Model \"top\"\n"
                          "\t\t\t\t\t\t\tfrom block \"odd\", already seen\n"
                          "\t\tfrom input 2, from block \"sub\", already seen\n");
}

/// top holds outer, outer holds inner, and a signal y comes up through both.
class TypeFailuresInside : public TypeFailures {
  protected:
    void comeUp(Wire &wire) {
        output(inner, "y", wire);
        output(outer, "y", wireOf(innerBlock, "y"));
        output(top, "y", wireOf(outerBlock, "y"));
    }
    /// What is said of the levels above the inner one.
    static constexpr const char *kAbove = "Type inferencing failed in 3 models:\n"
                                          "\tModel: top\n"
                                          "\t\tLikely failure cause: block \"a\", type modelBlock\n"
                                          "\tModel: top/a\n"
                                          "\t\tLikely failure cause: block \"b\", type modelBlock\n"
                                          "\tModel: top/a/b\n";
    static constexpr const char *kWayDown = "Type inferencing failed in model \"top\"\n"
                                            "\tfrom block \"out\", type outputBlock\n"
                                            "\t\tfrom input y, from block \"a\", type modelBlock\n"
                                            "\t\t\tFrom Model \"top/a\"\n"
                                            "\t\t\t\tfrom block \"out\", type outputBlock\n"
                                            "\t\t\t\t\tfrom input y, from block \"b\", type modelBlock\n"
                                            "\t\t\t\t\t\tFrom Model \"top/a/b\"\n"
                                            "\t\t\t\t\t\t\tfrom block \"out\", type outputBlock\n";

    Model &outer = *Model::create(design, "outer");
    Model &inner = *Model::create(design, "inner");
    Block &outerBlock = instance(top, "a", outer);
    Block &innerBlock = instance(outer, "b", inner);
};

TEST_F(TypeFailuresInside, nameABlock) {
    comeUp(opaque(inner, "odd"));
    EXPECT_EQ(cause(), std::string(kAbove) + "\t\tLikely failure cause: block \"odd\", type scheduledModelBlock\n");
    EXPECT_EQ(trace(at(top, "out")),
              std::string(kWayDown) + "\t\t\t\t\t\t\t\tfrom input y, from block \"odd\", type scheduledModelBlock\n");
}

TEST_F(TypeFailuresInside, nameALoop) {
    ring(inner);
    comeUp(*at(inner, "neg").getWire(A_PRIM_WIRE_OUT));
    EXPECT_EQ(cause(), std::string(kAbove) + "\t\tLikely failure cause: LOOP involving the following blocks:\n"
                                             "\t\t\tblock \"delay\", type delayBlock\n"
                                             "\t\t\tblock \"neg\", type negBlock\n");
    EXPECT_EQ(trace(at(top, "out")), std::string(kWayDown) + "\t\t\t\t\t\t\t\tfrom input y, from LOOP, involving the "
                                                             "following:\n"
                                                             "\t\t\t\t\t\t\t\t\tblock \"delay\", type delayBlock\n"
                                                             "\t\t\t\t\t\t\t\t\tblock \"neg\", type negBlock\n");
}

TEST_F(TypeFailuresInside, nameAnInputThatALevelAboveDoesNotConnect) {
    comeUp(wireOf(make(inner, "in", A_INPUT_BLOCK), "x"));
    EXPECT_EQ(cause(), std::string(kAbove) + "\t\tLikely failure cause: external, input \"x\"\n");
    EXPECT_EQ(trace(at(top, "out")), std::string(kWayDown) +
                                         "\t\t\t\t\t\t\t\tfrom input y, from block \"in\", type inputBlock\n"
                                         "\t\t\t\t\t\t\t\t\tfrom input x, external\n");
}

TEST_F(TypeFailuresInside, followAnInputUpToItsSource) {
    Wire &x = wireOf(make(inner, "in", A_INPUT_BLOCK), "x");
    Block &reader = make(inner, "reader", A_NEG_BLOCK);
    reader.setParam(value("0"), x);
    innerBlock.setParam(value("x"), wireOf(make(outer, "in", A_INPUT_BLOCK), "x"));
    outerBlock.setParam(value("x"), opaque(top, "odd"));
    EXPECT_EQ(cause(), "Type inferencing failed in 3 models:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: block \"odd\", type scheduledModelBlock\n"
                       "\tModel: top/a\n"
                       "\t\tLikely failure cause: external, input \"x\"\n"
                       "\tModel: top/a/b\n"
                       "\t\tLikely failure cause: external, input \"x\"\n");
    EXPECT_EQ(trace(reader, {&outerBlock, &innerBlock}), "Type inferencing failed in model \"top/a/b\"\n"
                                                         "\tfrom block \"reader\", type negBlock\n"
                                                         "\t\tfrom input 0, from block \"in\", type inputBlock\n"
                                                         "\t\t\tfrom input x, From Model \"top/a\"\n"
                                                         "\t\t\t\tfrom block \"in\", type inputBlock\n"
                                                         "\t\t\t\t\tfrom input x, From Model \"top\"\n"
                                                         "\t\t\t\t\t\tfrom block \"odd\", type scheduledModelBlock\n");
}

TEST_F(TypeFailuresInside, areToldInTheInstancesThatHaveThem) {
    Wire &x = wireOf(make(inner, "in", A_INPUT_BLOCK), "x");
    Block &reader = make(inner, "reader", A_NEG_BLOCK);
    reader.setParam(value("0"), x);
    innerBlock.setParam(value("x"), typed(outer, "pin"));
    Block &second = instance(outer, "c", inner);
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top/a/c\n"
                       "\t\tLikely failure cause: external, input \"x\"\n");
    EXPECT_EQ(trace(reader, {&outerBlock, &innerBlock}), "Type inferencing failed in model \"top/a/b\"\n");
    EXPECT_EQ(trace(reader, {&outerBlock, &second})
                  .find("Type inferencing failed in model \"top/a/c\"\n"
                        "\tfrom block \"reader\""),
              0u);
    EXPECT_EQ(trace(reader), "Type inferencing failed in model \"*INVALID*\"\n");
}

TEST_F(TypeFailures, endWhereAModelInstantiatesItself) {
    instance(top, "again", top);
    opaque(top, "odd");
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: block \"odd\", type scheduledModelBlock\n");
}

TEST_F(TypeFailures, showTheNumberOfAPortThatHasOneBesideItsName) {
    Block &exit = make(top, "exit", A_STALLEXIT_BLOCK);
    exit.setParam(value("(stallexitPortkeyDataBack 3)"), opaque(top, "odd"));
    exit.setParam(value("7"), *at(top, "odd").getWire(value("q")));
    const std::string told = trace(exit);
    EXPECT_NE(told.find("\t\tfrom input (3) stallexitPortkeyDataBack, from block \"odd\""), std::string::npos) << told;
    EXPECT_NE(told.find("\t\tfrom input 7, from block \"odd\""), std::string::npos) << told;
}

TEST_F(TypeFailures, tellABlockThatHasNoType) {
    wireOf(*Block::create(top, "blank"), "w");
    EXPECT_EQ(cause(), "Type inferencing failed in 1 model:\n"
                       "\tModel: top\n"
                       "\t\tLikely failure cause: block \"blank\", type unknown\n");
}

TEST_F(TypeFailures, areTracedThroughAnyDepth) {
    Wire *wire = &opaque(top, "odd");
    constexpr int kBlocks = 20000;
    for (int i = 0; i < kBlocks; ++i) {
        wire = &negated(top, "n" + std::to_string(i), *wire);
    }
    const std::string told = trace(wire->getBlock());
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), kBlocks + 2);
    EXPECT_NE(told.find("\n" + std::string(256, '\t') + "from input 0, from block \"odd\""), std::string::npos);
    EXPECT_EQ(told.find(std::string(257, '\t')), std::string::npos);
}

/// Whether a trace comes to a loop, to the edge of the design or to a block that is a cause by itself, as one that
/// stands for a model never is.
bool endsAtACause(const std::string &trace, const std::vector<const CauseSpec *> &causes) {
    return trace.find("from LOOP") != std::string::npos || trace.find(", external\n") != std::string::npos ||
           std::any_of(causes.begin(), causes.end(), [&trace](const CauseSpec *cause) {
               const Block &block = *cause->blocks.front();
               return cause->kind == CauseSpec::Kind::Block && block.type() != A_MODEL_BLOCK.get_ptr() &&
                      trace.find("from block \"" + block.getName()->toString() + "\"") != std::string::npos;
           });
}

// Taking the types of some sources away must give causes for all that lacks a type, and none without.
RC_GTEST_PROP(TypeFailuresProperty, haveACauseInEachModelThatHasThem, ()) {
    const auto recipes = *test::recipes(30);
    const auto chance = *rc::gen::inRange<unsigned>(0, 4);
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::unique_ptr<Design> design = generator.make(recipes);
    unsigned number = 0;
    for (Model &model : *design) {
        for (Block &block : model) {
            if (block.type() == A_TYPE_PIN_BLOCK.get_ptr() && number++ % 4 < chance) {
                block.setParam(A_TYPE_PIN_TYPE, nullptr);
            }
        }
    }
    GlobalTypePass types;
    TypeInferDebug debug(types, *design);
    std::set<const ModelInstance *> failed;
    for (const BlockLocationSpec *location : debug.locations()) {
        failed.insert(location->instance);
        RC_ASSERT(!location->wires.empty() || !location->ports.empty());
        for (const Wire *wire : location->wires) {
            RC_ASSERT(!types.getType(*wire, location->instance->chain));
        }
        std::ostringstream trace;
        debug.getLikelyFailureTrace(trace, *location->block, location->instance->chain);
        RC_ASSERT(endsAtACause(trace.str(), debug.causes()));
    }
    std::set<const ModelInstance *> explained;
    for (const CauseSpec *cause : debug.causes()) {
        explained.insert(cause->instance);
        RC_ASSERT(!cause->blocks.empty());
    }
    RC_ASSERT(failed == explained);
    RC_ASSERT(debug.invalidTypesPresent() == !failed.empty());
    RC_ASSERT(chance != 0u || failed.empty());
}

} // namespace
} // namespace orvo
