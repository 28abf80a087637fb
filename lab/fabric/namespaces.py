"""Network namespaces, and what runs in them."""

import contextlib
import ctypes
import os
import signal
import subprocess
import time

_libc = ctypes.CDLL(None, use_errno=True)
_DIRECTORY = "/run/netns"


class CommandFailed(Exception):
    """A command of the fabric's ended otherwise than it should."""


class Expired(Exception):
    """A condition did not come about in time."""


def eventually(condition, seconds, what, pause=0.02):
    """Waits until the condition gives something true, and returns that."""
    deadline = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() >= deadline:
            raise Expired(f"within {seconds} s this did not come about: {what}")
        time.sleep(pause)


def run(*command, text=None, check=True, timeout=30):
    """Runs a command to its end and returns it, with its output as text."""
    done = subprocess.run(command, input=text, capture_output=True, text=True, timeout=timeout)
    if check and done.returncode != 0:
        raise CommandFailed(
            f"{' '.join(command)}: exit status {done.returncode}\n{done.stdout}{done.stderr}"
        )
    return done


def _setns(descriptor):
    if _libc.setns(descriptor, 0x40000000) != 0:  # CLONE_NEWNET
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error))


class Namespace:
    """One network namespace, with IPv6 off and its loopback device up."""

    def __init__(self, name):
        self.name = name
        run("ip", "netns", "add", name)
        for scope in ("all", "default"):
            self.sysctl(f"net/ipv6/conf/{scope}/disable_ipv6", 1)
        self.links("link set lo up")

    @property
    def path(self):
        return f"{_DIRECTORY}/{self.name}"

    def command(self, *arguments):
        return ("nsenter", f"--net={self.path}", *arguments)

    def run(self, *arguments, **options):
        return run(*self.command(*arguments), **options)

    def start(self, *arguments, log):
        """Starts a program that goes on, in a session of its own: Ctrl-C is not for it."""
        with open(log, "ab") as output:
            return subprocess.Popen(
                self.command(*arguments),
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=output,
                start_new_session=True,
            )

    def links(self, *lines):
        """Has ip carry out some lines."""
        run("ip", "-n", self.name, "-batch", "-", text="\n".join(lines) + "\n")

    def sysctl(self, path, value):
        self.run("sh", "-c", f"echo {value} >/proc/sys/{path}")

    @contextlib.contextmanager
    def entered(self):
        """The calling thread is in the namespace meanwhile: for sockets, which stay there."""
        own = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
        try:
            there = os.open(self.path, os.O_RDONLY)
            try:
                _setns(there)
                yield
            finally:
                _setns(own)
                os.close(there)
        finally:
            os.close(own)


def processes(name):
    """Who is in a namespace."""
    return [int(pid) for pid in run("ip", "netns", "pids", name, check=False).stdout.split()]


def end_processes(names):
    """Ends what runs in the namespaces: SIGTERM, and after two seconds SIGKILL."""
    for number in (signal.SIGTERM, signal.SIGKILL):
        deadline = time.monotonic() + 2
        for name in names:
            for pid in processes(name):
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, number)
        while any(processes(name) for name in names) and time.monotonic() < deadline:
            time.sleep(0.02)


def present(prefix):
    """The namespaces whose names begin so."""
    with contextlib.suppress(FileNotFoundError):
        return sorted(name for name in os.listdir(_DIRECTORY) if name.startswith(prefix))
    return []


def take_down(prefix):
    """Ends and deletes all namespaces whose names begin so."""
    names = present(prefix)
    end_processes(names)
    for name in names:
        run("ip", "netns", "del", name, check=False)
