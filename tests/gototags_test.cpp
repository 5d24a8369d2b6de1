// Which Goto a From reads, by the types of Gotos and the marks of scope roots.
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/gototags.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <set>

namespace orvo {
namespace {

/// "top" instantiates "middle", which instantiates "low".
class GotoTagsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        instantiate(top, middle);
        instantiate(middle, low);
    }
    static Block &instantiate(Model &in, Model &below) {
        Block &made = *Block::create(in, "i" + below.getName()->toString(), A_MODEL_BLOCK);
        made.setParam(A_MODEL_NODE, below);
        return made;
    }
    /// Enters a Goto; without a type if that is null.
    TagKey enter(Model &in, const char *name, const StaticString *type) {
        Block &made = *Block::create(in, name, A_GOTO_BLOCK);
        if (type != nullptr) {
            made.setParam(A_GOTO_TAG_TYPE, *type);
        }
        return tags.enter(made, tag);
    }
    void mark(Model &root) { root.setParam(scopeMarkOf(tag), A_TRUE); }
    /// The kind that a From in the model finds, -1 for none.
    int kindIn(const Model &model) {
        const std::optional<TagKey> key = tags.find(model, tag);
        return key ? static_cast<int>(key->kind) : -1;
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");
    Model &middle = *Model::create(design, "middle");
    Model &low = *Model::create(design, "low");
    PureValueRef tag{StringValue::get("t", mgr.context())};
    GotoTags tags;
};

TEST_F(GotoTagsTest, theNarrowestReachWins) {
    mark(middle);
    EXPECT_EQ(enter(top, "b", &A_GOTO_TAG_TYPE_BUS).scope, nullptr);
    EXPECT_EQ(enter(low, "g", &A_GOTO_TAG_TYPE_GLOBAL).scope, nullptr);
    EXPECT_EQ(enter(middle, "s", &A_GOTO_TAG_TYPE_SCOPED).scope, &middle);
    EXPECT_EQ(enter(low, "l", &A_GOTO_TAG_TYPE_LOCAL).scope, &low);
    EXPECT_EQ(kindIn(low), 0);
    EXPECT_EQ(kindIn(middle), 1);
    EXPECT_EQ(kindIn(top), 2);
    EXPECT_EQ(tags.scopedBelow(middle).count(tag), 1U);
    EXPECT_TRUE(tags.scopedBelow(top).empty());
}

TEST_F(GotoTagsTest, ofABusIsReadWhereNothingElseIs) {
    enter(low, "b", &A_GOTO_TAG_TYPE_BUS);
    EXPECT_EQ(kindIn(top), 3);
}

TEST_F(GotoTagsTest, aMissingOrUnknownTypeIsLocal) {
    EXPECT_EQ(enter(low, "none", nullptr).kind, TagKind::Local);
    EXPECT_EQ(enter(middle, "other", &A_TRUE).kind, TagKind::Local);
    EXPECT_EQ(kindIn(low), 0);
    EXPECT_EQ(kindIn(middle), 0);
    EXPECT_EQ(kindIn(top), -1);
    const Block &other = *Block::create(top, "untold", A_GOTO_BLOCK);
    EXPECT_FALSE(statedTagKind(other));
}

TEST_F(GotoTagsTest, aScopedTagWithoutARootIsFoundNowhere) {
    EXPECT_EQ(enter(low, "s", &A_GOTO_TAG_TYPE_SCOPED).scope, nullptr);
    EXPECT_EQ(kindIn(low), -1);
}

TEST_F(GotoTagsTest, scopeRootsBehindAModelWithSeveralPlacesAreNotSeen) {
    mark(top);
    Block::create(top, "again", A_MODEL_BLOCK)->setParam(A_MODEL_NODE, middle);
    EXPECT_EQ(enter(top, "s", &A_GOTO_TAG_TYPE_SCOPED).scope, &top);
    EXPECT_EQ(kindIn(top), 1);
    EXPECT_EQ(kindIn(low), -1);
}

TEST_F(GotoTagsTest, aSignalOfAnotherModelIsNone) {
    Block &sender = *Block::create(top, "g", A_GOTO_BLOCK);
    EXPECT_EQ(signalOfGoto(sender), nullptr);
    Wire &own = *Wire::create(*Block::create(top, "in", A_INPUT_BLOCK), tag);
    sender.setParam(A_GOTO_PORT_IN, own);
    EXPECT_EQ(signalOfGoto(sender), &own);
    sender.setParam(A_GOTO_PORT_IN, *Wire::create(*Block::create(low, "in", A_INPUT_BLOCK), tag));
    EXPECT_EQ(signalOfGoto(sender), nullptr);
}

/// Which of the models that have a signal a From reads.
class ModelPlacesTest : public GotoTagsTest {
  protected:
    /// Null for none.
    const Model *giverFor(const Model &from, const Model &last, const std::set<const Model *> &senders) {
        return ModelPlaces(design).giver(from, last, [&](const Model &model) { return senders.count(&model) != 0; });
    }
    void instantiateBeside() {
        instantiate(top, beside);
        instantiate(beside, belowBeside);
    }
    Model &beside = *Model::create(design, "beside");
    Model &belowBeside = *Model::create(design, "belowBeside");
};

TEST_F(ModelPlacesTest, theOwnModelThenTheFirstOnTheWayUp) {
    instantiateBeside();
    EXPECT_EQ(giverFor(low, beside, {&low, &middle, &beside}), &low);
    EXPECT_EQ(giverFor(low, beside, {&middle, &top, &beside}), &middle);
    EXPECT_EQ(giverFor(low, beside, {&top, &beside}), &top);
}

TEST_F(ModelPlacesTest, theLastElsewhereUnlessOneAboveItHasItsOwn) {
    instantiateBeside();
    EXPECT_EQ(giverFor(low, beside, {&beside}), &beside);
    EXPECT_EQ(giverFor(low, belowBeside, {&beside, &belowBeside}), &beside);
    EXPECT_EQ(giverFor(top, low, {&low}), &low);
    EXPECT_EQ(giverFor(top, low, {&middle, &low}), &middle);
    EXPECT_EQ(giverFor(middle, low, {&low, &beside}), &low) << "the way ends at the first model around the last Goto";
}

TEST_F(ModelPlacesTest, noWayWithoutOneChainOfInstances) {
    EXPECT_EQ(giverFor(low, beside, {&beside}), nullptr) << "another top";
    instantiateBeside();
    instantiate(top, low);
    EXPECT_EQ(giverFor(low, beside, {&beside}), nullptr) << "two places";
    EXPECT_EQ(giverFor(beside, low, {&low}), nullptr) << "two places of the Goto";
    EXPECT_EQ(giverFor(low, beside, {&low, &beside}), &low) << "no way is needed";
    const ModelPlaces places(design);
    EXPECT_EQ(places.top(low), nullptr);
    EXPECT_EQ(places.top(belowBeside), &top);
    EXPECT_TRUE(places.isAround(beside, belowBeside));
    EXPECT_FALSE(places.isAround(belowBeside, beside));
    EXPECT_FALSE(places.isAround(middle, beside));
}

TEST_F(ModelPlacesTest, aRingOfModelsHasNoTop) {
    instantiate(beside, belowBeside);
    instantiate(belowBeside, beside);
    EXPECT_EQ(ModelPlaces(design).top(beside), nullptr);
    EXPECT_EQ(giverFor(beside, belowBeside, {&belowBeside}), nullptr);
}

} // namespace
} // namespace orvo
