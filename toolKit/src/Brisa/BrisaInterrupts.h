// SPDX-License-Identifier: MIT
#pragma once

#include "Brisa/BrisaFileIO.h"

namespace Brisa {

/// For a program's main(): an interrupt ends the running work as a failed one instead of the process.
class Interrupts {
public:
    /// From now on, and to the end of the process (once a file is changed, a signal is too late), INT, TERM
    /// and HUP are only remembered, unless they were ignored when the program started (nohup), and whoever
    /// asks hook() hears no. A file size limit and a pipe that nobody reads make a write fail and do nothing
    /// more.
    static void remember();

    /// The first signal that came, 0 if none did. A program that was interrupted ends with 128 + signal.
    [[nodiscard]] static int signal();
    /// Its name, such as "SIGINT".
    [[nodiscard]] static const wchar_t* name();
    /// What a Watch asks: whether no signal came.
    [[nodiscard]] static Watch::Hook hook();
};

} // namespace Brisa
