// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace edit {

/// Takes a piece of a result; false if it could not be written, after which no more comes.
using Sink = std::function<bool(std::string_view)>;

/// A number as people read it: 38,192,003
std::string grouped(uint64_t number);

} // namespace edit
