# SPDX-License-Identifier: MIT
"""Movies made for the measurements: large, sparse or with large tables, in a second or two."""

import array
import itertools
import os

MIB = 1 << 20
SPATIAL_IDENTITY = bytes.fromhex("28F311E2B7914F6F94E24F5DEACB3C01")
MAP_IDENTITY = bytes.fromhex("8B18D5C30E7A25C7B3AD252358B401EE")
FTYP = bytes.fromhex("00000014667479706973 6F6D0000020069736F6D")


def word(value):
    return value.to_bytes(4, "big")


def box(kind, *body):
    content = b"".join(body)
    return word(8 + len(content)) + kind + content


def full(kind, *body):
    """A box with version and flags of 0."""
    return box(kind, bytes(4), *body)


def numbers(width, values):
    """A table: the count and the values, big-endian."""
    entries = array.array({4: "I", 8: "Q"}[width], values)
    count = len(entries)
    entries.byteswap()
    return word(count) + entries.tobytes()


def rows(width, values):
    """A table of rows of `width` 32-bit numbers."""
    table = numbers(4, values)
    return word(len(values) // width) + table[4:]


def movie_box(sizes, chunks, wide=False, times=None, runs=None):
    """A `moov` with one video track: sample sizes, chunk offsets, and as many samples in each chunk."""
    samples = len(sizes)
    entry = box(b"jpeg", bytes(6), (1).to_bytes(2, "big"), bytes(16), (16).to_bytes(2, "big") * 2, bytes(50))
    tables = [
        full(b"stsd", word(1), entry),
        full(b"stts", times or rows(2, [samples, 1])),
        full(b"stsc", runs or rows(3, [1, max(1, samples // len(chunks)), 1])),
        full(b"stsz", bytes(4), numbers(4, sizes)),
        full(b"co64", numbers(8, chunks)) if wide else full(b"stco", numbers(4, chunks)),
    ]
    matrix = b"".join(map(word, [1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30]))
    return box(
        b"moov",
        full(b"mvhd", bytes(8), word(1000), word(samples), word(1 << 16), bytes(12), matrix, bytes(24), word(2)),
        box(
            b"trak",
            box(b"tkhd", word(3), bytes(8), word(1), bytes(4), word(samples), bytes(16), matrix, word(16 << 16) * 2),
            box(
                b"mdia",
                full(b"mdhd", bytes(8), word(1000), word(samples), bytes(4)),
                full(b"hdlr", bytes(4), b"vide", bytes(13)),
                box(
                    b"minf",
                    box(b"vmhd", word(1), bytes(8)),
                    box(b"dinf", full(b"dref", word(1), box(b"url ", word(1)))),
                    box(b"stbl", *tables),
                ),
            ),
        ),
    )


def movie(path, samples, media):
    """A movie with `media` bytes of media data, no hole, in front of its `moov`. Returns where the `moov` lies."""
    size = media // samples
    start = len(FTYP) + 16
    in_chunk = max(1, min(100, samples // 1000))
    block = os.urandom(MIB)
    with open(path, "wb") as file:
        file.write(FTYP + word(1) + b"mdat" + (16 + media).to_bytes(8, "big"))
        for at in range(0, media, MIB):
            file.write(block[: media - at])
        # Sizes differ, so that the table lists them; every two samples take the room of two.
        sizes = [size - 1, size + 1] * (samples // 2)
        file.write(movie_box(sizes, range(start, start + size * samples, size * in_chunk)))
    return start + media


def tables_movie(path, count):
    """A movie whose tables of sizes, times, runs and chunk offsets have `count` entries each."""
    ones = array.array("I", itertools.repeat(1, count))
    runs = array.array("I", bytes(12 * count))
    runs[0::3], runs[1::3], runs[2::3] = array.array("I", range(1, count + 1)), ones, ones
    chunks = array.array("Q", itertools.repeat(len(FTYP) + 8, count))
    with open(path, "wb") as file:
        file.write(FTYP + box(b"mdat", bytes(8)))
        file.write(movie_box(range(count), chunks, times=rows(2, ones + ones), runs=rows(3, runs)))


def chunks_movie(path, count, wide):
    """A movie with so many chunk offsets."""
    with open(path, "wb") as file:
        file.write(FTYP + box(b"mdat", bytes(8)))
        file.write(movie_box([8], array.array("Q", itertools.repeat(len(FTYP) + 8, count)), wide))


def boxes_movie(path, count):
    """A movie with so many small boxes in its user data."""
    with open(path, "wb") as file:
        file.write(FTYP + box(b"mdat", bytes(8)))
        whole = movie_box([8], [len(FTYP) + 8])
        file.write(box(b"moov", whole[8:], box(b"udta", box(b"name", bytes(8)) * count)))


def sparse_movie(path, payload):
    """A 4 GiB file that is mostly a hole, with a map at its end."""
    with open(path, "wb") as file:
        file.write(FTYP + word(1) + b"mdat" + (4 << 30).to_bytes(8, "big"))
        file.seek(len(FTYP) + (4 << 30))
        file.write(box(b"uuid", MAP_IDENTITY, payload))


def random_file(path, size):
    with open(path, "wb") as file:
        for at in range(0, size, MIB):
            file.write(os.urandom(min(MIB, size - at)))


def sound_movie(path, hours):
    """A movie with spatial sound: 4 channels of 16 bits at 48,000 Hz, mostly a hole in the file. Returns its bytes of sound."""
    count = int(hours * 3600 * 48000)
    data = 8 * count
    start = len(FTYP) + 32
    entry = box(b"sowt", bytes(6), (1).to_bytes(2, "big"), bytes(8), (4 << 16 | 16).to_bytes(4, "big"), bytes(4), word(48000 << 16))
    tables = [
        full(b"stsd", word(1), entry),
        full(b"stts", rows(2, [count, 1])),
        full(b"stsc", rows(3, [1, 1536, 1])),
        full(b"stsz", word(8), word(count)),
        full(b"co64", numbers(8, range(start, start + data, 1536 * 8))),
    ]
    media = box(b"mdia", full(b"mdhd", bytes(8), word(48000), word(count), bytes(4)), box(b"minf", box(b"stbl", *tables)))
    track = box(b"ZATR", media)
    with open(path, "wb") as file:
        file.write(FTYP + word(32 + data + len(track)) + b"uuid" + SPATIAL_IDENTITY + word(8 + data) + b"ZADT")
        file.seek(data, os.SEEK_CUR)
        file.write(track)
    return data
