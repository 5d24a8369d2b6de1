// The query for types: nets, instances, both directions, edits, freezing, minimal sets, and what it says of failures.
#include <orvo/typeinferpass.h>

#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/compoundtypeinfo.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/modeltreepass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinfer.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <util/features.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

struct Messages final : ContextListener {
    void onMessage(int, const char *tag, const log::LogParams &params) override {
        std::string line = tag;
        for (const auto &[name, value] : params) {
            line += " " + name + "=" + value;
        }
        lines.push_back(line);
    }
    std::vector<std::string> lines;
};

class TypeInfer : public ::testing::Test {
  protected:
    TypeInfer() { mgr.context()->setListener(&messages); }
    ~TypeInfer() override {
        mgr.context()->setListener(nullptr);
        util::ClearFeatures();
    }
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    PureValueRef type(const std::string &shortForm) { return value(testing::typeText(shortForm)); }
    Block &make(Model &model, const std::string &name, const StaticString &blockType) {
        Block &block = *Block::create(model, name);
        block.setParam(A_BLOCK_TYPE, blockType);
        return block;
    }
    Wire &wireOf(Block &block, const std::string &name) { return *Wire::create(block, value(name)); }
    /// A block whose output has the type.
    Wire &source(Model &model, const std::string &name, const std::string &shortForm) {
        Block &block = make(model, name, A_TYPE_PIN_BLOCK);
        block.setParam(A_TYPE_PIN_TYPE, type(shortForm));
        return wireOf(block, "primWireOut");
    }
    Wire &unary(Model &model, const std::string &name, const StaticString &blockType, Wire &input) {
        Block &block = make(model, name, blockType);
        block.setParam(value("0"), input);
        return wireOf(block, "primWireOut");
    }
    std::string typeOf(GlobalTypePass &types, const Wire &wire, const RefChain &chain = {}) {
        return readableType(types.getType(wire, chain).get_ptr());
    }
    std::string typeOf(GlobalTypePass &types, const Port &port, const RefChain &chain = {}) {
        return readableType(types.getType(port, chain).get_ptr());
    }
    /// A model that negates what comes in, with its edges.
    Model &negator(const std::string &name) {
        Model &model = *Model::create(design, name);
        Block &input = make(model, "in", A_INPUT_BLOCK);
        Wire &negated = unary(model, "neg", A_NEG_BLOCK, wireOf(input, "x"));
        make(model, "out", A_OUTPUT_BLOCK).setParam(value("y"), negated);
        return model;
    }
    Block &instance(Model &model, const std::string &name, Model &of, Wire *input) {
        Block &block = make(model, name, A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, of);
        if (input != nullptr) {
            block.setParam(value("x"), *input);
        }
        wireOf(block, "y");
        return block;
    }

    ContextMgr mgr;
    Messages messages;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
};

TEST_F(TypeInfer, reachesEveryEndOfANet) {
    Wire &wire = wireOf(make(top, "unknown", A_SCHEDULED_MODEL_BLOCK), "w");
    Block &pin = make(top, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, type("s8.4"));
    pin.setParam(value("0"), wire);
    Wire &out = unary(top, "neg", A_NEG_BLOCK, wire);
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, wire), "s8.4");
    EXPECT_EQ(typeOf(types, *out.getBlock().getPort(value("0"))), "s8.4");
    EXPECT_EQ(typeOf(types, out), "s9.4");
}

TEST_F(TypeInfer, goesBackwardAgainstTheData) {
    Block &delay = make(top, "delay", A_DELAY_BLOCK);
    Wire &unknown = wireOf(make(top, "unknown", A_SCHEDULED_MODEL_BLOCK), "w");
    delay.setParam(value("0"), unknown);
    Wire &delayed = wireOf(delay, "primWireOut");
    Block &pin = make(top, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, type("[4] u3.1"));
    pin.setParam(value("0"), delayed);
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, unknown), "[4] u3.1");
}

TEST_F(TypeInfer, keepsTheFirstTypeAndReportsTheSecond) {
    Wire &wire = source(top, "first", "s8.4");
    Block &second = make(top, "second", A_TYPE_PIN_BLOCK);
    second.setParam(A_TYPE_PIN_TYPE, type("u3.0"));
    second.setParam(value("0"), wire);
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, wire), "s8.4");
    // The pin's own port holds what the pin says, or the net's type, and the other one is told.
    Block &cast = make(top, "cast", A_CAST_BLOCK);
    cast.setParam(value("0"), source(top, "lanes", "[4] s8.0"));
    cast.setParam(A_CAST_OUTPUT_TYPE, type("s4.0"));
    Wire &out = wireOf(cast, "primWireOut");
    GlobalTypePass again;
    EXPECT_EQ(typeOf(again, out), "s4.0");
    ASSERT_FALSE(messages.lines.empty());
    EXPECT_EQ(messages.lines.back(), "MODIFYING_WIRE_TYPE block=/top/cast newType=(typeVector 4 (typeSFixed 4 0)) "
                                     "oldType=(typeSFixed 4 0) wire=primWireOut");
}

TEST_F(TypeInfer, reportsASecondTypeOfAPort) {
    // Read first as what it is connected to, then pinned otherwise.
    Block &pin = make(top, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_PORT_TYPES, value("((typeSFixed 5 5))"));
    pin.setParam(value("0"), source(top, "a", "s8.0"));
    const Wire &out = wireOf(pin, "0");
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, out), "s5.5");
    EXPECT_EQ(types.getType(pin.getPort(value("0")), {}), type("s8.0")) << "the first stands";
    ASSERT_FALSE(messages.lines.empty());
    EXPECT_EQ(messages.lines.back(),
              "MODIFYING_PORT_TYPE block=/top/pin newType=(typeSFixed 5 5) oldType=(typeSFixed 8 0) port=0");
}

TEST_F(TypeInfer, tellsInstancesOfOneModelApart) {
    Model &below = negator("below");
    Block &a = instance(top, "a", below, &source(top, "sa", "s8.0"));
    Block &b = instance(top, "b", below, &source(top, "sb", "[2] u3.1"));
    const Wire &inside = *below.getBlock(value("neg"))->getWire(A_PRIM_WIRE_OUT);
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, inside, {&a}), "s9.0");
    EXPECT_EQ(typeOf(types, inside, {&b}), "[2] u4.1");
    EXPECT_EQ(typeOf(types, *a.getWire(value("y"))), "s9.0");
    EXPECT_EQ(typeOf(types, *b.getWire(value("y"))), "[2] u4.1");
    EXPECT_EQ(typeOf(types, inside, {}), "?") << "the model by itself has no types";
}

TEST_F(TypeInfer, carriesTypesUpAgainstTheData) {
    Model &below = *Model::create(design, "below");
    Block &input = make(below, "in", A_INPUT_BLOCK);
    Wire &x = wireOf(input, "x");
    Block &pin = make(below, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, type("s5.5"));
    pin.setParam(value("0"), x);
    Wire &unknown = wireOf(make(top, "unknown", A_SCHEDULED_MODEL_BLOCK), "w");
    instance(top, "a", below, &unknown);
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, unknown), "s5.5");
}

TEST_F(TypeInfer, goesThroughAThousandLevels) {
    Model *below = &negator("level0");
    for (int i = 1; i < 1000; ++i) {
        Model &model = *Model::create(design, "level" + std::to_string(i));
        Block &input = make(model, "in", A_INPUT_BLOCK);
        Block &call = instance(model, "call", *below, &wireOf(input, "x"));
        make(model, "out", A_OUTPUT_BLOCK).setParam(value("y"), *call.getWire(value("y")));
        below = &model;
    }
    Block &call = instance(top, "call", *below, &source(top, "s", "s8.0"));
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, *call.getWire(value("y"))), "s9.0");
    EXPECT_LT(types.statistics().steps, 20000U);
}

TEST_F(TypeInfer, endsOnAModelInsideItself) {
    Model &below = negator("below");
    Block &call = instance(below, "call", below, below.getBlock(value("in"))->getWire(value("x")));
    Block &outer = instance(top, "outer", below, &source(top, "s", "s8.0"));
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, *outer.getWire(value("y"))), "s9.0");
    EXPECT_EQ(typeOf(types, *call.getWire(value("y")), {&outer}), "?");
}

TEST_F(TypeInfer, settlesALargeRing) {
    constexpr int kCount = 100000;
    std::vector<Block *> ring;
    for (int i = 0; i < kCount; ++i) {
        ring.push_back(&make(top, "d" + std::to_string(1000000 + i), A_DELAY_BLOCK));
        wireOf(*ring.back(), "primWireOut");
    }
    for (std::size_t i = 0; i < ring.size(); ++i) {
        // Against the order of the names, so that each step reaches one block.
        ring[i]->setParam(value("0"), *ring[(i + 1) % ring.size()]->getWire(A_PRIM_WIRE_OUT));
    }
    Block &pin = make(top, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, type("s8.4"));
    pin.setParam(value("0"), *ring[0]->getWire(A_PRIM_WIRE_OUT));
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, *ring[kCount / 2]->getWire(A_PRIM_WIRE_OUT)), "s8.4");
    EXPECT_LT(types.statistics().steps, 5U * kCount);
}

TEST_F(TypeInfer, staysLinearInTheReadersOfAWire) {
    constexpr int kCount = 100000;
    Wire &wire = source(top, "a", "u8.0");
    Block *last = nullptr;
    for (int i = 0; i < kCount; ++i) {
        // Each pins the net as well.
        last = &make(top, "p" + std::to_string(i), A_TYPE_PIN_BLOCK);
        last->setParam(A_TYPE_PIN_TYPE, type("u8.0"));
        last->setParam(value("0"), wire);
        wireOf(*last, "0");
    }
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, *last->getWire(value("0"))), "u8.0");
    EXPECT_LT(types.statistics().steps, 5U * kCount);
}

TEST_F(TypeInfer, forgetsWhenTheDesignChanges) {
    Wire &out = unary(top, "neg", A_NEG_BLOCK, source(top, "a", "s8.0"));
    Wire &other = source(top, "b", "s3.0");
    GlobalTypePass types;
    types.bindEvents(design);
    EXPECT_EQ(typeOf(types, out), "s9.0");
    out.getBlock().setParam(value("0"), other);
    EXPECT_EQ(typeOf(types, out), "s4.0");
    EXPECT_EQ(types.statistics().fullEvaluations, 2U);
    out.getBlock().setParam(A_SCHEDULE_CONSTRAINT_PORTS, A_TRUE);
    EXPECT_EQ(typeOf(types, out), "s4.0");
    EXPECT_EQ(types.statistics().fullEvaluations, 2U) << "schedule bookkeeping is no change";
    types.unbindEvents();
}

TEST_F(TypeInfer, keepsTypesWhileFrozen) {
    Wire &out = unary(top, "neg", A_NEG_BLOCK, source(top, "a", "s8.0"));
    Wire &other = source(top, "b", "s3.0");
    GlobalTypePass types;
    types.bindEvents(design);
    EXPECT_EQ(typeOf(types, out), "s9.0");
    types.freeze();
    out.getBlock().setParam(value("0"), other);
    EXPECT_EQ(typeOf(types, out), "s9.0");
    types.thaw();
    EXPECT_EQ(typeOf(types, out), "s4.0");
    EXPECT_DEATH(types.thaw(), "not frozen");
    types.freeze();
    EXPECT_DEATH(types.freeze(), "frozen twice");
    types.thaw();
}

TEST_F(TypeInfer, givesNoTypeOfADeadBlockToOneThatTakesItsPlace) {
    Wire &out = unary(top, "neg", A_NEG_BLOCK, source(top, "a", "s8.0"));
    GlobalTypePass types;
    types.bindEvents(design);
    EXPECT_EQ(typeOf(types, out), "s9.0");
    types.freeze();
    delete &out.getBlock();
    for (int i = 0; i < 8; ++i) {
        Wire &fresh = wireOf(make(top, "fresh" + std::to_string(i), A_NEG_BLOCK), "primWireOut");
        EXPECT_EQ(typeOf(types, fresh), "?");
    }
    types.thaw();
}

TEST_F(TypeInfer, reportsAMissingTypeOnlyWhenItIsAskedForAgain) {
    util::SetFeatureInteger(Features::TYPEINFERPASS_WARNING_LEVEL, 1);
    Wire &wire = wireOf(make(top, "unknown", A_SCHEDULED_MODEL_BLOCK), "w");
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, wire), "?");
    EXPECT_TRUE(messages.lines.empty());
    EXPECT_EQ(typeOf(types, wire), "?");
    EXPECT_EQ(messages.lines, std::vector<std::string>{"MISSING_DATATYPE block=/top/unknown portOrWire=w"});
}

TEST_F(TypeInfer, leavesABlockWithAnUnconnectedInputAlone) {
    // The port exists, its net has no type.
    Block &block = make(top, "b", A_BARREL_LEFT_BLOCK);
    block.setParam(value("0"), source(top, "a", "s8.0"));
    block.setParam(A_BARREL_PORT_SHIFT, wireOf(make(top, "unknown", A_SCHEDULED_MODEL_BLOCK), "w"));
    Wire &out = wireOf(block, "primWireOut");
    GlobalTypePass types;
    EXPECT_EQ(typeOf(types, out), "?");
}

class MinimalSets : public TypeInfer {
  protected:
    /// A chain far longer than any limit, and a short one beside it.
    MinimalSets() {
        Wire *at = &source(top, "a", "s2.0");
        for (int i = 0; i < 2000; ++i) {
            at = &unary(top, "n" + std::to_string(10000 + i), A_DELAY_BLOCK, *at);
        }
        longEnd = at;
        shortEnd = &unary(top, "short", A_NEG_BLOCK, source(top, "z", "u4.0"));
        tree.bindEvents(design);
    }
    ~MinimalSets() override { tree.unbindEvents(); }
    ModelTreePass tree;
    Wire *longEnd;
    Wire *shortEnd;
};

TEST_F(MinimalSets, answerFromAFewBlocks) {
    GlobalTypePass types;
    types.enableMinimalSet(&tree);
    EXPECT_EQ(typeOf(types, *shortEnd), "u5.0");
    EXPECT_EQ(types.statistics().fullEvaluations, 0U);
    EXPECT_EQ(types.statistics().minimalEvaluations, 1U);
    EXPECT_LT(types.statistics().steps, 10U);
}

TEST_F(MinimalSets, fallBackToTheWholeDesign) {
    util::SetFeatureInteger(Features::TYPEINFERPASS_WARNING_LEVEL, 1);
    GlobalTypePass types;
    types.enableMinimalSet(&tree);
    types.limitMinimalSetSize(10);
    EXPECT_EQ(typeOf(types, *longEnd), "s2.0");
    EXPECT_EQ(types.statistics().fullEvaluations, 1U);
    EXPECT_EQ(messages.lines, std::vector<std::string>{
                                  "TYPE_QUERY_FAILED_USING_MINIMAL_SUBSET block=/top/n11999 portOrWire=primWireOut"});
}

TEST_F(MinimalSets, areSwitchedAndBoundedByAFeature) {
    util::SetFeatureInteger(Features::TYPEQUERY_MINIMAL_SETSIZE_LIMIT, 0);
    GlobalTypePass off;
    off.enableMinimalSet(&tree);
    EXPECT_EQ(typeOf(off, *shortEnd), "u5.0");
    EXPECT_EQ(off.statistics().minimalEvaluations, 0U);
    util::SetFeatureInteger(Features::TYPEQUERY_MINIMAL_SETSIZE_LIMIT, 1);
    GlobalTypePass bounded;
    bounded.enableMinimalSet(&tree);
    bounded.limitMinimalSetSize(1000);
    EXPECT_EQ(typeOf(bounded, *shortEnd), "u5.0");
    EXPECT_EQ(bounded.statistics().fullEvaluations, 1U) << "the feature's limit holds";
}

TEST_F(MinimalSets, findTypesThroughInstancesAndPins) {
    Model &below = negator("below");
    Block &a = instance(top, "call", below, shortEnd);
    Block &pin = make(below, "pin", A_TYPE_PIN_BLOCK);
    Wire &unknown = wireOf(make(top, "unknown", A_UNSUPPORTED_BLOCK), "w");
    Block &b = instance(top, "call2", below, &unknown);
    GlobalTypePass types;
    types.enableMinimalSet(&tree);
    EXPECT_EQ(typeOf(types, *a.getWire(value("y"))), "u6.0");
    EXPECT_EQ(types.statistics().fullEvaluations, 0U);
    EXPECT_EQ(typeOf(types, *b.getWire(value("y"))), "?");
    static_cast<void>(pin);
}

TEST_F(TypeInfer, drawsConsequencesFromASupposedType) {
    Model &below = *Model::create(design, "below");
    Block &in = make(below, "in", A_INPUT_BLOCK);
    Block &out = make(below, "out", A_OUTPUT_BLOCK);
    Wire &x = wireOf(in, "x");
    Wire &loose = wireOf(make(below, "loose", A_FROM_BLOCK), "w");
    Block &sum = make(below, "sum", A_ADD_BLOCK);
    sum.setParam(value("0"), loose);
    sum.setParam(value("1"), x);
    Wire &y = wireOf(sum, "primWireOut");
    out.setParam(value("y"), y);
    Block &a = instance(top, "a", below, &source(top, "s", "s8.0"));
    Block &b = instance(top, "b", below, &source(top, "t", "s4.0"));
    GlobalTypePass types;
    types.bindEvents(design);
    EXPECT_EQ(typeOf(types, *a.getWire(value("y"))), "?");
    types.suppose(loose, {&a}, type("s6.0"));
    // In that instance alone, and outwards.
    EXPECT_EQ(types.getType(y, {&a}), type("s9.0"));
    EXPECT_EQ(typeOf(types, *a.getWire(value("y"))), "s9.0");
    EXPECT_FALSE(types.getType(loose, {&b}));
    EXPECT_EQ(typeOf(types, *b.getWire(value("y"))), "?");
    // What is known stands.
    types.suppose(loose, {&a}, type("s7.0"));
    EXPECT_EQ(types.getType(loose, {&a}), type("s6.0"));
    types.suppose(loose, {&b}, PureValueRef());
    EXPECT_FALSE(types.getType(loose, {&b}));
    // A change of the netlist ends it.
    make(top, "late", A_ADD_BLOCK);
    EXPECT_EQ(typeOf(types, *a.getWire(value("y"))), "?");
}

TEST(TypeRules, areTheSameForVariantsWithoutScheduling) {
    ContextMgr mgr;
    EXPECT_EQ(mgr.context()->getBlockClass(U_ADD_BLOCK)->get<TypeInferHandler>(),
              mgr.context()->getBlockClass(A_ADD_BLOCK)->get<TypeInferHandler>());
    EXPECT_NE(mgr.context()->getBlockClass(A_ADD_BLOCK)->get<TypeInferHandler>(), nullptr);
    EXPECT_NE(typeRuleSummary(A_ADD_BLOCK.get_ptr()), nullptr);
    EXPECT_EQ(typeRuleSummary(A_GOTO_BLOCK.get_ptr()), nullptr);
}

class SignalKinds : public TypeInfer {
  protected:
    SignalKinds() { types.bindEvents(design); }
    /// The kinds that the model may carry, by their first letters.
    std::string kindsOf(const Model &model) {
        std::string kinds;
        for (const auto &[kind, letter] :
             {std::pair{CompoundKind::Aggregate, 'a'}, std::pair{CompoundKind::Vector, 'v'},
              std::pair{CompoundKind::Complex, 'c'}}) {
            kinds += types.mayCarry(model, kind) ? std::string(1, letter) : "";
        }
        return kinds;
    }
    GlobalTypePass types;
};

TEST_F(SignalKinds, areNoneWhereAllTypesArePlain) {
    unary(top, "neg", A_NEG_BLOCK, source(top, "pin", "s8.4"));
    EXPECT_EQ(kindsOf(top), "");
    EXPECT_EQ(types.statistics().fullEvaluations, 1U);
}

TEST_F(SignalKinds, areThoseOfTheTypes) {
    source(top, "plain", "s8.4");
    Wire &vector = source(top, "vector", "[4] s8.4");
    EXPECT_EQ(kindsOf(top), "v");
    source(top, "complex", "c s8.4");
    EXPECT_EQ(kindsOf(top), "vc");
    delete &vector.getBlock();
    EXPECT_EQ(kindsOf(top), "c");
    delete top.getBlock(value("complex"));
    EXPECT_EQ(kindsOf(top), "");
    source(top, "record", "{s8.4,[2] s8.4}");
    EXPECT_EQ(kindsOf(top), "a");
    delete top.getBlock(value("record"));
    source(top, "records", "[2] {s8.4,u1.0}");
    EXPECT_EQ(kindsOf(top), "av");
    delete top.getBlock(value("records"));
    source(top, "vectors", "[2] c s8.4");
    EXPECT_EQ(kindsOf(top), "vc");
}

TEST_F(SignalKinds, areAllWhereATypeIsUnknown) {
    source(top, "plain", "s8.4");
    Block &unknown = make(top, "unknown", A_SCHEDULED_MODEL_BLOCK);
    Wire &wire = wireOf(unknown, "w");
    EXPECT_EQ(kindsOf(top), "avc");
    Block &pin = make(top, "pin", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, type("s8.4"));
    pin.setParam(value("0"), wire);
    EXPECT_EQ(kindsOf(top), "");
}

TEST_F(SignalKinds, areToldModelByModelOverAllInstances) {
    Model &below = negator("below");
    Model &other = negator("other");
    instance(top, "a", below, &source(top, "plain", "s8.4"));
    instance(top, "b", below, &source(top, "complex", "c s8.4"));
    instance(top, "c", other, &source(top, "plain2", "u3.0"));
    EXPECT_EQ(kindsOf(top), "c");
    EXPECT_EQ(kindsOf(below), "c");
    EXPECT_EQ(kindsOf(other), "");
}

TEST_F(SignalKinds, areAllInModelsWithoutEndAndOutsideTheHierarchy) {
    Model &ring = negator("ring");
    instance(ring, "again", ring, nullptr);
    EXPECT_EQ(kindsOf(ring), "avc");
}

TEST_F(SignalKinds, followWhatIsSupposed) {
    Wire &wire = wireOf(make(top, "unknown", A_SCHEDULED_MODEL_BLOCK), "w");
    EXPECT_EQ(kindsOf(top), "avc");
    types.suppose(wire, {}, type("[4] s8.4"));
    EXPECT_EQ(kindsOf(top), "v");
}

} // namespace
} // namespace orvo
