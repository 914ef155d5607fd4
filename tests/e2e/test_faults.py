# SPDX-License-Identifier: MIT
"""System calls fail from outside, one or all of them, or the process is killed: the old file stays, or the new one is there."""

import collections
import itertools
import os
import re
import signal
import threading
from concurrent.futures import ThreadPoolExecutor

from commands import COMMANDS
from conftest import BIN, REMARKS, STRACE, needs_strace, run

# The calls on files that the programs make, and what each may fail with. A line: several names of one call.
READING, WRITING = ("EINTR", "EIO"), ("EINTR", "EIO", "ENOSPC")
CALLS = {
    "openat open": WRITING, "read": READING, "write": WRITING, "lseek": READING, "newfstatat fstat": READING, "ftruncate": READING,
    "fsync fdatasync": WRITING, "copy_file_range": WRITING, "flock": READING, "fchmod": READING, "fchown": READING, "rename renameat renameat2": WRITING,
    "utimensat": READING, "flistxattr fgetxattr fsetxattr": READING, "fstatfs": READING, "fremovexattr": READING, "unlink unlinkat": READING, "close": WRITING,
}  # fmt: skip
ERRORS = {name: errors for names, errors in CALLS.items() for name in names.split()}
HARMLESS = {"access", "chdir", "execve", "fadvise64", "fcntl", "getcwd", "ioctl", "mmap", "readlink", "sync_file_range"}
LOOKING = {"read", "pread64", "lseek", "newfstatat", "fstat"}
ALLOCATOR = str(BIN / "libfail_allocation.so")
LEFT_BY_THE_DEAD = re.compile(r"\.tmp\.mp4$|\.part$")

Fault = collections.namedtuple("Fault", "name injections tails files", defaults=(False, False))


def boxes(content):
    """Type, start and end of each box at the top; the end of the last one may lie beyond the file's."""
    at = 0
    while len(content) - at >= 8:
        size = int.from_bytes(content[at : at + 4], "big") or len(content) - at
        yield content[at + 4 : at + 8], at, at + size
        at += max(size, 8)


def visible(content):
    """What a reader takes: all that is no `free` box, but of movies and of payloads of one kind only the first."""
    taken = {}
    for kind, start, end in boxes(content):
        named = {b"moov": kind, b"uuid": kind + content[start + 8 : start + 24]}
        taken.setdefault(named.get(kind, (kind, start)), content[start + 8 : end])
    return {name: body for name, body in taken.items() if name[0] != b"free"}


def is_whole(content, before, after):
    """Whether a recording that could not be put right is valid all the same, with the edit or without it. A last box without a size
    may hold what is hidden yet; a record tells where sound lies before that is there."""
    added = content.removeprefix(before)
    if added != content and b"free".startswith(added[4:8]):
        return True
    new = visible(after)
    return visible(content) in (visible(before), new, {name: body for name, body in new.items() if b"ZADT" not in body})


class Trials:
    """Runs of one command, each in a folder with the same files."""

    met = collections.Counter()

    def __init__(self, name, command, root):
        self.name, self.command, self.root = name, command, root / name.replace(" ", "_")
        self.root.mkdir()
        folder = self.prepared()
        self.before, self.found = self.state(folder), self.others_in(folder)
        self.status, self.after, self.output, self.others = self.run()
        assert self.status == 0, (name, self.output)

    def prepared(self):
        folder = self.root / str(threading.get_ident())
        folder.mkdir(exist_ok=True)
        self.command.prepare(folder)
        return folder

    def state(self, folder):
        path = folder / self.command.target
        return (path.read_bytes(), path.stat().st_mode) if path.exists() else None

    def run(self, *tracer, **environment):
        """Status, state of the target, output, and what else the folder holds."""
        folder = self.prepared()
        result = run(*tracer, *self.command.arguments(folder), cwd="/", env={**os.environ, **environment})
        return result.returncode, self.state(folder), result.stdout.replace(bytes(folder), b""), self.others_in(folder)

    def others_in(self, folder):
        return {path.name: path.read_bytes() for path in folder.iterdir() if path.name != self.command.target}

    def trace(self):
        """The calls from the first one on that names a file of the folder, each with how many of every name the process had made
        before it. strace counts so too, and it cannot be told to count a new file's calls only: that has no path yet."""
        log, calls, counts, unknown = self.root / "log", [], collections.Counter(), set()
        self.run(*STRACE, "-y", "-o", log, "-e", "trace=%file,%desc")
        for line in log.read_text(errors="replace").splitlines():
            name = line.partition("(")[0]
            if calls or str(self.root) in line.partition("(")[2] and name != "execve":
                calls.append((name, dict(counts)))
                unknown |= {name} - set(ERRORS) - HARMLESS if str(self.root) in line else set()
            counts[name] += 1
        assert not unknown, f"{self.name}: calls that no row of the table lets fail: {unknown}"
        return [call for call in calls if call[0] in ERRORS]

    def faults(self):
        interrupted = set()
        for name, earlier in self.chosen():
            number = earlier.get(name, 0) + 1
            for error in ERRORS[name]:
                if error != "EINTR" or name not in interrupted:
                    yield Fault(f"{error} at {name} {number}", [f"{name}:error={error}:when={number}"])
            interrupted.add(name)
            yield Fault(f"{error} from {name} {number} on", [f"{name}:error={error}:when={number}+"], tails=True)
            every = [f"?{other}:error=EIO:when={earlier.get(other, 0) + 1}+" for other in ERRORS]
            yield Fault(f"all from {name} {number} on", every, tails=True, files=True)
            if name not in LOOKING:
                yield Fault(f"kill at {name} {number}", [f"{name}:signal=KILL:when={number}"], tails=True, files=True)
                yield Fault(f"interrupt at {name} {number}", [f"{name}:signal=INT:when={number}"])

    def chosen(self):
        """Of calls that only look, or of one name, one after the other: the first and the last."""
        for _, calls in itertools.groupby(self.trace(), lambda call: call[0] in LOOKING or call[0]):
            calls = list(calls)
            yield from calls[:: max(1, len(calls) - 1)]

    def failing(self, fault):
        """What is wrong when calls fail."""
        log = self.root / f"{threading.get_ident()}.log"
        injections = [part for injection in fault.injections for part in ("-e", "inject=" + injection)]
        trace = "trace=" + ",".join(sorted({injection.partition(":")[0] for injection in fault.injections}))
        outcome = self.run(*STRACE, "-o", log, "-e", trace, *injections)
        text = log.read_text(errors="replace")
        failed = set(re.findall(r"^(\w+)\(.*INJECTED", text, re.M)) | set(re.findall("SIGKILL|SIGINT", text))
        self.met.update(failed)
        return self.objection(fault, failed, *outcome)

    def allocations(self):
        """How many there are, and each way to let them fail: of many, a sample."""
        count = self.root / "count"
        self.run(LD_PRELOAD=ALLOCATOR, FAIL_FOLDER=str(self.root), FAIL_COUNT=str(count))
        number = int(count.read_text())
        assert number > 0, self.name
        for at in sorted({*range(1, min(number, 20) + 1), *range(20, number + 1, max(1, number // 40)), number}):
            yield Fault(f"no memory at {at} of {number}", {"FAIL_AT": str(at)})
            yield Fault(f"no memory from {at} of {number} on", {"FAIL_AT": str(at), "FAIL_REST": ""})

    def starving(self, fault):
        """What is wrong when memory runs out."""
        outcome = self.run(LD_PRELOAD=ALLOCATOR, FAIL_FOLDER=str(self.root), **fault.injections)
        return self.objection(fault, {"malloc"}, *outcome)

    def objection(self, fault, failed, status, state, output, others):
        """Nothing if the file is the old or the new one, as the status says, and all else as it was."""
        if fault.files:
            others = {path: content for path, content in others.items() if path in self.others or not LEFT_BY_THE_DEAD.search(path)}
        if not failed:
            return f"{self.name}, {fault.name}: never happened"
        interrupted = "SIGINT" in failed and status in (-signal.SIGINT, 128 + signal.SIGINT)
        if "SIGINT" in failed and not interrupted and status != 0:
            return f"{self.name}, {fault.name}: status {status}"
        if status < 0 and not interrupted and "SIGKILL" not in failed:
            return f"{self.name}, {fault.name}: died of signal {-status}"
        if others != (self.others if status == 0 else self.found) and not (fault.files and others in (self.found, self.others)):
            return f"{self.name}, {fault.name}: status {status}, files {sorted(set(others.items()) ^ set(self.others.items()))}"
        if status == 0:
            # Without its owner a file may be open to fewer than it was.
            same = state == self.after or "fchown" in failed and state and state[0] == self.after[0] and state[1] & ~self.after[1] == 0
            right = same and (self.before != self.after or "write" in failed or output == self.output)
        elif state in (self.before, self.after):
            right = state == self.before or fault.files
        else:
            right = fault.tails and self.command.target == "video.mp4" and state and is_whole(state[0], self.before[0], self.after[0])
        known = {self.before: "the old file", self.after: "the new file"}
        return None if right else f"{self.name}, {fault.name}: status {status}, {known.get(state, state)}"


def judge(tmp_path, faults_of, objection_of):
    """Lets every command fail in every way, on all processors."""
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        trials = list(pool.map(lambda row: Trials(*row, tmp_path), COMMANDS.items()))
        faults = [(trial, fault) for trial in trials for fault in faults_of(trial)]
        objections = [told for told in pool.map(lambda pair: objection_of(*pair), faults) if told]
    assert not objections, "\n".join([f"{len(objections)} of {len(faults)}", *objections[:50]])
    REMARKS.append(f"{len(faults)} runs of {len(trials)} commands")


@needs_strace
def test_every_call_of_every_command_fails(tmp_path):
    judge(tmp_path, Trials.faults, Trials.failing)
    REMARKS.append("failed calls: " + ", ".join(f"{name} {count}" for name, count in Trials.met.most_common()))
    unmet = [names for names in CALLS if not any(Trials.met[name] for name in names.split())]
    assert not unmet, f"never failed: {unmet}"


def test_every_command_runs_out_of_memory(tmp_path):
    judge(tmp_path, Trials.allocations, Trials.starving)
