// Completions.cpp - scripts with which bash and zsh complete the program's arguments.
#include "tools/Manual.h"
#include "tools/Text.h"

namespace vorn {

namespace {

std::string Join(const std::vector<std::string>& words, const char* between) {
    return fmt::format("{}", fmt::join(words, between));
}

// The last argument that stands by its place: where there are two, a movie comes before its source, which is any file.
const OptionText* Argument(const CommandText& command) {
    const OptionText* last = nullptr;
    for (const OptionText& option : command.options)
        if (option.names.front()[0] != '-') last = &option;
    return last;
}

// The shell command that offers values; "" if there is nothing to offer.
std::string BashOffer(const OptionText& option) {
    if (KindOf(option) == ValueKind::FILE) return fmt::format("_vorn_files '{}'", ExtensionOf(option));
    if (KindOf(option) == ValueKind::CHOICE) return fmt::format("_vorn_words '{}'", Join(option.choices, " "));
    return "";
}

std::string BashCommand(const CommandText& command) {
    std::vector<std::string> names, silent;
    std::string offers;
    for (const OptionText& option : command.options) {
        if (option.names.front()[0] != '-') continue;
        names.insert(names.end(), option.names.begin(), option.names.end());
        if (KindOf(option) == ValueKind::NONE) continue;
        const std::string offer = BashOffer(option);
        if (offer.empty())
            silent.insert(silent.end(), option.names.begin(), option.names.end());
        else
            offers += fmt::format("        {}) {}; return ;;\n", Join(option.names, " | "), offer);
    }
    if (!silent.empty()) offers += fmt::format("        {}) return ;;\n", Join(silent, " | "));
    std::string text = fmt::format("    {})\n        options='{}'\n", command.name, Join(names, " "));
    if (!offers.empty()) text += fmt::format("        case \"$previous\" in\n{}        esac\n", offers);
    if (const OptionText* argument = Argument(command))
        text += fmt::format("        [[ $word == -* ]] || {}\n", BashOffer(*argument));
    return text + "        ;;\n";
}

const char BASH_HEAD[] = R"(# Completes the arguments of vorn in bash. Made by `vorn manual`.

_vorn_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$word"); }

# Folders, and files that end in $1; if there are none, any file.
_vorn_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -X "!*$1" -- "$word"; [ -z "$1" ] || compgen -d -- "$word")
    [ ${#COMPREPLY[@]} -ne 0 ] || mapfile -t COMPREPLY < <(compgen -f -- "$word")
}

_vorn() {
    local word=${COMP_WORDS[COMP_CWORD]} at=$((COMP_CWORD - 1)) previous command='' options='' i
    COMPREPLY=()
    # The shell makes three words of --rate=800, and of 0=FILE.
    if [ "$word" = = ]; then
        word=
        [[ ${COMP_WORDS[at]} == -* ]] || at=$((at - 1))
    elif [ "${COMP_WORDS[at]}" = = ]; then
        at=$((at - 1))
        [[ ${COMP_WORDS[at]} == -* ]] || at=$((at - 1))
    fi
    previous=${COMP_WORDS[at]}
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=${COMP_WORDS[i]}
            break
        fi
    done
    case "$command" in
)";

std::string ZshQuoted(const std::string& text, const char* special) {
    std::string quoted;
    for (const char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
            continue;
        }
        if (std::string_view(special).find(c) != std::string_view::npos) quoted += '\\';
        quoted += c;
    }
    return quoted;
}

std::string ZshValue(const OptionText& option, const std::string& word) {
    std::string action = " ";
    if (KindOf(option) == ValueKind::CHOICE) action = fmt::format("({})", Join(option.choices, " "));
    if (word.find("=FILE") != std::string::npos)
        action = "{ compset -P \"*=\"; _files }";
    else if (KindOf(option) == ValueKind::FILE)
        action = ExtensionOf(option).empty() ? "_files" : fmt::format("_files -g \"*{}\"", ExtensionOf(option));
    return fmt::format(":{}:{}", ZshQuoted(word, ":\\"), action);
}

// One argument of _arguments.
std::string ZshOption(const OptionText& option) {
    const std::string& name = option.names.front();
    if (name[0] != '-') return fmt::format("'{}{}'", option.repeats ? "*" : "1", ZshValue(option, name));
    const bool flag = KindOf(option) == ValueKind::NONE;
    const std::string tail =
        fmt::format("[{}]{}", ZshQuoted(option.text, "[]\\"), flag ? "" : ZshValue(option, option.value));
    std::vector<std::string> forms;
    for (const std::string& form : option.names) forms.push_back(flag ? form : form + (form[1] == '-' ? "=" : "+"));
    const std::string others = option.repeats ? "*" : fmt::format("({})", Join(option.names, " "));
    if (forms.size() == 1) return fmt::format("'{}{}{}'", others, forms[0], tail);
    return fmt::format("'{}'{{{}}}'{}'", others, Join(forms, ","), tail);
}

} // namespace

std::string BashCompletion(const CommandText& program) {
    std::vector<std::string> names;
    std::string options, commands;
    for (const OptionText& option : program.options) options += fmt::format("{} ", Join(option.names, " "));
    for (const CommandText& command : program.commands) {
        names.push_back(command.name);
        commands += BashCommand(command);
    }
    return BASH_HEAD + fmt::format("    '') _vorn_words '{}{}' ;;\n", options, Join(names, " ")) + commands +
           "    esac\n"
           "    if [[ $word == -* && -n $options ]]; then _vorn_words \"$options\"; fi\n"
           "}\n"
           "complete -F _vorn vorn\n";
}

std::string ZshCompletion(const CommandText& program) {
    std::string names, cases, options;
    for (const OptionText& option : program.options) options += fmt::format(" {}", ZshOption(option));
    for (const CommandText& command : program.commands) {
        names += fmt::format("        '{}:{}'\n", command.name, ZshQuoted(command.text, "\\"));
        cases += fmt::format("        {})\n            _arguments -S", command.name);
        for (const OptionText& option : command.options)
            cases += fmt::format(" \\\n                {}", ZshOption(option));
        cases += "\n            ;;\n";
    }
    return fmt::format("#compdef vorn\n"
                       "# Completes the arguments of vorn in zsh. Made by `vorn manual`.\n\n"
                       "_vorn() {{\n"
                       "    local curcontext=\"$curcontext\" state line\n"
                       "    typeset -A opt_args\n"
                       "    local -a commands=(\n{}    )\n"
                       "    _arguments -C -S{} '1:command:->command' '*::argument:->argument'\n"
                       "    case $state in\n"
                       "    command) _describe command commands ;;\n"
                       "    argument)\n"
                       "        case $words[1] in\n{}        esac\n"
                       "        ;;\n"
                       "    esac\n"
                       "}}\n\n"
                       "_vorn \"$@\"\n",
                       names, options, cases);
}

} // namespace vorn
