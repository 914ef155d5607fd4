// SPDX-License-Identifier: MIT
#include "Destination.h"

#include <filesystem>
#include <memory>

#include "Boxes.h"
#include "Brisa/BrisaFileIO.h"
#include "Draft.h"
#include "Text.h"

namespace edit {

namespace {

using Access = Brisa::NewFile::Access;

/// When a file was last changed, for the one that comes of it; an unknown time is not given to anybody.
class LastChange {
public:
    explicit LastChange(const std::filesystem::path& file)
        : time(std::filesystem::last_write_time(file, unknown)) {}
    void giveTo(const std::filesystem::path& file) const {
        std::error_code error = unknown;
        if (!error) {
            std::filesystem::last_write_time(file, time, error);
        }
    }

private:
    std::error_code unknown;
    std::filesystem::file_time_type time;
};

/// The old file under another name; gone again unless the file was changed.
class Backup {
public:
    Backup(const Job& job_, const LastChange& changed_)
        : job(job_), changed(changed_), place(job.name + "~"), widePlace(Brisa::wchar::fromBytes(place)) {}
    ~Backup() {
        if (made && !job.changed()) {
            Brisa::FileIO::unlink(widePlace);
        }
    }
    Backup(const Backup&) = delete;
    Backup& operator=(const Backup&) = delete;

    /// Before the first edit of the file. Throws Failure.
    void make() {
        if (job.options.dryRun) {
            demandPlace(place, false);
        } else if (!made) {
            Draft draft(place, false, Access::owner);
            draft.copy(job.path);
            changed.giveTo(Brisa::wchar::toBytes(draft.path()));
            draft.finish();
            made = true;
        }
    }

private:
    const Job& job;
    const LastChange& changed;
    const std::string place;
    const std::wstring widePlace;
    bool made = false;
};

/// Locks a file and reads its tree. Throws Failure unless it can be edited.
void claim(Job& job, const std::wstring& path) {
    MP4::Container& container = job.container;
    container.keepContents = false;
    container.keepUserData = true;
    container.dryRun = job.options.dryRun;
    demand(container.claim(path), "could not be opened");
    demand(!container.incomplete(), "could not be read whole");
    if (!looksLikeMp4(container)) {
        throw Failure("is no MP4 file");
    }
    Messages::begin(job.name, Brisa::wchar::toBytes(path));
}

void editInPlace(Job& job, const Work& work) {
    const std::filesystem::path file = job.name;
    const LastChange before(file);
    Backup backup(job, before);
    claim(job, job.path);
    job.container.newMovieBox = !job.options.rewrite;
    job.container.beforeWriting = [&] {
        job.options.backup ? backup.make() : void();
        return true;
    };
    work.run(job);
    if (job.options.keepTime && job.changed() && !job.options.dryRun) {
        before.giveTo(file);
    }
}

/// The result is written to the draft by the edit itself, or it is a copy of the file that is edited then.
void editInto(Draft& draft, Job& job, const Work& work) {
    if (work.result == Result::newFile) {
        draft.vacate();
        job.container.outputPath = draft.path().c_str();
    } else {
        draft.copy(job.path);
        claim(job, draft.path());
    }
    work.run(job);
    if (work.result == Result::newFile && !job.changed()) {
        draft.copy(job.path);
    }
    draft.finish();
}

void editTo(const std::string& output, Job& job, const Work& work) {
    const LastChange before(job.name);
    const std::wstring place = Brisa::wchar::fromBytes(output);
    if (job.options.dryRun) {
        demandPlace(output, job.options.force);
        claim(job, job.path);
        if (work.result == Result::newFile) {
            job.container.outputPath = place.c_str();
        } else {
            job.plan("a copy of " + grouped(job.container.root->boxSize) + " bytes, then");
        }
        work.run(job);
        return;
    }
    const std::filesystem::path target = output;
    Draft draft(output, job.options.force, Access::owner);
    claim(job, job.path);
    editInto(draft, job, work);
    if (job.options.keepTime) {
        before.giveTo(target);
    }
    job.add([&] { return "; written to " + output; });
}

} // namespace

void carryOut(Job& job, const Work& work) {
    const std::string& output = job.options.output;
    output.empty() ? editInPlace(job, work) : editTo(output, job, work);
}

} // namespace edit
