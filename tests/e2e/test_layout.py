# SPDX-License-Identifier: MIT
"""Layout edits on real recordings."""

import contextlib
import os
import re
import resource
import shutil

import pytest

from conftest import BIN, SANITIZED, STRACE, edit, needs_strace, packets, probe, run, sha, word


def test_moov_first_keeps_every_packet(recordings, tmp_path):
    original = recordings.moov_last()
    video = shutil.copy(original, tmp_path / "video.mp4")
    edit("moov-first", video)
    content = video.read_bytes()
    assert content.index(b"moov") < content.index(b"mdat")
    assert len(content) == original.stat().st_size
    assert packets(video) == packets(original)
    assert probe(video) == probe(original)
    again = sha(video)
    edit("moov-first", video)
    assert sha(video) == again


ACCESS_LIST = "02000000 01000600ffffffff 02000400d2040000 04000000ffffffff 10000400ffffffff 20000000ffffffff"


def face_of(path):
    """Permission bits and extended attributes, an access list among them."""
    return os.stat(path).st_mode, {name: os.getxattr(path, name) for name in os.listxattr(path)}


def test_the_result_may_go_to_another_file(recordings, tmp_path):
    original = shutil.copy(recordings.moov_last(), tmp_path / "own.mp4")
    original.chmod(0o600)
    os.setxattr(original, "user.note", b"kept")
    with contextlib.suppress(OSError):  # not every file system has access lists: this one lets user 1234 read
        os.setxattr(original, "system.posix_acl_access", bytes.fromhex(ACCESS_LIST))
    before, face = sha(original), face_of(original)
    edit("moov-first", original, "-o", tmp_path / "out.mp4")
    assert sha(original) == before
    assert face_of(tmp_path / "out.mp4") == face
    assert packets(tmp_path / "out.mp4") == packets(original)


def test_the_creation_time_is_set_in_every_header(recording):
    before, size = packets(recording), recording.stat().st_size
    with open(recording, "ab") as file:  # a payload that nobody can hold in memory
        file.write(word(4_000_000_000) + b"uuid")
    os.truncate(recording, size + 4_000_000_000)
    room = 1 << (50 if SANITIZED else 30)
    edit("set-time", "1904:3800000000", recording, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (room, room)))
    os.truncate(recording, size)
    report = probe(recording)
    times = {part["tags"]["creation_time"] for part in [report["format"], *report["streams"]]}
    assert times == {"2024-05-31T11:33:20.000000Z"}
    assert packets(recording) == before


# A command, the calls that it makes from the first write on, and for each fault the status and permissions that follow.
STEPS = {
    "put axis": ("put axis {s} {v}", "((write|copy_file_range) )+fdatasync write (fdatasync )+", {}),
    "set-time": ("set-time 1904:1 {v}", "write fdatasync ", {"write:error=EIO:when=1": (1, 0o4755)}),
    "moov-first": (
        "moov-first {v}",
        "((write|copy_file_range) )+fchown fchmod fsync rename fsync ",
        {"rename:error=EIO": (1, 0o4755), "fchown:error=EPERM": (0, 0o755)},
    ),
}


@needs_strace
@pytest.mark.skipif(SANITIZED, reason="a sanitizer makes calls of its own")
@pytest.mark.parametrize("line, order, faults", STEPS.values(), ids=STEPS)
def test_each_step_is_made_in_its_order_or_the_file_stays(recordings, tmp_path, line, order, faults):
    video, log = tmp_path / "v", tmp_path / "log"
    before = recordings.moov_last().read_bytes()
    traced = [*STRACE, "-o", log, "-e", "trace=write,copy_file_range,ftruncate,fchown,fchmod,fsync,fdatasync,rename"]
    for fault, (status, mode) in {"": (0, 0o4755), **faults}.items():
        video.write_bytes(before)
        video.chmod(0o4755)
        result = run(*traced, *(["-e", "inject=" + fault] if fault else []), BIN / "pellmor-edit", *line.format(v=video, s=__file__).split(), "-q")
        assert (result.returncode, video.stat().st_mode & 0o7777) == (status, mode), result.stderr
        assert (video.read_bytes() == before) == (status != 0) and len(list(tmp_path.iterdir())) == 2
        assert fault or re.fullmatch(order, re.sub(r"\(.*\n", " ", log.read_text()))
