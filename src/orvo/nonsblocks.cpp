// The pairs of plain block types and their variants for regions without scheduling.
#include <orvo/nonsblocks.h>

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/context.h>
#include <orvo/staticstrings.h>

#include <algorithm>
#include <array>

namespace orvo {

namespace {

struct Pair {
    const StaticString *variant;
    const StaticString *plain;
};

#define ORVO_PAIR(NAME)                                                                                                \
    Pair { &U_##NAME##_BLOCK, &A_##NAME##_BLOCK }
constexpr Pair kPairs[] = {
    ORVO_PAIR(REGISTER),    ORVO_PAIR(ADD),       ORVO_PAIR(SUB),        ORVO_PAIR(AND),         ORVO_PAIR(OR),
    ORVO_PAIR(NOT),         ORVO_PAIR(XOR),       ORVO_PAIR(NAND),       ORVO_PAIR(NOR),         ORVO_PAIR(XNOR),
    ORVO_PAIR(AND_REDUCE),  ORVO_PAIR(OR_REDUCE), ORVO_PAIR(XOR_REDUCE), ORVO_PAIR(NAND_REDUCE), ORVO_PAIR(NOR_REDUCE),
    ORVO_PAIR(XNOR_REDUCE), ORVO_PAIR(CAST),      ORVO_PAIR(CMP_EQ),     ORVO_PAIR(CMP_NE),      ORVO_PAIR(CMP_LT),
    ORVO_PAIR(CMP_GE),      ORVO_PAIR(MUX),       ORVO_PAIR(BIT_SELECT), ORVO_PAIR(BIT_JOIN),    ORVO_PAIR(LUT),
    ORVO_PAIR(FOR_LOOP),
};
#undef ORVO_PAIR

/// Types that do no work in a region and may stand at its edges.
constexpr const StaticString *kWorkFree[] = {
    &A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK,
    &A_TYPE_PIN_BLOCK,   &A_SELECT_BLOCK,      &A_ECC_SINK_BLOCK,  &A_ECC_SRC_BLOCK,
};

class NONSMapper final : public Linker {
  public:
    using Relation = std::map<ValueRefBase<const Value>, ValueRefBase<const Value>>;
    explicit NONSMapper(Relation &partners) : mPartners(partners) {}
    void operator()(const ValueRef &variant, const ValueRef &plain) override {
        mPartners[variant] = plain;
        mPartners[plain] = variant;
    }

  private:
    Relation &mPartners;
};

bool castSupportsNONS(const Block &block) {
    if (block[A_CAST_MODE] == A_CAST_MODE_REINTERP) {
        return true;
    }
    bool truncates = !block[A_CAST_ROUNDING_MODE] || block[A_CAST_ROUNDING_MODE] == A_ROUNDING_TRUNC;
    return truncates && block[A_CAST_SATURATE_MODE] == A_SATURATE_NONE;
}

} // namespace

Linker::~Linker() = default;

void mapNONSBlocks(Linker &linker) {
    for (const Pair &pair : kPairs) {
        linker(ValueRef(*pair.variant), ValueRef(*pair.plain));
    }
}

HandlerLinker::HandlerLinker(Context *context, std::list<const std::type_info *> interfaces)
    : mContext(context), mInterfaces(std::move(interfaces)) {}

void HandlerLinker::operator()(const ValueRef &variant, const ValueRef &plain) {
    mContext->getBlockClass(variant)->copyHandlersFrom(mInterfaces, *mContext->getBlockClass(plain));
}

NONSBlockMap::NONSBlockMap() : mPartners(std::make_unique<Relation>()) {}

NONSBlockMap::~NONSBlockMap() = default;

void NONSBlockMap::populate() {
    NONSMapper mapper(*mPartners);
    mapNONSBlocks(mapper);
}

ValueRefBase<const Value> NONSBlockMap::lookup(const ValueRefBase<const Value> &type) const {
    auto hit = mPartners->find(type);
    return hit == mPartners->end() ? ValueRefBase<const Value>() : hit->second;
}

bool NONSBlockMap::blockSupportsNONS(const Block &block, bool workOnly) const {
    const Value *type = block.type();
    if (type == A_CAST_BLOCK.get_ptr()) {
        return castSupportsNONS(block);
    }
    if (lookup(FromPtr<const Value>(type))) {
        return true;
    }
    return !workOnly && std::any_of(std::begin(kWorkFree), std::end(kWorkFree),
                                    [type](const StaticString *free) { return free->get_ptr() == type; });
}

int NONSBlockMap::latencyOfNONSBlock(const Block &block) const {
    return lookup(FromPtr<const Value>(block.type())) == A_REGISTER_BLOCK ? 1 : 0;
}

} // namespace orvo
