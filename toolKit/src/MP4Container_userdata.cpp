#include <algorithm>
#include <vector>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Box_avcc.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

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

bool Container::overwriteAvcC(const BOX& avcC, const ByteArray& newBox) {
    return modifyContainer(L"appendFullRangeAndConstrainedSet1Flag_EnoughSpaces", [&](BinFile& file) {
        const bool within = liesWithin(avcC.offset, avcC.end(), avcC.parent, root->boxSize);
        if (!within) {
            Brisa::Console::err(L"MP4: %ls: %ls does not lie within the boxes around it.\n", path.c_str(),
                                avcC.basicTag().c_str());
        }
        return within && overwrite(file, avcC.offset, newBox);
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
        // From the first size that changes to the end of the `udta`, in one write: as good as all or nothing.
        const uint64_t from = enclosing.back().offset;
        const uint64_t between = udta.offset - avcC.end();
        ByteArray bytes(udta.end() - from);
        uint8_t* const newAvcC = bytes.data() + (avcC.offset - from);
        uint8_t* const behind = newAvcC + newBox.size();
        if (!canResize(enclosing) || !readAt(file, from, bytes.data(), avcC.offset - from) ||
            !readAt(file, avcC.end(), behind, between)) {
            return false;
        }
        for (const Resizing& box : enclosing) {
            const uint64_t size = shifted(box.box->boxSize, change);
            uint8_t* const header = bytes.data() + (box.offset - from);
            box.box->largeSize ? storeBigEndian(header + BOX::compactHeader, size)
                               : storeBigEndian(header, static_cast<uint32_t>(size));
        }
        std::copy(newBox.begin(), newBox.end(), newAvcC);
        std::copy(filler.begin(), filler.end(), behind + between);
        return overwrite(file, from, bytes);
    });
}

} // namespace MP4
