#!/usr/bin/env python3
"""Runs random mutations of the sample MP4 file through a read and a write command.

    fuzz/mutate.py [--count N] [--seed S] [PROGRAM]

PROGRAM is best built with sanitizers (cmake --preset asan). Every run must end by itself with one of
the six exit statuses. After a write command the file must begin with what it was, and a payload that
was written without a warning must be read back. What breaks a rule is kept in the current folder as
mutation-SEED-NUMBER.mp4.
"""

import argparse
import os
import random
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HOME = Path(__file__).resolve().parent.parent
STATUSES = {0, 251, 252, 253, 254, 255}
WORDS = [0, 1, 7, 8, 23, 24, 2**31 - 1, 2**31, 2**32 - 1]


def mutated(good, boxes, chance):
    """One to eight changes: a byte, a word at a box header or anywhere, a cut, a copy of a stretch."""
    data = bytearray(good)
    for _ in range(chance.choice([1, 1, 2, 4, 8])):
        if not data:
            break
        kind = chance.randrange(6)
        at = chance.randrange(len(data))
        if kind == 0:
            data[at] = chance.randrange(256)
        elif kind in (1, 2):
            start = chance.choice(boxes) if kind == 1 else at
            data[start : start + 4] = chance.choice(WORDS).to_bytes(4, "big")
        elif kind == 3:
            del data[at:]
        elif kind == 4:
            stretch = data[at : at + chance.randrange(1, 200)]
            to = chance.randrange(len(data) + 1)
            data[to:to] = stretch
        else:
            start = chance.choice(boxes)
            data[start + 4 : start + 8] = chance.choice([b"uuid", b"moov", b"trak", b"\0\0\0\0", b"stsz"])
    return bytes(data)


def begins_with(after, before):
    """Whether nothing changed in front, but for the size of a last box that was open-ended."""
    if after.startswith(before):
        return True
    changed = [i for i in range(min(len(after), len(before))) if after[i] != before[i]]
    at = changed[-1] - 3
    size = int.from_bytes(after[at : at + 4], "big")
    return before[at : at + 4] == bytes(4) and at + size == len(before) and after[at + 4 :].startswith(before[at + 4 :])


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--count", type=int, default=20000)
    arguments.add_argument("--seed", type=int, default=1)
    arguments.add_argument("program", nargs="?", default=HOME / "build/asan/bin/Pellmor")
    options = arguments.parse_args()

    good = (HOME / "tests/data/sample.mp4").read_bytes()
    types = (b"ftyp moov mvhd trak tkhd mdia mdhd minf stbl stsd avc1 avcC stts stsc stsz stco udta mdat").split()
    boxes = [at - 4 for kind in types for at in range(len(good)) if good.startswith(kind, at)]
    seen = {}
    faults = []

    def attempt(number):
        chance = random.Random(f"{options.seed}-{number}")
        data = mutated(good, boxes, chance)
        with tempfile.TemporaryDirectory(dir="/dev/shm" if os.path.isdir("/dev/shm") else None) as folder:
            mp4, side, out = Path(folder, "v.mp4"), Path(folder, "side"), Path(folder, "out")
            mp4.write_bytes(data)
            side.write_bytes(b"payload")

            def status_of(kind, second):
                command = [options.program, f"-kind:{kind}", mp4, second]
                try:
                    result = subprocess.run(command, capture_output=True, timeout=20)
                except subprocess.TimeoutExpired:
                    return "hang", b""
                key = kind, result.returncode
                seen[key] = seen.get(key, 0) + 1
                return result.returncode, result.stderr

            first, _ = status_of("rmap", out)
            untouched = mp4.read_bytes() == data
            written, warning = status_of("wmap", side)
            after = mp4.read_bytes()
            second, _ = status_of("rmap", out)
            found = second == 0 and out.read_bytes() == b"payload"
            sound = (
                {first, written, second} <= STATUSES
                and untouched
                and begins_with(after, data)
                and (found or written != 0 or warning != b"")
            )
            if not sound:
                faults.append(number)
                Path(f"mutation-{options.seed}-{number}.mp4").write_bytes(data)

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(attempt, range(options.count)))
    for (kind, status), count in sorted(seen.items(), key=str):
        print(f"-kind:{kind} status {status}: {count}")
    print(f"{options.count} mutations, {len(faults)} faults")
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
