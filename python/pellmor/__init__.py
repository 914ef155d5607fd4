# SPDX-License-Identifier: MIT
"""Careful edits of MP4 recordings: an edit succeeds wholly, or leaves the file as it was.

Paths are str, bytes or os.PathLike. What the system refuses is raised as the OSError that it is
(FileNotFoundError, PermissionError, ...), any other failure as pellmor.Error with the reason. Other threads
run while a file is worked on.
"""

from . import slam
from ._pellmor import Box, Error, boxes, info, set_location

__all__ = ["Box", "Error", "boxes", "info", "set_location", "slam"]
