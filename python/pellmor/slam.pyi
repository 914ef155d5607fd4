# SPDX-License-Identifier: MIT
from typing import Any, Literal

from . import Path

Kind = Literal["map", "walk", "around"]

def get(path: Path, kind: Kind) -> bytes: ...
def put(path: Path, kind: Kind, data: Any, replace: bool = False) -> None: ...
def remove(path: Path, kind: Kind) -> None: ...
