# SPDX-License-Identifier: MIT
"""The Python module on real recordings, many at a time."""

import errno
import fcntl
import os
import resource
import shutil
import signal
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy
import pellmor
import pytest

from conftest import BIN, packets, run


def test_payloads_are_put_got_and_removed(recording):
    data = numpy.arange(10_000, dtype=numpy.uint16)
    before = packets(recording)
    with pytest.raises(KeyError):
        pellmor.slam.get(recording, "map")
    pellmor.slam.put(recording, "map", data)
    with pytest.raises(FileExistsError):
        pellmor.slam.put(os.fsencode(recording), "map", b"other")
    assert (numpy.frombuffer(pellmor.slam.get(str(recording), "map"), numpy.uint16) == data).all()
    assert run(BIN / "Pellmor", "-kind:rmap", recording, recording.with_suffix(".bin")).returncode == 0
    assert recording.with_suffix(".bin").read_bytes() == data.tobytes()
    pellmor.slam.put(recording, "map", b"other", replace=True)
    assert pellmor.slam.get(recording, "map") == b"other"
    pellmor.slam.remove(recording, "map")
    with pytest.raises(KeyError):
        pellmor.slam.remove(recording, "map")
    assert packets(recording) == before


@pytest.mark.parametrize("altitude", [None, 40.5])
def test_a_location_is_set_and_set_anew(recording, altitude):
    pellmor.set_location(recording, 1.5, -2.25, altitude=7)
    pellmor.set_location(recording, 35.6895, 139.6917, altitude=altitude)
    position = pellmor.info(recording)["location"]
    assert (position["latitude"], position["longitude"]) == pytest.approx((35.6895, 139.6917), abs=1e-4)
    assert position["altitude"] == altitude
    assert run("exiftool", "-s3", "-n", "-UserData:GPSCoordinates", recording).stdout.startswith(b"35.6895 139.6917")


def test_boxes_are_where_they_are_said_to_be(recording):
    content = recording.read_bytes()
    boxes = pellmor.boxes(recording)
    assert "moov.trak.mdia.minf.stbl.stco" in [box.path for box in boxes]
    for box in boxes:
        assert content[box.offset + 4 : box.offset + 8] == box.path[-4:].encode("latin-1")
    assert sum(box.size for box in boxes if "." not in box.path) == len(content)


@pytest.mark.parametrize(
    "name, error",
    [("missing.mp4", FileNotFoundError), ("", IsADirectoryError), ("device.mp4", OSError)],
)
def test_failures_have_a_reason(recording, tmp_path, name, error):
    (tmp_path / "device.mp4").symlink_to("/dev/zero")
    for path in (tmp_path / name, os.fsencode(tmp_path / name)):
        with pytest.raises(error) as raised:
            pellmor.slam.put(path, "map", b"data")
        assert str(raised.value)
    for wrong in (lambda: pellmor.slam.get(recording, "mop"), lambda: pellmor.set_location(recording, 91, 0)):
        with pytest.raises(ValueError):
            wrong()


def test_refusals_tell_why(recordings, tmp_path):
    cut = tmp_path / "cut.mp4"
    cut.write_bytes(recordings.moov_last().read_bytes()[:-100])
    content = cut.read_bytes()
    with pytest.raises(pellmor.Error, match=r"MP4: .*cut\.mp4"):
        pellmor.slam.put(cut, "map", b"data")
    assert cut.read_bytes() == content
    bare = tmp_path / "bare.mp4"
    bare.write_bytes(content[:32])
    with pytest.raises(pellmor.Error, match="no movie"):
        pellmor.set_location(bare, 1, 2)


def test_what_the_system_refuses_is_its_error(recording):
    content = recording.read_bytes()
    limits = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (len(content) + 100, limits[1]))
    try:
        with pytest.raises(OSError) as failure:
            pellmor.slam.put(recording, "map", bytes(1000))
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, limits)
    assert failure.value.errno == errno.EFBIG
    assert recording.read_bytes() == content


def test_an_edit_that_waits_can_be_interrupted(recording):
    with open(recording) as held:
        fcntl.flock(held, fcntl.LOCK_EX)
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        with pytest.raises(KeyboardInterrupt):
            pellmor.set_location(recording, 1, 2)


def test_a_hundred_files_in_four_threads(recordings, tmp_path):
    def work(number):
        path = tmp_path / os.fsdecode(b"S\xfcd %d.mp4" % number)
        shutil.copy(recordings.moov_last(), path)
        data = bytes([number]) * 100_000
        pellmor.slam.put(path, "walk", data)
        pellmor.set_location(path, number / 2, -number)
        return pellmor.slam.get(path, "walk") == data and pellmor.info(path)["location"]["longitude"] == -number

    with ThreadPoolExecutor(4) as pool:
        assert all(pool.map(work, range(100)))
