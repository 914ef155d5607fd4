# SPDX-License-Identifier: MIT
"""The six commands on real recordings: bytes, messages, exit statuses."""

import fcntl
import os
import signal
import subprocess
import termios
import time

import pytest

from conftest import BIN, STRACE, box, limited_to, needs_strace, packets, run, sha

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


def test_a_long_argument_is_cut_and_that_is_told(tmp_path):
    result = run(PELLMOR, "-kind:rmap", "x" * 5000, "side", cwd=tmp_path)
    assert result.stdout.splitlines()[1] == b"-kind:rmap " + b"x" * 2048 + b" side" and b"5000 characters is cut" in result.stderr


@pytest.mark.parametrize("locale", ["POSIX", "C.UTF-8"])
def test_names_arrive_byte_for_byte(side, tmp_path, locale):
    for number, name in enumerate(["Lehrpfad Süd", "日本 かな", b"\xff\xc3", " a  b ", "\U0010ff41", "x" * 243]):
        name = os.fsencode(name)
        source, out = name + b".mp4", name + b".tmp.bin"
        folder = tmp_path / str(number)
        folder.mkdir()
        (folder / os.fsdecode(source)).write_bytes(box(b"ftyp"))
        for kind, second in ((b"-kind:wmapX", b"../side.bin"), (b"-kind:rmap", out)):
            result = subprocess.run([PELLMOR, kind, source, second, b"\xff"], cwd=folder, capture_output=True, env={"LC_ALL": locale})
            assert (result.returncode, result.stdout, result.stderr) == (0, BANNER + b" ".join([kind, source, second]) + b"\n", b"")
        assert {entry: (folder / os.fsdecode(entry)).read_bytes() for entry in os.listdir(os.fsencode(folder))} == {
            source: box(b"ftyp") + slam_box("map", b"payload"),
            out: b"payload",
        }


def test_every_failing_step_has_its_message_and_status(recording, side, tmp_path):
    mp4, good = recording, recording.read_bytes()
    empty, missing, folder, link, fifo, huge = (tmp_path / name for name in ("empty", "missing", "folder", "link", "fifo", "huge"))
    hollow, cut, full = (tmp_path / name for name in ("hollow.mp4", "cut.mp4", "full.mp4"))
    empty.touch()
    folder.mkdir()
    hollow.write_bytes(good + slam_box("walk", b""))
    cut.write_bytes(good + slam_box("map", b"payload")[:-1])
    full.write_bytes(good + slam_box("map", bytes(5000)))
    link.symlink_to(full)
    os.mkfifo(fifo)
    small = limited_to(4999)
    huge.touch()
    os.truncate(huge, 4294967272)
    before = {path: path.is_file() and path != huge and sha(path) for path in tmp_path.iterdir()}
    for kind, first, second, options, status, text in (
        ("rmap", missing, side, {}, 252, b"open(missing, 'r') failed.\nmp4File read error."),
        ("rmap", mp4, side, {}, 252, b"mp4File read error."),
        ("rmap", cut, side, {}, 252, b"mp4File read error."),
        ("rmap", folder, side, {}, 252, b"open(folder, 'r') failed.\nmp4File read error."),
        ("rmap", fifo, side, {}, 252, b"open(fifo, 'r') failed.\nmp4File read error."),
        ("rwalk", hollow, side, {}, 251, b"binData is empty.\nmapFile write error."),
        ("rmap", full, folder, {}, 251, b"open(folder, 'w') failed.\nmapFile write error."),
        ("rmap", full, full, {}, 251, b"mapFile write error."),
        ("rmap", full, link, {}, 251, b"mapFile write error."),
        ("rmap", full, mp4, {}, 251, b"mapFile write error."),
        ("rmap", full, tmp_path / "out", small, 251, b"mapFile write error."),
        ("rmap", full, side, small, 251, b"mapFile write error."),
        ("wmap", missing, side, {}, 253, b"open(missing, 'r') failed.\nmp4File write error."),
        ("wmap", mp4, empty, {}, 253, b"binData is empty.\nmp4File write error."),
        ("wmap", mp4, missing, {}, 253, b"binData is empty.\nmp4File write error."),
        ("wmap", mp4, folder, {}, 254, b"mapFile read error."),
        ("wmap", mp4, huge, {}, 254, b"mapFile read error."),
        ("wmap", full, link, {}, 253, b"mp4File write error."),
        ("wmap", side, mp4, {}, 253, b"mp4File write error."),
        *[("wmap", mp4, side, limited_to(len(good) + room), 253, b"mp4File write error.") for room in (0, 1, 23, 24, 25, 30)],
    ):
        assert call(kind, first, second, **options)[:2] == (status, text), (kind, first, second)
        assert {path: path.is_file() and path != huge and sha(path) for path in tmp_path.iterdir()} == before


def test_the_first_matching_box_counts_in_either_size_form(recording, side):
    good, first, second = recording.read_bytes(), slam_box("map", b"first"), slam_box("map", b"second")
    large = (1).to_bytes(4, "big") + b"uuid" + (16 + 16 + 5).to_bytes(8, "big") + first[8:]
    for boxes in (first + second, box(b"moov", second) + slam_box("walk", b"other") + large + second):
        recording.write_bytes(good + boxes)
        assert call("rmap", recording, side)[0] == 0
        assert side.read_bytes() == b"first"


def test_works_with_no_one_to_listen(recording, side, tmp_path):
    before = recording.read_bytes()
    for streams in ("<&-", ">&-", "<&- >&- 2>&-", ">/dev/full 2>&1"):
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


def test_what_is_there_stays_or_keeps_its_face(recording, side, tmp_path):
    link, other = tmp_path / "link", tmp_path / "other"
    link.symlink_to(side)
    other.write_bytes(b"another")
    assert call("wmap", recording, side) == (0, b"", b"")
    status, text, error = call("wmap", recording, other)
    assert status == 0 and text.startswith(b"MP4: uuid is existed.(") and b"pellmor-edit put --replace" in error
    side.write_bytes(b"an older payload")
    side.chmod(0o640)
    os.setxattr(side, "user.note", b"kept")
    assert call("rmap", recording, link) == (0, b"", b"")
    assert link.is_symlink() and side.read_bytes() == b"payload"
    assert side.stat().st_mode & 0o777 == 0o640 and os.getxattr(side, "user.note") == b"kept"


def test_pipes_and_devices_are_side_files_too(recording, tmp_path):
    shell = f"head -c 300000 /dev/zero | {PELLMOR} -kind:wmap video.mp4 /dev/stdin; {PELLMOR} -kind:rmap video.mp4 /dev/stderr"
    assert run("sh", "-c", shell, cwd=tmp_path).stderr == bytes(300000)


def test_a_terminal_gets_its_prompt_on_a_line_of_its_own(tmp_path):
    master, terminal = os.openpty()
    result = subprocess.run([PELLMOR, "-kind:rmap", "none", "none"], cwd=tmp_path, stdout=terminal, stderr=subprocess.PIPE, timeout=120)
    os.close(terminal)
    assert (result.stderr, os.read(master, 999)[-21:]) == (b"\n", b"\nmp4File read error.".rjust(21, b"\r"))
    os.close(master)


@pytest.mark.parametrize("name", ["INT", "TERM", "HUP"])
def test_an_interrupt_ends_what_waits(recording, tmp_path, name):
    os.mkfifo(tmp_path / "side")
    before, number = recording.read_bytes(), getattr(signal, "SIG" + name)
    process = subprocess.Popen([PELLMOR, "-kind:wmap", recording, tmp_path / "side"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    with open(tmp_path / "side", "wb", buffering=0) as writer:
        writer.write(b"the first bytes")
        while writer and fcntl.ioctl(writer, termios.FIONREAD, bytes(4)) != bytes(4):
            time.sleep(0.01)
        time.sleep(0.1)
        process.send_signal(number)
        out, error = process.communicate(timeout=120)
    assert (process.returncode, out[-19:]) == (128 + number, b"mapFile read error.")
    assert error == f"Pellmor: interrupted by SIG{name}; nothing was changed\n".encode()
    assert recording.read_bytes() == before


@needs_strace
def test_what_cannot_be_looked_at_is_not_overwritten(recording, side, tmp_path):
    other = tmp_path / "other.mp4"
    other.write_bytes(recording.read_bytes())
    call("wmap", recording, side)
    for fault in ("openat:error=EIO:when=1", "read:error=EIO:when=1"):
        result = run(*STRACE, "-o", "/dev/null", "-P", other, "-e", "inject=" + fault, PELLMOR, "-kind:rmap", recording, other)
        assert (result.returncode, result.stdout[-20:]) == (251, b"mapFile write error.") and b"not overwritten" in result.stderr
    assert other.read_bytes() + slam_box("map", b"payload") == recording.read_bytes()


INTERRUPTS = [
    # kind, interrupted in which call, status, what standard error begins with
    ("wmap", "write:signal=INT:when=8", 130, b"Pellmor: interrupted by SIGINT; nothing was changed\n"),
    ("rmap", "write:signal=TERM:when=8", 143, b"Pellmor: interrupted by SIGTERM; nothing was changed\n"),
    ("rmap", "rename:signal=INT", 0, b""),  # too late
]


@needs_strace
@pytest.mark.parametrize("kind, fault, status, error", INTERRUPTS)
def test_an_interrupt_ends_what_runs_unless_it_is_done(recording, side, tmp_path, kind, fault, status, error):
    os.truncate(side, 20 << 20)
    if kind == "rmap":
        call("wmap", recording, side)
        side.write_bytes(b"an older payload")
    before = {path: sha(path) for path in tmp_path.iterdir()}
    result = run(*STRACE, "-o", "/dev/null", "-e", "inject=" + fault, PELLMOR, "-kind:" + kind, recording, side)
    assert (result.returncode, result.stderr) == (status, error)
    assert status == 0 or {path: sha(path) for path in tmp_path.iterdir()} == before
    assert len(os.listdir(tmp_path)) == len(before)
