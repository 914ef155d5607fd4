// SPDX-License-Identifier: MIT
// Console, files and conversions.

#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cwchar>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Brisa/BrisaConsole.h"
#include "Brisa/BrisaNewFile.h"
#include "support/Scratch.h"

using Brisa::Console;
using Brisa::FileIO;
using Brisa::NewFile;
using namespace test;

namespace {

std::string narrow(const std::wstring& path) {
    return {path.begin(), path.end()};
}

} // namespace

TEST(Console, PrintsAtOnceAndDumpsInHexadecimal) {
    const auto [out, err] = printed([] {
        const unsigned char bytes[] = {0x00, 0xAB, 0x10};
        Console::dump(L"bytes:", bytes, sizeof bytes);
        Console::dump(L"none:", bytes, 0);
        Console::err(L"reason %d", 7);
        Console::out(L"no newline");
    });
    EXPECT_EQ(out, "bytes: 00 AB 10\nnone:\nno newline");
    EXPECT_EQ(err, "reason 7");
}

TEST(FileIO, OpensReadsAndFailsInWords) {
    const Scratch scratch;
    const auto path = scratch.file("0123456789");
    const auto missing = scratch / "missing";
    char byte = 0;
    std::vector<uint64_t> results;
    const auto [out, err] = printed([&] {
        FileIO closed(missing, 'a');
        results = {closed.read(&byte, 1), closed.write(&byte, 1), closed.length(), static_cast<uint64_t>(closed.seek_set(0))};
        Brisa::FileIO_show_process_file_name = true;
        FileIO::open_a(path, [](FileIO& file) { file.write("X", 1); });
        Brisa::FileIO_show_process_file_name = false;
        FileIO::open(path, [&](FileIO& file) {
            results.push_back(static_cast<uint64_t>(file.seek_set(4) && !file.seek_cur(-5) && !file.seek_set(~0ULL) && file.failed()));
            results.insert(results.end(), {file.position(), file.write("x", 1)});
        });
    });
    EXPECT_THAT(results, testing::ElementsAre(~0ULL, ~0ULL, 0, 0, 1, 4, ~0ULL));
    EXPECT_EQ(out, "open(" + narrow(missing) + ", 'a') failed.\nprocessing " + narrow(path) + " ...\n" +
                       "seek_cur(-5) failed - Invalid argument(22)\nseek_set(-1) failed - Invalid argument(22)\n");
    EXPECT_EQ(contentOf(path), "X123456789") << "update mode starts at offset 0 and truncates nothing";
    EXPECT_TRUE(FileIO::open_w(path, [](FileIO&) {}) && FileIO::open_w(missing, [](FileIO&) {}));
    EXPECT_EQ(contentOf(path), "");
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(static_cast<mode_t>(std::filesystem::status(missing).permissions()), 0644 & ~mask);
    EXPECT_THROW(FileIO::open(path, nullptr), std::bad_function_call);
}

TEST(Names, ComeBackByteForByteInAnyLocale) {
    std::string name = "S\xC3\xBC"
                       "d \xE3\x81\x8B \xF4\x8F\xBD\x81 \xED\xA0\x80 \xC3";
    for (int byte = 1; byte < 256; ++byte) {
        name += static_cast<char>(byte);
    }
    for (const char* locale : {"C.UTF-8", "C"}) {
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        const std::wstring wide = Brisa::wchar::fromBytes(name);
        EXPECT_EQ(wide.size(), name.size() - (locale == std::string("C") ? 0 : 3)) << "kana and umlaut are characters where they are known";
        EXPECT_EQ(printed([&] { Console::out(L"%ls", wide.c_str()); }).out, name);
        EXPECT_EQ(Brisa::wchar::wcs2mbs(std::wstring(1000, L'x') + std::wstring(600, L'\u304B')).c_str(),
                  repeated("x", 1000) + repeated("\xE3\x81\x8B", 349))
            << "cut behind the last character that fits";
    }
}

TEST(Console, LeavesTheHostItsStreamsAndItsErrno) {
    std::string sunk;
    const auto [out, err] = printed([&] {
        std::printf("host ");
        errno = 7;
        Console::out(L"%ls ", L"\u304B");
        std::printf("host%d ", errno);
        Console::setSink(
            [&](Console::Stream stream, const std::string& text) { sunk += (stream == Console::Stream::err ? "E" : "O") + text; });
        Console::err(L"%ls", std::wstring(5000, L'x').c_str());
        Console::setSink({});
        std::fwide(stdout, -1);
        std::fwide(stderr, 1); // as a host makes it that prints wide text itself
        Console::err(L"<%ls>", L"\u304B");
    });
    EXPECT_EQ(out, "host \xE3\x81\x8B host7 ");
    EXPECT_EQ(err, "<?>");
    EXPECT_EQ(sunk, "E" + std::string(5000, 'x'));
}

TEST(FileIO, StopsWhenTheWatchSaysNo) {
    constexpr uint64_t block = Brisa::Watch::blockBytes;
    const Scratch scratch;
    const auto source = scratch.file(""), copy = scratch / "copy";
    std::filesystem::resize_file(source, 5 * block);
    std::vector<uint64_t> told;
    const auto once = [&](uint64_t bytes) { return told.push_back(bytes), told.size() < 2; };
    const auto transfer = [&](const std::function<uint64_t(FileIO&, FileIO&)>& move) {
        told.clear();
        uint64_t moved = 0;
        FileIO::open(source, [&](FileIO& from) { FileIO::open_w(copy, [&](FileIO& to) { moved = move(from, to); }); });
        return moved;
    };
    std::vector<char> room(5 * block);
    const Brisa::Watch watch(once);
    EXPECT_LT(transfer([](FileIO& from, FileIO& to) { return from.copyTo(to, 5 * block) + (from.failed() ? 0 : 5 * block); }), 3 * block);
    EXPECT_EQ(transfer([&](FileIO& from, FileIO&) { return from.readAll(room.data(), room.size()); }), 2 * block);
    EXPECT_EQ(transfer([&](FileIO&, FileIO& to) { return to.writeAll(room.data(), room.size()); }), 2 * block);
    EXPECT_THAT(told, testing::ElementsAre(block, block));
    const Brisa::Watch nobody({});
    EXPECT_EQ(transfer([&](FileIO& from, FileIO& to) { return from.copyTo(to, 5 * block); }), 5 * block);
}

TEST(FileIO, GoesOnBehindAShortWrite) {
    const Scratch scratch;
    const auto path = scratch / "pipe";
    ASSERT_EQ(::mkfifo(narrow(path).c_str(), 0600), 0);
    Bytes sent(300'000, 's'), received(sent.size(), 'r');
    std::thread writer(
        [&] { FileIO::open_w(path, [&](FileIO& pipe) { EXPECT_EQ(pipe.writeAll(sent.data(), sent.size()), sent.size()); }); });
    FileIO reader(path, 's');
    const int pipe = ::open(narrow(path).c_str(), O_RDONLY);
    for (int waiting = 0; waiting < ::fcntl(pipe, F_GETPIPE_SZ); ::ioctl(pipe, FIONREAD, &waiting)) {
        std::this_thread::yield();
    }
    std::signal(SIGUSR1, [](int) {});
    ::pthread_kill(writer.native_handle(), SIGUSR1); // ends a write that waits for room with what it has written
    ::close(pipe);
    EXPECT_EQ(reader.readAll(received.data(), received.size()), sent.size());
    writer.join();
    EXPECT_EQ(received, sent);
}

TEST(FileIO, WaitsForALock) {
    const Scratch scratch;
    const auto path = scratch.file("");
    auto holder = std::make_unique<FileIO>(path, 'r');
    const FileIO other(path, 'a');
    EXPECT_TRUE(holder->lock());
    EXPECT_FALSE(other.lock(0.02));
    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        holder.reset();
    });
    EXPECT_TRUE(other.lock(60));
    release.join();
}

TEST(NewFile, HarmsNothingThatIsThere) {
    namespace fs = std::filesystem;
    const Scratch scratch;
    const auto place = scratch.file("old", "place"), name = scratch / "name", other = scratch / "other";
    for (const bool hard : {false, true}) {
        hard ? fs::create_hard_link(place, name) : fs::create_symlink(place, name);
        EXPECT_EQ(NewFile::at(name), nullptr);
        fs::remove(name);
    }
    (void)scratch.file("left over", "name");
    auto file = NewFile::at(name);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(fs::status(name).permissions(), fs::perms(0600));
    EXPECT_TRUE(file->file().writeAll("new", 3) == 3 && !file->takeNew(place));
    EXPECT_EQ(contentOf(place), "old");
    fs::permissions(place, fs::perms(0604));
    EXPECT_TRUE(file->take(place, true, std::make_unique<FileIO>(place, 'r').get()));
    EXPECT_EQ(contentOf(place), "new");
    EXPECT_EQ(fs::status(place).permissions(), fs::perms(0604));

    file = NewFile::beside(other);
    EXPECT_TRUE(file->takeNew(other) && FileIO::exist(other));
    file = NewFile::beside(other);
    EXPECT_EQ(scratch.count(), 3U);
    fs::rename(place, file->path()); // somebody else's under its name
    EXPECT_FALSE(file->take(other, false));
    const std::wstring theirs = file->path();
    file.reset();
    EXPECT_EQ(contentOf(theirs), "new");
    NewFile::beside(place).reset();
    EXPECT_EQ(scratch.count(), 2U);
}
