// SPDX-License-Identifier: MIT
// Everything about a recording, from the shell.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <numeric>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Describe.h"
#include "Runner.h"

namespace {

using edit::Command;
using edit::Form;
using edit::Options;
using edit::Status;

constexpr const char* about =
    "Looks at MP4 recordings and edits them. An edit succeeds wholly, or leaves the file as it was.";
constexpr const char* statuses =
    "Exit statuses: 0 all as asked for; 1 failed, the file is as it was; 2 wrong arguments, no file was "
    "touched;\n3 refused, something else is there; 4 not there (get, remove); 5 check found something; "
    "128+n interrupted\nby signal n. Of several files the gravest counts: 1, 3, 4, 5, 0.";

void addCommand(CLI::App& app, const Command& command, Options& options) {
    CLI::App& own = *app.add_subcommand(command.name, command.does)->group(command.group);
    own.footer(std::string("Example: pellmor-edit ") + command.example);
    if (command.arguments != nullptr) {
        command.arguments(own, options);
    }
    if (command.form != Form::extracts) {
        own.add_option("FILE", options.files, "MP4 files");
        own.add_option("--files-from", options.list,
                       "more of them, a line each, from this file (-: standard input)");
        own.add_flag("--null", options.zeroBytes, "or -0: a zero byte behind each of those instead");
    }
    if (command.form == Form::edits) {
        edit::outputOption(own, options, "leave FILE as it is and write the result here");
        own.add_flag("--rewrite", options.rewrite, "write the file anew rather than a new moov behind it");
        own.add_flag("-n,--dry-run", options.dryRun, "show what would be done, and do nothing");
        own.add_flag("--backup", options.backup, "keep the old file as FILE~");
        own.add_flag("-P,--preserve-time", options.keepTime, "keep the time of last change");
    }
    own.add_flag("-q,--quiet", options.quiet, "say nothing of what succeeded");
    own.add_flag("-v,--verbose", options.verbose, "tell the toolkit's own messages as well");
}

/// Null if there is none.
const Command* commandNamed(const std::string& name) {
    const auto& table = edit::commands();
    const auto row = std::find_if(table.begin(), table.end(),
                                  [&](const Command& command) { return command.name == name; });
    return row == table.end() ? nullptr : &*row;
}

/// In how many letters two names differ.
size_t distance(const std::string& one, const std::string& other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = std::exchange(row[j + 1], std::min({changed, row[j] + 1, row[j + 1] + 1}));
        }
    }
    return row.back();
}

/// What to say of a word that is no command.
std::string unknown(const std::string& name) {
    const std::string text = "there is no command '" + name + "'; ";
    const auto& table = edit::commands();
    const std::string nearest =
        std::min_element(table.begin(), table.end(), [&](const Command& one, const Command& other) {
            return distance(name, one.name) < distance(name, other.name);
        })->name;
    return text + (distance(name, nearest) <= nearest.size() / 2 ? "did you mean " + nearest + "?"
                                                                 : "pellmor-edit --help lists them");
}

int wrongArguments(const std::string& text) {
    std::fprintf(stderr, "pellmor-edit: %s\n", text.c_str());
    return static_cast<int>(Status::wrongArguments);
}

int run(std::vector<std::string> arguments) {
    CLI::App app(about, "pellmor-edit");
    app.footer(statuses);
    app.set_version_flag("--version", "pellmor-edit " PELLMOR_VERSION);
    app.require_subcommand(1);
    app.failure_message(CLI::FailureMessage::simple);
    Options options;
    const std::string first = arguments.empty() ? "" : arguments[0];
    const Command* const named = commandNamed(first);
    for (const Command& command : edit::commands()) {
        // The commands that are not asked for would be half of what a short run takes.
        if (&command == named || (named == nullptr && first != "--version")) {
            addCommand(app, command, options);
        }
    }
    if (arguments.size() == 2 && first == "--describe") { // what packages are made with
        return edit::describe(app, arguments[1]) ? 0 : static_cast<int>(Status::wrongArguments);
    }
    if (arguments.empty()) {
        return wrongArguments("a command is missing; pellmor-edit --help lists them");
    }
    if (!first.starts_with('-') && named == nullptr) {
        return wrongArguments(unknown(first));
    }
    // Not declared: it would take the front of the position -0.5,51.5.
    std::replace(arguments.begin(), std::find(arguments.begin(), arguments.end(), "--"), std::string("-0"),
                 std::string("--null"));
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(arguments);
    } catch (const CLI::Success& asked) {
        const int status = app.exit(asked);
        return std::cout.flush() ? status : static_cast<int>(Status::failed);
    } catch (const CLI::ParseError& error) {
        return wrongArguments(error.what() + std::string("; pellmor-edit") +
                              (named != nullptr ? " " + first : "") + " --help tells what there is");
    } catch (const edit::WrongArguments& error) {
        return wrongArguments(error.what());
    }
    const std::string chosen = app.get_subcommands().front()->get_name();
    if (options.files.empty() && options.list.empty()) {
        return wrongArguments(chosen + ": FILE is missing");
    }
    return edit::Runner(*commandNamed(chosen), options).run();
}

} // namespace

int main(int argc, char** argv) try {
    // A destructor that finds no memory to work with, as those of a JSON value may, can tell it to nobody
    // else.
    std::set_terminate([] {
        std::fputs("pellmor-edit: not enough memory\n", stderr);
        std::_Exit(static_cast<int>(Status::failed));
    });
    return run(std::vector<std::string>(argv + 1, argv + argc));
} catch (const std::exception& error) {
    std::fprintf(stderr, "pellmor-edit: %s\n", error.what());
    return static_cast<int>(Status::failed);
}
