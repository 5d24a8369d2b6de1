// The verb "completion": scripts that let a shell complete verbs, options and the names that they take. Generated from
// the parser itself, so that no verb or option can be missing.
#include "driver/verbs.h"

#include "driver/jsontext.h"
#include "driver/suggest.h"

#include <orvo/blocksinfo.h>
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
    const char *function;
};

/// A block type may be named by its constant or by its text.
std::vector<std::string> blockNamesAndTexts() {
    std::vector<std::string> names = blockNames();
    const std::size_t count = names.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (const std::string *text = getBlocksInfo().findMapping(names[i]); text != nullptr) {
            names.push_back(*text);
        }
    }
    return names;
}

constexpr ValueKind kValueKinds[] = {
    {"PASSES", &passNames, "_orvo_list"},          {"PASS", &passNames, "_orvo_words"},
    {"BLOCK", &blockNamesAndTexts, "_orvo_words"}, {"TAG", &messageTags, "_orvo_words"},
    {"SHELL", &shellNames, "_orvo_words"},         {"NAME=VALUE", &featureNames, "_orvo_settings"},
    {"FEATURE", &featureNames, "_orvo_words"},     {"PRESET", &presetNames, "_orvo_words"},
};

std::string joined(const std::vector<std::string> &words) { return fmt::format("{}", fmt::join(words, " ")); }

/// What completes a value of a type: a function of the script, and the words that it chooses from.
struct Completer {
    std::string function;
    std::string words;
};

Completer completerOf(const std::string &typeName) {
    if (typeName == "FILE") {
        return {"_orvo_files", ""};
    }
    if (typeName == "DIR") {
        return {"_orvo_folders", ""};
    }
    for (const ValueKind &kind : kValueKinds) {
        if (typeName == kind.typeName) {
            return {kind.function, joined(kind.names())};
        }
    }
    return {"_orvo_nothing", ""};
}

std::string call(const Completer &completer) {
    return completer.words.empty() ? completer.function : completer.function + " \"" + completer.words + "\"";
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

/// The branch of the script for one verb. `prev`, `cur` and the functions are the same in both shells.
std::string verbBranch(const CLI::App &verb) {
    std::string options;
    std::string values;
    std::string positional = "_orvo_nothing";
    for (const CLI::Option *option : verb.get_options()) {
        if (option->get_positional()) {
            positional = call(completerOf(option->get_type_name()));
            continue;
        }
        const std::vector<std::string> names = namesOf(*option);
        options += (options.empty() ? "" : " ") + joined(names);
        if (option->get_items_expected_max() > 0) {
            values += fmt::format("        {}) {}; return ;;\n", fmt::join(names, "|"),
                                  call(completerOf(option->get_type_name())));
        }
    }
    std::string text = "    " + verb.get_name() + ")\n";
    if (!values.empty()) {
        text += "        case \"$prev\" in\n" + values + "        esac\n";
    }
    text += "        case \"$cur\" in\n        -*) _orvo_words \"" + options + "\" ;;\n        *) " + positional +
            " ;;\n        esac ;;\n";
    return text;
}

constexpr const char *kBashFunctions = R"(# Completion of orvo for bash.
# A list of passes may begin with @, which must not end a word.
COMP_WORDBREAKS=${COMP_WORDBREAKS//@}
_orvo_nothing() { COMPREPLY=(); }
_orvo_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur"); }
_orvo_files() { mapfile -t COMPREPLY < <(compgen -f -- "$cur"); }
_orvo_folders() { mapfile -t COMPREPLY < <(compgen -d -- "$cur"); }
_orvo_settings() { compopt -o nospace 2>/dev/null; mapfile -t COMPREPLY < <(compgen -W "$1" -S = -- "$cur"); }
# The last name of a list in which names stand apart by commas and blanks.
_orvo_list() {
    local last before
    if [[ "$cur" == @* ]]; then mapfile -t COMPREPLY < <(compgen -f -P @ -- "${cur#@}"); return; fi
    last="${cur##*[, ]}"
    before="${cur%"$last"}"
    compopt +o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -W "$1" -P "$before" -- "$last")
}
_orvo() {
    local cur="${COMP_WORDS[COMP_CWORD]}" prev="${COMP_WORDS[COMP_CWORD-1]}" verb="${COMP_WORDS[1]}"
    # --option=value comes as three words.
    if [ "$cur" = = ]; then cur=""; elif [ "$prev" = = ]; then prev="${COMP_WORDS[COMP_CWORD-2]}"; fi
    cur="${cur#[\"\']}"
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then _orvo_words "@VERBS@"; return; fi
)";

constexpr const char *kZshFunctions = R"(#compdef orvo
# Completion of orvo for zsh: a function for a folder of fpath, or to be sourced behind compinit.
_orvo_nothing() { return 1; }
_orvo_words() { compadd -- ${=1}; }
_orvo_files() { _files; }
_orvo_folders() { _files -/; }
_orvo_settings() { compadd -S = -- ${=1}; }
# The last name of a list in which names stand apart by commas and blanks.
_orvo_list() {
    if compset -P @; then _files; return; fi
    compset -P '*[, ]'
    compadd -S '' -- ${=1}
}
_orvo() {
    local cur="${words[CURRENT]}" prev="${words[CURRENT-1]}" verb="${words[2]}"
    if (( CURRENT == 2 )); then _orvo_words "@VERBS@"; return; fi
    if [[ "$cur" == --*=* ]]; then prev="${cur%%=*}"; compset -P '*='; cur="${cur#*=}"; fi
)";

std::string completion(const CLI::App &app, const std::string &shell) {
    std::string verbs;
    std::string branches;
    for (const CLI::App *verb : verbsOf(app)) {
        verbs += verb->get_name() + " ";
        branches += verbBranch(*verb);
    }
    std::string text = shell == "zsh" ? kZshFunctions : kBashFunctions;
    const std::string mark = "@VERBS@";
    text.replace(text.find(mark), mark.size(), verbs + "--help --version");
    text += "    case \"$verb\" in\n" + branches + "    esac\n}\n";
    return text + (shell == "zsh"
                       ? "if [[ \"${funcstack[1]}\" == _orvo ]]; then _orvo \"$@\"; else compdef _orvo orvo; fi\n"
                       : "complete -o filenames -F _orvo orvo\n");
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
