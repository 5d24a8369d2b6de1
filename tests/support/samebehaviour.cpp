// Both designs side by side.
#include "support/samebehaviour.h"

#include <orvo/design.h>
#include <orvo/model.h>

namespace orvo::test {

::testing::AssertionResult sameBehaviour(const Design &before, const Design &after, const std::string &top,
                                         const sim::CompareOptions &options) {
    const auto modelOf = [&top](const Design &design) {
        for (const Model &model : design) {
            if (model.getName()->toString() == top) {
                return &model;
            }
        }
        return static_cast<const Model *>(nullptr);
    };
    const Model *tops[] = {modelOf(before), modelOf(after)};
    if (tops[0] == nullptr || tops[1] == nullptr) {
        return ::testing::AssertionFailure() << "a design has no model '" << top << "'";
    }
    try {
        const sim::CompareResult result = sim::compareDesigns(before, *tops[0], after, *tops[1], options);
        if (result.same()) {
            return ::testing::AssertionSuccess();
        }
        ::testing::AssertionResult failure = ::testing::AssertionFailure();
        for (const std::string &name : result.unmatched) {
            failure << "'" << name << "' is on one side only; ";
        }
        for (const sim::Mismatch &mismatch : result.mismatches) {
            failure << "stream " << mismatch.stream << ", cycle " << mismatch.cycle << ": '" << mismatch.output
                    << "' differs; ";
        }
        if (result.inside) {
            failure << "first inside: cycle " << result.inside->cycle << ": '" << result.inside->output << "'";
        }
        return failure;
    } catch (const sim::SimulationError &error) {
        return ::testing::AssertionFailure() << error.what();
    }
}

void expectSameBehaviour(const Design &before, const Design &after, const std::string &top,
                         const sim::CompareOptions &options) {
    EXPECT_TRUE(sameBehaviour(before, after, top, options));
}

} // namespace orvo::test
