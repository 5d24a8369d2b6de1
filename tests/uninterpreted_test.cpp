// Functions of which nothing is known: equal inputs give equal outputs, other inputs give others, and nothing but the
// inputs counts.
#include "sim/uninterpreted.h"

#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <set>

namespace orvo::sim {
namespace {

using test::Numbers;

class UninterpretedTest : public test::SimulatorFixture {
  protected:
    /// A handle of a model with an input x and an output y.
    std::string handle(const std::string &note, const std::string &x, const std::string &y,
                       const std::string &mappings = "(unrollMappingsTag) (unrollMappingsTag)",
                       const std::string &rest = "") {
        const auto types = [&](const std::string &in, const std::string &out) {
            return "(scheduledModelTypesTag " + in + " " + out + ")";
        };
        return "(scheduledModelHandleTag " + note + " (scheduledModelPortlistTag (x) (y)) " + types(x, y) +
               " (scheduledModelDomainsTag () ()) (scheduledModelTimestepsTag () ()) " + mappings + " (0 0 ())" + rest +
               ")";
    }
    std::string pairOf(const std::string &name, const std::string &type) {
        return "(" + name + " " + testing::typeText(type) + ")";
    }
};

TEST_F(UninterpretedTest, dependsOnEachBitOfEachInput) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Block &block = *Block::create(top, "far", A_EXT_IFACE_BLOCK);
    block.setParam(value("a"), input(top, "a", "s70.0"));
    block.setParam(value("b"), input(top, "b", "u3.0"));
    block.setParam(value("extIfaceBooleanDeclWires"), ValueRef(value("(flag)")));
    output(top, "flag", *Wire::create(block, "flag"));
    Block &pin = *Block::create(top, "wide", A_TYPE_PIN_BLOCK);
    pin.setParam(A_TYPE_PIN_TYPE, ValueRef(value(testing::typeText("s37.3"))));
    pin.setParam(value("0"), *Wire::create(block, "wide"));
    output(top, "wide", *Wire::create(pin, value("0")));
    Simulator simulator(design, top);
    ASSERT_EQ(simulator.outputs().size(), 2U);
    std::set<std::int64_t> seen;
    const auto run = [&](const std::vector<std::uint64_t> &a, std::int64_t b) {
        simulator.setInput(0, a);
        simulator.setInput(1, b);
        simulator.step();
        const std::int64_t wide = simulator.outputInteger(1);
        EXPECT_GE(wide, -(std::int64_t{1} << 39));
        EXPECT_LT(wide, std::int64_t{1} << 39);
        return wide;
    };
    seen.insert(run({0, 0}, 0));
    int flipped = 0;
    for (std::size_t bit = 0; bit < 73; ++bit) {
        std::vector<std::uint64_t> a{0, 0};
        if (bit < 70) {
            a[bit / 64] = std::uint64_t{1} << (bit % 64);
        }
        const std::int64_t wide = run(a, bit < 70 ? 0 : std::int64_t{1} << (bit - 70));
        EXPECT_TRUE(seen.insert(wide).second) << "bit " << bit;
        EXPECT_EQ(run(a, bit < 70 ? 0 : std::int64_t{1} << (bit - 70)), wide);
        flipped += static_cast<int>(simulator.outputInteger(0));
    }
    // One bit is true about as often as not.
    EXPECT_GT(flipped, 15);
    EXPECT_LT(flipped, 58);
}

TEST_F(UninterpretedTest, knowsNeitherNamesOfBlocksNorInstances) {
    Design design(mgr.context());
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    const auto make = [&](Model &model, const char *name, const char *note) -> Block & {
        Block &block = *Block::create(model, name, A_SCHEDULED_MODEL_BLOCK);
        const std::string text = handle(note, "(" + pairOf("x", "s8.0") + ")", "(" + pairOf("y", "s32.0") + ")");
        block.setParam(A_SCHEDULED_MODEL_VALUE, ValueRef(value(text)));
        return block;
    };
    Wire &x = input(top, "x", "s8.0");
    Block &one = make(top, "one", "alpha");
    Block &other = make(top, "other", "beta");
    Block &inner = make(below, "inner", "alpha");
    one.setParam(value("x"), x);
    other.setParam(value("x"), x);
    inner.setParam(value("x"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), "i"));
    output(below, "o", *Wire::create(inner, "y"));
    Block &instance = *Block::create(top, "instance", A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, below);
    instance.setParam(value("i"), x);
    output(top, "a", *Wire::create(one, "y"));
    output(top, "b", *Wire::create(instance, "o"));
    output(top, "c", *Wire::create(other, "y"));
    Simulator simulator(design, top);
    std::set<std::int64_t> seen;
    for (std::int64_t in = -128; in < 128; ++in) {
        const Numbers out = stepWith(simulator, {in});
        EXPECT_EQ(out[0], out[1]) << in;
        EXPECT_NE(out[0], out[2]) << in;
        EXPECT_TRUE(seen.insert(out[0]).second) << in;
    }
}

TEST_F(UninterpretedTest, staysTheSameFunctionWhenSignalsAreTakenApart) {
    const std::string index = "(compoundDecorIndexTag ";
    const auto at = [&](int lane, int part) {
        return index + "(compoundIndexTypeVector " + std::to_string(lane) + ") (compoundIndexTypeComplex " +
               std::to_string(part) + "))";
    };
    const std::string mappings = "(unrollMappingsTag (x ((" + at(0, 0) + " p) (" + at(0, 1) + " q) (" + at(1, 0) +
                                 " r) (" + at(1, 1) + " s)))) (unrollMappingsTag (y ((" + index +
                                 "(compoundIndexTypeVector 0)) (y 0)) (" + index +
                                 "(compoundIndexTypeVector 1)) (y 1)))))";
    const std::string apart = "(" + pairOf("p", "s8.0") + " " + pairOf("q", "s8.0") + " " + pairOf("r", "s8.0") + " " +
                              pairOf("s", "s8.0") + ")";
    const std::string results = "(" + pairOf("(y 0)", "s32.0") + " " + pairOf("(y 1)", "s32.0") + ")";
    const std::string original = " scheduledModelHandleOriginaltypesTag (scheduledModelTypesTag (" +
                                 pairOf("x", "[2] c s8.0") + ") (" + pairOf("y", "[2] s32.0") + "))";
    const ValueRef text = ValueRef(value(handle("alpha", apart, results, mappings, original)));

    Design before(mgr.context());
    Model &top = *Model::create(before, "top");
    Block &whole = *Block::create(top, "block", A_SCHEDULED_MODEL_BLOCK);
    whole.setParam(A_SCHEDULED_MODEL_VALUE, text);
    whole.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_TRUE);
    whole.setParam(value("x"), input(top, "x", "[2] c s8.0"));
    output(top, "y", *Wire::create(whole, "y"));

    Design after(mgr.context());
    Model &plain = *Model::create(after, "top");
    Block &parts = *Block::create(plain, "block", A_SCHEDULED_MODEL_BLOCK);
    parts.setParam(A_SCHEDULED_MODEL_VALUE, text);
    for (const char *name : {"p", "q", "r", "s"}) {
        parts.setParam(value(name), input(plain, name, "s8.0"));
    }
    output(plain, "y0", *Wire::create(parts, value("(y 0)")));
    output(plain, "y1", *Wire::create(parts, value("(y 1)")));

    Simulator one(before, top);
    Simulator other(after, plain);
    test::Chance random(11);
    for (int cycle = 0; cycle < 50; ++cycle) {
        Numbers in;
        for (int i = 0; i < 4; ++i) {
            in.push_back(static_cast<std::int8_t>(random()));
        }
        EXPECT_EQ(stepWith(one, in), stepWith(other, in)) << cycle;
    }
}

TEST_F(UninterpretedTest, namesElementsAsTheirPortsAreNamedWhenTakenApart) {
    SignalTypes types(mgr.context());
    const auto names = [&](const char *type, const char *name) {
        std::vector<std::string> made;
        appendElementNames(*types.of(value(testing::typeText(type))), 0, value(name), mgr.context(), made);
        return made;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(names("s8.0", "x"), (Names{"x"}));
    EXPECT_EQ(names("[2] s8.0", "x"), (Names{"(x 0)", "(x 1)"}));
    EXPECT_EQ(names("c s8.0", "(a b)"), (Names{"(a real b)", "(a imag b)"}));
    EXPECT_EQ(names("[2][2] s8.0", "x"), (Names{"(x 0)", "(x 1)", "(x 2)", "(x 3)"}));
    EXPECT_EQ(names("{u1.0,c s8.0}", "x"), (Names{"(x 0)", "(x real 1)", "(x imag 1)"}));
}

TEST_F(UninterpretedTest, readsThePatternOfAValueAlone) {
    std::vector<std::uint64_t> words(4, 0);
    Op op;
    const Operand in{0, 8, false, false, 0};
    op.in = &in;
    op.count = 1;
    op.state = 2;
    op.out = {1, 64, false, false, 0};
    words[0] = 0x12;
    digestInputs(words.data(), op);
    const std::uint64_t clean = words[1];
    // What fills the last word up does not count.
    words[0] = 0xffff'ff12;
    digestInputs(words.data(), op);
    EXPECT_EQ(words[1], clean);
    // The seed of the input does.
    words[2] = 1;
    digestInputs(words.data(), op);
    EXPECT_NE(words[1], clean);
}

} // namespace
} // namespace orvo::sim
