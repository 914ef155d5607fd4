#include "Scratch.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>

#include <stdlib.h>
#include <unistd.h>

namespace test {

namespace fs = std::filesystem;

Scratch::Scratch() {
    std::string name = (fs::temp_directory_path() / "pellmor-XXXXXX").string();
    root = ::mkdtemp(name.data());
}

Scratch::~Scratch() {
    fs::remove_all(root);
}

std::wstring Scratch::file(const Bytes& content, const std::string& name) const {
    std::ofstream(root / name, std::ios::binary) << content;
    return *this / name;
}

size_t Scratch::count() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(root), {}));
}

Bytes contentOf(const std::wstring& path) {
    std::ifstream file(fs::path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

namespace {

/// Stands in for a standard stream as long as it lives.
class Replaced {
public:
    explicit Replaced(FILE*& stream_) : stream(stream_), saved(stream_) { stream = std::tmpfile(); }
    ~Replaced() {
        std::fclose(stream);
        stream = saved;
    }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

    [[nodiscard]] std::string text() const {
        std::fflush(stream);
        std::string bytes(fs::file_size("/proc/self/fd/" + std::to_string(fileno(stream))), '\0');
        bytes.resize(static_cast<size_t>(::pread(fileno(stream), bytes.data(), bytes.size(), 0)));
        return bytes;
    }

private:
    FILE*& stream;
    FILE* const saved;
};

} // namespace

Printed printed(const std::function<void()>& work) {
    const Replaced out(stdout);
    const Replaced err(stderr);
    work();
    return {out.text(), err.text()};
}

} // namespace test
