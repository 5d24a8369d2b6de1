// The reader of the block catalogue, and the catalogue that is shipped.
#include <orvo/blocksinfo.h>

#include <orvo/context.h>
#include <orvo/limits.h>
#include <orvo/staticstrings.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include <sstream>

namespace orvo {
namespace {

const char *const kHead = "MAPPINGSSECTION\n"
                          "<---------->\n"
                          "Block:(A_BLOCK_TYPE) A_X_BLOCK xBlock\n"
                          "<---------->\n"
                          "Wire: A_X_WIRE xWire\n"
                          "<---------->\n"
                          "BLOCKSSECTION\n"
                          "<---------->\n";

class BlocksInfoTest : public ::testing::Test {
  protected:
    /// Reads a catalogue and gives what was reported.
    std::string read(const std::string &text) {
        ::testing::internal::CaptureStderr();
        std::istringstream in(text);
        info.genBlocksInfo(in, "cat.csv");
        return ::testing::internal::GetCapturedStderr();
    }
    const BlockConnection &connection(std::size_t i) { return info.getBlockInfo("A_X_BLOCK").connections.at(i); }
    BlocksInfo info;
};

TEST_F(BlocksInfoTest, readsBlocksWithTheirConnections) {
    EXPECT_EQ(read(std::string(kHead) + "A_X_BLOCK\n"
                                        "Description: Does x\n"
                                        "  and more.\n"
                                        "Connections:\n"
                                        "Port | 0 | ... (optional) | The input, with a blank.\n"
                                        "Param | A_MODE | A_ONE | Two values.\n"
                                        "A_TWO (default)\n"
                                        "<---------->\n"),
              "");
    EXPECT_EQ(info.getBlockInfo("A_X_BLOCK").description, "Does x and more.");
    EXPECT_EQ(connection(0).kind, "Port");
    EXPECT_EQ(connection(0).name, "0");
    EXPECT_TRUE(connection(0).optional);
    EXPECT_TRUE(connection(0).isOpen());
    EXPECT_EQ(connection(0).description, "The input, with a blank.");
    EXPECT_EQ(connection(0).defaultValue, "NONE");
    EXPECT_EQ(connection(1).values, (std::vector<std::string>{"A_ONE", "A_TWO"}));
    EXPECT_EQ(connection(1).defaultValue, "A_TWO");
    EXPECT_FALSE(connection(1).optional);
    EXPECT_FALSE(connection(1).isOpen());
}

TEST_F(BlocksInfoTest, comparesKeywordsWithoutRegardToCase) {
    EXPECT_EQ(read("mappingsSection\n<---------->\nwire: A_X_WIRE xWire\n<---------->\nblockssection\n<---------->\n"
                   "A_X_BLOCK\ndescription: d\nconnections:\nPort | 0 | ... | in\n<---------->\n"),
              "");
    EXPECT_EQ(info.get_mapping("A_X_WIRE"), "xWire");
    EXPECT_EQ(connection(0).name, "0");
}

TEST_F(BlocksInfoTest, takesThreeBarsAndReportsAndSkipsTwo) {
    EXPECT_EQ(read(std::string(kHead) + "A_X_BLOCK\nDescription: d\nConnections:\n"
                                        "Port | 0 | the input\n"
                                        "A_LOST_VALUE\n"
                                        "Port | 1 | ... | good\n"
                                        "<---------->\n"),
              "Error: The following connection is not well formed for the A_X_BLOCK block at line 12 in file cat.csv:\n"
              " Port | 0 | the input\n"
              "Error: The following connection is not well formed for the A_X_BLOCK block at line 13 in file cat.csv:\n"
              " A_LOST_VALUE\n");
    ASSERT_EQ(info.getBlockInfo("A_X_BLOCK").connections.size(), 1U);
    EXPECT_EQ(connection(0).name, "1");
}

TEST_F(BlocksInfoTest, reportsAFileThatEndsInsideAnEntry) {
    const std::string end = "Error: Unexpected EOF at line at 10 in file cat.csv\n";
    EXPECT_EQ(read(std::string(kHead) + "A_X_BLOCK\nDescription: d\n"),
              end + "Warning: No connections given for block A_X_BLOCK at line 10 in file cat.csv.\n");
    EXPECT_TRUE(info.blockExists("A_X_BLOCK"));
    EXPECT_EQ(read(std::string(kHead) + "Genericparameter: A_G\nDescription: d\n"), end);
    EXPECT_EQ(read(std::string(kHead) + "A_Y_BLOCK\n"),
              "Error: Unexpected EOF at line at 9 in file cat.csv\n"
              "Warning: No block description was given at line 9 in file cat.csv\n"
              "Warning: No connections given for block A_Y_BLOCK at line 9 in file cat.csv.\n");
}

TEST_F(BlocksInfoTest, warnsOfMissingDescriptionsAndConnections) {
    std::string heard = read(std::string(kHead) + "A_X_BLOCK\nConnections:\nPort | 0 | ... | in\n<---------->\n"
                                                  "A_Y_BLOCK\nDescription: d\n<---------->\n"
                                                  "Genericparameter: A_G\n<---------->\n");
    EXPECT_NE(heard.find("No block description was given at line 10 in file cat.csv\n"), std::string::npos);
    EXPECT_NE(heard.find("No connections given for block A_Y_BLOCK at line 15 in file cat.csv.\n"), std::string::npos);
    EXPECT_NE(heard.find("No generic parameter description was given at line 16 in file cat.csv\n"), std::string::npos);
    EXPECT_EQ(connection(0).name, "0");
}

TEST_F(BlocksInfoTest, reportsAnEntryOfAnUnknownKind) {
    EXPECT_EQ(read("MAPPINGSSECTION\n<---------->\nOdd: A_B b\nmore\n<---------->\nTag: A_T t\n<---------->\n"),
              "could not parse Odd: A_B b at line 3 in file cat.csv\n");
    EXPECT_EQ(info.get_mapping("A_T"), "t");
}

TEST_F(BlocksInfoTest, beginsTheBlocksInsideAnEntryThatHasNoEnd) {
    EXPECT_EQ(read("MAPPINGSSECTION\n<---------->\nTag: A_T t\nBLOCKSSECTION\n<---------->\n"
                   "A_X_BLOCK\nDescription: d\nConnections:\nPort | 0 | ... | in\n<---------->\n"),
              "");
    EXPECT_TRUE(info.blockExists("A_X_BLOCK"));
    EXPECT_EQ(info.get_mapping("A_T"), "t");
}

TEST_F(BlocksInfoTest, takesALineUpToItsLimitAndCutsALongerOne) {
    const std::string most(limits::kCatalogueLineBytes - std::string("Description: ").size(), 'd');
    const auto entry = [](const std::string &words) {
        return std::string(kHead) + "A_X_BLOCK\nDescription: " + words +
               "\nConnections:\nPort | 0 | ... | in\n<---------->\n";
    };
    EXPECT_EQ(read(entry(most)), "");
    EXPECT_EQ(info.getBlockInfo("A_X_BLOCK").description, most);
    EXPECT_EQ(read(entry(most + "d")), "Error: Line 10 in file cat.csv is longer than " +
                                           std::to_string(limits::kCatalogueLineBytes) + " bytes and is cut\n");
    EXPECT_EQ(info.getBlockInfo("A_X_BLOCK").description, most);
}

TEST_F(BlocksInfoTest, takesTheFirstWordOfALineForTheBlocksName) {
    EXPECT_EQ(
        read(std::string(kHead) +
             "A_X_BLOCK a block: words | more\nDescription: d\nConnections:\nPort | 0 | ... | in\n<---------->\n"),
        "");
    EXPECT_TRUE(info.blockExists("A_X_BLOCK"));
}

TEST_F(BlocksInfoTest, takesBothMarksOfOneValueAndAMarkOfAValueLine) {
    read(std::string(kHead) + "A_X_BLOCK\nDescription: d\nConnections:\nParam | A_P | A_V (default)(optional) | p\n"
                              "Param | A_Q | A_V | q\nA_W (optional)\n<---------->\n");
    EXPECT_TRUE(connection(0).optional);
    EXPECT_EQ(connection(0).defaultValue, "A_V");
    EXPECT_EQ(connection(0).values, (std::vector<std::string>{"A_V"}));
    EXPECT_TRUE(connection(1).optional);
    EXPECT_EQ(connection(1).values, (std::vector<std::string>{"A_V", "A_W"}));
}

TEST(Catalogue, isAWarningWhenItsFileIsMissing) {
    util::SetFeatureString("rootDirectory", "/nowhere");
    BlocksInfo info;
    ::testing::internal::CaptureStderr();
    info.genBlocksInfo();
    const std::string heard = ::testing::internal::GetCapturedStderr();
    util::ClearFeature("rootDirectory");
    EXPECT_NE(heard.find("The block catalogue "), std::string::npos);
    EXPECT_NE(heard.find(" could not be opened\n"), std::string::npos);
    EXPECT_EQ(info.size(), 1U);
    EXPECT_EQ(info.getBlockInfo("DUMMY_GENERIC_BLOCK").connections.size(), 0U);
}

TEST(Catalogue, outlivesTheDestructorsOfGlobalObjects) {
    const auto readAtTheEnd = [] {
        std::atexit([] {
            const bool there = getBlocksInfo().blockExists("A_ADD_BLOCK");
            std::fputs(there ? "still there" : "gone", stderr);
        });
        { ContextMgr first; }
        std::exit(0);
    };
    EXPECT_EXIT(readAtTheEnd(), ::testing::ExitedWithCode(0), "still there");
}

TEST_F(BlocksInfoTest, knowsEveryKeywordOfTheMappingSection) {
    const char *keywords[] = {"Block:(A_BLOCK_TYPE)",
                              "Genericparameter:",
                              "Wire:",
                              "Port:",
                              "Blockparameter:",
                              "Modelparameter:",
                              "Designparameter:",
                              "Blockparametervalue:",
                              "Modelparametervalue:",
                              "Designparametervalue:",
                              "Tag:"};
    std::string text = "MAPPINGSSECTION\n<---------->\n";
    int count = 0;
    for (const char *keyword : keywords) {
        std::string n = std::to_string(count++);
        text += std::string(keyword) + " A_" + n + " a" + n + "\n<---------->\n";
    }
    EXPECT_EQ(read(text), "");
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(info.get_mapping("A_" + std::to_string(i)), "a" + std::to_string(i));
        EXPECT_EQ(info.get_reversed_mapping("a" + std::to_string(i)), "A_" + std::to_string(i));
    }
}

TEST_F(BlocksInfoTest, addsGenericParametersToTheReservedBlock) {
    read(std::string(kHead) + "Genericparameter: A_META\nDescription: on any block\n<---------->\n");
    const BlockInfo &generic = info.getBlockInfo("DUMMY_GENERIC_BLOCK");
    EXPECT_EQ(generic.description, "Dummy block for storing the generic parameters that can be applied to any block");
    ASSERT_EQ(generic.connections.size(), 1U);
    EXPECT_EQ(generic.connections[0].name, "A_META");
    EXPECT_EQ(generic.connections[0].kind, "Param");
    EXPECT_EQ(generic.connections[0].description, "on any block");
}

TEST_F(BlocksInfoTest, givesEmptyForAnUnknownKey) {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(info.get_mapping("A_NONE"), "EMPTY");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Key A_NONE not found in BlocksInfo map!\n");
}

TEST_F(BlocksInfoTest, findsDefaultsByAPartOfTheName) {
    read(std::string(kHead) + "A_X_BLOCK\nDescription: d\nConnections:\n"
                              "Param | A_MODE_A | ... | no default\n"
                              "Param | A_MODE_B | 5 (default) | one\n<---------->\n");
    EXPECT_EQ(info.getDefaultParamValue("A_X_BLOCK", "A_MODE"), "5");
    EXPECT_EQ(info.getDefaultParamValue("A_X_BLOCK", "A_MODE_A"), "NOT FOUND!");
    EXPECT_EQ(info.getDefaultParamValue("A_X_BLOCK", "A_OTHER"), "NOT FOUND!");
    EXPECT_EXIT(info.getBlockInfo("A_Z_BLOCK"), ::testing::ExitedWithCode(1), "no such block");
}

TEST_F(BlocksInfoTest, refusesAFileWithoutItsFirstSection) {
    std::istringstream in("BLOCKSSECTION\n");
    EXPECT_EXIT(info.genBlocksInfo(in, "cat.csv"), ::testing::ExitedWithCode(1), "section of mappings");
}

TEST_F(BlocksInfoTest, dumpsBlocksWithTheirConnections) {
    read(std::string(kHead) + "A_X_BLOCK\nDescription: d\nConnections:\nPort | 0 | ... | in\n<---------->\n");
    std::ostringstream out;
    info.dump(out);
    EXPECT_NE(out.str().find("A_X_BLOCK\n0: Port - in - Default: NONE\n"), std::string::npos);
}

TEST(ShippedCatalogue, hasAnEntryForEveryBlockTypeAndAMappingForEveryString) {
    ContextMgr mgr;
    const BlocksInfo &catalogue = getBlocksInfo();
    for (const StaticStringEntry &string : staticStrings()) {
        const std::string name = string.name;
        const std::string *text = catalogue.findMapping(name);
        ASSERT_NE(text, nullptr) << name;
        EXPECT_EQ(*text, string.string->text()) << name;
        // One parameter of models is named like a block type.
        const bool isType = name.size() > 6 && name.compare(name.size() - 6, 6, "_BLOCK") == 0;
        if (isType && name != "A_IS_DECODE_MAGIC_BLOCK") {
            EXPECT_TRUE(catalogue.blockExists(name)) << name;
            const std::string *back = catalogue.findReversedMapping(*text);
            ASSERT_NE(back, nullptr);
            EXPECT_TRUE(catalogue.blockExists(*back)) << *back;
        }
    }
}

TEST(ShippedCatalogue, mapsEveryNameThatItsConnectionsUse) {
    ContextMgr mgr;
    const BlocksInfo &catalogue = getBlocksInfo();
    for (const auto &[block, info] : catalogue.blocks()) {
        EXPECT_FALSE(info.description.empty()) << block;
        for (const BlockConnection &connection : info.connections) {
            EXPECT_NE(catalogue.findMapping(connection.name), nullptr) << block << " " << connection.name;
            EXPECT_TRUE(connection.kind == "Param" || connection.kind == "Port" || connection.kind == "Wire") << block;
            EXPECT_FALSE(connection.description.empty()) << block << " " << connection.name;
            EXPECT_FALSE(connection.values.empty()) << block << " " << connection.name;
        }
    }
}

TEST(ShippedCatalogue, prefersThePlainTypeWhereAVariantSharesItsText) {
    ContextMgr mgr;
    EXPECT_EQ(getBlocksInfo().get_reversed_mapping("lutBlock"), "A_LUT_BLOCK");
    EXPECT_EQ(getBlocksInfo().get_reversed_mapping("forLoopBlock"), "A_FOR_LOOP_BLOCK");
}

} // namespace
} // namespace orvo
