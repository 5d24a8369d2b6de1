// A fraction leaves a product its width, so that a fraction longer than the product's own takes bits off the top. Where
// the type that was given shows them, the block keeps its precision.
#include "orvo/precisionadjustmentpass.h"

#include "orvo/blockbuilder.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(PrecisionAdjustmentPass,
                 "Has output precisions that are given as a type tell the fraction of the result alone. Readers of the "
                 "result go on to read it in the type that was given. A precision stays where values would change.")

namespace {

/// A block whose precision changes, and the type of its readers, invalid where no cast is needed.
struct Adjustment {
    Block *block;
    ValueRef precision;
    NumTypeSpec readAs;
};

/// What becomes of a result in all instances together.
class ResultTypes {
  public:
    ResultTypes(const ValueRef &mode, const NumTypeSpec &given)
        : mIsGiven(mode == A_TYPE_SPECIFIED && given.valid()), mGiven(given) {}

    void addProduct(const NumTypeSpec &product) {
        if (!product.valid()) {
            return;
        }
        if (!product.isFixed() || !mGiven.isFixed()) {
            mKeepsValues = false;
            return;
        }
        const NumTypeSpec was = mIsGiven ? mGiven : internal::scalarOf(product);
        const NumTypeSpec becomes =
            NumTypeSpec::fixed(product.isSigned(), product.fixedBits() - mGiven.fracBits(), mGiven.fracBits());
        // Of what the old type shows the new one must hold all that the product has.
        const bool holds = becomes.fracBits() >= std::min(was.fracBits(), product.fracBits()) &&
                           becomes.intBits() >= std::min(was.intBits(), product.intBits());
        mKeepsValues = mKeepsValues && holds && (!mReadAs.valid() || mReadAs.scalarEquals(was));
        mReadAs = was;
        mMoves = mMoves || !becomes.scalarEquals(was);
    }
    void addFloat() { mHasFloat = true; }

    bool keepValues() const { return mKeepsValues && !(mMoves && mHasFloat); }
    /// Whether an instance needs a cast.
    bool moves() const { return mMoves; }

  private:
    bool mIsGiven;
    NumTypeSpec mGiven;
    bool mKeepsValues = true;
    bool mMoves = false;
    bool mHasFloat = false;
    NumTypeSpec mReadAs;
};

/// A precision of a mode and a type; null for none.
TupleValueRef precisionOf(const Block &block) {
    const TupleValueRef precision = tupleVR(block.getParam(A_OUTPUT_PRECISION));
    return precision && precision->size() >= 2 ? precision : TupleValueRef();
}

/// Whether the block's output has the type that its precision tells. Other blocks only carry the parameter.
bool heedsPrecision(const Block &block, const ValueRef &mode) {
    return block.type() == A_CONSTMULT_BLOCK.get_ptr() && !(mode == A_FRACTION_SPECIFIED);
}

ResultTypes resultTypes(const Block &block, const TupleValue &precision, const std::vector<RefChain> &instances,
                        GlobalTypePass &types) {
    Context *context = block.getContext();
    ResultTypes result(precision.at(0), internal::scalarOf(NumTypeSpec(precision.at(1), context)));
    const Port *port = block.getPort(NumberValue::get(0, context));
    const NumTypeSpec constant = NumTypeSpec::fromFixedValue(block.getParam(A_CONST_VALUE));
    for (const RefChain &instance : port == nullptr ? std::vector<RefChain>() : instances) {
        const NumTypeSpec input(types.getType(*port->peekWire(), instance), context);
        if (input.isFloat()) {
            result.addFloat();
        } else {
            result.addProduct(NumTypeSpec::typeOp(input, constant, TYPE_OP_MUL));
        }
    }
    return result;
}

} // namespace

void PrecisionAdjustmentPass::declare(PassDeclarations &declarations) {
    declarations.requirePass(GlobalTypePass::sName);
    declarations.requirePass(ModelTreePass::sName);
}

/// All questions about types before the first edit, so that they are inferred once.
void PrecisionAdjustmentPass::apply(PassContext &context) {
    GlobalTypePass &types = internal::unrolledTypes(context);
    internal::DistinctInstances distinct(internal::unrolledTree(context), types);
    std::vector<Adjustment> adjustments;
    for (Model &model : context.getDesign()) {
        std::vector<RefChain> instances;
        for (Block &block : model) {
            const TupleValueRef precision = precisionOf(block);
            if (!precision) {
                continue;
            }
            const ValueRef adjusted =
                TupleValue::get(PureValueRef(A_FRACTION_SPECIFIED), precision->at(1), block.getContext());
            NumTypeSpec readAs;
            if (heedsPrecision(block, precision->at(0))) {
                instances = instances.empty() ? distinct.of(model) : instances;
                const ResultTypes result = resultTypes(block, *precision, instances, types);
                const Wire *out = block.getWire(A_PRIM_WIRE_OUT);
                const bool needsCast = result.moves() && out != nullptr && out->port_size() != 0;
                readAs = needsCast ? internal::commonType(*out, instances, types) : NumTypeSpec();
                if (!result.keepValues() || (needsCast && !readAs.valid())) {
                    continue;
                }
            }
            adjustments.push_back({&block, adjusted, readAs});
        }
    }
    for (const Adjustment &adjustment : adjustments) {
        adjustment.block->setParam(A_OUTPUT_PRECISION, adjustment.precision);
        if (adjustment.readAs.valid()) {
            internal::BlockBuilder(*adjustment.block).convertOutput(A_PRIM_WIRE_OUT, "castBack", adjustment.readAs);
        }
    }
}

} // namespace orvo
