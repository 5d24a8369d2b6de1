// Measures the gate in front of the scheduler on designs of growing size in which nothing is wrong: flat, as many
// models, and as instances of one model. The types are inferred before, so that what the checks themselves take is
// seen.
#include "measure.h"
#include "synthetic.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/pass.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

/// Notes the moment at which the checks begin, and infers all types before it.
class Clock final : public PassInstrumentation {
  public:
    explicit Clock(const Wire &asked) : mAsked(asked) {}
    bool shouldRun(const PassExecution &execution, Design &) override {
        if (execution.name == GlobalTypePass::sName) {
            mTypes = static_cast<GlobalTypePass *>(const_cast<Pass *>(execution.pass));
        }
        return true;
    }
    void beforePass(const PassExecution &execution, Design &) override {
        if (execution.name == "ValidateModelPass" && mTypes != nullptr) {
            mTypes->getType(mAsked, {});
            mBegin = cpuNow();
        }
    }
    void afterPass(const PassExecution &execution, Design &, bool) override {
        if (execution.name == "ValidateModelPass") {
            seconds = cpuNow() - mBegin;
        }
    }
    double seconds = 0;

  private:
    const Wire &mAsked;
    GlobalTypePass *mTypes = nullptr;
    double mBegin = 0;
};

class Ear final : public ContextListener {
  public:
    void onMessage(int, const char *tag, const log::LogParams &) override {
        std::fprintf(stderr, "a design in which nothing is wrong is told %s\n", tag);
        std::exit(1);
    }
};

Figures validation(const SyntheticOptions &options) {
    ContextMgr context;
    Design design(context.context());
    const Wire &last = makeSynthetic(design, options);
    ::malloc_trim(0);
    Ear ear;
    context.context()->setListener(&ear);
    Clock clock(last);
    Figures figures = measure([&] {
        PassScheduler scheduler;
        scheduler.setInstrumentation(&clock);
        scheduler.addPass("ValidateModelPass");
        scheduler.apply(design);
    });
    context.context()->setListener(nullptr);
    figures.cpuSeconds = clock.seconds;
    return figures;
}

struct Shape {
    const char *name;
    /// Blocks a model below the top one, 0 for none; and whether these are instances of one.
    std::size_t share;
    bool isOne;
};

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    std::printf("%10s %-14s %12s\n", "blocks", "design", "us/blk");
    for (const Shape &shape : {Shape{"flat", 0, false}, {"20 a model", 20, false}, {"20 an instance", 20, true}}) {
        std::vector<double> seconds;
        for (const std::size_t blocks : {most / 100, most / 10, most / 5, most}) {
            SyntheticOptions options;
            options.blocks = blocks;
            options.typed = true;
            options.instances = shape.isOne ? blocks / shape.share : 0;
            options.models = shape.share != 0 && !shape.isOne ? blocks / shape.share - 1 : 0;
            const Figures figures = inChild([&] { return validation(options); });
            std::printf("%10zu %-14s %12.3f\n", blocks, shape.name,
                        figures.cpuSeconds * 1e6 / static_cast<double>(blocks));
            seconds.push_back(figures.cpuSeconds);
        }
        std::printf("growth exponent from %zu to %zu blocks: %.3f\n", most / 100, most,
                    exponent(seconds.front(), seconds.back(), 100));
    }
    return 0;
}
