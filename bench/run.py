#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures the programs beside other tools and beside plain copies, in one run.

    bench/run.py [--bin DIR] [--work DIR] [--rounds N] [--quick] [--publish] [LINE ...]

Makes its own inputs in the work folder (some 8 GiB of room, best on a local disk) and removes them afterwards. All
commands of a line run in turn, round after round (A B A B); what is told is the median of the rounds, of whole processes,
with warm caches. A ratio is the median of the ratios of the rounds. Exit status 1 means that a limit of the project was missed.

--quick    small inputs, few rounds: to try the script, no figures worth telling
--publish  writes docs/performance.md and its plots

It needs Debian's atomicparsley, ffmpeg, gnuplot-nox, libimage-exiftool-perl, mediainfo, strace, time and xfsprogs.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass, field
from pathlib import Path

import lines
import page

HOME = Path(__file__).resolve().parent.parent


@dataclass
class Tool:
    """A command with its name in the tables, and what makes the files ready for it."""

    name: str
    command: list
    ready: object = None
    slow: bool = False  # three rounds are enough
    walls: list = field(default_factory=list)
    cpus: list = field(default_factory=list)
    written: int = 0
    peak: float = 0.0
    calls: int = 0
    opens: dict = field(default_factory=dict)  # of each path of the command

    @property
    def wall(self):
        return statistics.median(self.walls)

    @property
    def cpu(self):
        return statistics.median(self.cpus)

    def beside(self, other):
        """The median of this one's times, each divided by the other's of the same round."""
        return statistics.median(own / floor for own, floor in zip(self.walls, other.walls))


class Bench:
    def __init__(self, options, work):
        self.bin, self.work = options.bin, work
        self.quick, self.rounds = options.quick, 3 if options.quick else options.rounds
        self.tables, self.limits, self.notes = [], [], []
        self.peaks = shutil.which("time") or sys.exit("Debian's package time is missing")

    def scaled(self, size, least=1):
        """A size, or a small one for a trial."""
        return max(least, size // 32) if self.quick else size

    def once(self, tool, wrapper=()):
        if tool.ready:
            tool.ready()
        began = time.perf_counter()
        command = [*map(str, wrapper), *map(str, tool.command)]
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        wall = time.perf_counter() - began
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"failed with {process.returncode}: {' '.join(command)}")
        return wall, usage.ru_utime + usage.ru_stime, usage.ru_oublock * 512

    def compare(self, job, *tools, rounds=None, show=True):
        """Measures the tools in turn; the first is ours, the second the floor."""
        for number in range(rounds or self.rounds):
            for tool in tools:
                if number < 3 or not tool.slow:
                    wall, cpu, tool.written = self.once(tool)
                    tool.walls.append(wall)
                    tool.cpus.append(cpu)
        # A process starts with the peak of the one that forked it: `time` is small, this one is not.
        for tool in tools:
            told = self.work / "peak"
            self.once(tool, [self.peaks, "-f", "%M", "-o", told])
            tool.peak = int(told.read_text().split()[-1]) / 1024
            if show:
                self.count(tool)
        if show:
            self.tables.append((job, tools))
            print(f"  {job}")
            for tool in tools:
                ratio = tool.beside(tools[1]) if len(tools) > 1 else 1
                print(
                    f"    {tool.name:<44} {tool.wall:9.4f} s {ratio:8.2f} x   cpu {tool.cpu:8.4f} s   "
                    f"peak {tool.peak:8.1f} MiB   written {tool.written / (1 << 20):8.1f} MiB   calls {tool.calls:8} ({sum(tool.opens.values())} opens)",
                    flush=True,
                )
        return tools

    def count(self, tool):
        """How many system calls a command makes, and how often it opens each file that it names."""
        log = self.work / "calls"
        self.once(tool, ["strace", "-f", "-s", "0", "-o", log])
        with open(log, errors="replace") as lines:
            for line in lines:
                tool.calls += 1
                for path in filter(Path.is_absolute, map(Path, map(str, tool.command[1:]))):
                    tool.opens[path] = tool.opens.get(path, 0) + (" open" in line and f'"{path}"' in line)

    def limit(self, what, value, limit, unit="x"):
        met = value <= limit or self.quick  # of small inputs no limit is judged
        self.limits.append((what, value, limit, unit, met))
        print(f"    {what:<60} {value:9.3f} {unit:<4} limit {limit:g} {'' if met else 'MISSED'}", flush=True)

    def note(self, text):
        self.notes.append(text)
        print(f"    {text}", flush=True)


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--bin", type=Path, default=HOME / "build/bin")
    arguments.add_argument("--work", type=Path, help="where the inputs are made (default: a temporary folder)")
    arguments.add_argument("--rounds", type=int, default=9)
    arguments.add_argument("--quick", action="store_true")
    arguments.add_argument("--publish", action="store_true")
    arguments.add_argument("lines", nargs="*", metavar="LINE", help=", ".join(lines.LINES))
    options = arguments.parse_args()
    unknown = [name for name in options.lines if name not in lines.LINES]
    if unknown:
        arguments.error(f"no such line: {unknown[0]} (there are {', '.join(lines.LINES)})")

    measured = []
    for name in options.lines or lines.LINES:
        work = lines.LINES[name]
        print(f"{name}: {work.__doc__}", flush=True)
        with tempfile.TemporaryDirectory(dir=options.work) as folder:
            bench = Bench(options, Path(folder))
            work(bench, Tool)
            measured.append((work.__doc__, bench))
    if options.publish:
        page.publish(HOME, measured, options)
    missed = [what for _, bench in measured for what, *_, met in bench.limits if not met]
    print(f"{len(missed)} limits missed: {', '.join(missed)}" if missed else "all limits met")
    return bool(missed)


if __name__ == "__main__":
    sys.exit(main())
