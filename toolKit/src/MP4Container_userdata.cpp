// SPDX-License-Identifier: MIT
#include <utility>

#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

bool Container::replaceUdta(unsigned long long, const ByteArray& box) {
    if (moov == nullptr) {
        return false;
    }
    Plan plan(*root);
    if (const BOX* const udta = moov->first("udta")) {
        plan.exchange(*udta, box);
        return carryOut(*this, L"replaceUdta_Replace", plan);
    }
    plan.addTo(*moov, box);
    return moov->children.size() >= 3 && carryOut(*this, L"replaceUdta_Append", plan);
}

} // namespace MP4
