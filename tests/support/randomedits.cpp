// Random edits of a design.
#include "support/randomedits.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <iterator>

namespace orvo::test {

namespace {

constexpr const char *kTexts[] = {"a",
                                  "b",
                                  "7",
                                  "0",
                                  "1",
                                  "(a 1)",
                                  "(dupName 0 a)",
                                  "\"with blank\"",
                                  "\"<&>\\\"'\"",
                                  "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\"",
                                  "\"line\nbreak\ttab\"",
                                  "blockType",
                                  "0x8p-4",
                                  "((a b) (a b) (a b) (a b) 1)",
                                  "-zero"};

/// Draws small numbers out of one.
class Draw {
  public:
    explicit Draw(std::uint32_t bits) : mBits(bits) {}
    std::size_t below(std::size_t bound) {
        mBits = mBits * 1664525U + 1013904223U;
        return static_cast<std::size_t>(mBits >> 8) % bound;
    }

  private:
    std::uint32_t mBits;
};

class Editor {
  public:
    Editor(Design &design, std::uint32_t bits) : mDesign(design), mDraw(bits) {}

    void edit() {
        switch (mDraw.below(14)) {
        case 0:
            Model::create(mDesign, name());
            break;
        case 1:
        case 2:
            onModel([&](Model &model) { Block::create(model, name()); });
            break;
        case 3:
            onBlock([&](Block &block) { Wire::create(block, name()); });
            break;
        case 4:
            onBlock([&](Block &block) { delete &block; });
            break;
        case 5:
            onWire([&](Wire &wire) { delete &wire; });
            break;
        case 6:
            onBlock([&](Block &block) { block.setName(name()); });
            break;
        case 7:
        case 8:
            onBlock(
                [&](Block &block) { onWireOf(block.getModel(), [&](Wire &wire) { block.setParam(name(), wire); }); });
            break;
        case 9:
            onBlock([&](Block &block) { block.setParam(name(), mDraw.below(4) == 0 ? ValueRef() : ValueRef(name())); });
            break;
        case 10:
            onBlock([&](Block &block) {
                block.setParam(A_BLOCK_TYPE, mDraw.below(2) == 0 ? ValueRef(A_MODEL_BLOCK) : ValueRef(A_ADD_BLOCK));
            });
            break;
        case 11:
            onBlock([&](Block &block) { onModel([&](Model &model) { block.setParam(A_MODEL_NODE, model); }); });
            break;
        case 12:
            onWire(
                [&](Wire &wire) { onWireOf(wire.getBlock().getModel(), [&](Wire &other) { wire.replace(other); }); });
            break;
        default:
            editWhole();
            break;
        }
    }

  private:
    void editWhole() {
        onModel([&](Model &model) {
            switch (mDraw.below(5)) {
            case 0:
                delete &model;
                break;
            case 1:
                model.setName(name());
                break;
            case 2:
                model.setParam(name(), ValueRef(name()));
                break;
            case 3:
                if (mDesign.size() < 12 && model.size() < 30) {
                    OrvoUtils::cloneModel(mDesign, model);
                }
                break;
            default:
                onWire([&](Wire &wire) { wire.setParam(name(), ValueRef(name())); });
                break;
            }
        });
    }

    PureValueRef name() { return pureVR(Value::parse(kTexts[mDraw.below(std::size(kTexts))], mDesign.getContext())); }
    template <class Edit> void onModel(Edit edit) {
        if (mDesign.size() != 0) {
            edit(*std::next(mDesign.begin(), static_cast<std::ptrdiff_t>(mDraw.below(mDesign.size()))));
        }
    }
    template <class Edit> void onBlockOf(Model &model, Edit edit) {
        if (model.size() != 0) {
            edit(*std::next(model.begin(), static_cast<std::ptrdiff_t>(mDraw.below(model.size()))));
        }
    }
    template <class Edit> void onBlock(Edit edit) {
        onModel([&](Model &model) { onBlockOf(model, edit); });
    }
    /// Connections stay inside a model, as those of a design do.
    template <class Edit> void onWireOf(Model &model, Edit edit) {
        onBlockOf(model, [&](Block &block) {
            if (block.getWireCount() != 0) {
                edit(*std::next(block.begin(), static_cast<std::ptrdiff_t>(mDraw.below(block.getWireCount()))));
            }
        });
    }
    template <class Edit> void onWire(Edit edit) {
        onModel([&](Model &model) { onWireOf(model, edit); });
    }

    Design &mDesign;
    Draw mDraw;
};

} // namespace

void applyEdits(Design &design, const std::vector<std::uint32_t> &edits) {
    for (std::uint32_t bits : edits) {
        Editor(design, bits).edit();
    }
}

} // namespace orvo::test
