#pragma once

#include "SlamMetaData.h"

/// SLAM data of the kind "map": 8B18D5C3-0E7A-25C7-B3AD-252358B401EE.
class MapData : public SlamMetaData {
public:
    MapData()
        : SlamMetaData({0x8B, 0x18, 0xD5, 0xC3, 0x0E, 0x7A, 0x25, 0xC7, 0xB3, 0xAD, 0x25, 0x23, 0x58, 0xB4,
                        0x01, 0xEE}) {}
};
