"""Ctrl-C and its like end a program in an orderly way, once."""

import signal


class Interrupted(BaseException):
    """A signal asks the program to end."""


def _react(handler):
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, handler)


def hold_off():
    """From now on nothing interrupts."""
    _react(signal.SIG_IGN)


def interruptible():
    """Until then the first signal raises Interrupted."""
    _react(_interrupt)


def _interrupt(number, frame):
    """Once is enough: what follows is not to be interrupted."""
    hold_off()
    raise Interrupted
