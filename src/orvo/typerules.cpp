// The shared parts of type rules.
#include "orvo/typerules.h"

#include <orvo/context.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <unordered_map>

namespace orvo {

namespace internal {

void registerTypeRules(Context *context, std::span<const TypeRuleRow> rows) {
    for (const TypeRuleRow &row : rows) {
        row.registerIn(*context->getBlockClass(*row.blockType));
    }
}

void overrideType(NumTypeSpec &computed, NumTypeSpec type) {
    if (!type.valid()) {
        return;
    }
    type.stripVectors();
    type.setComplex(false);
    type.mergeDecors(computed);
    computed = std::move(type);
}

NumTypeSpec typeOfConstant(const Block &block) {
    const ValueRef value = block.getParam(A_CONST_VALUE);
    NumTypeSpec ofValue = NumTypeSpec::fromFixedValue(value, false);
    NumTypeSpec type(block.getParam(A_CONST_TYPE), block.getContext());
    if (!type.valid() && ofValue.valid()) {
        // 0.125 needs no integer bit, and then has none fewer.
        ofValue.setFixedBits(std::max(ofValue.intBits(), 0), std::max(ofValue.fracBits(), 0));
        return ofValue;
    }
    // A block that waits for its value has the type alone.
    if (type.valid() && value) {
        type.mergeDecors(ofValue);
    }
    return type;
}

namespace {

/// Puts an input above the bits that are there.
void joinBits(NumTypeSpec &all, const NumTypeSpec &part, bool isHighest) {
    all.mergeDecors(part);
    if (!all.valid()) {
        return;
    }
    if (part.fracBits() < 1) {
        all.setFixedBits(all.intBits() + part.intBits(), all.fracBits() + part.fracBits());
    } else {
        all.setFixedBits(part.intBits(), all.fixedBits() + part.fracBits());
    }
    const std::int64_t widest = std::max(std::abs(std::int64_t{all.intBits()}), std::abs(std::int64_t{all.fracBits()}));
    if (widest > NumTypeSpec::kMaxWidth) {
        all.invalidate();
        return;
    }
    if (isHighest) {
        all.setSigned(part.isSigned());
    }
}

void accumulate(NumTypeSpec &all, const NumTypeSpec &part, AccumMode mode, bool isHighest) {
    switch (mode) {
    case ACCUM_UNION:
    case ACCUM_UNION_FLOAT:
        all.applyOp(part, TYPE_OP_UNION);
        return;
    case ACCUM_COMMON:
        all.applyOp(part, TYPE_OP_COMMON);
        return;
    case ACCUM_ADD:
    case ACCUM_ADD_SIGNED:
        all.applyOp(part, TYPE_OP_ADD);
        return;
    case ACCUM_MUL:
        all.applyOp(part, TYPE_OP_MUL);
        return;
    case ACCUM_BITJOIN:
        joinBits(all, part, isHighest);
        return;
    }
}

} // namespace

NumTypeSpec AbstractPrimTypeHandler::accumInputs(TypeInferAPI &api, AccumMode mode, int *maxPort) {
    NumTypeSpec all;
    int highest = -1;
    bool failed = false;
    bool isFirst = true;
    forNumberedPorts(api.getBlock(), [&](int number, const Port &port) {
        const bool isHighest = number > highest;
        highest = isHighest ? number : highest;
        NumTypeSpec part(api.getConnectedType(port), contextOf(api));
        if (mode == ACCUM_UNION_FLOAT) {
            part.requireFloat();
        } else if (mode == ACCUM_BITJOIN) {
            part.requireFixed();
        }
        if (failed || !part.valid()) {
            failed = true;
            return;
        }
        if (isFirst) {
            all = std::move(part);
            isFirst = false;
        } else {
            accumulate(all, part, mode, isHighest);
        }
    });
    if (maxPort != nullptr) {
        *maxPort = highest;
    }
    if (failed) {
        return {};
    }
    if (mode == ACCUM_ADD_SIGNED) {
        all.setSigned(true);
    }
    return all;
}

} // namespace internal

const char *typeRuleSummary(const Value *blockType) {
    static const auto *summaries = [] {
        auto *made = new std::unordered_map<const Value *, const char *>;
        for (const auto rows : {internal::primTypeRules(), internal::mathTypeRules(), internal::memoryTypeRules(),
                                internal::commonTypeRules(), internal::miscTypeRules(), internal::ipTypeRules()}) {
            for (const internal::TypeRuleRow &row : rows) {
                made->emplace(row.blockType->get_ptr(), row.summary);
            }
        }
        return made;
    }();
    const auto at = summaries->find(blockType);
    return at == summaries->end() ? nullptr : at->second;
}

} // namespace orvo
