# SPDX-License-Identifier: MIT
"""Writes docs/performance.md and its plots."""

import platform
import subprocess
from datetime import date

HEAD = """# Performance

Measured by `bench/run.py --publish`, which writes this page anew. All commands of a table ran in turn, round after round;
what stands here is the median of the rounds, of whole processes, with warm caches. "beside" is the median of the ratios to
the second command of the table, round by round. "written" is what the process handed to the disk; "opens" counts those of
the files that the command names.
"""


def first_line(*command):
    try:
        result = subprocess.run(command, capture_output=True, text=True)
    except FileNotFoundError:
        return "not installed"
    return (result.stdout or result.stderr).strip().splitlines()[0]


def machine(home, options):
    cpu = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")), platform.machine())
    memory = int(open("/proc/meminfo").readline().split()[1]) / (1 << 20)
    kind = first_line("stat", "-f", "-c", "%T", options.work or "/tmp")
    commit = first_line("git", "-C", home, "describe", "--always", "--dirty", "--exclude", "*")
    cores = first_line("nproc")
    yield f"{date.today()}, commit {commit}, {options.rounds} rounds."
    yield f"{cpu}, {cores} cores, {memory:.0f} GiB of memory, {kind}, Linux {platform.release().partition('-')[0]}."
    packages = ("coreutils", "ffmpeg", "libimage-exiftool-perl", "atomicparsley", "mediainfo")
    yield "Beside it: " + ", ".join(f"{name} {first_line('dpkg-query', '-W', '-f', '${Version}', name)}" for name in packages) + "."


def table(job, tools):
    yield f"\n{job}:\n\n| command | time | beside | CPU | peak memory | written | system calls | opens |\n|---|--:|--:|--:|--:|--:|--:|--:|"
    for tool in tools:
        yield f"| `{tool.name}` | {tool.wall:.4f} s | {tool.beside(tools[1]):.2f} x | {tool.cpu:.4f} s | {tool.peak:.1f} MiB | {tool.written / (1 << 20):.1f} MiB | {tool.calls:,} | {sum(tool.opens.values())} |"


def plot(folder, name, variable, points):
    script = [
        f'set terminal svg size 720,420 font "sans,13"; set output "{folder / name}.svg"',
        f'set logscale xy; set xlabel "{variable}"; set ylabel "seconds"; set grid; set key outside right; set format x "10^{{%L}}"; set format y "10^{{%L}}"',
        "plot " + ", ".join(f'"-" using 1:2 with linespoints linewidth 2 title "{tool}"' for tool in points),
    ]
    for values in points.values():
        script += [f"{size} {wall}" for size, wall in values] + ["e"]
    subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)


def publish(home, measured, options):
    docs = home / "docs"
    text = [HEAD, *machine(home, options), "\n## Limits\n", "| what | measured | limit | |\n|---|--:|--:|---|"]
    for _, bench in measured:
        text += [f"| {what} | {value:.3g} {unit} | {limit:.4g} {unit} | {'met' if met else '**missed**'} |" for what, value, limit, unit, met in bench.limits]
    for title, bench in measured:
        text.append(f"\n## {title}")
        for job, tools in bench.tables:
            text += table(job, tools)
        if hasattr(bench, "plot"):
            name, variable, points = bench.plot
            plot(docs, name, variable, points)
            sizes = [size for size, _ in next(iter(points.values()))]
            text.append(f"\n![{title}]({name}.svg)\n\n| {variable} | " + " | ".join(f"{size:,}" for size in sizes) + " |\n|---" + "|--:" * len(sizes) + "|")
            text += [f"| `{name}` | " + " | ".join(f"{wall:.4f} s" for _, wall in values) + " |" for name, values in points.items()]
        else:
            text += [f"\n{note[0].upper()}{note[1:]}." for note in bench.notes]
    (docs / "performance.md").write_text("\n".join(text) + "\n")
