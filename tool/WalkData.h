// SPDX-License-Identifier: MIT
#pragma once

#include "SlamMetaData.h"

/// SLAM data of the kind "walk".
class WalkData : public SlamMetaData {
public:
    WalkData() : SlamMetaData(SlamKind::walk) {}
};
