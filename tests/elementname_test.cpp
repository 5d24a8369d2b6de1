// Names of elements: which are read as such, and of what.
#include <orvo/context.h>
#include <orvo/elementname.h>

#include <gtest/gtest.h>

#include <string>

namespace orvo {
namespace {

class ElementNameTest : public ::testing::Test {
  protected:
    std::string read(const char *text) {
        const ElementName name(PureValueRef(Value::parse(text, mgr.context())));
        const std::string part = !name.isPart ? "" : name.isImaginary ? " imag" : " real";
        return name.whole->toString() + " " + std::to_string(name.levels) + " " + std::to_string(name.lane) + part;
    }
    ContextMgr mgr;
};

TEST_F(ElementNameTest, tellsLanesAndPartsInEitherOrder) {
    EXPECT_EQ(read("(x 3)"), "x 1 3");
    EXPECT_EQ(read("(0 real)"), "0 0 -1 real");
    EXPECT_EQ(read("(0 imag 2)"), "0 1 2 imag");
    EXPECT_EQ(read("(0 2 imag)"), "0 1 2 imag");
    EXPECT_EQ(read("(0 2 real 5)"), "0 2 -1 real");
}

TEST_F(ElementNameTest, leavesOtherNamesWhole) {
    for (const char *text : {"x", "7", "(x)", "(x y)", "(x -1)", "(x 0.5)", "(x real imag)", "((x 1) 2)", "(real)"}) {
        EXPECT_EQ(read(text), Value::parse(text, mgr.context())->toString() + " 0 -1");
    }
}

} // namespace
} // namespace orvo
