// Which block types come apart, and what each makes of its records.
#include "orvo/aggregateunrollers.h"

#include "orvo/boundaryaggregateunroller.h"

#include "gen/designgenerator.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"

#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/netlistverification.h>
#include <orvo/pass.h>
#include <orvo/typeinferpass.h>

#include <algorithm>
#include <map>
#include <set>

namespace orvo {
namespace {

TEST(AggregateUnrollers, speakOfEveryTypeOfTheCatalogue) {
    std::set<std::string> told;
    for (const internal::AggregateUnrollRow &row : internal::aggregateUnrollRows()) {
        EXPECT_TRUE(told.insert(row.blockType->text()).second) << row.blockType->text();
        EXPECT_NE(std::string(row.summary), "");
    }
    for (const auto &[name, info] : getBlocksInfo().blocks()) {
        if (name != BlocksInfo::kGenericBlock) {
            EXPECT_EQ(told.count(getBlocksInfo().get_mapping(name)), 1U) << name;
        }
    }
}

TEST(AggregateUnrollers, areRegisteredAsTheRowsTell) {
    ContextMgr mgr;
    for (const internal::AggregateUnrollRow &row : internal::aggregateUnrollRows()) {
        const auto *handler = mgr.context()->getBlockClass(*row.blockType)->get<AggregateUnrollHandler>();
        EXPECT_EQ(handler != nullptr, row.handler != nullptr) << row.blockType->text();
    }
}

/// What kinds of records meet a block type in designs by chance.
struct RecordCounts {
    std::size_t all = 0;
    std::size_t nested = 0;
    std::size_t withVectors = 0;
    std::size_t withComplex = 0;
};

void countRecord(const PureValueRef &type, RecordCounts &counts) {
    const AggregateTypeManager manager;
    const AggregateTypeSpec &spec = manager.specOf(type);
    if (!spec.isAggregate()) {
        return;
    }
    const std::vector<PureValueRef> &members = manager.getFlatContainerTypes(spec);
    const auto has = [&members](auto property) { return std::any_of(members.begin(), members.end(), property); };
    ++counts.all;
    counts.nested += spec.isNestedAggregateSpec() ? 1 : 0;
    counts.withVectors +=
        has([](const PureValueRef &member) { return VectorDecorSpec(member, nullptr).isVector(); }) ? 1 : 0;
    counts.withComplex += has([](const PureValueRef &member) {
        return ComplexDecorSpec(member, ContextMgr::getThreadContext()).isComplex();
    })
                              ? 1
                              : 0;
}

RefChain anInstanceOf(const Model &model) {
    RefChain chain;
    for (const Model *at = &model; !at->getParentBlocks().empty(); at = &chain.front()->getModel()) {
        chain.insert(chain.begin(), at->getParentBlocks().front());
    }
    return chain;
}

TEST(AggregateUnrollers, meetRecordsOfAllKindsInDesignsByChance) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::map<const Value *, RecordCounts> counts;
    for (std::uint64_t seed = 0; seed < 1000; ++seed) {
        const auto design = generator.make(gen::recipesOf(seed, 60));
        GlobalTypePass types;
        types.bindEvents(*design);
        for (const Model &model : *design) {
            const RefChain instance = anInstanceOf(model);
            for (const Block &block : model) {
                for (const Wire &wire : block) {
                    countRecord(types.getType(wire, instance), counts[block.type()]);
                }
            }
        }
        types.unbindEvents();
    }
    for (const internal::AggregateUnrollRow &row : internal::aggregateUnrollRows()) {
        // Nothing casts records there: each cast has a number's type to cast to.
        const bool casts = *row.blockType == A_CAST_BLOCK || *row.blockType == U_CAST_BLOCK;
        if (row.handler != nullptr && !casts) {
            const RecordCounts &of = counts[row.blockType->get_ptr()];
            EXPECT_GE(of.all, 5U) << row.blockType->text();
            EXPECT_GE(of.nested, 1U) << row.blockType->text();
            EXPECT_GE(of.withVectors, 1U) << row.blockType->text();
            EXPECT_GE(of.withComplex, 1U) << row.blockType->text();
        }
    }
}

class AggregateUnrollersTest : public test::SimulatorFixture {
  protected:
    /// Unrolls the block, which must compute the same and leave no record but at the boundary of the model, and gives
    /// the names of what is new in its place, but for what joins it.
    std::set<std::string> madeOf(const std::string &type, const Texts &inputs, const Texts &outputs,
                                 const Texts &params = {}, bool simulates = true) {
        Design before(mgr.context());
        Design after(mgr.context());
        oneBlock(before, type, inputs, outputs, params);
        Model &model = oneBlock(after, type, inputs, outputs, params);
        std::set<std::string> old;
        for (const Block &block : model) {
            old.insert(block.getName()->toString());
        }
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollAggregatePass");
        scheduler.addPass("ElideUnpackPass");
        scheduler.apply(after);
        EXPECT_EQ(heard.take(), std::vector<std::string>());
        EXPECT_TRUE(test::checkInvariants(after));
        expectTheCatalogueIsKept(model);
        if (simulates) {
            sim::CompareOptions options;
            options.cycles = 100;
            test::expectSameBehaviour(before, after, model.getName()->toString(), options);
        }
        std::set<std::string> made;
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            if (old.count(name) == 0 && name.find("block") < 3 && !joinsMembers(block)) {
                made.insert(name);
            }
        }
        return made;
    }
    /// Why the block stays as it is. The pins of its inputs may stay, too.
    std::string refusalOf(const std::string &type, const Texts &inputs, const Texts &outputs,
                          const Texts &params = {}) {
        Design design(mgr.context());
        Model &model = oneBlock(design, type, inputs, outputs, params);
        const Block *made = model.getBlock(value("block"));
        const auto signals = std::pair(portsOf(*made), wiresOf(*made));
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollAggregatePass");
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        made = model.getBlock(value("block"));
        EXPECT_NE(made, nullptr) << type;
        if (made != nullptr) {
            EXPECT_EQ(std::pair(portsOf(*made), wiresOf(*made)), signals) << type;
        }
        const std::string begin = "UNAGG_INVALID_EXPAND_TYPE block=/top/block detail=";
        std::string details;
        for (const std::string &line : heard.take()) {
            details += line.find(begin) == 0 ? line.substr(begin.size()) : "";
        }
        return details;
    }
    void expectTheCatalogueIsKept(const Model &model) {
        CatalogueVerifier verifier(getBlocksInfo(), mgr.context());
        for (const Block &block : model) {
            for (const CatalogueFinding &finding : verifier.verify(block)) {
                ADD_FAILURE() << finding.text;
            }
        }
    }
    static bool joinsMembers(const Block &block) {
        const StaticString *const types[] = {&A_APACK_BLOCK, &A_AUNPACK_BLOCK, &A_VPACK_BLOCK,
                                             &A_CPACK_BLOCK, &A_VUNPACK_BLOCK, &A_CUNPACK_BLOCK};
        return std::any_of(std::begin(types), std::end(types),
                           [&block](const StaticString *type) { return block.type() == type->get_ptr(); });
    }
    using Made = std::set<std::string>;
    static constexpr const char *kRecord = "{s4.0, {u2.0, [2] s3.1}, c s2.2}";
    const Made mMembers{"(block 0)", "(block 1)", "(block 2)", "(block 3)"};
};

TEST_F(AggregateUnrollersTest, giveEachFlatMemberABlock) {
    EXPECT_EQ(madeOf("terminalBlock", {{"0", kRecord}}, {{"primWireOut", ""}}), mMembers);
    EXPECT_EQ(madeOf("foldingKernelBoundaryBlock", {{"0", kRecord}}, {{"primWireOut", ""}}), mMembers);
    EXPECT_EQ(madeOf("fanoutBlock", {{"0", kRecord}}, {{"0", ""}, {"1", ""}}, {{"fanoutOutputCount", "2"}}), mMembers);
    EXPECT_EQ(madeOf("delayBlock", {{"0", kRecord}}, {{"primWireOut", ""}}, {{"delayLength", "2"}}), mMembers);
}

TEST_F(AggregateUnrollersTest, leaveOtherSignalsAlone) {
    EXPECT_EQ(madeOf("delayBlock", {{"0", "[2] c s4.0"}}, {{"primWireOut", ""}}, {{"delayLength", "2"}}), Made{});
    EXPECT_EQ(madeOf("delayBlock", {{"0", "[2] {s4.0, u1.0}"}}, {{"primWireOut", ""}}, {{"delayLength", "2"}}), Made{});
}

TEST_F(AggregateUnrollersTest, castEachMemberToWhatItIs) {
    for (const char *type : {"castBlock", "castNONSBlock"}) {
        EXPECT_EQ(madeOf(type, {{"0", kRecord}}, {{"primWireOut", ""}}), mMembers) << type;
    }
    // The least value has no counterpart, which a symmetric bound tells.
    EXPECT_EQ(madeOf("castBlock", {{"0", kRecord}}, {{"primWireOut", ""}}, {{"castSaturateMode", "saturateSymmetric"}}),
              mMembers);
    for (const char *rounding : {"roundingTrunc", "roundingUp"}) {
        for (const char *mode : {"castModeConvert", "castModeReinterp"}) {
            EXPECT_EQ(madeOf("castBlock", {{"0", "{s4.0, {float(10,5), [2] u3.1}, [2] c float(10,5)}"}},
                             {{"primWireOut", ""}}, {{"castRoundingMode", rounding}, {"castMode", mode}}),
                      (Made{"(block 0)", "(block 1)", "(block 2)", "(block 3)"}))
                << rounding << " " << mode;
        }
    }
    // The block gives a record on as it is, whatever record the type tells of.
    Design design(mgr.context());
    Model &model = oneBlock(design, "castBlock", {{"0", "{s4.0, u2.0}"}}, {{"primWireOut", ""}},
                            {{"castOutputType", "(typeAggregate (typeSFixed 8 0) (typeSFixed 3 0))"},
                             {"castSaturateMode", "saturateSymmetric"}});
    PassScheduler scheduler;
    scheduler.addPass("UnrollAggregatePass");
    scheduler.apply(design);
    const Block &member = *model.getBlock(value("(block 1)"));
    EXPECT_FALSE(member.getParam(A_CAST_OUTPUT_TYPE));
    EXPECT_EQ(member.getParam(A_CAST_SATURATE_MODE), A_SATURATE_SYM.get());
}

TEST_F(AggregateUnrollersTest, leaveRecordsWholeThatAreCastToNumbers) {
    for (const char *type : {"castBlock", "castNONSBlock"}) {
        EXPECT_EQ(
            refusalOf(type, {{"0", "{s4.0, u2.0}"}}, {{"primWireOut", ""}}, {{"castOutputType", "(typeSFixed 6 0)"}}),
            "a record is cast to a number")
            << type;
        EXPECT_EQ(madeOf(type, {{"0", "s4.0"}}, {{"primWireOut", ""}}, {{"castOutputType", "(typeSFixed 6 0)"}}),
                  Made{})
            << type;
    }
}

TEST_F(AggregateUnrollersTest, startEachMemberAtItsOwnValue) {
    EXPECT_EQ(madeOf("registerBlock", {{"0", kRecord}, {"registerPortEnable", "u1.0"}}, {{"primWireOut", ""}},
                     {{"registerInitValue", "(-3 (2 (1 -1.5)) (complexRollTag 0.25 0.5))"}}),
              mMembers);
    EXPECT_EQ(madeOf("registerBlock", {{"0", kRecord}}, {{"primWireOut", ""}}, {{"registerInitValue", "1"}}), mMembers);
    EXPECT_EQ(madeOf("registerNONSBlock", {{"0", "{s4.0, u1.0}"}}, {{"primWireOut", ""}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(AggregateUnrollersTest, takeTheFirstLaneOfAControlForAllMembers) {
    EXPECT_EQ(
        madeOf("registerBlock", {{"0", "{s4.0, [2] s3.1}"}, {"registerPortEnable", "[2] u1.0"}}, {{"primWireOut", ""}}),
        (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(madeOf("muxBlock",
                     {{"0", "{s4.0, [2] s3.1}"}, {"1", "{s4.0, [2] s3.1}"}, {"muxPortSelect", "[2][3] u1.0"}},
                     {{"primWireOut", ""}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(AggregateUnrollersTest, giveEachMemberOfASyncRegisterItsType) {
    EXPECT_EQ(
        madeOf("syncRegisterBlock",
               {{"syncRegisterPortIclkData", "{s4.0, {u2.0}}"}, {"syncRegisterPortIclkEnable", "u1.0"}},
               {{"syncRegisterWireIclkData", ""}, {"syncRegisterWireOclkData", ""}, {"syncRegisterWireOclkValid", ""}},
               {{"syncRegisterDataType", "(typeAggregate (typeSFixed 4 0) (typeAggregate (typeUFixed 2 0)))"},
                {"syncRegisterInitValue", "(-2 (3))"}}),
        (Made{"(block 0)", "(block 1)"}));
}

TEST_F(AggregateUnrollersTest, readValidBehindASyncRegisterOfVectorsOrComplexNumbersFirst) {
    const Made made{"(block 0)", "(block 1)"};
    const Texts outputs{
        {"syncRegisterWireIclkData", ""}, {"syncRegisterWireOclkData", ""}, {"syncRegisterWireOclkValid", ""}};
    const std::pair<const char *, const char *> records[] = {
        {"{[2] s4.0, u2.0}", "(typeAggregate (typeVector 2 (typeSFixed 4 0)) (typeUFixed 2 0))"},
        {"{c s4.0, u2.0}", "(typeAggregate (typeComplex (typeSFixed 4 0)) (typeUFixed 2 0))"}};
    for (const auto &[data, type] : records) {
        for (const char *enable : {"u1.0", "[2] u1.0"}) {
            EXPECT_EQ(madeOf("syncRegisterBlock",
                             {{"syncRegisterPortIclkData", data}, {"syncRegisterPortIclkEnable", enable}}, outputs,
                             {{"syncRegisterDataType", type}}),
                      made)
                << data << enable;
        }
    }
}

TEST_F(AggregateUnrollersTest, chooseMemberByMember) {
    EXPECT_EQ(madeOf("muxBlock", {{"0", kRecord}, {"1", kRecord}, {"muxPortSelect", "u1.0"}}, {{"primWireOut", ""}}),
              mMembers);
    const char *deep = "{s4.0, [2] {u2.0, c s3.0}}";
    EXPECT_EQ(
        madeOf("muxBlock", {{"0", deep}, {"1", deep}, {"muxPortSelect", "u1.0"}}, {{"primWireOut", ""}}),
        (Made{"(block 0)", "(block 1 0)", "(block 1 1)", "(block 1 2)", "(block 1 3)", "(block 1 4)", "(block 1 5)"}));
}

TEST_F(AggregateUnrollersTest, keepTheTypeOfValidBehindASelect) {
    // A member that is a vector or complex would take valid along.
    const char *data = "{[2] s4.0, c u3.0}";
    const Made made{"(block 0)", "(block 1)", "(block valid)", "(block one)"};
    EXPECT_EQ(madeOf("selectBlock",
                     {{"(selectPortkeyData 0)", data},
                      {"(selectPortkeyCtrl 0)", "u1.0"},
                      {"(selectPortkeyData 1)", data},
                      {"(selectPortkeyCtrl 1)", "u1.0"},
                      {"selectPortDefaultData", data}},
                     {{"primWireOut", ""}, {"selectWireValid", ""}}),
              made);
    const auto inputs = [&](const char *control) {
        return Texts{
            {"(selectPortkeyData 0)", data}, {"(selectPortkeyCtrl 0)", control}, {"selectPortDefaultData", data}};
    };
    EXPECT_EQ(madeOf("selectBlock", inputs("[3] u1.0"), {{"primWireOut", ""}, {"selectWireValid", ""}}), made);
    EXPECT_EQ(madeOf("selectBlock", inputs("u1.0"), {{"primWireOut", ""}}), (Made{"(block 0)", "(block 1)"}));
}

TEST_F(AggregateUnrollersTest, leaveRecordsWholeThatHaveAPartWithoutMembers) {
    const Texts fifo{{"fifoPortData", "{}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}};
    const Texts nested{{"fifoPortData", "{{}}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}};
    const Texts outputs{{"fifoWireData", ""}, {"fifoWireValid", ""}};
    const char *detail = "a record has a part without members, or too many members or levels of them";
    EXPECT_EQ(refusalOf("fifoBlock", fifo, outputs, {{"fifoDepth", "3"}}), detail);
    EXPECT_EQ(refusalOf("fifoBlock", nested, outputs, {{"fifoDepth", "3"}}), detail);
    const Texts out{{"primWireOut", ""}};
    for (const char *type : {"{}", "{s4.0, {}}", "{{}, {}}"}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(refusalOf("registerBlock", {{"0", type}, {"registerPortEnable", "u1.0"}}, out), detail);
        EXPECT_EQ(refusalOf("muxBlock", {{"0", type}, {"1", type}, {"muxPortSelect", "u1.0"}}, out), detail);
        EXPECT_EQ(refusalOf("delayBlock", {{"0", type}}, out, {{"delayLength", "2"}}), detail);
        EXPECT_EQ(refusalOf("typePinBlock", {{"0", type}}, {{"0", ""}}), detail);
        EXPECT_EQ(refusalOf("signalInBlock", {{"x", type}}, {{"x", ""}}), detail);
        EXPECT_EQ(refusalOf("stallexitBlock", {{"(stallexitPortkeyDataBack 0)", type}},
                            {{"(stallexitWirekeyDataFront 0)", ""}}),
                  detail);
    }
    // A choice between vectors of records needs their scalars.
    const char *lanes = "{s4.0, [2] {u2.0, {}}}";
    EXPECT_EQ(refusalOf("muxBlock", {{"0", lanes}, {"1", lanes}, {"muxPortSelect", "u1.0"}}, out),
              "a record in a vector has no members, or too many of them");
}

TEST_F(AggregateUnrollersTest, keepTypesInAPlaceholderThatDoNotComeApart) {
    const char *types = "((x (typeAggregate (typeSFixed 4 0) (typeUFixed 2 0))) (z (typeAggregate)))";
    Design design(mgr.context());
    Model &model = oneBlock(design, "latencyPlaceholderBlock", {}, {{"x", ""}}, {{"latencyPlaceholderTypemap", types}});
    PassScheduler scheduler;
    scheduler.addPass("UnrollAggregatePass");
    scheduler.apply(design);
    EXPECT_EQ(PureValueRef(model.getBlock(value("block"))->getParam(A_LATENCY_PLACEHOLDER_TYPEMAP)),
              value("(((x 0) (typeSFixed 4 0)) ((x 1) (typeUFixed 2 0)) (z (typeAggregate)))"));
}

TEST_F(AggregateUnrollersTest, queueMemberByMember) {
    EXPECT_EQ(
        madeOf("fifoBlock",
               {{"fifoPortData", "{s4.0, {u2.0, c s3.1}}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
               {{"fifoWireData", ""}, {"fifoWireValid", ""}, {"fifoWireLow", ""}, {"fifoWireHigh", ""}},
               {{"fifoDepth", "3"}, {"fifoLowThreshold", "1"}, {"fifoHighThreshold", "2"}}),
        (Made{"(block 0)", "(block 1)", "(block 2)"}));
    EXPECT_EQ(madeOf("fifoDelayBlock", {{"fifoPortData", "{s4.0, u2.0}"}, {"portWrite", "u1.0"}, {"portReady", "u1.0"}},
                     {{"fifoWireData", ""}, {"fifoWireValid", ""}}, {{"fifoDepth", "3"}}),
              (Made{"(block 0)", "(block 1)"}));
    for (const char *data : {"{[2] {s4.0, u2.0}, u3.0}", "{s4.0, {s3.0, {u2.0}}}"}) {
        const std::string type = data;
        EXPECT_EQ(madeOf("fifoBlock",
                         {{"fifoPortData", data}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
                         {{"fifoWireData", ""}, {"fifoWireValid", ""}}, {{"fifoDepth", "3"}}),
                  type.find('[') != std::string::npos ? (Made{"(block 0)", "(block 1)"})
                                                      : (Made{"(block 0)", "(block 1)", "(block 2)"}))
            << data;
    }
    EXPECT_EQ(madeOf("sharedFifoBlock",
                     {{"0", "{s4.0, u2.0}"}, {"1", "s3.0"}, {"portValid", "u1.0"}, {"portReady", "u1.0"}},
                     {{"0", ""}, {"1", ""}, {"wireValid", ""}}, {{"fifoDepth", "3"}}),
              Made{});
}

TEST_F(AggregateUnrollersTest, queueLanesInsideTheMembers) {
    // The conditions make lanes in the members of the output, also in those that the input does not have.
    const Made made{"(block 0)", "(block 1)"};
    const Texts outputs{{"fifoWireData", ""}, {"fifoWireValid", ""}};
    for (const char *data : {"{s4.0, u2.0}", "{[2] s4.0, {[2] u2.0}}", "{[2] s4.0, c u2.0}"}) {
        EXPECT_EQ(madeOf("fifoBlock",
                         {{"fifoPortData", data}, {"fifoPortWriteEn", "[2] u1.0"}, {"fifoPortReadAck", "u1.0"}},
                         outputs, {{"fifoDepth", "3"}}),
                  made)
            << data;
        EXPECT_EQ(madeOf("fifoBlock",
                         {{"fifoPortData", data}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "[2] u1.0"}},
                         outputs, {{"fifoDepth", "4"}}),
                  made)
            << data;
        EXPECT_EQ(madeOf("fifoDelayBlock", {{"fifoPortData", data}, {"portWrite", "[2] u1.0"}, {"portReady", "u1.0"}},
                         outputs, {{"fifoDepth", "3"}}),
                  made)
            << data;
    }
}

TEST_F(AggregateUnrollersTest, queueEachLaneOfTheMembersToItsOwnDepth) {
    EXPECT_EQ(madeOf("fifoBlock",
                     {{"fifoPortData", "{[2] s4.0, u2.0}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
                     {{"fifoWireData", ""}, {"fifoWireValid", ""}}, {{"fifoDepth", "(vectorRollTag 2 5)"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(AggregateUnrollersTest, queueRecordsWholeToTheDepthsOfTheirConditions) {
    const Texts outputs{{"fifoWireData", ""}, {"fifoWireValid", ""}};
    const auto queue = [&](const char *data, const char *condition) {
        return madeOf("fifoBlock",
                      {{"fifoPortData", data}, {"fifoPortWriteEn", condition}, {"fifoPortReadAck", condition}}, outputs,
                      {{"fifoDepth", "(4 1)"}});
    };
    EXPECT_EQ(queue("{[2] s4.0, s3.0}", "u1.0"), (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(queue("{[2] s4.0, [3] c s3.0}", "u1.0"), (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(queue("{s4.0, s3.0}", "[2] u1.0"), (Made{"(block 0)", "(block 1)"}));
    // Three conditions take the two depths in turn, and start again.
    EXPECT_EQ(queue("{[2][3] u3.0, s3.0}", "[3] u1.0"), (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(madeOf("fifoDelayBlock",
                     {{"fifoPortData", "{[2] u3.0, s3.0}"}, {"portWrite", "u1.0"}, {"portReady", "u1.0"}}, outputs,
                     {{"fifoDepth", "(1 4)"}}),
              (Made{"(block 0)", "(block 1)"}));
    EXPECT_EQ(madeOf("fifoBlock",
                     {{"fifoPortData", "{[2] u3.0, s3.0}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
                     {{"fifoWireData", ""}, {"fifoWireLow", ""}, {"fifoWireHigh", ""}},
                     {{"fifoDepth", "8"}, {"fifoLowThreshold", "(1 5)"}, {"fifoHighThreshold", "(6 2)"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(AggregateUnrollersTest, delayRecordsWhole) {
    Design design(mgr.context());
    const Model &model = oneBlock(design, "delayBlock", {{"0", "{[3] u3.0, s3.0}"}}, {{"primWireOut", ""}},
                                  {{"delayLength", "(3 1 2)"}});
    PassScheduler scheduler;
    scheduler.addPass("UnrollAggregatePass");
    scheduler.apply(design);
    for (const char *member : {"(block 0)", "(block 1)"}) {
        EXPECT_EQ(PureValueRef(model.getBlock(value(member))->getParam(A_DELAY_LENGTH)), value("3")) << member;
    }
    EXPECT_EQ(madeOf("delayBlock", {{"0", "{[3] u3.0, s3.0}"}}, {{"primWireOut", ""}}, {{"delayLength", "(3 1 2)"}}),
              (Made{"(block 0)", "(block 1)"}));
}

TEST_F(AggregateUnrollersTest, demultiplexVectorsInRecordsWhole) {
    const Texts controls{{"portValid", "u1.0"}, {"portChannel", "u1.0"}};
    Texts inputs{{"demuxPortData", "{s4.0, c u2.0}"}};
    inputs.insert(inputs.end(), controls.begin(), controls.end());
    EXPECT_EQ(madeOf("demuxBlock", inputs, {{"0", ""}, {"1", ""}}, {{"demuxChannelCount", "2"}}),
              (Made{"(block 0)", "(block 1)"}));
    inputs[0].second = "{s4.0, [2] c u2.0}";
    EXPECT_EQ(madeOf("demuxBlock", inputs, {{"0", ""}, {"1", ""}}, {{"demuxChannelCount", "2"}}),
              (Made{"(block 0)", "(block 1 0)", "(block 1 1)", "(block 1 2)", "(block 1 3)"}));
    // Its outputs are records, which wait for the lanes.
    inputs[0].second = "[2] {s4.0, u2.0}";
    EXPECT_EQ(madeOf("demuxBlock", inputs, {{"0", ""}, {"1", ""}}, {{"demuxChannelCount", "2"}}, false), Made{});
}

TEST_F(AggregateUnrollersTest, keepThePortsOfAPipeOnOneBlock) {
    EXPECT_EQ(madeOf("pipeBlock", {{"0", kRecord}, {"x", "s4.0"}, {"y", "{[2] s2.0, u3.0}"}},
                     {{"primWireOut", ""}, {"0", ""}, {"x", ""}, {"y", ""}}),
              Made{});
    EXPECT_EQ(madeOf("pipeBlock", {{"y", kRecord}}, {{"primWireOut", ""}}), Made{});
    EXPECT_EQ(madeOf("pipeBlock", {{"0", "s4.0"}, {"y", kRecord}}, {{"primWireOut", ""}, {"y", ""}}), Made{});
}

TEST_F(AggregateUnrollersTest, keepNamedPortsOnOneBlock) {
    for (const char *type : {"signalInBlock", "signalOutBlock", "unschedBlock", "boundaryBlock", "hiddenIfaceBlock"}) {
        EXPECT_EQ(madeOf(type, {{"x", kRecord}, {"y", "s4.0"}}, {{"x", ""}, {"y", ""}}), Made{}) << type;
    }
    EXPECT_EQ(madeOf("extIfaceBlock", {{"x", "{s4.0, u2.0}"}, {"y", "s4.0"}}, {{"z", "{s4.0, s3.0}"}}), Made{});
    EXPECT_EQ(madeOf("extIfaceBlock", {{"x", "{s4.0, u2.0}"}}, {{"z", "{s4.0, u2.0}"}}), Made{});
    EXPECT_EQ(madeOf("chanviewBlock", {{"0", kRecord}, {"portValid", "u1.0"}}, {{"0", ""}, {"wireValid", ""}}), Made{});
    EXPECT_EQ(madeOf("channelInBlock", {{"(x 0)", kRecord}, {"portValid", "u1.0"}, {"portChannel", "u8.0"}},
                     {{"(x 0)", ""}, {"wireValid", ""}, {"wireChannel", ""}}),
              Made{});
}

class AggregateUnrollerPointsTest : public AggregateUnrollersTest {
  protected:
    /// One block after the pass, told before by parameters of the block and by a mark on each wire.
    Model &unrolled(const std::string &type, const Texts &inputs, const Texts &outputs, const Texts &params) {
        Model &model = oneBlock(design, type, inputs, outputs, params);
        for (Wire &wire : *model.getBlock(value("block"))) {
            wire.setParam(value("mark"), wire.getName());
        }
        PassScheduler scheduler;
        scheduler.addPass("UnrollAggregatePass");
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        return model;
    }
    static std::string textOf(const ValueRef &param) { return param ? param->toString() : ""; }
    std::string markOf(const Model &model, const char *block, const char *wire) {
        return textOf(model.getBlock(value(block))->getWire(value(wire))->getParam(value("mark")));
    }
    std::string portsAt(const Model &model, const char *block) {
        return textOf(model.getBlock(value(block))->getParam(A_SCHEDULE_CONSTRAINT_PORTS));
    }
    std::string wiresAt(const Model &model, const char *block) {
        return textOf(model.getBlock(value(block))->getParam(A_SCHEDULE_CONSTRAINT_WIRES));
    }
    Design design{mgr.context()};
};

TEST_F(AggregateUnrollerPointsTest, moveFromASelectWithWhatTakesEachSignalsPlace) {
    const Model &model = unrolled(
        "selectBlock",
        {{"(selectPortkeyData 0)", "{s4.0, u2.0}"},
         {"(selectPortkeyCtrl 0)", "u1.0"},
         {"selectPortDefaultData", "{s4.0, u2.0}"}},
        {{"primWireOut", ""}, {"selectWireValid", ""}},
        {{"scheduleConstraintPorts", "(((selectPortkeyData 0) true () (1)) ((selectPortkeyCtrl 0) true () (2)))"},
         {"scheduleConstraintWires", "((primWireOut true (1) ()) (selectWireValid true (2) ()))"}});
    for (const char *member : {"(block 0)", "(block 1)"}) {
        EXPECT_EQ(portsAt(model, member), "(((selectPortkeyCtrl 0) true () (2)) ((selectPortkeyData 0) true () (1)))");
        EXPECT_EQ(wiresAt(model, member), "((primWireOut true (1) ()))");
        EXPECT_EQ(markOf(model, member, "primWireOut"), "primWireOut");
    }
    EXPECT_EQ(portsAt(model, "(block valid)"), "(((selectPortkeyCtrl 0) true () (2)))");
    EXPECT_EQ(wiresAt(model, "(block valid)"), "((selectWireValid true (2) ()))");
    EXPECT_EQ(markOf(model, "(block valid)", "selectWireValid"), "selectWireValid");
}

TEST_F(AggregateUnrollerPointsTest, stayAtTheOneQueueThatGivesValid) {
    const Model &model = unrolled(
        "fifoBlock", {{"fifoPortData", "{[2] s4.0, u2.0}"}, {"fifoPortWriteEn", "u1.0"}, {"fifoPortReadAck", "u1.0"}},
        {{"fifoWireData", ""}, {"fifoWireValid", ""}, {"fifoWireLow", ""}},
        {{"fifoDepth", "3"},
         {"fifoLowThreshold", "1"},
         {"scheduleConstraintPorts", "((fifoPortData true () (1)) (fifoPortWriteEn true () (2)))"},
         {"scheduleConstraintWires", "((fifoWireData true (1) ()) (fifoWireValid true (2) ()))"}});
    for (const char *member : {"(block 0)", "(block 1)"}) {
        EXPECT_EQ(portsAt(model, member), "((fifoPortData true () (1)) (fifoPortWriteEn true () (2)))");
        EXPECT_EQ(markOf(model, member, "fifoWireData"), "fifoWireData");
    }
    EXPECT_EQ(wiresAt(model, "(block 0)"), "((fifoWireData true (1) ()) (fifoWireValid true (2) ()))");
    EXPECT_EQ(wiresAt(model, "(block 1)"), "((fifoWireData true (1) ()))");
    EXPECT_EQ(&model.getOutputBlock()->getPort(value("fifoWireValid"))->peekWire()->getBlock(),
              model.getBlock(value("(block 0)")));
}

TEST_F(AggregateUnrollerPointsTest, keepWhatIsKnownOfThePinsWires) {
    const Model &model = unrolled("typePinBlock", {{"0", "{s4.0, u2.0}"}, {"1", "s3.0"}}, {{"0", ""}, {"1", ""}}, {});
    for (const auto &[wire, mark] : std::map<const char *, const char *>{{"0", "0"}, {"1", "0"}, {"2", "1"}}) {
        EXPECT_EQ(markOf(model, "block_aunroll", wire), mark) << wire;
    }
}

TEST_F(AggregateUnrollerPointsTest, keepWhatIsKnownOfTheWireOfAPinWithoutInput) {
    const Model &model = unrolled("typePinBlock", {}, {{"0", ""}},
                                  {{"typePinType", "(typeAggregate (typeSFixed 4 0) (typeUFixed 2 0))"}});
    EXPECT_EQ(markOf(model, "(block 0 0)", "primWireOut"), "0");
    EXPECT_EQ(markOf(model, "(block 0 1)", "primWireOut"), "0");
}

TEST_F(AggregateUnrollersTest, nameTheMembersOfAPlaceholder) {
    const char *types = "((x (typeAggregate (typeSFixed 4 0) (typeAggregate (typeUFixed 2 0)))) (y (typeSFixed 3 0)))";
    EXPECT_EQ(madeOf("latencyPlaceholderBlock", {{"x", "{s4.0, {u2.0}}"}}, {{"y", ""}, {"x", ""}},
                     {{"latencyPlaceholderTypemap", types}}),
              Made{});
    Design design(mgr.context());
    Model &model = oneBlock(design, "latencyPlaceholderBlock", {}, {{"x", ""}}, {{"latencyPlaceholderTypemap", types}});
    PassScheduler scheduler;
    scheduler.addPass("UnrollAggregatePass");
    scheduler.apply(design);
    EXPECT_EQ(PureValueRef(model.getBlock(value("block"))->getParam(A_LATENCY_PLACEHOLDER_TYPEMAP)),
              value("(((x 0) (typeSFixed 4 0)) ((x 1) (typeUFixed 2 0)) (y (typeSFixed 3 0)))"));
}

TEST_F(AggregateUnrollersTest, pinEachMember) {
    EXPECT_EQ(madeOf("typePinBlock", {{"0", "{s4.0, u2.0}"}, {"1", "s3.0"}}, {{"0", ""}, {"1", ""}},
                     {{"typePinPortTypes", "((typeAggregate (typeSFixed 4 0) (typeUFixed 2 0)) (typeSFixed 3 0))"}}),
              (Made{"block_aunroll"}));
    EXPECT_EQ(madeOf("typePinBlock", {{"0", "{s4.0, u2.0}"}}, {{"0", ""}, {"primWireOut", ""}}),
              (Made{"block_aunroll"}));
    EXPECT_EQ(madeOf("typePinBlock", {}, {{"0", ""}},
                     {{"typePinType", "(typeAggregate (typeSFixed 4 0) (typeUFixed 2 0))"}}, false),
              (Made{"(block 0 0)", "(block 0 1)"}));
}

TEST_F(AggregateUnrollersTest, moveTheConstraintsOfAPinToItsMembers) {
    Design design(mgr.context());
    const Model &model =
        oneBlock(design, "typePinBlock", {{"0", "{s4.0, u2.0}"}, {"1", "{s4.0, u2.0}"}}, {{"0", ""}, {"1", ""}},
                 {{"scheduleConstraintPorts", "((0 true () (1)) (1 true () (2)))"},
                  {"scheduleConstraintWires", "((0 true (1) ()) (1 true (2) ()))"}});
    PassScheduler scheduler;
    scheduler.addPass("UnrollAggregatePass");
    scheduler.apply(design);
    const Block &pin = *model.getBlock(value("block_aunroll"));
    EXPECT_EQ(pin.getParam(A_SCHEDULE_CONSTRAINT_PORTS)->toString(),
              "((0 true () (1)) (1 true () (1)) (2 true () (2)) (3 true () (2)))");
    EXPECT_EQ(pin.getParam(A_SCHEDULE_CONSTRAINT_WIRES)->toString(),
              "((0 true (1) ()) (1 true (1) ()) (2 true (2) ()) (3 true (2) ()))");
}

TEST_F(AggregateUnrollersTest, numberTheNamedPortsOfAPinByTheirOrder) {
    const Made made{"block_aunroll"};
    EXPECT_EQ(madeOf("typePinBlock", {{"foo", "{s4.0, u3.0}"}}, {{"foo", ""}}), made);
    EXPECT_EQ(madeOf("typePinBlock", {{"foo", "{s4.0, u3.0}"}, {"bar", "{s4.0, u3.0}"}},
                     {{"bar", ""}, {"foo", ""}, {"primWireOut", ""}}),
              made);
    EXPECT_EQ(madeOf("typePinBlock", {{"foo", "{s4.0, u3.0}"}, {"0", "s2.0"}}, {{"0", ""}, {"foo", ""}},
                     {{"typePinPortTypes", "((typeSFixed 2 0))"},
                      {"typePinType", "(typeAggregate (typeSFixed 4 0) (typeUFixed 3 0))"}}),
              made);
}

TEST_F(AggregateUnrollersTest, keepStallRegionsOnOneBlock) {
    EXPECT_EQ(madeOf("stallenterBlock",
                     {{"(stallenterPortkeyDataBack 0)", kRecord},
                      {"(stallenterPortkeyDataBack 4)", "s4.0"},
                      {"stallenterPortValidBack", "u1.0"}},
                     {{"(stallenterWirekeyDataFront 0)", ""},
                      {"(stallenterWirekeyDataFront 4)", ""},
                      {"stallenterWireValidFront", ""}}),
              Made{});
    EXPECT_EQ(
        madeOf("stallexitBlock", {{"(stallexitPortkeyDataBack 0)", kRecord}}, {{"(stallexitWirekeyDataFront 0)", ""}}),
        Made{});
    EXPECT_EQ(madeOf("stallregBlock",
                     {{"(stallregPortkeyDataBack 0)", kRecord},
                      {"(stallregPortkeyValidBack 0)", "u1.0"},
                      {"stallregPortStallFront", "u1.0"}},
                     {{"(stallregWirekeyDataFront 0)", ""},
                      {"(stallregWirekeyValidFront 0)", ""},
                      {"stallregWireStallBack", ""}}),
              Made{});
    Design design(mgr.context());
    Model &model =
        oneBlock(design, "stallenterBlock",
                 {{"(stallenterPortkeyDataBack 0)", "{s4.0, u2.0}"}, {"(stallenterPortkeyDataBack 4)", "s4.0"}},
                 {{"(stallenterWirekeyDataFront 0)", ""}});
    PassScheduler scheduler;
    scheduler.addPass("UnrollAggregatePass");
    scheduler.apply(design);
    const Block &block = *model.getBlock(value("block"));
    for (const char *name :
         {"(stallenterPortkeyDataBack 4)", "(stallenterPortkeyDataBack 5)", "(stallenterPortkeyDataBack 6)"}) {
        EXPECT_NE(block.getPort(value(name)), nullptr) << name;
    }
    EXPECT_NE(block.getWire(value("(stallenterWirekeyDataFront 6)")), nullptr);
    EXPECT_EQ(block.getPort(value("(stallenterPortkeyDataBack 0)")), nullptr);
}

class AggregateFaultsTest : public AggregateUnrollersTest {
  protected:
    const AggregateTypeSpec &record() {
        return manager.specOf(value("(typeAggregate (typeSFixed 4 0) (typeUFixed 2 0))"));
    }
    Design design{mgr.context()};
    Model &model =
        oneBlock(design, "delayBlock", {{"0", "{s4.0, u2.0}"}}, {{"primWireOut", ""}}, {{"delayLength", "2"}});
    Block &delay = *model.getBlock(value("block"));
    Port &port = *delay.getPort(value("0"));
    Wire &wire = *delay.getWire(A_PRIM_WIRE_OUT);
    const AggregateTypeManager manager{};
};

TEST_F(AggregateFaultsTest, endWithAMemberThatARecordDoesNotHave) {
    EXPECT_DEATH(manager.pathTo(record(), 2), "a record has no member of this number");
    EXPECT_DEATH(manager.pathTo(record(), -1), "a record has no member of this number");
    EXPECT_DEATH(manager.pathTo(AggregateTypeSpec(), 0), "a record has no member of this number");
}

TEST_F(AggregateFaultsTest, endWithABlockThatIsTakenApartTwice) {
    SimplePrimAggregateUnroller unroller(delay);
    unroller.originalWire(wire, record(), manager);
    unroller.originalPort(port, record(), manager);
    unroller.preAttach(manager);
    EXPECT_DEATH(unroller.preAttach(manager), "a block is taken apart twice");
}

template <class U> class AggregateAttachFaultsTest : public AggregateFaultsTest {};
using UnrollersOfFlatMembers = ::testing::Types<SimplePrimAggregateUnroller, BoundaryAggregateUnroller>;
TYPED_TEST_SUITE(AggregateAttachFaultsTest, UnrollersOfFlatMembers, );

TYPED_TEST(AggregateAttachFaultsTest, endWithARecordInPlaceOfAMember) {
    TypeParam unroller(this->delay);
    unroller.originalWire(this->wire, this->record(), this->manager);
    unroller.originalPort(this->port, this->record(), this->manager);
    unroller.preAttach(this->manager);
    EXPECT_DEATH(unroller.attachPort(this->port, this->record(), 0, *this->port.peekWire(), this->manager),
                 "a record is attached to one of its members");
    EXPECT_DEATH(unroller.attachWire(this->wire, this->record(), 0, {}, this->manager),
                 "a record is attached to one of its members");
}

} // namespace
} // namespace orvo
