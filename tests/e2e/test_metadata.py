# SPDX-License-Identifier: MIT
"""Location, XMP and spherical-video metadata on real recordings, read by ffprobe and exiftool."""

import json

import pytest

from conftest import BIN, edit, packets, run

POSITION = "+35.6895+139.6917+12.5/"


def tags(path):
    """What exiftool reads, by group and tag."""
    result = run("exiftool", "-json", "-a", "-n", "-G1", path)
    return json.loads(result.stdout)[0]


def ffprobe_location(path):
    result = run("ffprobe", "-v", "error", "-show_entries", "format_tags=location", "-of", "csv=p=0", path)
    return result.stdout.decode().strip()


def test_other_readers_find_what_was_added(recording, tmp_path):
    video = recording
    before = packets(video)
    (tmp_path / "spherical.xml").write_text("<rdf:SphericalVideo/>")

    for wrong in (["+35.6895/"], [POSITION, "--xmp", "--tool", "a<b"]):
        assert run(BIN / "pellmor-edit", "location", *wrong, video).returncode == 2
    edit("location", POSITION, video, "--spherical", tmp_path / "spherical.xml", "--xmp", "--compass", 90.5, "--tool", "a tool")
    assert ffprobe_location(video) == "+35.6895+139.6917/"
    found = tags(video)
    assert found["UserData:GPSCoordinates"] == "35.6895 139.6917"
    location = found["UserData:LocationInformation"]
    assert "Lat=35.68950 Lon=139.69170 Alt=12.50" in location
    assert found["XMP-exif:GPSLatitude"] == pytest.approx(35.6895, abs=1e-6)
    assert found["XMP-exif:GPSLongitude"] == pytest.approx(139.6917, abs=1e-6)
    assert (found["XMP-exif:GPSAltitude"], found["XMP-exif:GPSImgDirection"]) == (12.5, 90.5)
    assert b"<x:CreatorTool>a tool</x:CreatorTool>" in run("exiftool", "-xmp", "-b", video).stdout
    assert packets(video) == before
    assert b"<'loci': " in run(BIN / "pellmor-edit", "dump", video).stdout


def test_a_location_that_is_there_keeps_its_digits(recordings, tmp_path):
    told = "+35.689512+139.691723+040.5/"
    video = tmp_path / "told.mov"
    run("ffmpeg", "-v", "error", "-i", recordings.moov_last(), "-c", "copy", "-metadata", f"location={told}", video)
    before = video.read_bytes()
    for other in ("35.68955,139.69175", "35.689512,139.691723,999"):
        assert run(BIN / "pellmor-edit", "location", other, video).returncode == 3
    assert told.encode() in before and video.read_bytes() == before
    edit("location", "35.689512,139.691723,40.5", video)
    content = video.read_bytes()
    assert told.encode() in content and b"@xyz+35.689512+139.691723+40.5/" in content
    edit("location", "35.6895120,139.691723,40.50", video)
    assert video.read_bytes() == content
