# SPDX-License-Identifier: MIT
"""What a user's type checker has to accept; it is not run."""

from pathlib import Path

import pellmor


def longest(folder: Path) -> tuple[str, int]:
    sizes = [(box.path, box.size) for file in folder.glob("*.mp4") for box in pellmor.boxes(file)]
    return max(sizes, key=lambda pair: pair[1])


def copy(source: bytes, target: str) -> int:
    try:
        data: bytes = pellmor.slam.get(source, "map")
        pellmor.slam.put(target, "map", memoryview(data), replace=True)
        pellmor.slam.remove(source, kind="walk")
        pellmor.set_location(Path(target), 35.6895, 139.6917, altitude=40)
    except (KeyError, pellmor.Error):
        return 0
    return int(pellmor.info(target)["map"])
