// The rounds in which composites become primitives: what is looked at when, what moves along, and designs by chance.
#include "orvo/decomposecompositepass.h"

#include "support/cataloguefindings.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/porttypes.h"
#include "support/printedmessages.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/annotation.h>
#include <orvo/blockclass.h>
#include <orvo/context.h>
#include <orvo/decomposecomposite.h>
#include <orvo/modeltreepass.h>
#include <orvo/nameorigin.h>
#include <orvo/typecache.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <typeinfo>

namespace orvo {
namespace {

using Names = std::set<std::string>;
using Lines = std::vector<std::string>;

/// A handler that does what a test says.
class TestHandler final : public DecomposeCompositeHandler {
  public:
    using Applicable = std::function<bool(GlobalTypeCache &)>;
    using Decompose = std::function<void(Block &, const CachedTypeQuery &, const RefChain &)>;
    TestHandler(Applicable applicable, Decompose decompose)
        : mApplicable(std::move(applicable)), mDecompose(std::move(decompose)) {}
    bool applicable(GlobalTypeCache &cache) const override {
        return mApplicable ? mApplicable(cache) : DecomposeCompositeHandler::applicable(cache);
    }
    void decompose(Block &block, const CachedTypeQuery &query, const RefChain &refChain) const override {
        mDecompose(block, query, refChain);
    }

  private:
    Applicable mApplicable;
    Decompose mDecompose;
};

class DecomposeCompositeTest : public test::SimulatorFixture {
  protected:
    void handle(const StaticString &type, TestHandler::Applicable applicable, TestHandler::Decompose decompose) {
        mgr.context()->getBlockClass(type)->registerHandler<DecomposeCompositeHandler>(
            new TestHandler(std::move(applicable), std::move(decompose)));
    }
    /// Gives the output's readers another block of the same input.
    static void become(Block &block, const char *name, const StaticString &type) {
        Block &made = *Block::create(block.getModel(), name, type);
        made.setParam(NumberValue::get(0, block.getContext()),
                      *block.getPort(NumberValue::get(0, block.getContext()))->getWire());
        block.getWire(A_PRIM_WIRE_OUT)->replace(*Wire::create(made, A_PRIM_WIRE_OUT));
        delete &block;
    }
    Lines run(const ParamContext &params = ParamContext()) {
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("DecomposeCompositePass", params);
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        return heard.take();
    }
    static Names namesIn(const Model &in) {
        Names names;
        for (const Block &one : in) {
            names.insert(one.getName()->toString());
        }
        return names;
    }
    static std::string text(const Node &node, const StaticString &key) {
        const Value *found = node.findParam(key);
        return found == nullptr ? "" : found->toString();
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
};

TEST_F(DecomposeCompositeTest, expandsWhatACompositeBecameInTheSameRun) {
    Block &saturate = unary(model, "sat", "saturateBlock", input(model, "a", "s6.0"));
    saturate.setParam(value("1"), input(model, "b", "s6.0"));
    saturate.setParam(value("2"), input(model, "c", "s6.0"));
    output(model, "o", out(saturate));
    EXPECT_EQ(run(), Lines{});
    EXPECT_EQ(namesIn(model).count("((sat min) mux)"), 1U);
    EXPECT_EQ(namesIn(model).count("((sat max) signBit)"), 1U);
    EXPECT_EQ(namesIn(model).count("(sat max)"), 0U);
}

TEST_F(DecomposeCompositeTest, takesOnlyTheTypesOfTheSubset) {
    output(model, "o1", out(unary(model, "abs", "absBlock", input(model, "a", "s6.0"))));
    output(model, "o2", out(unary(model, "cast", "castBlock", input(model, "b", "s6.0"))));
    run(WithParam("P_SUBSET_OF_BLOCKS", value("(absBlock demuxBlock)")));
    EXPECT_EQ(namesIn(model).count("abs"), 0U);
    EXPECT_EQ(namesIn(model).count("cast"), 1U);
    run(WithParam("P_SUBSET_OF_BLOCKS", value("()")));
    EXPECT_EQ(namesIn(model).count("cast"), 0U);
}

TEST_F(DecomposeCompositeTest, leavesModelsThatAreSwitchedOff) {
    model.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    output(model, "o", out(unary(model, "abs", "absBlock", input(model, "a", "s6.0"))));
    run();
    EXPECT_EQ(namesIn(model).count("abs"), 1U);
}

TEST_F(DecomposeCompositeTest, asksAgainAfterARoundThatChangedSomething) {
    int asked = 0;
    handle(
        A_SQRT_BLOCK,
        [&](GlobalTypeCache &cache) {
            ++asked;
            cache.followPort(NumberValue::get(0, mgr.context()));
            const bool waits = cache.getBlock().type() == A_SIN_BLOCK.get_ptr();
            cache.backtrack();
            return !waits;
        },
        [](Block &block, const CachedTypeQuery &, const RefChain &) { become(block, "root", A_NOT_BLOCK); });
    handle(A_SIN_BLOCK, nullptr,
           [](Block &block, const CachedTypeQuery &, const RefChain &) { become(block, "sine", A_NOT_BLOCK); });
    Block &sine = unary(model, "s", "sinBlock", input(model, "a", "s6.0"));
    output(model, "o", out(unary(model, "r", "sqrtBlock", out(sine))));
    EXPECT_EQ(run(), Lines{});
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(namesIn(model).count("sine"), 1U);
    EXPECT_EQ(namesIn(model).count("root"), 1U);
}

TEST_F(DecomposeCompositeTest, endsWhereARoundChangesNothing) {
    int asked = 0;
    handle(
        A_SQRT_BLOCK,
        [&](GlobalTypeCache &) {
            ++asked;
            return false;
        },
        [](Block &, const CachedTypeQuery &, const RefChain &) { FAIL(); });
    output(model, "o1", out(unary(model, "r", "sqrtBlock", input(model, "a", "s6.0"))));
    run();
    EXPECT_EQ(asked, 1);
    output(model, "o2", out(unary(model, "abs", "absBlock", input(model, "b", "s6.0"))));
    asked = 0;
    run();
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(namesIn(model).count("r"), 1U);
}

TEST_F(DecomposeCompositeTest, expandsBlocksThatAreBornInAnotherModel) {
    Model &other = *Model::create(design, "other");
    Model &off = *Model::create(design, "off");
    off.setParam(A_SYNTH_OPTIMIZE, A_FALSE);
    handle(A_SQRT_BLOCK, nullptr, [&](Block &block, const CachedTypeQuery &, const RefChain &) {
        for (Model *in : {&other, &off}) {
            output(*in, "o", out(unary(*in, "abs", "absBlock", input(*in, "i", "s6.0"))));
        }
        become(block, "root", A_NOT_BLOCK);
    });
    output(model, "o", out(unary(model, "r", "sqrtBlock", input(model, "a", "s6.0"))));
    run();
    EXPECT_EQ(namesIn(other).count("(abs mux)"), 1U);
    EXPECT_EQ(namesIn(off).count("abs"), 1U);
}

TEST_F(DecomposeCompositeTest, answersForAllEndsOfABlockThatTookTheDefault) {
    Lines types;
    handle(A_SQRT_BLOCK, nullptr, [&](Block &block, const CachedTypeQuery &query, const RefChain &refChain) {
        types.push_back(readableType(query.getType(*block.getPort(value("0")), refChain).get_ptr()));
        types.push_back(readableType(query.getType(out(block), refChain).get_ptr()));
        become(block, "root", A_NOT_BLOCK);
        EXPECT_TRUE(refChain.empty());
    });
    output(model, "o", out(unary(model, "r", "sqrtBlock", input(model, "a", "s6.0"))));
    run();
    EXPECT_EQ(types, (Lines{"s6.0", "s6.0"}));
}

/// A model of one absolute value, instantiated by blocks that read inputs of these types.
class InstancesTest : public DecomposeCompositeTest {
  protected:
    Model &below = *Model::create(design, "below");
    void instantiate(const std::vector<std::string> &types) {
        Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
        Block &abs = unary(below, "abs", "absBlock", *Wire::create(in, value("x")));
        Block::create(below, "out", A_OUTPUT_BLOCK)->setParam(value("y"), out(abs));
        for (const std::string &type : types) {
            const std::string number = std::to_string(model.size());
            Block &instance = *Block::create(model, "i" + number, A_MODEL_BLOCK);
            instance.setParam(A_MODEL_NODE, below);
            instance.setParam(value("x"), input(model, "a" + number, type));
            output(model, "o" + number, *Wire::create(instance, value("y")));
        }
    }
};

TEST_F(InstancesTest, shareADrawingWhereTheirTypesAgree) {
    instantiate({"s6.0", "s6.0", "s6.0"});
    run();
    EXPECT_EQ(namesIn(below).count("(abs mux)"), 1U);
}

TEST_F(InstancesTest, keepABlockWhoseTypesDifferAmongThem) {
    instantiate({"s6.0", "s5.0"});
    run();
    EXPECT_EQ(namesIn(below).count("abs"), 1U);
}

TEST_F(InstancesTest, keepABlockWithTypesOfItsOwnWhoseDriversDifferAmongThem) {
    for (const char *second : {"u1.0", "u3.0"}) {
        SCOPED_TRACE(second);
        const std::string number = std::to_string(model.size());
        Model &shared = *Model::create(design, "shared" + number);
        Block &in = *Block::create(shared, "in", A_INPUT_BLOCK);
        Block &sync = block(shared, "sync", "syncRegisterBlock", {{"syncRegisterClocksSame", "true"}});
        sync.setParam(A_SYNC_REGISTER_DATA_TYPE, NumTypeSpec::sfixed(4, 0).toValue(mgr.context()));
        sync.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, *Wire::create(in, value("x")));
        sync.setParam(A_SYNC_REGISTER_PORT_ICLK_ENABLE, *Wire::create(in, value("e")));
        Block::create(shared, "out", A_OUTPUT_BLOCK)
            ->setParam(value("y"), *Wire::create(sync, A_SYNC_REGISTER_WIRE_OCLK_DATA));
        for (const std::string &type : {std::string("u1.0"), std::string(second)}) {
            const std::string name = std::to_string(model.size());
            Block &instance = *Block::create(model, "i" + name, A_MODEL_BLOCK);
            instance.setParam(A_MODEL_NODE, shared);
            instance.setParam(value("x"), input(model, "a" + name, "s4.0"));
            instance.setParam(value("e"), input(model, "e" + name, type));
            output(model, "o" + name, *Wire::create(instance, value("y")));
        }
        run();
        EXPECT_EQ(namesIn(shared).count("sync"), std::string(second) == "u1.0" ? 0U : 1U);
    }
}

TEST_F(DecomposeCompositeTest, handsMetadataToWhatTakesThePlace) {
    Block &abs = unary(model, "abs", "absBlock", input(model, "a", "s6.0"));
    abs.setParam(A_METADATA, value("((comment here))"));
    output(model, "o", out(abs));
    run();
    EXPECT_EQ(text(*model.getBlock(value("(abs mux)")), A_METADATA), "((comment here))");
}

TEST_F(DecomposeCompositeTest, movesLatencyConstraintsToWhatReadsAndWrites) {
    Block &abs = unary(model, "abs", "absBlock", input(model, "a", "s6.0"));
    abs.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    abs.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    output(model, "o", out(abs));
    run();
    for (const char *name : {"(abs signBit)", "(abs neg)", "(abs mux)"}) {
        EXPECT_EQ(text(*model.getBlock(value(name)), A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))") << name;
    }
    EXPECT_EQ(text(*model.getBlock(value("(abs mux)")), A_SCHEDULE_CONSTRAINT_WIRES), "((primWireOut true () (5)))");
}

TEST_F(DecomposeCompositeTest, movesConstraintsOfAWireThatNobodyReadsAndThroughSeveralRounds) {
    Block &abs = unary(model, "abs", "absBlock", input(model, "a", "u6.0"));
    abs.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    abs.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    run();
    const PureValueRef rounding = StringValue::get("(abs castBack primWireOut)_rnd", mgr.context());
    ASSERT_NE(model.getBlock(rounding), nullptr);
    EXPECT_EQ(text(*model.getBlock(rounding), A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))");
    EXPECT_EQ(text(*model.getBlock(value("((abs castBack primWireOut) sel)")), A_SCHEDULE_CONSTRAINT_WIRES),
              "((primWireOut true () (5)))");
    EXPECT_EQ(namesIn(model).count("probe"), 0U);
}

TEST_F(DecomposeCompositeTest, movesConstraintsOffABlockThatBecomesAWire) {
    Wire &source = input(model, "a", "s6.0");
    Block &least = unary(model, "least", "minBlock", source);
    least.setParam(A_SCHEDULE_CONSTRAINT_PORTS, Value::parse("((0 true (5) ()))", mgr.context()));
    least.setParam(A_SCHEDULE_CONSTRAINT_WIRES, Value::parse("((primWireOut true () (5)))", mgr.context()));
    output(model, "o", out(unary(model, "not", "notBlock", out(least))));
    run();
    EXPECT_EQ(text(*model.getBlock(value("not")), A_SCHEDULE_CONSTRAINT_PORTS), "((0 true (5) ()))");
    EXPECT_EQ(text(source.getBlock(), A_SCHEDULE_CONSTRAINT_WIRES),
              "((" + source.getName()->toString() + " true () (5)))");
}

TEST_F(DecomposeCompositeTest, movesBoundariesOfDomains) {
    output(model, "o", out(unary(model, "abs", "absBlock", input(model, "a", "s6.0"))));
    output(model, "p", out(unary(model, "not", "notBlock", input(model, "b", "s6.0"))));
    const std::string tag(A_WIRE_TAG.text());
    model.setParam(A_SYNTH_SCHEDULE_DOMAINS,
                   Value::parse("((" + std::string(A_SCHEDULE_DOMAIN_BEGIN.text()) + " d (not " +
                                    std::string(A_PORT_TAG.text()) + " 0)) (" +
                                    std::string(A_SCHEDULE_DOMAIN_END.text()) + " d (abs " + tag + " primWireOut)))",
                                mgr.context()));
    run();
    EXPECT_EQ(text(model, A_SYNTH_SCHEDULE_DOMAINS),
              "((" + std::string(A_SCHEDULE_DOMAIN_BEGIN.text()) + " d (not " + std::string(A_PORT_TAG.text()) +
                  " 0)) (" + std::string(A_SCHEDULE_DOMAIN_END.text()) + " d ((abs mux) " + tag + " primWireOut)))");
}

TEST_F(DecomposeCompositeTest, tellsOfABlockWithAnObjectWithoutATypeAndEnds) {
    handle(A_SQRT_BLOCK, nullptr, [](Block &, const CachedTypeQuery &, const RefChain &) { throw std::bad_typeid(); });
    output(model, "o", out(unary(model, "r", "sqrtBlock", input(model, "a", "s6.0"))));
    const test::PrintedMessages printed(mgr.context());
    PassScheduler scheduler;
    scheduler.addPass("DecomposeCompositePass");
    EXPECT_EXIT(scheduler.apply(design), ::testing::ExitedWithCode(1),
                "0 BAD_TYPEID_WITH_BLOCK_INFO blockName=r blockType=sqrtBlock exception=std::bad_typeid "
                "relatingTo=decompose composite handler");
}

// Designs by chance.

::testing::AssertionResult computesTheSame(gen::DesignGenerator &generator, const std::vector<gen::Recipe> &recipes,
                                           std::map<std::string, std::size_t> *replaced) {
    const auto before = generator.make(recipes);
    const auto design = generator.make(recipes);
    const auto types = test::portTypes(*before);
    test::HeardMessages heard(design->getContext());
    PassScheduler scheduler;
    scheduler.addPass("DecomposeCompositePass");
    scheduler.apply(*design);
    const Lines lines = heard.take();
    if (!lines.empty()) {
        return ::testing::AssertionFailure() << lines.front();
    }
    if (const auto sound = test::checkInvariants(*design); !sound) {
        return sound;
    }
    if (const Lines findings = test::newCatalogueFindings(*before, *design); !findings.empty()) {
        return ::testing::AssertionFailure() << findings.front();
    }
    const NameOrigins origins(*before);
    for (const Model &model : *design) {
        for (const Block &block : model) {
            if (!origins.originOf(block)) {
                return ::testing::AssertionFailure() << block.value()->getPath() << " leads back to no block";
            }
        }
    }
    const auto after = test::portTypes(*design);
    for (const auto &[port, type] : types) {
        const auto now = after.find(port);
        if (now != after.end() && now->second != type) {
            return ::testing::AssertionFailure() << port << " was " << type << " and is " << now->second;
        }
    }
    for (const Model &model : *before) {
        for (const Block &block : model) {
            Model *same = design->getModel(model.getName());
            if (replaced != nullptr && block.getClass()->get<DecomposeCompositeHandler>() != nullptr &&
                (same == nullptr || same->getBlock(block.getName()) == nullptr)) {
                ++(*replaced)[block.type()->toString()];
            }
        }
    }
    sim::CompareOptions options;
    options.cycles = 40;
    return test::sameBehaviour(*before, *design, "top", options);
}

RC_GTEST_PROP(DecomposeCompositePassOnRandomDesigns, computesTheSame, ()) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto same = computesTheSame(generator, recipes, nullptr);
    if (!same) {
        std::ostringstream text;
        XMLServices().toXML(text, *generator.make(recipes));
        RC_LOG() << same.message() << text.str();
    }
    RC_ASSERT(static_cast<bool>(same));
}

TEST(DecomposeCompositePassOnRandomDesigns, computesTheSameForEveryTypeWithAHandler) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::map<std::string, std::size_t> replaced;
    for (std::uint64_t seed = 1; seed <= 110; ++seed) {
        EXPECT_TRUE(computesTheSame(generator, gen::recipesOf(seed, 80), &replaced)) << seed;
    }
    for (const char *type : {"castBlock", "absBlock", "minBlock", "maxBlock", "magminBlock", "magmaxBlock", "dimBlock",
                             "saturateBlock", "chooseBitsBlock", "demuxBlock", "syncRegisterBlock", "floatClassBlock",
                             "multPow2Block", "addsubfusedBlock"}) {
        EXPECT_GT(replaced[type], 3U) << type;
    }
}

} // namespace
} // namespace orvo
