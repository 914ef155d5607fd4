// SPDX-License-Identifier: MIT
#include "Brisa/BrisaNewFile.h"

#include <cerrno>
#include <filesystem>
#include <random>
#include <system_error>
#include <utility>

#include "Brisa/BrisaConsole.h"

namespace Brisa {

namespace {

constexpr const wchar_t* suffix = L".part";
constexpr size_t randomLetters = 6;
constexpr int longestSearch = 100;

std::wstring randomName() {
    static constexpr std::wstring_view letters = L"abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device source;
    std::wstring text;
    for (size_t i = 0; i < randomLetters; ++i) {
        text += letters[source() % letters.size()];
    }
    return text;
}

namespace fs = std::filesystem;

/// Where symbolic links lead to, be there something or not.
fs::path followed(fs::path path) {
    std::error_code none;
    for (int links = 0; links < longestSearch && fs::is_symlink(path, none); ++links) {
        path = path.parent_path() / fs::read_symlink(path, none);
    }
    return path;
}

/// Why a folder may let a file be written and not be replaced.
bool isFixed(int error) {
    return error == EACCES || error == EPERM || error == EBUSY || error == EXDEV;
}

bool overwrite(const std::wstring& path, const std::function<bool(FileIO&)>& content) {
    bool written = false;
    FileIO::open_w(path, [&](FileIO& file) { written = content(file); });
    return written;
}

/// Like the line of a file that could not be opened for writing, which this is to its user.
std::nullptr_t told(const std::wstring& path) {
    Console::out(L"open(%ls, '%c') failed.\n", path.c_str(), 'w');
    return nullptr;
}

} // namespace

NewFile::NewFile(std::wstring path, Access access)
    : name(std::move(path)), handle(name, access == Access::owner ? 'x' : 'n') {}

NewFile::~NewFile() {
    if (temporary && handle.isOpen() && !handle.isNotFileAt(name)) {
        FileIO::unlink(name);
    }
}

std::unique_ptr<NewFile> NewFile::created(const std::wstring& path, Access access) {
    std::unique_ptr<NewFile> made(new NewFile(path, access));
    return made->handle.isOpen() ? std::move(made) : nullptr;
}

std::unique_ptr<NewFile> NewFile::at(const std::wstring& path, Access access) {
    auto made = created(path, access);
    if (made == nullptr && errno == EEXIST) {
        if (!FileIO::isFree(path)) {
            errno = EEXIST;
            return nullptr;
        }
        FileIO::unlink(path);
        made = created(path, access);
    }
    return made != nullptr ? std::move(made) : told(path);
}

std::unique_ptr<NewFile> NewFile::createdBeside(const std::wstring& place, Access access) {
    std::wstring start = place + L".";
    for (int tried = 0; tried < longestSearch; ++tried) {
        auto made = created(start + randomName() + suffix, access);
        if (made != nullptr || (errno != EEXIST && errno != ENAMETOOLONG)) {
            return made;
        }
        if (errno == ENAMETOOLONG) {
            const size_t slash = place.rfind(L'/');
            start = slash == std::wstring::npos ? L"" : place.substr(0, slash + 1);
        }
    }
    return nullptr;
}

std::unique_ptr<NewFile> NewFile::beside(const std::wstring& place, Access access) {
    auto made = createdBeside(place, access);
    return made != nullptr ? std::move(made) : told(place);
}

bool NewFile::write(const std::wstring& path, const std::function<bool(FileIO&)>& content) {
    const fs::path given = wchar::toBytes(path);
    std::error_code none;
    const fs::file_type there = fs::status(given, none).type();
    const bool isNew = there == fs::file_type::not_found;
    if (!given.has_filename() || (!isNew && there != fs::file_type::regular)) {
        return overwrite(path, content);
    }
    const std::wstring place = wchar::fromBytes(followed(given).native());
    const FileIO old(place, 'e');
    if (!isNew && !old.isFileAt(path)) {
        return overwrite(path, content); // which says why it cannot
    }
    const auto made = createdBeside(place, isNew ? Access::usual : Access::owner);
    if (made == nullptr && !isNew && isFixed(errno)) {
        return overwrite(path, content);
    }
    if (made == nullptr) {
        told(path);
        return false;
    }
    if (!isNew) {
        made->file().flushSoon();
    }
    if (!content(made->file())) {
        return false;
    }
    return isNew ? made->takeNew(place)
                 : made->take(place, true, &old) || (isFixed(errno) && overwrite(path, content));
}

bool NewFile::mayTake() const {
    if (!handle.isFileAt(name)) {
        errno = ENOENT;
        return false;
    }
    return Watch::goOn();
}

bool NewFile::take(const std::wstring& place, bool durable, const FileIO* old,
                   const std::function<bool()>& lastLook) {
    if ((old != nullptr && !handle.adopt(*old)) || (durable && !handle.sync()) || !mayTake() ||
        (lastLook && !lastLook()) || !FileIO::rename(name, place)) {
        return false;
    }
    temporary = false;
    if (durable) {
        FileIO::syncFolderOf(place);
    }
    return true;
}

bool NewFile::takeNew(const std::wstring& place) {
    temporary = !(mayTake() && FileIO::renameNew(name, place));
    return !temporary;
}

} // namespace Brisa
