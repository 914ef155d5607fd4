#include <algorithm>
#include <vector>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_avcc.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

bool readAt(BinFile& file, uint64_t offset, uint64_t size, ByteArray& bytes) {
    bytes.resize(size);
    return file.seek_set(offset) && file.readAll(bytes.data(), size) == size;
}

bool writeAt(BinFile& file, uint64_t offset, const ByteArray& bytes) {
    return file.seek_set(offset) && file.writeAll(bytes.data(), bytes.size()) == bytes.size();
}

/// Bytes of a file that are about to be overwritten.
class Saved {
public:
    bool add(BinFile& file, uint64_t offset, uint64_t size) {
        stretches.push_back({offset, {}});
        return readAt(file, offset, size, stretches.back().bytes);
    }
    void restore(BinFile& file) const {
        for (const Stretch& stretch : stretches) {
            writeAt(file, stretch.offset, stretch.bytes);
        }
    }

private:
    struct Stretch {
        uint64_t offset;
        ByteArray bytes;
    };
    std::vector<Stretch> stretches;
};

/// Moves the bytes from `from` up to `to` within the file by `by`, block by block, beginning at the end
/// where nothing is overwritten before it is read. A failure on the way is undone.
bool moveWithin(BinFile& file, uint64_t from, uint64_t to, long long by) {
    constexpr uint64_t blockBytes = 65536;
    ByteArray block;
    uint64_t moved = 0;
    while (moved < to - from) {
        const uint64_t size = std::min(blockBytes, to - from - moved);
        const uint64_t at = by > 0 ? to - moved - size : from + moved;
        const bool read = readAt(file, at, size, block);
        if (!read || !writeAt(file, shifted(at, by), block)) {
            if (read) {
                writeAt(file, at, block);
            }
            if (moved != 0) {
                const uint64_t reached = shifted(by > 0 ? to - moved : from, by);
                moveWithin(file, reached, reached + moved, -by);
            }
            return false;
        }
        moved += size;
    }
    return true;
}

bool liesIn(const BOX& box, const BOX& ancestor) {
    const BOX* around = box.parent;
    while (around != nullptr && around != &ancestor) {
        around = around->parent;
    }
    return around != nullptr;
}

} // namespace

bool Container::replaceUdta(unsigned long long, const ByteArray& box) {
    if (moov == nullptr) {
        return false;
    }
    if (BOX* const udta = moov->first("udta")) {
        bool reachedOffsets = false;
        const bool replaced = rewrite(L"replaceUdta_Replace", {inPlaceOf(*udta, box)}, &reachedOffsets);
        if (reachedOffsets) {
            return replaced;
        }
    }
    return moov != nullptr && moov->children.size() >= 3 &&
           rewrite(L"replaceUdta_Append", {asLastChild(*moov, box)});
}

bool Container::appendFullRangeAndConstrainedSet1Flag(bool fullRange) {
    if (!keepContents) {
        Brisa::Console::err(L"MP4: %ls was parsed without its contents.\n", path.c_str());
        return false;
    }
    AVCC* avcC = nullptr;
    ByteArray newBox;
    find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [&](BOX& box) {
        avcC = static_cast<AVCC*>(&box);
        newBox.clear();
        ByteArray body;
        bool wasFullRange = false;
        bool wasConstrainedSet1 = false;
        if (avcC->assign_fullRange_and_constrained_set1_flag(body, fullRange, wasFullRange,
                                                             wasConstrainedSet1)) {
            Brisa::Console::out(L"Container::appendFullRangeAndConstrainedSet1Flag: %d - %d, "
                                L"constrained_set1_flag:  %d - 1\n",
                                wasFullRange ? 1 : 0, fullRange ? 1 : 0, wasConstrainedSet1 ? 1 : 0);
            if ((wasFullRange != fullRange || !wasConstrainedSet1) && fitsBox(body.size())) {
                newBox = makeBox(fourcc("avcC"), body);
            }
        }
        return false;
    });
    if (newBox.empty()) {
        return !partial;
    }
    if (newBox.size() == avcC->boxSize) {
        return overwriteAvcC(*avcC, newBox);
    }
    const BOX* const udta = moov->first("udta");
    if (udta != nullptr && udta->offset > avcC->offset && liesIn(*avcC, *moov) &&
        liesWithin(avcC->offset, avcC->end(), avcC->parent, root->boxSize) &&
        liesWithin(udta->offset, udta->end(), moov, root->boxSize)) {
        const long long filler = distance(newBox.size(), avcC->boxSize + udta->boxSize);
        if (filler >= static_cast<long long>(BOX::compactHeader) && filler <= UINT32_MAX) {
            return overwriteUpToUdta(*avcC, newBox, *udta);
        }
    }
    return rewrite(L"appendFullRangeAndConstrainedSet1Flag_NoSpaces", {inPlaceOf(*avcC, newBox)});
}

bool Container::mayPatch(const BOX& box) const {
    const bool within = liesWithin(box.offset, box.end(), box.parent, root->boxSize);
    if (!within) {
        Brisa::Console::err(L"MP4: %ls: %ls does not lie within the boxes around it.\n", path.c_str(),
                            box.basicTag().c_str());
    }
    return within;
}

bool Container::overwriteAvcC(const BOX& avcC, const ByteArray& newBox) {
    return modifyContainer(L"appendFullRangeAndConstrainedSet1Flag_EnoughSpaces", [&](BinFile& file) {
        Saved saved;
        if (!mayPatch(avcC) || !saved.add(file, avcC.offset, avcC.boxSize)) {
            return false;
        }
        const bool written = writeAt(file, avcC.offset, newBox);
        if (!written) {
            saved.restore(file);
        }
        return written;
    });
}

bool Container::overwriteUpToUdta(const BOX& avcC, const ByteArray& newBox, const BOX& udta) {
    const long long change = distance(avcC.boxSize, newBox.size());
    const ByteArray filler =
        makeBox(fourcc("free"), ByteArray(shifted(udta.boxSize, -change) - BOX::compactHeader));
    std::vector<Resizing> enclosing;
    for (const BOX* around = avcC.parent; around != moov; around = around->parent) {
        enclosing.push_back({around, around->offset, change});
    }
    return modifyContainer(L"appendFullRangeAndConstrainedSet1Flag_ReuseUdta", [&](BinFile& file) {
        Saved saved;
        bool readable = canResize(enclosing) && mayPatch(avcC) && mayPatch(udta) &&
                        saved.add(file, avcC.offset, avcC.boxSize) &&
                        saved.add(file, udta.offset, udta.boxSize);
        for (const Resizing& box : enclosing) {
            readable = readable && saved.add(file, box.offset, box.box->headerSize());
        }
        if (!readable) {
            return false;
        }
        const bool moved = resize(file, enclosing) && moveWithin(file, avcC.end(), udta.offset, change);
        if (moved && writeAt(file, avcC.offset, newBox) &&
            writeAt(file, shifted(udta.offset, change), filler)) {
            return true;
        }
        if (moved) {
            moveWithin(file, shifted(avcC.end(), change), shifted(udta.offset, change), -change);
        }
        saved.restore(file);
        return false;
    });
}

} // namespace MP4
