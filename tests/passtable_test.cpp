// The passes that the start-up registers, and the start-up itself.
#include <orvo/context.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>

namespace orvo {
namespace {

TEST(PassTable, registersThePassesInItsOrder) {
    ContextMgr mgr;
    const std::vector<std::string> expected = {"DeadBlockPass",
                                               "DeadBlockLatePass",
                                               "AggressiveDeadBlockPass",
                                               "AggressiveDeadBlockLatePass",
                                               "AnalyseDesignPass",
                                               "DumpTypesPass",
                                               "DumpXMLPass",
                                               "GlobalTypePass",
                                               "FlattenEverythingPass",
                                               "FlattenSimulinkPass",
                                               "FlattenExplicitPass",
                                               "FlattenZRTExplicitPass",
                                               "ElideTerminalPass",
                                               "UnrollAggregatePass",
                                               "UnrollAggregateCrossModelPass",
                                               "UnrollComplexPass",
                                               "UnrollComplexCrossModelPass",
                                               "UnrollVectorPass",
                                               "UnrollVectorCrossModelPass",
                                               "ElideUnpackPass",
                                               "ElideFromGotoPass",
                                               "ModelTreePass",
                                               "DeadModelPass",
                                               "PrecisionAdjustmentPass",
                                               "DecomposeCompositePass",
                                               "PropagateConstantsPass",
                                               "ElideConstShiftsPass",
                                               "ConstMultPass",
                                               "UnrelaxBoolsPass",
                                               "PrepareTierPass",
                                               "UnrollScheduledModelPass",
                                               "InsertCastsPass",
                                               "ConstCastPass",
                                               "NarrowMultPass",
                                               "CheckConstantsPass",
                                               "ValidateModelPass",
                                               "NetlistVerificationPass",
                                               "RemoveNoGrowthCastsPass"};
    std::vector<std::string> registered = internal::registeredPasses();
    registered.resize(expected.size());
    EXPECT_EQ(registered, expected);
}

TEST(PassTable, tellsWhatEachPassDoesAndItsName) {
    ContextMgr mgr;
    for (const std::string &name : internal::registeredPasses()) {
        EXPECT_FALSE(internal::findPassSettings(name)->description().empty()) << name;
        std::unique_ptr<Pass> pass(internal::findPassFactory(name)());
        EXPECT_EQ(pass->getName(), name);
        if (name == "ElideUnpackPass" || name.find("Flatten") == 0) {
            EXPECT_FALSE(pass->useMetadataTransferListener());
        } else if (name.find("TestPass") == std::string::npos) {
            EXPECT_TRUE(pass->useMetadataTransferListener()) << name;
        }
    }
    EXPECT_EQ(internal::findPassSettings("NoSuchPass"), nullptr);
    EXPECT_EQ(internal::findPassFactory("NoSuchPass"), nullptr);
}

TEST(PassTable, declaresParametersWithTheirDefaults) {
    ContextMgr mgr;
    const internal::DefaultParamSettings &dump = *internal::findPassSettings("DumpXMLPass");
    EXPECT_TRUE(dump.find("P_CLOBBER")->getDefaultValue() == A_FALSE);
    EXPECT_FALSE(dump.find("P_FILENAME")->getDefaultValue());
    EXPECT_FALSE(internal::findPassSettings("ElideUnpackPass")->find("P_IGNORE_METADATA")->getDefaultValue());
    ASSERT_NE(internal::findPassSettings("DecomposeCompositePass")->find("P_SUBSET_OF_BLOCKS"), nullptr);
    EXPECT_FALSE(internal::findPassSettings("DecomposeCompositePass")->find("P_SUBSET_OF_BLOCKS")->getDefaultValue());
    EXPECT_EQ(dump.find("P_OTHER"), nullptr);
    ASSERT_NE(internal::findPassSettings("DumpTypesPass")->find("P_MODEL"), nullptr);
    EXPECT_FALSE(internal::findPassSettings("DumpTypesPass")->find("P_MODEL")->getDefaultValue());
}

TEST(PassTable, requiresWhatEachPassNeeds) {
    ContextMgr mgr;
    const auto required = [](const std::string &name) {
        std::unique_ptr<Pass> pass(internal::findPassFactory(name)());
        PassDeclarations declarations;
        pass->declare(declarations);
        std::vector<std::string> names;
        for (const PassRequest &request : declarations.getRequiredPasses()) {
            names.push_back(request.name);
        }
        return names;
    };
    const std::map<std::string, std::vector<std::string>> some = {
        {"CheckScalarSignalsPass", {"ModelTreePass", "GlobalTypePass"}},
        {"ConstCastPass", {"ModelTreePass", "GlobalTypePass"}},
        {"ConstMultPass", {"GlobalTypePass", "ModelTreePass"}},
        {"DecomposeCompositePass", {"GlobalTypePass", "ModelTreePass"}},
        {"DumpTypesPass", {"GlobalTypePass"}},
        {"ElideConstShiftsPass", {"ModelTreePass", "GlobalTypePass"}},
        {"ElideFromGotoPass", {"ModelTreePass"}},
        {"ElideUnpackPass", {"ModelTreePass", "GlobalTypePass"}},
        {"RemoveNoGrowthCastsPass", {"ModelTreePass", "GlobalTypePass"}},
        {"InsertCastsPass", {"ModelTreePass", "GlobalTypePass"}},
        {"PrecisionAdjustmentPass", {"GlobalTypePass", "ModelTreePass"}},
        {"UnrelaxBoolsPass", {"ModelTreePass", "GlobalTypePass"}},
        {"NarrowMultPass", {"GlobalTypePass", "ModelTreePass"}},
        {"PropagateConstantsPass", {"GlobalTypePass", "ModelTreePass"}},
        {"UnrollComplexCrossModelPass", {"ModelTreePass", "GlobalTypePass"}},
        {"UnrollComplexPass", {"ModelTreePass", "GlobalTypePass"}},
        {"UnrollAggregateCrossModelPass", {"ModelTreePass", "GlobalTypePass"}},
        {"UnrollAggregatePass", {"ModelTreePass", "GlobalTypePass"}},
        {"UnrollScheduledModelPass", {"ModelTreePass"}},
        {"UnrollVectorCrossModelPass", {"ModelTreePass", "GlobalTypePass"}},
        {"UnrollVectorPass", {"ModelTreePass", "GlobalTypePass"}},
        {"ValidateModelPass", {"ModelTreePass", "GlobalTypePass"}},
    };
    for (const std::string &name : internal::registeredPasses()) {
        if (name.find("TestPass") == std::string::npos) {
            EXPECT_EQ(required(name), some.count(name) != 0 ? some.at(name) : std::vector<std::string>()) << name;
        }
    }
}

TEST(StartUp, registersOnceAndGivesEachContextItsOwnClasses) {
    ContextMgr first;
    const std::size_t passes = internal::registeredPasses().size();
    ContextMgr second;
    EXPECT_EQ(internal::registeredPasses().size(), passes);
    EXPECT_NE(first.context()->getBlockClass(A_INPUT_BLOCK), second.context()->getBlockClass(A_INPUT_BLOCK));
}

} // namespace
} // namespace orvo
