# SPDX-License-Identifier: MIT
"""Every command of both programs on small files made by hand: one table for all tests that let something fail."""

import contextlib
import os
from dataclasses import dataclass, field
from pathlib import Path

from conftest import BIN, box, word

SPATIAL = bytes.fromhex("28F311E2B7914F6F94E24F5DEACB3C01")
MAP = bytes.fromhex("8B18D5C30E7A25C7B3AD252358B401EE")
RECORD = bytes.fromhex("014D401FFFE10009674D001EECA0A0FC8001000468EF3C80")
MEDIA = box(b"ftyp", b"isom", bytes(4)) + box(b"mdat", b"samples!" * 8)
BAD_LOCI = box(b"loci", bytes(20))


def movie_box(chunk, *user_data, meta=b""):
    """A `moov` whose one chunk lies at this offset."""
    entry = box(b"avc1", bytes(78), box(b"avcC", RECORD))
    tables = [
        box(b"stsd", word(0, 1), entry), box(b"stts", word(0, 1, 8, 1)), box(b"stsc", word(0, 1, 1, 8, 1)),
        box(b"stsz", word(0, 8, 8)), box(b"stco", word(0, 1, chunk)),
    ]  # fmt: skip
    information = box(b"minf", box(b"vmhd", bytes(12)), box(b"dinf", box(b"dref", word(0, 1), box(b"url ", word(1)))), box(b"stbl", *tables))
    media = box(b"mdia", box(b"mdhd", word(0, 0, 0, 1000, 8, 0)), box(b"hdlr", word(0, 0), b"vide", bytes(13)), information)
    track = box(b"trak", box(b"tkhd", word(1, 0, 0, 1, 0, 8), bytes(52), word(64 << 16, 64 << 16)), media)
    return box(b"moov", box(b"mvhd", word(0, 0, 0, 1000, 8), bytes(80)), track, box(b"udta", *user_data) if user_data else b"", meta)


def moov_first(*user_data):
    return movie_box(len(MEDIA) - 64 + len(movie_box(0, *user_data)), *user_data) + MEDIA


def moov_last(*user_data, **more):
    return MEDIA + movie_box(len(MEDIA) - 64, *user_data, **more)


def moov_far(*user_data):
    """As moov_last(), with a stretch in between that is long enough for the system to copy."""
    return MEDIA + box(b"free", bytes(1 << 17)) + moov_last(*user_data)[len(MEDIA) :]


def open_ended(movie):
    """The same with a `moov` that goes to the end of the file."""
    return movie[: len(MEDIA)] + word(0) + movie[len(MEDIA) + 4 :]


def with_sound():
    table = box(b"stbl", box(b"stsz", word(0, 8, 4)), box(b"stsc", word(0, 1, 1, 1, 1)), box(b"co64", word(0, 4, *(part for i in range(4) for part in (0, 40 + 8 * i)))))
    track = box(b"ZATR", box(b"mdia", box(b"mdhd", word(0, 0, 0, 4, 4, 0)), box(b"minf", table)))
    return box(b"ftyp") + box(b"uuid", SPATIAL, box(b"ZADT", bytes(range(32))), track)


FILES = {
    "text": b"text",
    "xml": b"<a/>",
    "position": b"+35.6895+139.6917/",
    "udta": box(b"udta", box(b"name", b"new")),
    "sound.mp4": with_sound(),
    "meta.mp4": moov_last(meta=box(b"meta", bytes(4), b"gps")),
}
NAME, RECORDED = box(b"name", bytes(30)), box(b"ZDT9", bytes(16))
HOLE = box(b"free", box(b"mvhd"), bytes(1000))  # which an earlier edit left


@dataclass
class Command:
    """A command line ("@name": a file of the folder), the recording that it gets, and the file that it is to change."""

    line: str
    video: bytes
    target: str = "video.mp4"
    files: dict = field(default_factory=dict)

    def arguments(self, folder):
        program, *arguments = self.line.split()
        return [BIN / program, *(str(folder / argument[1:]) if argument[0] == "@" else argument for argument in arguments)]

    def prepare(self, folder):
        """Makes the folder hold what the command finds, and nothing else; returns the names."""
        files = {**FILES, "video.mp4": self.video, **self.files}
        for path in Path(folder).iterdir():
            if path.name not in files:
                path.unlink()
        for name, content in files.items():
            (folder / name).write_bytes(content)
        os.chmod(folder / "video.mp4", 0o640)
        with contextlib.suppress(OSError):  # not every file system has attributes
            os.setxattr(folder / "video.mp4", "user.note", b"kept")
        return files


COMMANDS = {
    "moov-first": Command("pellmor-edit moov-first @video.mp4", open_ended(moov_last())),
    "moov-first -o": Command("pellmor-edit moov-first @video.mp4 -o @out.mp4", moov_far(), "out.mp4"),
    "set-time": Command("pellmor-edit set-time 1904:3800000000 @video.mp4", moov_last()),
    "location": Command("pellmor-edit location +35.6895+139.6917/ @video.mp4 --spherical @xml", moov_first(NAME)),
    "location, moov behind": Command("pellmor-edit location +35.6895+139.6917/ @video.mp4", moov_last(NAME)),
    "location, into a hole": Command("pellmor-edit location +35.6895+139.6917/ @video.mp4", MEDIA + HOLE + moov_last(NAME)[len(MEDIA) :]),
    "location, into a hole behind": Command("pellmor-edit location +35.6895+139.6917/ @video.mp4", moov_last(NAME) + HOLE),
    "remove-bad-location": Command("pellmor-edit remove-bad-location @video.mp4", moov_first(BAD_LOCI)),
    "gps-meta": Command("pellmor-edit gps-meta @meta.mp4 @video.mp4", moov_last(NAME)),
    "put spherical": Command("pellmor-edit put spherical @xml @video.mp4", open_ended(moov_last())),
    "put udta": Command("pellmor-edit put udta @udta @video.mp4 --replace", moov_first(NAME)),
    "full-range": Command("pellmor-edit full-range on @video.mp4", moov_first(NAME)),
    "full-range, moov behind": Command("pellmor-edit full-range on @video.mp4", moov_last()),
    "put xmp": Command("pellmor-edit put xmp @xml @video.mp4", open_ended(moov_last())),
    "put axis -o": Command("pellmor-edit put axis @text @video.mp4 -o @out.mp4", moov_far(), "out.mp4"),
    "put map --replace": Command("pellmor-edit put map @text @video.mp4 --replace", moov_last() + box(b"uuid", MAP, b"old")),
    "put map --replace, first": Command("pellmor-edit put map @text @video.mp4 --replace", box(b"uuid", MAP, b"old") + open_ended(moov_last())),
    "put map --replace, in the middle": Command("pellmor-edit put map @text @video.mp4 --replace", MEDIA + box(b"uuid", MAP, b"old") + moov_last()[len(MEDIA) :]),
    "remove map": Command("pellmor-edit remove map @video.mp4", moov_last() + box(b"uuid", MAP, b"old")),
    "remove map, in the middle": Command("pellmor-edit remove map @video.mp4", MEDIA + box(b"uuid", MAP, b"old") + moov_last()[len(MEDIA) :]),
    "remove udta": Command("pellmor-edit remove udta @video.mp4", moov_last(NAME)),
    "remove location": Command("pellmor-edit remove location @video.mp4", moov_first(BAD_LOCI)),
    "location --replace --xmp": Command("pellmor-edit location 1,2 @video.mp4 --replace --xmp", moov_first(BAD_LOCI)),
    "remove sound": Command("pellmor-edit remove sound @video.mp4", moov_first(RECORDED) + with_sound()[8:]),
    "set-time --backup": Command("pellmor-edit set-time 2026-11-23 @video.mp4 --backup -P", moov_last()),
    "append-sound": Command("pellmor-edit append-sound @sound.mp4 @video.mp4", moov_first(RECORDED)),
    "append-sound --start": Command("pellmor-edit append-sound @sound.mp4 @video.mp4 --start 0.5", open_ended(moov_last())),
    "sound-to-wav": Command("pellmor-edit sound-to-wav @sound.mp4 @out.wav --start 0.25", moov_last(), "out.wav"),
    "sound-track": Command("pellmor-edit sound-track @sound.mp4 @track --force --start 0.25", moov_last(), "track", {"track": b"old"}),
    "info": Command("pellmor-edit info --json @video.mp4", moov_last(NAME)),
    "picture": Command("pellmor-edit picture @video.mp4 -o @out.html", moov_last(NAME), "out.html"),
    "check": Command("pellmor-edit check @video.mp4", moov_last(NAME)),
    "get -o": Command("pellmor-edit get map @video.mp4 -o @out.bin --force", moov_last() + box(b"uuid", MAP, b"payload"), "out.bin", {"out.bin": b"old"}),
    "repair": Command("pellmor-edit repair @video.mp4", moov_last() + moov_last()[len(MEDIA) :]),
    "dump": Command("pellmor-edit dump @video.mp4", moov_last(NAME)),
    "wmap": Command("Pellmor -kind:wmap @video.mp4 @text", open_ended(moov_last())),
    "rmap": Command("Pellmor -kind:rmap @video.mp4 @map.bin", moov_last() + box(b"uuid", MAP, b"payload"), "map.bin", {"map.bin": b"old"}),
}  # fmt: skip
