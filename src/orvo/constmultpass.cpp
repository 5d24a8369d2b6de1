// Products by constants. Types are asked for while nothing changes; the generator is asked once for each kind of
// product, whichever model it is in.
#include "orvo/constmultpass.h"

#include "orvo/blockbuilder.h"
#include "orvo/fixedconstant.h"
#include "orvo/keptpoints.h"
#include "orvo/metadatasection.h"
#include "orvo/unrollpasses.h"

#include <orvo/basedevice.h>
#include <orvo/blocksinfo.h>
#include <orvo/constmulttype.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/systembuilder.h>
#include <orvo/wire.h>

#include <util/features.h>

#include <algorithm>
#include <bit>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(
    ConstMultPass,
    "Decides how products by constants are built. A float product by a constant of few ones in its significand, such "
    "as "
    "a power of two, becomes a multiplier by that constant; a fixed-point product by 0 becomes 0. For all other "
    "fixed-point products by constants the model generator is asked what multipliers and logic would cost, and those "
    "that are worth it get A_MULT_OPTIMIZE_CONST_BEFORE_TILING.")

namespace internal {

int countMantissaOnes(double value) {
    constexpr int kFractionBits = 52;
    constexpr std::uint64_t kExponent = 0x7FF;
    constexpr int kOfNoNumber = 64;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const std::uint64_t exponent = (bits >> kFractionBits) & kExponent;
    if (exponent == kExponent) {
        return kOfNoNumber;
    }
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << kFractionBits) - 1);
    return std::popcount(fraction) + (exponent != 0 ? 1 : 0);
}

bool isConstMult(const Wire &wire, const NumTypeSpec &type, const NumTypeSpec &otherType, const NumTypeSpec &outputType,
                 NumberValueRef &value, bool isForced) {
    const Block &driver = wire.getBlock();
    if (driver.type() != A_CONST_BLOCK.get_ptr()) {
        return false;
    }
    value = numberVR(driver.getParam(A_CONST_VALUE));
    if (!value || !type.isFloat()) {
        return value && type.isFixed();
    }
    // A multiplier by a constant computes in its input's format.
    if (!type.scalarEquals(outputType) || !otherType.scalarEquals(outputType)) {
        return false;
    }
    return isForced || util::GetFeatureIntegerWithDefault("ConstantMultConversionsLimit", 1) >=
                           countMantissaOnes(value->toDouble());
}

} // namespace internal

namespace {

/// Beyond this, operands are not looked at.
constexpr int kMostBits = 64;

/// Of a product in one instance. A multiplier by a constant has the smallest type that holds it for the second operand.
struct ProductTypes {
    NumTypeSpec operands[2];
    NumTypeSpec out;
    PureValueRef outValue;
};

struct Candidate {
    Block *block;
    /// One for each instance that differs.
    std::vector<ProductTypes> types;
};

bool isScalar(const NumTypeSpec &type) { return type.isReal() && !type.isVector(); }

bool isAccepted(const ProductTypes &types) {
    const NumTypeSpec *const all[] = {&types.operands[0], &types.operands[1], &types.out};
    const auto every = [&](auto holds) { return std::all_of(std::begin(all), std::end(all), holds); };
    return every([](const NumTypeSpec *type) { return isScalar(*type); }) &&
           (every([](const NumTypeSpec *type) { return type->isFloat(); }) ||
            (every([](const NumTypeSpec *type) { return type->isFixed(); }) &&
             types.operands[0].fixedBits() <= kMostBits && types.operands[1].fixedBits() <= kMostBits));
}

bool isConstantMultiplier(const Block &block) { return block.type() == A_CONSTMULT_BLOCK.get_ptr(); }

/// Whether a port may turn out to read a constant: now, or once a product before it has become 0.
bool mayReadConstant(const Port &port) {
    const Value *driver = port.peekWire()->getBlock().type();
    return driver == A_CONST_BLOCK.get_ptr() || driver == A_MULT_BLOCK.get_ptr() ||
           driver == A_CONSTMULT_BLOCK.get_ptr();
}

/// Whether the block multiplies two operands, one of which may be constant.
bool isOfInterest(const Block &block) {
    if (isConstantMultiplier(block)) {
        return block.getPortCount() == 1 && numberVR(block.getParam(A_CONST_VALUE));
    }
    Context *context = block.getContext();
    const Port *first = block.getPort(NumberValue::get(0, context));
    const Port *second = block.getPort(NumberValue::get(1, context));
    return block.type() == A_MULT_BLOCK.get_ptr() && block.getPortCount() == 2 && first != nullptr &&
           second != nullptr && (mayReadConstant(*first) || mayReadConstant(*second));
}

bool isZeroIn(const NumberValue &value, const NumTypeSpec &type) {
    return !value.isSpecial() && internal::unitsOf(value, type) == 0;
}

/// The two costs of one product.
struct Costs {
    ResourceUsageAndLatencyHelper asIs;
    ResourceUsageAndLatencyHelper optimised;
};

/// What of a model its products' costs depend on.
struct ModelFacts {
    GenerationParameters parameters{SynthesisOptions()};
    double lutsPerMultiplier = 0.0;
    /// Of the parameters.
    PureValueRef key;
};

ModelFacts factsOf(const Model &model) {
    Context *context = model.getContext();
    const SynthesisOptions options = SynthesisOptions::createSynthesisOptionsFromExistingModel(model);
    const device::Device &device = getBaseDeviceFromModel(model);
    ModelFacts facts;
    facts.parameters = GenerationParameters(options);
    // The question is about one device, wherever its name stands.
    facts.parameters.deviceFamily = device.family().name;
    facts.parameters.devicePart = device.part().name;
    facts.parameters.deviceSpeedGrade = device.speedGrade().name;
    facts.lutsPerMultiplier = device.GetDefaultMult18ToLUT4Ratio();
    const ValueRef own = options.dspHardwareThreshold;
    const NumberValueRef threshold =
        numberVR(own ? own : designOption(model.getDesign(), A_SYNTH_DSP_HARDWARE_THRESHOLD));
    if (threshold && !threshold->isSpecial() && !threshold->isNegative()) {
        facts.lutsPerMultiplier = threshold->toDouble();
    }
    std::vector<PureValueRef> key;
    for (const std::string *text :
         {&facts.parameters.deviceFamily, &facts.parameters.devicePart, &facts.parameters.deviceSpeedGrade}) {
        key.push_back(StringValue::get(*text, context));
    }
    for (const SynthesisOptions::Option &option : SynthesisOptions::options()) {
        if (const PureValueRef value = options.*option.field) {
            key.push_back(PureTupleValue::get(*option.key, value, context));
        }
    }
    facts.key = PureTupleValue::get(key, context);
    return facts;
}

/// The parameters that the catalogue has for a type and a block sets, but how a constant is exploited, which is what is
/// asked.
std::vector<std::pair<PureValueRef, PureValueRef>> paramsFor(const char *type, const Block &block) {
    std::vector<std::pair<PureValueRef, PureValueRef>> params;
    const BlocksInfo &catalogue = getBlocksInfo();
    for (const BlockConnection &connection : catalogue.getBlockInfo(type).connections) {
        const std::string *text = connection.kind == "Param" ? catalogue.findMapping(connection.name) : nullptr;
        if (text == nullptr) {
            continue;
        }
        const StringValueRef key = StringValue::get(*text, block.getContext());
        const PureValueRef value(block.getParam(key));
        if (value && !(key == A_MULT_OPTIMIZE_CONST_BEFORE_TILING)) {
            params.emplace_back(key, value);
        }
    }
    return params;
}

/// One product by a constant, told apart from others by all that its costs depend on.
struct Question {
    /// The constant's block or, for a multiplier by a constant, that one itself.
    const Block *constant;
    const Block *product;
    NumTypeSpec constantType;
    NumTypeSpec otherType;
    PureValueRef outValue;

    PureValueRef key(const ModelFacts &facts) const {
        Context *context = product->getContext();
        std::vector<PureValueRef> key{facts.key, PureValueRef(constant->getParam(A_CONST_VALUE)),
                                      constantType.toValue(context), otherType.toValue(context), outValue};
        for (const auto &[name, value] : paramsFor("A_MULT_BLOCK", *product)) {
            key.push_back(PureTupleValue::get(name, value, context));
        }
        return PureTupleValue::get(key, context);
    }

    Costs ask(const ModelFacts &facts, ModelGenerationHelper helper) const {
        Context *context = product->getContext();
        FuncInfoDefault function(context, "Constant multiplication constmultpass");
        Block &mult = *Block::create(function.model(), "Mult block", A_MULT_BLOCK);
        Block &fixed = *Block::create(function.model(), "Const block", A_CONST_BLOCK);
        const PureValueRef ports[] = {NumberValue::get(0, context), NumberValue::get(1, context)};
        mult.setParam(ports[1], *Wire::create(fixed, A_PRIM_WIRE_OUT));
        function.addInputPortInfo(StringValue::get("a", context), ports[0], otherType, &mult);
        function.addOutputPortInfo(StringValue::get("q", context), A_PRIM_WIRE_OUT, NumTypeSpec(outValue, context),
                                   &mult);
        for (const auto &[name, value] : paramsFor("A_MULT_BLOCK", *product)) {
            function.addParamPairToBlock(&mult, name, value);
        }
        // A multiplier by a constant may give another type than the product has.
        function.addParamPairToBlock(&mult, A_MULT_TYPE, outValue);
        function.addParamPairToBlock(&fixed, A_CONST_VALUE, PureValueRef(constant->getParam(A_CONST_VALUE)));
        function.addParamPairToBlock(&fixed, A_CONST_TYPE, constantType.toValue(context));
        ORVOSystem system(&function, facts.parameters, helper);
        Costs costs;
        costs.asIs = system.generate();
        mult.setParam(A_MULT_OPTIMIZE_CONST_BEFORE_TILING, A_TRUE);
        costs.optimised = system.generate();
        return costs;
    }
};

bool pays(const Costs &costs, double lutsPerMultiplier) {
    const ResourceUsageAndLatencyHelper &before = costs.asIs;
    const ResourceUsageAndLatencyHelper &after = costs.optimised;
    const double limit = static_cast<double>(before.luts) + static_cast<double>(before.multipliers) * lutsPerMultiplier;
    return before.multipliers >= after.multipliers &&
           (before.luts >= after.luts || static_cast<double>(after.luts) <= limit);
}

} // namespace

/// What one run of the pass knows.
class ConstMultPass::Run {
  public:
    Run(const Pass &pass, PassContext &context)
        : mContext(context), mTypes(internal::unrolledTypes(context)),
          mDistinct(internal::unrolledTree(context), mTypes), mHeld(context),
          mHelper(context.getRunModelGenerationHelperPointer(&pass)) {}

    void analyze(Model &model);
    void apply(Model &model, bool movesMetadata);
    void settle() { mHeld.settle(); }

  private:
    ProductTypes typesOf(const Block &block, const RefChain &instance);
    bool convertFloat(const Candidate &candidate, bool isForced);
    bool replaceByZero(const Candidate &candidate);
    void chooseForm(const Candidate &candidate, bool isForced);
    bool paysIn(const Question &question, const ModelFacts &facts);
    const ModelFacts &factsFor(const Model &model);
    template <class Rewrite> void rewrite(Block &block, Rewrite rewrite);

    PassContext &mContext;
    GlobalTypePass &mTypes;
    internal::DistinctInstances mDistinct;
    internal::HeldDomains mHeld;
    ModelGenerationHelper mHelper;
    std::unordered_map<const Model *, std::vector<Candidate>> mCandidates;
    std::unordered_map<const Model *, ModelFacts> mFacts;
    std::map<PureValueRef, Costs> mCosts;
    /// Of the model at work.
    bool mMovesMetadata = false;
    std::optional<internal::KeptPoints> mPoints;
};

ProductTypes ConstMultPass::Run::typesOf(const Block &block, const RefChain &instance) {
    Context *context = block.getContext();
    const auto portType = [&](int number) {
        const Port *port = block.getPort(NumberValue::get(number, context));
        return NumTypeSpec(mTypes.getType(port, instance), context);
    };
    ProductTypes types;
    types.operands[0] = portType(0);
    types.operands[1] =
        isConstantMultiplier(block) ? NumTypeSpec::fromFixedValue(block.getParam(A_CONST_VALUE)) : portType(1);
    types.outValue = mTypes.getType(block.getWire(A_PRIM_WIRE_OUT), instance);
    types.out = NumTypeSpec(types.outValue, context);
    return types;
}

void ConstMultPass::Run::analyze(Model &model) {
    std::optional<std::vector<RefChain>> instances;
    for (Block &block : model) {
        if (!isOfInterest(block) || block.getWire(A_PRIM_WIRE_OUT) == nullptr) {
            continue;
        }
        if (!instances) {
            instances = mDistinct.of(model);
        }
        Candidate candidate{&block, {}};
        for (const RefChain &instance : *instances) {
            candidate.types.push_back(typesOf(block, instance));
        }
        if (std::all_of(candidate.types.begin(), candidate.types.end(), isAccepted)) {
            mHeld.hold(block);
            mCandidates[&model].push_back(std::move(candidate));
        }
    }
}

/// Replaces a block, and moves along what hangs on it.
template <class Rewrite> void ConstMultPass::Run::rewrite(Block &block, Rewrite rewrite) {
    mPoints->around(block, [&] {
        const internal::MetadataSection section(mMovesMetadata ? mContext.getDesign().getMetadataTransferListener()
                                                               : nullptr);
        rewrite();
    });
}

bool ConstMultPass::Run::convertFloat(const Candidate &candidate, bool isForced) {
    Block &block = *candidate.block;
    Context *context = block.getContext();
    for (int side = 0; side < 2; ++side) {
        const Wire &wire = *block.getPort(NumberValue::get(side, context))->peekWire();
        NumberValueRef value;
        const auto holds = [&](const ProductTypes &types) {
            return internal::isConstMult(wire, types.operands[side], types.operands[1 - side], types.out, value,
                                         isForced) &&
                   util::constantMultiplierOutputType(types.operands[1 - side], value).scalarEquals(types.out);
        };
        if (!std::all_of(candidate.types.begin(), candidate.types.end(), holds)) {
            continue;
        }
        rewrite(block, [&] {
            const internal::BlockBuilder builder(block);
            const internal::MadeBlock made = builder.make(A_CONSTMULT_BLOCK, "constMult");
            // The rounding is part of what is computed.
            made.copy(block, {&A_SYNTH_FORCE_SOFT_FP, &A_FLOAT_SUBNORMALS, &A_FLOAT_ROUNDING, &A_FLOAT_ROUNDING_MODE,
                              &A_FOLDING_KERNEL_TAG});
            made.set(A_CONST_VALUE, value).in(0, builder.input(1 - side));
            builder.replaceOutput(A_PRIM_WIRE_OUT, made);
            builder.done();
        });
        return true;
    }
    return false;
}

bool ConstMultPass::Run::replaceByZero(const Candidate &candidate) {
    Block &block = *candidate.block;
    Context *context = block.getContext();
    const auto isZero = [&](int side) {
        const auto inAll = [&](auto holds) {
            return std::all_of(candidate.types.begin(), candidate.types.end(), holds);
        };
        if (isConstantMultiplier(block)) {
            const NumberValueRef value = numberVR(block.getParam(A_CONST_VALUE));
            return side == 1 && inAll([&](const ProductTypes &types) { return isZeroIn(*value, types.operands[1]); });
        }
        const Wire &wire = *block.getPort(NumberValue::get(side, context))->peekWire();
        return inAll([&](const ProductTypes &types) {
            NumberValueRef value;
            return internal::isConstMult(wire, types.operands[side], types.operands[1 - side], types.out, value,
                                         false) &&
                   isZeroIn(*value, types.operands[side]);
        });
    };
    const PureValueRef type = candidate.types.front().outValue;
    const bool isOneType = std::all_of(candidate.types.begin(), candidate.types.end(),
                                       [&](const ProductTypes &types) { return types.outValue == type; });
    if (!isOneType || !(isZero(0) || isZero(1))) {
        return false;
    }
    rewrite(block, [&] {
        const internal::BlockBuilder builder(block);
        const internal::MadeBlock made = builder.make(A_CONST_BLOCK, "const");
        made.copy(block, {&A_FOLDING_KERNEL_TAG}).set(A_CONST_VALUE, 0).set(A_CONST_TYPE, type);
        builder.replaceOutput(A_PRIM_WIRE_OUT, made);
        builder.done();
    });
    return true;
}

const ModelFacts &ConstMultPass::Run::factsFor(const Model &model) {
    const auto hit = mFacts.find(&model);
    return hit != mFacts.end() ? hit->second : mFacts.emplace(&model, factsOf(model)).first->second;
}

bool ConstMultPass::Run::paysIn(const Question &question, const ModelFacts &facts) {
    const PureValueRef key = question.key(facts);
    auto hit = mCosts.find(key);
    if (hit == mCosts.end()) {
        hit = mCosts.emplace(key, question.ask(facts, mHelper)).first;
    }
    return pays(hit->second, facts.lutsPerMultiplier);
}

/// One drawing serves all instances: the form has to pay in each.
void ConstMultPass::Run::chooseForm(const Candidate &candidate, bool isForced) {
    Block &block = *candidate.block;
    Context *context = block.getContext();
    if (block.findParam(A_MULT_OPTIMIZE_CONST_BEFORE_TILING) == A_TRUE.get_ptr()) {
        return;
    }
    for (int side = 1; side >= 0; --side) {
        const Block *constant = &block;
        if (!isConstantMultiplier(block)) {
            const Wire &wire = *block.getPort(NumberValue::get(side, context))->peekWire();
            const ProductTypes &types = candidate.types.front();
            NumberValueRef value;
            if (!internal::isConstMult(wire, types.operands[side], types.operands[1 - side], types.out, value, false) ||
                value->isSpecial()) {
                continue;
            }
            constant = &wire.getBlock();
        }
        const auto paysHere = [&](const ProductTypes &types) {
            return paysIn({constant, &block, types.operands[side], types.operands[1 - side], types.outValue},
                          factsFor(block.getModel()));
        };
        if (isForced || std::all_of(candidate.types.begin(), candidate.types.end(), paysHere)) {
            block.setParam(A_MULT_OPTIMIZE_CONST_BEFORE_TILING, A_TRUE);
        }
        return;
    }
}

void ConstMultPass::Run::apply(Model &model, bool movesMetadata) {
    const auto candidates = mCandidates.find(&model);
    if (candidates == mCandidates.end()) {
        return;
    }
    mMovesMetadata = movesMetadata;
    mPoints.emplace(mContext, model, &mHeld);
    for (const Candidate &candidate : candidates->second) {
        const Value *architecture = candidate.block->findParam(A_MULT_ARCHITECTURE);
        const bool keepsMultiplier = architecture == A_MULT_ARCH_CONST_DSP.get_ptr();
        const bool isForced =
            architecture == A_MULT_ARCH_CONST_LUT.get_ptr() || architecture == A_MULT_ARCH_LOGIC.get_ptr();
        if (candidate.types.front().out.isFloat()) {
            if (!isConstantMultiplier(*candidate.block) && !keepsMultiplier) {
                convertFloat(candidate, isForced);
            }
        } else if (!replaceByZero(candidate) && !keepsMultiplier) {
            chooseForm(candidate, isForced);
        }
    }
    mPoints.reset();
    mCandidates.erase(candidates);
}

ConstMultPass::ConstMultPass() = default;

ConstMultPass::~ConstMultPass() = default;

void ConstMultPass::unbindEvents() {
    // A run that an exception ended must not outlive its design.
    mRun.reset();
}

void ConstMultPass::declare(PassDeclarations &declarations) {
    declarations.requirePass(GlobalTypePass::sName);
    declarations.requirePass(ModelTreePass::sName);
}

unsigned int ConstMultPass::nextAction(PassContext &, unsigned int iteration) {
    return iteration == 0 ? ACTION_ANALYZE : iteration == 1 ? ACTION_APPLY : ACTION_DONE;
}

void ConstMultPass::before(PassContext &context) { mRun = std::make_unique<Run>(*this, context); }

void ConstMultPass::analyze(ModelPassContext &context) { mRun->analyze(context.getModel()); }

void ConstMultPass::apply(ModelPassContext &context) { mRun->apply(context.getModel(), useMetadataTransferListener()); }

void ConstMultPass::after(PassContext &) {
    mRun->settle();
    mRun.reset();
}

} // namespace orvo
