// SPDX-License-Identifier: MIT
#include "Runner.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <numeric>
#include <sstream>
#include <string_view>

#include <unistd.h>

#include "Brisa/BrisaFileIO.h"
#include "Brisa/BrisaInterrupts.h"
#include "Destination.h"
#include "Messages.h"
#include "Progress.h"
#include "SideFile.h"

namespace edit {

namespace {

/// Of two verdicts the one that a caller must know of.
Status worse(Status one, Status other) {
    const auto badness = [](Status status) {
        switch (status) {
        case Status::done:
            return 0;
        case Status::found:
            return 1;
        case Status::notThere:
            return 2;
        case Status::refused:
            return 3;
        default:
            return 4;
        }
    };
    return badness(one) < badness(other) ? other : one;
}

/// The names in a list: a line each, or each with a zero byte behind it.
std::vector<std::string> filesIn(const std::string& list, bool zeroBytes) {
    std::istringstream names(contentOf(list));
    std::vector<std::string> files;
    for (std::string name; std::getline(names, name, zeroBytes ? '\0' : '\n');) {
        if (!name.empty()) {
            files.push_back(name);
        }
    }
    return files;
}

/// The bytes that there are to be transferred for each file, more or less: of its input, or its own.
std::vector<uint64_t> workOn(const std::vector<std::string>& files, const std::string& input) {
    const auto size = [](const std::string& path) {
        std::error_code unknown;
        const uintmax_t bytes = std::filesystem::file_size(path, unknown);
        return unknown ? uint64_t{0} : uint64_t{bytes};
    };
    std::vector<uint64_t> work(files.size(), input.empty() ? 0 : size(input));
    if (input.empty()) {
        std::transform(files.begin(), files.end(), work.begin(), size);
    }
    return work;
}

/// Prints a line on standard error: in one piece, and in no memory of its own. On a terminal, what a name has
/// of control characters is not obeyed.
void tell(const std::string& name, const char* text) {
    if (isatty(STDERR_FILENO) == 0) {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), text);
        return;
    }
    for (const std::string_view part :
         {std::string_view(name), std::string_view(": "), std::string_view(text)}) {
        for (const char byte : part) {
            std::fputc(static_cast<unsigned char>(byte) < ' ' || byte == '\x7F' ? '?' : byte, stderr);
        }
    }
    std::fputc('\n', stderr);
}

constexpr const char* program = "pellmor-edit";

} // namespace

Runner::Runner(const Command& command_, const Options& options_) : command(command_), options(options_) {}

int Runner::run() {
    const Messages messages(options.verbose);
    Brisa::Interrupts::remember();
    try {
        gather();
        work = command.prepare(options);
    } catch (const std::exception& error) {
        if (Brisa::Interrupts::signal() != 0) {
            return interrupted(program);
        }
        edit::tell(program, error.what());
        const auto* const failure = dynamic_cast<const Failure*>(&error);
        return static_cast<int>(failure != nullptr ? failure->status : Status::failed);
    }
    return runAll();
}

/// All that the command is about, and what would be wrong with it for every file.
void Runner::gather() {
    if (options.list == "-" && options.input == "-") {
        throw WrongArguments("standard input cannot be both INPUT and the list of files");
    }
    if (!options.list.empty()) {
        const std::vector<std::string> listed = filesIn(options.list, options.zeroBytes);
        options.files.insert(options.files.end(), listed.begin(), listed.end());
    }
    if (command.form != Form::edits || options.output.empty()) {
        return;
    }
    if (options.files.size() > 1) {
        throw WrongArguments("-o takes the result of one FILE");
    }
    if (options.output == "-") {
        throw WrongArguments("-o: an edited file cannot go to standard output");
    }
    if (options.backup) {
        throw WrongArguments("--backup: with -o, FILE stays as it is");
    }
    demandOther(options.input, options.output);
    for (const std::string& file : options.files) {
        demandOther(file, options.output);
    }
}

int Runner::runAll() {
    const Brisa::Watch::Hook mayGoOn = Brisa::Interrupts::hook();
    const std::vector<uint64_t> expected = workOn(options.files, options.input);
    Progress progress(std::accumulate(expected.begin(), expected.end(), uint64_t{0}), options.quiet);
    const Brisa::Watch watch([&](uint64_t bytes) {
        progress.passed(bytes);
        return mayGoOn(bytes);
    });
    Status worst = Status::done;
    for (size_t i = 0; i < expected.size(); ++i) {
        Job job(options, options.files[i]);
        progress.begin(job.name, expected[i]);
        runOn(job);
        progress.clear();
        const bool failed = job.status() == Status::failed;
        const bool all = !failed && i + 1 == expected.size(); // a signal that came then has ended nothing
        if (Brisa::Interrupts::signal() != 0 && failed) {
            return interrupted(job.name);
        }
        tell(job);
        worst = worse(worst, job.status());
        if (Brisa::Interrupts::signal() != 0 && !all) {
            return interrupted(program);
        }
    }
    return static_cast<int>(closeOutput(worst));
}

void Runner::runOn(Job& job) {
    Messages::begin(job.name);
    try {
        command.form == Form::edits ? carryOut(job, work) : work.run(job);
    } catch (const Failure& failure) {
        job.ended(failure);
    } catch (const std::exception& error) {
        job.ended(Failure(error.what()));
    }
}

/// A result that did not get all the way to standard output is none; a job that met that has said so.
Status Runner::closeOutput(Status worst) const {
    const bool told = std::ferror(stdout) != 0 && worst == Status::failed;
    const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    const bool matters = command.form != Form::edits || options.dryRun;
    if (written || !matters || told) {
        return worst;
    }
    edit::tell(program, ("standard output could not be written: " + systemReason(errno)).c_str());
    return Status::failed;
}

int Runner::interrupted(const std::string& name) const {
    edit::tell(name, ("interrupted by " + Brisa::wchar::toBytes(Brisa::Interrupts::name())).c_str());
    constexpr int bySignal = 128;
    return bySignal + Brisa::Interrupts::signal();
}

void Runner::tell(const Job& job) const {
    if (!job.text().empty() && (job.status() != Status::done || !options.quiet)) {
        const bool planned = options.dryRun && job.changed();
        edit::tell(job.name, planned ? "would be changed; this was a dry run" : job.text().c_str());
    }
    if (job.status() == Status::done && !options.verbose && !Messages::warning().empty()) {
        edit::tell(job.name, Messages::warning().c_str());
    }
}

} // namespace edit
