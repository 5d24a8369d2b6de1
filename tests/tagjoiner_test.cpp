// From and Goto blocks as wires, by the reach of their tags.
#include "support/simulatorfixture.h"

namespace orvo::sim {
namespace {

using test::Numbers;

class TagJoinerTest : public test::SimulatorFixture {
  protected:
    Block &sender(Model &model, const char *name, Wire &wire, const char *reach, const char *tag = "t") {
        Block &made = block(model, name, "gotoBlock", {{"gotoTag", tag}, {"gotoTagType", reach}});
        made.setParam(A_GOTO_PORT_IN, wire);
        return made;
    }
    Wire &receiver(Model &model, const char *name, const char *tag = "t") {
        return *Wire::create(block(model, name, "fromBlock", {{"gotoTag", tag}}), A_FROM_WIRE_OUT);
    }
    Block &instance(Model &model, const char *name, Model &below) {
        Block &made = *Block::create(model, name, A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, below);
        return made;
    }
    /// A model that gives away under its output `o` what it reads from the tag.
    Model &reader(Design &design, const char *name) {
        Model &model = *Model::create(design, name);
        output(model, "o", receiver(model, "from"));
        return model;
    }
};

TEST_F(TagJoinerTest, joinsWithinAModel) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    sender(top, "goto", input(top, "x", "s8.2"), "gotoTagTypeLocal");
    output(top, "y", receiver(top, "from"));
    // A pin gives the wire a type of its own.
    output(top, "z", pinned(receiver(top, "from"), "s8.2"));
    Simulator simulator(design, top);
    EXPECT_EQ(stepWith(simulator, {-5}), (Numbers{-5, -5}));
    EXPECT_EQ(simulator.outputs()[0].fraction, 2);
}

TEST_F(TagJoinerTest, joinsInEachInstanceByItself) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    sender(below, "goto", *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), "i"), "misspelt");
    output(below, "o", receiver(below, "from"));
    for (const char *name : {"a", "b"}) {
        Block &made = instance(top, name, below);
        made.setParam(value("i"), input(top, name, "s8.0"));
        output(top, name, *Wire::create(made, "o"));
    }
    Simulator simulator(design, top);
    EXPECT_EQ(stepWith(simulator, {3, 4}), (Numbers{3, 4}));
}

TEST_F(TagJoinerTest, letsTheNearestReachWin) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Model &middle = *Model::create(design, "middle");
    Model &other = *Model::create(design, "other");
    Model &below = reader(design, "below");
    Block &in = *Block::create(middle, "in", A_INPUT_BLOCK);
    sender(top, "everywhere", input(top, "x", "s8.0"), "gotoTagTypeGlobal");
    sender(top, "bus", input(top, "b", "s8.0"), "gotoTagTypeBus");
    sender(top, "bus only", input(top, "c", "s8.0"), "gotoTagTypeBus", "u");
    middle.setParam(value("(gotoTagTypeScoped t)"), A_TRUE);
    sender(middle, "scoped", *Wire::create(in, "i"), "gotoTagTypeScoped");
    // A local tag of one model is none of another.
    sender(middle, "local", *Wire::create(in, "j"), "gotoTagTypeLocal");
    output(middle, "local", receiver(middle, "from"));
    output(middle, "scoped", *Wire::create(instance(middle, "inner", below), "o"));
    output(other, "global", *Wire::create(instance(other, "inner", below), "o"));
    output(other, "bus", receiver(other, "from bus", "u"));
    Block &one = instance(top, "one", middle);
    one.setParam(value("i"), input(top, "y", "s8.0"));
    one.setParam(value("j"), input(top, "z", "s8.0"));
    Block &two = instance(top, "two", other);
    for (const char *name : {"local", "scoped"}) {
        output(top, name, *Wire::create(one, name));
    }
    for (const char *name : {"global", "bus"}) {
        output(top, name, *Wire::create(two, name));
    }
    Simulator simulator(design, top);
    EXPECT_EQ(stepByName(simulator, {{"x", 1}, {"b", 2}, {"c", 3}, {"y", 4}, {"z", 5}}),
              (std::map<std::string, std::int64_t>{{"global", 1}, {"bus", 3}, {"scoped", 4}, {"local", 5}}));
}

TEST_F(TagJoinerTest, letsTypesThrough) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    // Out of a model that gets its type from above, through an adder, a tag and another adder, and back to an input.
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    sender(below, "goto", *Wire::create(in, "i"), "gotoTagTypeGlobal");
    instance(top, "a", below).setParam(value("i"), input(top, "x", "s8.0"));
    Block &add = block(top, "add", "addBlock");
    Wire &t = receiver(top, "from");
    add.setParam(value("0"), t);
    add.setParam(value("1"), t);
    sender(top, "sum", *Wire::create(add, A_PRIM_WIRE_OUT), "gotoTagTypeLocal", "s");
    Block &more = block(top, "more", "addBlock");
    more.setParam(value("0"), receiver(top, "sum again", "s"));
    more.setParam(value("1"), t);
    output(top, "y", *Wire::create(more, A_PRIM_WIRE_OUT));
    Wire &plain = *Wire::create(*top.getInputBlock(), "z");
    sender(top, "plain", plain, "gotoTagTypeLocal", "p");
    output(top, "z", pinned(receiver(top, "later", "p"), "u5.0"));
    Simulator simulator(design, top);
    EXPECT_EQ(stepByName(simulator, {{"x", -128}, {"z", 31}}),
              (std::map<std::string, std::int64_t>{{"y", -384}, {"z", 31}}));
    EXPECT_EQ(simulator.outputs()[0].width, 10U);
}

TEST_F(TagJoinerTest, followsChainsInAnyOrder) {
    for (const bool lateFirst : {false, true}) {
        Design design(mgr.context());
        Model &top = *Model::create(design, "top");
        Wire &x = input(top, "x", "s8.0");
        if (lateFirst) {
            sender(top, "second", receiver(top, "b", "u"), "gotoTagTypeLocal", "v");
            sender(top, "first", receiver(top, "a", "t"), "gotoTagTypeLocal", "u");
            sender(top, "zeroth", x, "gotoTagTypeLocal", "t");
        } else {
            sender(top, "zeroth", x, "gotoTagTypeLocal", "t");
            sender(top, "first", pinned(receiver(top, "a", "t"), "s8.0"), "gotoTagTypeLocal", "u");
            sender(top, "second", receiver(top, "b", "u"), "gotoTagTypeLocal", "v");
        }
        output(top, "y", receiver(top, "c", "v"));
        Simulator simulator(design, top);
        EXPECT_EQ(stepWith(simulator, {42}), (Numbers{42})) << lateFirst;
    }
}

TEST_F(TagJoinerTest, letsTheLastOfEqualTagsInAModelHold) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    sender(top, "a", input(top, "x", "s8.0"), "gotoTagTypeLocal");
    sender(top, "b", input(top, "y", "s8.0"), "gotoTagTypeLocal");
    output(top, "z", receiver(top, "from"));
    Simulator simulator(design, top);
    EXPECT_EQ(stepWith(simulator, {1, 2}), (Numbers{2}));
}

TEST_F(TagJoinerTest, letsTheNearestModelOnTheWayToTheLastGotoHold) {
    for (const bool alsoBetween : {false, true}) {
        Design design(mgr.context());
        Model &top = *Model::create(design, "top");
        Model &between = reader(design, "between");
        Block &outer = instance(top, "call", between);
        // In the order of the design, which is not that of the instances, the Goto in `z` is the last.
        for (const char *name : {"z", "m", "a"}) {
            Model &below = reader(design, name);
            Block &call = instance(between, name == std::string("z") ? "first" : name, below);
            if (name != std::string("m")) {
                sender(below, "goto", *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), "i"),
                       "gotoTagTypeGlobal");
                outer.setParam(value(name), input(top, name, "s8.0"));
                call.setParam(value("i"), input(between, name, "s8.0"));
            }
            output(between, name, *Wire::create(call, "o"));
            output(top, name, *Wire::create(outer, name));
        }
        if (alsoBetween) {
            outer.setParam(value("b"), input(top, "b", "s8.0"));
            sender(between, "goto", input(between, "b", "s8.0"), "gotoTagTypeGlobal");
        }
        output(top, "o", *Wire::create(outer, "o"));
        output(top, "outside", receiver(top, "from"));
        Simulator simulator(design, top);
        std::map<std::string, std::int64_t> in{{"z", 1}, {"a", 2}};
        if (alsoBetween) {
            in["b"] = 3;
        }
        const std::int64_t others = alsoBetween ? 3 : 1;
        EXPECT_EQ(stepByName(simulator, in),
                  (std::map<std::string, std::int64_t>{
                      {"a", 2}, {"m", others}, {"o", others}, {"outside", others}, {"z", 1}}))
            << alsoBetween;
    }
}

TEST_F(TagJoinerTest, refusesTagsThatLeadNowhere) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Wire &x = input(top, "x", "s8.0");
    Wire &y = receiver(top, "from");
    output(top, "y", y);
    EXPECT_EQ(refusal(design, top), "no Goto with the tag 't' is in reach top/from");
    // Without a model that is marked for the tag, nobody sees a scoped one.
    Block &scoped = sender(top, "goto", x, "gotoTagTypeScoped");
    EXPECT_EQ(refusal(design, top), "no Goto with the tag 't' is in reach top/from");
    top.setParam(value("(gotoTagTypeScoped t)"), A_TRUE);
    EXPECT_EQ(refusal(design, top), "");
    Block &pin = *Block::create(top, "wide", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value("(typeSFixed 9 0)")));
    pin.setParam(value("0"), y);
    EXPECT_EQ(refusal(design, top), "a From and its Goto have two types top/from top/goto");
    delete &pin;
    scoped.setParam(A_GOTO_PORT_IN, y);
    EXPECT_EQ(refusal(design, top), "From and Goto blocks form a loop without a driver top/from");
    scoped.setParam(A_GOTO_PORT_IN, pinned(y, "s8.0"));
    EXPECT_EQ(refusal(design, top), "a loop of wires has no driver top/from top/(dupName 0 pin)");
    scoped.setParam(A_GOTO_PORT_IN, nullptr);
    EXPECT_EQ(refusal(design, top), "the Goto has no input top/goto");
    scoped.setParam(A_GOTO_PORT_IN, x);
    scoped.setParam(A_GOTO_TAG, nullptr);
    EXPECT_EQ(refusal(design, top), "the block has no tag top/goto");
}

TEST_F(TagJoinerTest, refusesATagThatTwoInstancesGive) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    sender(below, "goto", *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), "i"), "gotoTagTypeGlobal");
    for (const char *name : {"a", "b"}) {
        instance(top, name, below).setParam(value("i"), input(top, name, "s8.0"));
    }
    EXPECT_EQ(refusal(design, top), "");
    output(top, "y", receiver(top, "from"));
    EXPECT_EQ(refusal(design, top),
              "Goto blocks in several instances of a model give the tag 't' top/from top/a/goto top/b/goto");
}

} // namespace
} // namespace orvo::sim
