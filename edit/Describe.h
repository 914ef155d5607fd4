// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace edit {

/// Writes the commands and their options to standard output: as the completion of a shell ("bash", "fish",
/// "zsh") or as the part of the manual page that is about them ("man"). False for any other form.
bool describe(const CLI::App& app, const std::string& form);

} // namespace edit
