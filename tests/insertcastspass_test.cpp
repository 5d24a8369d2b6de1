// Barrel shifters shift in a type that holds their data, and give what they gave.
#include "orvo/insertcastspass.h"

#include "support/exhaustive.h"
#include "support/onepass.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/typeinferpass.h>
#include <orvo/types.h>

#include <algorithm>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class InsertCastsTest : public test::SimulatorFixture {
  protected:
    static void run(Design &in) { test::runPass(in, "InsertCastsPass"); }
    static void runAndCompare(Design &in, std::uint64_t cycles = 300) {
        test::runAndCompare(in, "InsertCastsPass", cycles);
    }
    /// A shifter of these types; null text for no output type.
    Model &shifter(Design &in, const char *block, const std::string &data, const std::string &shift,
                   const std::string &given) {
        Texts params;
        const std::string type = given.empty() ? "" : testing::typeText(given);
        if (!given.empty()) {
            params.emplace_back("barrelOutputType", type.c_str());
        }
        return oneBlock(in, block, {{"0", data.c_str()}, {"barrelPortShift", shift.c_str()}}, {{"primWireOut", ""}},
                        params);
    }
    std::string outputType(Model &top) {
        GlobalTypePass types;
        const PureValueRef type = types.getType(*top.getOutputBlock()->port_begin(), {});
        return type ? type->toString() : "?";
    }
    std::string param(const Block &block, const StaticString &key) {
        const ValueRef found = block.getParam(key);
        return found ? found->toString() : "";
    }
    Block &made(Model &top) { return *top.getBlock(value("block")); }
    Block *castIn(Model &model, const char *name = "(block shiftCast)") { return model.getBlock(value(name)); }

    Design design{mgr.context()};
};

TEST_F(InsertCastsTest, widensTheShifterToItsDataAndCastsBack) {
    Model &top = shifter(design, "barrelLeftBlock", "s8.2", "u2.0", "u4.3");
    runAndCompare(design);
    EXPECT_EQ(param(made(top), A_BARREL_OUTPUT_TYPE), "(typeSFixed 8 3)");
    const Block *cast = castIn(top);
    ASSERT_NE(cast, nullptr);
    EXPECT_TRUE(cast->getParam(A_CAST_MODE) == A_CAST_MODE_CONVERT);
    EXPECT_TRUE(cast->getParam(A_CAST_ROUNDING_MODE) == A_ROUNDING_TRUNC);
    EXPECT_TRUE(cast->getParam(A_CAST_SATURATE_MODE) == A_SATURATE_NONE);
    EXPECT_EQ(param(*cast, A_CAST_OUTPUT_TYPE), "(typeUFixed 4 3)");
    EXPECT_EQ(&cast->getPort(value("0"))->peekWire()->getBlock(), &made(top));
    EXPECT_EQ(&top.getOutputBlock()->port_begin()->peekWire()->getBlock(), cast);
    EXPECT_EQ(outputType(top), "(typeUFixed 4 3)");
}

TEST_F(InsertCastsTest, holdsAnUnsignedAndASignedTypeInASignedOne) {
    Model &top = shifter(design, "barrelRightBlock", "s3.0", "u2.0", "u5.0");
    runAndCompare(design);
    EXPECT_EQ(param(made(top), A_BARREL_OUTPUT_TYPE), "(typeSFixed 6 0)");
}

TEST_F(InsertCastsTest, leavesAShifterWhoseTypeHoldsItsData) {
    for (const char *given : {"s8.2", "s9.2", "s8.4"}) {
        Design one(mgr.context());
        shifter(one, "barrelLeftBlock", "s8.2", "u2.0", given);
        const std::string before = test::xmlOf(one);
        run(one);
        EXPECT_EQ(test::xmlOf(one), before) << given;
    }
}

TEST_F(InsertCastsTest, leavesAShifterWithoutAType) {
    for (const char *given : {"", "nonsense"}) {
        Design one(mgr.context());
        Model &top = shifter(one, "barrelLeftBlock", "s8.2", "u2.0", "");
        if (*given != 0) {
            made(top).setParam(A_BARREL_OUTPUT_TYPE, ValueRef(value(given)));
        }
        const std::string before = test::xmlOf(one);
        run(one);
        EXPECT_EQ(test::xmlOf(one), before) << given;
    }
}

TEST_F(InsertCastsTest, leavesOtherBlocksThatCarryTheParameter) {
    shifter(design, "barrelRightLzcBlock", "s8.2", "u2.0", "u4.3");
    const std::string before = test::xmlOf(design);
    run(design);
    EXPECT_EQ(test::xmlOf(design), before);
}

TEST_F(InsertCastsTest, leavesFloats) {
    for (const auto &[data, given] : {std::pair<const char *, const char *>{"float(23,8)", "s8.0"},
                                      {"s8.0", "float(23,8)"},
                                      {"{s8.0,s8.0}", "s4.0"}}) {
        Design one(mgr.context());
        shifter(one, "barrelLeftBlock", data, "u2.0", given);
        const std::string before = test::xmlOf(one);
        run(one);
        EXPECT_EQ(test::xmlOf(one), before) << data;
    }
}

TEST_F(InsertCastsTest, leavesAShifterThatReadsNothingOrThatNobodyReads) {
    for (const char *gone : {"data", "shift", "wire", "reader"}) {
        Design one(mgr.context());
        Model &top = shifter(one, "barrelLeftBlock", "s8.2", "u2.0", "u4.3");
        const std::string what = gone;
        if (what == "data") {
            made(top).setParam(value("0"), nullptr);
        } else if (what == "wire") {
            delete made(top).getWire(A_PRIM_WIRE_OUT);
        } else if (what == "reader") {
            delete top.getOutputBlock();
        } else {
            made(top).setParam(A_BARREL_PORT_SHIFT, nullptr);
        }
        const std::string before = test::xmlOf(one);
        run(one);
        EXPECT_EQ(test::xmlOf(one), before) << what;
    }
}

TEST_F(InsertCastsTest, takesVectorsAndComplexNumbersElementByElement) {
    for (const auto &[data, shift] : {std::pair<const char *, const char *>{"[3] s8.2", "u2.0"},
                                      {"[3] s8.2", "[3] u2.0"},
                                      {"s8.2", "[3] u2.0"},
                                      {"c s8.2", "u2.0"},
                                      {"[2] c s8.2", "u2.0"}}) {
        SCOPED_TRACE(data);
        Design one(mgr.context());
        Model &top = shifter(one, "barrelRightBlock", data, shift, "u4.3");
        const std::string type = outputType(top);
        runAndCompare(one);
        EXPECT_NE(castIn(top), nullptr);
        EXPECT_EQ(param(made(top), A_BARREL_OUTPUT_TYPE), "(typeSFixed 8 3)");
        EXPECT_EQ(outputType(top), type);
    }
}

TEST_F(InsertCastsTest, leavesWhatABlockCarriesWhereItIs) {
    Model &top = shifter(design, "barrelLeftBlock", "s8.2", "u2.0", "u4.3");
    made(top).setParam(A_METADATA, Value::parse("((comment here))", mgr.context()));
    const ValueRef edges = Value::parse("((scheduleDomainEnd red (block wireTag primWireOut)))", mgr.context());
    top.setParam(A_SYNTH_SCHEDULE_DOMAINS, edges);
    run(design);
    EXPECT_EQ(top.getParam(A_SYNTH_SCHEDULE_DOMAINS), edges);
    EXPECT_EQ(param(made(top), A_METADATA), "((comment here))");
}

TEST_F(InsertCastsTest, widensAShifterToTheDataOfAllInstances) {
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    Block &shift = block(below, "shift", "barrelLeftBlock", {{"barrelOutputType", "(typeSFixed 4 0)"}});
    shift.setParam(value("0"), *Wire::create(in, "x"));
    shift.setParam(A_BARREL_PORT_SHIFT, *Wire::create(in, "by"));
    output(below, "y", *Wire::create(shift, A_PRIM_WIRE_OUT));
    for (const auto &[name, type] :
         {std::pair<const char *, const char *>{"a", "u4.0"}, {"b", "u6.1"}, {"c", "s2.3"}}) {
        Block &use = block(top, name, "modelBlock");
        use.setParam(A_MODEL_NODE, below);
        use.setParam(value("x"), input(top, std::string("x") + name, type));
        use.setParam(value("by"), input(top, std::string("by") + name, "u2.0"));
        output(top, std::string("y") + name, *Wire::create(use, value("y")));
    }
    runAndCompare(design);
    EXPECT_EQ(param(shift, A_BARREL_OUTPUT_TYPE), "(typeSFixed 7 3)");
    EXPECT_NE(castIn(below, "(shift shiftCast)"), nullptr);
}

// A cast tells the lanes of its output.
TEST_F(InsertCastsTest, leavesAShifterThatHasLanesInOneInstanceOnly) {
    Model &top = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    Block &shift = block(below, "shift", "barrelLeftBlock", {{"barrelOutputType", "(typeSFixed 4 0)"}});
    shift.setParam(value("0"), *Wire::create(in, "x"));
    shift.setParam(A_BARREL_PORT_SHIFT, *Wire::create(in, "by"));
    output(below, "y", *Wire::create(shift, A_PRIM_WIRE_OUT));
    for (const auto &[name, type] : {std::pair<const char *, const char *>{"a", "u6.0"}, {"b", "[2] u6.0"}}) {
        Block &use = block(top, name, "modelBlock");
        use.setParam(A_MODEL_NODE, below);
        use.setParam(value("x"), input(top, std::string("x") + name, type));
        use.setParam(value("by"), input(top, std::string("by") + name, "u2.0"));
        output(top, std::string("y") + name, *Wire::create(use, value("y")));
    }
    const std::string before = test::xmlOf(design);
    run(design);
    EXPECT_EQ(test::xmlOf(design), before);
}

/// Fixed-point types of up to `most` bits.
std::vector<std::string> types(int most, std::initializer_list<int> fractions) {
    std::vector<std::string> all;
    for (const char *sign : {"u", "s"}) {
        for (int width = 1; width <= most; ++width) {
            for (const int frac : fractions) {
                all.push_back(sign + std::to_string(width - frac) + "." + std::to_string(frac));
            }
        }
    }
    return all;
}

// All data and all shifts, in one shifter a pair of types.
TEST_F(InsertCastsTest, givesWhatItGaveForAllSmallTypesAndShifts) {
    std::uint64_t number = 0;
    std::size_t casts = 0;
    for (const std::string &data : types(6, {-1, 0, 2})) {
        for (const std::string &given : types(6, {-1, 0, 2})) {
            const char *const blocks[] = {"barrelLeftBlock", "barrelRightBlock"};
            const char *block = blocks[(number / 3) % 2];
            const std::string shift = "u" + std::to_string(1 + number % 3) + ".0";
            if (number++ % testing::kExhaustiveStride != 0) {
                continue;
            }
            SCOPED_TRACE(data + " " + given + " " + block + " " + shift);
            Design one(mgr.context());
            Model &top = shifter(one, block, data, shift, given);
            Design twin(mgr.context());
            Model &before = shifter(twin, block, data, shift, given);
            run(one);
            casts += castIn(top) == nullptr ? 0 : 1;
            EXPECT_EQ(outputType(top), testing::typeText(given));
            sim::Simulator old(twin, before);
            sim::Simulator now(one, top);
            const NumTypeSpec spec(value(testing::typeText(data)), mgr.context());
            const std::int64_t low = spec.isSigned() ? -(std::int64_t{1} << (spec.fixedBits() - 1)) : 0;
            for (std::int64_t x = low; x < low + (std::int64_t{1} << spec.fixedBits()); ++x) {
                for (std::int64_t by = 0; by < std::int64_t{2} << (number - 1) % 3; ++by) {
                    const std::map<std::string, std::int64_t> in = {{"0", x}, {"barrelPortShift", by}};
                    ASSERT_EQ(stepByName(now, in), stepByName(old, in)) << x << " " << by;
                }
            }
        }
    }
    EXPECT_GT(casts, testing::kExhaustiveStride == 1 ? 900U : 10U);
}

} // namespace
} // namespace orvo
