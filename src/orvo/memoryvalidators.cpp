// The checks of memories and tables against their addresses.
#include "orvo/modelvalidators.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <algorithm>
#include <cstddef>

namespace orvo {

namespace {

using internal::TypesOfModel;

/// The entries that an address may choose among. Of a rolled content each lane or part has a table, and the longest
/// counts. What is no table has none.
std::size_t getDataSize(const ValueRef &data) {
    const TupleValueRef tuple = tupleVR(data);
    if (!tuple) {
        return 0;
    }
    const ValueRef tag = tuple->maybeAt(0);
    if (!(tag == A_VECTOR_ROLL_TAG) && !(tag == A_COMPLEX_ROLL_TAG)) {
        return tuple->size();
    }
    std::size_t longest = 0;
    for (std::size_t i = 1; i < tuple->size(); ++i) {
        longest = std::max(longest, getDataSize(tuple->at(i)));
    }
    return longest;
}

struct MemorySide {
    int number;
    const StaticString &depth;
    const StaticString &address;
};

/// 0 if nothing tells it.
unsigned int depthOf(const Block &block, const MemorySide &side) {
    const ValueRef value = block.getParam(side.depth);
    if (!value) {
        const std::size_t size = getDataSize(block.getParam(A_DUAL_MEM_DATA));
        return static_cast<unsigned int>(std::min(size, std::size_t{1} << 31U));
    }
    const NumberValueRef depth = numberVR(value);
    return depth && depth->isInt() && depth->toInt() > 0 ? static_cast<unsigned int>(depth->toInt()) : 0;
}

void checkSide(const Block &block, const MemorySide &side, const TypesOfModel &types) {
    const Port *address = block.getPort(side.address);
    const unsigned int depth = depthOf(block, side);
    if (address == nullptr || depth == 0) {
        return;
    }
    const int bits = addrWidth(depth);
    const auto differs = [&](auto compare) {
        return types.any(*address, [&](const PureValueRef &type) {
            const NumTypeSpec spec(type, block.getContext());
            return spec.isFixed() && compare(spec.intBits(), bits);
        });
    };
    const log::LogParams params = log::p("block", block.value()) % log::p("addr", side.number) % log::p("bits", bits);
    if (differs(std::greater<>())) {
        log::msg(msg::warning::DUALMEM_ADDRESS_TRUNCATION, params);
    }
    if (differs(std::less<>())) {
        log::msg(msg::warning::DUALMEM_ADDRESS_ZEROPAD, params);
    }
}

/// Whether a table has more entries than an address of so many bits can choose among.
bool exceeds(std::size_t entries, int addressBits) {
    constexpr int kMostBits = 63;
    return addressBits < kMostBits && entries > std::size_t{1} << static_cast<unsigned int>(std::max(addressBits, 0));
}

} // namespace

void DualMemAddrValidator::validate(ModelPassContext &context) {
    const TypesOfModel types = facts().typesOf(context);
    for (const Block &block : context.getModel()) {
        if (block.type() != A_DUAL_MEM_BLOCK.get_ptr()) {
            continue;
        }
        checkSide(block, {1, A_DUAL_MEM_DEPTH1, A_DUAL_MEM_PORT_ADDR1}, types);
        checkSide(block, {2, A_DUAL_MEM_DEPTH2, A_DUAL_MEM_PORT_ADDR2}, types);
    }
}

void LookupTableValidator::validate(ModelPassContext &context) {
    const TypesOfModel types = facts().typesOf(context);
    for (const Block &block : context.getModel()) {
        const Port *address = block.type() == A_LUT_BLOCK.get_ptr() ? block.getPort(A_LUT_PORT_ADDR) : nullptr;
        if (address == nullptr) {
            continue;
        }
        const std::size_t dataSize = getDataSize(block.getParam(A_LUT_DATA));
        int width = 0;
        const auto isTooShort = [&](const PureValueRef &type) {
            const NumTypeSpec spec(type, block.getContext());
            width = spec.fixedBits();
            return spec.isFixed() && exceeds(dataSize, width);
        };
        if (types.any(*address, isTooShort)) {
            log::msg(msg::warning::LUT_INIT_EXCEEDS_ADDRESS_SPACE,
                     log::p("dataSize", dataSize) % log::p("addrWidth", width) % log::p("block", block.value()));
        }
    }
}

} // namespace orvo
