# SPDX-License-Identifier: MIT
"""Real recordings, made by ffmpeg once a run, and the programs under test."""

import hashlib
import json
import os
import resource
import shutil
import subprocess
from pathlib import Path

import pytest

BIN = Path(os.environ["PELLMOR_BIN"])
SANITIZED = os.environ["PELLMOR_SANITIZED"] == "1"
REMARKS = []  # figures that a test wants to be seen


def pytest_terminal_summary(terminalreporter, exitstatus):
    """What was not tested is told loudly, but for what a sanitizer makes meaningless; ctest knows the words."""
    for remark in REMARKS:
        terminalreporter.write_line(remark)
    for report in terminalreporter.stats.get("skipped", []):
        reason = report.longrepr[2].removeprefix("Skipped: ")
        if exitstatus == pytest.ExitCode.OK and not (SANITIZED and "sanitizer" in reason):
            terminalreporter.write_line(f"COULD NOT RUN HERE: {report.nodeid}: {reason}", red=True)


def box(kind, *body):
    content = b"".join(body)
    return (8 + len(content)).to_bytes(4, "big") + kind + content


def word(*values):
    return b"".join(value.to_bytes(4, "big") for value in values)


def run(*command, **options):
    """Runs a program and returns the finished process, its output as bytes."""
    return subprocess.run([str(part) for part in command], capture_output=True, timeout=120, **options)


# A sanitizer cannot look for leaks in a process that is traced.
STRACE = ["strace", "-qq", "-E", "ASAN_OPTIONS=detect_leaks=0"]
needs_strace = pytest.mark.skipif(run(*STRACE, "-o", os.devnull, "true").returncode != 0, reason="this system lets no process be traced")


def ffmpeg(*arguments):
    result = run("ffmpeg", "-v", "error", "-y", "-nostdin", *arguments)
    assert result.returncode == 0, result.stderr.decode()


def packets(path):
    """The checksum, size and time of every packet of every stream."""
    result = run("ffmpeg", "-v", "error", "-i", path, "-map", "0", "-c", "copy", "-f", "framemd5", "-")
    assert result.returncode == 0 and not result.stderr, result.stderr.decode()
    return result.stdout


def probe(path):
    """What ffprobe reads of the streams and of the file, without the file's name and size."""
    result = run("ffprobe", "-v", "error", "-show_streams", "-show_format", "-of", "json", path)
    assert result.returncode == 0 and not result.stderr, result.stderr.decode()
    report = json.loads(result.stdout)
    for key in ("filename", "size", "bit_rate"):
        report["format"].pop(key)
    return report


def edit(*arguments, **options):
    """Runs pellmor-edit; it must succeed and print nothing, as it does when asked to be quiet."""
    result = run(BIN / "pellmor-edit", *arguments, "-q", **options)
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", b"")


def without_user_data(path):
    """Makes the movie's udta a free box."""
    path.write_bytes(path.read_bytes().replace(b"udta", b"free"))


def sha(path):
    return hashlib.sha256(Path(path).read_bytes()).hexdigest()


def limited_to(size):
    """Options of run() that make every write beyond `size` bytes of a file fail."""
    return {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))}


class Recordings:
    """Recordings by name, each made when a test first asks for it."""

    PICTURE = ["-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=2"]
    SOUND = ["-f", "lavfi", "-i", "sine=frequency=330:sample_rate=48000:duration=2"]

    def __init__(self, folder):
        self.folder = folder

    def make(self, name, *output, sound=True, picture=None, suffix=".mp4"):
        path = self.folder / (name + suffix)
        if not path.exists():
            inputs = [*(picture or self.PICTURE), *(self.SOUND if sound else [])]
            ffmpeg(*inputs, "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", *output, path)
        return path

    def moov_last(self):
        return self.make("moov_last")

    def moov_first(self):
        return self.make("moov_first", "-movflags", "+faststart")

    def fragmented(self):
        return self.make("fragmented", "-movflags", "+frag_keyframe+empty_moov", "-g", "10")

    def quicktime(self):
        return self.make("quicktime", "-c:a", "pcm_s16le", suffix=".mov")


@pytest.fixture(scope="session")
def recordings(tmp_path_factory):
    return Recordings(tmp_path_factory.mktemp("recordings"))


@pytest.fixture(params=["moov_last", "moov_first"])
def recording(request, recordings, tmp_path):
    """A copy that the test may change, with moov behind mdat and in front of it."""
    return Path(shutil.copy(getattr(recordings, request.param)(), tmp_path / "video.mp4"))
