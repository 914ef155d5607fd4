#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

inline void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Lets the console print nowhere.
inline void silenceConsole() {
    static FILE* const silenced = std::freopen("/dev/null", "w", stdout);
    require(silenced != nullptr);
}
