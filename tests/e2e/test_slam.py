"""The six commands on real recordings: bytes, messages, exit statuses."""

import os
import subprocess

import pytest

from conftest import BIN, SANITIZED, box, limited_to, packets, run, sha

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
    "map": bytes.fromhex("8B18D5C30E7A25C7B3AD252358B401EE"),
    "walk": bytes.fromhex("2DDF0C53D6D14CB49C2B169D037B7681"),
    "around": bytes.fromhex("3645B4BF9D5C43D583D395A8B8818383"),
}


@pytest.fixture
def side(tmp_path):
    (tmp_path / "side.bin").write_bytes(b"payload")
    return tmp_path / "side.bin"


def slam_box(kind, payload):
    return box(b"uuid", IDENTITY[kind], payload)


def call(kind, mp4, second, **options):
    """Runs a command in the folder of the MP4 file, so that the echo line is short."""
    result = run(PELLMOR, f"-kind:{kind}", mp4.name, second.name, cwd=mp4.parent, **options)
    start = BANNER + f"-kind:{kind} {mp4.name} {second.name}\n".encode()
    assert result.stdout.startswith(start)
    return result.returncode, result.stdout[len(start) :], result.stderr


def test_all_kinds_go_in_and_come_out_again(recording, side, tmp_path):
    expected, before = recording.read_bytes(), packets(recording)
    payloads = {kind: os.urandom(5000 + number) for number, kind in enumerate(IDENTITY)}
    for kind, payload in payloads.items():
        side.write_bytes(payload)
        expected += slam_box(kind, payload)
        unpadded = "".join(f"{byte:x}" for byte in IDENTITY[kind])
        for text in ("", f"MP4: uuid is existed.({unpadded})\n"):
            assert call("w" + kind, recording, side) == (0, text.encode(), b"")
            assert recording.read_bytes() == expected
    out = tmp_path / "out.bin"
    for kind, payload in payloads.items():
        assert call("r" + kind, recording, out) == (0, b"", b"")
        assert out.read_bytes() == payload
        assert out.stat().st_mode & 0o777 == 0o644 & ~os.umask(os.umask(0))
    assert packets(recording) == before


@pytest.mark.parametrize("arguments", [[], ["-kind:rmap"], ["-kind:rmap", "a"], ["-kind:read", "a", "b"], ["-kind:rma", "a", "b"]])
def test_wrong_arguments_show_the_usage(arguments):
    result = run(PELLMOR, *arguments)
    assert (result.returncode, result.stdout) == (255, BANNER + USAGE)


def test_arguments_behind_the_pattern_are_ignored_and_long_ones_cut(tmp_path):
    result = run(PELLMOR, "-kind:waroundX", "x" * 3000, "none", *["more"] * 20, cwd=tmp_path)
    path = b"x" * 2048
    echo = b"-kind:waroundX " + path + b" none\n"
    assert result.stdout == BANNER + echo + b"open(" + path + b", 'r') failed.\nmp4File write error."
    assert result.returncode == 253


def test_every_failing_step_has_its_message_and_status(recording, side, tmp_path):
    mp4, good = recording, recording.read_bytes()
    empty, missing, folder, link = (tmp_path / name for name in ("empty", "missing", "folder", "link"))
    hollow, cut, full = (tmp_path / name for name in ("hollow.mp4", "cut.mp4", "full.mp4"))
    empty.touch()
    folder.mkdir()
    hollow.write_bytes(good + slam_box("walk", b""))
    cut.write_bytes(good + slam_box("map", b"payload")[:-1])
    full.write_bytes(good + slam_box("map", bytes(5000)))
    link.symlink_to(full)
    small = limited_to(4999)
    files = [path for path in tmp_path.iterdir() if path.is_file()]
    before = [sha(path) for path in files]
    for kind, first, second, options, status, text in (
        ("rmap", missing, side, {}, 252, b"open(missing, 'r') failed.\nmp4File read error."),
        ("rmap", mp4, side, {}, 252, b"mp4File read error."),
        ("rmap", cut, side, {}, 252, b"mp4File read error."),
        ("rmap", folder, side, {}, 252, b"open(folder, 'r') failed.\nmp4File read error."),
        ("rwalk", hollow, side, {}, 251, b"binData is empty.\nmapFile write error."),
        ("rmap", full, folder, {}, 251, b"open(folder, 'w') failed.\nmapFile write error."),
        ("rmap", full, full, {}, 251, b"mapFile write error."),
        ("rmap", full, link, {}, 251, b"mapFile write error."),
        ("rmap", full, tmp_path / "out", small, 251, b"mapFile write error."),
        ("wmap", missing, side, {}, 253, b"open(missing, 'r') failed.\nmp4File write error."),
        ("wmap", mp4, empty, {}, 253, b"binData is empty.\nmp4File write error."),
        ("wmap", mp4, missing, {}, 253, b"binData is empty.\nmp4File write error."),
        ("wmap", mp4, folder, {}, 254, b"mapFile read error."),
        *[("wmap", mp4, side, limited_to(len(good) + room), 253, b"mp4File write error.") for room in (0, 1, 23, 24, 25, 30)],
    ):
        assert call(kind, first, second, **options)[:2] == (status, text), (kind, first, second)
        assert [sha(path) for path in files] == before


def test_the_first_matching_box_counts_in_either_size_form(recording, side):
    good, first, second = recording.read_bytes(), slam_box("map", b"first"), slam_box("map", b"second")
    large = (1).to_bytes(4, "big") + b"uuid" + (16 + 16 + 5).to_bytes(8, "big") + first[8:]
    for boxes in (first + second, box(b"moov", second) + slam_box("walk", b"other") + large + second):
        recording.write_bytes(good + boxes)
        assert call("rmap", recording, side)[0] == 0
        assert side.read_bytes() == b"first"


def test_works_with_no_one_to_listen(recording, side, tmp_path):
    before = recording.read_bytes()
    for streams in ("<&-", ">&-", "<&- >&- 2>&-"):
        recording.write_bytes(before)
        shell = f"{PELLMOR} -kind:wmap video.mp4 side.bin {streams} && {PELLMOR} -kind:rmap video.mp4 out.bin {streams}"
        assert run("sh", "-c", shell, cwd=tmp_path).returncode == 0
        assert (tmp_path / "out.bin").read_bytes() == b"payload"
        assert recording.read_bytes() == before + slam_box("map", b"payload")
    reader, writer = os.pipe()
    os.close(reader)
    assert subprocess.run([PELLMOR, "-kind:wwalk", "video.mp4", "side.bin"], cwd=tmp_path, stdout=writer, timeout=120).returncode == 0
    os.close(writer)
    assert recording.read_bytes().endswith(slam_box("walk", b"payload"))


@pytest.mark.skipif(SANITIZED, reason="a sanitizer ends the process instead")
def test_a_payload_that_memory_cannot_hold_fails_its_step(recording, side):
    os.truncate(side, 1 << 40)
    status, text, error = call("wmap", recording, side)
    assert (status, text) == (254, b"mapFile read error.")
    assert b"not enough memory" in error
