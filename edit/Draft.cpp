// SPDX-License-Identifier: MIT
#include "Draft.h"

#include <cerrno>
#include <filesystem>

#include <unistd.h>

#include "Brisa/BrisaFileIO.h"
#include "Job.h"

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

void demandPlace(const std::string& place, bool mayReplace) {
    std::error_code missing;
    const auto status = std::filesystem::symlink_status(place, missing);
    if (std::filesystem::exists(status) && !mayReplace) {
        refuse(place);
    }
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        throw Failure(place + ": is no plain file, and stays");
    }
    const std::filesystem::path folder = std::filesystem::path(place).parent_path();
    if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0) {
        fail(place);
    }
}

Draft::Draft(const std::string& place_, bool mayReplace_, Brisa::NewFile::Access access)
    : place(place_), widePlace(Brisa::wchar::fromBytes(place)), mayReplace(mayReplace_) {
    demandPlace(place, mayReplace);
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

void Draft::copy(const std::wstring& source) {
    if (made == nullptr) {
        made = Brisa::NewFile::at(draft);
    }
    bool copied = false;
    if (made != nullptr) {
        made->keep();
        FileIO& to = made->file();
        FileIO::open(source, [&](FileIO& from) {
            const uint64_t length = from.length();
            copied = from.copyTo(to, length) == length && !from.failed() && to.adopt(from);
        });
    }
    if (!copied) {
        fail(place);
    }
}

void Draft::finish() {
    if (!(mayReplace ? FileIO::rename(draft, widePlace) : FileIO::renameNew(draft, widePlace))) {
        errno == EEXIST ? refuse(place) : fail(place);
    }
    draft.clear();
}

} // namespace edit
