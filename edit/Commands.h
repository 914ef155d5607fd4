// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Job.h"
#include "Options.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace edit {

/// Where an edit leaves its result when it is wanted under another path.
enum class Result {
    sameFile, ///< in the file as it stands: a copy of it is edited
    newFile,  ///< in a new file, which takes that path as easily as the old one (Container::outputPath)
};

/// What a command does to each of its files.
struct Work {
    std::function<void(Job&)> run;
    Result result = Result::sameFile;
};

/// How a command treats its files.
enum class Form {
    looks,    ///< tells what is in them, all of them
    extracts, ///< makes something else of one file, which it declares among its arguments
    edits,
};

/// One row of the table of commands.
struct Command {
    const char* name;
    const char* group; ///< the heading that it stands under in --help
    Form form;
    const char* does;
    const char* example; ///< behind "pellmor-edit "
    /// Declares the arguments that are its own; those that stand ahead of FILE... are positional.
    void (*arguments)(CLI::App&, Options&);
    /// Settles all that can be settled before a file is touched, and gives the work. Throws WrongArguments
    /// and Failure.
    Work (*prepare)(const Options&);
};

/// All commands, in the order in which --help shows them.
const std::vector<Command>& commands();

// Each group of commands has a source file of its own.

// Looking.
void jsonArgument(CLI::App& app, Options& options);
void dumpArguments(CLI::App& app, Options& options);
void pictureArguments(CLI::App& app, Options& options);
Work info(const Options& options);
Work dump(const Options& options);
Work picture(const Options& options);
Work check(const Options& options);
Work repair(const Options& options);

/// FILE, of a command that takes a single one.
void fileArgument(CLI::App& app, Options& options);
/// -o, and the --force that goes with it.
CLI::Option* outputOption(CLI::App& app, Options& options, const char* what);
/// An option that takes a finite number.
void numberOption(CLI::App& app, const char* name, const char* what, std::function<void(double)> take);

// Content.
void getArguments(CLI::App& app, Options& options);
void putArguments(CLI::App& app, Options& options);
Work get(const Options& options);
Work put(const Options& options);
void removeArguments(CLI::App& app, Options& options);
Work remove(const Options& options);

// Metadata.
void locationArguments(CLI::App& app, Options& options);
void sourceArgument(CLI::App& app, Options& options);
Work location(const Options& options);
Work removeLocation(const Options& options);
Work removeBadLocation(const Options& options);
Work gpsMeta(const Options& options);

// Layout.
void timeArgument(CLI::App& app, Options& options);
Work moovFirst(const Options& options);
Work setTime(const Options& options);

// Video.
void rangeArgument(CLI::App& app, Options& options);
Work fullRange(const Options& options);

// Sound.
void appendSoundArguments(CLI::App& app, Options& options);
void soundOutArguments(CLI::App& app, Options& options);
Work appendSound(const Options& options);
Work soundToWav(const Options& options);
Work soundTrack(const Options& options);

} // namespace edit
