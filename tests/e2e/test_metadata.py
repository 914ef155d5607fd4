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
