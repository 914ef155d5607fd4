#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

/// Always true, so that a search goes on; `updated` stays true only if the header took the time.
template <class Header>
bool setTime(BOX& header, BinFile& file, unsigned long long time, bool& updated) {
    updated = static_cast<Header&>(header).setTimeStamp(file, time) && updated;
    return true;
}

} // namespace

bool Container::isMdatFirst() const {
    if (root == nullptr) {
        return false;
    }
    const auto& boxes = root->children;
    const auto first = std::find_if(boxes.begin(), boxes.end(), [](const auto& box) {
        return box->tag == fourcc("moov") || box->tag == fourcc("mdat");
    });
    return first != boxes.end() && (*first)->tag == fourcc("mdat");
}

bool Container::moovFirst() {
    constexpr const wchar_t* operation = L"moovFirst";
    if (moov == nullptr || !isMdatFirst()) {
        return false;
    }
    const bool cutOff = root->children.back()->end() > root->boxSize || moov->boxSize < moov->headerSize();
    if (cutOff) {
        Brisa::Console::err(L"MP4: %ls: a box is cut off.\n", path.c_str());
        return rewriteFailed(operation);
    }
    Moves moves;
    moves.add(mdat->offset, moov->offset, static_cast<long long>(moov->boxSize));
    const auto mediaBoxes = std::count_if(root->children.begin(), root->children.end(),
                                          [](const auto& box) { return box->tag == fourcc("mdat"); });
    const bool everyChunkMoves = mediaBoxes == 1 && mdat->end() == moov->offset;
    if (!mayMove(moves, everyChunkMoves)) {
        return rewriteFailed(operation);
    }

    return modifyContainer(
        operation,
        [this](BinFile& source, BinFile& destination, unsigned long long& insertionOffset) {
            const bool copied = copyStretch(source, destination, 0, mdat->offset) &&
                                copyStretch(source, destination, moov->offset, moov->end()) &&
                                copyStretch(source, destination, mdat->offset, moov->offset) &&
                                copyStretch(source, destination, moov->end(), source.length());
            insertionOffset = destination.position();
            return copied;
        },
        // An open-ended `moov` is the last box no longer: it needs its size.
        [this](Container&, BinFile& file) {
            return resize(file, {{moov, mdat->offset, 0}});
        },
        [&](Container& written, BinFile& file) {
            return correctOffsets(written, file, moves, everyChunkMoves);
        });
}

bool Container::updateTimeStamp(unsigned long long time) {
    bool updated = false;
    open_a([&](Brisa::FileIO& handle) {
        BinFile file(handle);
        updated = describes(handle);
        if (!updated) {
            return;
        }
        if (BOX* const header = root->first("moov.mvhd")) {
            setTime<MVHD>(*header, file, time, updated);
        }
        root->find("moov.trak.tkhd", [&](BOX& header) { return setTime<TKHD>(header, file, time, updated); });
        root->find("moov.trak.mdia.mdhd",
                   [&](BOX& header) { return setTime<MDHD>(header, file, time, updated); });
    });
    return updated;
}

} // namespace MP4
