// SPDX-License-Identifier: MIT
#pragma once

#include "SlamMetaData.h"

/// SLAM data of the kind "around".
class AroundData : public SlamMetaData {
public:
    AroundData() : SlamMetaData(SlamKind::around) {}
};
