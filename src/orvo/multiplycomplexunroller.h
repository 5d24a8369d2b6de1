// Products of complex numbers: four real multipliers, or three, or for a real factor two.
#pragma once

#include <orvo/complexunroller.h>

#include <map>
#include <vector>

namespace orvo {

/// A factor: a port of the original, whose wires come when it is attached, or a product that stands already.
class ORVO_API ComplexFactor {
  public:
    ComplexFactor() = default;
    explicit ComplexFactor(const NumTypeSpec &type) : mType(type) {}
    ComplexFactor(Wire &real, Wire *imaginary, const NumTypeSpec &type);

    bool isComplex() const { return mType.isComplex(); }
    const NumTypeSpec &type() const { return mType; }
    /// The type of a part.
    NumTypeSpec partType() const;
    /// Null while it has not come.
    Wire *wire(bool imaginary) { return part(imaginary).wire; }
    /// Has a port read a part, now or when its wire comes.
    void feed(bool imaginary, const MaybePort &port);
    /// The wire of a part has come. Gives what reads it.
    const std::vector<MaybePort> &attach(bool imaginary, Wire &driver);

  private:
    struct Part {
        Wire *wire = nullptr;
        std::vector<MaybePort> readers;
    };
    Part &part(bool imaginary) { return imaginary ? mImaginary : mReal; }

    NumTypeSpec mType;
    Part mReal;
    Part mImaginary;
};

/// Of port 0, a + jb, and port 1, c + jd: the real part is ac - bd, the imaginary one ad + bc. A real factor leaves two
/// of the multipliers, and nothing to add. More than two factors are multiplied one after the other.
class ORVO_API MultiplyComplexUnroller : public ComplexUnroller {
  public:
    explicit MultiplyComplexUnroller(Block &block) : mBlock(block) {}

    bool writesTypes() const override;
    std::string reason() const override;
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor) override;
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override;
    void preAttach() override;
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &decor, bool imaginary,
                     const std::vector<MaybePort> &readers) override;
    void attachPort(Port &port, const ComplexDecorSpec &decor, bool imaginary, Wire &driver) override;
    void postAttach() override;

  protected:
    Block &block() const { return mBlock; }
    /// A port of the original; the number must be below the number of factors.
    ComplexFactor &factor(std::size_t number);
    /// Of a part of the result.
    const NumTypeSpec &outputType() const { return mOutputType; }
    void setOutputs(Wire &real, Wire &imaginary);
    /// A block below the original with the hints that suit its kind.
    Block &make(const PureValueRef &name, const StaticString &type) const;
    Block &make(const char *word, const StaticString &type) const;
    static Wire &out(Block &block);
    static MaybePort in(Block &block, int port);

  private:
    /// The blocks of one product, told by a number if there are several.
    struct Step {
        int number;
        bool isLast;
    };
    bool isExactIn(const RefChain &instance) const;
    PureValueRef nameOf(const char *word, const Step &step) const;
    Block &multiplier(const char *word, const Step &step, ComplexFactor &a, bool aImaginary, ComplexFactor &b,
                      bool bImaginary) const;
    Wire &combined(const char *word, const Step &step, const StaticString &type, const NumTypeSpec &sum, Wire &first,
                   Wire &second) const;
    ComplexFactor product(const Step &step, ComplexFactor &a, ComplexFactor &b) const;

    Block &mBlock;
    std::map<PureValueRef, ComplexFactor, DeepValueCmp> mFactors;
    NumTypeSpec mOutputType;
    /// Whether a signal differs in type between the instances.
    bool mDiffers = false;
    /// Whether multipliers without a type have that of the result, in all instances.
    bool mIsExact = false;
    Wire *mReal = nullptr;
    Wire *mImaginary = nullptr;
};

/// Three multipliers where that is asked for, both factors are complex and in fixed point.
class ORVO_API MultiplyKaratsubaComplexUnroller : public MultiplyComplexUnroller {
  public:
    using MultiplyComplexUnroller::MultiplyComplexUnroller;
    bool writesTypes() const override;
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor) override;
    void preAttach() override;

  private:
    bool isAskedFor() const;
    std::vector<PureValueRef> mPorts;
    bool mAllComplex = true;
};

namespace internal {

/// The parameters by which a block computes floats, and hints on how it is built: those that the original has and the
/// type of the made block knows.
ORVO_API void copyArithmeticHints(Block &made, const Block &original);
/// Those of these parameters that the original has and the type of the made block knows.
void copyKnownParams(Block &made, const Block &original, std::initializer_list<const StaticString *> keys);

} // namespace internal

} // namespace orvo
