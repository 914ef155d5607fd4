// SPDX-License-Identifier: MIT
#pragma once

#include "SlamMetaData.h"

/// SLAM data of the kind "map".
class MapData : public SlamMetaData {
public:
    MapData() : SlamMetaData(SlamKind::map) {}
};
