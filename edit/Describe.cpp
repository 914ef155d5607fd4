// SPDX-License-Identifier: MIT
#include "Describe.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

namespace edit {

namespace {

using Commands = std::vector<const CLI::App*>;

/// A name with its dashes.
std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& letter : option.get_snames()) {
        names.push_back("-" + letter);
    }
    for (const std::string& word : option.get_lnames()) {
        names.push_back("--" + word);
    }
    return names;
}

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& app) {
    return app.get_options([](const CLI::Option* option) { return !option->get_positional(); });
}

std::string joined(const std::vector<std::string>& texts, const char* between) {
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : between) + text;
    }
    return all;
}

/// A backslash ahead of each of `special`.
std::string escaped(const std::string& text, std::string_view special) {
    std::string result;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

/// One word of a shell.
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return result + "'";
}

std::string optionWords(const CLI::App& app) {
    std::string words;
    for (const CLI::Option* option : optionsOf(app)) {
        words += joined(namesOf(*option), " ") + ' ';
    }
    return words;
}

/// The words that an argument may be, a blank between them; empty if it may be anything.
std::string choicesOf(const CLI::Option& argument) {
    const std::string type = argument.get_type_name(); // such as TEXT:{map,walk}
    const size_t open = type.find('{');
    std::string words = open == std::string::npos ? "" : type.substr(open + 1, type.find('}') - open - 1);
    std::replace(words.begin(), words.end(), ',', ' ');
    return words;
}

/// The same of what follows the name of a command.
std::string choicesBehind(const CLI::App& command) {
    const auto arguments = command.get_options(&CLI::Option::get_positional);
    return arguments.empty() ? "" : choicesOf(*arguments.front());
}

void bash(const CLI::App& app, const Commands& commands) {
    std::string words = optionWords(app);
    std::string cases;
    for (const CLI::App* command : commands) {
        words += command->get_name() + ' ';
        cases += "    " + command->get_name() + ") words='" + optionWords(*command) + "' choices='" +
                 choicesBehind(*command) + "' ;;\n";
    }
    std::printf("_pellmor_edit() {\n"
                "    local current=${COMP_WORDS[COMP_CWORD]} words= choices=\n"
                "    case ${COMP_WORDS[1]} in\n%s    esac\n"
                "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
                "        words='%s'\n"
                "    elif [[ $current != -* ]]; then\n"
                "        [ \"$COMP_CWORD\" -eq 2 ] || choices=\n"
                "        words=$choices\n" // of none, readline completes the names of files
                "    fi\n"
                "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
                "}\n"
                "complete -o default -F _pellmor_edit pellmor-edit\n",
                cases.c_str(), words.c_str());
}

/// The arguments of _arguments, a line each.
void zshOptions(const CLI::App& app) {
    for (const CLI::Option* option : optionsOf(app)) {
        for (const std::string& name : namesOf(*option)) {
            const std::string text = name + '[' + escaped(option->get_description(), "[]\\:") + ']' +
                                     (takesValue(*option) ? ":value:_files" : "");
            std::printf("            %s \\\n", quoted(text).c_str());
        }
    }
    if (const std::string choices = choicesBehind(app); !choices.empty()) {
        std::printf("            '2:word:(%s)' \\\n", choices.c_str());
    }
    std::printf("            '*:file:_files'\n");
}

void zsh(const CLI::App& app, const Commands& commands) {
    std::printf("#compdef pellmor-edit\n"
                "_pellmor_edit() {\n"
                "    local -a commands=(\n");
    for (const CLI::App* command : commands) {
        std::printf("        %s\n", quoted(command->get_name() + ':' + command->get_description()).c_str());
    }
    std::printf("    )\n"
                "    if (( CURRENT == 2 )); then\n"
                "        _describe command commands\n"
                "        _arguments \\\n");
    zshOptions(app);
    std::printf("        return\n"
                "    fi\n"
                "    case $words[2] in\n");
    for (const CLI::App* command : commands) {
        std::printf("    %s)\n"
                    "        _arguments \\\n",
                    command->get_name().c_str());
        zshOptions(*command);
        std::printf("        ;;\n");
    }
    std::printf("    esac\n"
                "}\n"
                "_pellmor_edit \"$@\"\n");
}

void fishOptions(const CLI::App& app, const std::string& condition) {
    for (const CLI::Option* option : optionsOf(app)) {
        std::string names;
        for (const std::string& letter : option->get_snames()) {
            names += " -s " + letter;
        }
        for (const std::string& word : option->get_lnames()) {
            names += " -l " + word;
        }
        std::printf("complete -c pellmor-edit -n %s%s%s -d %s\n", quoted(condition).c_str(), names.c_str(),
                    takesValue(*option) ? " -r" : "", quoted(option->get_description()).c_str());
    }
}

void fish(const CLI::App& app, const Commands& commands) {
    fishOptions(app, "__fish_use_subcommand");
    for (const CLI::App* command : commands) {
        std::printf("complete -c pellmor-edit -n __fish_use_subcommand -f -a %s -d %s\n",
                    command->get_name().c_str(), quoted(command->get_description()).c_str());
        const std::string isIt = "__fish_seen_subcommand_from " + command->get_name();
        if (const std::string choices = choicesBehind(*command); !choices.empty()) {
            std::printf(
                "complete -c pellmor-edit -n '%s; and test (count (commandline -opc)) -eq 2' -f -a '%s'\n",
                isIt.c_str(), choices.c_str());
        }
        fishOptions(*command, isIt);
    }
}

/// A dash that is typed, and no line that troff takes for a request.
std::string troff(const std::string& text) {
    const std::string plain = escaped(text, "-\\");
    return plain.starts_with('.') || plain.starts_with('\'') ? "\\&" + plain : plain;
}

void man(const CLI::App& app, const Commands& commands) {
    std::string group;
    for (const CLI::App* command : commands) {
        if (command->get_group() != group) {
            group = command->get_group();
            std::printf(".SS %s\n", troff(group).c_str());
        }
        std::string line = "\\fBpellmor\\-edit " + troff(command->get_name()) + "\\fR [\\fIOPTION\\fR]...";
        for (const CLI::Option* argument : command->get_options(&CLI::Option::get_positional)) {
            line += " \\fI" + troff(argument->get_name(true)) + "\\fR" +
                    (argument->get_items_expected_max() > 1 ? "..." : "");
        }
        std::printf(".TP\n%s\n%s.\n", line.c_str(), troff(command->get_description()).c_str());
        if (!command->get_footer().empty()) {
            std::printf(".br\n%s\n", troff(command->get_footer()).c_str());
        }
        std::printf(".RS\n");
        for (const CLI::Option* argument : command->get_options(&CLI::Option::get_positional)) {
            const std::string text =
                argument->get_description().empty() ? choicesOf(*argument) : argument->get_description();
            if (!text.empty()) {
                std::printf(".TP\n.I %s\n%s.\n", troff(argument->get_name(true)).c_str(),
                            troff(text).c_str());
            }
        }
        for (const CLI::Option* option : optionsOf(*command)) {
            if (option == command->get_help_ptr()) {
                continue;
            }
            std::printf(".TP\n.B %s%s\n%s.\n", troff(joined(namesOf(*option), ", ")).c_str(),
                        takesValue(*option) ? " \\fIVALUE\\fR" : "",
                        troff(option->get_description()).c_str());
        }
        std::printf(".RE\n");
    }
    std::printf(".SH EXIT STATUS\n%s\n.SH SEE ALSO\n.BR Pellmor (1)\n", troff(app.get_footer()).c_str());
}

} // namespace

bool describe(const CLI::App& app, const std::string& form) {
    const Commands commands = app.get_subcommands({});
    if (form == "bash") {
        bash(app, commands);
    } else if (form == "fish") {
        fish(app, commands);
    } else if (form == "man") {
        man(app, commands);
    } else if (form == "zsh") {
        zsh(app, commands);
    } else {
        return false;
    }
    return true;
}

} // namespace edit
