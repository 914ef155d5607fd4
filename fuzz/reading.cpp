// Any bytes as an MP4 file: attach, dump, search.

#include "MP4Container.h"
#include "MemoryFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silenceConsole();
    const MemoryFile input(data, size);
    MP4::Container container;
    if (!container.attach(input.path())) {
        std::abort();
    }
    container.dump();
    for (const char* path : {"uuid", "moov.trak.mdia.minf.stbl.stsd.avc1.avcC", "uuid.ZATR.mdia.minf.stbl"}) {
        container.find(path, [](MP4::BOX& box) { return box.boxSize != 0; });
    }
    return 0;
}
