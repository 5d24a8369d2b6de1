// Types that stay as they were while a pass rewrites.
#include <orvo/typecache.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

class TypeCache : public ::testing::Test {
  protected:
    TypeCache() {
        constant.setParam(A_BLOCK_TYPE, A_CONST_BLOCK);
        constant.setParam(A_CONST_TYPE, value("(typeSFloatIEEE 23 8)"));
        for (Block *block : {&first, &second}) {
            block->setParam(A_BLOCK_TYPE, A_DELAY_BLOCK);
        }
        first.setParam(value("0"), constantOut);
        second.setParam(value("0"), firstOut);
        types.bindEvents(design);
    }
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Block &constant = *Block::create(model, "c");
    Block &first = *Block::create(model, "first");
    Block &second = *Block::create(model, "second");
    Wire &constantOut = *Wire::create(constant, A_PRIM_WIRE_OUT);
    Wire &firstOut = *Wire::create(first, A_PRIM_WIRE_OUT);
    Wire &secondOut = *Wire::create(second, A_PRIM_WIRE_OUT);
    GlobalTypePass types;
    GlobalTypeCache cache{types};
};

TEST_F(TypeCache, answersFrozenWhatWasAskedThawed) {
    cache.setBlock(second, {});
    cache.allWires();
    cache.allPorts();
    EXPECT_TRUE(cache.primWireOutIsFloat());
    cache.freeze();
    second.setParam(value("0"), ValueRef());
    EXPECT_EQ(readableType(cache.getTypePort(value("0")).get_ptr()), "float(23,8)");
    EXPECT_DEATH(cache.getTypePort(value("1")), "has not seen");
    cache.thaw();
    EXPECT_FALSE(cache.getTypePort(value("0")));
}

TEST_F(TypeCache, followsPortsAndComesBack) {
    cache.alwaysCacheDriverWire(true);
    cache.setBlock(second, {});
    cache.getTypePort(value("0"));
    EXPECT_FALSE(cache.getFollowedWireName());
    EXPECT_FALSE(cache.backtrack());
    EXPECT_FALSE(cache.followPort(value("7")));
    cache.freeze();
    EXPECT_TRUE(cache.followPort(value("0")));
    EXPECT_EQ(&cache.getBlock(), &first);
    EXPECT_EQ(cache.getFollowedWireName(), A_PRIM_WIRE_OUT);
    EXPECT_EQ(cache.getFollowedFanout(), 1U);
    EXPECT_EQ(readableType(cache.getTypeWire(A_PRIM_WIRE_OUT).get_ptr()), "float(23,8)") << "kept with the port";
    EXPECT_TRUE(cache.followPort(value("0")));
    EXPECT_EQ(&cache.getBlock(), &constant);
    EXPECT_TRUE(cache.backtrack());
    EXPECT_TRUE(cache.backtrack());
    EXPECT_EQ(&cache.getBlock(), &second);
    EXPECT_DEATH(static_cast<void>(cache.getFollowedFanout()), "no wire was followed");
}

TEST_F(TypeCache, keepsWhatCameInAtAPortThatAsksForAnotherType) {
    Block &reg = *Block::create(model, "reg", A_SYNC_REGISTER_BLOCK);
    reg.setParam(A_SYNC_REGISTER_DATA_TYPE, ValueRef(value("(typeSFixed 8 0)")));
    reg.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, constantOut);
    cache.setBlock(reg, {});
    cache.allPorts();
    EXPECT_EQ(readableType(cache.getTypeDriver(A_SYNC_REGISTER_PORT_ICLK_DATA).get_ptr()), "float(23,8)");
    EXPECT_FALSE(cache.getTypeDriver(A_SYNC_REGISTER_PORT_ICLK_ENABLE));
    cache.freeze();
    reg.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, firstOut);
    const CachedTypeQuery query(cache);
    const Port *port = reg.getPort(A_SYNC_REGISTER_PORT_ICLK_DATA);
    EXPECT_EQ(readableType(query.getDriverType(port, {}).get_ptr()), "float(23,8)");
    EXPECT_EQ(readableType(query.getType(port, {}).get_ptr()), "s8.0");
    EXPECT_FALSE(query.getDriverType(nullptr, {}));
    EXPECT_DEATH(cache.getTypeDriver(value("0")), "has not seen");
}

TEST_F(TypeCache, reservesBlocksOnItsWay) {
    cache.setBlock(second, {});
    cache.followPort(value("0"));
    EXPECT_FALSE(cache.anyReserved());
    cache.reserveAll();
    EXPECT_TRUE(cache.isCurrentReserved());
    cache.setBlock(constant, {});
    EXPECT_FALSE(cache.isCurrentReserved());
    cache.setBlock(second, {});
    EXPECT_TRUE(cache.anyReserved());
    cache.clearReserved();
    EXPECT_FALSE(cache.anyReserved());
    cache.reserveCurrent();
    EXPECT_TRUE(cache.isCurrentReserved());
}

TEST_F(TypeCache, answersForABlockThatStandsForAnother) {
    cache.setBlock(second, {});
    cache.allWires();
    Block &made = *Block::create(model, "made");
    Wire &out = *Wire::create(made, A_PRIM_WIRE_OUT);
    cache.freeze();
    cache.defineAlias(made, {});
    CachedTypeQuery query(cache);
    EXPECT_EQ(readableType(query.getType(out, {}).get_ptr()), "float(23,8)");
    EXPECT_EQ(&cache.getBlock(), &second);
    EXPECT_FALSE(query.getType(static_cast<const Wire *>(nullptr), {}));
    EXPECT_EQ(readableType(query.getType(&out, {}).get_ptr()), "float(23,8)");
}

TEST_F(TypeCache, forgetsABlockThatDies) {
    cache.setBlock(second, {});
    cache.allWires();
    cache.freeze();
    delete &second;
    Block &made = *Block::create(model, "made");
    Wire::create(made, A_PRIM_WIRE_OUT);
    cache.setBlock(made, {});
    EXPECT_DEATH(cache.getTypeWire(A_PRIM_WIRE_OUT), "has not seen");
}

TEST_F(TypeCache, tellsWhatItsBlockHas) {
    cache.setBlock(first, {});
    EXPECT_EQ(cache.getPortCount(), 1U);
    EXPECT_EQ(cache.getWireCount(), 1U);
    EXPECT_EQ(cache.getBlockParam(A_BLOCK_TYPE), A_DELAY_BLOCK);
    EXPECT_EQ(cache.lastNumberedPortName(), value("0"));
    cache.setBlock(constant, {});
    EXPECT_FALSE(cache.lastNumberedPortName());
}

} // namespace
} // namespace orvo
