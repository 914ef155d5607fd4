// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include <gmock/gmock.h>

#include "Bytes.h"

namespace test {

/// A folder of its own for one test, gone with the object.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    /// The wide path of `name` in the folder.
    [[nodiscard]] std::wstring operator/(const std::string& name) const { return (root / name).wstring(); }
    /// Writes a file and returns its wide path.
    [[nodiscard]] std::wstring file(const Bytes& content, const std::string& name = "f.mp4") const;
    /// How many files the folder holds.
    [[nodiscard]] size_t count() const;

private:
    std::filesystem::path root;
};

Bytes contentOf(const std::wstring& path);

/// What a piece of work prints through the console. Standard output and error are replaced meanwhile, so that wide output of
/// the toolkit and narrow output of the test framework never meet in one stream; expectations belong outside.
struct Printed {
    std::string out;
    std::string err;
};

Printed printed(const std::function<void()>& work);

/// The result of work whose console text does not matter.
template <class Work>
auto quietly(Work work) {
    decltype(work()) result{};
    printed([&] { result = work(); });
    return result;
}

/// Names the tests of a table after the `name` of their rows.
template <class Case>
std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

} // namespace test
