// SPDX-License-Identifier: MIT
#include "Brisa/BrisaFileIO.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif
#include <unistd.h>

namespace Brisa {

namespace {

constexpr mode_t permissionBits = 07777;
constexpr mode_t accessBits = 0777; ///< without those that lend the owner's rights
constexpr mode_t groupBits = 0070;
constexpr uid_t sameOwner = static_cast<uid_t>(-1);

/// Gives a file the owner and group of another, and tells which of that one's permission bits it may
/// have then: only a privileged process may give a file away, and none to a group that it is not in.
mode_t bitsAfterGiving(int to, const struct stat& model) {
    if (::fchown(to, model.st_uid, model.st_gid) == 0) {
        return model.st_mode & permissionBits;
    }
    struct stat own {};
    const bool sameGroup =
        ::fchown(to, sameOwner, model.st_gid) == 0 || (::fstat(to, &own) == 0 && own.st_gid == model.st_gid);
    return model.st_mode & (sameGroup ? accessBits : accessBits & ~groupBits);
}

/// What the extended attributes of one open file came to that another was to have.
enum class Attributes { all, withoutAccessList, none };

#ifdef __linux__

constexpr const char* accessList = "system.posix_acl_access";

/// What this process may not do, or one of the file systems cannot.
bool isBeyondUs(int error) {
    return error == EPERM || error == EACCES || error == ENOTSUP || error == ENOSYS || error == EINVAL ||
           error == ENODATA;
}

/// What the system tells that is asked for the size first; errno is 0 if it did.
template <class Ask>
std::string told(Ask ask) {
    errno = 0;
    ssize_t size = ask(nullptr, 0);
    std::string bytes(static_cast<size_t>(std::max<ssize_t>(size, 0)), '\0');
    if (!bytes.empty()) {
        size = ask(bytes.data(), bytes.size());
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    }
    return bytes;
}

/// A folder may give its new files an access list, which widens what the permission bits say.
bool forgetAccessList(int file) {
    return ::fremovexattr(file, accessList) == 0 || isBeyondUs(errno);
}

Attributes copyAttributes(int from, int to) {
    const std::string names = told([=](char* room, size_t size) { return ::flistxattr(from, room, size); });
    auto result = errno == 0 || isBeyondUs(errno) ? Attributes::all : Attributes::none;
    const char* name = names.data();
    for (; name < names.data() + names.size() && result != Attributes::none; name += std::strlen(name) + 1) {
        const std::string value =
            told([=](char* room, size_t size) { return ::fgetxattr(from, name, room, size); });
        if (errno == 0 && ::fsetxattr(to, name, value.data(), value.size(), 0) == 0) {
            continue;
        }
        if (!isBeyondUs(errno)) {
            result = Attributes::none;
        } else if (std::strcmp(name, accessList) == 0) {
            result = Attributes::withoutAccessList;
        }
    }
    return result;
}

#else

bool forgetAccessList(int) {
    return true;
}

Attributes copyAttributes(int, int) {
    return Attributes::all;
}

#endif

} // namespace

bool FileIO::adopt(const FileIO& model) const {
    struct stat status {};
    if (!isOpen() || !model.isOpen() || ::fstat(model.descriptor, &status) != 0) {
        return false;
    }
    // The owner comes first, since changing it clears the set-user-ID bits.
    const mode_t bits = bitsAfterGiving(descriptor, status);
    if (!forgetAccessList(descriptor) || ::fchmod(descriptor, bits) != 0) {
        return false;
    }
    const Attributes copied = copyAttributes(model.descriptor, descriptor);
    if (copied == Attributes::withoutAccessList) { // the group's bits were bounds for all on the list
        return ::fchmod(descriptor, bits & ~groupBits) == 0;
    }
    return copied == Attributes::all;
}

} // namespace Brisa
