// Blocks that make one number of many lanes: sums, joins of bits and scalar products.
#include "orvo/combiningvectorunrollers.h"

#include "orvo/vectorunrollparts.h"

#include <orvo/block.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <algorithm>
#include <map>
#include <vector>

namespace orvo::internal {

namespace {

/// What combines the elements of vectors: blocks of numbered scalars, one for each lane that is left.
class CombiningVectorUnroller : public VectorUnroller {
  public:
    explicit CombiningVectorUnroller(Block &block) : mBlock(block) {}
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        if (!(wire.getName() == A_PRIM_WIRE_OUT)) {
            return VectorUnrollKind::Leave;
        }
        mOut = vectors;
        mType = elementType(typeOf(wire), wire.getContext());
        return VectorUnrollKind::Own;
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        mIn.emplace(port.getName(), vectors);
        return VectorUnrollKind::Own;
    }
    bool canUnroll() const override { return !!mType; }
    std::string reason() const override { return "its result has no type"; }
    bool writesTypeOf(const Wire &wire) const override { return wire.getName() == A_PRIM_WIRE_OUT; }
    void preAttach(const VectorDecorSpec &) override {
        for (LaneCounter lane(mOut); !lane.atEnd(); lane.next()) {
            std::vector<PureValueRef> name{named("{}_vunroll", mBlock.getName())};
            for (const int index : lane.indices()) {
                name.emplace_back(NumberValue::get(index, mBlock.getContext()));
            }
            const bool isOne = name.size() == 1;
            Block &made = *Block::create(
                mBlock.getModel(), isOne ? name[0] : PureValueRef(PureTupleValue::get(name, mBlock.getContext())));
            copyPlainParams(made, mBlock);
            finish(made);
            mLanes.push_back(&made);
            mResults.push_back(Wire::create(made, A_PRIM_WIRE_OUT));
        }
    }
    Wire *attachWire(Wire &wire, const VectorDecorSpec &lanes, const std::vector<int> &indices,
                     const std::vector<MaybePort> &readers) override {
        const std::size_t lane = lanes.elementIndex(indices);
        Wire &result = shaped(*mResults[lane]);
        OrvoUtils::copyParams(result, wire);
        connectReaders(readers, result);
        return &result;
    }
    void postAttach() override { delete &mBlock; }

  protected:
    /// What a block gets beside the parameters of the original.
    virtual void finish(Block &lane) const = 0;
    /// What the result must go through.
    virtual Wire &shaped(Wire &result) const { return result; }
    Block &block() const { return mBlock; }
    const PureValueRef &type() const { return mType; }
    std::size_t laneCount() const { return mLanes.size(); }
    const std::map<PureValueRef, VectorDecorSpec, DeepValueCmp> &inputs() const { return mIn; }
    void attach(std::size_t lane, const PureValueRef &key, Wire &driver) { attachTo(*mLanes[lane], key, driver); }
    void attachTo(Block &made, const PureValueRef &key, Wire &driver) {
        const MaybePort attached(made, key);
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    Wire &result(std::size_t lane) const { return *mResults[lane]; }
    void setResult(std::size_t lane, Wire &wire) { mResults[lane] = &wire; }
    std::size_t outCount() const { return mOut.elementCount(); }

  private:
    Block &mBlock;
    VectorDecorSpec mOut;
    PureValueRef mType;
    std::map<PureValueRef, VectorDecorSpec, DeepValueCmp> mIn;
    std::vector<Block *> mLanes;
    std::vector<Wire *> mResults;
};

/// The elements of one input, outermost dimension first, or those of several inputs lane by lane.
class PrimReduceVectorUnroller final : public CombiningVectorUnroller {
  public:
    using CombiningVectorUnroller::CombiningVectorUnroller;
    bool mandatoryUnrolling() const override { return true; }
    bool canUnroll() const override {
        const auto isVector = [](const auto &input) { return input.second.isVector(); };
        const bool joinsVectors = isJoin() && std::any_of(inputs().begin(), inputs().end(), isVector);
        return CombiningVectorUnroller::canUnroll() && !(joinsVectors && inputs().size() > 1);
    }
    std::string reason() const override {
        return type() ? "it joins several vectors" : CombiningVectorUnroller::reason();
    }
    using CombiningVectorUnroller::writesTypeOf;
    bool writesTypeOf(const Wire &wire) const override {
        return (isJoin() ? needsBits() : needsType()) && CombiningVectorUnroller::writesTypeOf(wire);
    }
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const std::size_t element = lanes.elementIndex(indices);
        if (inputs().size() == 1) {
            attach(element % laneCount(), numberOf(element / laneCount()), driver);
            return;
        }
        for (std::size_t lane = element; lane < laneCount(); lane += lanes.elementCount()) {
            attach(lane, port.getName(), driver);
        }
    }

  protected:
    void finish(Block &lane) const override {
        lane.setParam(A_BLOCK_TYPE, isJoin() ? A_BIT_JOIN_BLOCK : A_ADD_BLOCK);
        if (!isJoin() && needsType()) {
            // A reduction leaves a margin in its type that a sum does not.
            lane.setParam(A_ADD_TYPE, type());
        }
    }
    Wire &shaped(Wire &result) const override {
        if (!isJoin() || !needsBits()) {
            return result;
        }
        // The bits as they are, as an integer.
        const PureValueRef name = PureTupleValue::get(
            result.getBlock().getName(), StringValue::get("bits", block().getContext()), block().getContext());
        Block &bits = createBeside(block(), name, A_BIT_SELECT_BLOCK);
        bits.setParam(A_BIT_SELECT_BIT_OFFSET, numberOf(0));
        bits.setParam(A_BIT_SELECT_OUTPUT_TYPE, type());
        bits.setParam(numberOf(0), result);
        return *Wire::create(bits, A_PRIM_WIRE_OUT);
    }

  public:
    VectorUnrollKind originalWire(Wire &wire, const VectorDecorSpec &vectors) override {
        mWire = wire.getName() == A_PRIM_WIRE_OUT ? &wire : mWire;
        return CombiningVectorUnroller::originalWire(wire, vectors);
    }
    VectorUnrollKind originalPort(Port &port, const VectorDecorSpec &vectors) override {
        const auto hasFraction = [&](const RefChain &instance) {
            return NumTypeSpec(typeOf(port, instance), block().getContext()).fracBits() != 0;
        };
        mHasFraction =
            mHasFraction || (vectors.isVector() && std::any_of(instances().begin(), instances().end(), hasFraction));
        mIsSum = mWire != nullptr && outCount() != 0 &&
                 std::all_of(instances().begin(), instances().end(), [&](const RefChain &instance) {
                     return isSumIn(instance, port, vectors.elementCount() / outCount());
                 });
        return CombiningVectorUnroller::originalPort(port, vectors);
    }

  private:
    bool isJoin() const { return block().type() == A_BIT_JOIN_REDUCE_BLOCK.get_ptr(); }
    /// Whether a join of what is left would be of another type.
    bool needsBits() const { return inputs().size() != 1 || mHasFraction; }
    /// Whether a sum of what is left would be of another type.
    bool needsType() const { return inputs().size() != 1 || !mIsSum || block().getParam(A_ADD_TYPE); }
    /// Whether a sum of so many elements of a port is of the type of the result.
    bool isSumIn(const RefChain &instance, const Port &port, std::size_t terms) const {
        Context *context = block().getContext();
        NumTypeSpec sum(elementType(typeOf(port, instance), context), context);
        const bool noGrowth = block().findParam(A_ADD_NO_GROWTH) == A_TRUE.get_ptr();
        for (std::size_t known = 1; known < terms; known *= 2) {
            sum.applyOp(NumTypeSpec(sum), noGrowth ? TYPE_OP_UNION : TYPE_OP_ADD);
        }
        return sum == NumTypeSpec(elementType(typeOf(*mWire, instance), context), context);
    }

    const Wire *mWire = nullptr;
    /// In any instance.
    bool mHasFraction = false;
    /// In all instances, of the only port.
    bool mIsSum = false;
};

/// The products of all elements of the pairs in one sum. Other than a reduction it stays of its type, so that one of
/// scalars is left: each run would give it a new name and nothing else.
class ScalarProductVectorUnroller final : public CombiningVectorUnroller {
  public:
    using CombiningVectorUnroller::CombiningVectorUnroller;
    void preAttach(const VectorDecorSpec &merged) override {
        CombiningVectorUnroller::preAttach(merged);
        // Pairs of lengths of their own follow each other.
        std::size_t number = 0;
        Operand first;
        for (const auto &[key, vectors] : inputs()) {
            if (key->kind() != CoreType::Number) {
                continue;
            }
            Operand operand{number / 2, number % 2, mTerms, vectors.elementCount()};
            if (++number % 2 != 0) {
                first = operand;
                mOperands[key] = operand;
                mFirstKey = key;
                continue;
            }
            const std::size_t terms = std::max<std::size_t>(std::max(first.elements, operand.elements) / outCount(), 1);
            operand.terms = first.terms = terms;
            mOperands[mFirstKey] = first;
            mOperands[key] = operand;
            mTerms += terms;
            mLastBase = first.base;
        }
        if (isDirected() && isSubtractive() && mLastBase + 1 < mTerms) {
            for (std::size_t lane = 0; lane < laneCount(); ++lane) {
                makeChain(lane);
            }
        }
    }
    void attachPort(Port &port, const VectorDecorSpec &lanes, const std::vector<int> &indices, Wire &driver) override {
        const auto at = mOperands.find(port.getName());
        if (at == mOperands.end()) {
            for (std::size_t lane = lanes.elementIndex(indices); lane < laneCount(); lane += lanes.elementCount()) {
                if (mChains.empty()) {
                    attach(lane, port.getName(), driver);
                } else {
                    attachTo(addChainIn(lane), numberOf(1), driver);
                }
            }
            return;
        }
        const Operand &operand = at->second;
        Wire *negated = nullptr;
        for (std::size_t place = lanes.elementIndex(indices); place < operand.terms * laneCount();
             place += operand.elements) {
            const std::size_t term = operand.base + place / laneCount();
            if (!mChains.empty() && term > mLastBase) {
                attachTo(*mChains[place % laneCount()][term - mLastBase - 1], numberOf(operand.side), driver);
                continue;
            }
            const bool negates = mChains.empty() && isSubtracted(operand) && operand.side == 0 && term + 1 < mTerms;
            if (negates && negated == nullptr) {
                negated = &negation(port, driver, term, place % laneCount());
            }
            attach(place % laneCount(), numberOf(2 * term + operand.side), negates ? *negated : driver);
        }
    }

    using CombiningVectorUnroller::writesTypeOf;
    /// Only what is negated depends on the factors.
    bool writesTypeOf(const Port &) const override { return isSubtractive(); }

  protected:
    void finish(Block &lane) const override { lane.setParam(A_MULT_TYPE, type()); }

  private:
    struct Operand {
        std::size_t pair = 0;
        std::size_t side = 0;
        std::size_t base = 0;
        std::size_t elements = 1;
        std::size_t terms = 1;
    };
    /// A block subtracts only its last product; those of the same pair before it have a factor negated.
    bool isSubtracted(const Operand &operand) const {
        return isSubtractive() && operand.base + operand.terms == mTerms;
    }
    bool isSubtractive() const { return block().findParam(A_SUBTRACTIVE) == A_TRUE.get_ptr(); }
    /// Whether the sign of a product turns the way that it rounds.
    bool isDirected() const {
        const Value *mode = block().findParam(A_FLOAT_ROUNDING_MODE);
        return type() && NumTypeSpec(type(), block().getContext()).isFloat() &&
               (mode == A_ROUNDING_RNDU.get_ptr() || mode == A_ROUNDING_RNDD.get_ptr());
    }
    PureValueRef nameOf(const char *word, std::size_t term, std::size_t lane) const {
        return PureTupleValue::get(block().getName(), StringValue::get(word, block().getContext()), numberOf(term),
                                   numberOf(lane), block().getContext());
    }
    Wire &negation(Port &port, Wire &driver, std::size_t term, std::size_t lane) const {
        const NumTypeSpec factor(elementType(typeOf(port), block().getContext()), block().getContext());
        Wire *from = &driver;
        if (factor.isFixed() && !factor.isSigned()) {
            // A negation keeps the sign of its type.
            NumTypeSpec wide = NumTypeSpec::sfixed(factor.intBits() + 1, factor.fracBits());
            wide.setComplex(factor.isComplex());
            from = &widened(block(), nameOf("sign", term, lane), driver, wide.toValue(block().getContext()));
        }
        Block &neg = createBeside(block(), nameOf("neg", term, lane), A_NEG_BLOCK);
        if (const ValueRef subnormals = block().getParam(A_FLOAT_SUBNORMALS)) {
            neg.setParam(A_FLOAT_SUBNORMALS, subnormals);
        }
        neg.setParam(numberOf(0), *from);
        return *Wire::create(neg, A_PRIM_WIRE_OUT);
    }
    /// A block for each further product that is subtracted, each behind the one before.
    void makeChain(std::size_t lane) {
        std::vector<Block *> &chain = mChains.emplace_back();
        for (std::size_t term = mLastBase + 1; term < mTerms; ++term) {
            Block &made = createBeside(block(), nameOf("chain", term, lane), A_SCALAR_PRODUCT_BLOCK);
            copyPlainParams(made, block());
            finish(made);
            made.setParam(A_SUBTRACTIVE_CHAININ, A_FALSE);
            made.setParam(A_SCALAR_PRODUCT_PORT_CHAININ, result(lane));
            setResult(lane, *Wire::create(made, A_PRIM_WIRE_OUT));
            chain.push_back(&made);
        }
    }
    /// What adds the original's chain-in behind all products.
    Block &addChainIn(std::size_t lane) {
        const bool subtracts = block().findParam(A_SUBTRACTIVE_CHAININ) == A_TRUE.get_ptr();
        Block &made = createBeside(block(), nameOf("chain", mTerms, lane), subtracts ? A_SUB_BLOCK : A_ADD_BLOCK);
        for (const StaticString *key : {&A_FLOAT_ROUNDING, &A_FLOAT_ROUNDING_MODE, &A_FLOAT_SUBNORMALS}) {
            if (block().findParam(*key) != nullptr) {
                made.setParam(*key, PureValueRef(block().getParam(*key)));
            }
        }
        made.setParam(A_ADD_TYPE, type());
        made.setParam(numberOf(0), result(lane));
        setResult(lane, *Wire::create(made, A_PRIM_WIRE_OUT));
        return made;
    }

    std::map<PureValueRef, Operand, DeepValueCmp> mOperands;
    PureValueRef mFirstKey;
    std::size_t mTerms = 0;
    /// The number of the first product of the last pair.
    std::size_t mLastBase = 0;
    /// By lane; empty if one block a lane does.
    std::vector<std::vector<Block *>> mChains;
};

} // namespace

const VectorUnrollHandler *primReduceVectorHandler() { return vectorUnrollHandler<PrimReduceVectorUnroller>(); }
const VectorUnrollHandler *scalarProductVectorHandler() { return vectorUnrollHandler<ScalarProductVectorUnroller>(); }

} // namespace orvo::internal
