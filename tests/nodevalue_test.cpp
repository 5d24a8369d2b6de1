// References to nodes: bound, as paths, and from one to the other.
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

namespace orvo {
namespace {

class NodeValueTest : public ::testing::Test {
  protected:
    ValueRef value(const std::string &text) { return Value::parse(text, ctx); }
    PureValueRef name(const std::string &text) { return pureVR(value(text)); }

    ContextMgr mgr;
    Context *ctx = mgr.context();
    Design design{ctx};
};

TEST_F(NodeValueTest, isOneObjectPerNode) {
    Model *model = Model::create(design, "m");
    const NodeValueRef first = NodeValue::get(model);
    EXPECT_EQ(NodeValue::get(model).get_ptr(), first.get_ptr());
    EXPECT_EQ(NodeValue::get(static_cast<const Node *>(model)).get_ptr(), first.get_ptr());
    EXPECT_EQ(first->getNode(), model);
    EXPECT_EQ(first->context(), nullptr);
    EXPECT_FALSE(NodeValue::get(static_cast<Node *>(nullptr)));
}

TEST_F(NodeValueTest, isMadeAnewAfterItsLastReference) {
    Model *model = Model::create(design, "m");
    { const NodeValueRef first = NodeValue::get(model); }
    const NodeValueRef second = NodeValue::get(model);
    EXPECT_EQ(second->refCount(), 1);
    EXPECT_EQ(second->getNode(), model);
}

TEST_F(NodeValueTest, printsThePathOfItsNode) {
    Model *model = Model::create(design, "m");
    Block *block = Block::create(*model, "b");
    EXPECT_EQ(NodeValue::get(model)->toString(), "[/m]");
    EXPECT_EQ(NodeValue::get(block)->getPath(), "/m/b");
    EXPECT_EQ(NodeValue::get(&design)->getPath(), "");
    block->setName(name("(a \"x ]\" 1)"));
    EXPECT_EQ(NodeValue::get(block)->getPath(), "/m/(a \"x ]\" 1)");
    EXPECT_EQ(NodeValue::get(block)->toString(), "[/m/(a \"x \\]\" 1)]");
}

TEST_F(NodeValueTest, livesOnAsThePathOfItsDeadNode) {
    Model *model = Model::create(design, "m");
    Block *block = Block::create(*model, "b");
    const NodeValueRef reference = NodeValue::get(block);
    const TupleValueRef tuple = TupleValue::get(name("x"), reference, ctx);
    delete block;
    EXPECT_EQ(reference->getNode(), nullptr);
    EXPECT_EQ(reference->toString(), "[/m/b]");
    EXPECT_EQ(tuple->toString(), "(x [/m/b])");
    EXPECT_EQ(TupleValue::get(name("x"), reference, ctx), tuple) << "the reference keeps its identity";
}

TEST_F(NodeValueTest, internsPathsByTheirText) {
    const NodeValueRef first = NodeValue::get("/m/b", ctx);
    EXPECT_EQ(NodeValue::get("/m/b", ctx), first);
    EXPECT_EQ(value("[/m/b]"), first);
    EXPECT_FALSE(NodeValue::get("/m/c", ctx) == first);
    EXPECT_EQ(first->getNode(), nullptr);
    EXPECT_EQ(first->getPath(), "/m/b");
}

TEST_F(NodeValueTest, resolvesToTheNodeOfItsPath) {
    Model *model = Model::create(design, "m");
    Block *plain = Block::create(*model, "b");
    Block *odd = Block::create(*model, name("(a \"x ]/\" 1)"));
    EXPECT_EQ(value("[/m]")->resolve(&design), NodeValue::get(model));
    EXPECT_EQ(value("[/m/b]")->resolve(&design), NodeValue::get(plain));
    EXPECT_EQ(value("[ / m / b ]")->resolve(&design), NodeValue::get(plain));
    EXPECT_EQ(value(NodeValue::get(odd)->toString())->resolve(&design), NodeValue::get(odd));
    EXPECT_EQ(value("[]")->resolve(&design), NodeValue::get(&design));
    const ValueRef bound = NodeValue::get(plain);
    EXPECT_EQ(bound->resolve(&design), bound);
}

TEST_F(NodeValueTest, resolvesAPathThatNamesNothingToNull) {
    Model::create(design, "m");
    for (const char *text : {"[/x]", "[/m/x]", "[m]", "[/]", "[//m]", "[/m/]", "[/m x]", "[/\"open]", "[/[/m\\]]"}) {
        const ValueRef path = value(text);
        ASSERT_TRUE(path) << text;
        EXPECT_FALSE(path->resolve(&design)) << text;
    }
}

TEST_F(NodeValueTest, resolvesTheElementsOfATuple) {
    Model *model = Model::create(design, "m");
    const ValueRef resolved = value("(a [/m] (1 [/m]))")->resolve(&design);
    const ValueRef bound = NodeValue::get(model);
    EXPECT_EQ(resolved, TupleValue::get(value("a"), bound, TupleValue::get(value("1"), bound, ctx), ctx));
    EXPECT_FALSE(value("([/x])")->resolve(&design)) << "a null before the first impure element";
    EXPECT_EQ(value("([/m] [/x])")->resolve(&design)->toString(), "([/m] *INVALID*)");
}

TEST_F(NodeValueTest, ordersBoundReferencesByTheirPresentPaths) {
    Model *first = Model::create(design, "a");
    Model *second = Model::create(design, "b");
    const ValueRef a = NodeValue::get(first);
    const ValueRef b = NodeValue::get(second);
    EXPECT_TRUE(DeepValueCmp()(a, b));
    first->setName(name("c"));
    EXPECT_TRUE(DeepValueCmp()(b, a));
    EXPECT_TRUE(DeepValueCmp()(b, value("[/c]")));
}

RC_GTEST_FIXTURE_PROP(NodeValueTest, readsBackAndResolvesWhateverTheNameIs, (const std::string &text)) {
    Model *model = Model::create(design, PureValueRef(StringValue::get(text, ctx)));
    Block *block = Block::create(*model, PureValueRef(StringValue::get(text + "]", ctx)));
    const NodeValueRef bound = NodeValue::get(block);
    const ValueRef path = value(bound->toString());
    RC_ASSERT(path);
    RC_ASSERT(path->toString() == bound->toString());
    RC_ASSERT(path->resolve(&design) == bound);
}

} // namespace
} // namespace orvo
