// Messages to listeners and to standard error, and what a failed assertion does.
#include <orvo/logging.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace orvo {
namespace {

using ::testing::ExitedWithCode;

class Recorder : public ContextListener {
  public:
    struct Entry {
        int severity;
        std::string tag;
        log::LogParams params;
    };
    void onMessage(int severity, const char *tag, const log::LogParams &params) override {
        entries.push_back({severity, tag, params});
    }
    std::vector<Entry> entries;
};

std::string standardErrorOf(const std::function<void()> &action) {
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
}

std::vector<std::string> namesOf(const MessageInfo &info) {
    std::vector<std::string> names;
    std::istringstream in(info.parameters);
    for (std::string name; std::getline(in, name, ',');) {
        names.push_back(name);
    }
    return names;
}

log::LogParams paramsOf(const MessageInfo &info) {
    log::LogParams params;
    for (const std::string &name : namesOf(info)) {
        params = params % log::LogParams(name, "value of " + name);
    }
    return params;
}

void raise(const MessageInfo &info) {
    if (info.severity == Severity::Error) {
        log::msg(msg::Error{info.tag}, paramsOf(info));
    } else {
        log::msg(msg::Warning{info.tag}, paramsOf(info));
    }
}

TEST(Log, writesToStandardErrorWithoutAContext) {
    EXPECT_EQ(standardErrorOf([] { log::msg(msg::error::FROM_UNKNOWN_TAG, log::p("tag", "t") % log::p("block", 3)); }),
              "ORVO Error: FROM_UNKNOWN_TAG: block='3', tag='t'.\n");
}

TEST(Log, writesNothingBetweenBlankAndStopWithoutParameters) {
    EXPECT_EQ(standardErrorOf([] { log::msg(msg::Error{"TAG"}, log::LogParams()); }), "ORVO Error: TAG: .\n");
    EXPECT_EQ(standardErrorOf([] { log::msg(msg::Warning{"TAG"}); }), "ORVO Warning: TAG: .\n");
    EXPECT_EQ(standardErrorOf([] { log::msg(msg::Info{"TAG"}); }), "ORVO Info: TAG: .\n");
    EXPECT_EQ(standardErrorOf([] { log::msg(msg::Debug{"TAG"}); }), "ORVO Debug: TAG: .\n");
}

TEST(Log, writesToStandardErrorWithoutAListener) {
    const ContextMgr mgr;
    EXPECT_EQ(standardErrorOf([] { log::msg(msg::Info{"TAG"}, log::p("a", 1)); }), "ORVO Info: TAG: a='1'.\n");
}

TEST(Log, tellsTheListenerOfTheCurrentContextAlone) {
    const ContextMgr outer;
    Recorder heardOutside;
    outer.context()->setListener(&heardOutside);
    {
        const ContextMgr inner;
        Recorder heardInside;
        inner.context()->setListener(&heardInside);
        const std::string output = standardErrorOf([] {
            log::msg(msg::Error{"E"});
            log::msg(msg::Warning{"W"});
            log::msg(msg::Info{"I"});
            log::msg(msg::Debug{"D"}, log::p("a", "b"));
        });
        EXPECT_EQ(output, "");
        ASSERT_EQ(heardInside.entries.size(), 4U);
        for (int severity = 0; severity < 4; ++severity) {
            EXPECT_EQ(heardInside.entries[static_cast<std::size_t>(severity)].severity, severity);
        }
        EXPECT_EQ(heardInside.entries[3].tag, "D");
        EXPECT_EQ(heardInside.entries[3].params.at("a"), "b");
        inner.context()->setListener(nullptr);
    }
    EXPECT_TRUE(heardOutside.entries.empty());
    log::msg(msg::Error{"E"});
    EXPECT_EQ(heardOutside.entries.size(), 1U);
    outer.context()->setListener(nullptr);
}

TEST(Log, letsAnExceptionOfTheListenerPass) {
    class Thrower : public ContextListener {
        void onMessage(int, const char *, const log::LogParams &) override { throw std::runtime_error("heard"); }
    };
    const ContextMgr mgr;
    Thrower listener;
    mgr.context()->setListener(&listener);
    EXPECT_THROW(log::msg(msg::Error{"E"}), std::runtime_error);
    mgr.context()->setListener(nullptr);
}

TEST(LogParams, takesTheLeftSideOfADuplicate) {
    const log::LogParams both = log::p("a", 1) % log::p("a", 2) % log::p("b", 3);
    EXPECT_EQ(both.size(), 2U);
    EXPECT_EQ(both.at("a"), "1");
    EXPECT_EQ(both.at("b"), "3");
    const log::LogParams fromMap(std::map<std::string, std::string>{{"x", "y"}});
    EXPECT_EQ(fromMap.at("x"), "y");
}

TEST(LogParams, showsEveryKindOfValue) {
    const ContextMgr mgr;
    Design design(mgr.context());
    Model *model = Model::create(design, "m");
    const char array[] = "an array";
    const ValueRef value = Value::parse("(a 0x8p-4)", mgr.context());
    const auto shown = [](const log::LogParams &params) { return params.at("p"); };
    EXPECT_EQ(shown(log::p("p", -5)), "-5");
    EXPECT_EQ(shown(log::p("p", 5UL)), "5");
    EXPECT_EQ(shown(log::p("p", std::size_t{7})), "7");
    EXPECT_EQ(shown(log::p("p", 5U)), "5");
    EXPECT_EQ(shown(log::p("p", -5L)), "-5");
    EXPECT_EQ(shown(log::p("p", "text")), "text");
    EXPECT_EQ(shown(log::p("p", array)), "an array");
    EXPECT_EQ(shown(log::p("p", std::string("a string"))), "a string");
    EXPECT_EQ(shown(log::p("p", value)), "(a 0x8p-4)");
    EXPECT_EQ(shown(log::p("p", pureVR(value))), "(a 0x8p-4)");
    EXPECT_EQ(shown(log::p("p", pureTupleVR(value))), "(a 0x8p-4)");
    EXPECT_EQ(shown(log::p("p", A_ADD_BLOCK)), "addBlock");
    EXPECT_EQ(shown(log::p("p", NodeValue::get(model))), "/m");
    model->setParam(A_BLOCK_TYPE, value);
    EXPECT_EQ(shown(log::p("p", (*model)[A_BLOCK_TYPE])), "(a 0x8p-4)");
    EXPECT_EQ(shown(log::p("p", ValueRef())), "*INVALID*");
    EXPECT_EQ(shown(log::p("p", static_cast<const char *>(nullptr))), "");
}

TEST(Messages, standInOrderAndAreFoundByTag) {
    const auto all = allMessages();
    EXPECT_GE(all.size(), 90U);
    for (const MessageInfo &info : all) {
        EXPECT_EQ(findMessage(info.tag), &info) << info.tag;
        EXPECT_TRUE(info.severity == Severity::Error || info.severity == Severity::Warning) << info.tag;
    }
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end(), [](const MessageInfo &a, const MessageInfo &b) {
        return a.severity != b.severity ? a.severity < b.severity : std::string_view(a.tag) < b.tag;
    }));
    EXPECT_EQ(findMessage("NO_SUCH_TAG"), nullptr);
    EXPECT_EQ(findMessage("FROM_UNKNOWN_TAG")->severity, Severity::Error);
    EXPECT_STREQ(msg::warning::MISSING_DATATYPE.text, "MISSING_DATATYPE");
    EXPECT_STREQ(msg::error::IO_ERR_COULD_NOT_CREATE_FILE.text, "IO_ERR_COULD_NOT_CREATE_FILE");
}

TEST(Messages, nameEachParameterOnce) {
    for (const MessageInfo &info : allMessages()) {
        std::vector<std::string> names = namesOf(info);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << info.tag;
        for (const std::string &name : names) {
            EXPECT_FALSE(name.empty() || name.find(' ') != std::string::npos) << info.tag;
        }
    }
}

TEST(Messages, reachAListenerWithAllTheirParameters) {
    const ContextMgr mgr;
    Recorder listener;
    mgr.context()->setListener(&listener);
    for (const MessageInfo &info : allMessages()) {
        raise(info);
        ASSERT_FALSE(listener.entries.empty());
        const Recorder::Entry &heard = listener.entries.back();
        EXPECT_EQ(heard.severity, static_cast<int>(info.severity));
        EXPECT_EQ(heard.tag, info.tag);
        EXPECT_EQ(heard.params, paramsOf(info)) << info.tag;
    }
    EXPECT_EQ(listener.entries.size(), allMessages().size());
    mgr.context()->setListener(nullptr);
}

TEST(Messages, showAllTheirParametersOnStandardError) {
    for (const MessageInfo &info : allMessages()) {
        const std::string line = standardErrorOf([&] { raise(info); });
        const std::string word = info.severity == Severity::Error ? "Error" : "Warning";
        EXPECT_EQ(line.find("ORVO " + word + ": " + info.tag + ": "), 0U) << line;
        for (const std::string &name : namesOf(info)) {
            EXPECT_NE(line.find(name + "='value of " + name + "'"), std::string::npos) << line;
        }
        EXPECT_EQ(line.substr(line.size() - 2), ".\n");
    }
}

class QuietHandler : public UnreachableHandler {
  public:
    void operator()(const char *expression, const char *, unsigned int, const char *, const char *message) override {
        std::cerr << "heard " << expression << " " << message;
    }
};

class AssertingHandler : public UnreachableHandler {
  public:
    void operator()(const char *, const char *, unsigned int, const char *, const char *) override {
        ORVO_ASSERT(false, "again");
    }
};

class ThrowingHandler : public UnreachableHandler {
  public:
    void operator()(const char *, const char *, unsigned int, const char *, const char *message) override {
        throw std::runtime_error(message);
    }
};

TEST(Assertion, costsNothingWhenItHolds) {
    int evaluations = 0;
    ORVO_ASSERT(++evaluations == 1, "once");
    EXPECT_EQ(evaluations, 1);
}

TEST(AssertionDeathTest, endsWithStatusOneByDefault) {
    EXPECT_EXIT(orvoAssertHandler("a == b", "file.cpp", 12, "doIt", "they differ"), ExitedWithCode(1),
                "^ORVO restriction: 'a == b'. they differ in doIt at file.cpp:12.$");
    EXPECT_EXIT(orvoAssertHandler(nullptr, nullptr, 0, nullptr, nullptr), ExitedWithCode(1),
                "^ORVO restriction: ''.  in  at :0.$");
}

TEST(AssertionDeathTest, tellsConditionAndPlace) {
    const int one = 1;
    EXPECT_EXIT(ORVO_ASSERT(one == 2, "one is one"), ExitedWithCode(1),
                "ORVO restriction: 'one == 2'. one is one in .* at .*logging_test.cpp:[0-9]+\\.");
}

TEST(AssertionDeathTest, endsWithStatusHundredAfterAHandlerThatReturns) {
    EXPECT_EXIT(
        {
            QuietHandler handler;
            UnreachableHandler::setUnreachableHandler(&handler);
            ORVO_ASSERT(1 == 2, "detail");
        },
        ExitedWithCode(100), "^heard 1 == 2 detail$");
}

TEST(AssertionDeathTest, endsAtOnceWhenAHandlerFailsItself) {
    EXPECT_EXIT(
        {
            AssertingHandler handler;
            UnreachableHandler::setUnreachableHandler(&handler);
            ORVO_ASSERT(false, "first");
        },
        ExitedWithCode(100), "");
}

TEST(Assertion, mayBeLeftByAnExceptionOfItsHandlerAgainAndAgain) {
    ThrowingHandler handler;
    UnreachableHandler::setUnreachableHandler(&handler);
    EXPECT_EQ(unreachableMessage.load(), &handler);
    for (int i = 0; i < 2; ++i) {
        EXPECT_THROW(ORVO_ASSERT(false, "thrown"), std::runtime_error);
    }
    UnreachableHandler::setUnreachableHandler(nullptr);
    EXPECT_NE(unreachableMessage.load(), nullptr);
    EXPECT_NE(unreachableMessage.load(), &handler);
}

TEST(AssertionDeathTest, letsAHandlerChainToTheOneBeforeIt) {
    struct Chaining final : UnreachableHandler {
        explicit Chaining(UnreachableHandler *handler) : before(handler) {}
        void operator()(const char *expression, const char *file, unsigned int line, const char *function,
                        const char *message) override {
            (*before)(expression, file, line, function, message);
        }
        UnreachableHandler *before;
    };
    EXPECT_EXIT(
        {
            Chaining handler(unreachableMessage.load());
            UnreachableHandler::setUnreachableHandler(&handler);
            ORVO_ASSERT(false, "chained");
        },
        ExitedWithCode(1), "ORVO restriction: 'false'. chained in ");
}

struct AssertsAtExit {
    ~AssertsAtExit() { ORVO_ASSERT(armed, "again"); }
    bool armed = false;
};

TEST(AssertionDeathTest, keepsTheStatusOfTheDefaultHandlerWhenTheEndAssertsAgain) {
    EXPECT_EXIT(
        {
            static AssertsAtExit object;
            ORVO_ASSERT(object.armed, "first");
        },
        ExitedWithCode(1), "first");
}

} // namespace
} // namespace orvo
