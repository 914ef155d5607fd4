# SPDX-License-Identifier: MIT
"""What is measured: each line makes its inputs and compares our command with others. The second of a comparison is the floor."""

import os
import shutil
import subprocess
from pathlib import Path

from inputs import MIB, boxes_movie, chunks_movie, movie, random_file, sound_movie, sparse_movie, tables_movie

SAMPLE = Path(__file__).resolve().parent.parent / "tests/data/sample.mp4"
POSITION = "+35.6895+139.6917/"
EXIFTOOL = ["exiftool", "-q", "-q", "-api", "LargeFileSupport=1"]
FFMPEG = ["ffmpeg", "-v", "quiet", "-nostdin", "-y"]
GIB = 1 << 30


def without(*paths):
    """Takes away what an earlier run wrote."""
    return lambda: [path.unlink(missing_ok=True) for path in paths]


def edits(bench):
    return bench.bin / "pellmor-edit"


class Restored:
    """A movie that is changed in place: its `moov`, at the end, is put back ahead of each run."""

    def __init__(self, path, offset):
        self.path, self.offset = path, offset
        with open(path, "rb") as file:
            file.seek(offset)
            self.end = file.read()

    def __call__(self):
        with open(self.path, "r+b") as file:
            file.seek(self.offset)
            file.write(self.end)
            file.truncate()
        os.sync()


def small_read(bench, tool):
    """Reading a 10 KiB payload out of a 4 GiB sparse file"""
    recording, out, old = bench.work / "sparse.mp4", bench.work / "out.bin", bench.work / "old.bin"
    sparse_movie(recording, os.urandom(10240))
    read = [bench.bin / "Pellmor", "-kind:rmap", recording]
    ours, floor, *_ = bench.compare(
        "a map of 10 KiB",
        tool("Pellmor -kind:rmap", [*read, out], without(out)),
        tool("/bin/true", ["/bin/true"]),
        tool("Pellmor -kind:rmap, in the place of an old file", [*read, old]),
        tool("exiftool -b", [*EXIFTOOL, "-U", "-b", "-UUID-Unknown", recording], slow=True),
        rounds=bench.scaled(200, 5),
    )
    bench.limit("10 KiB out of 4 GiB, beside /bin/true", ours.beside(floor), 2)


def appends(bench, tool):
    """Appending a payload, on disk when the command ends"""
    side, recording, plain = (bench.work / name for name in ("side.bin", "movie.mp4", "plain"))
    for size, name in ((10240, "10 KiB"), (bench.scaled(100 * MIB), "100 MiB")):
        random_file(side, size)
        fresh = lambda: (shutil.copy(SAMPLE, recording), shutil.copy(SAMPLE, plain), os.sync())
        ours, floor = bench.compare(
            f"a map of {name}",
            tool("Pellmor -kind:wmap", [bench.bin / "Pellmor", "-kind:wmap", recording, side], fresh),
            tool("cat PAYLOAD >> FILE; sync -d FILE", ["sh", "-c", f"cat {side} >> {plain}; sync -d {plain}"], fresh),
            rounds=2 * bench.rounds + 1,
        )
        bench.limit(f"append of {name}, beside cat and sync", ours.beside(floor), 1.3)


def payloads(bench, tool):
    """Writing and reading a large payload"""
    size = bench.scaled(256 * MIB)
    side, recording, out = (bench.work / name for name in ("side.bin", "movie.mp4", "out.bin"))
    random_file(side, size)
    fresh = lambda: (shutil.copy(SAMPLE, recording), out.unlink(missing_ok=True), os.sync())
    program = bench.bin / "Pellmor"
    copying = lambda ready: (
        tool("cp", ["cp", side, out], ready),
        tool("dd bs=1M", ["dd", "status=none", "bs=1M", f"if={side}", f"of={out}"], ready),
    )
    for job, action, ready in (("writing", "wmap", fresh), ("reading", "rmap", lambda: (out.unlink(missing_ok=True), os.sync()))):
        kept = out if action == "rmap" else side
        ours, floor, _ = bench.compare(f"{job} 256 MiB", tool(f"Pellmor -kind:{action}", [program, f"-kind:{action}", recording, kept], ready), *copying(ready))
        bench.limit(f"{job} 256 MiB, beside cp", ours.beside(floor), 2)
        bench.limit(f"{job} 256 MiB, peak memory", ours.peak, 1.1 * size / MIB + 16, "MiB")
        if action == "wmap":
            bench.once(ours)


def moov_first(bench, tool):
    """moov ahead of 1 GiB of media data, into another file"""
    original, out = bench.work / "movie.mp4", bench.work / "out.mp4"
    for samples in (1000, bench.scaled(3_600_000)):
        movie(original, samples, bench.scaled(GIB))
        gone = without(out)
        ready = lambda: (gone(), os.sync())
        ours, floor, other, _ = bench.compare(
            f"{samples:,} samples",
            tool("pellmor-edit moov-first -o", [edits(bench), "moov-first", original, "-o", out], ready),
            tool("cp", ["cp", original, out], ready),
            tool("qt-faststart", ["qt-faststart", original, out], ready),
            tool("ffmpeg -c copy -movflags +faststart", [*FFMPEG, "-i", original, "-map", "0", "-c", "copy", "-movflags", "+faststart", out], ready, slow=True),
        )
        bench.limit(f"rewrite of 1 GiB, {samples:,} samples, beside cp", ours.beside(floor), 1.1)
        bench.limit(f"the same, beside qt-faststart", ours.beside(other), 1)
        bench.limit(f"the same, peak memory", ours.peak, 8, "MiB")
    original.unlink()


def location(bench, tool):
    """A position into 1 GiB of film whose moov lies behind the media, in place"""
    recording, out, table = (bench.work / name for name in ("movie.mp4", "out.mp4", "moov"))
    for samples in (bench.scaled(200_000), bench.scaled(9_000_000)):
        restored = Restored(recording, movie(recording, samples, bench.scaled(GIB)))
        size = f"{len(restored.end) / 1e6:.1f} MB"
        table.write_bytes(restored.end)
        ready = lambda: (restored(), out.unlink(missing_ok=True))
        ours, *_, floor = bench.compare(
            f"a moov of {size}",
            tool("pellmor-edit location", [edits(bench), "location", POSITION, recording], ready),
            tool("cp of the whole file", ["cp", recording, out], ready),
            tool("exiftool -GPSCoordinates -o", [*EXIFTOOL, "-GPSCoordinates=35.6895, 139.6917", "-o", out, recording], ready, slow=True),
            tool("AtomicParsley --title -o", ["AtomicParsley", recording, "--title", "x", "-o", out], ready, slow=True),
            tool("ffmpeg -c copy -metadata location=", [*FFMPEG, "-i", recording, "-map", "0", "-c", "copy", "-metadata", f"location={POSITION}", out], ready, slow=True),
            tool("cp of the moov", ["cp", table, out], ready),
        )
        bench.limit(f"location, moov of {size}, beside cp of the moov", ours.beside(floor), 2) if samples > 1_000_000 else bench.limit(f"location, moov of {size}, CPU", ours.cpu, 0.01, "s")
        bench.limit(f"location, moov of {size}, peak memory", ours.peak, 8, "MiB")


def shared_blocks(bench, tool):
    """A position into 1 GiB of film, into another file on XFS, where files share blocks"""
    image, place = bench.work / "xfs", bench.work / "mounted"
    place.mkdir()
    size = max(400 * MIB, 3 * bench.scaled(GIB))
    with open(image, "wb") as file:
        file.truncate(size)
    mounted = all(
        subprocess.run(command, capture_output=True).returncode == 0
        for command in (["mkfs.xfs", "-q", "-m", "reflink=1", image], ["mount", "-o", "loop", image, place])
    )
    if not mounted:
        bench.note("not measured: no file system could be mounted here")
        return
    try:
        recording, out = place / "movie.mp4", place / "out.mp4"
        movie(recording, 1000, bench.scaled(GIB))
        ready = lambda: (out.unlink(missing_ok=True), os.sync())
        ours, floor, _ = bench.compare(
            "XFS with reflink",
            tool("pellmor-edit location -o", [edits(bench), "location", POSITION, recording, "-o", out], ready),
            tool("dd bs=1M", ["dd", "status=none", "bs=1M", f"if={recording}", f"of={out}"], ready),
            tool("cp", ["cp", recording, out], ready),
        )
        bench.limit("location -o on XFS, beside dd", ours.beside(floor), 0.1)
    finally:
        subprocess.run(["umount", place], check=True)


def chunk_offsets(bench, tool):
    """Shifting 10 million chunk offsets, within moov-first"""
    original, out, count = bench.work / "chunks.mp4", bench.work / "out.mp4", bench.scaled(10_000_000)
    for kind in ("stco", "co64"):
        chunks_movie(original, count, kind == "co64")
        ours, *_ = bench.compare(
            f"{kind} of {count:,} entries",
            tool("pellmor-edit moov-first -o", [edits(bench), "moov-first", original, "-o", out], without(out)),
            tool("cp", ["cp", original, out], without(out)),
            tool("qt-faststart", ["qt-faststart", original, out], without(out)),
        )
        bench.limit(f"10 million offsets, {kind}, CPU", ours.cpu, 0.1, "s")
        bench.limit(f"10 million offsets, {kind}, peak memory", ours.peak, 8, "MiB")


def dumps(bench, tool):
    """Printing the box tree"""
    original = bench.work / "tables.mp4"
    for count, limit in ((bench.scaled(5_000_000), True), (bench.scaled(1_600_000), False)):
        tables_movie(original, count)
        size = original.stat().st_size / 1e6
        ours, floor, *_ = bench.compare(
            f"{count:,} entries in each of stsz, stts, stsc and stco, {size:.0f} MB",
            tool("pellmor-edit dump", [edits(bench), "dump", original]),
            tool("cat", ["cat", original]),
            tool("mediainfo", ["mediainfo", original], slow=True),
            tool("ffprobe", ["ffprobe", "-v", "quiet", original], slow=True),
            tool("exiftool", [*EXIFTOOL, original], slow=True),
        )
        if limit:
            bench.limit("dump of 5 million entries, CPU", ours.cpu, 0.25, "s")
        else:
            bench.limit("dump of a 38 MB moov, beside reading it", ours.beside(floor), 1.5)


def small_edits(bench, tool):
    """Times and packets into 1 GiB of film, in place"""
    recording, out, packet = (bench.work / name for name in ("movie.mp4", "out.mp4", "packet.xmp"))
    packet.write_text('<x:xmpmeta xmlns:x="adobe:ns:meta/"/>')
    restored = Restored(recording, movie(recording, 1000, bench.scaled(GIB)))
    ready = lambda: (restored(), out.unlink(missing_ok=True))
    for job, ours, exiftool in (
        ("set-time", ["set-time", "2024-05-31T11:33:20Z", recording], ["-CreateDate=2024:05:31 11:33:20", "-o", out, recording]),
        ("put xmp", ["put", "xmp", packet, recording], ["-XMP:CreatorTool=x", "-o", out, recording]),
    ):
        bench.compare(
            job,
            tool(f"pellmor-edit {job}", [edits(bench), *ours], ready),
            tool("cp of the whole file", ["cp", recording, out], ready, slow=True),
            tool(f"exiftool {exiftool[0].split('=')[0]} -o", [*EXIFTOOL, *exiftool], ready, slow=True),
        )


def full_range(bench, tool):
    """Changing H.264 flags of real video"""
    clip, recording, out = (bench.work / name for name in ("clip.mp4", "movie.mp4", "out.mp4"))
    picture = ["-f", "lavfi", "-i", "testsrc2=size=1280x720:rate=25:duration=4,noise=alls=40:allf=t"]
    subprocess.run([*FFMPEG, *picture, "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-b:v", "50M", clip], check=True)
    loops = str(max(1, bench.scaled(256 * MIB) // clip.stat().st_size))
    subprocess.run([*FFMPEG, "-stream_loop", loops, "-i", clip, "-c", "copy", recording], check=True)
    content = recording.read_bytes()
    restored = Restored(recording, content.rindex(b"moov") - 4)
    ready = lambda: (restored(), out.unlink(missing_ok=True))
    bench.compare(
        f"{len(content) / MIB:.0f} MiB",
        tool("pellmor-edit full-range", [edits(bench), "full-range", "on", recording], ready),
        tool("cp of the whole file", ["cp", recording, out], ready),
        tool("ffmpeg -c copy -bsf:v h264_metadata", [*FFMPEG, "-i", recording, "-c", "copy", "-bsf:v", "h264_metadata=video_full_range_flag=1", out], ready, slow=True),
    )


def sounds(bench, tool):
    """Spatial sound, 4 channels of 16 bits at 48,000 Hz"""
    source, target, out = (bench.work / name for name in ("sound.mp4", "target.mp4", "out"))
    hours = 0.1 if bench.quick else 1
    size = sound_movie(source, hours)
    fresh = lambda: (shutil.copy(SAMPLE, target), out.unlink(missing_ok=True), os.sync())
    floor = lambda: tool("cp --sparse=never", ["cp", "--sparse=never", source, out], fresh)
    name = f"{hours} h, {size / MIB:.0f} MiB"
    wav, _ = bench.compare(f"{name} to WAV", tool("pellmor-edit sound-to-wav", [edits(bench), "sound-to-wav", source, out], fresh), floor())
    bench.limit("sound-to-wav, opens of the source", wav.opens[source], 2, "")
    ours, _ = bench.compare(f"{name} into another file", tool("pellmor-edit append-sound", [edits(bench), "append-sound", source, target], fresh), floor())
    bench.limit("append-sound, peak memory", ours.peak, 16, "MiB")


def growth(bench, tool, job, variable, sizes, make, tools):
    """Measures over decades; the points of each tool go to the page as a plot."""
    points = {}
    for size in sizes:
        make(size)
        for measured in bench.compare("", *tools(), rounds=3 if bench.quick else 5, show=False):
            points.setdefault(measured.name, []).append((size, measured.wall))
    bench.plot = (job, variable, points)
    for name, values in points.items():
        bench.note(f"{name}: " + ", ".join(f"{size:,}: {wall:.4f} s" for size, wall in values))


def growth_length(bench, tool):
    """Growth with the length of the film"""
    recording, out = bench.work / "movie.mp4", bench.work / "out.mp4"
    state = []

    def make(size):
        state[:] = [Restored(recording, movie(recording, 1000, size))]

    ready = lambda: (state[0](), out.unlink(missing_ok=True))
    growth(bench, tool, "growth-length", "bytes of film", [bench.scaled(size) for size in (MIB, 10 * MIB, 100 * MIB, 1000 * MIB)], make, lambda: [
        tool("location, in place", [edits(bench), "location", POSITION, recording], ready),
        tool("moov-first -o", [edits(bench), "moov-first", recording, "-o", out], ready),
        tool("cp", ["cp", recording, out], ready),
        tool("qt-faststart", ["qt-faststart", recording, out], ready),
        tool("ffmpeg -c copy", [*FFMPEG, "-i", recording, "-map", "0", "-c", "copy", out], ready),
    ])  # fmt: skip


def growth_samples(bench, tool):
    """Growth with the number of samples"""
    original, out = bench.work / "tables.mp4", bench.work / "out.mp4"
    growth(bench, tool, "growth-samples", "samples", [bench.scaled(size) for size in (5_000, 50_000, 500_000, 5_000_000)], lambda size: tables_movie(original, size), lambda: [
        tool("dump", [edits(bench), "dump", original]),
        tool("moov-first -o", [edits(bench), "moov-first", original, "-o", out], without(out)),
        tool("cp", ["cp", original, out], without(out)),
        tool("ffprobe", ["ffprobe", "-v", "quiet", original]),
        tool("mediainfo", ["mediainfo", original]),
    ])  # fmt: skip


def growth_boxes(bench, tool):
    """Growth with the number of boxes"""
    original, out = bench.work / "boxes.mp4", bench.work / "out.mp4"
    growth(bench, tool, "growth-boxes", "boxes", [bench.scaled(size) for size in (1_000, 10_000, 100_000, 1_000_000)], lambda size: boxes_movie(original, size), lambda: [
        tool("dump", [edits(bench), "dump", original]),
        tool("moov-first -o", [edits(bench), "moov-first", original, "-o", out], without(out)),
        tool("cp", ["cp", original, out], without(out)),
        tool("ffprobe", ["ffprobe", "-v", "quiet", original]),
        tool("exiftool", [*EXIFTOOL, original]),
    ])  # fmt: skip


def growth_payload(bench, tool):
    """Growth with the length of the payload"""
    side, recording, plain = (bench.work / name for name in ("side.bin", "movie.mp4", "plain"))
    fresh = lambda: (shutil.copy(SAMPLE, recording), shutil.copy(SAMPLE, plain), os.sync())
    growth(bench, tool, "growth-payload", "bytes of payload", [bench.scaled(size) for size in (100_000, 1_000_000, 10_000_000, 100_000_000)], lambda size: random_file(side, size), lambda: [
        tool("Pellmor -kind:wmap", [bench.bin / "Pellmor", "-kind:wmap", recording, side], fresh),
        tool("cat >>; sync -d", ["sh", "-c", f"cat {side} >> {plain}; sync -d {plain}"], fresh),
        tool("cp", ["cp", side, plain], fresh),
    ])  # fmt: skip


LINES = {
    "small-read": small_read,
    "appends": appends,
    "payloads": payloads,
    "moov-first": moov_first,
    "location": location,
    "xfs": shared_blocks,
    "chunk-offsets": chunk_offsets,
    "dumps": dumps,
    "small-edits": small_edits,
    "full-range": full_range,
    "sounds": sounds,
    "growth-length": growth_length,
    "growth-samples": growth_samples,
    "growth-boxes": growth_boxes,
    "growth-payload": growth_payload,
}
