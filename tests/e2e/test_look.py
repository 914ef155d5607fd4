# SPDX-License-Identifier: MIT
"""What pellmor-edit tells of a file, what it finds wrong with it, and how it draws it."""

import json
import os
import re
import shutil
import uuid

import pytest

from commands import MAP
from conftest import BIN, box, edit, probe, run, word

CHROMIUM = shutil.which("chromium")
QUIET = "--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking --disable-component-update --disable-sync".split()


def told(*arguments):
    """What pellmor-edit writes to standard output; it must succeed."""
    result = run(BIN / "pellmor-edit", *arguments, "-q")
    assert (result.returncode, result.stderr) == (0, b""), result.stderr
    return result.stdout


def test_info_agrees_with_other_readers(recordings, tmp_path):
    full = ["-pix_fmt", "yuvj420p", "-color_range", "pc", "-metadata", "creation_time=2026-11-23T10:00:00Z", "-ac", 2]
    odd = os.fsencode(tmp_path) + b"/\xff.mp4"
    shutil.copy(recordings.moov_last(), odd)
    files = [recordings.moov_first(), recordings.fragmented(), recordings.quicktime(), recordings.make("full", *full), os.fsdecode(odd)]
    (tmp_path / "lines").write_bytes(told("info", "--json", *files))
    names = run("jq", "-r", ".file, .moov", tmp_path / "lines").stdout.decode().split("\n")
    assert names[0::2][:4] == [str(file) for file in files[:4]] and names[1::2] == ["first", "first", "behind", "behind", "behind"]
    for file, line in zip(files, (tmp_path / "lines").read_text().splitlines()):
        facts, judged = json.loads(line), probe(file)
        whole = facts["fragments"] == 0
        assert facts["created"] == judged["format"]["tags"].get("creation_time", "").replace(".000000", "") or facts["created"] is None
        assert facts["seconds"] == (pytest.approx(float(judged["format"]["duration"]), abs=0.03) if whole else None)
        assert facts["brands"][0] == judged["format"]["tags"]["major_brand"]
        for track, stream in zip(facts["tracks"], judged["streams"], strict=True):
            assert track["kind"] == {"audio": "sound"}.get(stream["codec_type"], stream["codec_type"])
            assert (track["id"], track["codec"]) == (int(stream["id"], 16), stream["codec_tag_string"])
            assert (track["width"], track["height"]) == (stream.get("width", 0), stream.get("height", 0))
            assert (track["channels"], track["sample_rate"]) == (stream.get("channels", 0), int(stream.get("sample_rate", 0)))
            assert track["full_range"] == ((stream.get("color_range") == "pc") if track["kind"] == "video" else None)
            if whole:
                assert track["samples"] == int(stream["nb_frames"])
                assert track["seconds"] == pytest.approx(float(stream["duration"]), abs=0.03)
    assert json.loads(line)["file"].endswith("/\N{REPLACEMENT CHARACTER}.mp4")
    assert "created     2026-11-23T10:00:00Z" in told("info", recordings.make("full")).decode()


def test_a_dump_as_json_is_the_file(recordings, tmp_path):
    video = tmp_path / "video.mp4"
    video.write_bytes(recordings.moov_first().read_bytes().replace(b"mp41", b"\xff\0mp") + box(b"uuid", MAP, b"payload"))
    edit("location", "35.6895,139.6917,12.5", video)
    content = video.read_bytes()
    seen = {}

    def compare(node, end):
        at, size = node["offset"], node["size"]
        assert (size, node["type"].encode("latin-1")) == (int.from_bytes(content[at : at + 4], "big"), content[at + 4 : at + 8])
        assert at + size <= end
        seen[node["type"]] = node.get("fields")
        for child in node.get("children", []):
            compare(child, at + size)

    tree = json.loads(told("dump", "--json", video))
    for node in tree["children"]:
        compare(node, tree["size"])
    assert sum(node["size"] for node in tree["children"]) == tree["size"] == len(content)
    assert seen["uuid"] == {"uuid": str(uuid.UUID(bytes=MAP)), "kind": "map"}
    assert seen["\N{COPYRIGHT SIGN}xyz"]["xyz"] == "+35.6895+139.6917/"
    facts = json.loads(told("info", "--json", video))
    assert facts["location"] == {"latitude": 35.6895, "longitude": 139.6917, "altitude": 12.5}
    assert (facts["map"], facts["walk"]) == (7, None)


def first_chunk_at(video, offset):
    """The recording with its first chunk offset changed."""
    at = video.index(b"stco") + 12
    return video[:at] + offset.to_bytes(4, "big") + video[at + 4 :]


def freed(moov):
    return moov[:4] + b"free" + moov[8:]


CUT = word(5000) + b"free" + MAP
# What is done to a recording with its moov at the end, what is said of it, and whether repair brings the recording back.
STATES = {
    "clean": (lambda v, moov: v, "", True),
    "padded": (lambda v, moov: v + box(b"free", bytes(100)) + box(b"skip"), "", None),
    "killed append": (lambda v, moov: v + CUT, "is cut off: 4,976 bytes of its 5,000", True),
    "append without type": (lambda v, moov: v + box(b"free", MAP, bytes(99)), "left over .*map", True),
    "killed movie edit": (lambda v, moov: v + moov, "'moov' is there again", True),
    "both": (lambda v, moov: v + moov + box(b"free", MAP) + CUT, "(?s)again.*map.*cut off", True),
    "holes": (lambda v, moov: v[: -len(moov)] + freed(moov) + box(b"free", b"rest") + moov, "(?s)left over.*moov.*of 12 bytes is left over", None),
    "pointed to": (lambda v, moov: first_chunk_at(v, len(v) + 20) + CUT, "is cut off", None),
    "second, half": (lambda v, moov: v + moov[:-9], "(?s)again.*cut off|cut off.*again", None),
    "cut": (lambda v, moov: moov + v[: len(v) // 2], "(?s)chunk offsets of track 1 lead outside.*'mdat' is cut off", None),
    "into ftyp": (lambda v, moov: first_chunk_at(v, 16), "1 of the .* lead to no media, the first to 16", None),
    "zeros": (lambda v, moov: v[: v.index(b"mdat") - 4] + bytes(64) + v[v.index(b"mdat") - 4 :], "64 bytes that are no box hide a 'mdat'", None),
    "junk": (lambda v, moov: v + b"hello", "5 bytes that are no box", None),
    "junk inside": (lambda v, moov: v[: -len(moov)] + box(b"moov", moov[8:], bytes(8), b"junk"), "12 bytes in 'moov' that are no box", None),
    "twice": (lambda v, moov: v + 2 * box(b"uuid", MAP, b"map"), "map is there again", None),
}  # fmt: skip


@pytest.mark.parametrize("name", STATES)
def test_check_and_repair(recordings, tmp_path, name):
    change, words, returns = STATES[name]
    original = recordings.moov_last().read_bytes()
    video = tmp_path / "video.mp4"
    video.write_bytes(change(original, original[original.rindex(b"moov") - 4 :]))
    before = video.read_bytes()
    result = run(BIN / "pellmor-edit", "check", "-q", video)
    assert result.returncode == (5 if words else 0) and re.search(words, result.stdout.decode()), result.stdout
    assert run(BIN / "pellmor-edit", "repair", video).returncode == 0
    assert video.read_bytes() == (original if returns else before)


def test_what_is_no_recording_is_named(tmp_path):
    (tmp_path / "text").write_text("no boxes\n")
    (tmp_path / "part").write_bytes(box(b"moov", word(3000) + b"trak") + box(b"free") * 300)  # more headers than bytes
    for command in (["info"], ["check"], ["repair"], ["dump"], ["dump", "--json"]):
        for file in ("text", "nope", ".", "part"):
            result = run(BIN / "pellmor-edit", *command, file, cwd=tmp_path)
            assert result.returncode == 1 and result.stderr.startswith(file.encode() + b": ")
            assert (b"could not be read whole" in result.stderr) == (file == "part")


def huge():
    """A moov of 29 MB, with boxes whose names would end a script or a comment."""
    count, entries = 3_600_000, 1_000
    table = b"".join((40 + 300 * i).to_bytes(4, "big") for i in range(entries)) * (count // entries)
    tables = box(b"stbl", box(b"stsz", word(0, 0, count), table), box(b"stco", word(0, count), table))
    track = box(b"trak", box(b"mdia", box(b"hdlr", word(0, 0), b"vide", bytes(13)), box(b"minf", tables)))
    return box(b"mdat", bytes(300_000)) + box(b"</sc", b"") + box(b"<!--", b"") + box(b"moov", track) + box(b"moof") * 100_000


@pytest.mark.skipif(CHROMIUM is None, reason="there is no Chromium")
@pytest.mark.parametrize("name", ["first", "fragmented", "holes", "huge"])
def test_a_browser_draws_the_picture(recordings, tmp_path, name):
    last = recordings.moov_last().read_bytes()
    moov = last[last.rindex(b"moov") - 4 :]
    content, words, kinds = {
        "first": (recordings.moov_first().read_bytes(), "Starts fast: moov lies in front", {"movie", "media", "text", "other", "free"}),
        "fragmented": (recordings.fragmented().read_bytes(), "Plays as it arrives: 5 fragments", {"movie", "media", "text", "other", "index"}),
        "holes": (last[: -len(moov)] + freed(moov) + moov + box(b"uuid", MAP, bytes(99)), "Starts slowly", {"movie", "media", "text", "other", "free", "hole", "slam"}),
        "huge": (huge(), "100,000 fragments", {"movie", "media", "index"}),
    }[name]  # fmt: skip
    (tmp_path / "video.mp4").write_bytes(content)
    page = tmp_path / "page.html"
    edit("picture", tmp_path / "video.mp4", "-o", page)
    assert page.stat().st_size < 1_000_000
    result = run(CHROMIUM, *QUIET, f"--user-data-dir={tmp_path}/profile", "--dump-dom", f"file://{page}")
    drawn = result.stdout.decode().partition("</script>")[0]
    assert words in drawn and set(re.findall(r'class="swatch (\w+)"', drawn)) == kinds
    top = [node["type"] for node in json.loads(told("dump", "--json", tmp_path / "video.mp4"))["children"]]
    buttons = re.findall(r'<button class="box[^>]*title="([^,"]+)', drawn)
    if name != "huge":
        assert buttons[: len(top)] == [{"uuid": "map"}.get(kind, kind) for kind in top]
        assert drawn.count("<tr ") > 20 and (drawn.count("<path") == 2) == (name != "fragmented")
    else:
        assert 1_500 < len(buttons) < 2_100 and "51 boxes" in drawn
