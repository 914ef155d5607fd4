// SPDX-License-Identifier: MIT
#include "Scratch.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <utility>

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

Printed printed(const std::function<void()>& work) {
    FILE* const standard[] = {std::exchange(stdout, std::tmpfile()), std::exchange(stderr, std::tmpfile())};
    work();
    FILE* const used[] = {std::exchange(stdout, standard[0]), std::exchange(stderr, standard[1])};
    Printed texts;
    for (auto [stream, text] : {std::pair{used[0], &texts.out}, {used[1], &texts.err}}) {
        std::fflush(stream);
        text->resize(fs::file_size("/proc/self/fd/" + std::to_string(fileno(stream))));
        text->resize(static_cast<size_t>(::pread(fileno(stream), text->data(), text->size(), 0)));
        std::fclose(stream);
    }
    return texts;
}

} // namespace test
