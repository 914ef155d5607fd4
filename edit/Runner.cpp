// SPDX-License-Identifier: MIT
#include "Runner.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <numeric>
#include <sstream>

#include "Brisa/BrisaFileIO.h"
#include "Brisa/BrisaInterrupts.h"
#include "Input.h"
#include "Messages.h"
#include "Output.h"
#include "Progress.h"

namespace edit {

namespace {

using Brisa::FileIO;
using Brisa::NewFile;

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

/// When a file was last changed, for the one that comes of it; an unknown time is not restored.
class Times {
public:
    Times(const std::string& old, const std::string& result_)
        : changed(std::filesystem::last_write_time(old, unknown)), result(result_) {}
    void restore() const {
        std::error_code error = unknown;
        if (!error) {
            std::filesystem::last_write_time(result, changed, error);
        }
    }

private:
    std::error_code unknown;
    std::filesystem::file_time_type changed;
    const std::filesystem::path result;
};

/// The old file under another name; gone again unless the file was changed.
class Backup {
public:
    explicit Backup(const Job& job_) : job(job_), place(widened(job.name + "~")) {}
    ~Backup() {
        if (made && !job.changed()) {
            FileIO::unlink(place);
        }
    }
    Backup(const Backup&) = delete;
    Backup& operator=(const Backup&) = delete;

    /// Whether it could be made. Throws Failure.
    bool make() {
        Draft copy(job.name + "~", false, NewFile::Access::owner);
        if (copy.copyOf(job.path)) {
            copy.finish();
            made = true;
        }
        return made;
    }

private:
    const Job& job;
    const std::wstring place;
    bool made = false;
};

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

} // namespace

Runner::Runner(const Command& command_, const Options& options_) : command(command_), options(options_) {}

int Runner::run() {
    const Messages messages(options.verbose);
    Brisa::Interrupts::remember();
    Status worst = Status::done;
    try {
        if (!options.list.empty()) {
            const std::vector<std::string> listed = filesIn(options.list, options.zeroBytes);
            options.files.insert(options.files.end(), listed.begin(), listed.end());
        }
        if (options.files.size() > 1 && !options.output.empty()) {
            throw WrongArguments("-o takes the result of one FILE");
        }
        chosen = command.prepare(options);
    } catch (const std::exception& error) {
        if (Brisa::Interrupts::signal() != 0) {
            return interrupted("pellmor-edit");
        }
        tell("pellmor-edit", error.what());
        const auto* const failure = dynamic_cast<const Failure*>(&error);
        return static_cast<int>(failure != nullptr ? failure->status : Status::failed);
    }
    const Brisa::Watch::Hook mayGoOn = Brisa::Interrupts::hook();
    const std::vector<uint64_t> expected = workOn(options.files, options.input);
    Progress progress(std::accumulate(expected.begin(), expected.end(), uint64_t{0}), options.quiet);
    const Brisa::Watch watch([&](uint64_t bytes) {
        progress.passed(bytes);
        return mayGoOn(bytes);
    });
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
            return interrupted("pellmor-edit");
        }
    }
    if ((!command.edits() || options.dryRun) && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) {
        tell("pellmor-edit", ("standard output could not be written: " + systemReason(errno)).c_str());
        worst = Status::failed;
    }
    return static_cast<int>(worst);
}

int Runner::interrupted(const std::string& name) const {
    tell(name, ("interrupted by " + Brisa::wchar::toBytes(Brisa::Interrupts::name())).c_str());
    constexpr int bySignal = 128;
    return bySignal + Brisa::Interrupts::signal();
}

void Runner::runOn(Job& job) {
    Messages::begin(job.name);
    try {
        work(job);
    } catch (const Failure& failure) {
        job.ended(failure);
    } catch (const std::exception& error) {
        job.failedFor(error.what());
    }
}

void Runner::work(Job& job) {
    if (!command.edits()) {
        chosen(job);
        return;
    }
    const Times times(job.name, options.output.empty() ? job.name : options.output);
    if (options.dryRun || options.output.empty()) {
        edit(job, job.path);
    } else {
        editTo(options.output, job);
    }
    if (options.keepTime && job.changed() && !options.dryRun) {
        times.restore();
    }
}

void Runner::edit(Job& job, const std::wstring& path) {
    MP4::Container& container = job.container;
    const bool backupWanted = options.backup && options.output.empty() && !options.dryRun;
    container.keepContents = false;
    container.keepUserData = true;
    container.newMovieBox = !options.rewrite && container.outputPath == nullptr;
    container.dryRun = options.dryRun;
    if (!container.claim(path)) {
        job.failed("could not be opened");
    } else if (container.incomplete()) {
        job.failed("could not be read whole");
    } else if (!looksLikeMp4(container)) {
        job.failedFor("is no MP4 file");
    } else if (Backup backup(job); backupWanted && !backup.make()) {
        job.failed(job.name + "~ could not be written");
    } else {
        Messages::begin(job.name);
        chosen(job);
    }
}

void Runner::editTo(const std::string& output, Job& job) {
    demandOther(job.name, output);
    demandOther(options.input, output);
    Draft draft(output, options.force, NewFile::Access::owner);
    // An XMP packet is appended to a file as it stands.
    const bool rewrites = command.form == Form::rewrites && !options.xmp;
    job.container.keepContents = false;
    bool copied = rewrites || (job.container.claim(job.path) && draft.copyOf(job.path));
    if (copied && rewrites) {
        draft.vacate();
        job.container.outputPath = draft.path().c_str();
        edit(job, job.path);
        const bool written = job.container.outputPath == nullptr;
        copied = job.status() != Status::done || written || draft.copyOf(job.path);
    } else if (copied) {
        edit(job, draft.path());
    }
    if (!copied) {
        job.failed(output + " could not be written");
    } else if (job.status() == Status::done) {
        draft.finish();
    }
}

void Runner::tell(const Job& job) const {
    if (!job.text().empty() && (job.status() != Status::done || !options.quiet)) {
        const bool planned = options.dryRun && job.changed();
        tell(job.name, planned ? "would be changed; this was a dry run" : job.text().c_str());
    }
    if (job.status() == Status::done && !options.verbose && !Messages::warning().empty()) {
        tell(job.name, Messages::warning().c_str());
    }
}

void Runner::tell(const std::string& name, const char* text) const {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), text); // in one piece, and in no memory of its own
}

} // namespace edit
