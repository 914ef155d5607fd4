#!/usr/bin/env python3
"""Runs random mutations of the sample MP4 file through a read and a write command.

    fuzz/mutate.py [COUNT [SEED [PROGRAM]]]

PROGRAM is best built with sanitizers (cmake --preset asan). Every run must end by itself with one of
the six exit statuses. After a write command the file must begin with what it was, and a payload that
was written without a warning must be read back. What breaks a rule is kept in the current folder as
mutation-SEED-NUMBER.mp4.
"""

import collections
import os
import random
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HOME = Path(__file__).resolve().parent.parent
GOOD = (HOME / "tests/data/sample.mp4").read_bytes()
TYPES = b"ftyp moov mvhd trak tkhd mdia mdhd minf stbl stsd avc1 avcC stts stsc stsz stco udta mdat".split()
BOXES = [at - 4 for kind in TYPES for at in range(len(GOOD)) if GOOD.startswith(kind, at)]
WORDS = [value.to_bytes(4, "big") for value in (0, 1, 7, 8, 23, 24, 2**31 - 1, 2**31, 2**32 - 1)]
STATUSES = {0, 251, 252, 253, 254, 255}


def mutated(chance):
    """One to eight changes: of a byte, a size, any word or a type; a stretch copied or the end cut off."""
    data = bytearray(GOOD)
    for kind in chance.choices(["byte", "size", "word", "type", "copy", "cut"], k=chance.choice([1, 1, 2, 4, 8])):
        at, box = chance.randrange(len(data) + 1), chance.choice(BOXES)
        if kind == "byte":
            data[at : at + 1] = chance.randbytes(1)
        elif kind == "type":
            data[box + 4 : box + 8] = chance.choice([b"uuid", b"moov", b"trak", bytes(4), b"stsz"])
        elif kind == "copy":
            data[at:at] = data[box : box + chance.randrange(200)]
        elif kind == "cut":
            del data[at:]
        else:
            at = box if kind == "size" else at
            data[at : at + 4] = chance.choice(WORDS)
    return bytes(data)


def begins_with(after, before):
    """Whether nothing changed in front, but for the size of a last box that was open-ended."""
    changed = [i for i, byte in enumerate(before) if after[i : i + 1] != bytes([byte])]
    at = changed[-1] - 3 if changed else 0
    size = (len(before) - at).to_bytes(4, "big")
    return not changed or (before[at : at + 4] == bytes(4) and after.startswith(before[:at] + size + before[at + 4 :]))


def main(count=20000, seed=1, program=HOME / "build/asan/bin/Pellmor"):
    statuses = collections.Counter()

    def is_fault(number):
        data = mutated(random.Random(f"{seed}-{number}"))
        with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
            video, side, out = (Path(folder, name) for name in ("video.mp4", "side", "out"))
            video.write_bytes(data)
            side.write_bytes(b"payload")

            def run(kind, second):
                result = subprocess.run(["timeout", "20", program, f"-kind:{kind}", video, second], capture_output=True)
                statuses[kind, result.returncode] += 1
                return result.returncode, result.stderr

            first, untouched = run("rmap", out)[0], video.read_bytes() == data
            written, warning = run("wmap", side)
            second = run("rmap", out)[0]
            right = {first, written, second} <= STATUSES and untouched and begins_with(video.read_bytes(), data)
            found = second == 0 and out.read_bytes() == b"payload"
        if not right or not (found or written or warning):
            Path(f"mutation-{seed}-{number}.mp4").write_bytes(data)
            return True
        return False

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        faults = sum(pool.map(is_fault, range(int(count))))
    print(*(f"-kind:{kind} status {status}: {runs}" for (kind, status), runs in sorted(statuses.items())), sep="\n")
    print(f"{count} mutations, {faults} faults")
    return faults > 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
