// Records come apart inside models and at their boundaries, and the design computes the same.
#include "orvo/unrollaggregatepass.h"

#include "orvo/aggregateunrollers.h"
#include "orvo/boundaryaggregateunroller.h"
#include "orvo/replacedsignals.h"

#include "support/cataloguefindings.h"
#include "support/checkedrun.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/lowering.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/blockclass.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/unrollmappings.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace orvo {
namespace {

/// The passes, each of which must leave a sound netlist of whole blocks.
std::vector<std::string> runPasses(Design &design, const std::vector<const char *> &passes) {
    return test::runChecked(design, passes, [&design] {
        const std::vector<std::string> broken = test::catalogueFindings(design);
        if (!broken.empty()) {
            RC_LOG() << broken.front();
        }
        RC_ASSERT(broken.empty());
    });
}

std::string textOf(const Design &design) {
    std::ostringstream text;
    XMLServices().toXML(text, design);
    return text.str();
}

void computesTheSame(const std::vector<const char *> &passes) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto before = generator.make(recipes);
    const auto design = generator.make(recipes);
    std::vector<std::string> heard = runPasses(*design, passes);
    std::erase_if(heard, test::isRefusal);
    if (!heard.empty()) {
        RC_LOG() << heard.front() << textOf(*before);
    }
    RC_ASSERT(heard.empty());
    sim::CompareOptions options;
    options.cycles = 40;
    const auto same = test::sameBehaviour(*before, *design, "top", options);
    if (!same) {
        RC_LOG() << same.message() << textOf(*before);
    }
    RC_ASSERT(static_cast<bool>(same));
}

RC_GTEST_PROP(UnrollAggregatePassOnRandomDesigns, computesTheSame, ()) { computesTheSame({"UnrollAggregatePass"}); }

RC_GTEST_PROP(UnrollAggregateCrossModelPassOnRandomDesigns, computesTheSame, ()) {
    computesTheSame({"UnrollAggregateCrossModelPass"});
}

RC_GTEST_PROP(UnrollAggregatePassesOnRandomDesigns, computeTheSame, ()) {
    computesTheSame({"UnrollAggregatePass", "UnrollAggregateCrossModelPass", "ElideUnpackPass", "DeadBlockPass"});
}

const std::string kRefused = "UNAGG_INVALID_EXPAND_TYPE block=";
const std::string kTypesDiffer = " detail=its signals differ in type between the instances of the model";
const std::string kNoShape = " detail=a record has a part without members, or too many members or levels of them";

class UnrollAggregatePassTest : public test::SimulatorFixture {
  protected:
    using Names = std::vector<std::string>;

    Names run(const char *pass) { return runOn(design, pass); }
    Names runOn(Design &of, const char *pass) {
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler(&state);
        scheduler.addPass(pass);
        scheduler.apply(of);
        EXPECT_TRUE(test::checkInvariants(of));
        return heard.take();
    }
    /// A level that holds its input x while its input y is false, and a top that uses it.
    void makeTwoLevels(const std::string &x) {
        Block &held = block(below, "held", "registerBlock");
        held.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
        held.setParam(A_REGISTER_PORT_ENABLE, *Wire::create(*below.getInputBlock(), value("y")));
        output(below, "z", *Wire::create(held, A_PRIM_WIRE_OUT));
        Block &use = block(model, "use", "modelBlock");
        use.setParam(A_MODEL_NODE, below);
        use.setParam(value("x"), input(model, "x", x));
        use.setParam(value("y"), input(model, "y", "u1.0"));
        output(model, "z", *Wire::create(use, value("z")));
    }
    Block &useAgain(const std::string &x) {
        Block &again = block(model, "again", "modelBlock");
        again.setParam(A_MODEL_NODE, below);
        again.setParam(value("x"), input(model, "other", x));
        again.setParam(value("y"), *model.getInputBlock()->getWire(value("y")));
        output(model, "w", *Wire::create(again, value("z")));
        return again;
    }
    Names blocksOf(const StaticString &type) {
        Names names;
        for (const Block &block : below) {
            if (block.type() == type.get_ptr()) {
                names.push_back(block.getName()->toString());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    const UnrollMappings &inputs(const Model &of) {
        return dynamic_cast<BoundaryUnrollMappingStateItem *>(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY))
            ->getInputUnrollMapping(of);
    }
    static CompoundDecorIndex path(std::initializer_list<int> members) {
        CompoundDecorIndex made = CompoundDecorIndex::createEmptyIndex();
        for (const int member : members) {
            made = made << CompoundDecorIndex::createAggregateIndex(member);
        }
        return made;
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    PassSchedulerState state;
};

TEST_F(UnrollAggregatePassTest, countsFlatMembersDepthFirst) {
    makeTwoLevels("{{s4.0, u2.0}, s3.0}");
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    EXPECT_EQ(blocksOf(A_REGISTER_BLOCK), (Names{"(held 0)", "(held 1)", "(held 2)"}));
    EXPECT_EQ(blocksOf(A_AUNPACK_BLOCK), (Names{"(held 0 unapack_aunpack)", "(held 0 unapack_aunpack_0)"}));
    EXPECT_EQ(blocksOf(A_APACK_BLOCK), (Names{"(held primWireOut apack_apack)", "(held primWireOut apack_apack_0)"}));
    const AggregateTypeManager manager;
    const AggregateTypeSpec &spec = manager.specOf(value(testing::typeText("{{s4.0, [2] u2.0}, c s3.0}")));
    EXPECT_EQ(manager.getFlatSize(spec), 3U);
    EXPECT_EQ(manager.getFlatContainerTypes(spec),
              (std::vector<PureValueRef>{value(testing::typeText("s4.0")), value(testing::typeText("[2] u2.0")),
                                         value(testing::typeText("c s3.0"))}));
    EXPECT_EQ(manager.pathTo(spec, 1), path({0, 1}));
    EXPECT_TRUE(manager.getFlatContainerTypes(manager.specOf(value(testing::typeText("s4.0")))).empty());
}

TEST_F(UnrollAggregatePassTest, connectsAScalarToEveryFlatMember) {
    makeTwoLevels("{{s4.0, u2.0}, s3.0}");
    run("UnrollAggregatePass");
    EXPECT_EQ(below.getInputBlock()->getWire(value("y"))->port_size(), 3U);
    for (const char *member : {"(held 0)", "(held 1)", "(held 2)"}) {
        const Port *port = below.getBlock(value(member))->getPort(A_REGISTER_PORT_ENABLE);
        EXPECT_EQ(&port->peekWire()->getBlock(), below.getInputBlock()) << member;
    }
}

TEST_F(UnrollAggregatePassTest, leavesTheBoundariesOfModelsAlone) {
    makeTwoLevels("{s4.0, u2.0}");
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    EXPECT_EQ(portsOf(*model.getBlock(value("use"))), (Names{"x", "y"}));
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"x", "y"}));
}

TEST_F(UnrollAggregatePassTest, givesMembersTheTypesThatTheyHad) {
    makeTwoLevels("{{s4.0, [2] u2.0}, c s3.0}");
    run("UnrollAggregatePass");
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(design);
    const RefChain chain{model.getBlock(value("use"))};
    const std::pair<const char *, const char *> members[] = {
        {"(held 0)", "s4.0"}, {"(held 1)", "[2] u2.0"}, {"(held 2)", "c s3.0"}};
    for (const auto &[name, type] : members) {
        const Wire *wire = below.getBlock(value(name))->getWire(A_PRIM_WIRE_OUT);
        EXPECT_EQ(results.getPass<GlobalTypePass>()->getType(wire, chain), value(testing::typeText(type))) << name;
    }
}

TEST_F(UnrollAggregatePassTest, doesNothingTheSecondTime) {
    makeTwoLevels("{{s4.0, u2.0}, s3.0}");
    run("UnrollAggregatePass");
    run("UnrollAggregateCrossModelPass");
    const std::string once = textOf(design);
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"), Names{});
    EXPECT_EQ(textOf(design), once);
}

TEST_F(UnrollAggregatePassTest, takesBoundariesApartAndKeepsTheMappings) {
    makeTwoLevels("{{s4.0, u2.0}, s3.0}");
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"), Names{});
    EXPECT_EQ(portsOf(*model.getBlock(value("use"))), (Names{"y", "(x 0)", "(x 1)", "(x 2)"}));
    EXPECT_EQ(wiresOf(*model.getBlock(value("use"))), (Names{"(z 0)", "(z 1)", "(z 2)"}));
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"y", "(x 0)", "(x 1)", "(x 2)"}));
    EXPECT_EQ(portsOf(*below.getOutputBlock()), (Names{"(z 0)", "(z 1)", "(z 2)"}));
    for (const Model *level : {&model, &below}) {
        EXPECT_EQ(inputs(*level).getUnrolledPortName(value("x"), path({0, 1})), value("(x 1)"));
        EXPECT_EQ(inputs(*level).getUnrolledPortName(value("x"), path({1})), value("(x 2)"));
        EXPECT_TRUE(inputs(*level).getUnrolledPortNameList(value("y")).empty());
    }
}

TEST_F(UnrollAggregatePassTest, composesItsMappingsBehindThoseOfOtherPasses) {
    makeTwoLevels("{s4.0, [2] {u2.0, u1.0}}");
    run("UnrollAggregateCrossModelPass");
    run("UnrollVectorCrossModelPass");
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"), Names{});
    const CompoundDecorIndex lane = path({1}) << CompoundDecorIndex::createVectorIndex(1);
    EXPECT_EQ(inputs(below).getUnrolledPortName(value("x"), lane << path({0})), value("(x 1 0 1)"));
    EXPECT_EQ(inputs(below).getUnrolledPortName(value("x"), path({0})), value("(x 0)"));
    EXPECT_NE(below.getInputBlock()->getWire(value("(x 1 0 1)")), nullptr);
}

/// Whether a type is neither a record nor a vector, nor has one in it.
bool isFlat(const PureValueRef &type) {
    return type && !isAggregateType(type.get_ptr()) && !VectorDecorSpec(type, nullptr).isVector();
}

TEST_F(UnrollAggregatePassTest, takesApartInTurnsWhatIsNestedInTurns) {
    // Records first: a vector in a record is a member of it, and a record in a vector waits for the lanes.
    const char *types[] = {"{s4.0, [2] {u2.0, [3] s3.0}}", "[2] {s4.0, {[2] u2.0, s1.0}}", "{{[2][2] s4.0}, u1.0}"};
    for (const char *type : types) {
        Design before(mgr.context());
        Design after(mgr.context());
        for (Design *one : {&before, &after}) {
            Model &top = *Model::create(*one, "top");
            Block &delay = block(top, "delay", "delayBlock", {{"delayLength", "1"}});
            delay.setParam(value("0"), input(top, "x", type));
            Block &held = block(top, "held", "registerBlock");
            held.setParam(value("0"), *Wire::create(delay, A_PRIM_WIRE_OUT));
            held.setParam(A_REGISTER_PORT_ENABLE, input(top, "e", "u1.0"));
            output(top, "y", *Wire::create(held, A_PRIM_WIRE_OUT));
        }
        const char *const once[] = {"UnrollAggregatePass", "UnrollAggregateCrossModelPass", "UnrollVectorPass",
                                    "UnrollVectorCrossModelPass", "ElideUnpackPass"};
        test::HeardMessages heard(mgr.context());
        for (int turn = 0; turn < 2; ++turn) {
            for (const char *pass : once) {
                PassScheduler scheduler(&state);
                scheduler.addPass(pass);
                scheduler.apply(after);
            }
        }
        PassScheduler scheduler;
        scheduler.addPass("ElideUnpackPass");
        scheduler.addPass("DeadBlockPass");
        scheduler.requirePass("GlobalTypePass");
        const PassResults results = scheduler.apply(after);
        EXPECT_EQ(heard.take(), Names{});
        for (const Model &of : after) {
            for (const Block &one : of) {
                for (const Wire &wire : one) {
                    const PureValueRef left = results.getPass<GlobalTypePass>()->getType(wire, {});
                    EXPECT_TRUE(isFlat(left)) << type << " " << wire.value()->getPath() << readableType(left.get_ptr());
                }
            }
        }
        test::expectSameBehaviour(before, after);
    }
}

TEST_F(UnrollAggregatePassTest, putsTheMemberBeforeTheLastPartOfAName) {
    output(model, "y", input(model, "(a b)", "{s4.0, u2.0}"));
    run("UnrollAggregateCrossModelPass");
    EXPECT_EQ(wiresOf(*model.getInputBlock()), (Names{"(a 0 b)", "(a 1 b)"}));
}

TEST_F(UnrollAggregatePassTest, leavesABoundaryWholeWhoseNamesWouldClash) {
    output(model, "y", input(model, "x", "{s4.0, u2.0}"));
    output(model, "w", input(model, "(x 0)", "s4.0"));
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"),
              Names{"UNAGG_INVALID_EXPAND_TYPE block=/top/in detail=the name of a member is in use, or both sides "
                    "disagree"});
    EXPECT_NE(model.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollAggregatePassTest, leavesTheBoundaryWholeOfAModelThatGivesItselfANumber) {
    makeTwoLevels("{s4.0, u2.0}");
    Block &again = block(below, "again", "modelBlock");
    again.setParam(A_MODEL_NODE, below);
    Block &number = block(below, "number", "constBlock", {{"constValue", "3"}, {"constType", "(typeSFixed 4 0)"}});
    again.setParam(value("x"), *Wire::create(number, A_PRIM_WIRE_OUT));
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"),
              Names{"UNAGG_INVALID_EXPAND_TYPE block=/below/again detail=the name of a member is in use, or both sides "
                    "disagree"});
    EXPECT_EQ(portsOf(*model.getBlock(value("use"))), (Names{"x", "y"}));
    EXPECT_EQ(portsOf(again), Names{"x"});
}

TEST_F(UnrollAggregatePassTest, leavesABlockWholeWhoseNamesWouldClash) {
    Block &marks = block(model, "marks", "unschedBlock");
    marks.setParam(value("x"), input(model, "x", "{s4.0, u2.0}"));
    marks.setParam(value("(x 0)"), input(model, "y", "s4.0"));
    output(model, "x", *Wire::create(marks, value("x")));
    EXPECT_EQ(run("UnrollAggregatePass"),
              Names{"UNAGG_INVALID_EXPAND_TYPE block=/top/marks detail=the name of a member is in use"});
    EXPECT_EQ(portsOf(marks), (Names{"x", "(x 0)"}));
}

TEST_F(UnrollAggregatePassTest, leavesAnInputOfUnknownTypeAloneThatNobodyReads) {
    makeTwoLevels("{s4.0, u2.0}");
    Wire::create(*model.getInputBlock(), value("unused"));
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"), Names{});
    EXPECT_NE(model.getInputBlock()->getWire(value("unused")), nullptr);
    EXPECT_EQ(model.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollAggregatePassTest, judgesAnInputThatNobodyReadsByTheInstancesThatConnectIt) {
    makeTwoLevels("{s4.0, u2.0}");
    Wire::create(*below.getInputBlock(), value("unread"));
    Block &again = useAgain("{s4.0, u2.0}");
    again.setParam(value("unread"), input(model, "u", "{s3.0, u1.0}"));
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"), Names{});
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"y", "(unread 0)", "(unread 1)", "(x 0)", "(x 1)"}));
    EXPECT_EQ(portsOf(again), wiresOf(*below.getInputBlock()));
    EXPECT_EQ(portsOf(*model.getBlock(value("use"))), (Names{"y", "(x 0)", "(x 1)"}));
}

TEST_F(UnrollAggregatePassTest, tellsOfUnknownTypes) {
    Block &held = block(below, "held", "registerBlock");
    held.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
    Wire::create(held, A_PRIM_WIRE_OUT);
    EXPECT_EQ(run("UnrollAggregatePass"), (Names{"UNAGG_INVALID_WIRE_TYPE wire=/below/held/primWireOut",
                                                 "UNAGG_INVALID_PORT_TYPE block=/below/held port=0"}));
    EXPECT_NE(below.getBlock(value("held")), nullptr);
}

/// What the unrollers say to a block with these records at its ports.
template <class U> std::string failureOf(Block &block, const std::vector<PureValueRef> &types) {
    const AggregateTypeManager manager;
    U unroller(block);
    std::size_t at = 0;
    for (Port &port : block.ports()) {
        unroller.originalPort(port, manager.specOf(types[at++]), manager);
    }
    for (Wire &wire : block) {
        unroller.originalWire(wire, manager.specOf(types[at++]), manager);
    }
    return unroller.failure();
}

TEST_F(UnrollAggregatePassTest, takesRecordsOfDifferentTypesNotEverywhere) {
    Block &mux = block(model, "mux", "muxBlock");
    mux.setParam(value("0"), input(model, "x", "{s4.0, u2.0}"));
    mux.setParam(value("1"), input(model, "y", "{s4.0, u2.0}"));
    Wire::create(mux, A_PRIM_WIRE_OUT);
    const PureValueRef one = value(testing::typeText("{s4.0, u2.0}"));
    const PureValueRef other = value(testing::typeText("{s4.0, u3.0}"));
    const PureValueRef longer = value(testing::typeText("{s4.0, {u2.0, u1.0}}"));
    const std::string first = one->toString();
    EXPECT_EQ(failureOf<SimplePrimAggregateUnroller>(mux, {one, one, one}), "");
    EXPECT_EQ(failureOf<SimplePrimAggregateUnroller>(mux, {one, other, one}),
              "SimplePrimAggregateUnroller does not support aggregate type on block /top/mux (port 1)\n" +
                  other->toString() + "\nthat is different from " + first);
    EXPECT_EQ(failureOf<SimplePrimAggregateUnroller>(mux, {one, one, other}),
              "SimplePrimAggregateUnroller does not support aggregate type on wire </top/mux/primWireOut>\n" +
                  other->toString() + "\nthat is different from " + first);
    EXPECT_EQ(failureOf<PrimAggregateUnroller>(mux, {one, other, other}), "");
    EXPECT_EQ(failureOf<PrimAggregateUnroller>(mux, {one, longer, one}),
              "PrimAggregateUnroller does not support aggregate type on block /top/mux (port 1)\n" +
                  longer->toString() + "\nwith a flat-size 3 different from 2");
    EXPECT_EQ(failureOf<PrimAggregateUnroller>(mux, {one, one, longer}),
              "PrimAggregateUnroller does not support aggregate type on wire </top/mux/primWireOut>\n" +
                  longer->toString() + "\nwith a flat-size 3 different from 2");
}

TEST_F(UnrollAggregatePassTest, tellsOfRecordsThatDoNotMeet) {
    // An interface joins signals that have nothing to do with each other.
    Block &outside = block(model, "outside", "extIfaceBlock");
    outside.setParam(value("x"), input(model, "x", "{s4.0, u2.0}"));
    outside.setParam(value("y"), input(model, "y", "{s4.0, {u3.0, u1.0}}"));
    BlockClass &type = *mgr.context()->getBlockClass(A_EXT_IFACE_BLOCK);
    const std::string other = value(testing::typeText("{s4.0, {u3.0, u1.0}}"))->toString();
    const AggregateUnrollHandlerT<SimplePrimAggregateUnroller> simple;
    type.registerHandler<AggregateUnrollHandler>(&simple, false);
    Names heard = run("UnrollAggregatePass");
    EXPECT_EQ(heard, Names{"UNAGG_INVALID_EXPAND_TYPE block=/top/outside detail=SimplePrimAggregateUnroller does not "
                           "support aggregate type on block /top/outside (port y)\n" +
                           other + "\nthat is different from " + value(testing::typeText("{s4.0, u2.0}"))->toString()});
    EXPECT_EQ(portsOf(outside), (Names{"x", "y"}));
    const AggregateUnrollHandlerT<PrimAggregateUnroller> prim;
    type.registerHandler<AggregateUnrollHandler>(&prim, false);
    heard = run("UnrollAggregatePass");
    EXPECT_EQ(heard, Names{"UNAGG_INVALID_EXPAND_TYPE block=/top/outside detail=PrimAggregateUnroller does not "
                           "support aggregate type on block /top/outside (port y)\n" +
                           other + "\nwith a flat-size 3 different from 2"});
    EXPECT_EQ(portsOf(outside), (Names{"x", "y"}));
}

TEST_F(UnrollAggregatePassTest, keepsMembersWholeForAnUnrollerThatWantsThem) {
    class WholeMembers final : public AggregateUnroller {
      public:
        explicit WholeMembers(Block &block) : mBlock(block) {}
        AggregateUnrollKind originalWire(Wire &, const AggregateTypeSpec &, const AggregateTypeManager &) override {
            return AggregateUnrollKind::Members;
        }
        AggregateUnrollKind originalPort(Port &, const AggregateTypeSpec &, const AggregateTypeManager &) override {
            return AggregateUnrollKind::Members;
        }
        void preAttach(const AggregateTypeManager &) override { mMade = &createSubstitute(mBlock); }
        void attachPort(Port &, const AggregateTypeSpec &, int number, Wire &driver,
                        const AggregateTypeManager &) override {
            mMade->setParam(NumberValue::get(number, mBlock.getContext()), driver);
        }
        Wire *attachWire(Wire &, const AggregateTypeSpec &, int number, const std::vector<MaybePort> &readers,
                         const AggregateTypeManager &) override {
            Wire *made = Wire::create(*mMade, NumberValue::get(number, mBlock.getContext()));
            for (const MaybePort &reader : readers) {
                reader.setWire(*made);
            }
            return made;
        }
        void postAttach() override { delete &mBlock; }

      private:
        Block &mBlock;
        Block *mMade = nullptr;
    };
    makeTwoLevels("{{s4.0, u2.0}, s3.0}");
    Block &held = *below.getBlock(value("held"));
    held.setParam(A_REGISTER_PORT_ENABLE, nullptr);
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(design);
    const AggregateTypeManager manager;
    const std::vector<RefChain> instances{{model.getBlock(value("use"))}};
    internal_aggregate::BlockUnrollerImpl impl(held, instances, std::make_shared<WholeMembers>(held),
                                               *results.getPass<GlobalTypePass>(), manager);
    impl.unroll(*results.getPass<GlobalTypePass>());
    EXPECT_TRUE(test::checkInvariants(design));
    EXPECT_EQ(blocksOf(A_AUNPACK_BLOCK), Names{"(held 0 aunpack)"});
    EXPECT_EQ(blocksOf(A_APACK_BLOCK), Names{"(held primWireOut apack)"});
    EXPECT_EQ(portsOf(*below.getBlock(value("(held aunroll)"))), (Names{"0", "1"}));
    EXPECT_EQ(wiresOf(*below.getBlock(value("(held aunroll)"))), (Names{"0", "1"}));
}

/// Keeps the block, and names what is attached after the signal and the member.
class NamingUnroller final : public AggregateUnroller {
  public:
    NamingUnroller(Block &block, AggregateUnrollKind kind) : mBlock(block), mKind(kind) {}
    AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &, const AggregateTypeManager &) override {
        if (mKind != AggregateUnrollKind::Leave) {
            mReplaced.add(wire);
        }
        return mKind;
    }
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &, const AggregateTypeManager &) override {
        if (mKind != AggregateUnrollKind::Leave) {
            mReplaced.add(port);
        }
        return mKind;
    }
    void preAttach(const AggregateTypeManager &) override {}
    void attachPort(Port &port, const AggregateTypeSpec &, int number, Wire &driver,
                    const AggregateTypeManager &) override {
        const MaybePort attached(mBlock, memberOf(port.getName(), number));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire *attachWire(Wire &wire, const AggregateTypeSpec &, int number, const std::vector<MaybePort> &readers,
                     const AggregateTypeManager &) override {
        Wire *made = Wire::create(mBlock, memberOf(wire.getName(), number));
        for (const MaybePort &reader : readers) {
            reader.setWire(*made);
        }
        return made;
    }
    void postAttach() override { mReplaced.removeFrom(mBlock); }

  private:
    PureValueRef memberOf(const PureValueRef &name, int number) const {
        return StringValue::get(name->toString() + "_" + std::to_string(number), mBlock.getContext());
    }

    Block &mBlock;
    AggregateUnrollKind mKind;
    internal::ReplacedSignals mReplaced;
};

class NamingHandler final : public AggregateUnrollHandler {
  public:
    explicit NamingHandler(AggregateUnrollKind kind) : mKind(kind) {}
    std::shared_ptr<AggregateUnroller> createUnroller(Block &block) const override {
        return std::make_shared<NamingUnroller>(block, mKind);
    }

  private:
    AggregateUnrollKind mKind;
};

class AggregateKindsTest : public UnrollAggregatePassTest {
  protected:
    /// Takes a block of a record x and a number y apart by a kind, and gives its ports and its wires.
    std::pair<Names, Names> unrolled(AggregateUnrollKind kind) {
        Block &made =
            *oneBlock(design, "extIfaceBlock", {{"x", "{s4.0, {u3.0, u1.0}}"}, {"y", "s4.0"}}, {{"x", ""}, {"y", ""}})
                 .getBlock(value("block"));
        const NamingHandler handler(kind);
        BlockClass &type = *mgr.context()->getBlockClass(A_EXT_IFACE_BLOCK);
        const auto *usual = type.get<AggregateUnrollHandler>();
        type.registerHandler<AggregateUnrollHandler>(&handler, false);
        EXPECT_EQ(run("UnrollAggregatePass"), Names{});
        type.registerHandler<AggregateUnrollHandler>(usual, false);
        for (Block &block : made.getModel()) {
            const std::string name = block.getName()->toString();
            if (name.find("(block ") == 0) {
                joins.push_back(name);
            }
        }
        std::sort(joins.begin(), joins.end());
        return {portsOf(made), wiresOf(made)};
    }
    Names joins;
};

TEST_F(AggregateKindsTest, leavesPortsAndWiresAlone) {
    const Names own{"x", "y"};
    EXPECT_EQ(unrolled(AggregateUnrollKind::Leave), (std::pair{own, own}));
    EXPECT_EQ(joins, Names{});
}

TEST_F(AggregateKindsTest, attachesMembersWithRecordsInThemWhole) {
    const Names members{"x_0", "x_1", "y_0"};
    EXPECT_EQ(unrolled(AggregateUnrollKind::Members), (std::pair{members, members}));
    EXPECT_EQ(joins, (Names{"(block x apack)", "(block x aunpack)"}));
}

TEST_F(AggregateKindsTest, attachesFlatMembersThroughTrees) {
    const Names members{"x_0", "x_1", "x_2", "y_0"};
    EXPECT_EQ(unrolled(AggregateUnrollKind::Flat), (std::pair{members, members}));
    EXPECT_EQ(joins, (Names{"(block x apack_apack)", "(block x apack_apack_1)", "(block x unapack_aunpack)",
                            "(block x unapack_aunpack_1)"}));
}

TEST_F(UnrollAggregatePassTest, hasAHandlerForBoundaries) {
    Block &marks = block(model, "marks", "unschedBlock");
    const auto unroller = BoundaryAggregateUnrollHandler().createUnroller(marks);
    EXPECT_NE(dynamic_cast<BoundaryAggregateUnroller *>(unroller.get()), nullptr);
    EXPECT_EQ(unroller->getSuffix(), "aunroll");
}

TEST_F(UnrollAggregatePassTest, handsMetadataToEveryMember) {
    makeTwoLevels("{s4.0, u2.0}");
    below.getBlock(value("held"))->setParam(A_METADATA, value("((comment hello))"));
    run("UnrollAggregatePass");
    for (const char *member : {"(held 0)", "(held 1)"}) {
        EXPECT_EQ(PureValueRef(below.getBlock(value(member))->getParam(A_METADATA)), value("((comment hello))"))
            << member;
    }
}

TEST_F(UnrollAggregatePassTest, movesConstraintsAlongWithTheirPoints) {
    makeTwoLevels("{s4.0, u2.0}");
    const PureValueRef atWire = value("((primWireOut true (1) ()))");
    const PureValueRef atPort = value("((0 true () (1)))");
    below.getBlock(value("held"))->setParam(A_SCHEDULE_CONSTRAINT_WIRES, atWire);
    below.getBlock(value("held"))->setParam(A_SCHEDULE_CONSTRAINT_PORTS, atPort);
    below.getInputBlock()->setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((x true (2) ()))"));
    run("UnrollAggregatePass");
    for (const char *member : {"(held 0)", "(held 1)"}) {
        const Block &block = *below.getBlock(value(member));
        EXPECT_EQ(PureValueRef(block.getParam(A_SCHEDULE_CONSTRAINT_WIRES)), atWire) << member;
        EXPECT_EQ(PureValueRef(block.getParam(A_SCHEDULE_CONSTRAINT_PORTS)), atPort) << member;
    }
    run("UnrollAggregateCrossModelPass");
    EXPECT_EQ(PureValueRef(below.getInputBlock()->getParam(A_SCHEDULE_CONSTRAINT_WIRES)),
              value("(((x 0) true (2) ()) ((x 1) true (2) ()))"));
}

TEST_F(UnrollAggregatePassTest, tellsTheMembersOfSignalsByTheNamesThatTheyShareWithTheBoundary) {
    Block &signals = block(model, "signals", "signalInBlock");
    signals.setParam(value("x"), input(model, "x", "{s4.0, [2] u2.0}"));
    output(model, "y", *Wire::create(signals, value("x")));
    for (const char *pass :
         {"UnrollAggregatePass", "UnrollAggregateCrossModelPass", "UnrollVectorPass", "UnrollVectorCrossModelPass"}) {
        EXPECT_EQ(run(pass), Names{}) << pass;
    }
    for (const char *name : {"in", "signals"}) {
        UnrolledPortWireNames found(model, value(name), false, value("x"));
        found.unrollNames(
            dynamic_cast<BoundaryUnrollMappingStateItem *>(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY)));
        Names wires;
        for (const Wire *wire : found.getWires()) {
            EXPECT_EQ(&wire->getBlock(), model.getBlock(value(name)));
            wires.push_back(wire->getName()->toString());
        }
        EXPECT_EQ(wires, (Names{"(x 0)", "(x 0 1)", "(x 1 1)"})) << name;
    }
}

TEST_F(UnrollAggregatePassTest, takesAModelApartThatIsUsedWithOtherWidths) {
    makeTwoLevels("{s4.0, u2.0}");
    useAgain("{s7.1, u1.0}");
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"), Names{});
    for (const char *use : {"use", "again"}) {
        EXPECT_EQ(wiresOf(*model.getBlock(value(use))), (Names{"(z 0)", "(z 1)"}));
    }
}

TEST_F(UnrollAggregatePassTest, leavesAModelWholeWhoseInstancesHaveRecordsOfTheirOwn) {
    makeTwoLevels("{s4.0, u2.0}");
    useAgain("{s4.0, {u2.0, u1.0}}");
    EXPECT_EQ(run("UnrollAggregatePass"), (Names{kRefused + "/below/held" + kTypesDiffer}));
    run("UnrollAggregateCrossModelPass");
    for (const char *use : {"use", "again"}) {
        EXPECT_EQ(portsOf(*model.getBlock(value(use))), (Names{"x", "y"}));
    }
}

TEST_F(UnrollAggregatePassTest, leavesABlockWholeWhoseRecordsHaveOtherLanesInEachInstance) {
    makeTwoLevels("{s4.0, [2] u2.0}");
    useAgain("{s4.0, u2.0}");
    EXPECT_EQ(run("UnrollAggregatePass"), (Names{kRefused + "/below/held" + kTypesDiffer}));
    EXPECT_NE(below.getBlock(value("held")), nullptr);
}

TEST_F(UnrollAggregatePassTest, leavesRecordsWholeInAndBetweenModelsThatHaveAPartWithoutMembers) {
    for (const char *type : {"{s4.0, {}}", "{}", "{{}, {{}}}"}) {
        SCOPED_TRACE(type);
        Design whole(mgr.context());
        Model &outer = *Model::create(whole, "outer");
        Model &inner = *Model::create(whole, "inner");
        Block &held = block(inner, "held", "registerBlock");
        held.setParam(value("0"), *Wire::create(*Block::create(inner, "in", A_INPUT_BLOCK), value("x")));
        output(inner, "z", *Wire::create(held, A_PRIM_WIRE_OUT));
        Block &use = block(outer, "use", "modelBlock");
        use.setParam(A_MODEL_NODE, inner);
        use.setParam(value("x"), input(outer, "x", type));
        output(outer, "z", *Wire::create(use, value("z")));
        const std::string before = textOf(whole);
        const std::string pin = outer.getInputBlock()->getWire(value("x"))->port_begin()->getBlock().value()->getPath();
        Names heard = runOn(whole, "UnrollAggregatePass");
        std::sort(heard.begin(), heard.end());
        EXPECT_EQ(heard, (Names{kRefused + "/inner/held" + kNoShape, kRefused + pin + kNoShape}));
        heard = runOn(whole, "UnrollAggregateCrossModelPass");
        std::sort(heard.begin(), heard.end());
        EXPECT_EQ(heard, (Names{kRefused + "/inner/in" + kNoShape, kRefused + "/inner/out" + kNoShape,
                                kRefused + "/outer/in" + kNoShape, kRefused + "/outer/out" + kNoShape,
                                kRefused + "/outer/use" + kNoShape}));
        EXPECT_EQ(textOf(whole), before);
    }
}

/// A chain of packs, each of which gives what the one before gives a level more, and a register behind it.
std::unique_ptr<Design> levelsAbove(Context *context, std::size_t levels, const StaticString &pack,
                                    const StaticString &out, bool twice) {
    auto design = std::make_unique<Design>(context);
    Model &top = *Model::create(*design, "top");
    const PureValueRef numbers[] = {NumberValue::get(0, context), NumberValue::get(1, context)};
    Block &one = *Block::create(top, "one", A_CONST_BLOCK);
    one.setParam(A_CONST_VALUE, numbers[1]);
    one.setParam(A_CONST_TYPE, NumTypeSpec::boolean().toValue(context));
    Wire *wire = Wire::create(one, A_PRIM_WIRE_OUT);
    for (std::size_t level = 0; level < levels; ++level) {
        Block &next = *Block::create(top, "p" + std::to_string(level), pack);
        next.setParam(numbers[0], *wire);
        if (twice) {
            next.setParam(numbers[1], *wire);
        }
        wire = Wire::create(next, out);
    }
    Block &held = *Block::create(top, "held", A_REGISTER_BLOCK);
    held.setParam(numbers[0], *wire);
    Wire::create(held, A_PRIM_WIRE_OUT);
    return design;
}

TEST_F(UnrollAggregatePassTest, leavesRecordsWholeOfTooManyLevelsOrMembers) {
    const auto heardOf = [&](std::size_t levels, bool twice) {
        const auto deep = levelsAbove(mgr.context(), levels, A_APACK_BLOCK, A_APACK_WIRE_OUT, twice);
        const Names heard = runOn(*deep, "UnrollAggregatePass");
        EXPECT_EQ(deep->getModel(value("top"))->getBlock(value("held")) != nullptr, !heard.empty()) << levels;
        return heard;
    };
    const Names refused{kRefused + "/top/held" + kNoShape};
    EXPECT_EQ(heardOf(limits::kTupleDepth, false), Names{});
    EXPECT_EQ(heardOf(limits::kTupleDepth + 1, false), refused);
    EXPECT_EQ(heardOf(60000, false), refused);
    // Twice the members with each level.
    EXPECT_EQ(heardOf(10, true), Names{});
    EXPECT_EQ(heardOf(21, true), refused);
    EXPECT_EQ(heardOf(900, true), refused);
}

TEST_F(UnrollAggregatePassTest, readsNothingOfRecordsThatDoNotComeApart) {
    const AggregateTypeManager manager;
    for (const char *type : {"{}", "{s4.0, {}}"}) {
        const AggregateTypeSpec &spec = manager.specOf(value(testing::typeText(type)));
        EXPECT_FALSE(manager.comesApart(spec)) << type;
        EXPECT_EQ(manager.getFlatSize(spec), 0U) << type;
        EXPECT_TRUE(manager.getFlatContainerTypes(spec).empty()) << type;
    }
    EXPECT_TRUE(manager.comesApart(manager.specOf(value(testing::typeText("{s4.0, [2] {}}")))));
    EXPECT_FALSE(manager.comesApart(manager.specOf(value(testing::typeText("s4.0")))));
    EXPECT_FALSE(manager.comesApart(manager.specOf(PureValueRef())));
}

TEST_F(UnrollAggregatePassTest, comparesTypesPartByPart) {
    Context *context = mgr.context();
    const auto pairs = [context](PureValueRef type, int levels) {
        for (int level = 0; level < levels; ++level) {
            type = PureTupleValue::get(A_TYPE_AGGREGATE, type, type, context);
        }
        return type;
    };
    const PureValueRef one = value(testing::typeText("s4.0"));
    const PureValueRef other = value(testing::typeText("u3.0"));
    const PureValueRef lanes = value(testing::typeText("[2] u3.0"));
    // More members than anybody could look at one by one.
    EXPECT_TRUE(internal::fallApartAlike(pairs(one, 60), pairs(other, 60)));
    EXPECT_FALSE(internal::fallApartAlike(pairs(one, 60), pairs(lanes, 60)));
    EXPECT_FALSE(internal::fallApartAlike(pairs(one, 60), pairs(other, 61)));
    EXPECT_FALSE(internal::fallApartAlike(pairs(one, 60000), pairs(other, 60000)));
    EXPECT_TRUE(internal::fallApartAlike(pairs(one, 60000), pairs(one, 60000)));
}

TEST_F(UnrollAggregatePassTest, takesNoInterestInModelsWithoutRecords) {
    // Neither a delay nor the boundary cares whether another instance has lanes or complex numbers.
    for (const char *other : {"[2] s4.0", "c s4.0", "[3][2] c s4.0"}) {
        SCOPED_TRACE(other);
        Design plain(mgr.context());
        Model &top = *Model::create(plain, "top");
        Model &use = *Model::create(plain, "use");
        Block &delay = block(use, "delay", "delayBlock", {{"delayLength", "1"}});
        delay.setParam(value("0"), *Wire::create(*Block::create(use, "in", A_INPUT_BLOCK), value("x")));
        Block &pin = block(use, "pin", "typePinBlock");
        pin.setParam(value("0"), *Wire::create(delay, A_PRIM_WIRE_OUT));
        output(use, "z", *Wire::create(pin, value("0")));
        for (const char *type : {"s4.0", other}) {
            Block &instance = block(top, std::string("use ") + type, "modelBlock");
            instance.setParam(A_MODEL_NODE, use);
            instance.setParam(value("x"), input(top, type, type));
            output(top, std::string("out ") + type, *Wire::create(instance, value("z")));
        }
        const std::string before = textOf(plain);
        test::HeardMessages heard(mgr.context());
        for (const char *pass : {"UnrollAggregatePass", "UnrollAggregateCrossModelPass"}) {
            PassScheduler scheduler;
            scheduler.addPass(pass);
            scheduler.apply(plain);
            EXPECT_EQ(heard.take(), Names{}) << pass;
            EXPECT_EQ(textOf(plain), before) << pass;
        }
    }
}

TEST_F(UnrollAggregatePassTest, takesRecordsApartBesideAPlainSignalThatHasLanesElsewhere) {
    // At a boundary the plain signal stays as it is.
    makeTwoLevels("{s4.0, u2.0}");
    Wire &y = *below.getInputBlock()->getWire(value("y"));
    y.getBlock().getModel().getBlock(value("held"))->setParam(A_REGISTER_PORT_ENABLE, nullptr);
    output(below, "v", y);
    Block &again = useAgain("{s4.0, u2.0}");
    again.setParam(value("y"), input(model, "wide", "[2] u1.0"));
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    EXPECT_EQ(run("UnrollAggregateCrossModelPass"), Names{});
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"y", "(x 0)", "(x 1)"}));
}

TEST_F(UnrollAggregatePassTest, leavesABlockOfRecordsWholeWhoseControlHasLanesElsewhere) {
    // The members would take the first lane of it, which the other instance does not have.
    makeTwoLevels("{s4.0, u2.0}");
    useAgain("{s4.0, u2.0}").setParam(value("y"), input(model, "wide", "[2] u1.0"));
    EXPECT_EQ(run("UnrollAggregatePass"), Names{kRefused + "/below/held" + kTypesDiffer});
    EXPECT_NE(below.getBlock(value("held")), nullptr);
}

TEST_F(UnrollAggregatePassTest, looksAtWhatDrivesAControlThatARuleGivesNoLanes) {
    const std::string record = testing::typeText("{s4.0, [2] u2.0}");
    Block &held = block(below, "held", "syncRegisterBlock", {{"syncRegisterDataType", record.c_str()}});
    held.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA,
                  *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
    held.setParam(A_SYNC_REGISTER_PORT_ICLK_ENABLE, *Wire::create(*below.getInputBlock(), value("y")));
    output(below, "z", *Wire::create(held, A_SYNC_REGISTER_WIRE_OCLK_DATA));
    for (const auto &[number, type] : Texts{{"0", "u1.0"}, {"1", "[2] u1.0"}}) {
        Block &use = block(model, std::string("use") + number, "modelBlock");
        use.setParam(A_MODEL_NODE, below);
        use.setParam(value("x"), input(model, std::string("x") + number, "{s4.0, [2] u2.0}"));
        use.setParam(value("y"), input(model, std::string("y") + number, type));
    }
    EXPECT_EQ(run("UnrollAggregatePass"), Names{kRefused + "/below/held" + kTypesDiffer});
    // With lanes everywhere, the members share the first.
    model.getBlock(value("use0"))->setParam(value("y"), input(model, "lanes", "[2] u1.0"));
    EXPECT_EQ(run("UnrollAggregatePass"), Names{});
    const Port *enable = below.getBlock(value("(held 1)"))->getPort(A_SYNC_REGISTER_PORT_ICLK_ENABLE);
    EXPECT_EQ(enable->peekWire()->getBlock().type(), A_VUNPACK_BLOCK.get_ptr());
}

TEST_F(UnrollAggregatePassTest, leavesABlockWholeThatHasARecordInOneInstanceOnly) {
    makeTwoLevels("s4.0");
    useAgain("{s4.0, u2.0}");
    EXPECT_EQ(run("UnrollAggregatePass"), (Names{kRefused + "/below/held" + kTypesDiffer}));
    EXPECT_NE(below.getBlock(value("held")), nullptr);
}

TEST_F(UnrollAggregatePassTest, leavesAPinWholeThatHasOtherTypesInEachInstance) {
    Block &pin = block(below, "pin", "typePinBlock");
    pin.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
    output(below, "z", *Wire::create(pin, value("0")));
    for (const char *type : {"{s4.0, u2.0}", "{s4.0, u3.0}"}) {
        Block &use = block(model, std::string("use ") + type, "modelBlock");
        use.setParam(A_MODEL_NODE, below);
        use.setParam(value("x"), input(model, type, type));
    }
    EXPECT_EQ(run("UnrollAggregatePass"), (Names{kRefused + "/below/pin" + kTypesDiffer}));
    EXPECT_NE(below.getBlock(value("pin")), nullptr);
}

} // namespace
} // namespace orvo
