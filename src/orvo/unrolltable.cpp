// The rows of all kinds of compound signals side by side.
#include <orvo/unrolling.h>

#include "orvo/aggregateunrollers.h"
#include "orvo/complexunrollers.h"
#include "orvo/vectorunrollers.h"

#include <orvo/corevalues.h>
#include <orvo/nonsblocks.h>
#include <orvo/staticstrings.h>

#include <string_view>
#include <unordered_map>

namespace orvo {

namespace {

using Table = std::unordered_map<std::string_view, UnrollFates>;

template <class Row> bool comesApart(const Row &row) { return row.handler != nullptr; }

template <class Row> void enter(Table &table, std::span<const Row> rows, UnrollFate UnrollFates::*kind) {
    for (const Row &row : rows) {
        table[row.blockType->text()].*kind = {comesApart(row), row.summary};
    }
}

/// A variant for regions without scheduling comes apart as its plain type does.
class VariantFates final : public Linker {
  public:
    explicit VariantFates(Table &table) : mTable(table) {}
    void operator()(const ValueRef &variant, const ValueRef &plain) override {
        const auto own = mTable.find(textOf(plain));
        if (own == mTable.end()) {
            return;
        }
        const UnrollFates fates = own->second;
        UnrollFates &of = mTable[textOf(variant)];
        for (const auto kind : {&UnrollFates::records, &UnrollFates::vectors, &UnrollFates::complexNumbers}) {
            if ((of.*kind).summary == nullptr) {
                of.*kind = fates.*kind;
            }
        }
    }

  private:
    static std::string_view textOf(const ValueRef &type) {
        return static_cast<const StringValue *>(type.get_ptr())->str();
    }

    Table &mTable;
};

const Table &table() {
    static const Table made = [] {
        Table all;
        enter(all, internal::aggregateUnrollRows(), &UnrollFates::records);
        enter(all, internal::vectorUnrollRows(), &UnrollFates::vectors);
        enter(all, internal::complexUnrollRows(), &UnrollFates::complexNumbers);
        VariantFates variants(all);
        mapNONSBlocks(variants);
        return all;
    }();
    return made;
}

} // namespace

UnrollFates unrollFates(const Value *blockType) {
    if (blockType == nullptr || blockType->kind() != CoreType::String) {
        return {};
    }
    const auto found = table().find(static_cast<const StringValue *>(blockType)->str());
    return found == table().end() ? UnrollFates() : found->second;
}

} // namespace orvo
