// The reader of the table of devices, and the table that ships.
#include <device/devicetable.h>

#include <util/io.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <set>
#include <string>

namespace device {
namespace {

const std::string kFacts = "dsp-type 3\n"
                           "hard-float single\n"
                           "fabric-registers yes\n"
                           "lut-inputs 6\n"
                           "mult18-in-lut4 200\n"
                           "multiplier 9x9 3\n"
                           "multiplier 18x19 2\n"
                           "memory 640 20\n"
                           "memory 8192 32\n"
                           "routing 16 1.0\n"
                           "routing 64 1.5\n"
                           "grade -1 0.5\n"
                           "grade -2 0.75\n"
                           "part P1 -2 100 10 5\n";

/// The first family has its header on line 1, so that fact k stands on line k + 1.
std::string family(const std::string &name, const std::string &facts = kFacts) { return "[" + name + "]\n" + facts; }

std::string replaced(std::string text, const std::string &from, const std::string &to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

DeviceTable tableOf(const std::string &text) {
    TableError error;
    std::optional<DeviceTable> table = readDeviceTable(text, error);
    EXPECT_TRUE(table.has_value()) << error.line << ": " << error.reason;
    return table ? *std::move(table) : DeviceTable({});
}

/// "line: reason", empty for a sound text.
std::string faultOf(const std::string &text) {
    TableError error;
    return readDeviceTable(text, error) ? std::string() : std::to_string(error.line) + ": " + error.reason;
}

TEST(DeviceTable, readsTheFactsOfAFamily) {
    const DeviceTable table = tableOf(family("Sample 1"));
    ASSERT_EQ(table.families().size(), 1U);
    const Family &one = table.families().front();
    EXPECT_EQ(one.name, "Sample 1");
    EXPECT_EQ(one.dspType, 3);
    EXPECT_FALSE(one.halfFloat);
    EXPECT_TRUE(one.singleFloat);
    EXPECT_TRUE(one.fabricRegisters);
    EXPECT_EQ(one.lutInputs, 6);
    EXPECT_EQ(one.mult18InLut4, 200);
    ASSERT_EQ(one.multipliers.size(), 2U);
    EXPECT_EQ(one.multipliers[1].widthA, 18);
    EXPECT_EQ(one.multipliers[1].widthB, 19);
    EXPECT_EQ(one.multipliers[1].perBlock, 2);
    ASSERT_EQ(one.memories.size(), 2U);
    EXPECT_EQ(one.memories[1].bits, 8192);
    EXPECT_EQ(one.memories[1].maxWidth, 32);
    ASSERT_EQ(one.routing.size(), 2U);
    EXPECT_EQ(one.routing[1].maxWidth, 64);
    EXPECT_FLOAT_EQ(one.routing[1].coefficient, 1.5F);
    ASSERT_EQ(one.grades.size(), 2U);
    EXPECT_EQ(one.grades[1].name, "-2");
    EXPECT_DOUBLE_EQ(one.grades[1].delay, 0.75);
    ASSERT_EQ(one.parts.size(), 1U);
    EXPECT_EQ(one.parts[0].name, "P1");
    EXPECT_EQ(one.parts[0].speedGrade, "-2");
    EXPECT_EQ(one.parts[0].luts, 100);
    EXPECT_EQ(one.parts[0].dspBlocks, 10);
    EXPECT_EQ(one.parts[0].memoryBlocks, 5);
}

TEST(DeviceTable, readsHardFloatsOfEachWidth) {
    const auto floats = [](const char *words) {
        const Family one = tableOf(family("F", replaced(kFacts, "hard-float single", words))).families().front();
        return std::pair(one.halfFloat, one.singleFloat);
    };
    EXPECT_EQ(floats("hard-float none"), std::pair(false, false));
    EXPECT_EQ(floats("hard-float half"), std::pair(true, false));
    EXPECT_EQ(floats("hard-float single half"), std::pair(true, true));
}

TEST(DeviceTable, takesCommentsBlankLinesAndLineEndsOfAnyKind) {
    const std::string text = "\xef\xbb\xbf# a table\r\n\r\n  [ Sample 1 ]  # the one\r\n";
    std::string facts = kFacts;
    for (std::size_t at = 0; (at = facts.find('\n', at)) != std::string::npos; at += 7) {
        facts.replace(at, 1, "\t# x\r\n");
    }
    EXPECT_EQ(tableOf(text + facts).families().front().name, "Sample 1");
    EXPECT_EQ(tableOf(family("A", kFacts.substr(0, kFacts.size() - 1))).families().size(), 1U);
}

TEST(DeviceTable, tellsTheLineOfEachFault) {
    struct Case {
        const char *from;
        const char *to;
        const char *fault;
    };
    const Case cases[] = {
        {"dsp-type 3", "dsp-type 6", "2: expected a whole number from 1 to 5, not '6'"},
        {"dsp-type 3", "dsp-type 3x", "2: expected a whole number from 1 to 5, not '3x'"},
        {"dsp-type 3", "dsp-type", "2: expected: dsp-type NUMBER"},
        {"dsp-type 3", "dsp-kind 3", "2: 'dsp-kind' is no fact of a family"},
        {"hard-float single", "hard-float", "3: expected: hard-float none, half, single, or half single"},
        {"hard-float single", "hard-float double", "3: expected: hard-float none, half, single, or half single"},
        {"hard-float single", "hard-float none half", "3: expected: hard-float none, half, single, or half single"},
        {"hard-float single", "hard-float half half", "3: expected: hard-float none, half, single, or half single"},
        {"fabric-registers yes", "fabric-registers perhaps", "4: expected yes or no, not 'perhaps'"},
        {"fabric-registers yes", "dsp-type 3", "4: 'dsp-type' stands twice in family 'F'"},
        {"lut-inputs 6", "lut-inputs 1", "5: expected a whole number from 2 to 8, not '1'"},
        {"mult18-in-lut4 200", "mult18-in-lut4 0", "6: expected a whole number from 1 to 100000000, not '0'"},
        {"multiplier 9x9 3", "multiplier 9 3", "7: expected two widths like 18x18, not '9'"},
        {"multiplier 9x9 3", "multiplier 9x9x9 3", "7: expected two widths like 18x18, not '9x9x9'"},
        {"multiplier 9x9 3", "multiplier 18x18 3", "8: expected multipliers from narrow to wide"},
        {"memory 640 20", "memory 640", "9: expected: memory BITS WIDTH"},
        {"memory 640 20", "memory 8192 20", "10: expected memories from small to large"},
        {"memory 640 20", "memory 16 20", "9: the word of a memory has more bits than the memory"},
        {"routing 16 1.0", "routing 64 1.0", "12: expected routing from narrow to wide"},
        {"routing 16 1.0", "routing 16 -1", "11: expected a factor above 0 and up to 1000, not '-1'"},
        {"routing 16 1.0", "routing 16 nan", "11: expected a factor above 0 and up to 1000, not 'nan'"},
        {"routing 16 1.0", "routing 16 1e9", "11: expected a factor above 0 and up to 1000, not '1e9'"},
        {"grade -2 0.75", "grade -1 0.75", "14: grade '-1' stands twice in family 'F'"},
        {"part P1 -2", "part P1 -3", "15: there is no grade '-3' above in family 'F'"},
        {"part P1 -2 100 10 5", "part P1 -2 100 10",
         "15: expected: part NAME GRADE LUTS MULTIPLIER-BLOCKS MEMORY-BLOCKS"},
        {"part P1 -2 100 10 5", "part P1 -2 100 10 -5", "15: expected a whole number from 0 to 100000000, not '-5'"},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(faultOf(family("F", replaced(kFacts, one.from, one.to))), one.fault);
    }
}

TEST(DeviceTable, tellsTheFamilyThatLacksAFact) {
    for (const std::string fact : {"dsp-type", "hard-float", "fabric-registers", "lut-inputs", "mult18-in-lut4"}) {
        const std::size_t at = kFacts.find(fact);
        std::string facts = kFacts;
        facts.erase(at, facts.find('\n', at) + 1 - at);
        const std::string fault = faultOf(family("A") + family("B", replaced(facts, "part P1", "part P2")));
        EXPECT_EQ(fault.find("16: family 'B' does not tell: " + fact), 0U) << fault;
    }
    EXPECT_EQ(faultOf("[A]\n"), "1: family 'A' does not tell: dsp-type NUMBER");
    EXPECT_EQ(faultOf(family("A", replaced(kFacts, "part P1 -2 100 10 5\n", ""))),
              "1: family 'A' does not tell: part NAME GRADE LUTS MULTIPLIER-BLOCKS MEMORY-BLOCKS");
    EXPECT_EQ(faultOf(family("A", replaced(kFacts, "dsp-type 3", "dsp-type 2"))),
              "1: family 'A' has hard-float, which needs dsp-type 3 or more");
}

TEST(DeviceTable, refusesNamesThatStandTwice) {
    EXPECT_EQ(faultOf(family("A") + family("a")), "16: family 'a' stands twice");
    EXPECT_EQ(faultOf(family("A") + family("B")), "30: part 'P1' stands twice");
    EXPECT_EQ(faultOf(family("A", kFacts + "part p1 -1 1 1 1\n")), "16: part 'p1' stands twice");
}

TEST(DeviceTable, refusesTextsThatAreNoTable) {
    EXPECT_EQ(faultOf(""), "0: the table has no family");
    EXPECT_EQ(faultOf("# nothing\n\n"), "2: the table has no family");
    EXPECT_EQ(faultOf("dsp-type 3\n"), "1: expected a family like [Halcyon V] before the first fact");
    EXPECT_EQ(faultOf("\n[A\n"), "2: expected the name of a family in [ ]");
    EXPECT_EQ(faultOf("[]\n"), "1: expected the name of a family in [ ]");
    EXPECT_EQ(faultOf("["), "1: expected the name of a family in [ ]");
}

TEST(DeviceTable, findsADeviceByItsNamesInAnyCase) {
    const DeviceTable table = tableOf(family("First") + family("Second", replaced(kFacts, "part P1", "part P2")));
    const auto choice = table.find("SECOND", "p2", "-1");
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->family, &table.families()[1]);
    EXPECT_EQ(choice->part, &table.families()[1].parts[0]);
    EXPECT_EQ(choice->grade, &table.families()[1].grades[0]);
}

TEST(DeviceTable, fillsInWhatIsNotNamed) {
    const DeviceTable table = tableOf(family("First") + family("Second", replaced(kFacts, "part P1", "part P2")));
    const auto names = [&table](const char *of, const char *part, const char *grade) {
        const auto choice = table.find(of, part, grade);
        return choice ? choice->family->name + " " + choice->part->name + " " + choice->grade->name : std::string();
    };
    EXPECT_EQ(names("", "", ""), "First P1 -2");
    EXPECT_EQ(names("", "P2", ""), "Second P2 -2");
    EXPECT_EQ(names("Second", "", ""), "Second P2 -2");
    EXPECT_EQ(names("Second", "", "-1"), "Second P2 -1");
    EXPECT_EQ(names("", "", "-1"), "First P1 -1");
}

TEST(DeviceTable, tellsWhichNameItDoesNotHaveAndWhichItHas) {
    const DeviceTable table = tableOf(family("First") + family("Second", replaced(kFacts, "part P1", "part P2")));
    const auto fault = [&table](const char *of, const char *part, const char *grade) {
        std::string error;
        EXPECT_FALSE(table.find(of, part, grade, &error));
        EXPECT_FALSE(table.find(of, part, grade));
        return error;
    };
    EXPECT_EQ(fault("Third", "", ""), "there is no device family 'Third', but First, Second");
    EXPECT_EQ(fault("First", "P2", ""), "device family 'First' has no part 'P2', but P1");
    EXPECT_EQ(fault("", "P3", ""), "no device family has a part 'P3'");
    EXPECT_EQ(fault("First", "", "-9"), "device family 'First' has no speed grade '-9', but -1, -2");
}

TEST(ShippedDeviceTable, isTheOneThatIsCompiledIn) {
    std::string text;
    ASSERT_TRUE(util::io::readFile(std::string(ORVO_TEST_SOURCE_DIR) + "/include/orvo/orvo_devices.txt", text));
    EXPECT_EQ(text, embeddedDeviceTable());
    ASSERT_TRUE(util::io::readFile(installedDeviceTable(), text));
    EXPECT_EQ(text, embeddedDeviceTable());
}

// Whatever a lowering asks a device, some device answers yes and another no.
TEST(ShippedDeviceTable, hasADeviceForEveryAnswer) {
    const DeviceTable table = tableOf(std::string(embeddedDeviceTable()));
    std::set<std::pair<bool, bool>> floats;
    std::set<bool> registers;
    std::set<int> dspTypes;
    std::set<int> lutInputs;
    std::set<std::pair<bool, bool>> registersAndFloats;
    for (const Family &one : table.families()) {
        floats.insert({one.halfFloat, one.singleFloat});
        registers.insert(one.fabricRegisters);
        dspTypes.insert(one.dspType);
        lutInputs.insert(one.lutInputs);
        registersAndFloats.insert({one.fabricRegisters, one.singleFloat});
    }
    EXPECT_EQ(floats.size(), 4U);
    EXPECT_EQ(registers.size(), 2U);
    EXPECT_EQ(dspTypes, (std::set<int>{1, 2, 3, 4, 5}));
    EXPECT_GE(lutInputs.size(), 2U);
    EXPECT_EQ(registersAndFloats.size(), 4U);
}

// A reader of text that people write by hand may meet anything.
RC_GTEST_PROP(DeviceTableText, isReadOrRefusedWithALineOfIt, ()) {
    std::string text(embeddedDeviceTable());
    const auto edits = *rc::gen::inRange(1, 6);
    for (int i = 0; i < edits; ++i) {
        const auto at = *rc::gen::inRange<std::size_t>(0, text.size());
        const auto count = *rc::gen::inRange<std::size_t>(0, 30);
        text.replace(at, count, *rc::gen::container<std::string>(rc::gen::elementOf(std::string("\n []#x09-.part"))));
    }
    TableError error;
    const std::optional<DeviceTable> table = readDeviceTable(text, error);
    if (table) {
        RC_ASSERT(table->find("", "", "").has_value());
    } else {
        RC_ASSERT(!error.reason.empty());
        RC_ASSERT(error.line >= 1);
        RC_ASSERT(error.line <= 1 + std::count(text.begin(), text.end(), '\n'));
    }
}

} // namespace
} // namespace device
