// The log of timings: it nests, it can be read back, and it costs nothing while it is off.
#include <util/profiling.h>

#include <gtest/gtest.h>

namespace util {
namespace {

class ProfilingTest : public ::testing::Test {
  protected:
    ~ProfilingTest() override { ProfilingLog::disable(); }
};

TEST_F(ProfilingTest, keepsNothingWhileItIsOff) {
    EXPECT_FALSE(ProfilingLog::enabled());
    ProfilingLog::begin({"a", ""});
    ProfilingLog::end();
    EXPECT_EQ(ProfilingLog::take(), nullptr);
}

TEST_F(ProfilingTest, nestsSections) {
    ProfilingLog::enable();
    {
        ProfilingSection outer("outer", "x");
        ProfilingSection inner("inner", "y");
    }
    ProfilingLog::begin({"second", ""});
    ProfilingLog::end();
    ProfilingLog::end();
    auto root = ProfilingLog::take();
    ASSERT_EQ(root->children.size(), 2U);
    EXPECT_EQ(root->children[0]->label, "outer");
    EXPECT_EQ(root->children[0]->detail, "x");
    ASSERT_EQ(root->children[0]->children.size(), 1U);
    EXPECT_EQ(root->children[0]->children[0]->label, "inner");
    EXPECT_GE(root->children[0]->wallNs, root->children[0]->children[0]->wallNs);
    EXPECT_GE(root->children[1]->startNs, root->children[0]->startNs);
    EXPECT_GT(root->peakMemoryKiB, 0);
    EXPECT_TRUE(ProfilingLog::enabled());
    EXPECT_TRUE(ProfilingLog::take()->children.empty());
}

TEST_F(ProfilingTest, endsSectionsThatAreOpenWhenItIsRead) {
    ProfilingLog::enable();
    ProfilingLog::begin({"a", ""});
    ProfilingLog::begin({"b", ""});
    auto root = ProfilingLog::take();
    EXPECT_EQ(root->children[0]->children[0]->label, "b");
    ProfilingLog::end();
}

TEST_F(ProfilingTest, sumsUpSectionsBeyondItsBound) {
    ProfilingLog::enable();
    for (std::size_t i = 0; i < ProfilingLog::kMaxNodes + 500; ++i) {
        ProfilingLog::begin({"same", ""});
        ProfilingLog::end();
    }
    auto root = ProfilingLog::take();
    EXPECT_EQ(root->children.size(), ProfilingLog::kMaxNodes);
    EXPECT_EQ(root->children.back()->count, 501);
}

TEST_F(ProfilingTest, sumsUpWithinASectionWhatIsToBe) {
    ProfilingLog::enable();
    const auto ask = [](const char *label, const char *detail) {
        ProfilingLog::begin({label, detail, true});
        ProfilingLog::end();
    };
    for (const char *outer : {"first", "second"}) {
        ProfilingSection section(outer, "");
        for (int i = 0; i < 3; ++i) {
            ask("a", "question");
            ask("b", "question");
            ask("a", "other");
            ProfilingSection single("a", "question");
        }
    }
    ask("a", "question");
    ask("a", "question");
    const auto root = ProfilingLog::take();
    ASSERT_EQ(root->children.size(), 3U);
    EXPECT_EQ(root->children[2]->count, 2);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto &asked = root->children[i]->children;
        ASSERT_EQ(asked.size(), 6U);
        EXPECT_EQ(asked[0]->label + asked[0]->detail, "aquestion");
        EXPECT_EQ(asked[1]->label + asked[1]->detail, "bquestion");
        EXPECT_EQ(asked[2]->label + asked[2]->detail, "aother");
        EXPECT_EQ(asked[0]->count, 3);
        EXPECT_EQ(asked[1]->count, 3);
        EXPECT_EQ(asked[2]->count, 3);
        EXPECT_EQ(asked[3]->count, 1);
        EXPECT_GE(root->children[i]->wallNs, asked[0]->wallNs + asked[1]->wallNs);
    }
}

TEST_F(ProfilingTest, writesTextJsonAndTraceEvents) {
    ProfilingNode root;
    root.children.push_back(std::make_unique<ProfilingNode>());
    ProfilingNode &node = *root.children.back();
    node.label = "a \"quoted\"\n";
    node.detail = "\\";
    node.startNs = 1500;
    node.wallNs = 2000000;
    node.cpuNs = 1000000;
    node.peakMemoryKiB = 7;
    node.count = 2;
    EXPECT_EQ(profilingText(root), "     wall ms       cpu ms     peak KiB\n"
                                   "       2.000        1.000            7  a \"quoted\"\n \\ (2 times)\n");
    EXPECT_NE(profilingJson(root).find("{\"label\":\"a \\\"quoted\\\"\\u000a\",\"detail\":\"\\\\\",\"start_ns\":1500,"
                                       "\"wall_ns\":2000000,\"cpu_ns\":1000000,\"peak_kib\":7,\"count\":2,"
                                       "\"children\":[]}"),
              std::string::npos);
    EXPECT_NE(profilingChromeTrace(root).find("\"ph\":\"X\",\"pid\":1,\"tid\":1,\"ts\":1.500,\"dur\":2000.000"),
              std::string::npos);
}

TEST_F(ProfilingTest, drawsSummedSectionsOneBehindTheOtherInRowsOfTheirOwn) {
    const auto add = [](ProfilingNode &to, const char *label, std::int64_t start, std::int64_t wall,
                        std::int64_t count) -> ProfilingNode & {
        ProfilingNode &made = *to.children.emplace_back(std::make_unique<ProfilingNode>());
        made.label = label;
        made.startNs = start * 1000;
        made.wallNs = wall * 1000;
        made.count = count;
        return made;
    };
    ProfilingNode root;
    ProfilingNode &pass = add(root, "pass", 100, 50, 1);
    add(pass, "a", 110, 20, 3);
    ProfilingNode &inner = add(pass, "inner", 115, 10, 1);
    add(inner, "b", 120, 5, 2);
    ProfilingNode &summed = add(pass, "c", 120, 15, 2);
    add(summed, "d", 125, 4, 1);
    const std::string trace = profilingChromeTrace(root);
    const auto drawn = [&](const std::string &label, const std::string &at) {
        const std::size_t from = trace.find("\"name\":\"" + label + "\"");
        return trace.substr(from, trace.find('\n', from) - from).find(at) != std::string::npos;
    };
    EXPECT_TRUE(drawn("pass", "\"tid\":1,\"ts\":100.000,\"dur\":50.000")) << trace;
    EXPECT_TRUE(drawn("a", "\"tid\":2,\"ts\":100.000,\"dur\":20.000")) << trace;
    EXPECT_TRUE(drawn("a", "\"count\":3")) << trace;
    EXPECT_TRUE(drawn("inner", "\"tid\":1,\"ts\":115.000,\"dur\":10.000")) << trace;
    EXPECT_TRUE(drawn("b", "\"tid\":3,\"ts\":115.000,\"dur\":5.000")) << trace;
    EXPECT_TRUE(drawn("c", "\"tid\":2,\"ts\":120.000,\"dur\":15.000")) << trace;
    EXPECT_TRUE(drawn("d", "\"tid\":2,\"ts\":120.000,\"dur\":4.000")) << trace;
}

} // namespace
} // namespace util
