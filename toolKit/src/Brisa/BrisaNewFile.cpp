#include "Brisa/BrisaNewFile.h"

#include <cerrno>
#include <random>
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

/// Like the line of a file that could not be opened for writing, which this is to its user.
std::nullptr_t told(const std::wstring& path) {
    Console::out(L"open(%ls, '%c') failed.\n", path.c_str(), 'w');
    return nullptr;
}

} // namespace

NewFile::NewFile(std::wstring path, Access access)
    : name(std::move(path)), handle(name, access == Access::owner ? 'x' : 'n') {}

NewFile::~NewFile() {
    if (temporary && handle.isFileAt(name)) {
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
        if (!FileIO::isLeftover(path)) {
            errno = EEXIST;
            return nullptr;
        }
        FileIO::unlink(path);
        made = created(path, access);
    }
    return made != nullptr ? std::move(made) : told(path);
}

std::unique_ptr<NewFile> NewFile::beside(const std::wstring& place, Access access) {
    const std::wstring folder = place.substr(0, place.rfind(L'/') + 1);
    std::unique_ptr<NewFile> made;
    std::wstring start = place + L".";
    for (int tried = 0; made == nullptr && tried < longestSearch; ++tried) {
        made = created(start + randomName() + suffix, access);
        if (made != nullptr || (errno != EEXIST && errno != ENAMETOOLONG)) {
            break;
        }
        start = errno == ENAMETOOLONG ? folder : start;
    }
    return made != nullptr ? std::move(made) : told(place);
}

bool NewFile::mayTake() const {
    if (!handle.isFileAt(name)) {
        errno = ENOENT;
        return false;
    }
    return Watch::goOn();
}

bool NewFile::take(const std::wstring& place, bool durable, const FileIO* old) {
    if ((old != nullptr && !handle.adopt(*old)) || (durable && !handle.sync()) || !mayTake() ||
        !FileIO::rename(name, place)) {
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
