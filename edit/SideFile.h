// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace edit {

/// The whole content of a side file; "-" is the standard input. Throws Failure with the system's reason, and
/// WrongArguments for one that no 32-bit size can tell.
std::string contentOf(const std::string& path);

/// Throws WrongArguments if both name one file: what is made from a file cannot take its place or go into it.
void demandOther(const std::string& source, const std::string& place);

/// Throws WrongArguments, with the place, unless the text is well-formed XML.
void demandXml(const std::string& text, const std::string& path);

} // namespace edit
