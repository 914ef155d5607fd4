"""Every system call on the file fails in turn, or kills the process: the old file stays, or the new one is there."""

import os

import pytest

from conftest import BIN, box, run, word

RECORD = bytes.fromhex("014D401FFFE10009674D001EECA0A0FC8001000468EF3C80")
TABLES = [box(b"stsd", word(0, 1), box(b"avc1", bytes(78), box(b"avcC", RECORD))), box(b"stco", word(0, 1, 8))]
TRACK = box(b"trak", box(b"tkhd", bytes(76), word(64 << 16, 64 << 16)), box(b"mdia", box(b"minf", box(b"stbl", *TABLES))))
MOVIE = box(b"moov", box(b"mvhd"), TRACK, box(b"udta", box(b"ZDT9", bytes(16)), box(b"name", bytes(30))))
MEDIA = box(b"mdat", b"samples")
MOVIE_FIRST = MOVIE + MEDIA
MOVIE_LAST = MEDIA + word(0) + MOVIE[4:]  # open to the end of the file

EDITS = {
    "moov-first": (MOVIE_LAST, ["pellmor-edit", "moov-first", "video.mp4"]),
    "location": (MOVIE_FIRST, ["pellmor-edit", "location", "video.mp4", "+35.6895+139.6917/", "--spherical", "text"]),
    "full-range": (MOVIE_FIRST, ["pellmor-edit", "full-range", "video.mp4", "on"]),
    "sound": (MOVIE_FIRST, ["pellmor-edit", "append-sound", "video.mp4", "sound.mp4"]),
    "xmp": (MOVIE_LAST, ["pellmor-edit", "xmp", "video.mp4", "text"]),
    "slam": (MOVIE_LAST, ["Pellmor", "-kind:wmap", "video.mp4", "text"]),
}
REWRITES = ["moov-first", "location"]


@pytest.mark.skipif(run("strace", "-qq", "-o", os.devnull, "true").returncode != 0, reason="this system lets no process be traced")
@pytest.mark.parametrize("edit, fault", [(edit, "error=EIO") for edit in EDITS] + [(edit, "signal=KILL") for edit in REWRITES])
def test_all_or_nothing(tmp_path, edit, fault):
    before, (program, *arguments) = EDITS[edit]
    video, trace = tmp_path / "video.mp4", tmp_path / "trace"
    (tmp_path / "text").write_bytes(b"text")
    table = box(b"stbl", box(b"stsz", word(0, 8, 1)), box(b"co64", word(0, 1, 0, 8)))
    track = box(b"ZATR", box(b"mdia", box(b"mdhd", word(0, 0, 0, 1000, 1, 0)), box(b"minf", table)))
    identity = bytes.fromhex("28F311E2B7914F6F94E24F5DEACB3C01")
    (tmp_path / "sound.mp4").write_bytes(box(b"free") + box(b"uuid", identity, box(b"ZADT", bytes(8)), track))

    def attempt(*strace):
        video.write_bytes(before)
        result = run(*strace, BIN / program, *arguments, cwd=tmp_path, env={**os.environ, "ASAN_OPTIONS": "detect_leaks=0"})
        return result.returncode, video.read_bytes()

    status, after = attempt()
    assert status == 0 and after != before
    files = set(tmp_path.iterdir())
    call, met = 0, True
    while met:
        call += 1
        injection = f"inject=file,desc:{fault}:when={call}"
        status, content = attempt("strace", "-qq", "-o", trace, "-P", "video.mp4", "-P", "video.mp4.tmp.mp4", "-e", injection)
        met = any(mark in trace.read_text() for mark in ("INJECTED", "SIGKILL"))
        trace.unlink()
        if fault == "signal=KILL":
            assert content in (before, after), call
            (tmp_path / "video.mp4.tmp.mp4").unlink(missing_ok=True)
        else:
            assert content == (after if status == 0 else before), call
        assert set(tmp_path.iterdir()) == files, call
    assert call > 20 and status == 0, "the last run met no fault"
