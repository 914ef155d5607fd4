// SPDX-License-Identifier: MIT
#pragma once

#include "ByteArray.h"

/// Emulation prevention in a NAL unit (ITU-T H.264, 7.4.1.1): where its payload would look like a start code
/// (00 00 00 to 00 00 02) or like an escape (00 00 03), a byte 03 stands behind the two zero bytes.
namespace H264 {

/// The raw byte sequence payload: without the 03 of every 00 00 03.
ByteArray unescaped(const ByteArray& nalUnit);

/// With 03 wherever it is needed.
ByteArray escaped(const ByteArray& raw);

/// Whether nothing in the unit looks like a start code; zero bytes at its end are no part of it. A unit
/// that only holds 00 00 03 may be either, and counts as escaped: so every reader takes it.
bool isEscaped(const ByteArray& nalUnit);

} // namespace H264
