// SPDX-License-Identifier: MIT
#pragma once

#include "Commands.h"

namespace edit {

/// Has an edit done on a job's file, so that the result gets where the command line wants it: into the file
/// itself, with the old one kept under another name if it is to be, or to a path of its own
/// (Options::output). In a dry run it only looks for what would refuse it. Throws Failure.
void carryOut(Job& job, const Work& work);

} // namespace edit
