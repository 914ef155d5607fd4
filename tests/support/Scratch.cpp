#include "Scratch.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <stdlib.h>
#include <unistd.h>

namespace test {

namespace fs = std::filesystem;

Scratch::Scratch() {
    std::string name = (fs::temp_directory_path() / "pellmor-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no folder for the test");
    }
    root = name;
}

Scratch::~Scratch() {
    std::error_code ignored;
    fs::remove_all(root, ignored);
}

std::wstring Scratch::file(const std::string& name, const Bytes& content) const {
    std::ofstream(root / name, std::ios::binary) << content;
    return *this / name;
}

size_t Scratch::count() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(root), fs::directory_iterator()));
}

Bytes contentOf(const std::wstring& path) {
    std::ifstream file(fs::path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

namespace {

/// Stands in for a standard stream as long as it lives.
class Replaced {
public:
    explicit Replaced(FILE*& stream_) : stream(stream_), saved(stream_) {
        std::fflush(saved);
        stream = std::tmpfile();
    }
    ~Replaced() {
        std::fclose(stream);
        stream = saved;
    }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

    [[nodiscard]] std::string text() const {
        std::fflush(stream);
        std::string bytes;
        std::array<char, 4096> block; // pread: no call that a test makes fail
        ssize_t got;
        while ((got = ::pread(fileno(stream), block.data(), block.size(), static_cast<off_t>(bytes.size()))) >
               0) {
            bytes.append(block.data(), static_cast<size_t>(got));
        }
        return bytes;
    }

private:
    FILE*& stream;
    FILE* const saved;
};

} // namespace

Printed printed(const std::function<void()>& work) {
    Replaced out(stdout);
    Replaced err(stderr);
    work();
    return {out.text(), err.text()};
}

} // namespace test
