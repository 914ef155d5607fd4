# SPDX-License-Identifier: MIT
"""What pellmor-edit puts in, gets, removes, refuses and says, on real recordings."""

import json
import os
import shutil

import pytest

from conftest import BIN, box, edit, packets, probe, run, sha, word

EDIT = BIN / "pellmor-edit"
BEHIND = ["map", "walk", "xmp", "around", "axis"]


def contents(version):
    xml = b"<a>%d</a>" % version
    special = {"xmp": xml, "spherical": xml, "udta": box(b"udta", box(b"name", xml))}
    return {kind: special.get(kind, os.urandom(900 + version)) for kind in [*BEHIND, "spherical", "udta"]}


def got(video):
    return {kind: run(EDIT, "get", kind, video).stdout for kind in contents(0)}


def test_every_kind_is_put_replaced_and_removed_wherever_it_stands(recording, tmp_path):
    before, held, side = packets(recording), contents(1), tmp_path / "side"
    for kind, content in held.items():
        side.write_bytes(content)
        edit("put", kind, side, recording, "--replace")
    assert got(recording) == held
    for kind, content in contents(2).items():
        side.write_bytes(content)
        digest = sha(recording)
        assert run(EDIT, "put", kind, side, recording).returncode == 3 and sha(recording) == digest
        edit("put", kind, "-", recording, "--replace", input=content)
        held[kind] = content
        assert got(recording) == held, kind
        digest = sha(recording)
        edit("put", kind, side, recording)
        assert sha(recording) == digest, kind
    assert packets(recording) == before
    assert run("exiftool", "-validate", "-q", recording).returncode == 0
    for kind in ("walk", "map", "axis", "spherical", "xmp", "udta", "around"):
        edit("remove", kind, recording)
        held[kind] = b""
        assert got(recording) == held, kind
        assert run(EDIT, "remove", kind, recording).returncode == run(EDIT, "get", kind, recording).returncode == 4
    assert packets(recording) == before


# A line that begins with "!" changes the recording.
@pytest.mark.parametrize(
    "line, status, told",
    [
        ("moofirst @v", 2, "did you mean moov-first?"),
        ("set-time 1700000000 @v", 2, "of which epoch?"),
        ("set-time 2026-02-29 @v", 2, "no such day"),
        ("!set-time 20261123T1000+09 @v", 0, "created 2026-11-23T01:00:00Z"),
        ("set-time file @old", 1, "old: its last change is outside 1904 to 2040"),
        ("location 91,0 @v", 2, "not on the globe"),
        ("location 35.6895 @v", 2, "not like"),
        ("location 1,2 @v --xmp --compass 361", 2, "compass"),
        ("location 1,2 @v --xmp --compass nan", 2, "--compass: 'nan' is no number"),
        ("location +3560+13941/ @v", 2, "60 or more minutes"),
        ("!location +3541.37-0074130.5/ @v", 0, "v: location +35.6895-007.69181/"),
        ("put xmp @text @v", 2, "text: not well-formed XML: "),
        ("put xmp @doubled @v", 2, "doubled: not well-formed XML: duplicate attribute (line 1, column 10)"),
        ("put udta @text @v", 2, "not one whole box of type udta"),
        ("put udta @torn @v", 2, "the boxes in it do not fill it"),
        ("put map @missing @v", 1, "missing: could not be read: No such file or directory"),
        ("moov-first @text", 1, "text: is no MP4 file"),
        ("!moov-first @missing @v", 1, "missing: could not be opened: No such file or directory"),
        ("moov-first @v -o @text", 3, "text is there already"),
        ("moov-first @v --backup", 3, "v~ is there already"),
        ("moov-first @v --backup -n", 3, "v~ is there already"),
        ("remove map @v --backup", 4, "v: has no map"),
        ("moov-first @v -n -o @text", 3, "text is there already"),
        ("moov-first @v -n -o @nowhere/o", 1, "nowhere/o: could not be written: No such file or directory"),
        ("moov-first @v -o -", 2, "cannot go to standard output"),
        ("moov-first @v --output=", 2, "--output"),
        ("get udta @v -o @v --force", 2, "is what the result is made from"),
        ("put map @v @bare @v", 2, "v: is what the result is made from"),
        ("sound-to-wav @v @o", 1, "v: has no spatial sound"),
        ("sound-to-wav @missing @o", 1, "missing: could not be opened: No such file or directory"),
        ("sound-to-wav @v @o --start 2 --end 1", 2, "--end: ahead of --start"),
        ("sound-track @v @o --start nan", 2, "--start: 'nan' is no number"),
        ("put map @long @v", 2, "too long"),
        ("set-time now @bare", 1, "no header that could hold"),
        ("moov-first @bare", 1, "has no movie"),
        ("put spherical @xml @bare", 1, "has no movie"),
        ("remove-bad-location @bare", 1, "has no movie"),
        ("remove sound @v", 4, "v: has no sound"),
        ("location 1,2 @v -n", 0, "dry run"),
        ("!location -33.8,151.2,-5 @v", 0, "v: location -33.8+151.2-5/"),
        ("--version", 0, ""),
    ],
)
def test_each_outcome_has_its_status_and_its_words(recordings, tmp_path, line, status, told):
    video = shutil.copy(recordings.moov_last(), tmp_path / "v")
    (tmp_path / "text").write_text("text")
    (tmp_path / "xml").write_text("<a/>")
    (tmp_path / "bare").write_bytes(box(b"ftyp") + box(b"mdat"))
    (tmp_path / "long").touch()
    os.truncate(tmp_path / "long", 5 << 30)
    (tmp_path / "v~").write_text("old")
    (tmp_path / "doubled").write_text('<a b="1" b="2"/>')
    (tmp_path / "torn").write_bytes(box(b"udta", word(9), b"name"))
    os.utime(shutil.copy(video, tmp_path / "old"), (0, -3_000_000_000))
    before, there = sha(video), set(tmp_path.iterdir())
    result = run(EDIT, *line.lstrip("!").replace("@", f"{tmp_path}/").split())
    assert result.returncode == status and told in result.stderr.decode(), result.stderr
    assert (sha(video) != before) == line.startswith("!")
    assert set(tmp_path.iterdir()) == there


def test_an_edit_keeps_what_it_is_told_to_keep(recordings, tmp_path):
    video = shutil.copy(recordings.moov_last(), tmp_path / "v")
    os.utime(video, (1, 1_700_000_000))
    before = sha(video)
    edit("location", "35.6895, 139.6917, 12.5", video, "--backup", "-P")
    assert sha(tmp_path / "v~") == before and os.stat(video).st_mtime == os.stat(tmp_path / "v~").st_mtime == 1_700_000_000
    result = run(EDIT, "location", "35.6895,139.6917,12.5", video, "--backup")
    assert result.returncode == 0 and b"nothing to do" in result.stderr
    report = probe(video)
    edit("location", "+35.6895+139.6917+12.5/", video)
    assert run("sh", "-c", f"{EDIT} location 1,2 {video} --replace >&- 2>&-").returncode == 0
    assert run("sh", "-c", f"{EDIT} get udta {video} >/dev/full").returncode == 1
    assert probe(video) != report and probe(video)["format"]["tags"]["location"] == "+1.0000+02.0000/"


@pytest.mark.parametrize("line", ["location 1,2 @", "put spherical xml @", "full-range on @"])
def test_what_a_killed_edit_left_does_not_count(recordings, tmp_path, line):
    (tmp_path / "xml").write_text("<a/>")
    facts = {}
    for name in ("whole", "killed"):
        video = shutil.copy(recordings.moov_last(), tmp_path / name)
        if name == "killed":  # between the two writes
            content = (tmp_path / "whole").read_bytes()
            video.write_bytes(video.read_bytes() + content[content.rindex(b"moov") - 4 :])
        edit(*line.replace("@", name).split(), cwd=tmp_path)
        facts[name] = json.loads(run(EDIT, "info", "--json", video).stdout)
    for key in ("tracks", "location", "spherical", "moov"):
        assert facts["killed"][key] == facts["whole"][key], key
