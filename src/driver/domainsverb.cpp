// The verb "domains": the domain of every port and wire, in each instance of each model.
#include "driver/verbs.h"

#include "driver/designroots.h"
#include "driver/jsontext.h"
#include "driver/openeddesign.h"
#include "driver/passrun.h"
#include "driver/simulation.h"

#include <orvo/block.h>
#include <orvo/domaininfer.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>

namespace orvo::driver {

namespace {

struct Arguments {
    std::string input;
    std::string top;
    std::string model;
    std::string instance;
    bool missing = false;
};

struct DomainRow {
    std::size_t instance;
    std::string block;
    bool isPort;
    std::string name;
    /// Null if none has reached it.
    PureValueRef domain;
};

/// The models to start at. A design that nobody has marked yet is looked at from its tops.
std::vector<const Model *> rootsOf(const Design &design, const std::string &top, Console &console) {
    return top.empty() ? designRoots(design, DomainInference::isOutputRoot)
                       : std::vector{&topModel(design, top, console)};
}

/// The points of the instances that were looked at, root by root from the top down.
class DomainTable {
  public:
    DomainTable(const DomainAnalysisInfo &info, const Arguments &arguments) : mInfo(info), mArguments(arguments) {}

    void collect(const std::vector<const Model *> &roots) {
        const RefChainCollection &chains = mInfo.getRefChainCollection();
        std::vector<const Model *> rootOf(chains.size());
        std::vector<std::string> pathOf(chains.size());
        unsigned long id = 1;
        for (const Model *root : roots) {
            look(*root, 0, root->getName()->toString());
            for (; id < chains.size(); ++id) {
                const unsigned long above = chains.getAbove(id);
                const Block &block = *chains.getBlock(id);
                rootOf[id] = above == 0 ? &block.getModel() : rootOf[above];
                if (rootOf[id] != root) {
                    break;
                }
                pathOf[id] =
                    (above == 0 ? root->getName()->toString() : pathOf[above]) + "/" + block.getName()->toString();
                look(*Node::from<Model>(block[A_MODEL_NODE]), id, pathOf[id]);
            }
        }
    }
    const std::vector<DomainRow> &rows() const { return mRows; }
    const std::string &path(const DomainRow &row) const { return mInstances[row.instance]; }
    const std::vector<std::string> &instances() const { return mInstances; }
    const std::vector<std::string> &models() const { return mModels; }
    bool anyChosen() const { return mAnyChosen; }

  private:
    void look(const Model &model, unsigned long id, const std::string &path) {
        mInstances.push_back(path);
        mModels.push_back(model.getName()->toString());
        if ((!mArguments.model.empty() && mModels.back() != mArguments.model) ||
            (!mArguments.instance.empty() && path != mArguments.instance)) {
            return;
        }
        mAnyChosen = true;
        for (const Block &block : model) {
            const std::string name = block.getName()->toString();
            for (const Port &port : block.ports()) {
                add({mInstances.size() - 1, name, true, port.getName()->toString(), mInfo.getDomain(port, id)});
            }
            for (const Wire &wire : block) {
                add({mInstances.size() - 1, name, false, wire.getName()->toString(), mInfo.getDomain(wire, id)});
            }
        }
    }
    void add(DomainRow row) {
        if (!mArguments.missing || !row.domain) {
            mRows.push_back(std::move(row));
        }
    }

    const DomainAnalysisInfo &mInfo;
    const Arguments &mArguments;
    std::vector<DomainRow> mRows;
    std::vector<std::string> mInstances;
    std::vector<std::string> mModels;
    bool mAnyChosen = false;
};

std::string text(const DomainTable &table) {
    std::string out;
    const DomainRow *last = nullptr;
    for (const DomainRow &row : table.rows()) {
        if (last == nullptr || last->instance != row.instance) {
            out += (out.empty() ? "" : "\n") + table.path(row) + "\n";
        }
        last = &row;
        out += fmt::format("  {:<28} {} {:<24} {}\n", row.block, row.isPort ? "port" : "wire", row.name,
                           row.domain ? row.domain->toString() : "?");
    }
    return out;
}

Json toJson(const DomainTable &table, const std::string &input) {
    Json json;
    json["schema"] = "orvo.domains/1";
    json["input"] = input;
    json["domains"] = Json::array();
    for (const DomainRow &row : table.rows()) {
        json["domains"].push_back({{"instance", table.path(row)},
                                   {"block", row.block},
                                   {"end", row.isPort ? "port" : "wire"},
                                   {"name", row.name},
                                   {"domain", row.domain ? Json(row.domain->toString()) : Json()}});
    }
    return json;
}

int domains(const Arguments &arguments, Console &console) {
    OpenedDesign opened(arguments.input, console);
    const std::vector<const Model *> roots = rootsOf(*opened.design, arguments.top, console);
    opened.progress.phase("inferring domains");
    const DomainAnalysisInfo info = DomainInference::inferDomains(roots, DomainInference::DefaultInferenceModifier());
    DomainTable table(info, arguments);
    table.collect(roots);
    opened.progress.hide();
    if (!table.anyChosen() && !arguments.instance.empty()) {
        refuseName("instance", arguments.instance, table.instances(), console);
    }
    if (!table.anyChosen() && !arguments.model.empty()) {
        refuseName("model", arguments.model, table.models(), console);
    }
    console.emit(console.json() ? documentText(toJson(table, arguments.input)) : text(table));
    return console.errors() == 0 ? kFine : kDesignErrors;
}

} // namespace

void addDomainsVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "domains", "Show the domain of every port and wire, instance by instance");
    auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "Design XML to read; - is standard input")->type_name("FILE");
    verb->add_option("--top", arguments->top, "The model to start at; the output roots if not given")
        ->type_name("MODEL")
        ->check(namesSomething());
    verb->add_option("--model", arguments->model, "Only instances of this model")
        ->type_name("MODEL")
        ->check(namesSomething());
    verb->add_option("--instance", arguments->instance,
                     "Only this instance: the top model and the model blocks on the way, as top/a/b")
        ->type_name("PATH")
        ->check(namesSomething());
    verb->add_flag("--missing", arguments->missing, "Only what has no domain");
    verb->callback(
        [&host, arguments] { host.action = [&host, arguments] { return domains(*arguments, host.console); }; });
}

} // namespace orvo::driver
