// Reproducer files: what is printed is read back, and what is no reproducer is refused with a reason.
#include "driver/reproducer.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <string>

namespace orvo::driver {
namespace {

std::string print(const Reproducer &reproducer) {
    return printReproducerStart(reproducer.reason) + printReproducerHeader(reproducer) + reproducer.design;
}

RC_GTEST_PROP(Reproducer, readsBackWhatItPrints,
              (const std::string &reason, const std::string &passes, const std::string &value,
               const std::string &design)) {
    Reproducer written;
    written.reason = reason;
    written.version = "1.2.3";
    written.pass = "3 SomePass";
    written.verifyEach = *rc::gen::arbitrary<bool>();
    written.features = {{"NAME", value}, {"OTHER", ""}};
    written.skip = {2, 7};
    written.stopAfter = 9;
    written.passes = passes;
    written.design = design;
    Reproducer read;
    const auto error = parseReproducer(print(written), read);
    RC_ASSERT(!error.has_value());
    RC_ASSERT(read.reason == written.reason);
    RC_ASSERT(read.version == written.version);
    RC_ASSERT(read.pass == written.pass);
    RC_ASSERT(read.verifyEach == written.verifyEach);
    RC_ASSERT(read.features == written.features);
    RC_ASSERT(read.skip == written.skip);
    RC_ASSERT(read.stopAfter == written.stopAfter);
    RC_ASSERT(read.passes == written.passes);
    RC_ASSERT(read.design == written.design);
}

TEST(Reproducer, knowsTheLineAtWhichTheDesignBegins) {
    Reproducer read;
    EXPECT_FALSE(parseReproducer("orvo-reproducer 1\nreason: x\npasses: A\ndesign:\n<kelmar/>\n", read));
    EXPECT_EQ(read.designLine, 4);
    EXPECT_EQ(read.design, "<kelmar/>\n");
    EXPECT_FALSE(read.stopAfter);
}

TEST(Reproducer, tellsWhyATextIsNone) {
    Reproducer read;
    EXPECT_EQ(parseReproducer("", read), "the first line is not 'orvo-reproducer 1'");
    EXPECT_EQ(parseReproducer("orvo-reproducer 2\ndesign:\n", read), "the first line is not 'orvo-reproducer 1'");
    EXPECT_EQ(parseReproducer("orvo-reproducer 1\nreason: x\nodd\ndesign:\n", read), "line 3 is not understood");
    EXPECT_EQ(parseReproducer("orvo-reproducer 1\nskip: x\ndesign:\n", read), "line 2 is not understood");
    EXPECT_EQ(parseReproducer("orvo-reproducer 1\nfeature: x\ndesign:\n", read), "line 2 is not understood");
    EXPECT_EQ(parseReproducer("orvo-reproducer 1\nreason: x\n", read), "there is no design in it");
}

} // namespace
} // namespace orvo::driver
