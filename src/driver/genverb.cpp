// The verb "gen": a well-typed design by chance.
#include "driver/verbs.h"

#include "driver/files.h"
#include "driver/jsontext.h"
#include "driver/passrun.h"
#include "driver/progress.h"
#include "gen/designgenerator.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>

#include <CLI/CLI.hpp>

#include <memory>

namespace orvo::driver {

namespace {

struct Arguments {
    std::uint64_t seed = 1;
    std::size_t size = 30;
    std::string output = "-";
};

int generate(const Arguments &arguments, Console &console) {
    if (console.json() && arguments.output == "-") {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "--json needs an output file, -o FILE"}});
    }
    Progress progress(console);
    ContextMgr guard;
    guard.context()->setListener(&console);
    progress.phase("making the design");
    const std::unique_ptr<Design> design = gen::DesignGenerator(guard.context(), gen::Draws::Schedulable)
                                               .make(gen::recipesOf(arguments.seed, arguments.size));
    progress.phase("writing");
    writeDesign(*design, arguments.output, console);
    progress.hide();
    if (console.json()) {
        std::size_t blocks = 0;
        for (const Model &model : *design) {
            blocks += model.size();
        }
        console.emit(documentText({{"schema", "orvo.gen/1"},
                                   {"seed", arguments.seed},
                                   {"size", arguments.size},
                                   {"output", arguments.output},
                                   {"models", design->size()},
                                   {"blocks", blocks}}));
    }
    return kFine;
}

} // namespace

void addGenVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "gen", "Make a well-typed design by chance");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("--seed", arguments->seed, "The same seed gives the same design; 1 if not given")->type_name("S");
    verb->add_option("--size", arguments->size, "Steps in which it grows, mostly a block each; 30 if not given")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{0}, std::size_t{10000000}));
    verb->add_option("-o,--output", arguments->output, "Design XML to write; - is standard output")
        ->type_name("FILE")
        ->check(namesSomething());
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return generate(*arguments, host.console); }; });
}

} // namespace orvo::driver
