"""Layout edits on real recordings."""

import shutil

import pytest

from conftest import BIN, edit, limited_to, packets, probe, run, sha


@pytest.mark.parametrize("kind", ["moov_last", "quicktime"])
def test_moov_first_keeps_every_packet(recordings, tmp_path, kind):
    original = getattr(recordings, kind)()
    video = tmp_path / original.name
    shutil.copy(original, video)
    edit("moov-first", video)
    content = video.read_bytes()
    assert content.index(b"moov") < content.index(b"mdat")
    assert len(content) == original.stat().st_size
    assert packets(video) == packets(original)
    assert probe(video) == probe(original)
    again = sha(video)
    edit("moov-first", video)
    assert sha(video) == again


def test_the_result_may_go_to_another_file(recordings, tmp_path):
    original = recordings.moov_last()
    before = sha(original)
    edit("moov-first", original, "-o", tmp_path / "out.mp4")
    assert sha(original) == before
    assert packets(tmp_path / "out.mp4") == packets(original)
    other = tmp_path / "other"
    other.write_bytes(b"precious")
    wrongs = {
        ("put", "axis", "missing", original, "-o", other): 1,
        ("put", "axis", other, original, "-o", other): 2,
        ("location", "nowhere", original, "-o", other): 2,
        ("moov-first", original, "-o", other): 3,
        ("moov-first", other): 1,
    }  # fmt: skip
    for wrong, status in wrongs.items():
        assert run(BIN / "pellmor-edit", *wrong).returncode == status, wrong
        assert other.read_bytes() == b"precious"
    assert len(list(tmp_path.iterdir())) == 2 and sha(original) == before


def test_fragments_are_not_moved(recordings, tmp_path):
    original = recordings.fragmented()
    video = tmp_path / "video.mp4"
    # moov behind everything: only then is there anything to move
    content = original.read_bytes()
    at = content.index(b"moov") - 4
    size = int.from_bytes(content[at : at + 4], "big")
    video.write_bytes(content[:at] + content[at + size :] + content[at : at + size])
    before = sha(video)
    result = run(BIN / "pellmor-edit", "moov-first", video)
    assert result.returncode == 1
    assert b"movie fragments" in result.stderr
    assert sha(video) == before


@pytest.mark.parametrize("missing", [1, 3000])
def test_a_full_disk_leaves_the_recording_and_nothing_else(recordings, tmp_path, missing):
    video = shutil.copy(recordings.moov_last(), tmp_path / "video.mp4")
    before = sha(video)
    size = recordings.moov_last().stat().st_size
    result = run(BIN / "pellmor-edit", "moov-first", video, **limited_to(size - missing))
    assert result.returncode == 1
    assert sha(video) == before
    assert len(list(tmp_path.iterdir())) == 1


def test_the_creation_time_is_set_in_every_header(recording):
    before = packets(recording)
    edit("set-time", "1904:3800000000", recording)
    report = probe(recording)
    times = {part["tags"]["creation_time"] for part in [report["format"], *report["streams"]]}
    assert times == {"2024-05-31T11:33:20.000000Z"}
    assert packets(recording) == before
