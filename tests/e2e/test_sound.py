# SPDX-License-Identifier: MIT
"""Spatial sound of four real channels: cut, carried into another file, written as WAV."""

import shutil

import pytest

from conftest import BIN, box, edit, ffmpeg, packets, run, word

RATE = 48000
TONES = [220, 330, 440, 550]
IDENTITY = bytes.fromhex("28F311E2B7914F6F94E24F5DEACB3C01")


@pytest.fixture(scope="session")
def sound(tmp_path_factory):
    """Three seconds of four channels of 16-bit PCM, each with a tone of its own."""
    path = tmp_path_factory.mktemp("sound") / "sound.raw"
    inputs = [part for tone in TONES for part in ("-f", "lavfi", "-i", f"sine=frequency={tone}:sample_rate={RATE}:duration=3")]
    ffmpeg(*inputs, "-filter_complex", "amerge=inputs=4", "-f", "s16le", path)
    return path.read_bytes()


@pytest.fixture
def recording_with_sound(recordings, sound, tmp_path):
    """A recording with a spatial block behind it, and a record of it in the user data."""
    video = recordings.moov_first().read_bytes()
    entry = box(b"sowt", bytes(6), (1).to_bytes(2, "big"), bytes(8), (4 << 16 | 16).to_bytes(4, "big"), bytes(4), (RATE << 16).to_bytes(4, "big"))
    count = len(sound) // 8
    data = len(video) + 24 + 8
    tables = [
        box(b"stsd", word(0, 1), entry), box(b"stts", word(0, 1, count, 1)), box(b"stsc", word(0, 1, 1, count, 1)),
        box(b"stsz", word(0, 8, count)), box(b"co64", word(0, 1, 0, data)),
    ]  # fmt: skip
    media = box(b"mdia", box(b"mdhd", word(0, 0, 0, RATE, count, 0)), box(b"hdlr", bytes(25)), box(b"minf", box(b"dinf"), box(b"stbl", *tables)))
    path = tmp_path / "sound.mp4"
    path.write_bytes(video + box(b"uuid", IDENTITY, box(b"ZADT", sound), box(b"ZATR", box(b"tkhd", bytes(84)), media)))
    return path


def with_record(path, tmp_path):
    """Gives a file a `ZDT9` box in its user data."""
    (tmp_path / "udta").write_bytes(box(b"udta", box(b"ZDT9", bytes(16))))
    edit("put", "udta", tmp_path / "udta", path, "--replace")


def test_a_second_is_cut_and_carried(recordings, recording_with_sound, sound, tmp_path):
    target = tmp_path / "target.mp4"
    shutil.copy(recordings.moov_last(), target)
    with_record(target, tmp_path)
    before = target.read_bytes()
    result = run(BIN / "pellmor-edit", "append-sound", recording_with_sound, target, "--start", 99)
    assert result.returncode == 1 and b"sound ends at 3.000 seconds" in result.stderr
    assert target.read_bytes() == before
    edit("append-sound", recording_with_sound, target, "--start", 1.0, "--end", 2.0)
    content = target.read_bytes()
    kept = sound[8 * RATE : 16 * RATE]

    at = content.index(b"ZADT") - 4
    assert at == len(before) + 24
    assert content[at + 8 : at + 8 + len(kept)] == kept
    assert packets(target) == packets(recordings.moov_last())

    wav = tmp_path / "cut.wav"
    edit("sound-to-wav", target, wav, "--start", 0, "--end", 1)
    edit("sound-to-wav", recording_with_sound, tmp_path / "direct.wav", "--start", 1, "--end", 2)
    assert wav.read_bytes() == (tmp_path / "direct.wav").read_bytes()
    assert [run("soxi", flag, wav).stdout.strip() for flag in ("-c", "-r", "-b", "-s")] == [b"4", b"48000", b"16", b"48000"]
    assert wav.read_bytes()[44:] == kept


def test_a_block_keeps_its_pointers_when_the_movie_grows(recording_with_sound, sound, tmp_path):
    with_record(recording_with_sound, tmp_path)
    edit("location", "+35.6895+139.6917/", recording_with_sound)
    content = recording_with_sound.read_bytes()
    at = content.index(b"ZADT") + 4
    assert content[content.index(b"co64", at) + 12 :].startswith(at.to_bytes(8, "big"))
    edit("sound-to-wav", recording_with_sound, tmp_path / "all.wav")
    assert (tmp_path / "all.wav").read_bytes()[44:] == sound
    piped = run("sh", "-c", f"{BIN}/pellmor-edit sound-to-wav {recording_with_sound} /dev/stdout -q | cat")
    assert piped.stdout == (tmp_path / "all.wav").read_bytes()
    for arguments, status in (((recording_with_sound, "--force"), 2), (("/dev/full",), 1)):
        assert run(BIN / "pellmor-edit", "sound-to-wav", recording_with_sound, *arguments).returncode == status
    assert recording_with_sound.read_bytes() == content
