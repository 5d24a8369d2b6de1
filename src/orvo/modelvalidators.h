// The checks of ValidateModelPass, a class each. Those that look at types ask about every instance of the model whose
// types differ, and tell the same thing of a signal once.
#pragma once

#include "orvo/validatemodelpass.h"
#include "orvo/validationfacts.h"

#include <memory>
#include <utility>

namespace orvo {

/// A check that shares what is known of the design with others.
class FactsValidator : public Validator {
  public:
    explicit FactsValidator(std::shared_ptr<internal::ValidationFacts> facts) : mFacts(std::move(facts)) {}

  protected:
    internal::ValidationFacts &facts() const { return *mFacts; }

  private:
    std::shared_ptr<internal::ValidationFacts> mFacts;
};

/// Where delays are placed but logic is not scheduled, only logic without a schedule of its own may stand.
class ShuffleDelayBlocksValidator final : public Validator {
  public:
    void validate(ModelPassContext &context) override;
};

/// The data ports of a block have the same vector widths, level by level; a width of 1 agrees with any. What drives a
/// port has the widths that the block takes there.
class PortDimensionsValidator final : public FactsValidator {
  public:
    using FactsValidator::FactsValidator;
    void validate(ModelPassContext &context) override;
};

/// Blocks whose function is defined for real numbers get no complex ones.
class RealOnlyPortsValidator final : public FactsValidator {
  public:
    using FactsValidator::FactsValidator;
    void validate(ModelPassContext &context) override;
};

/// A schedule that takes its latency from another model names one that allows it.
class DependentLatencyPreValidator final : public FactsValidator {
  public:
    using FactsValidator::FactsValidator;
    void validate(ModelPassContext &context) override;
};

/// The addresses of dual memories have the bits that the depth needs.
class DualMemAddrValidator final : public FactsValidator {
  public:
    using FactsValidator::FactsValidator;
    void validate(ModelPassContext &context) override;
};

/// Each entry of a look-up table has an address.
class LookupTableValidator final : public FactsValidator {
  public:
    using FactsValidator::FactsValidator;
    void validate(ModelPassContext &context) override;
};

/// A latency constraint from the input to the output of an interface finds one of each.
class LatencyConstraintValidator final : public Validator {
  public:
    void validate(ModelPassContext &context) override;
};

/// Each port and wire has a type.
class TypeInferenceValidator final : public FactsValidator {
  public:
    using FactsValidator::FactsValidator;
    void validate(ModelPassContext &context) override;
};

} // namespace orvo
