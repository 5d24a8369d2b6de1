// The verb "completion": scripts that let a shell complete verbs, options and the names that they take. Generated from
// the parser itself, so that no verb or option can be missing.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/suggest.h"

#include <orvo/context.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace orvo::driver {

namespace {

std::vector<std::string> shellNames() { return {"bash", "zsh"}; }

/// What the type of an argument says about its values.
struct ValueKind {
    const char *typeName;
    std::vector<std::string> (*names)();
    /// For lists: words end at these, too.
    bool isList;
};

constexpr ValueKind kValueKinds[] = {
    {"PASSES", &passNames, true}, {"PASS", &passNames, false},   {"BLOCK", &blockNames, false},
    {"TAG", &messageTags, false}, {"SHELL", &shellNames, false}, {"NAME=VALUE", &featureNames, false},
};

std::string joined(const std::vector<std::string> &words) { return fmt::format("{}", fmt::join(words, " ")); }

/// The shell command that fills in the answers for a value of a type.
std::string completeValue(const std::string &typeName) {
    if (typeName == "FILE") {
        return "COMPREPLY=($(compgen -f -- \"$cur\"))";
    }
    if (typeName == "DIR") {
        return "COMPREPLY=($(compgen -d -- \"$cur\"))";
    }
    for (const ValueKind &kind : kValueKinds) {
        if (typeName == kind.typeName) {
            return std::string(kind.isList ? "_orvo_list" : "_orvo_words") + " \"" + joined(kind.names()) + "\"";
        }
    }
    return "COMPREPLY=()";
}

std::vector<std::string> namesOf(const CLI::Option &option) {
    std::vector<std::string> names;
    for (const std::string &name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    for (const std::string &name : option.get_snames()) {
        names.push_back("-" + name);
    }
    return names;
}

std::vector<const CLI::App *> verbsOf(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *) { return true; });
}

/// The branch of the script for one verb.
std::string verbBranch(const CLI::App &verb) {
    std::string options;
    std::string values;
    std::string positional = "COMPREPLY=()";
    for (const CLI::Option *option : verb.get_options()) {
        if (option->get_positional()) {
            positional = completeValue(option->get_type_name());
            continue;
        }
        const std::vector<std::string> names = namesOf(*option);
        options += (options.empty() ? "" : " ") + joined(names);
        if (option->get_items_expected_max() > 0) {
            values += fmt::format("        {}) {}; return ;;\n", fmt::join(names, "|"),
                                  completeValue(option->get_type_name()));
        }
    }
    std::string text = "    " + verb.get_name() + ")\n";
    if (!values.empty()) {
        text += "        case \"$prev\" in\n" + values + "        esac\n";
    }
    text += "        case \"$cur\" in\n        -?*) _orvo_words \"" + options + "\" ;;\n        *) " + positional +
            " ;;\n        esac ;;\n";
    return text;
}

std::string script(const CLI::App &app) {
    std::vector<std::string> verbs;
    std::string branches;
    for (const CLI::App *verb : verbsOf(app)) {
        verbs.push_back(verb->get_name());
        branches += verbBranch(*verb);
    }
    return "_orvo_words() { COMPREPLY=($(compgen -W \"$1\" -- \"$cur\")); }\n"
           "# The last name of a list in which names stand apart by commas.\n"
           "_orvo_list() {\n"
           "    local before=\"\" last=\"$cur\"\n"
           "    if [[ \"$cur\" == @* ]]; then COMPREPLY=($(compgen -f -P @ -- \"${cur#@}\")); return; fi\n"
           "    if [[ \"$cur\" == *,* ]]; then before=\"${cur%,*},\"; last=\"${cur##*,}\"; fi\n"
           "    COMPREPLY=($(compgen -W \"$1\" -P \"$before\" -- \"$last\"))\n"
           "}\n"
           "_orvo() {\n"
           "    local cur=\"${COMP_WORDS[COMP_CWORD]}\" prev=\"${COMP_WORDS[COMP_CWORD-1]}\"\n"
           "    COMPREPLY=()\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then _orvo_words \"" +
           joined(verbs) +
           " --help --version\"; return; fi\n"
           "    case \"${COMP_WORDS[1]}\" in\n" +
           branches + "    esac\n}\n";
}

std::string completion(const CLI::App &app, const std::string &shell) {
    if (shell == "zsh") {
        return "# Completion of orvo for zsh, through its support for scripts of bash. Source it behind compinit.\n"
               "autoload -U +X bashcompinit && bashcompinit\n" +
               script(app) + "complete -F _orvo orvo\n";
    }
    return "# Completion of orvo for bash.\n" + script(app) + "complete -o filenames -F _orvo orvo\n";
}

int printCompletion(const CLI::App &app, const std::string &shell, Console &console) {
    const std::vector<std::string> shells = shellNames();
    if (std::find(shells.begin(), shells.end(), shell) == shells.end()) {
        const std::string near = suggest(shell, shells);
        console.fail(kWrongUsage, "DRIVER_BAD_USAGE",
                     {{"reason", shell.empty() ? "the shell is missing: bash or zsh"
                                               : "there is no completion for '" + shell + "', only for bash and zsh" +
                                                     (near.empty() ? "" : ": did you mean '" + near + "'?")}});
    }
    ContextMgr guard;
    const std::string text = completion(app, shell);
    if (console.json()) {
        Json json;
        json["schema"] = "orvo.completion/1";
        json["shell"] = shell;
        json["script"] = text;
        console.emit(documentText(json));
    } else {
        console.emit(text);
    }
    return kFine;
}

} // namespace

void addCompletionVerb(CLI::App &app, VerbHost &host) {
    CLI::App *verb = addVerb(app, "completion", "Print a completion script for a shell");
    auto shell = std::make_shared<std::string>();
    verb->add_option("SHELL", *shell, "bash or zsh")->type_name("SHELL");
    verb->callback(
        [&host, shell] { host.action = [&host, shell] { return printCompletion(*host.root, *shell, host.console); }; });
}

} // namespace orvo::driver
