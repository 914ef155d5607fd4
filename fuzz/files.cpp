// Any bytes as an MP4 file: parsed, dumped, searched, and edited. The first byte chooses the edit; one
// that fails leaves the file as it was.

#include "GPSInfo.h"
#include "MP4Container.h"
#include "SpatialSound.h"
#include "fuzz.h"

namespace {

using MP4::Container;

bool edit(unsigned choice, Container& container) {
    GPSInfo position;
    position.attachRXYZ("+35.6895+139.6917/");
    ByteArray userData;
    userData.assign("\0\0\0\x0Cudtatext", 12);
    switch (choice) {
    case 0:
        return container.moovFirst();
    case 1:
        return container.appendLocations(position);
    case 2:
        return container.appendLocationAndSphericalVideoXML(position, "<xml/>");
    case 3:
        return container.removeBadLOCI();
    case 4:
        return container.replaceUdta(0, userData);
    case 5:
        return container.appendFullRangeAndConstrainedSet1Flag(true);
    case 6:
        return container.appendXMP("<xmp/>");
    default:
        MP4::SpatialSound sound;
        sound.attach(container.path, 0.5, -1);
        return container.overwriteSpatialDataOffset(100);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silenceConsole();
    if (size == 0) {
        return 0;
    }
    const std::string before(reinterpret_cast<const char*>(data) + 1, size - 1);
    write(before);
    Container container;
    require(container.attach(widePath()));
    container.dump();
    for (const char* box : {"uuid", "moov.trak.mdia.minf.stbl.stsd.avc1.avcC", "uuid.ZATR.mdia.minf.stbl"}) {
        container.find(box, [](MP4::BOX& found) { return found.boxSize != 0; });
    }
    require(edit(data[0] % 8, container) || content() == before);
    return 0;
}
