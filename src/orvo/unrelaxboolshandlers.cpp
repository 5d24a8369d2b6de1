// The table of the block types with conditions that a block may relax, by what their type rules read as conditions.
#include "orvo/unrelaxboolshandlers.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

namespace orvo::internal {

namespace {

constexpr std::size_t kMostKeys = 4;

struct Row {
    const StaticString *type;
    /// Null beyond the last.
    const StaticString *keys[kMostKeys];
    /// The one condition under a number, -1 for none.
    int number;
};

// clang-format off
constexpr Row kRows[] = {
    {&A_DEMUX_BLOCK,      {&A_PORT_VALID},                                                                                 -1},
    {&A_DECODE_BLOCK,     {&A_DECODE_PORT_WREN},                                                                           -1},
    {&A_DUAL_MEM_BLOCK,   {&A_DUAL_MEM_PORT_WRITE1_EN, &A_DUAL_MEM_PORT_READ1, &A_DUAL_MEM_PORT_WRITE2_EN, &A_DUAL_MEM_PORT_READ2}, -1},
    {&A_COUNTER_BLOCK,    {&A_PORT_ENABLE},                                                                                -1},
    {&A_LD_COUNTER_BLOCK, {&A_PORT_ENABLE},                                                                                 0},
    {&A_SEQUENCE_BLOCK,   {&A_PORT_ENABLE},                                                                                -1},
    {&A_REGISTER_BLOCK,   {&A_REGISTER_PORT_ENABLE},                                                                       -1},
    {&A_FIFO_BLOCK,       {&A_FIFO_PORT_WRITE_EN, &A_FIFO_PORT_READ_ACK, &A_FIFO_PORT_FLUSH},                              -1},
    {&A_FIFO_DELAY_BLOCK, {&A_PORT_WRITE, &A_PORT_READY},                                                                  -1},
    {&A_LOOP_BLOCK,       {&A_LOOP_PORT_GO, &A_LOOP_PORT_ENABLE},                                                          -1},
    {&A_FOR_LOOP_BLOCK,   {&A_LOOP_PORT_GO, &A_LOOP_PORT_ENABLE},                                                           2},
};
// clang-format on

class KeyedControls final : public UnrelaxBoolsHandler {
  public:
    explicit KeyedControls(const Row &row) : mRow(row) {}
    std::vector<PureValueRef> controlPorts(const Block &block) const override {
        std::vector<PureValueRef> keys;
        for (const StaticString *key : mRow.keys) {
            if (key != nullptr) {
                keys.emplace_back(*key);
            }
        }
        if (mRow.number >= 0) {
            keys.emplace_back(NumberValue::get(mRow.number, block.getContext()));
        }
        return keys;
    }

  private:
    const Row &mRow;
};

/// A select has as many cases as it has ports for them.
class SelectControls final : public UnrelaxBoolsHandler {
  public:
    std::vector<PureValueRef> controlPorts(const Block &block) const override {
        std::vector<PureValueRef> keys;
        for (const Port &port : block.ports()) {
            const PureTupleValueRef key = pureTupleVR(port.getName());
            if (key && key->size() == 2 && key->at(0) == A_SELECT_PORTKEY_CTRL) {
                keys.push_back(port.getName());
            }
        }
        return keys;
    }
};

} // namespace

void registerUnrelaxBoolsHandlers(Context *context) {
    for (const Row &row : kRows) {
        context->getBlockClass(*row.type)->registerHandler<UnrelaxBoolsHandler>(new KeyedControls(row));
    }
    context->getBlockClass(A_SELECT_BLOCK)->registerHandler<UnrelaxBoolsHandler>(new SelectControls);
}

} // namespace orvo::internal
