// Contexts: interning, static values, guards, and what happens at the end.
#include <orvo/context.h>

#include <orvo/blockclass.h>
#include <orvo/corevalues.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <thread>

namespace orvo {
namespace {

using ::testing::ExitedWithCode;

// Leaves one reference behind its context on purpose; only for a process that ends at once.
[[noreturn]] void endWithLivingValues() {
    auto *context = Context::create();
    auto *number = new ValueRef(NumberValue::get(77, context));
    auto *text = new ValueRef(StringValue::get("left behind", context));
    auto *known = new ValueRef(StringValue::get("addBlock", context));
    delete context;
    static_cast<void>(number);
    static_cast<void>(text);
    static_cast<void>(known);
    std::_Exit(7);
}

TEST(Context, startsWithTheStaticValues) {
    const std::unique_ptr<Context> context = Context::createUnique();
    EXPECT_GE(context->valueCount(), 900U);
    const StringValueRef text = StringValue::get("blockType", context.get());
    EXPECT_EQ(text.get_ptr(), A_BLOCK_TYPE.get_ptr());
    EXPECT_FALSE(text->isRefCounted());
    const ContextMgr other;
    EXPECT_EQ(StringValue::get("blockType", other.context()).get_ptr(), A_BLOCK_TYPE.get_ptr());
}

TEST(Context, makesANewObjectAfterTheLastReference) {
    const ContextMgr mgr;
    const std::size_t before = mgr.context()->valueCount();
    for (int i = 0; i < 3; ++i) {
        const StringValueRef first = StringValue::get("comes and goes", mgr.context());
        EXPECT_EQ(first->refCount(), 1);
        EXPECT_EQ(StringValue::get("comes and goes", mgr.context()).get_ptr(), first.get_ptr());
    }
    EXPECT_EQ(mgr.context()->valueCount(), before);
}

TEST(Context, keepsTheValuesOfTwoContextsApart) {
    const std::unique_ptr<Context> a = Context::createUnique();
    const std::unique_ptr<Context> b = Context::createUnique();
    const StringValueRef inA = StringValue::get("text of both", a.get());
    const StringValueRef inB = StringValue::get("text of both", b.get());
    EXPECT_NE(inA.get_ptr(), inB.get_ptr());
    EXPECT_EQ(inA->context(), a.get());
    EXPECT_EQ(inB->context(), b.get());
}

TEST(Context, keepsOneClassPerBlockType) {
    const ContextMgr mgr;
    BlockClass *add = mgr.context()->getBlockClass(A_ADD_BLOCK);
    EXPECT_NE(add, nullptr);
    EXPECT_EQ(mgr.context()->getBlockClass(A_ADD_BLOCK), add);
    EXPECT_NE(mgr.context()->getBlockClass(StringValue::get("a type of ours", mgr.context())), add);
    BlockClass *none = mgr.context()->getBlockClass(ValueRef());
    EXPECT_NE(none, nullptr);
    EXPECT_EQ(mgr.context()->getBlockClass(ValueRef()), none);
}

TEST(ContextMgr, nestsAndRestores) {
    EXPECT_EQ(ContextMgr::getThreadContext(), nullptr);
    {
        const ContextMgr outer;
        EXPECT_EQ(ContextMgr::get(), outer.context());
        {
            const ContextMgr inner;
            EXPECT_NE(inner.context(), outer.context());
            EXPECT_EQ(ContextMgr::get(), inner.context());
            const ContextMgr again(outer.context());
            EXPECT_EQ(ContextMgr::get(), outer.context());
        }
        EXPECT_EQ(ContextMgr::get(), outer.context());
    }
    EXPECT_EQ(ContextMgr::getThreadContext(), nullptr);
}

TEST(ContextMgr, isPerThread) {
    const ContextMgr mgr;
    std::thread([] {
        EXPECT_EQ(ContextMgr::getThreadContext(), nullptr);
        const ContextMgr own;
        EXPECT_TRUE(StringValue::get("from a thread", own.context()));
    }).join();
    EXPECT_EQ(ContextMgr::get(), mgr.context());
}

TEST(ContextDeathTest, reportsValuesThatOutliveIt) {
    EXPECT_EXIT(endWithLivingValues(), ExitedWithCode(7),
                "^Values live beyond Context lifetime!\n-> 77\n-> \"left behind\"\n$");
}

TEST(ContextDeathTest, assertsACurrentContext) {
    EXPECT_EXIT(ContextMgr::get(), ExitedWithCode(1), "ORVO restriction: .*no current context");
}

TEST(ContextDeathTest, assertsThatGuardsNest) {
    EXPECT_EXIT(
        {
            auto first = std::make_unique<ContextMgr>();
            auto second = std::make_unique<ContextMgr>();
            first.reset();
        },
        ExitedWithCode(1), "ORVO restriction: .*nest");
}

TEST(ContextDeathTest, assertsThatStaticValuesComeBeforeTheFirstContext) {
    EXPECT_EXIT(
        {
            const ContextMgr mgr;
            const StaticString late("late");
        },
        ExitedWithCode(1), "ORVO restriction: .*after the first context");
}

TEST(ContextDeathTest, assertsTheThreadOfTheContext) {
    EXPECT_EXIT(
        {
            const ContextMgr mgr;
            std::thread([&] { StringValue::get("from elsewhere", mgr.context()); }).join();
        },
        ExitedWithCode(1), "ORVO restriction: 'isContextThread");
}

RC_GTEST_PROP(Context, keepsOneObjectPerContentThroughAnyGetsAndDrops, ()) {
    // Few contents, so that they meet; enough together to make the table grow and shift.
    const ContextMgr mgr;
    Context *ctx = mgr.context();
    const std::size_t before = ctx->valueCount();
    std::map<int, ValueRef> held;
    const auto steps = *rc::gen::container<std::vector<std::pair<bool, int>>>(
        rc::gen::pair(rc::gen::arbitrary<bool>(), rc::gen::inRange(0, 60)));
    const auto make = [ctx](int which) -> ValueRef {
        switch (which % 3) {
        case 0:
            return NumberValue::get(100000 + which, ctx);
        case 1:
            return StringValue::get("name " + std::to_string(which), ctx);
        default:
            return NodeValue::get("/path " + std::to_string(which), ctx);
        }
    };
    for (const auto &[get, which] : steps) {
        if (get) {
            const ValueRef value = make(which);
            const auto [place, isNew] = held.emplace(which, value);
            RC_ASSERT(place->second == value);
        } else {
            held.erase(which);
        }
        RC_ASSERT(ctx->valueCount() == before + held.size());
    }
    for (const auto &[which, value] : held) {
        RC_ASSERT(make(which) == value);
        RC_ASSERT(value->refCount() == 1);
    }
}

TEST(Context, findsEverythingAgainInATableThatGrewAndShrank) {
    const ContextMgr mgr;
    Context *ctx = mgr.context();
    const std::size_t before = ctx->valueCount();
    constexpr int kCount = 50000;
    std::vector<ValueRef> values;
    for (int i = 0; i < kCount; ++i) {
        values.push_back(StringValue::get("v" + std::to_string(i), ctx));
    }
    EXPECT_EQ(ctx->valueCount(), before + kCount);
    for (int i = 0; i < kCount; i += 3) {
        values[static_cast<std::size_t>(i)] = nullptr;
    }
    for (int i = 0; i < kCount; ++i) {
        const ValueRef &held = values[static_cast<std::size_t>(i)];
        if (held) {
            ASSERT_EQ(StringValue::get("v" + std::to_string(i), ctx).get_ptr(), held.get_ptr());
        }
    }
    values.clear();
    EXPECT_EQ(ctx->valueCount(), before);
}

} // namespace
} // namespace orvo
