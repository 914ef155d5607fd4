// SPDX-License-Identifier: MIT
// Prints a table of all boxes of an MP4 file: where each lies, its size, its path.
//
//   boxes video.mp4

#include <cinttypes>
#include <cstdio>
#include <string>

#include <pellmor/MP4Container.h>

namespace {

void print(const MP4::NestedBox& parent, const std::string& path) {
    for (const auto& child : parent.children) {
        const std::string childPath = path + Brisa::wchar::toBytes(child->type());
        std::printf("%12" PRIu64 " %12" PRIu64 "  %s\n", child->offset, child->boxSize, childPath.c_str());
        if (const auto* nested = MP4::as<MP4::NestedBox>(*child)) {
            print(*nested, childPath + '.');
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    MP4::Container container;
    container.keepContents = false; // only where boxes lie: however long the file, little is read
    if (argc != 2 || !container.attach(Brisa::wchar::fromBytes(argv[1]))) {
        std::fputs("usage: boxes MP4\n", stderr);
        return 1;
    }
    std::printf("%12s %12s  %s\n", "offset", "size", "path");
    print(*container.root, "");
    return container.incomplete();
}
