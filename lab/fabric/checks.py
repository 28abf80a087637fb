"""What is expected beside what was seen."""

from dataclasses import dataclass


@dataclass(frozen=True)
class AtMost:
    most: float

    def admits(self, seen):
        return seen <= self.most

    def __str__(self):
        return f"at most {self.most:g}"


@dataclass(frozen=True)
class AtLeast:
    least: float

    def admits(self, seen):
        return seen >= self.least

    def __str__(self):
        return f"at least {self.least:g}"


@dataclass(frozen=True)
class Step:
    """What act(tour) has seen must be what expect(tour) gives afterwards, under the same names."""

    name: str
    act: object
    expect: object


class Moved(dict):
    """Counters that have moved, and by how much. As an expectation: others may have moved, too."""

    def admits(self, seen):
        return self.items() <= seen.items()


def admits(expected, seen):
    return expected.admits(seen) if hasattr(expected, "admits") else expected == seen


def holds(expected, seen):
    """Whether everything that is expected was seen, and nothing else was looked for."""
    return expected.keys() == seen.keys() and all(
        admits(value, seen[name]) for name, value in expected.items()
    )


def text_of(value):
    if isinstance(value, dict):
        return ", ".join(f"{name} {text_of(item)}" for name, item in value.items()) or "none"
    if isinstance(value, float):
        return f"{value:.2f}"
    return str(value)
