// Measures the way to primitives: a typed design of sums, products, casts, extremes and registers is loaded, its types
// are inferred, and the passes of the preset run one by one, with what each makes of the number of blocks.
#include "measure.h"

#include "driver/pipeline.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <util/random.h>

#include <fmt/format.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

constexpr std::size_t kColumns = 64;

/// Rows of operations on numbers of one type; what an operation adds in width, a cast takes away again.
class Rows {
  public:
    Rows(Design &design, std::size_t blocks)
        : mContext(design.getContext()), mTop(*Model::create(design, "top")), mBlocks(blocks) {
        mTop.setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
    }

    void make() {
        Block &in = *Block::create(mTop, "in", A_INPUT_BLOCK);
        for (std::size_t i = 0; i < kColumns; ++i) {
            Block &pin = *Block::create(mTop, fmt::format("pin{:02}", i), A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, type());
            pin.setParam(number(0), *Wire::create(in, fmt::format("x{:02}", i)));
            mRow.push_back(Wire::create(pin, number(0)));
        }
        mMade = 2 * kColumns;
        while (mMade < mBlocks) {
            std::vector<Wire *> next;
            for (std::size_t i = 0; i < kColumns; ++i) {
                next.push_back(&operation(*mRow[i], *mRow[(i + 1 + mRandom.below(4)) % kColumns]));
            }
            mRow = next;
        }
        Block &out = *Block::create(mTop, "out", A_OUTPUT_BLOCK);
        for (std::size_t i = 0; i < kColumns; ++i) {
            out.setParam(StringValue::get(fmt::format("y{:02}", i), mContext), *mRow[i]);
        }
    }

  private:
    using Params = std::initializer_list<std::pair<PureValueRef, ValueRef>>;

    PureValueRef number(long value) const { return NumberValue::get(value, mContext); }
    PureValueRef type() const { return NumTypeSpec::sfixed(8, 8).toValue(mContext); }
    Wire &make(const char *stem, const StaticString &blockType, Params params) {
        Block &block = *Block::create(mTop, fmt::format("{}{:07}", stem, mMade++), blockType);
        for (const auto &[key, value] : params) {
            block.setParam(key, value);
        }
        return *Wire::create(block, A_PRIM_WIRE_OUT);
    }
    Wire &cast(Wire &wire, const StaticString &rounding, const StaticString &saturation) {
        return make("cast", A_CAST_BLOCK,
                    {{number(0), wire.value()},
                     {A_CAST_MODE, A_CAST_MODE_CONVERT},
                     {A_CAST_ROUNDING_MODE, rounding},
                     {A_CAST_SATURATE_MODE, saturation},
                     {A_CAST_OUTPUT_TYPE, type()}});
    }
    Wire &binary(const char *stem, const StaticString &blockType, Wire &a, Wire &b) {
        return make(stem, blockType, {{number(0), a.value()}, {number(1), b.value()}, {A_ADD_NO_GROWTH, A_TRUE}});
    }
    Wire &constant() {
        const NumberValueRef value = NumberValue::get(static_cast<long>(1 + mRandom.below(99)), mContext);
        return make("const", A_CONST_BLOCK, {{A_CONST_TYPE, type()}, {A_CONST_VALUE, value}});
    }
    /// Of a hundred.
    Wire &operation(Wire &a, Wire &b) {
        const std::uint64_t dice = mRandom.below(100);
        if (dice < 40) {
            return binary("sum", dice < 20 ? A_ADD_BLOCK : A_SUB_BLOCK, a, b);
        }
        if (dice < 60) {
            return binary("logic", dice < 50 ? A_AND_BLOCK : A_OR_BLOCK, a, b);
        }
        if (dice < 78) {
            return make("reg", A_REGISTER_BLOCK, {{number(0), a.value()}});
        }
        if (dice < 84) {
            return binary("extreme", dice < 81 ? A_MIN_BLOCK : A_MAX_BLOCK, a, b);
        }
        if (dice < 92) {
            Wire &product = make("product", A_MULT_BLOCK, {{number(0), a.value()}, {number(1), b.value()}});
            return cast(product, A_ROUNDING_TRUNC, A_SATURATE_NONE);
        }
        if (dice < 98) {
            Wire &product = make("scaled", A_MULT_BLOCK, {{number(0), a.value()}, {number(1), constant().value()}});
            return cast(product, A_ROUNDING_TRUNC, A_SATURATE_NONE);
        }
        Wire &sum = make("grown", A_ADD_BLOCK, {{number(0), a.value()}, {number(1), b.value()}});
        return cast(sum, A_ROUNDING_BIASED, A_SATURATE_ASYM);
    }

    Context *mContext;
    Model &mTop;
    std::size_t mBlocks;
    std::size_t mMade = 0;
    std::vector<Wire *> mRow;
    util::SplitMix mRandom{1};
};

std::size_t sizeOf(const Design &design) {
    std::size_t blocks = 0;
    for (const Model &model : design) {
        blocks += model.size();
    }
    return blocks;
}

std::vector<driver::PassText> passesOf(const std::string &name, Context *context) {
    std::ifstream file(driver::installedPipelines());
    std::stringstream text;
    text << file.rdbuf();
    std::vector<driver::Preset> presets;
    driver::parsePipelines(text.str(), context, presets);
    for (driver::Preset &preset : presets) {
        if (preset.name == name) {
            return std::move(preset.passes);
        }
    }
    std::fprintf(stderr, "there is no preset %s\n", name.c_str());
    std::exit(1);
}

/// Prints what each pass took and made.
class Watch final : public PassInstrumentation {
  public:
    explicit Watch(std::size_t blocks) : mBlocks(blocks) {}
    bool shouldRun(const PassExecution &, Design &) override { return true; }
    void beforePass(const PassExecution &, Design &) override { mBegan = cpuNow(); }
    void afterPass(const PassExecution &execution, Design &design, bool) override {
        const double taken = cpuNow() - mBegan;
        const std::size_t after = sizeOf(design);
        mSum += taken;
        std::printf("%-34s %9zu blocks %8.3f s %+10lld\n", execution.name.c_str(), after, taken,
                    static_cast<long long>(after) - static_cast<long long>(mBlocks));
        mBlocks = after;
    }
    double sum() const { return mSum; }

  private:
    std::size_t mBlocks;
    double mBegan = 0;
    double mSum = 0;
};

void run(const std::string &path, const std::string &preset) {
    ContextMgr context;
    Design design(context.context());
    const double loading = measure([&] {
                               std::ifstream file(path);
                               XMLServices().fromXML(file, design, XMLServices::defaultErrorFunc);
                           }).cpuSeconds;
    const std::size_t loaded = sizeOf(design);
    std::printf("%-34s %9zu blocks %8.3f s\n", "loading", loaded, loading);
    PassScheduler scheduler;
    driver::addPasses(scheduler, passesOf(preset, context.context()));
    Watch watch(loaded);
    scheduler.setInstrumentation(&watch);
    const PassResults results = scheduler.apply(design);
    std::printf("%-34s %9zu blocks %8.3f s, %.2f times the loading\n", "all passes", sizeOf(design), watch.sum(),
                watch.sum() / loading);
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t blocks = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000000;
    const std::string path = "/tmp/tool_primitives." + std::to_string(::getpid()) + ".xml";
    inChild([&] {
        ContextMgr context;
        Design design(context.context());
        Rows(design, blocks).make();
        std::ofstream file(path);
        XMLServices().toXML(file, design);
        return Figures();
    });
    run(path, argc > 2 ? argv[2] : "primitives");
    std::remove(path.c_str());
    return 0;
}
