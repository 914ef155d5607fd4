#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "Bytes.h"

namespace test {

/// A folder of its own for one test, gone with the object.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    [[nodiscard]] std::filesystem::path folder() const { return root; }
    /// The wide path of `name` in the folder.
    [[nodiscard]] std::wstring operator/(const std::string& name) const { return (root / name).wstring(); }
    /// Writes a file and returns its wide path.
    std::wstring file(const std::string& name, const Bytes& content) const;
    /// How many files the folder holds.
    [[nodiscard]] size_t count() const;

private:
    std::filesystem::path root;
};

Bytes contentOf(const std::wstring& path);

/// What a piece of work prints through the console.
struct Printed {
    std::string out;
    std::string err;
};

/// Runs `work` with standard output and error replaced, so that wide output of the toolkit and
/// narrow output of the test framework never meet in one stream.
Printed printed(const std::function<void()>& work);

/// The same for work whose console text does not matter; returns its result.
template <class Work>
auto quietly(Work work) {
    decltype(work()) result{};
    printed([&] { result = work(); });
    return result;
}

} // namespace test
