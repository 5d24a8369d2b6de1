// Blocks against the catalogue, and the pass that insists on it.
#include <orvo/netlistverification.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include "orvo/netlistverificationpass.h"

#include <util/features.h>

#include <gtest/gtest.h>

#include <sstream>

#include <algorithm>

namespace orvo {
namespace {

using Kind = CatalogueFinding::Kind;

class VerificationTest : public ::testing::Test {
  protected:
    ~VerificationTest() override { util::ClearFeatures(); }
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    Block &typed(const ValueRef &type) {
        Block *block = Block::create(model, "b");
        block->setParam(A_BLOCK_TYPE, type);
        return *block;
    }
    /// An add block as the catalogue wants it.
    Block &goodAdd() {
        Block &block = typed(A_ADD_BLOCK);
        block.setParam(value("0"), source);
        block.setParam(value("1"), source);
        Wire::create(block, A_PRIM_WIRE_OUT);
        return block;
    }
    std::vector<CatalogueFinding> verify(const Block &block) {
        return CatalogueVerifier(getBlocksInfo(), mgr.context()).verify(block);
    }
    void run() {
        PassScheduler scheduler;
        scheduler.addPass("NetlistVerificationPass");
        scheduler.apply(design);
    }
    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Model &other = *Model::create(design, "other");
    Wire &source = *Wire::create(*Block::create(other, "source"), "w");
};

TEST_F(VerificationTest, findsNothingOnABlockThatAgrees) {
    Block &block = goodAdd();
    block.setParam(A_ADD_NO_GROWTH, A_TRUE);
    block.setParam(A_METADATA, value("(x)"));
    block.setParam(value("7"), source);
    EXPECT_TRUE(verify(block).empty());
}

TEST_F(VerificationTest, findsUnknownTypesMissingPartsBadValuesAndExtras) {
    EXPECT_EQ(verify(typed(value("oddBlock"))).at(0).kind, Kind::UnknownBlockType);
    EXPECT_EQ(verify(typed(nullptr)).at(0).text, "Unrecognized block: (none)");
    Block &bare = typed(A_DELAY_BLOCK);
    std::vector<Kind> kinds;
    for (const CatalogueFinding &finding : verify(bare)) {
        kinds.push_back(finding.kind);
    }
    EXPECT_EQ(kinds, (std::vector<Kind>{Kind::MissingPort, Kind::MissingWire, Kind::MissingParam}));
    Block &bad = goodAdd();
    bad.setParam(A_ADD_NO_GROWTH, value("5"));
    ASSERT_EQ(verify(bad).size(), 1U);
    EXPECT_EQ(verify(bad)[0].kind, Kind::BadValue);
    EXPECT_EQ(verify(bad)[0].subject, "addNoGrowth");
    Block &extra = goodAdd();
    extra.setParam(value("odd"), value("5"));
    ASSERT_EQ(verify(extra).size(), 1U);
    EXPECT_EQ(verify(extra)[0].kind, Kind::Extra);
    EXPECT_EQ(verify(extra)[0].subject, "odd");
}

TEST_F(VerificationTest, takesNoPlainParameterForAPort) {
    Block &output = typed(A_OUTPUT_BLOCK);
    output.setParam(value("odd"), source);
    EXPECT_TRUE(verify(output).empty());
    output.setParam(value("odd"), value("5"));
    ASSERT_EQ(verify(output).size(), 1U);
    EXPECT_EQ(verify(output)[0].kind, Kind::Extra);
    Block &add = goodAdd();
    add.setParam(value("7"), value("5"));
    ASSERT_EQ(verify(add).size(), 1U);
    EXPECT_EQ(verify(add)[0].subject, "7");
}

TEST_F(VerificationTest, matchesKeysByPattern) {
    Block &select = typed(A_SELECT_BLOCK);
    select.setParam(A_SELECT_PORT_DEFAULT_DATA, source);
    select.setParam(value("(selectPortkeyCtrl 3)"), source);
    Wire::create(select, A_PRIM_WIRE_OUT);
    EXPECT_TRUE(verify(select).empty());
    select.setParam(value("(otherKey 3)"), source);
    EXPECT_EQ(verify(select).size(), 1U);
    Block &add = goodAdd();
    add.setParam(value("-1"), source);
    EXPECT_EQ(verify(add).size(), 1U);
}

TEST_F(VerificationTest, knowsTheLanesAndPartsOfFilters) {
    Block &block = typed(A_SHARED_FIFO_BLOCK);
    block.setParam(A_PORT_VALID, source);
    block.setParam(A_FIFO_DEPTH, value("4"));
    const auto missing = [&] {
        const auto found = verify(block);
        return std::any_of(found.begin(), found.end(), [](const CatalogueFinding &one) {
            return one.kind == Kind::MissingPort || one.kind == Kind::Extra;
        });
    };
    EXPECT_TRUE(missing());
    block.setParam(value("(0 1)"), source);
    EXPECT_FALSE(missing());
    block.setParam(value("(0 1)"), nullptr);
    block.setParam(value("(0 real)"), source);
    EXPECT_FALSE(missing());
    block.setParam(value("(0 imag 2)"), source);
    EXPECT_FALSE(missing());
    block.setParam(value("(0 x)"), source);
    EXPECT_TRUE(missing());
    block.setParam(value("(0 x)"), nullptr);
    const auto lacksOutput = [&] {
        const auto found = verify(block);
        return std::any_of(found.begin(), found.end(), [](const CatalogueFinding &one) {
            return one.kind == Kind::MissingWire && one.subject == "0";
        });
    };
    EXPECT_TRUE(lacksOutput());
    Wire::create(block, value("(0 1)"));
    EXPECT_FALSE(lacksOutput());
    // Other blocks have no lanes.
    Block &add = goodAdd();
    add.setParam(value("(0 1)"), source);
    EXPECT_FALSE(verify(add).empty());
}

TEST_F(VerificationTest, knowsLoopsOverAVectorOfLimits) {
    Block &block = typed(A_LOOP_BLOCK);
    block.setParam(A_LOOP_PORT_GO, source);
    block.setParam(A_LOOP_PORT_LIMIT, source);
    EXPECT_TRUE(verify(block).empty());
    block.setParam(A_LOOP_WIRE_VALUE, source);
    EXPECT_FALSE(verify(block).empty());
}

TEST_F(VerificationTest, leavesOutConnectionsWithoutAMapping) {
    BlocksInfo info;
    info.insertMapping("A_X_BLOCK", "xBlock", true);
    info.insert("A_X_BLOCK", {"d",
                              {{"Param", "A_UNMAPPED", {"..."}, "d", false, "NONE"},
                               {"Odd", "A_X_BLOCK", {"..."}, "d", false, "NONE"}}});
    CatalogueVerifier verifier(info, mgr.context());
    auto findings = verifier.verify(typed(value("xBlock")));
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].text, "Unrecognized block connection type: Odd");
    EXPECT_EQ(verifier.unmappedConnections(), (std::vector<std::string>{"A_UNMAPPED"}));
    std::size_t reported = 0;
    ::testing::internal::CaptureStderr();
    internal::warnOfUnmapped(verifier, reported);
    internal::warnOfUnmapped(verifier, reported);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Connection A_UNMAPPED is ignored as it doesn't have a mapping\n");
}

TEST_F(VerificationTest, runsOnlyWithItsFeature) {
    typed(value("oddBlock"));
    run();
    util::SetFeatureBoolean("USE_NETLIST_VERIFICATION_PASS", true);
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(1), "Unrecognized block: oddBlock\n.*Unrecognized block: oddBlock");
}

TEST_F(VerificationTest, endsOnTheFirstBlockThatDiffers) {
    util::SetFeatureBoolean("USE_NETLIST_VERIFICATION_PASS", true);
    delete &source.getBlock();
    run();
    Block &extra = typed(A_OUTPUT_BLOCK);
    extra.setParam(A_FORWARDING_PORT, A_TRUE);
    run();
    Block *bare = Block::create(model, "bare", A_NOT_BLOCK);
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(1), "Port 0 is not set on block: ");
    bare->setParam(value("0"), *Wire::create(*Block::create(model, "in", A_INPUT_BLOCK), "w"));
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(1), "Wire A_PRIM_WIRE_OUT is not set on block: ");
    Wire::create(*bare, A_PRIM_WIRE_OUT);
    run();
    extra.setParam(A_FORWARDING_PORT, value("5"));
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(1),
                "Parameter A_FORWARDING_PORT has the value 5, which is not in its list, on block: ");
    extra.setParam(A_FORWARDING_PORT, A_TRUE);
    Block &delay = typed(A_CONST_BLOCK);
    Wire::create(delay, A_PRIM_WIRE_OUT);
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(1), "Parameter A_CONST_VALUE is not set on block: ");
    delay.setParam(A_CONST_VALUE, value("1"));
    delay.setParam(value("odd"), value("1"));
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(1),
                "Extra parameter to /m/\\(dupName 0 b\\): odd\n.*See above the extra parameters that were given to the "
                "constBlock block");
}

} // namespace
} // namespace orvo
