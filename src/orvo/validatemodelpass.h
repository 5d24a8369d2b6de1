// The gate in front of the scheduler, and the interface of the checks that it runs.
#pragma once

#include <orvo/pass.h>

#include <memory>

namespace orvo {

namespace internal {
class ValidationFacts;
}

/// One check of a model. It changes nothing; what the designer got wrong is told as messages.
class Validator {
  public:
    Validator() = default;
    virtual ~Validator();
    Validator(const Validator &) = delete;
    Validator &operator=(const Validator &) = delete;
    virtual void validate(ModelPassContext &context) = 0;
};

/// Runs all checks on each model, each whatever the others found. Does nothing with the feature
/// DISABLE_VALIDATE_MODEL_PASS.
class ValidateModelPass final : public ModelPass {
    ORVO_PASS(ValidateModelPass)
    using ModelPass::apply;
    void declare(PassDeclarations &declarations) override;
    void apply(ModelPassContext &context) override;

  private:
    /// Made for the first model, and shared by the checks of all that follow.
    std::shared_ptr<internal::ValidationFacts> mFacts;
};

} // namespace orvo
