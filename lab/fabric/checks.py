"""What is expected beside what was seen."""

from dataclasses import dataclass


@dataclass(frozen=True)
class AtMost:
    most: float
    unit: str = ""

    def admits(self, seen):
        return seen is not None and seen <= self.most

    def __str__(self):
        return f"at most {self.most:g}{self.unit}"


@dataclass(frozen=True)
class AtLeast:
    least: float
    unit: str = ""

    def admits(self, seen):
        return seen is not None and seen >= self.least

    def __str__(self):
        return f"at least {self.least:g}{self.unit}"


@dataclass(frozen=True)
class Moved:
    """Counters that have moved by so much. Others may have moved, too."""

    by: dict

    def admits(self, seen):
        return all(seen.get(name) == count for name, count in self.by.items())

    def __str__(self):
        return text_of(self.by)


def admits(expected, seen):
    return expected.admits(seen) if hasattr(expected, "admits") else expected == seen


def holds(expected, seen):
    """Whether everything that is expected was seen, and nothing else was looked for."""
    return expected.keys() == seen.keys() and all(
        admits(value, seen[name]) for name, value in expected.items()
    )


def text_of(value):
    if isinstance(value, (set, frozenset)):
        return ", ".join(text_of(item) for item in sorted(value)) or "none"
    if isinstance(value, dict):
        return ", ".join(f"{name} {text_of(item)}" for name, item in value.items()) or "none"
    if isinstance(value, float):
        return f"{value:.2f}"
    return str(value)
