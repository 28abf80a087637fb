"""Real arping, and what came of it: counted on the host's device and between the leaves."""

import statistics
import subprocess
import time
from dataclasses import dataclass, field

from .wire import BROADCAST, Tap, arp_of


@dataclass
class Exchange:
    """One request and the replies to it."""

    sent: int  # nanoseconds, as those of the replies
    replies: list = field(default_factory=list)  # (MAC, nanoseconds)

    @property
    def microseconds(self):
        return (self.replies[0][1] - self.sent) / 1000


@dataclass
class Asked:
    """What became of some requests of one host."""

    exchanges: list
    floods: list  # when a request went through the tunnel, nanoseconds

    @property
    def requests(self):
        return len(self.exchanges)

    @property
    def answers(self):
        """How many replies there were, by MAC."""
        count = {}
        for exchange in self.exchanges:
            for mac, _ in exchange.replies:
                count[mac] = count.get(mac, 0) + 1
        return count

    @property
    def latencies(self):
        """Of the first reply to each request that had any, in microseconds."""
        return [exchange.microseconds for exchange in self.exchanges if exchange.replies]

    @property
    def median(self):
        return statistics.median(self.latencies) if self.latencies else None


def request(address):
    """A broadcast request for an address."""
    return ("-b", address)


def announcement(host):
    """A host's gratuitous ARP: sender and target are itself."""
    return ("-U", host.address)


def probe(address):
    """Whether an address is taken, asked without a sender."""
    return ("-D", address)


class Asking:
    """What a host asks from here to finish(), which may be called once."""

    def __init__(self, fabric, host):
        self._fabric = fabric
        self._host = host
        self._running = []
        fabric.wire.settle()
        self._tap = Tap(host.namespace, "eth0")

    def send(self, arguments):
        """One request of arping's, which ends with the first reply or after a second."""
        self._running.append(
            subprocess.Popen(
                self._host.namespace.command(
                    "arping", "-q", "-c", "1", "-w", "1", "-I", "eth0", *arguments
                ),
                stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL,
            )
        )

    def wait(self):
        """Until all have ended."""
        while self._running:
            self._running.pop().wait()

    def finish(self):
        self.wait()
        floods = [
            carried.nanoseconds
            for carried in self._fabric.wire.settle()
            if carried.arp.request
            and carried.arp.destination == BROADCAST
            and carried.arp.source == self._host.mac
        ]
        exchanges = []
        frames = self._tap.take()
        self._tap.close()
        for frame in frames:
            arp = arp_of(frame.data)
            if arp is None:
                continue
            if frame.outgoing and arp.request and arp.destination == BROADCAST:
                exchanges.append((arp.target, Exchange(frame.nanoseconds)))
            elif not frame.outgoing and not arp.request:
                self._assign(exchanges, arp, frame.nanoseconds)
        return Asked([exchange for _, exchange in exchanges], floods)

    @staticmethod
    def _assign(exchanges, arp, nanoseconds):
        # To the latest request without a reply: those before it were lost. One reply too many goes
        # to the latest request.
        asked = [exchange for target, exchange in exchanges if target == arp.sender]
        if asked:
            open_ones = [exchange for exchange in asked if not exchange.replies]
            (open_ones[-1] if open_ones else asked[-1]).replies.append((arp.source, nanoseconds))


def ask(fabric, host, arguments, times=1):
    """One request after the other, each when the one before has ended."""
    asking = Asking(fabric, host)
    for _ in range(times):
        asking.send(arguments)
        asking.wait()
    return asking.finish()


def ask_at_once(fabric, host, arguments, times=1):
    """Requests that nobody is expected to answer: they are waited for together."""
    asking = Asking(fabric, host)
    for _ in range(times):
        asking.send(arguments)
    return asking.finish()


def ask_steadily(fabric, host, arguments, seconds, every, during=lambda: None):
    """Requests at a steady rate; after the first one something is done meanwhile."""
    asking = Asking(fabric, host)
    start = time.monotonic()
    for number in range(int(seconds / every)):
        time.sleep(max(0.0, start + number * every - time.monotonic()))
        asking.send(arguments)
        if number == 0:
            during()
    return asking.finish()
