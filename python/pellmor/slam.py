# SPDX-License-Identifier: MIT
"""The SLAM payloads of a recording. A kind is "map", "walk" or "around"."""

from ._pellmor import slam_get as get
from ._pellmor import slam_put as put
from ._pellmor import slam_remove as remove

__all__ = ["get", "put", "remove"]
