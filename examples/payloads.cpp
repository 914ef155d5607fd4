// SPDX-License-Identifier: MIT
// Writes the payload of every uuid box of an MP4 file, nested ones too, to a file of its own:
// <folder>/<offset of the box>-<identity>.bin
//
//   payloads video.mp4 folder

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include <pellmor/MP4Container.h>

namespace {

bool writePayload(Brisa::FileIO& mp4, const MP4::BOX& box, const std::filesystem::path& folder) {
    MP4::Usertype identity;
    const uint64_t before = box.headerSize() + identity.size();
    if (box.boxSize < before || !mp4.seek_set(box.offset + box.headerSize()) ||
        mp4.read(identity.data(), identity.size()) != identity.size()) {
        return false;
    }
    std::string name = std::to_string(box.offset) + '-';
    for (const unsigned byte : identity) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02X", byte);
        name += digits.data();
    }
    const uint64_t size = box.boxSize - before;
    bool whole = false;
    Brisa::FileIO::open_w(Brisa::wchar::fromBytes(folder / (name + ".bin")),
                          [&](Brisa::FileIO& payload) { whole = mp4.copyTo(payload, size) == size; });
    return whole;
}

bool writePayloads(Brisa::FileIO& mp4, const MP4::NestedBox& parent, const std::filesystem::path& folder) {
    bool all = true;
    for (const auto& child : parent.children) {
        if (child->tag == MP4::fourcc("uuid")) {
            all = writePayload(mp4, *child, folder) && all;
        }
        // The type alone does not tell the class: a box that means nothing where it stands is a plain BOX.
        if (const auto* nested = MP4::as<MP4::NestedBox>(*child)) {
            all = writePayloads(mp4, *nested, folder) && all;
        }
    }
    return all;
}

} // namespace

int main(int argc, char** argv) {
    MP4::Container container;
    container.keepContents = false; // payloads go from file to file, not through memory
    if (argc != 3 || !container.attach(Brisa::wchar::fromBytes(argv[1]))) {
        std::fputs("usage: payloads MP4 FOLDER\n", stderr);
        return 1;
    }
    bool all = false;
    container.open([&](Brisa::FileIO& mp4) { all = writePayloads(mp4, *container.root, argv[2]); });
    return all && !container.incomplete() ? 0 : 1;
}
