# SPDX-License-Identifier: MIT
"""docs/batch.md, as it stands there: what is printed must be what the page shows."""

import os
import re
import shutil
from pathlib import Path

from conftest import BIN, run

HOME = Path(__file__).parents[2]
PAGE = HOME / "docs/batch.md"
STEP = re.compile(r"^\$ (.*)\n((?:(?!\$ |```).*\n)*)", re.M)


def test_the_page_on_many_recordings_shows_what_is_printed(tmp_path):
    for folder in ("recordings", "maps"):
        (tmp_path / folder).mkdir()
    for number in range(1, 401):
        shutil.copy(HOME / "tests/data/sample.mp4", tmp_path / f"recordings/r{number:03}.mp4")
        (tmp_path / f"maps/r{number:03}.bin").write_bytes(b"map %03d" % number)
    environment = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}", "LC_ALL": "C", "HOME": str(tmp_path)}
    bash = lambda line: run("bash", "-c", line + " 2>&1", cwd=tmp_path, env=environment).stdout.decode()
    for number in (1, 2, 3):
        bash(f"pellmor-edit put map maps/r{'003' if number == 3 else '400'}.bin recordings/r00{number}.mp4")
    page = PAGE.read_text()
    printed = STEP.sub(lambda step: f"$ {step[1]}\n{bash('{ ' + step[1] + '; }')}", page)
    if os.environ.get("PELLMOR_REWRITE_PAGE"):
        PAGE.write_text(printed)
    assert printed == page
