// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace edit {

/// The toolkit's own texts: pellmor-edit takes them instead of having them printed, and tells what became of
/// a file in words of its own. One object a process, for as long as the toolkit is used.
class Messages {
public:
    /// `verbose`: all texts are printed on standard error as well.
    explicit Messages(bool verbose);
    ~Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    /// Forgets what was said: the work on this file begins, under another path if that is given.
    static void begin(const std::string& file, const std::string& path = {});
    /// Why what was tried since then has failed, as the toolkit or else the system has told it; empty if
    /// neither has.
    static std::string reason();
    /// What the toolkit has said on standard error since then, the first of it; empty if nothing.
    static const std::string& warning();

    /// A scope in which the toolkit's results are printed, on standard output.
    class Printed {
    public:
        Printed();
        ~Printed();
        Printed(const Printed&) = delete;
        Printed& operator=(const Printed&) = delete;
    };
};

/// The system's words for an error number.
std::string systemReason(int error);

} // namespace edit
