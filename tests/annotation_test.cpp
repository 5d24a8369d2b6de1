// The editor of metadata and the sections of their transfer.
#include <orvo/annotation.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

class MetadataTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    std::string metadata(const Block &of) {
        ValueRef tuple = of.getParam(A_METADATA);
        return tuple ? tuple->toString() : "none";
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Block &block = *Block::create(model, "a");
    Block &other = *Block::create(model, "b");
};

TEST_F(MetadataTest, writesBackWhatWasAddedWhenTheEditorGoes) {
    {
        MetadataManipulator editor(block);
        editor.append(value("a"), value("1"));
        editor.append(value("a"), value("1"), value("2"));
        editor.append(value("a"), value("1"), value("2"), value("3"));
        editor.append(value("a"), value("1"), value("2"), value("3"), value("4"));
        editor.append(value("a"), value("1"), value("2"), value("3"), value("4"), value("5"));
        editor.appendToVector(value("x"));
        EXPECT_EQ(metadata(block), "none");
        EXPECT_EQ(editor.size(), 6U);
    }
    EXPECT_EQ(metadata(block), "((a 1) (a 1 2) (a 1 2 3) (a 1 2 3 4) (a 1 2 3 4 5) x)");
}

TEST_F(MetadataTest, writesNothingWhenNothingWasAdded) {
    std::uint64_t before = design.editCount();
    { MetadataManipulator editor(block); }
    EXPECT_EQ(design.editCount(), before);
}

TEST_F(MetadataTest, takesTheEntriesOfAnotherBlockWithoutDuplicatesInFirstSeenOrder) {
    block.setParam(A_METADATA, value("(p q)"));
    other.setParam(A_METADATA, value("(q r)"));
    {
        MetadataManipulator editor(block);
        MetadataManipulator source(other);
        editor.appendFrom(source);
    }
    EXPECT_EQ(metadata(block), "(p q r)");
    EXPECT_EQ(metadata(other), "(q r)");
}

TEST_F(MetadataTest, addsATuplesEntriesWithOrWithoutDuplicates) {
    block.setParam(A_METADATA, value("(p)"));
    {
        MetadataManipulator editor(block);
        editor.appendFrom(pureTupleVR(value("(p q)")), false);
        editor.appendFrom(pureTupleVR(value("(p q)")), true);
        editor.appendFrom(PureTupleValueRef(), true);
    }
    EXPECT_EQ(metadata(block), "(p p q)");
}

TEST_F(MetadataTest, refusesToAddABlocksEntriesToItself) {
    EXPECT_EXIT(
        {
            MetadataManipulator editor(block);
            MetadataManipulator same(block);
            editor.appendFrom(same);
        },
        ::testing::ExitedWithCode(1), "added to itself");
}

TEST_F(MetadataTest, nestsSections) {
    TransferMetadataListener *listener = design.getMetadataTransferListener();
    listener->push();
    listener->push();
    EXPECT_EQ(listener->openSections(), 2U);
    listener->pop();
    listener->pop();
    EXPECT_EXIT(listener->pop(), ::testing::ExitedWithCode(1), "not opened");
}

} // namespace
} // namespace orvo
