// SPDX-License-Identifier: MIT
// Prints the size of the map in a file, its boxes, and the reason why an edit is refused, each between lines of
// the program's own by all three ways of printing; puts another payload in, replaces it and takes it out.

#include <cstdio>
#include <iostream>
#include <string>

#include "MP4Container.h"
#include <pellmor/MapData.h>

namespace {

void say(const char* where) {
    std::printf("printf: %s\n", where);
    std::cout << "cout: " << where << std::endl;
    std::cerr << "cerr: " << where << '\n';
}

bool replaceAndRemove(const std::wstring& path) {
    SlamMetaData record(SlamKind::walk);
    record.binData = {1, 2};
    bool done = record.writeToMp4(path);
    record.binData = {3};
    done = done && record.writeToMp4(path, true) && record.readFromMp4(path);
    return done && record.binData.size() == 1 && record.binData[0] == 3 && record.removeFromMp4(path) && !record.removeFromMp4(path);
}

} // namespace

int main(int argc, char** argv) {
    const std::wstring path = Brisa::wchar::mbs2wcs(argc == 2 ? argv[1] : "");
    MapData map;
    MP4::Container container;
    if (!map.readFromMp4(path) || !container.attach(path)) {
        return 1;
    }
    say("before");
    container.dump();
    say("between");
    container.outputPath = path.c_str(); // its own file: no place for a result
    const bool refused = !container.moovFirst();
    say("behind");
    return refused && container.moov != nullptr && map.binData.size() == 10240 && replaceAndRemove(path) ? 0 : 1;
}
