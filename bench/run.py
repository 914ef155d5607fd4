#!/usr/bin/env python3
"""Measures the programs beside other tools and plain copies, in one run.

    bench/run.py [--bin DIR] [--work DIR] [--rounds N] [LINE ...]

Makes its own inputs in the work folder (several GiB of room, best on a local disk) and removes them
afterwards. It needs Debian's ffmpeg, libimage-exiftool-perl and time. Each line runs its commands in turn, round after round, and compares the fastest round of
each: whole processes, wall-clock time unless the line says CPU. Exit status 1 means that a limit of
the project was missed.
"""

import argparse
import array
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HOME = Path(__file__).resolve().parent.parent
MIB = 1 << 20
SPATIAL_IDENTITY = bytes.fromhex("28F311E2B7914F6F94E24F5DEACB3C01")
MAP_IDENTITY = bytes.fromhex("8B18D5C30E7A25C7B3AD252358B401EE")


def box(kind, *body):
    content = b"".join(body)
    return (8 + len(content)).to_bytes(4, "big") + kind + content


class Cost:
    """What the cheapest of several runs took, in seconds, and the peak memory of one more, in MiB."""

    def __init__(self):
        self.wall = self.cpu = float("inf")
        self.peak = 0.0

    def add(self, wall, usage):
        self.wall = min(self.wall, wall)
        self.cpu = min(self.cpu, usage.ru_utime + usage.ru_stime)


class Bench:
    def __init__(self, options, work):
        self.bin = options.bin
        self.rounds = options.rounds
        self.work = work
        self.missed = []

    def compare(self, prepare, *commands, rounds=None):
        """Runs the commands in turn for a number of rounds; `prepare` runs ahead of each, untimed."""
        costs = [Cost() for _ in commands]
        for _ in range(rounds or self.rounds):
            for command, cost in zip(commands, costs):
                prepare()
                began = time.perf_counter()
                process = subprocess.Popen(
                    [str(part) for part in command], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
                )
                _, status, usage = os.wait4(process.pid, 0)
                wall = time.perf_counter() - began
                process.returncode = os.waitstatus_to_exitcode(status)
                if process.returncode != 0:
                    sys.exit(f"failed with {process.returncode}: {command}")
                cost.add(wall, usage)
        # A process starts with the peak of the one that forked it: `time` is small, this one is not.
        for command, cost in zip(commands, costs):
            prepare()
            told = self.work / "peak"
            subprocess.run(
                ["/usr/bin/time", "-f", "%M", "-o", told, *map(str, command)], stdout=subprocess.DEVNULL, check=True
            )
            cost.peak = int(told.read_text()) / 1024
        return costs

    def report(self, what, value, limit, unit="x"):
        verdict = "" if limit is None else f"limit {limit:g} {unit}"
        if limit is not None and value > limit:
            self.missed.append(what)
            verdict += "  MISSED"
        print(f"  {what:<58} {value:9.2f} {unit:<4} {verdict}", flush=True)

    def note(self, what, cost):
        print(f"  {what:<58} {cost.wall:9.4f} s     cpu {cost.cpu:.4f} s, peak {cost.peak:.1f} MiB", flush=True)


def sparse_movie(path, payload):
    """A 4 GiB file that is mostly a hole, with the payload at its end."""
    with open(path, "wb") as file:
        file.write(box(b"ftyp", b"isom", bytes(4)))
        file.write((1).to_bytes(4, "big") + b"mdat" + (4 << 30).to_bytes(8, "big"))
        file.seek((4 << 30) + 16)
        file.write(box(b"uuid", MAP_IDENTITY, payload))


def full(kind, *body):
    """A box with version and flags of 0."""
    return box(kind, bytes(4), *body)


def numbers(width, values):
    """A table: the count and the values, big-endian."""
    entries = array.array({4: "I", 8: "Q"}[width], values)
    count = len(entries)
    entries.byteswap()
    return count.to_bytes(4, "big") + entries.tobytes()


def rows(width, values):
    """A table of rows of `width` 32-bit numbers."""
    table = numbers(4, values)
    return (len(values) // width).to_bytes(4, "big") + table[4:]


def movie_box(sizes, chunks, wide=False, times=None, runs=None):
    """A `moov` with one video track: sample sizes, chunk offsets, and as many samples in each chunk."""
    samples = len(sizes)
    entry = box(b"jpeg", bytes(6), (1).to_bytes(2, "big"), bytes(16), (16).to_bytes(2, "big") * 2, bytes(50))
    tables = [
        full(b"stsd", (1).to_bytes(4, "big"), entry),
        full(b"stts", times or rows(2, [samples, 1])),
        full(b"stsc", runs or rows(3, [1, max(1, samples // len(chunks)), 1])),
        full(b"stsz", bytes(4), numbers(4, sizes)),
        full(b"co64", numbers(8, chunks)) if wide else full(b"stco", numbers(4, chunks)),
    ]
    word = lambda value: value.to_bytes(4, "big")
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


def movie(path, samples, media=1 << 30):
    """A movie with `media` bytes of media data in front of its `moov`."""
    size = media // samples
    header = box(b"ftyp", b"isom", bytes(4))
    start = len(header) + 16
    in_chunk = max(1, min(100, samples // 1000))
    block = os.urandom(MIB)
    with open(path, "wb") as file:
        file.write(header + (1).to_bytes(4, "big") + b"mdat" + (16 + media).to_bytes(8, "big"))
        for _ in range(media // MIB):
            file.write(block)
        # Sizes differ, so that the table lists them; every two samples take the room of two.
        sizes = [size - 1, size + 1] * (samples // 2)
        chunks = range(start, start + size * samples, size * in_chunk)
        file.write(movie_box(sizes, chunks))


def small_read(bench):
    """reading a 10 KiB payload out of a 4 GiB sparse file"""
    movie, out = bench.work / "sparse.mp4", bench.work / "out.bin"
    sparse_movie(movie, os.urandom(10240))
    ours = [bench.bin / "Pellmor", "-kind:rmap", movie, out]
    own, true = bench.compare(lambda: None, ours, ["/bin/true"], rounds=200)
    bench.note("Pellmor -kind:rmap", own)
    bench.note("/bin/true", true)
    bench.report("time, beside /bin/true", own.wall / true.wall, 2)
    exiftool = ["exiftool", "-q", "-api", "LargeFileSupport=1", "-U", "-b", "-UUID-Unknown", movie]
    (other,) = bench.compare(lambda: None, exiftool, rounds=5)
    bench.note("exiftool -b on the same file", other)
    bench.report("exiftool, beside Pellmor", other.wall / own.wall, None)


def large_payload(bench):
    """writing and reading a 256 MiB payload"""
    sample = HOME / "tests/data/sample.mp4"
    side, movie, out, copy = (bench.work / name for name in ("side.bin", "big.mp4", "out.bin", "copy.bin"))
    with open(side, "wb") as file:
        for _ in range(256):
            file.write(os.urandom(MIB))
    copying = ["cp", side, copy]

    def fresh():
        for path in (out, copy):
            path.unlink(missing_ok=True)

    def fresh_movie():
        fresh()
        shutil.copy(sample, movie)

    program = bench.bin / "Pellmor"
    for what, prepare, command in (
        ("writing", fresh_movie, [program, "-kind:wmap", movie, side]),
        ("reading", fresh, [program, "-kind:rmap", movie, out]),
    ):
        own, plain = bench.compare(prepare, command, copying)
        if what == "writing":
            fresh_movie()
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        bench.note(f"Pellmor, {what}", own)
        bench.note("cp of the payload", plain)
        bench.report(f"{what}: time, beside cp", own.wall / plain.wall, 2)
        bench.report(f"{what}: peak memory", own.peak, 1.1 * 256 + 16, "MiB")


def moov_first(bench, samples):
    original, out = bench.work / "movie.mp4", bench.work / "out.mp4"
    movie(original, samples)
    print(f"  {samples} samples, {original.stat().st_size - (1 << 30)} bytes around the media data")
    fresh = lambda: out.unlink(missing_ok=True)
    own, plain, other = bench.compare(
        fresh,
        [bench.bin / "pellmor-edit", "moov-first", original, "-o", out],
        ["cp", original, out],
        ["qt-faststart", original, out],
    )
    copy = ["ffmpeg", "-v", "quiet", "-y", "-i", original, "-map", "0", "-c", "copy", "-movflags", "+faststart", out]
    (remuxed,) = bench.compare(fresh, copy, rounds=1)
    bench.note("pellmor-edit moov-first -o", own)
    bench.note("cp", plain)
    bench.note("qt-faststart", other)
    bench.note("ffmpeg -c copy -movflags +faststart", remuxed)
    bench.report("time, beside cp", own.wall / plain.wall, 1.1)
    bench.report("qt-faststart, beside cp", other.wall / plain.wall, None)
    bench.report("peak memory", own.peak, 8, "MiB")


def moov_first_small(bench):
    """moov ahead of 1 GiB of media data, a small moov"""
    moov_first(bench, 1000)


def moov_first_large(bench):
    """moov ahead of 1 GiB of media data, 3.6 million samples"""
    moov_first(bench, 3_600_000)


def chunk_offsets(bench):
    """shifting 10 million chunk offsets (within moov-first)"""
    original, out = bench.work / "chunks.mp4", bench.work / "out.mp4"
    for wide in (False, True):
        with open(original, "wb") as file:
            file.write(box(b"mdat", bytes(8)))
            file.write(movie_box([8], [8] * 10_000_000, wide))
        (own,) = bench.compare(lambda: None, [bench.bin / "pellmor-edit", "moov-first", original, "-o", out])
        kind = "co64" if wide else "stco"
        bench.note(f"pellmor-edit moov-first -o, {kind}", own)
        bench.report(f"CPU, {kind}", own.cpu, 0.25, "s")
        bench.report(f"peak memory, {kind}", own.peak, 8, "MiB")


def large_tables(bench):
    """attach and dump of 5 million entries in each of stsz, stts and stsc"""
    original = bench.work / "tables.mp4"
    count = 5_000_000
    with open(original, "wb") as file:
        file.write(box(b"mdat", bytes(8)))
        times, runs = rows(2, [1, 1] * count), rows(3, [1, 1, 1] * count)
        file.write(movie_box(range(count), [8], times=times, runs=runs))
    (own,) = bench.compare(lambda: None, [bench.bin / "pellmor-edit", "dump", original])
    bench.note("pellmor-edit dump", own)
    bench.report("CPU", own.cpu, 0.25, "s")


def sound_movie(path, hours):
    """A movie with spatial sound: 4 channels of 16 bits at 48,000 Hz, mostly a hole in the file."""
    count = hours * 3600 * 48000
    data = 8 * count
    word = lambda value: value.to_bytes(4, "big")
    tables = [
        full(b"stts", rows(2, [count, 1])),
        full(b"stsc", rows(3, [1, 1536, 1])),
        full(b"stsz", word(8), word(count)),
        full(b"co64", numbers(8, range(40, 40 + data, 1536 * 8))),
    ]
    media = box(b"mdia", full(b"mdhd", bytes(8), word(48000), word(count), bytes(4)), box(b"minf", box(b"stbl", *tables)))
    track = box(b"ZATR", media)
    with open(path, "wb") as file:
        file.write(box(b"free"))
        file.write((32 + data + len(track)).to_bytes(4, "big") + b"uuid" + SPATIAL_IDENTITY)
        file.write((8 + data).to_bytes(4, "big") + b"ZADT")
        file.seek(data, os.SEEK_CUR)
        file.write(track)


def sound_trim(bench):
    """trimming 1 h and 2 h of spatial sound (112,500 and 225,000 chunks)"""
    out, target = bench.work / "track", bench.work / "target.mp4"
    program = bench.bin / "pellmor-edit"
    tables = []
    for hours in (1, 2):
        movie = bench.work / f"{hours}h.mp4"
        sound_movie(movie, hours)
        (table,) = bench.compare(lambda: None, [program, "sound-track", movie, out, "--end", hours * 3600])
        tables.append(table)
        bench.note(f"the track box of {hours} h", table)

        def fresh():
            shutil.copy(HOME / "tests/data/sample.mp4", target)
            out.unlink(missing_ok=True)

        append = [program, "append-sound", movie, target, "--end", hours * 3600]
        block, plain = bench.compare(fresh, append, ["cp", "--sparse=never", movie, out], rounds=5)
        bench.note(f"append-sound of {hours} h, {8 * hours * 3600 * 48000 / MIB:.0f} MiB", block)
        bench.note("cp of as many bytes", plain)
        bench.report(f"append-sound of {hours} h, beside cp", block.wall / plain.wall, None)
        bench.report("peak memory", block.peak, 16, "MiB")
        movie.unlink()
    bench.report("track box: CPU of 2 h, beside 1 h", tables[1].cpu / tables[0].cpu, 2)


LINES = {
    "small-read": small_read,
    "large-payload": large_payload,
    "moov-first-small": moov_first_small,
    "moov-first-large": moov_first_large,
    "chunk-offsets": chunk_offsets,
    "large-tables": large_tables,
    "sound-trim": sound_trim,
}


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--bin", type=Path, default=HOME / "build/bin")
    arguments.add_argument("--work", type=Path, help="where the inputs are made (default: a temporary folder)")
    arguments.add_argument("--rounds", type=int, default=7)
    arguments.add_argument("lines", nargs="*", metavar="LINE", help=", ".join(LINES))
    options = arguments.parse_args()
    unknown = [name for name in options.lines if name not in LINES]
    if unknown:
        arguments.error(f"no such line: {unknown[0]} (there are {', '.join(LINES)})")

    missed = []
    for name in options.lines or LINES:
        print(f"{name}: {LINES[name].__doc__}", flush=True)
        with tempfile.TemporaryDirectory(dir=options.work) as folder:
            bench = Bench(options, Path(folder))
            LINES[name](bench)
            missed += bench.missed
    print(f"{len(missed)} limits missed" if missed else "all limits met")
    return bool(missed)


if __name__ == "__main__":
    sys.exit(main())
