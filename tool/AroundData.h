#pragma once

#include "SlamMetaData.h"

/// SLAM data of the kind "around": 3645B4BF-9D5C-43D5-83D3-95A8B8818383.
class AroundData : public SlamMetaData {
public:
    AroundData()
        : SlamMetaData({0x36, 0x45, 0xB4, 0xBF, 0x9D, 0x5C, 0x43, 0xD5, 0x83, 0xD3, 0x95, 0xA8, 0xB8, 0x81,
                        0x83, 0x83}) {}
};
