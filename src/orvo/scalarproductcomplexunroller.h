// Sums of products of complex numbers.
#pragma once

#include "orvo/multiplycomplexunroller.h"

#include <utility>
#include <vector>

namespace orvo::internal {

/// In fixed point four real scalar products, "dotRR" to "dotIR", and the sum of two each. In floating point one for
/// each part, over the products in their order, so that it rounds as the original does.
class ScalarProductComplexUnroller final : public ComplexUnroller {
  public:
    explicit ScalarProductComplexUnroller(Block &block) : mBlock(block) {}

    bool writesTypes() const override;
    std::string reason() const override;
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override;
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override;
    void preAttach() override;
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &decor, bool imaginary,
                     const std::vector<MaybePort> &readers) override;
    void attachPort(Port &port, const ComplexDecorSpec &decor, bool imaginary, Wire &driver) override;
    void postAttach() override;

  private:
    /// Parts of a pair of operands that are multiplied.
    struct Term {
        std::size_t pair;
        bool firstImaginary;
        bool secondImaginary;
        bool isSubtracted;
    };
    using Terms = std::vector<Term>;

    void preAttachGeneralCase();
    void preAttachComplexFP();
    ComplexFactor &operand(std::size_t pair, int side);
    bool hasChain() const { return mChain.type().valid(); }
    bool isSubtractive() const;
    bool isFloatIn(const RefChain &instance) const;
    Terms termsOf(bool firstImaginary, bool secondImaginary, bool needsDimensions);
    Terms termsOfPart(bool imaginary);
    Block &make(const PureValueRef &name, const StaticString &type) const;
    Block &make(const char *word, const StaticString &type) const;
    Block &make(const char *word, std::size_t number, const StaticString &type) const;
    Wire *dot(const char *word, const Terms &terms, const NumTypeSpec &type, bool takesChain, bool chainImaginary);
    Wire &combined(const char *word, const StaticString &type, Wire *first, Wire *second) const;
    Wire &sumOfPart(const char *word, bool imaginary);
    Wire &sumOneByOne(const char *word, const Terms &terms, bool imaginary);
    Wire &chainAlone(const char *word, bool imaginary);
    void feed(const Term &term, Block &made, std::size_t number);
    void feedPart(ComplexFactor &from, bool imaginary, const MaybePort &port);
    Wire &zeroLike(const NumTypeSpec &type, const MaybePort &port) const;
    void feedNegated(const char *word, const Term &term, Block &made, std::size_t number);
    void setProductType(Block &made, NumTypeSpec type) const;
    int exactFraction();

    Block &mBlock;
    /// In the order of their numbers.
    std::vector<std::pair<PureValueRef, ComplexFactor>> mOperands;
    ComplexFactor mChain;
    NumTypeSpec mOutputType;
    bool mHasVectors = false;
    bool mWritesTypes = true;
    Wire *mReal = nullptr;
    Wire *mImaginary = nullptr;
};

} // namespace orvo::internal
