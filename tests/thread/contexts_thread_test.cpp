// Many contexts on many threads, each with its own design: run under ThreadSanitizer.
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/xmlservices.h>

#include <util/features.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace orvo {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 20;

std::string exampleText(const std::string &name) {
    std::ifstream in(std::string(ORVO_TEST_SOURCE_DIR) + "/examples/" + name);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

/// Loads, runs passes, dumps and writes: the whole road of a design on one thread.
std::string process(const std::string &xmlText, const std::string &dump) {
    ContextMgr context;
    Design design(context.context());
    XMLServices xml;
    std::istringstream in(xmlText);
    xml.fromXML(in, design, XMLServices::defaultErrorFunc);
    EXPECT_FALSE(in.fail());
    PassScheduler scheduler;
    scheduler.requirePass("ModelTreePass");
    for (const char *pass : {"AggressiveDeadBlockPass", "DeadModelPass", "ElideTerminalPass", "ElideUnpackPass"}) {
        scheduler.addPass(pass);
    }
    scheduler.addPass("DumpXMLPass", WithParam("P_CLOBBER", A_TRUE) &
                                         WithParam("P_FILENAME", StringValue::get(dump, context.context())));
    scheduler.apply(design);
    std::ostringstream out;
    xml.toXML(out, design);
    return out.str();
}

TEST(ContextsOnThreads, loadRunAndWriteAtOnceWithTheSameResult) {
    const std::string text = exampleText("select_lut.xml");
    ASSERT_FALSE(text.empty());
    std::vector<std::string> results(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            const std::string dump = ::testing::TempDir() + "orvo-thread-" + std::to_string(i) + ".xml";
            for (int round = 0; round < kRounds; ++round) {
                util::SetFeatureInteger("threadTest" + std::to_string(i % 2), round);
                util::GetFeatureIntegerWithDefault("threadTest0", 0);
                results[static_cast<std::size_t>(i)] = process(text, dump);
            }
            std::filesystem::remove(dump);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const std::string &result : results) {
        EXPECT_FALSE(result.empty());
        EXPECT_EQ(result, results.front());
    }
}

} // namespace
} // namespace orvo
