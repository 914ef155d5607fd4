// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include "Job.h"
#include "Text.h"

namespace edit {

/// Has a result written where the command line wants it (Options::output): to standard output, to a new file,
/// or into the device or pipe of that name. `write` tells whether it could write all of it. Throws Failure.
void writeResult(Job& job, const std::function<bool(const Sink&)>& write);
/// The same for a result that can only be written to a path.
void writeFile(Job& job, const std::function<bool(const std::wstring&)>& write);

} // namespace edit
