#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Session.h"

namespace edit {

/// A new file, written beside the place that it is for; gone with the object unless it got there.
class Draft {
public:
    /// Throws Failure where a file is already, unless it may be replaced, or where none can be.
    Draft(const std::string& place, bool mayReplace);
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    ~Draft();

    [[nodiscard]] const std::wstring& path() const { return draft; }
    /// Puts the file in its place. Throws Failure.
    void finish();

private:
    const std::string name;
    const std::wstring place;
    const std::wstring draft;
    bool inPlace = false;
};

using Sink = std::function<bool(std::string_view)>; ///< takes a piece of a result; false once that has failed

/// Has a result written where the command line wants it: to standard output, or to a new file
/// (Options::output).
Status writeResult(Session& session, const std::function<bool(const Sink&)>& write);
/// The same for a result that can only be written to a path of its own.
Status writeFile(Session& session, const std::function<bool(const std::wstring&)>& write);

} // namespace edit
