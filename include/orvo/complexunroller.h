// How blocks of complex signals become blocks of their parts: what each block type says to it, and what most of them
// say.
#pragma once

#include <orvo/compoundportcorrespondence.h>
#include <orvo/handlers.h>
#include <orvo/types.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvo {

class GlobalTypePass;

/// What becomes of one port of a block.
enum class ComplexPortKind {
    /// Nothing; the unroller sees to it itself.
    Leave = 0,
    /// Its wire is attached as it is, as the real part.
    Whole = 1,
    /// A complex wire falls apart, a real one is a real part alone.
    Split = 2,
    /// A complex wire falls apart, a real one is both parts.
    Share = 3,
    /// A complex wire falls apart, a real one gets an imaginary part of zero.
    SplitOrZero = 4,
};

/// What becomes of one wire of a block.
enum class ComplexWireKind {
    /// Nothing; the unroller sees to it itself.
    Leave = 0,
    /// It is a real result whatever its type was.
    Whole = 1,
    /// A complex one falls apart, a real one is a real result.
    Split = 2,
};

/// Takes one block of complex signals apart. The steps come in the order in which they stand here.
class ORVO_API ComplexUnroller : public Unroller {
  public:
    static const std::string mNameSuffix;
    const std::string &getSuffix() const override { return mNameSuffix; }
    ~ComplexUnroller() override;

    /// Where types may be asked for, of what has not changed yet.
    void setTypePassRefChain(GlobalTypePass &types, const RefChain &refChain);
    GlobalTypePass *getTypePass() const { return mTypes; }
    /// Of one instance of the block's model; types and chain must have been set.
    const RefChain &getRefChain() const { return *mRefChain; }
    /// All instances of the block's model, the one of the chain first. They must outlive the unroller.
    void setInstances(const std::vector<RefChain> &instances) { mInstances = &instances; }
    /// Why the block cannot come apart, now that all its signals are known; empty if it can.
    virtual std::string reason() const;
    bool canUnroll() const { return reason().empty(); }
    /// Whether signals may be vectors of complex numbers.
    virtual bool takesVectors() const;
    /// Whether types of signals become parameters, so that they must be the same in all instances of the model. Asked
    /// when all signals are known.
    virtual bool writesTypes() const;
    /// Whether the imaginary parts that real operands have not may be zeros of one bit, for the result is of the same
    /// type in all instances. Asked where operands differ in type between these.
    virtual bool takesPlainZeros() const;

    /// Called for every signal of the block before anything changes.
    virtual ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &decor);
    virtual ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &decor);
    /// What stands in the block's place.
    virtual void preAttach() = 0;
    /// Has the readers read a part of a wire. Gives what took the wire's place, null for nothing.
    virtual Wire *attachWire(Wire &wire, const ComplexDecorSpec &decor, bool imaginary,
                             const std::vector<MaybePort> &readers) = 0;
    /// Has a wire drive a part of a port; what now reads it is told by `addAttachedPort`.
    virtual void attachPort(Port &port, const ComplexDecorSpec &decor, bool imaginary, Wire &driver) = 0;
    virtual void postAttach() = 0;

  protected:
    /// Null if nothing establishes a type.
    PureValueRef typeOf(const Wire &wire) const;
    PureValueRef typeOf(const Port &port) const;
    /// In one of the instances.
    PureValueRef typeOf(const Wire &wire, const RefChain &instance) const;
    PureValueRef typeOf(const Port &port, const RefChain &instance) const;
    /// Whether a signal has one type in all instances.
    template <class Signal> bool isOfOneType(const Signal &signal) const {
        const PureValueRef type = typeOf(signal);
        return std::all_of(instances().begin(), instances().end(),
                           [&](const RefChain &instance) { return typeOf(signal, instance) == type; });
    }
    /// None if they were not told.
    std::span<const RefChain> instances() const;

  private:
    GlobalTypePass *mTypes = nullptr;
    const RefChain *mRefChain = nullptr;
    const std::vector<RefChain> *mInstances = nullptr;
};

/// A block of the real parts and one of the imaginary parts, named (block, "real") and (block, "imag"), each with the
/// parameters of the original. Of a complex type both get the type of a part, of a complex value each gets its own.
class ORVO_API DefaultComplexUnroller : public ComplexUnroller {
  public:
    explicit DefaultComplexUnroller(Block &block) : mBlock(block) {}
    /// Whether a parameter is a value of the signals: a real one then has an imaginary part of zero. Any other
    /// parameter that tells no parts goes to both blocks as it is.
    virtual bool isNumericParam(const PureValueRef &key) const;

    void preAttach() override;
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &decor, bool imaginary,
                     const std::vector<MaybePort> &readers) override;
    void attachPort(Port &port, const ComplexDecorSpec &decor, bool imaginary, Wire &driver) override;
    void postAttach() override;

  protected:
    Block &block() const { return mBlock; }
    Block &substitute(bool imaginary) const { return imaginary ? *mImaginary : *mReal; }

  private:
    Block &createPart(bool imaginary) const;

    Block &mBlock;
    Block *mReal = nullptr;
    Block *mImaginary = nullptr;
};

/// Makes the unroller that it is told.
template <class U> class ComplexUnrollHandlerT final : public ComplexUnrollHandler {
  public:
    std::shared_ptr<ComplexUnroller> createUnroller(Block &block) const override { return std::make_shared<U>(block); }
};

namespace internal {

/// A block's name in the place of another: (name, word).
ORVO_API PureValueRef nameBelow(const Block &block, const char *word);
/// The type of a part: the type without its complex layer.
ORVO_API PureValueRef partType(const PureValueRef &type, Context *context);
/// Whether a value is a complex number, or one of its elements is.
ORVO_API bool hasComplexPart(const ValueRef &value);
/// Zero for a number, a tuple of what its elements become, anything else as it is.
ORVO_API ValueRef zeroValues(const ValueRef &value);
/// What a part gets of a parameter: of `(typeComplex, type)` the type, of `(complexRollTag, real, imaginary)` its own
/// element, also inside the layers of vectors. What tells no parts is a real number if `isNumeric`, else the same for
/// both.
ORVO_API ValueRef partOfValue(const ValueRef &value, bool imaginary, bool isNumeric);

} // namespace internal

} // namespace orvo
