// Whatever is done to a netlist, it stays one.
#include "support/invariants.h"
#include "support/randomedits.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/orvoutils.h>
#include <orvo/pass.h>

#include <rapidcheck/gtest.h>

namespace orvo {
namespace {

RC_GTEST_PROP(EditSequence, keepsEveryInvariantOfTheNetlist, (const std::vector<std::uint32_t> &edits)) {
    ContextMgr mgr;
    Design design(mgr.context());
    for (std::size_t i = 0; i < edits.size(); ++i) {
        // More edits than the generator's lists are long, each step checked.
        test::applyEdits(design, {edits[i], edits[i] * 3U, edits[i] * 7U, edits[i] * 31U});
        auto result = test::checkInvariants(design);
        RC_ASSERT_FALSE(!result && !std::string(result.message()).empty());
    }
}

RC_GTEST_PROP(EditSequence, leavesNoValueBehind, (const std::vector<std::uint32_t> &edits)) {
    ContextMgr mgr;
    const auto valuesAfter = [&] {
        Design design(mgr.context());
        test::applyEdits(design, edits);
        test::applyEdits(design, edits);
        return mgr.context();
    };
    // The table of block classes keeps the types that it has met once.
    const std::size_t first = valuesAfter()->valueCount();
    RC_ASSERT(valuesAfter()->valueCount() == first);
}

RC_GTEST_PROP(EditSequence, keepsInvariantsThroughThePasses, (const std::vector<std::uint32_t> &edits)) {
    ContextMgr mgr;
    Design design(mgr.context());
    test::applyEdits(design, edits);
    test::applyEdits(design, edits);
    for (const char *pass : {"ModelTreePass", "DeadBlockPass", "ElideTerminalPass", "ElideUnpackPass",
                             "AggressiveDeadBlockLatePass", "DeadModelPass"}) {
        PassScheduler scheduler;
        scheduler.addPass(pass);
        scheduler.apply(design);
        RC_ASSERT(static_cast<bool>(test::checkInvariants(design)));
    }
}

RC_GTEST_PROP(EditSequence, clonesADesignToTheSameShape, (const std::vector<std::uint32_t> &edits)) {
    ContextMgr mgr;
    Design design(mgr.context());
    test::applyEdits(design, edits);
    Design copy(mgr.context());
    OrvoUtils::deepCloneDesign(copy, design);
    RC_ASSERT(copy.size() == design.size());
    auto other = copy.begin();
    for (const Model &model : design) {
        RC_ASSERT(other->getName() == model.getName());
        RC_ASSERT(other->size() == model.size());
        ++other;
    }
    RC_ASSERT(static_cast<bool>(test::checkInvariants(copy)));
    RC_ASSERT(static_cast<bool>(test::checkInvariants(design)));
}

} // namespace
} // namespace orvo
