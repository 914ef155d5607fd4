#pragma once

#include <cstdint>
#include <functional>

#include "Scratch.h"

// The system calls of the toolkit, made to fail one after the other. The test program is linked so
// that open, read, write, lseek, fstat, ftruncate, fsync, fchmod and rename come here first.

namespace test {

enum class Fault {
    error,      ///< the call fails
    shortWrite, ///< a write moves half of the bytes, and none can make a file longer from then on: a full
                ///< disk
    kill,       ///< the process ends there
};

/// As long as it lives, the n-th call from now on fails (counted from 1).
class FaultAt {
public:
    FaultAt(Fault fault, int call);
    ~FaultAt();
    FaultAt(const FaultAt&) = delete;
    FaultAt& operator=(const FaultAt&) = delete;

    /// Whether that many calls were made.
    [[nodiscard]] static bool met();
};

/// Runs an edit of a file with its first call failing, with its second, and so on, until a run meets
/// no fault. After each, the file must be the old one or, if the edit says so, the new one; the folder
/// must hold nothing else; no descriptor may be left open.
void expectAllOrNothing(Fault fault, const Bytes& before, const Bytes& after,
                        const std::function<bool(const std::wstring&)>& edit);

} // namespace test
