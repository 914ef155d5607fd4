// SPDX-License-Identifier: MIT
#include "Progress.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <unistd.h>

namespace edit {

Progress::Progress(uint64_t total_, bool quiet)
    : visible(!quiet && isatty(STDERR_FILENO) == 1), total(total_) {}

Progress::~Progress() {
    clear();
}

void Progress::begin(const std::string& file, uint64_t bytes) {
    before += length;
    length = bytes;
    current = 0;
    name = file;
    passed(0);
}

void Progress::passed(uint64_t bytes) {
    current = std::min(current + bytes, length);
    transferred += bytes;
    const Clock::time_point now = Clock::now();
    constexpr auto patience = std::chrono::seconds(1);
    constexpr auto pause = std::chrono::milliseconds(100);
    if (visible && now - start >= patience && now - drawn >= pause) {
        draw(now);
    }
}

void Progress::draw(Clock::time_point now) {
    constexpr double mebibyte = 1 << 20;
    const double seconds = std::chrono::duration<double>(now - start).count();
    const auto done = static_cast<double>(before + current);
    const double rate = static_cast<double>(transferred) / seconds;
    const double left = rate > 0 ? (static_cast<double>(total) - done) / rate : 0;
    const auto wait = static_cast<unsigned>(std::clamp(left, 0.0, 359999.0));
    std::array<char, 80> line{};
    std::snprintf(line.data(), line.size(), "\r\033[K%3.0f %%  %7.1f MiB/s  %u:%02u left  ",
                  total > 0 ? std::min(100.0, 100 * done / static_cast<double>(total)) : 100.0,
                  rate / mebibyte, wait / 60, wait % 60);
    std::fprintf(stderr, "%s%.40s", line.data(), name.c_str());
    std::fflush(stderr);
    drawn = now;
    onScreen = true;
}

void Progress::clear() {
    if (onScreen) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        onScreen = false;
    }
}

} // namespace edit
