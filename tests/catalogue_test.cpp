// Findings of the catalogue as the driver tells them.
#include "driver/catalogue.h"

#include "driver/message_texts.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

#include <string>

namespace orvo::driver {
namespace {

TEST(CheckDesign, tellsModelAndBlockOfEachFinding) {
    ContextMgr guard;
    Design design(guard.context());
    Model *model = Model::create(design, "m");
    Block *odd = Block::create(*model, "odd");
    Block *sum = Block::create(*model, "sum");
    sum->setParam(A_BLOCK_TYPE, A_ADD_BLOCK.get());
    sum->setParam(A_FLOAT_ROUNDING, A_TRUE.get());
    Wire *wire = Wire::create(*sum, A_PRIM_WIRE_OUT.text());
    sum->setParam(Value::parse("0", guard.context()), *wire);
    const std::vector<Finding> findings = checkDesign(design, getBlocksInfo());
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_STREQ(findings[0].tag, "DRIVER_CHECK_UNKNOWN_BLOCK");
    EXPECT_EQ(findings[0].params.at("block"), odd->getName()->toString());
    EXPECT_STREQ(findings[1].tag, "DRIVER_CHECK_BAD_VALUE");
    EXPECT_EQ(findings[1].params.at("model"), "m");
    EXPECT_EQ(findings[1].params.at("param"), A_FLOAT_ROUNDING.text());
    EXPECT_EQ(findings[1].params.at("value"), A_TRUE.text());
    EXPECT_EQ(toJson(findings[1])["text"], renderMessage(findings[1].tag, findings[1].params));
}

TEST(CheckDesign, findsNothingInAnEmptyDesign) {
    ContextMgr guard;
    Design design(guard.context());
    EXPECT_TRUE(checkDesign(design, getBlocksInfo()).empty());
}

} // namespace
} // namespace orvo::driver
