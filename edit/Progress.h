// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace edit {

/// One line about long work, over all files of a command: how much is done, how fast, how long it will take.
///
/// It is drawn on standard error, if that is a terminal, from the second second on, and is gone with the
/// object.
class Progress {
public:
    /// `total`: the bytes that are expected to be transferred. A quiet one is never drawn.
    Progress(uint64_t total, bool quiet);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Work on a file begins, for which so many bytes are expected; what was there before it is done.
    void begin(const std::string& file, uint64_t bytes);
    /// Of the file, so many bytes more were transferred.
    void passed(uint64_t bytes);
    /// Takes the line away, for other words.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    void draw(Clock::time_point now);

    const bool visible;
    const uint64_t total;
    const Clock::time_point start = Clock::now();
    Clock::time_point drawn = start;
    uint64_t before = 0; ///< bytes of the files that are done
    uint64_t length = 0; ///< of the current one
    uint64_t current = 0;
    uint64_t transferred = 0; ///< bytes, as the system was asked for them
    std::string name;
    bool onScreen = false;
};

} // namespace edit
