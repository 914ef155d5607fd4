// Prints the size of the map in a file, its boxes, and the reason why an edit is refused, each between lines of
// the program's own by the other two ways of printing.

#include <cstdio>
#include <iostream>

#include "MP4Container.h"
#include <pellmor/MapData.h>

int main(int argc, char** argv) {
    const std::wstring path = Brisa::wchar::mbs2wcs(argc == 2 ? argv[1] : "");
    MapData map;
    MP4::Container container;
    if (!map.readFromMp4(path) || !container.attach(path)) {
        return 1;
    }
    std::printf("printf: %zu bytes\n", map.binData.size());
    container.dump();
    std::cout << "cout: between" << std::endl;
    std::cerr << "cerr: between\n";
    container.outputPath = path.c_str(); // its own file: no place for a result
    const bool refused = !container.moovFirst();
    std::printf("printf: behind\n");
    std::cout << "cout: behind\n";
    std::cerr << "cerr: behind\n";
    return refused && container.moov != nullptr ? 0 : 1;
}
