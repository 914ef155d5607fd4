// SPDX-License-Identifier: MIT
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_avcc.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

bool Container::appendFullRangeAndConstrainedSet1Flag(bool fullRange) {
    AVCC* avcC = nullptr;
    ByteArray newBox;
    const auto change = [&](BOX& box) {
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
                newBox = boxOf(fourcc("avcC"), body);
            }
        }
        return false;
    };
    if (moov != nullptr) {
        moov->find("trak.mdia.minf.stbl.stsd.avc1.avcC", change);
    }
    if (newBox.empty()) {
        return !partial;
    }
    Plan plan(*root);
    if (newBox.size() == avcC->boxSize) {
        plan.exchange(*avcC, std::move(newBox));
        return patch(*this, L"appendFullRangeAndConstrainedSet1Flag_EnoughSpaces", plan);
    }
    const BOX* const udta = moov->first("udta");
    const uint64_t room = udta != nullptr ? avcC->boxSize + udta->boxSize : 0;
    if (!keepUserData && udta != nullptr && udta->offset > avcC->offset &&
        room >= newBox.size() + BOX::compactHeader && room <= root->boxSize &&
        room - newBox.size() <= UINT32_MAX) {
        const ByteArray filler(room - newBox.size() - BOX::compactHeader);
        plan.exchange(*avcC, std::move(newBox));
        plan.exchange(*udta, boxOf(fourcc("free"), filler));
        return patch(*this, L"appendFullRangeAndConstrainedSet1Flag_ReuseUdta", plan);
    }
    plan.exchange(*avcC, std::move(newBox));
    return carryOut(*this, L"appendFullRangeAndConstrainedSet1Flag_NoSpaces", plan);
}

} // namespace MP4
