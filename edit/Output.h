// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Brisa/BrisaNewFile.h"
#include "Job.h"
#include "Text.h"

namespace edit {

/// A new file, written under a name that nobody has beside the place that it is for; gone with the object
/// unless it got there.
class Draft {
public:
    /// Makes an empty file. Throws Failure where a file is at `place` already, unless it may be replaced, and
    /// where none can be made. It can be read by others as usual, or only by its owner until it adopts more.
    Draft(const std::string& place, bool mayReplace,
          Brisa::NewFile::Access access = Brisa::NewFile::Access::usual);
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    ~Draft();

    [[nodiscard]] const std::wstring& path() const { return draft; }
    /// Takes the empty file away again, for one who renames a file of his own to this path: where one is
    /// renamed over another, some systems write all of it to disk first.
    void vacate();
    /// Makes it a copy of a file, attributes included; whether that succeeded.
    [[nodiscard]] bool copyOf(const std::wstring& source);
    /// Puts the file in its place. Throws Failure.
    void finish();

private:
    const std::string place;
    const std::wstring widePlace;
    const bool mayReplace;
    std::unique_ptr<Brisa::NewFile> made; ///< the file itself, until it was taken away
    std::wstring draft;
};

/// Has a result written where the command line wants it: to standard output, or to a new file
/// (Options::output).
Status writeResult(Job& job, const std::function<bool(const Sink&)>& write);
/// The same for a result that can only be written to a path of its own.
Status writeFile(Job& job, const std::function<bool(const std::wstring&)>& write);

} // namespace edit
