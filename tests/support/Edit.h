// SPDX-License-Identifier: MIT
#pragma once

#include "MP4Container.h"
#include "Scratch.h"

namespace test {

/// One edit of one file. What no row names stays as it is.
struct EditCase {
    std::string name;
    std::function<bool(MP4::Container&)> edit;
    Bytes before;
    Bytes after = "";        ///< empty: as before
    std::string out = "";    ///< what is printed; or `failed` (the edit says so), `refused` (without a word)
    std::string reason = ""; ///< what standard error tells of a failure
};

constexpr const char* failed = "failed";
constexpr const char* refused = "refused";

/// The rows are judged in edit_test.cpp; each subject adds its own.
class Edit : public testing::TestWithParam<EditCase> {};

/// An edit that is one operation of the container.
template <class... Expected, class... Given>
std::function<bool(MP4::Container&)> edit(bool (MP4::Container::*operation)(Expected...), Given... given) {
    return [=](MP4::Container& container) { return (container.*operation)(given...); };
}

inline ByteArray arrayOf(const Bytes& bytes) {
    ByteArray array;
    array.assign(bytes.data(), bytes.size());
    return array;
}

} // namespace test
