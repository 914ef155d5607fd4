// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>

namespace Brisa {

/// A scope that leaves errno as it found it: speaking of a failure must not hide its reason.
class ErrnoKept {
public:
    ErrnoKept() = default;
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;
    ~ErrnoKept() { errno = before; }

private:
    const int before = errno;
};

} // namespace Brisa
