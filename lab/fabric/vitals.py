"""What a process costs while it lives, and whether that grows."""

import contextlib
import os
import re
import statistics
import time
from collections import Counter
from typing import NamedTuple


class Sample(NamedTuple):
    """Memory in KiB."""

    resident: int  # without the trace's ring-buffer file, which is touched page by page as it fills
    anonymous: int  # what of that is no file's
    runtime: int  # what its runtime directory takes
    descriptors: Counter  # what they are of, without numbers
    threads: int


def sample(pid, directory):
    """How a process is now. Raises OSError if it has ended."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        status = dict(line.split(":", 1) for line in file)
    if "VmRSS" not in status:
        raise ProcessLookupError(pid)  # it is about to
    return Sample(
        int(status["VmRSS"].split()[0]) - _ring(pid),
        int(status["RssAnon"].split()[0]),
        _taken(directory),
        _descriptors(f"/proc/{pid}/fd"),
        int(status["Threads"]),
    )


def _ring(pid):
    """How much of the ring-buffer file is resident."""
    resident, mapping = 0, ""
    with open(f"/proc/{pid}/smaps", encoding="utf-8") as file:
        for line in file:
            words = line.split()
            if not words[0].endswith(":"):
                mapping = line.rstrip()
            elif words[0] == "Rss:" and mapping.endswith(".sl"):
                resident += int(words[1])
    return resident


def _descriptors(directory):
    kinds = Counter()
    for name in os.listdir(directory):
        with contextlib.suppress(FileNotFoundError):
            target = os.readlink(f"{directory}/{name}")
            kinds[re.sub(r"\d+| \(deleted\)$", "", target)] += 1
    return kinds


def _taken(directory):
    blocks = 0
    for path, _, files in os.walk(directory):
        for name in files:
            with contextlib.suppress(FileNotFoundError):  # replaced meanwhile
                blocks += os.lstat(os.path.join(path, name)).st_blocks
    return blocks // 2


class Life:
    """One process from its start to its end. It is settled once it is so many seconds old."""

    def __init__(self, pid, directory, settled_after):
        self.pid = pid
        self._directory = directory
        self._begin = time.monotonic()
        self._settled_after = settled_after
        self._due = 0
        self.seconds = 0  # at the latest look
        self.settled = []  # samples since then, one a second

    @property
    def age(self):
        return time.monotonic() - self._begin

    def look(self):
        self.seconds = self.age
        if self.age < max(self._settled_after, self._due):
            return
        self._due = self.age + 1
        self.settled.append(sample(self.pid, self._directory))

    def typical(self, what):
        """The middle of what was seen since it was settled."""
        return statistics.median(getattr(item, what) for item in self.settled)

    def grown(self, what):
        """By how much the last third of what was seen is above the first."""
        values = [getattr(item, what) for item in self.settled]
        third = len(values) // 3
        if third == 0:
            return 0
        return statistics.median(values[-third:]) - statistics.median(values[:third])

    def course(self, what):
        """From the first that was seen since it was settled to the last."""
        values = [getattr(item, what) for item in self.settled]
        return f"{values[0]}-{values[-1]}" if values else "-"
