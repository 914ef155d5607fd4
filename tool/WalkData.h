#pragma once

#include "SlamMetaData.h"

/// SLAM data of the kind "walk": 2DDF0C53-D6D1-4CB4-9C2B-169D037B7681.
class WalkData : public SlamMetaData {
public:
    WalkData()
        : SlamMetaData({0x2D, 0xDF, 0x0C, 0x53, 0xD6, 0xD1, 0x4C, 0xB4, 0x9C, 0x2B, 0x16, 0x9D, 0x03, 0x7B,
                        0x76, 0x81}) {}
};
