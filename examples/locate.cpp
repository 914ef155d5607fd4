// SPDX-License-Identifier: MIT
// Gives every MP4 file of a folder the same position. Files that fail stay as they are; the reason is on
// standard error.
//
//   locate folder +35.6895+139.6917+40/

#include <cstdio>
#include <filesystem>

#include <pellmor/GPSInfo.h>
#include <pellmor/MP4Container.h>

namespace {

bool locate(const std::filesystem::path& path, const GPSInfo& position) {
    MP4::Container container;
    container.newMovieBox = true; // no copy of the file where moov lies behind the media
    return container.claim(Brisa::wchar::fromBytes(path)) && container.replaceLocations(position);
}

} // namespace

int main(int argc, char** argv) {
    GPSInfo position;
    if (argc == 3) {
        position.attachRXYZ(argv[2]);
    }
    if (!position.latitude.valid || !position.longitude.valid) {
        std::fputs("usage: locate FOLDER POSITION\n", stderr);
        return 1;
    }
    int failed = 0;
    std::error_code error;
    const std::filesystem::directory_iterator folder(argv[1], error);
    if (error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.message().c_str());
        return 1;
    }
    for (const auto& entry : folder) {
        if (entry.path().extension() == ".mp4") {
            const bool located = locate(entry.path(), position);
            std::printf("%s: %s\n", entry.path().c_str(), located ? "located" : "as it was");
            failed += located ? 0 : 1;
        }
    }
    return failed == 0 ? 0 : 1;
}
