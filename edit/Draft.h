// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "Brisa/BrisaNewFile.h"

namespace edit {

/// Throws Failure where a Draft could not take `place`: where something is that may not be replaced, or no
/// folder in which a file can be made.
void demandPlace(const std::string& place, bool mayReplace);

/// A new file, written under a name that nobody has beside the place that it is for; gone with the object
/// unless it got there.
class Draft {
public:
    /// Makes an empty file. Throws Failure as demandPlace() does, and where none can be made. It can be read
    /// by others as usual, or only by its owner until it adopts more.
    Draft(const std::string& place, bool mayReplace,
          Brisa::NewFile::Access access = Brisa::NewFile::Access::usual);
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    ~Draft();

    [[nodiscard]] const std::wstring& path() const { return draft; }
    /// Takes the empty file away again, for one who renames a file of his own to this path: where one is
    /// renamed over another, some systems write all of it to disk first.
    void vacate();
    /// Makes it a copy of a file, attributes included. Throws Failure.
    void copy(const std::wstring& source);
    /// Puts the file in its place. Throws Failure.
    void finish();

private:
    const std::string place;
    const std::wstring widePlace;
    const bool mayReplace;
    std::unique_ptr<Brisa::NewFile> made; ///< the file itself, until it was taken away
    std::wstring draft;
};

} // namespace edit
