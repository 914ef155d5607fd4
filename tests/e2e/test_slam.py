"""The six commands on real recordings: bytes, messages, exit statuses."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

from conftest import BIN, SANITIZED, limited_to, run, sha, stream_hashes

PELLMOR = BIN / "Pellmor"
BANNER = b"Pellmor.exe\n"
USAGE = b"""arguments error.
Pellmor
usage: Pellmor [options] [mp4File] [mapFile]
  -kind:<pattern>
          rmap    : read map
          wmap    : write map
          rwalk   : read walk
          wwalk   : write walk
          raround : read around
          waround : write around
  mp4File     : mp4 file.
  mapFile     : map file.

"""
IDENTITY = {
    "map": "8B18D5C30E7A25C7B3AD252358B401EE",
    "walk": "2DDF0C53D6D14CB49C2B169D037B7681",
    "around": "3645B4BF9D5C43D583D395A8B8818383",
}
SHORT_IDENTITY = {
    "map": b"8b18d5c3e7a25c7b3ad252358b41ee",
    "walk": b"2ddfc53d6d14cb49c2b169d37b7681",
    "around": b"3645b4bf9d5c43d583d395a8b8818383",
}


def slam_box(kind, payload, large=False):
    body = bytes.fromhex(IDENTITY[kind]) + payload
    if large:
        return (1).to_bytes(4, "big") + b"uuid" + (16 + len(body)).to_bytes(8, "big") + body
    return (8 + len(body)).to_bytes(4, "big") + b"uuid" + body


def call(kind, mp4, side, **options):
    """Runs a command in the folder of the MP4 file, so that the echo line is short."""
    options.setdefault("cwd", mp4.parent)
    result = run(PELLMOR, f"-kind:{kind}", mp4.name, side.name, **options)
    echo = f"-kind:{kind} {mp4.name} {side.name}\n".encode()
    assert result.stdout.startswith(BANNER + echo)
    return result.returncode, result.stdout[len(BANNER + echo) :], result.stderr


def test_all_kinds_go_in_and_come_out_again(recording, tmp_path):
    before = recording.read_bytes()
    decoded = stream_hashes(recording)
    expected = before
    for number, kind in enumerate(IDENTITY):
        side = tmp_path / f"{kind}.bin"
        payload = os.urandom(5000 + number)
        side.write_bytes(payload)
        assert call("w" + kind, recording, side) == (0, b"", b"")
        expected += slam_box(kind, payload)
        assert recording.read_bytes() == expected
        again = b"MP4: uuid is existed.(" + SHORT_IDENTITY[kind] + b")\n"
        assert call("w" + kind, recording, side) == (0, again, b"")
        assert recording.read_bytes() == expected
    for kind in IDENTITY:
        out = tmp_path / "out.bin"
        assert call("r" + kind, recording, out) == (0, b"", b"")
        assert sha(out) == sha(tmp_path / f"{kind}.bin")
        assert out.stat().st_mode & 0o777 == 0o644 & ~os.umask(os.umask(0))
    assert stream_hashes(recording) == decoded


@pytest.mark.parametrize(
    "arguments", [[], ["-kind:rmap"], ["-kind:rmap", "a"], ["-kind:read", "a", "b"], ["-kind:rma", "a", "b"]]
)
def test_wrong_arguments_show_the_usage(arguments):
    result = run(PELLMOR, *arguments)
    assert (result.returncode, result.stdout) == (255, BANNER + USAGE)


def test_arguments_behind_the_pattern_are_ignored_and_long_ones_cut(tmp_path):
    result = run(PELLMOR, "-kind:waroundX", "x" * 3000, "none", *["more"] * 20, cwd=tmp_path)
    path = b"x" * 2048
    assert result.stdout == (
        BANNER + b"-kind:waroundX " + path + b" none\n" + b"open(" + path + b", 'r') failed.\nmp4File write error."
    )
    assert result.returncode == 253


def test_every_failing_step_has_its_message_and_status(recordings, tmp_path):
    mp4 = Path(shutil.copy(recordings.moov_last(), tmp_path / "v.mp4"))
    side = tmp_path / "side.bin"
    empty = tmp_path / "empty.bin"
    empty.write_bytes(b"")
    side.write_bytes(b"payload")
    hollow = tmp_path / "hollow.mp4"
    hollow.write_bytes(mp4.read_bytes() + slam_box("walk", b""))
    cut = tmp_path / "cut.mp4"
    cut.write_bytes(mp4.read_bytes() + slam_box("map", b"payload")[:-1])
    missing, folder = tmp_path / "missing", tmp_path / "folder"
    folder.mkdir()
    before = sha(mp4)
    table = [
        ("rmap", missing, side, 252, b"open(missing, 'r') failed.\nmp4File read error."),
        ("rmap", mp4, side, 252, b"mp4File read error."),
        ("rmap", cut, side, 252, b"mp4File read error."),
        ("rmap", folder, side, 252, b"mp4File read error."),
        ("rwalk", hollow, side, 251, b"binData is empty.\nmapFile write error."),
        ("wmap", missing, side, 253, b"open(missing, 'r') failed.\nmp4File write error."),
        ("wmap", mp4, empty, 253, b"binData is empty.\nmp4File write error."),
        ("wmap", mp4, missing, 253, b"binData is empty.\nmp4File write error."),
        ("wmap", mp4, folder, 254, b"mapFile read error."),
    ]
    for kind, first, second, status, text in table:
        assert call(kind, first, second)[:2] == (status, text), (kind, first, second)
    assert side.read_bytes() == b"payload"
    assert sha(mp4) == before
    assert call("wmap", mp4, side)[0] == 0
    assert call("rmap", mp4, folder)[:2] == (251, b"open(folder, 'w') failed.\nmapFile write error.")


def test_the_first_matching_box_counts_in_either_size_form(recordings, tmp_path):
    mp4 = tmp_path / "v.mp4"
    nested = b"\x00\x00\x00\x28moov" + slam_box("map", b"nested!!")
    for boxes in (
        [slam_box("map", b"first"), slam_box("map", b"second")],
        [nested, slam_box("walk", b"other"), slam_box("map", b"first", large=True), slam_box("map", b"second")],
    ):
        mp4.write_bytes(recordings.moov_last().read_bytes() + b"".join(boxes))
        assert call("rmap", mp4, tmp_path / "out.bin")[0] == 0
        assert (tmp_path / "out.bin").read_bytes() == b"first"


@pytest.mark.parametrize("room", [0, 1, 23, 24, 25, 5023])
def test_a_full_disk_leaves_the_recording_as_it_was(recording, tmp_path, room):
    side = tmp_path / "side.bin"
    side.write_bytes(os.urandom(5000))
    before = sha(recording)
    size = recording.stat().st_size
    status, text, _ = call("wmap", recording, side, **limited_to(size + room))
    assert (status, text) == (253, b"mp4File write error.")
    assert sha(recording) == before


def test_a_full_disk_fails_the_side_file(recording, tmp_path):
    side = tmp_path / "side.bin"
    side.write_bytes(os.urandom(5000))
    assert call("wmap", recording, side)[0] == 0
    before = sha(recording)
    assert call("rmap", recording, tmp_path / "out", **limited_to(4999))[:2] == (251, b"mapFile write error.")
    assert sha(recording) == before


def test_the_recording_is_never_taken_for_its_own_side_file(recording, tmp_path):
    side = tmp_path / "side.bin"
    side.write_bytes(b"payload")
    assert call("wmap", recording, side)[0] == 0
    before = sha(recording)
    link = tmp_path / "link.bin"
    link.symlink_to(recording)
    for name in (recording, link):
        status, text, error = call("rmap", recording, name)
        assert (status, text) == (251, b"mapFile write error.")
        assert b"is the MP4 file itself" in error
    assert sha(recording) == before


def test_works_without_standard_streams(recording, tmp_path):
    side = tmp_path / "side.bin"
    side.write_bytes(b"payload")
    before = recording.read_bytes()
    for streams in ("<&-", ">&-", "<&- >&- 2>&-"):
        recording.write_bytes(before)
        shell = f"{PELLMOR} -kind:wmap video.mp4 side.bin {streams} && {PELLMOR} -kind:rmap video.mp4 out.bin {streams}"
        assert run("sh", "-c", shell, cwd=tmp_path).returncode == 0
        assert (tmp_path / "out.bin").read_bytes() == b"payload"
        assert recording.read_bytes() == before + slam_box("map", b"payload")


def test_a_reader_that_leaves_does_not_stop_the_work(recording, tmp_path):
    (tmp_path / "side.bin").write_bytes(b"payload")
    size = recording.stat().st_size
    reader, writer = os.pipe()
    os.close(reader)
    command = [PELLMOR, "-kind:wmap", "video.mp4", "side.bin"]
    assert subprocess.run(command, cwd=tmp_path, stdout=writer, timeout=120).returncode == 0
    os.close(writer)
    assert recording.stat().st_size == size + 24 + 7


@pytest.mark.skipif(SANITIZED, reason="a sanitizer ends the process instead")
def test_a_payload_that_memory_cannot_hold_fails_its_step(recording, tmp_path):
    side = tmp_path / "side.bin"
    side.touch()
    os.truncate(side, 1 << 40)
    status, text, error = call("wmap", recording, side)
    assert (status, text) == (254, b"mapFile read error.")
    assert b"not enough memory" in error
