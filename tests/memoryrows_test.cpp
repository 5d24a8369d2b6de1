// Queues that channels share and tables that hold, against plain containers.
#include "support/heardmessages.h"
#include "support/simulatorfixture.h"

#include <deque>

namespace orvo::sim {
namespace {

using test::Numbers;

class MemoryRowsTest : public test::SimulatorFixture {};

TEST_F(MemoryRowsTest, queuesChannelsInOneStore) {
    Design design(mgr.context());
    Model &top = oneBlock(
        design, "sharedFifoBlock",
        {{"portValid", "u1.0"}, {"portChannel", "u8.0"}, {"portReady", "u1.0"}, {"0", "s8.0"}, {"1", "[2] u4.0"}},
        {{"wireValid", ""}, {"wireChannel", ""}, {"0", ""}, {"1", ""}}, {{"fifoDepth", "3"}});
    Simulator simulator(design, top);
    std::deque<Numbers> queue;
    test::Chance random(3);
    int wasFull = 0;
    for (int cycle = 0; cycle < 500; ++cycle) {
        const bool valid = random() % 3 != 0;
        const bool ready = random() % 2 != 0;
        const Numbers entry{random() % 256, static_cast<std::int8_t>(random()), random() % 16, random() % 16};
        const auto out = stepByName(simulator, {{"portValid", valid},
                                                {"portReady", ready},
                                                {"portChannel", entry[0]},
                                                {"0", entry[1]},
                                                {"1[0]", entry[2]},
                                                {"1[1]", entry[3]}});
        EXPECT_EQ(out.at("wireValid"), queue.empty() ? 0 : 1);
        if (!queue.empty()) {
            EXPECT_EQ((Numbers{out.at("wireChannel"), out.at("0"), out.at("1[0]"), out.at("1[1]")}), queue.front());
        }
        const bool isFull = queue.size() == 3;
        wasFull += isFull && valid ? 1 : 0;
        if (ready && !queue.empty()) {
            queue.pop_front();
        }
        if (valid && !isFull) {
            queue.push_back(entry);
        }
    }
    EXPECT_GT(wasFull, 10);
}

TEST_F(MemoryRowsTest, emptiesAQueueWithoutReadyAtOnce) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "sharedFifoBlock", {{"portValid", "u1.0"}, {"0", "s8.0"}}, {{"wireValid", ""}, {"0", ""}});
    Simulator simulator(design, top);
    EXPECT_EQ(stepByName(simulator, {{"portValid", 1}, {"0", 7}}).at("wireValid"), 0);
    EXPECT_EQ(stepByName(simulator, {{"portValid", 0}, {"0", 8}}).at("0"), 7);
    EXPECT_EQ(stepByName(simulator, {{"portValid", 0}, {"0", 8}}).at("wireValid"), 0);
}

TEST_F(MemoryRowsTest, holdsAnEntryWhileNoReadIsAllowed) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "readAccessLUTBlock", {{"lutPortAddr", "u2.0"}, {"FFTBlockPortReadAccess", "u1.0"}},
                 {{"primWireOut", "c s4.0"}}, {{"lutData", "((complexRollTag 1 -1) (complexRollTag 2 -2) 3)"}});
    Simulator simulator(design, top);
    // In the order of names: the access, the address.
    const std::pair<Numbers, Numbers> cycles[] = {{{0, 1}, {0, 0}},  {{1, 1}, {2, -2}}, {{0, 0}, {2, -2}},
                                                  {{1, 0}, {1, -1}}, {{1, 2}, {3, 0}},  {{1, 3}, {0, 0}}};
    for (const auto &[in, out] : cycles) {
        EXPECT_EQ(stepByName(simulator, {{"FFTBlockPortReadAccess", in[0]}, {"lutPortAddr", in[1]}}),
                  (std::map<std::string, std::int64_t>{{"primWireOut.re", out[0]}, {"primWireOut.im", out[1]}}))
            << in[0] << in[1];
    }
}

TEST_F(MemoryRowsTest, readsTheFirstLaneOnASideOfOneScalar) {
    Design design(mgr.context());
    Simulator simulator(design, oneBlock(design, "dualMemBlock",
                                         {{"dualMemPortAddr1", "u1.0"},
                                          {"dualMemPortData1", "[2] u4.0"},
                                          {"dualMemPortWrite1En", "u1.0"},
                                          {"dualMemPortAddr2", "u1.0"}},
                                         {{"dualMemWireData2", "u4.0"}},
                                         {{"dualMemData", "(1 2)"}, {"dualMemTypeData2", "(typeUFixed 4 0)"}}));
    const auto read = [&](std::int64_t write) {
        return stepByName(simulator, {{"dualMemPortAddr1", 0},
                                      {"dualMemPortData1[0]", 5},
                                      {"dualMemPortData1[1]", 9},
                                      {"dualMemPortWrite1En", write},
                                      {"dualMemPortAddr2", 0}})
            .at("dualMemWireData2");
    };
    EXPECT_EQ(read(1), 1);
    EXPECT_EQ(read(0), 5);
}

TEST_F(MemoryRowsTest, repeatsContentInTheOuterDimensions) {
    const std::pair<const char *, const char *> cases[] = {{"[2][3] u4.0", "((vectorRollTag 1 2 3) 9)"},
                                                           {"[3][2] u4.0", "((vectorRollTag 1 2) 9)"}};
    for (const auto &[type, data] : cases) {
        Design design(mgr.context());
        Simulator simulator(design, oneBlock(design, "readAccessLUTBlock", {{"0", "u1.0"}}, {{"primWireOut", type}},
                                             {{"lutData", data}}));
        EXPECT_EQ(stepWith(simulator, {0}), type[1] == '2' ? (Numbers{1, 2, 3, 1, 2, 3}) : (Numbers{1, 2, 1, 2, 1, 2}));
        EXPECT_EQ(stepWith(simulator, {1}), Numbers(6, 9));
    }
}

TEST_F(MemoryRowsTest, readsAContentOfEachLane) {
    const std::pair<const char *, Numbers> cases[] = {
        {"(vectorRollTag (1 2) (3 0))", {1, 3, 2, 0}},
        {"(vectorRollTag (vectorRollTag (1 2) (3 0)) (vectorRollTag (2 1) (0 3)))", {1, 3, 2, 0, 2, 0, 1, 3}},
        {"(vectorRollTag ((complexRollTag 1 2) 3) (2 (complexRollTag 0 1)))", {1, 2, 2, 0, 3, 0, 0, 1}}};
    for (const auto &[content, expected] : cases) {
        Design design(mgr.context());
        const Texts params{{"dualMemData", content}, {"dualMemTypeData1", "(typeUFixed 2 0)"}};
        Simulator simulator(design, oneBlock(design, "dualMemBlock", {{"dualMemPortAddr1", "u1.0"}},
                                             {{"dualMemWireData1", ""}}, params));
        Numbers read = stepWith(simulator, {0});
        const Numbers second = stepWith(simulator, {1});
        read.insert(read.end(), second.begin(), second.end());
        EXPECT_EQ(read, expected) << content;
    }
}

TEST_F(MemoryRowsTest, refusesASideOfFewerLanesThanItsData) {
    Design design(mgr.context());
    test::HeardMessages heard(mgr.context());
    Model &top =
        oneBlock(design, "dualMemBlock",
                 {{"dualMemPortAddr1", "u1.0"}, {"dualMemPortData1", "[2] u4.0"}, {"dualMemPortWrite1En", "u1.0"}},
                 {{"dualMemWireData1", ""}}, {{"dualMemData", "(1 2)"}});
    EXPECT_THROW(Simulator(design, top), SimulationError);
}

TEST_F(MemoryRowsTest, takesAnyEntryAtOnceWithoutAReadControl) {
    Design design(mgr.context());
    Model &top =
        oneBlock(design, "readAccessLUTBlock", {{"0", "u2.0"}}, {{"primWireOut", "u4.0"}}, {{"lutData", "(4 5 6 7)"}});
    Simulator simulator(design, top);
    for (std::int64_t address = 0; address < 4; ++address) {
        EXPECT_EQ(stepWith(simulator, {address}), (Numbers{4 + address}));
    }
}

} // namespace
} // namespace orvo::sim
