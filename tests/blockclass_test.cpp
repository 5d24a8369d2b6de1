// The table of handlers of a block type.
#include <orvo/blockclass.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/handlers.h>
#include <orvo/model.h>
#include <orvo/nonsblocks.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinfer.h>

#include "support/localinterface.h"

#include <gtest/gtest.h>

namespace orvo {
namespace {

/// Counts the handlers that were deleted.
template <class Interface> class Counted final : public Interface {
  public:
    explicit Counted(int &deleted) : mDeleted(deleted) {}
    ~Counted() override { ++mDeleted; }

  private:
    int &mDeleted;
};

class BlockClassTest : public ::testing::Test {
  protected:
    using Types = Counted<TypeInferHandler>;
    using Vectors = Counted<VectorUnrollHandler>;
    int deleted = 0;
};

TEST_F(BlockClassTest, findsAHandlerByItsInterface) {
    BlockClass blockClass;
    auto *handler = new Types(deleted);
    blockClass.registerHandler<TypeInferHandler>(handler);
    EXPECT_EQ(blockClass.get<TypeInferHandler>(), handler);
    EXPECT_EQ(blockClass.lookupHandler(typeid(TypeInferHandler)), handler);
    EXPECT_EQ(blockClass.get<VectorUnrollHandler>(), nullptr);
}

TEST_F(BlockClassTest, deletesOnlyTheLastOfTwoOwnedHandlers) {
    auto first = std::make_unique<Types>(deleted);
    {
        BlockClass blockClass;
        blockClass.registerHandler<TypeInferHandler>(first.get(), true);
        blockClass.registerHandler<TypeInferHandler>(new Types(deleted), true);
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
}

TEST_F(BlockClassTest, deletesASharedHandlerOnce) {
    {
        BlockClass owner;
        BlockClass copy;
        owner.registerHandler<TypeInferHandler>(new Types(deleted), true);
        owner.registerHandler<VectorUnrollHandler>(new Vectors(deleted), true);
        copy.copyHandlersFrom({&typeid(TypeInferHandler), &typeid(ComplexUnrollHandler)}, owner);
        EXPECT_EQ(copy.get<TypeInferHandler>(), owner.get<TypeInferHandler>());
        EXPECT_EQ(copy.get<VectorUnrollHandler>(), nullptr);
    }
    EXPECT_EQ(deleted, 2);
}

TEST_F(BlockClassTest, leavesAHandlerAloneThatReplacedAnOwnedOne) {
    Types shared(deleted);
    {
        BlockClass blockClass;
        auto first = std::make_unique<Types>(deleted);
        blockClass.registerHandler<TypeInferHandler>(first.get(), true);
        blockClass.registerHandler<TypeInferHandler>(&shared, false);
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1); // the one that was replaced, by the test itself
}

TEST_F(BlockClassTest, isDeletedWithItsContextAndDeletesEachHandlerOnce) {
    {
        ContextMgr mgr;
        mgr.context()->getBlockClass(A_ADD_BLOCK)->registerHandler<VectorUnrollHandler>(new Vectors(deleted), true);
        HandlerLinker linker(mgr.context(), {&typeid(VectorUnrollHandler)});
        mapNONSBlocks(linker);
        EXPECT_NE(mgr.context()->getBlockClass(U_ADD_BLOCK)->get<VectorUnrollHandler>(), nullptr);
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
}

/// As the interface of the same name in tests/support/localinterface.cpp.
class LocalInterface : public BlockHandler {};

TEST_F(BlockClassTest, tellsInterfacesApartThatShareALocalName) {
    Counted<LocalInterface> mine(deleted);
    Counted<BlockHandler> theirs(deleted);
    BlockClass blockClass;
    blockClass.registerHandler(typeid(LocalInterface), &mine, false);
    blockClass.registerHandler(test::otherLocalInterface(), &theirs, false);
    // Not every compiler gives local types identities of their own; as far as it does, handlers follow.
    const bool areTwo = typeid(LocalInterface) != test::otherLocalInterface();
    EXPECT_EQ(blockClass.lookupHandler(typeid(LocalInterface)) == &mine, areTwo);
    EXPECT_EQ(blockClass.lookupHandler(test::otherLocalInterface()), &theirs);
}

TEST_F(BlockClassTest, keepsOwnershipWhenItCopiesFromItself) {
    {
        BlockClass blockClass;
        blockClass.registerHandler<TypeInferHandler>(new Types(deleted), true);
        blockClass.copyHandlersFrom({&typeid(TypeInferHandler)}, blockClass);
    }
    EXPECT_EQ(deleted, 1);
}

TEST_F(BlockClassTest, hasNothingToSayForAnUntypedBlock) {
    ContextMgr mgr;
    Design design(mgr.context());
    Block &block = *Block::create(*Model::create(design, "m"), "b");
    for (const std::type_info *interface : {&typeid(TypeInferHandler), &typeid(TypeInferHandler2),
                                            &typeid(VectorUnrollHandler), &typeid(PortOrderingHandler)}) {
        EXPECT_EQ(block.getClass()->lookupHandler(*interface), nullptr);
    }
}

TEST_F(BlockClassTest, belongsToOneContext) {
    ContextMgr first;
    BlockClass *inFirst = first.context()->getBlockClass(A_ADD_BLOCK);
    EXPECT_EQ(inFirst, first.context()->getBlockClass(A_ADD_BLOCK));
    ContextMgr second;
    EXPECT_NE(inFirst, second.context()->getBlockClass(A_ADD_BLOCK));
}

} // namespace
} // namespace orvo
