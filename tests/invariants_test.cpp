// The walk that --verify-each makes, on netlists that were edited in every way the netlist offers.
#include "driver/invariants.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo::driver {
namespace {

TEST(BrokenLinks, areNotFoundWhileANetlistIsEdited) {
    ContextMgr guard;
    Design design(guard.context());
    Model *leaf = Model::create(design, "leaf");
    Model *top = Model::create(design, "top");
    Block *source = Block::create(*top, "source");
    source->setParam(A_BLOCK_TYPE, A_CONST_BLOCK.get());
    Wire *wire = Wire::create(*source, "a");
    Wire *other = Wire::create(*source, "b");
    Block *sum = Block::create(*top, "sum");
    sum->setParam(Value::parse("0", guard.context()), *wire);
    sum->setParam(Value::parse("1", guard.context()), *wire);
    EXPECT_TRUE(findBrokenLinks(design).empty());
    wire->replace(*other);
    EXPECT_TRUE(findBrokenLinks(design).empty());
    Block *instance = Block::create(*top, "instance");
    instance->setParam(A_MODEL_NODE, *leaf);
    EXPECT_TRUE(findBrokenLinks(design).empty()) << "a block without a type instantiates nothing";
    instance->setParam(A_BLOCK_TYPE, A_MODEL_BLOCK.get());
    EXPECT_TRUE(findBrokenLinks(design).empty());
    source->setName(pureVR(Value::parse("renamed", guard.context())));
    delete other;
    EXPECT_TRUE(findBrokenLinks(design).empty());
    delete instance;
    delete leaf;
    EXPECT_TRUE(findBrokenLinks(design).empty());
}

TEST(BrokenLinks, areFoundInAListOfInstancesThatLies) {
    ContextMgr guard;
    Design design(guard.context());
    Model *leaf = Model::create(design, "leaf");
    Block *liar = Block::create(*Model::create(design, "top"), "liar");
    leaf->registerParent(liar);
    EXPECT_EQ(findBrokenLinks(design).size(), 2U);
    EXPECT_EQ(findBrokenLinks(design, 1).size(), 1U);
    leaf->unregisterParent(liar);
    EXPECT_TRUE(findBrokenLinks(design).empty());
}

} // namespace
} // namespace orvo::driver
