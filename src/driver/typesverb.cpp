// The verb "types": the type of every port and wire, in each instance of each model.
#include "driver/verbs.h"

#include "driver/files.h"
#include "driver/jsontext.h"
#include "driver/progress.h"
#include "driver/suggest.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string input;
    std::string model;
    std::string instance;
    bool missing = false;
};

struct Row {
    std::string instance;
    std::string block;
    bool isPort;
    std::string name;
    PureValueRef type;
};

/// Walks the instances below the models that nobody instantiates, from a stack, since a file may nest them deep.
class InstanceWalk {
  public:
    explicit InstanceWalk(const Design &design) {
        std::vector<const Model *> tops;
        for (const Model &model : design) {
            if (model.getParentBlocks().empty()) {
                tops.push_back(&model);
            }
        }
        for (auto top = tops.rbegin(); top != tops.rend(); ++top) {
            mStack.push_back({*top, {}});
        }
    }
    bool next() {
        if (mStack.empty() || ++mCount > limits::kTypeInstances) {
            return false;
        }
        mCurrent = std::move(mStack.back());
        mStack.pop_back();
        std::vector<Instance> below;
        for (const Block &block : *mCurrent.model) {
            const bool isModelBlock = block.type() == A_MODEL_BLOCK.get_ptr();
            const auto *model = isModelBlock ? Node::from<Model>(block[A_MODEL_NODE]) : nullptr;
            const auto passes = [model](const Block *step) { return &step->getModel() == model; };
            const bool isEndless =
                model == mCurrent.model || std::any_of(mCurrent.chain.begin(), mCurrent.chain.end(), passes);
            if (model != nullptr && !isEndless) {
                below.push_back({model, mCurrent.chain});
                below.back().chain.push_back(&block);
            }
        }
        mStack.insert(mStack.end(), std::make_move_iterator(below.rbegin()), std::make_move_iterator(below.rend()));
        return true;
    }
    const Model &model() const { return *mCurrent.model; }
    const RefChain &chain() const { return mCurrent.chain; }
    /// The top model, then the model blocks on the way.
    std::string path() const {
        const Model &top = mCurrent.chain.empty() ? *mCurrent.model : mCurrent.chain.front()->getModel();
        std::string path = top.getName()->toString();
        for (const Block *step : mCurrent.chain) {
            path += "/" + step->getName()->toString();
        }
        return path;
    }

  private:
    struct Instance {
        const Model *model = nullptr;
        RefChain chain;
    };
    std::vector<Instance> mStack;
    Instance mCurrent;
    std::size_t mCount = 0;
};

class Collector {
  public:
    Collector(const Arguments &arguments, const Design &design) : mArguments(arguments), mDesign(design) {
        mTypes.bindEvents(design);
    }
    ~Collector() { mTypes.unbindEvents(); }
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;

    void collect() {
        InstanceWalk walk(mDesign);
        while (walk.next()) {
            const std::string path = walk.path();
            models.push_back(walk.model().getName()->toString());
            instances.push_back(path);
            if ((mArguments.model.empty() || models.back() == mArguments.model) &&
                (mArguments.instance.empty() || path == mArguments.instance)) {
                anyChosen = true;
                look(walk.model(), walk.chain(), path);
            }
        }
    }

    std::vector<Row> rows;
    std::vector<std::string> models;
    std::vector<std::string> instances;
    bool anyChosen = false;

  private:
    void look(const Model &model, const RefChain &chain, const std::string &path) {
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            for (const Port &port : block.ports()) {
                add({path, name, true, port.getName()->toString(), mTypes.getType(port, chain)});
            }
            for (const Wire &wire : block) {
                add({path, name, false, wire.getName()->toString(), mTypes.getType(wire, chain)});
            }
        }
    }
    void add(Row row) {
        if (!mArguments.missing || !row.type) {
            rows.push_back(std::move(row));
        }
    }

    const Arguments &mArguments;
    const Design &mDesign;
    GlobalTypePass mTypes;
};

std::string text(const std::vector<Row> &rows) {
    std::string out;
    std::string instance;
    for (const Row &row : rows) {
        if (row.instance != instance) {
            out += (out.empty() ? "" : "\n") + row.instance + "\n";
            instance = row.instance;
        }
        out += fmt::format("  {:<28} {} {:<24} {:<20} {}\n", row.block, row.isPort ? "port" : "wire", row.name,
                           readableType(row.type.get_ptr()), row.type ? row.type->toString() : "");
        while (out.size() > 1 && out[out.size() - 2] == ' ') {
            out.erase(out.size() - 2, 1);
        }
    }
    return out;
}

Json toJson(const std::vector<Row> &rows, const std::string &input) {
    Json json;
    json["schema"] = "orvo.types/1";
    json["input"] = input;
    json["types"] = Json::array();
    for (const Row &row : rows) {
        Json entry;
        entry["instance"] = row.instance;
        entry["block"] = row.block;
        entry["end"] = row.isPort ? "port" : "wire";
        entry["name"] = row.name;
        entry["type"] = row.type ? Json(readableType(row.type.get_ptr())) : Json();
        entry["value"] = row.type ? Json(row.type->toString()) : Json();
        json["types"].push_back(std::move(entry));
    }
    return json;
}

[[noreturn]] void refuse(Console &console, const char *what, const std::string &name,
                         const std::vector<std::string> &known) {
    std::string reason = fmt::format("the design has no {} '{}'", what, name);
    if (const std::string near = suggest(name, known); !near.empty()) {
        reason += fmt::format(": did you mean '{}'?", near);
    }
    console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", reason}});
}

int types(const Arguments &arguments, Console &console) {
    if (arguments.input.empty()) {
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE", {{"reason", "the input design is missing"}});
    }
    Progress progress(console);
    ContextMgr guard;
    guard.context()->setListener(&console);
    InputFile file(arguments.input, console);
    progress.phase("reading");
    const std::unique_ptr<Design> design = readDesign(file, guard.context(), console);
    progress.phase("inferring types");
    Collector collector(arguments, *design);
    collector.collect();
    progress.hide();
    if (!collector.anyChosen && !arguments.instance.empty()) {
        refuse(console, "instance", arguments.instance, collector.instances);
    }
    if (!collector.anyChosen && !arguments.model.empty()) {
        refuse(console, "model", arguments.model, collector.models);
    }
    console.emit(console.json() ? documentText(toJson(collector.rows, arguments.input)) : text(collector.rows));
    return kFine;
}

} // namespace

void addTypesVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "types", "Show the type of every port and wire, instance by instance");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("--model", arguments->model, "Only instances of this model")->type_name("MODEL");
    verb->add_option("--instance", arguments->instance,
                     "Only this instance: the top model and the model blocks on the way, as top/a/b")
        ->type_name("PATH");
    verb->add_flag("--missing", arguments->missing, "Only what has no type");
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return types(*arguments, host.console); }; });
}

} // namespace orvo::driver
