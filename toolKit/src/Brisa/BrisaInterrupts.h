// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include <signal.h>

#include "Brisa/BrisaFileIO.h"

namespace Brisa {

/// For a program's main(): an interrupt ends the running work as a failed one instead of the process.
///
/// As long as the object lives, INT, TERM and HUP are only remembered, unless they were ignored when the
/// program started (nohup), and whoever asks hook() hears no from then on. A file size limit and a pipe
/// that nobody reads make a write fail and do nothing more. One object a process.
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// The first signal that came, 0 if none did. A program that was interrupted ends with 128 + signal.
    [[nodiscard]] static int signal();
    /// Its name, such as "SIGINT".
    [[nodiscard]] static const wchar_t* name();
    /// What a Watch asks: whether no signal came.
    [[nodiscard]] static Watch::Hook hook();

private:
    struct Handling {
        int signal;
        bool remembered; ///< or ignored
        struct sigaction before;
    };
    std::array<Handling, 5> handled;
};

} // namespace Brisa
