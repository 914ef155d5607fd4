#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Worst cases: files made to cost much, at 1, 2, 4 and 8 MB, through each command.

    bench/worst.py [--bin DIR] [--quick] [--publish]

Nothing may cost more than 16 x the file's length + 64 MiB of memory, nor more than 2.5 x the CPU time for twice the length
(where there is enough of it to be told from noise). Exit status 1 means that something does. --publish writes the table into
docs/safety.md, between the two lines that mark its place; --quick takes a sixteenth of the lengths, to try the script.
"""

import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

from inputs import FTYP, SPATIAL_IDENTITY, box, full, movie_box, word

HOME = Path(__file__).resolve().parent.parent
MB = 1_000_000
NOISE = 0.05  # seconds
BEGIN, END = "<!-- worst cases: begin -->\n", "<!-- worst cases: end -->\n"
MEDIA = box(b"mdat", bytes(8))
RECORD = bytes.fromhex("014D401FFFE10009674D001EECA0A0FC8001000468EF3C80")


def nested(kind, size, fields=b""):
    """One box in the other; the innermost is empty."""
    header = 8 + len(fields)
    return b"".join(word(size - at) + kind + fields for at in range(0, size - header + 1, header))


def many(part, size):
    return part * (size // len(part))


def movie(*content):
    return FTYP + MEDIA + box(b"moov", *content)


def track(*tables):
    header = full(b"tkhd", bytes(72), word(64 << 16) * 2)
    return box(b"trak", header, box(b"mdia", full(b"mdhd", bytes(20)), full(b"hdlr", bytes(4), b"vide", bytes(13)), box(b"minf", box(b"stbl", *tables))))


def spatial(*content):
    return box(b"uuid", SPATIAL_IDENTITY, *content)


def sound(*tables):
    return box(b"ZATR", box(b"mdia", full(b"mdhd", bytes(8), word(48000), word(8), bytes(4)), box(b"minf", box(b"stbl", *tables))))


def entry(*content):
    return box(b"avc1", bytes(78), *content)


def table(kind, size, width, claim=None):
    """A table with as many entries as there is room for, or as it claims."""
    count = size // width
    return full(kind, word(count if claim is None else claim), bytes(width * count))


ALL = 0xFFFFFFFF
SHAPES = {
    "moov in moov": lambda n: FTYP + MEDIA + nested(b"moov", n),
    "trak in trak": lambda n: movie(nested(b"trak", n)),
    "uuid in uuid": lambda n: FTYP + MEDIA + nested(b"uuid", n, SPATIAL_IDENTITY),
    "ZATR in ZATR": lambda n: FTYP + MEDIA + spatial(nested(b"ZATR", n)),
    "meta in meta": lambda n: movie(nested(b"meta", n, bytes(4))),
    "every box to the end of the file": lambda n: FTYP + MEDIA + many(bytes(4) + b"moov", n),
    "every track to the end of moov": lambda n: movie(many(word(ALL) + b"trak", n)),
    "empty boxes at the top": lambda n: MEDIA + many(box(b"free"), n) + movie_box([8], [8]),
    "empty boxes in moov": lambda n: movie(many(box(b"free"), n)),
    "empty boxes in udta": lambda n: movie(box(b"udta", many(box(b"name"), n))),
    "empty tracks": lambda n: movie(many(box(b"trak"), n)),
    "tracks": lambda n: movie(many(track(full(b"stsz", word(8), word(1)), full(b"stco", word(1), word(28))), n)),
    "stco tables of one track": lambda n: movie(track(many(full(b"stco", word(1), word(28)), n))),
    "tables that claim all": lambda n: movie(track(many(full(b"stsz", bytes(4), word(ALL), bytes(12)), n))),
    "one stsz that claims all": lambda n: movie(track(full(b"stsz", bytes(4), word(ALL), bytes(n)))),
    "one stts that claims all": lambda n: movie(track(table(b"stts", n, 8, ALL))),
    "one stsc that claims all": lambda n: movie(track(table(b"stsc", n, 12, ALL))),
    "one stco": lambda n: movie(track(table(b"stco", n, 4))),
    "one co64": lambda n: movie(track(table(b"co64", n, 8))),
    "sample entries": lambda n: movie(track(full(b"stsd", word(ALL), many(entry(box(b"avcC", RECORD)), n)))),
    "one avcC full of zeros": lambda n: movie(track(full(b"stsd", word(1), entry(box(b"avcC", RECORD[:5] + b"\xff" + bytes(n)))))),
    "mdat boxes": lambda n: FTYP + many(MEDIA, n) + movie_box([8], [28]),
    "empty uuid boxes": lambda n: FTYP + MEDIA + many(box(b"uuid", bytes(16)), n),
    "spatial blocks": lambda n: FTYP + MEDIA + many(spatial(box(b"ZADT", bytes(8)), sound(full(b"co64", word(1), bytes(8)))), n),
    "co64 tables of one spatial block": lambda n: FTYP + MEDIA + spatial(box(b"ZADT", bytes(8)), sound(full(b"stsz", word(8), word(8)), many(full(b"co64", word(1), bytes(8)), n))),
    "a spatial block that claims more than the file": lambda n: FTYP + MEDIA + spatial(sound(full(b"stsz", word(8), word(ALL)), table(b"co64", n, 8)), word(ALL) + b"ZADT"),
    "holes of earlier edits": lambda n: MEDIA + many(box(b"free", movie_box([8], [8])), n) + movie_box([8], [8]),
    "zeros behind moov": lambda n: movie() + bytes(n),
}  # fmt: skip


def commands(folder, programs):
    edit, video, out = programs / "pellmor-edit", folder / "video.mp4", folder / "out"
    return {
        "dump": [edit, "dump", video],
        "moov-first": [edit, "moov-first", video, "-o", out],
        "set-time": [edit, "set-time", "2024-05-31T11:33:20Z", video, "-o", out],
        "location": [edit, "location", "+35.6895+139.6917/", video],
        "location -o": [edit, "location", "+35.6895+139.6917/", video, "-o", out],
        "put spherical": [edit, "put", "spherical", folder / "xml", video, "-o", out],
        "put xmp": [edit, "put", "xmp", folder / "xml", video, "-o", out],
        "full-range": [edit, "full-range", "on", video, "-o", out],
        "append-sound": [edit, "append-sound", video, folder / "sample.mp4"],
        "sound-to-wav": [edit, "sound-to-wav", video, out],
        "sound-track": [edit, "sound-track", video, out, "--end", "1"],
        "check": [edit, "check", video],
        "info": [edit, "info", video],
        "info --json": [edit, "info", "--json", video],
        "dump --json": [edit, "dump", "--json", video],
        "picture": [edit, "picture", video, "-o", out],
        "rmap": [programs / "Pellmor", "-kind:rmap", video, out],
        "wmap": [programs / "Pellmor", "-kind:wmap", video, folder / "xml"],
    }


def cost(command, folder, content):
    """CPU seconds, the smaller of two runs if there is something to be told, and peak memory in bytes."""
    cpu = float("inf")
    while True:
        (folder / "out").unlink(missing_ok=True)
        (folder / "video.mp4").write_bytes(content)
        (folder / "sample.mp4").write_bytes((HOME / "tests/data/sample.mp4").read_bytes())
        process = subprocess.Popen(
            ["/usr/bin/time", "-q", "-f", "%M", "-o", folder / "peak", "timeout", "60", *command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        peak = 1024 * int((folder / "peak").read_text().split()[-1])
        if process.returncode in (124, 134, 135, 139):
            sys.exit(f"failed with {process.returncode}: {' '.join(map(str, command))}")
        again = cpu == float("inf") and usage.ru_utime + usage.ru_stime > NOISE
        cpu = min(cpu, usage.ru_utime + usage.ru_stime)
        if not again:
            return cpu, peak


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--bin", type=Path, default=HOME / "build/bin")
    arguments.add_argument("--quick", action="store_true")
    arguments.add_argument("--publish", action="store_true")
    options = arguments.parse_args()
    lines = ["| file | CPU at 1, 2, 4, 8 MB | slowest command | peak at 8 MB | largest command |\n|---|---|---|--:|---|\n"]
    faults = []
    with tempfile.TemporaryDirectory(dir="/dev/shm") as name:
        folder = Path(name)
        (folder / "xml").write_text("<a/>")
        for shape, make in SHAPES.items():
            costs = {}
            for size in (length // 16 if options.quick else length for length in (MB, 2 * MB, 4 * MB, 8 * MB)):
                content = make(size)
                for command, line in commands(folder, options.bin).items():
                    cpu, peak = cost(line, folder, content)
                    costs.setdefault(command, []).append((cpu, peak))
                    if peak > 16 * len(content) + (64 << 20):
                        faults.append(f"{shape}, {command}: {peak >> 20} MiB for {len(content)} bytes")
            for command, points in costs.items():
                for (before, _), (after, _) in zip(points, points[1:]):
                    if not options.quick and after > 2 * NOISE and after > 2.5 * max(before, NOISE / 2):
                        faults.append(f"{shape}, {command}: {before:.3f} s, then {after:.3f} s for twice the length")
            slowest = max(costs, key=lambda command: costs[command][-1][0])
            largest = max(costs, key=lambda command: costs[command][-1][1])
            times = ", ".join(f"{cpu:.3f}" for cpu, _ in costs[slowest])
            lines.append(f"| {shape} | {times} s | {slowest} | {costs[largest][-1][1] / (1 << 20):.1f} MiB | {largest} |\n")
            print(lines[-1], end="", flush=True)
    print(*faults, f"{len(faults)} faults", sep="\n")
    if options.publish:
        page = HOME / "docs/safety.md"
        text = page.read_text() if page.exists() else "# Safety\n"
        if BEGIN not in text:
            text += f"\n## Worst cases\n\nFiles made to cost much, through each command (`bench/worst.py --publish` measures them again).\n\n{BEGIN}{END}"
        before, rest = text.split(BEGIN)
        page.write_text(before + BEGIN + "".join(lines) + END + rest.split(END)[1])
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
