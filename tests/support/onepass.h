// A design and one pass: what is heard, what is written, and what must hold whatever the pass does.
#pragma once

#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/samebehaviour.h"

#include <orvo/design.h>
#include <orvo/pass.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace orvo::test {

inline std::string xmlOf(const Design &design) {
    std::ostringstream text;
    XMLServices().toXML(text, design);
    return text.str();
}

/// In the same context.
inline std::unique_ptr<Design> copyOf(const Design &design) {
    std::istringstream text(xmlOf(design));
    auto made = std::make_unique<Design>(design.getContext());
    EXPECT_TRUE(XMLServices().fromXML(text, *made, XMLServices::defaultErrorFunc));
    return made;
}

/// What is heard while the pass runs. The design must be sound behind it.
inline std::vector<std::string> heardFrom(Design &design, const char *pass) {
    HeardMessages heard(design.getContext());
    PassScheduler scheduler;
    scheduler.addPass(pass);
    scheduler.apply(design);
    EXPECT_TRUE(checkInvariants(design));
    return heard.take();
}

/// Without a message.
inline void runPass(Design &design, const char *pass) {
    EXPECT_EQ(heardFrom(design, pass), std::vector<std::string>{});
}

/// The design must compute what it did, nothing be heard, and a second run find nothing to do.
inline void runAndCompare(Design &design, const char *pass, std::uint64_t cycles = 300,
                          const std::string &top = "top") {
    const auto before = copyOf(design);
    runPass(design, pass);
    sim::CompareOptions options;
    options.cycles = cycles;
    expectSameBehaviour(*before, design, top, options);
    const std::string once = xmlOf(design);
    runPass(design, pass);
    EXPECT_EQ(xmlOf(design), once);
}

} // namespace orvo::test
