// SPDX-License-Identifier: MIT
// Any bytes as an MP4 file: parsed, dumped, searched, and edited. The first byte chooses the edit; one
// that fails leaves the file as it was.

#include "SpatialSound.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silenceConsole();
    if (size == 0) {
        return 0;
    }
    const std::string before(reinterpret_cast<const char*>(data) + 1, size - 1);
    write(before);
    MP4::Container container;
    require(container.attach(widePath()));
    container.dump();
    for (const char* box : {"uuid", "moov.trak.mdia.minf.stbl.stsd.avc1.avcC", "uuid.ZATR.mdia.minf.stbl"}) {
        container.find(box, [](MP4::BOX& found) { return found.boxSize != 0; });
    }
    const int choice = data[0] % 8;
    if (choice < 7) {
        const bool done = edit(choice, container);
        require(done || content() == before);
        bool found = !done || choice != 6;
        container.find("uuid", [&found](MP4::BOX& box) {
            const auto* const identified = MP4::as<MP4::UUID>(box);
            found = found || (identified != nullptr && identified->is(MP4::XMP::_UUID));
            return !found;
        });
        require(found); // what was put in can be read
        return 0;
    }
    MP4::SpatialSound sound;
    sound.attach(container.path, 0.5, -1);
    require(container.overwriteSpatialDataOffset(100) || content() == before);
    return 0;
}
