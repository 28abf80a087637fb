"""A thread that has hosts ask, and looks at what must be looked at often."""

import contextlib
import threading
import time

from .namespaces import Expired
from .traffic import PER_SECOND

_PAUSE = 0.01
_QUIET = 0.3


class Watch(threading.Thread):
    """Whatever else touches what it looks at holds the lock, or is in quiet()."""

    def __init__(self, traffic, written):
        super().__init__(daemon=True)
        self.lock = threading.Lock()
        self._traffic = traffic
        self._written = written
        self._lives = []
        self._asking = True
        self._ended = threading.Event()
        self._error = None

    def end(self):
        self._ended.set()
        self.join()

    def follow(self, life):
        with self.lock:
            self._lives.append(life)

    def leave(self, life):
        with self.lock:
            self._lives.remove(life)

    def sleep(self, seconds):
        """As long as nothing goes wrong."""
        self._ended.wait(seconds)
        self._check()

    @contextlib.contextmanager
    def quiet(self):
        """Nobody asks, all replies are there, and nothing is looked at meanwhile."""
        self._asking = False
        try:
            self._await_quiet()
            with self.lock:
                yield
        finally:
            self._asking = True

    def run(self):
        try:
            due = time.monotonic()
            while not self._ended.wait(_PAUSE):
                with self.lock:
                    self._look()
                    now = time.monotonic()
                    if self._asking and now >= due:
                        self._traffic.ask()
                        due = max(due, now - _QUIET) + 1 / PER_SECOND
        except Exception as error:  # whatever it is, the soak has failed
            self._error = error
            self._ended.set()

    def _look(self):
        self._traffic.look()
        for written in self._written:
            written.look()
        for life in self._lives:
            life.look()

    def _state(self):
        with self.lock:
            period = self._traffic.period
            seen = (period.requests, period.replies, period.floods)
            return [sum(counter.values()) for counter in seen] + [
                sum(written.count.values()) for written in self._written
            ]

    def _await_quiet(self):
        deadline = time.monotonic() + 10
        before, since = self._state(), time.monotonic()
        while time.monotonic() - since < _QUIET:
            self.sleep(_PAUSE)
            state = self._state()
            if state != before:
                before, since = state, time.monotonic()
            if time.monotonic() >= deadline:
                raise Expired("the hosts do not come to rest")

    def _check(self):
        if self._error:
            raise self._error
