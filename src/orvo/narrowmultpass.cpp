// Multipliers that are wider than what they multiply. The values at both ends stay; the widening casts lose a reader
// and are left to the dead-block passes.
#include "orvo/narrowmultpass.h"

#include "orvo/domainedges.h"
#include "orvo/unrollpasses.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <util/features.h>

#include <algorithm>
#include <utility>

namespace orvo {

ORVO_DEFINE_PASS(NarrowMultPass,
                 "Where a multiplier's operands are signed integers that were widened from narrower ones, and a cast "
                 "cuts the product to their width or less, the multiplier reads the narrow ones. The feature "
                 "skip_NarrowMultPass leaves the pass out.")

PatternInfo::~PatternInfo() = default;

Pattern::~Pattern() = default;

namespace {

/// The two numbered ports of a block; null for one that has others.
std::array<const Port *, 2> operandsOf(const Block &block) {
    Context *context = block.getContext();
    if (block.getPortCount() != 2) {
        return {nullptr, nullptr};
    }
    return {block.getPort(NumberValue::get(0, context)), block.getPort(NumberValue::get(1, context))};
}

bool isOrAbsent(const Block &block, const StaticString &key, const StaticString &value) {
    const Value *found = block.findParam(key);
    return found == nullptr || found == value.get_ptr();
}

/// Types of one instance.
class Integers {
  public:
    Integers(GlobalTypePass &types, const RefChain &refChain) : mTypes(types), mRefChain(refChain) {}

    /// The type of a real integer of a bit or more; invalid for anything else.
    template <class End> NumTypeSpec of(const End &end) const {
        NumTypeSpec type(mTypes.getType(end, mRefChain), end.getContext());
        const bool isInteger = type.isFixed() && type.isReal() && !type.isVector() && type.fracBits() == 0;
        return isInteger && type.fixedBits() >= 1 ? type : NumTypeSpec();
    }

  private:
    GlobalTypePass &mTypes;
    const RefChain &mRefChain;
};

NumTypeSpec typeOfPort(const Integers &integers, const Port &port) { return integers.of(*port.peekWire()); }

/// Whether the block can widen an integer at all: a cast by value, or a selection of all bits and more, which extends
/// by the sign.
bool mayWiden(const Wire &wire) {
    const Block &block = wire.getBlock();
    if (!(wire.getName() == A_PRIM_WIRE_OUT) || block.getPortCount() != 1) {
        return false;
    }
    if (block.type() == A_CAST_BLOCK.get_ptr()) {
        return isOrAbsent(block, A_CAST_MODE, A_CAST_MODE_CONVERT);
    }
    if (block.type() != A_BIT_SELECT_BLOCK.get_ptr()) {
        return false;
    }
    const NumberValueRef offset = numberVR(block.getParam(A_BIT_SELECT_BIT_OFFSET));
    return !offset || (offset->isInt() && offset->toInt() == 0);
}

/// What reads a narrower integer and gives the same value, one behind the other. They end, for each is narrower than
/// the one before.
IntMultPatternInfo::Widening wideningOf(const Port &operand, const Integers &integers) {
    IntMultPatternInfo::Widening widening;
    const Wire *wire = operand.peekWire();
    while (mayWiden(*wire)) {
        const Block &block = wire->getBlock();
        const Port *port = block.getPort(NumberValue::get(0, block.getContext()));
        const NumTypeSpec wide = integers.of(*wire);
        const NumTypeSpec narrow = port == nullptr ? NumTypeSpec() : typeOfPort(integers, *port);
        const bool keepsValue = wide.valid() && narrow.valid() && narrow.fixedBits() < wide.fixedBits() &&
                                (wide.isSigned() || !narrow.isSigned());
        if (!keepsValue) {
            break;
        }
        widening.push_back(const_cast<Block *>(&block));
        wire = port->peekWire();
    }
    return widening;
}

const Wire &sourceOf(const Port &operand, const IntMultPatternInfo::Widening &widening) {
    return widening.empty() ? *operand.peekWire() : *widening.back()->port_begin()->peekWire();
}

/// Whether the one reader of the product keeps no more than so many of its low bits, as a signed integer.
bool isCut(const Wire &product, int bits, const Integers &integers) {
    if (product.port_size() != 1) {
        return false;
    }
    const Block &cast = product.lastPort()->getBlock();
    const Wire *out = cast.getWire(A_PRIM_WIRE_OUT);
    if (cast.type() != A_CAST_BLOCK.get_ptr() || out == nullptr ||
        !isOrAbsent(cast, A_CAST_MODE, A_CAST_MODE_CONVERT) ||
        !isOrAbsent(cast, A_CAST_ROUNDING_MODE, A_ROUNDING_TRUNC) ||
        !isOrAbsent(cast, A_CAST_SATURATE_MODE, A_SATURATE_NONE)) {
        return false;
    }
    // Without a type of its own a cast passes on the one that is about to change.
    const NumTypeSpec given(cast.getParam(A_CAST_OUTPUT_TYPE), cast.getContext());
    const NumTypeSpec type = integers.of(*out);
    return given.valid() && type.valid() && type.isSigned() && type.intBits() <= bits;
}

} // namespace

std::unique_ptr<PatternInfo> IntMultPattern::check(Block &block, GlobalTypePass &types,
                                                   const RefChain &refChain) const {
    const Wire *product = block.getWire(A_PRIM_WIRE_OUT);
    const auto operands = operandsOf(block);
    if (block.type() != A_MULT_BLOCK.get_ptr() || product == nullptr || operands[0] == nullptr ||
        operands[1] == nullptr) {
        return nullptr;
    }
    const Integers integers(types, refChain);
    const NumTypeSpec out = integers.of(*product);
    const NumTypeSpec a = typeOfPort(integers, *operands[0]);
    const NumTypeSpec b = typeOfPort(integers, *operands[1]);
    const bool areSigned = out.isSigned() && a.isSigned() && b.isSigned();
    if (!areSigned || a.intBits() != b.intBits() || !isCut(*product, a.intBits(), integers)) {
        return nullptr;
    }
    std::array<IntMultPatternInfo::Widening, 2> widenings{wideningOf(*operands[0], integers),
                                                          wideningOf(*operands[1], integers)};
    if (widenings[0].empty() && widenings[1].empty()) {
        return nullptr;
    }
    const NumTypeSpec narrow = NumTypeSpec::typeOp(integers.of(sourceOf(*operands[0], widenings[0])),
                                                   integers.of(sourceOf(*operands[1], widenings[1])), TYPE_OP_MUL);
    return std::make_unique<IntMultPatternInfo>(block, std::move(widenings), narrow.fixedBits() < out.fixedBits());
}

IntMultPatternInfo::IntMultPatternInfo(Block &mult, std::array<Widening, 2> widenings, bool isFull)
    : mMult(mult), mWidenings(std::move(widenings)), mIsFull(isFull) {}

void IntMultPatternInfo::substitute() {
    for (int i = 0; i < 2; ++i) {
        const Widening &widening = mWidenings[static_cast<std::size_t>(i)];
        if (!widening.empty()) {
            Wire &source = *widening.back()->port_begin()->getWire();
            mMult.setParam(NumberValue::get(i, mMult.getContext()), source);
        }
    }
    if (mIsFull) {
        mMult.setParam(A_MULT_TYPE, ValueRef());
    }
    for (const Widening &widening : mWidenings) {
        // What only the multiplier needed is dead now, from there on backwards: its metadata go where its work went.
        std::size_t readers = 0;
        for (Block *gone : widening) {
            std::size_t all = 0;
            for (const Wire &wire : *gone) {
                all += wire.port_size();
            }
            if (all != readers) {
                break;
            }
            MetadataManipulator(mMult).appendFrom(MetadataManipulator(*gone).getTuple(), true);
            readers = 1;
        }
    }
}

bool IntMultPatternInfo::agrees(const PatternInfo &other) const {
    const auto *same = dynamic_cast<const IntMultPatternInfo *>(&other);
    return same != nullptr && &mMult == &same->mMult && mWidenings == same->mWidenings && mIsFull == same->mIsFull;
}

std::vector<const Block *> IntMultPatternInfo::bypassed() const {
    std::vector<const Block *> blocks(mWidenings[0].begin(), mWidenings[0].end());
    blocks.insert(blocks.end(), mWidenings[1].begin(), mWidenings[1].end());
    return blocks;
}

NarrowMultPass::NarrowMultPass() { mPatterns.push_back(std::make_unique<IntMultPattern>()); }

NarrowMultPass::~NarrowMultPass() = default;

void NarrowMultPass::declare(PassDeclarations &declarations) {
    declarations.requirePass(GlobalTypePass::sName);
    declarations.requirePass(ModelTreePass::sName);
}

/// Null unless the same can be done in all instances.
std::unique_ptr<PatternInfo> NarrowMultPass::infoOf(Block &block, GlobalTypePass &types,
                                                    const std::vector<RefChain> &instances) const {
    for (const auto &pattern : mPatterns) {
        std::unique_ptr<PatternInfo> info = pattern->check(block, types, instances.front());
        const bool holds =
            info != nullptr && std::all_of(instances.begin() + 1, instances.end(), [&](const auto &other) {
                const std::unique_ptr<PatternInfo> same = pattern->check(block, types, other);
                return same != nullptr && info->agrees(*same);
            });
        if (holds) {
            return info;
        }
    }
    return nullptr;
}

/// All questions about types before the first edit, so that they are inferred once. A match stays one whatever the
/// others change: the values of all signals stay, and so do the types of all but the products.
void NarrowMultPass::before(PassContext &context) {
    if (util::GetFeatureBooleanWithDefault("skip_NarrowMultPass", false)) {
        return;
    }
    GlobalTypePass &types = internal::unrolledTypes(context);
    internal::DistinctInstances distinct(internal::unrolledTree(context), types);
    for (Model &model : context.getDesign()) {
        if (!isApplicable(model)) {
            continue;
        }
        const internal::DomainEdgeBlocks edged(model);
        // Whoever goes past a point would leave out a constraint or the edge of a domain.
        const auto hasPoints = [&](const Block *block) {
            return internal::hasReferencePoints(*block) || edged.has(*block);
        };
        std::vector<RefChain> instances;
        for (Block &block : model) {
            if (block.type() != A_MULT_BLOCK.get_ptr()) {
                continue;
            }
            if (instances.empty()) {
                instances = distinct.of(model);
            }
            std::unique_ptr<PatternInfo> info = infoOf(block, types, instances);
            const std::vector<const Block *> bypassed =
                info == nullptr ? std::vector<const Block *>() : info->bypassed();
            if (info != nullptr && std::none_of(bypassed.begin(), bypassed.end(), hasPoints)) {
                mFound[&model].push_back(std::move(info));
            }
        }
    }
}

void NarrowMultPass::apply(ModelPassContext &context) {
    if (const auto found = mFound.find(&context.getModel()); found != mFound.end()) {
        for (const std::unique_ptr<PatternInfo> &info : found->second) {
            info->substitute();
        }
    }
}

void NarrowMultPass::after(PassContext &) { mFound.clear(); }

} // namespace orvo
