#include "Faults.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

test::Fault armed = test::Fault::error;
int callsLeft = 0; ///< 0: no fault is armed
bool reached = false;
bool diskFull = false;
bool flushed = false; ///< no write since the last flush

/// Whether this is the call that fails.
bool fails() {
    if (callsLeft == 0 || --callsLeft != 0) {
        return false;
    }
    reached = true;
    if (armed == test::Fault::kill) {
        ::raise(SIGKILL);
    }
    return armed == test::Fault::error;
}

int error() {
    errno = EIO;
    return -1;
}

} // namespace

// The linker's names for the call and for what it replaces.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int file, void* bytes, size_t count);
ssize_t __real_write(int file, const void* bytes, size_t count);
off_t __real_lseek(int file, off_t offset, int whence);
int __real_fstat(int file, struct stat* status);
int __real_ftruncate(int file, off_t size);
int __real_fsync(int file);
int __real_fchmod(int file, mode_t mode);
int __real_rename(const char* from, const char* to);

int __wrap_open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return fails() ? error() : __real_open(path, flags, mode);
}
ssize_t __wrap_read(int file, void* bytes, size_t count) {
    return fails() ? error() : __real_read(file, bytes, count);
}
ssize_t __wrap_write(int file, const void* bytes, size_t count) {
    flushed = false;
    if (fails()) {
        return error();
    }
    if (!diskFull && reached && armed == test::Fault::shortWrite) {
        diskFull = true;
        return __real_write(file, bytes, count / 2);
    }
    struct stat status {};
    __real_fstat(file, &status);
    if (diskFull && __real_lseek(file, 0, SEEK_CUR) + static_cast<off_t>(count) > status.st_size) {
        errno = ENOSPC;
        return -1;
    }
    return __real_write(file, bytes, count);
}
off_t __wrap_lseek(int file, off_t offset, int whence) {
    return fails() ? error() : __real_lseek(file, offset, whence);
}
int __wrap_ftruncate(int file, off_t size) {
    return fails() ? error() : __real_ftruncate(file, size);
}
int __wrap_fsync(int file) {
    flushed = true;
    return fails() ? error() : __real_fsync(file);
}
int __wrap_fchmod(int file, mode_t mode) {
    return fails() ? error() : __real_fchmod(file, mode);
}
int __wrap_fstat(int file, struct stat* status) {
    return fails() ? error() : __real_fstat(file, status);
}
int __wrap_rename(const char* from, const char* to) {
    EXPECT_TRUE(flushed) << "a file takes the place of another before it is on the disk";
    return fails() ? error() : __real_rename(from, to);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace test {

FaultAt::FaultAt(Fault fault, int call) {
    armed = fault;
    reached = diskFull = false;
    callsLeft = call;
}

FaultAt::~FaultAt() {
    callsLeft = 0;
    diskFull = false;
}

bool FaultAt::met() {
    return reached;
}

namespace {

size_t openDescriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

/// Runs the edit with a fault and returns whether it met it; `told` is what the edit says.
bool runWithFault(Fault fault, int call, const std::function<bool()>& edit, bool& told) {
    if (fault != Fault::kill) {
        const FaultAt at(fault, call);
        told = quietly(edit);
        return FaultAt::met();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const FaultAt at(fault, call);
        _exit(quietly(edit) ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    told = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return WIFSIGNALED(status);
}

} // namespace

void expectAllOrNothing(Fault fault, const Bytes& before, const Bytes& after,
                        const std::function<bool(const std::wstring&)>& edit) {
    bool met = true;
    for (int call = 1; met && !testing::Test::HasFailure(); ++call) {
        ASSERT_LT(call, 10000);
        const Scratch scratch;
        const auto path = scratch.file("f.mp4", before);
        const size_t open = openDescriptors();
        bool told = false;
        met = runWithFault(
            fault, call, [&] { return edit(path); }, told);
        const Bytes content = contentOf(path);
        if (fault == Fault::kill && met) {
            EXPECT_TRUE(content == before || content == after) << "killed at call " << call;
        } else {
            EXPECT_EQ(content == after, told) << "call " << call;
            EXPECT_EQ(content == before, !told) << "call " << call;
            EXPECT_EQ(scratch.count(), 1U) << "call " << call;
        }
        EXPECT_EQ(openDescriptors(), open) << "call " << call;
        if (!met) {
            EXPECT_TRUE(told) << "the edit fails without any fault";
        }
    }
}

} // namespace test
