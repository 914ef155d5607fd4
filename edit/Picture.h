// SPDX-License-Identifier: MIT
#pragma once

#include "MP4Container.h"
#include "Tree.h"

namespace edit {

/// Writes one self-contained HTML page that shows how an attached container's file is laid out: all of it as
/// a bar to scale, the movie box opened below, every box with its fields, and where the chunks of each track
/// lie.
///
/// Its size does not grow with the tables: chunks are counted in some thousand places of the bar, and boxes
/// side by side beyond some thousand are shown in runs. False when the file could not be read or the page not
/// be written.
bool writePicture(const MP4::Container& container, const Sink& sink);

} // namespace edit
