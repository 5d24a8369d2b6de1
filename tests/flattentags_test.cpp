// Tags that meet when models dissolve: what is warned of, and what is as safe as it was.
#include "orvo/flattentags.h"

#include "support/heardmessages.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

class FlattenTags : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    Block &tagged(Model &in, const char *name, const StaticString &type, const char *tag) {
        Block &made = *Block::create(in, name, type);
        made.setParam(A_GOTO_TAG, value(tag));
        return made;
    }
    Block &sender(Model &in, const char *name, const StaticString &reach, const char *tag = "t") {
        Block &made = tagged(in, name, A_GOTO_BLOCK, tag);
        made.setParam(A_GOTO_TAG_TYPE, reach);
        made.setParam(A_GOTO_PORT_IN, *Wire::create(*Block::create(in, "const", A_CONST_BLOCK), "q"));
        return made;
    }
    void receiver(Model &in, const char *name, const char *tag = "t") {
        Wire::create(tagged(in, name, A_FROM_BLOCK, tag), A_FROM_WIRE_OUT);
    }
    void call(Model &in, const char *name, Model &of) {
        Block::create(in, name, A_MODEL_BLOCK)->setParam(A_MODEL_NODE, of);
    }
    Lines run() {
        PassScheduler scheduler;
        scheduler.addPass("FlattenEverythingPass");
        scheduler.apply(design);
        return heard.take();
    }

    ContextMgr mgr;
    test::HeardMessages heard{mgr.context()};
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Model &sub = *Model::create(design, "sub");
};

TEST_F(FlattenTags, ofOneInstanceAreAsBefore) {
    sender(sub, "goto", A_GOTO_TAG_TYPE_LOCAL);
    receiver(sub, "from");
    call(top, "f", sub);
    EXPECT_EQ(run(), Lines());
}

TEST_F(FlattenTags, ofSeveralInstancesBecomeOne) {
    sender(sub, "goto", A_GOTO_TAG_TYPE_LOCAL);
    receiver(sub, "from");
    call(top, "f", sub);
    call(top, "g", sub);
    EXPECT_EQ(run(), Lines{"FLATTENING_JOINS_TAGS block=/sub/from srcModel=/sub tag=t"});
}

TEST_F(FlattenTags, areWarnedOfOnceForASource) {
    sender(sub, "goto", A_GOTO_TAG_TYPE_LOCAL);
    sender(sub, "other", A_GOTO_TAG_TYPE_LOCAL, "u");
    Model &zop = *Model::create(design, "zop");
    for (Model *in : {&top, &zop}) {
        for (const char *name : {"f", "g", "h"}) {
            call(*in, name, sub);
        }
    }
    EXPECT_EQ(run(), Lines{"FLATTENING_JOINS_TAGS block=/sub/goto srcModel=/sub tag=t"});
}

TEST_F(FlattenTags, meetThoseOfTheModelAround) {
    receiver(sub, "from");
    call(top, "f", sub);
    sender(top, "goto", A_GOTO_TAG_TYPE_LOCAL);
    EXPECT_EQ(run(), Lines{"FLATTENING_JOINS_TAGS block=/sub/from srcModel=/sub tag=t"});
}

TEST_F(FlattenTags, ofAnUnknownReachAreLocal) {
    sender(sub, "goto", A_GOTO_TAG);
    call(top, "f", sub);
    receiver(top, "from");
    EXPECT_EQ(run(), Lines{"FLATTENING_JOINS_TAGS block=/sub/goto srcModel=/sub tag=t"});
}

TEST_F(FlattenTags, thatAreSeenEverywhereMayMeetTheirReaders) {
    sender(sub, "goto", A_GOTO_TAG_TYPE_GLOBAL);
    sender(sub, "other", A_GOTO_TAG_TYPE_BUS, "u");
    sender(sub, "scoped", A_GOTO_TAG_TYPE_SCOPED, "v");
    top.setParam(value("(gotoTagTypeScoped v)"), A_TRUE);
    call(top, "f", sub);
    for (const char *tag : {"t", "u", "v"}) {
        receiver(top, tag, tag);
    }
    EXPECT_EQ(run(), Lines());
}

TEST_F(FlattenTags, thatAreSeenEverywhereMeetWhereEachInstanceHasItsOwn) {
    sender(sub, "goto", A_GOTO_TAG_TYPE_GLOBAL);
    call(top, "f", sub);
    call(top, "g", sub);
    EXPECT_EQ(run(), Lines{"FLATTENING_JOINS_TAGS block=/sub/goto srcModel=/sub tag=t"});
}

TEST_F(FlattenTags, loseTheLimitThatTheModelSet) {
    sender(sub, "goto", A_GOTO_TAG_TYPE_SCOPED);
    sub.setParam(value("(gotoTagTypeScoped t)"), A_TRUE);
    // Nothing goes by these.
    top.setParam(value("(gotoTagTypeScoped t)"), A_TRUE);
    sub.setParam(value("(gotoTagTypeScoped u)"), A_TRUE);
    call(top, "f", sub);
    EXPECT_EQ(run(), Lines{"FLATTENING_JOINS_TAGS block=/top/f srcModel=/sub tag=t"});
}

TEST_F(FlattenTags, ofFaultyBlocksAreNone) {
    sender(sub, "open", A_GOTO_TAG_TYPE_LOCAL).setParam(A_GOTO_PORT_IN, nullptr);
    sender(sub, "without", A_GOTO_TAG_TYPE_LOCAL).setParam(A_GOTO_TAG, nullptr);
    Block::create(sub, "from", A_FROM_BLOCK);
    call(top, "f", sub);
    call(top, "g", sub);
    EXPECT_EQ(run(), Lines());
}

TEST_F(FlattenTags, ofModelsThatStayAreAsBefore) {
    sub.setParam(A_FOLDING_IS_FOLDING_KERNEL, A_TRUE);
    sender(sub, "goto", A_GOTO_TAG_TYPE_LOCAL);
    receiver(sub, "from");
    call(top, "f", sub);
    call(top, "g", sub);
    EXPECT_EQ(run(), Lines());
}

} // namespace
} // namespace orvo
