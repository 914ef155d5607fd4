// SPDX-License-Identifier: MIT
#include "Output.h"

#include <cerrno>
#include <filesystem>

#include "Brisa/BrisaFileIO.h"
#include "Input.h"

namespace edit {

using Brisa::FileIO;

namespace {

[[noreturn]] void refuse(const std::string& place) {
    throw Failure(place + " is there already", Status::refused);
}

[[noreturn]] void fail(const std::string& place) {
    throw Failure(place + ": could not be written: " + systemReason(errno));
}

} // namespace

Draft::Draft(const std::string& place_, bool mayReplace_, Brisa::NewFile::Access access)
    : place(place_), widePlace(widened(place)), mayReplace(mayReplace_) {
    std::error_code missing;
    const auto status = std::filesystem::symlink_status(place, missing);
    if (std::filesystem::exists(status) && !(mayReplace && std::filesystem::is_regular_file(status))) {
        mayReplace ? throw Failure(place + ": is no plain file, and stays") : refuse(place);
    }
    made = Brisa::NewFile::beside(widePlace, access);
    if (made == nullptr) {
        fail(place);
    }
    draft = made->path();
    made->keep();
}

Draft::~Draft() {
    if (!draft.empty()) {
        FileIO::unlink(draft);
    }
}

void Draft::vacate() {
    FileIO::unlink(draft);
    made.reset();
}

bool Draft::copyOf(const std::wstring& source) {
    if (made == nullptr) {
        made = Brisa::NewFile::at(draft);
    }
    if (made == nullptr) {
        return false;
    }
    made->keep();
    FileIO& to = made->file();
    bool copied = false;
    FileIO::open(source, [&](FileIO& from) {
        const uint64_t length = from.length();
        copied = from.copyTo(to, length) == length && !from.failed() && to.adopt(from);
    });
    return copied;
}

void Draft::finish() {
    if (!(mayReplace ? FileIO::rename(draft, widePlace) : FileIO::renameNew(draft, widePlace))) {
        errno == EEXIST ? refuse(place) : fail(place);
    }
    draft.clear();
}

Status writeResult(Job& job, const std::function<bool(const Sink&)>& write) {
    const std::string& output = job.options.output;
    if (output.empty() || output == "-") {
        return write(Job::print) ? job.done([] { return ""; })
                                 : job.failed("could not be written to standard output");
    }
    return writeFile(job, [&](const std::wstring& path) {
        bool written = false;
        const auto sink = [&](FileIO& file) {
            written = write([&](std::string_view text) {
                return file.writeAll(text.data(), text.size()) == text.size();
            });
        };
        return FileIO::open_w(path, sink) && written;
    });
}

Status writeFile(Job& job, const std::function<bool(const std::wstring&)>& write) {
    const std::string& output = job.options.output;
    demandOther(job.name, output);
    Draft draft(output, job.options.force);
    if (!write(draft.path())) {
        return job.failed(output + " could not be written");
    }
    draft.finish();
    return job.done([&] { return "written to " + output; });
}

} // namespace edit
