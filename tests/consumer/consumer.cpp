#include "MP4Container.h"

/// Prints the boxes of a file.
int main(int argc, char** argv) {
    MP4::Container container;
    if (argc != 2 || !container.attach(Brisa::wchar::mbs2wcs(argv[1]))) {
        return 1;
    }
    container.dump();
    return container.moov == nullptr;
}
