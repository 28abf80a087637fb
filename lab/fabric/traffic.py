"""Hosts that ask at a steady rate, and what the wire shows of it."""

import contextlib
import errno
from collections import Counter
from dataclasses import dataclass, field
from typing import NamedTuple

from .wire import BROADCAST, Tap, arp_of, request

PER_SECOND = 40
_ANY = "0.0.0.0"
_STRANGERS = 20  # addresses per VLAN that nobody has


class Asked(NamedTuple):
    """Who asked for which address."""

    host: str
    address: str


@dataclass
class Period:
    """What was asked and answered from one moment to another."""

    requests: Counter = field(default_factory=Counter)  # by Asked
    replies: Counter = field(default_factory=Counter)  # by Asked
    floods: Counter = field(default_factory=Counter)  # by Asked: ordinary requests in the tunnel
    unsent: Counter = field(default_factory=Counter)  # by host: its cable is out

    def unanswered(self, owned):
        """Those whose replies are not one for each request, or none where nobody has the address:
        owned are the addresses that somebody has."""
        return {
            asked: (self.requests[asked], self.replies[asked])
            for asked in self.requests | self.replies
            if self.replies[asked] != (self.requests[asked] if asked.address in owned else 0)
        }


class Traffic:
    """Ticks are to come more often than the hosts ask; all of it belongs to one thread."""

    def __init__(self, fabric, random):
        self._fabric = fabric
        self._random = random
        self._taps = {name: Tap(host.namespace, "eth0") for name, host in fabric.hosts.items()}
        self._names = {host.mac: name for name, host in fabric.hosts.items()}
        self.period = Period()

    def close(self):
        for tap in self._taps.values():
            tap.close()

    def ask(self):
        """One request of one host."""
        name = self._random.choice(sorted(self._taps))
        host = self._fabric.hosts[name]
        sender, target, destination = self._draw(host)
        try:
            self._taps[name].send(request(host.mac, sender, target, destination))
        except OSError as error:
            if error.errno != errno.ENOBUFS:
                raise
            self.period.unsent[name] += 1
            return
        if target != host.address:
            self.period.requests[Asked(name, target)] += 1

    def _draw(self, host):
        """Sender, target and destination of a request: mostly a host of the VLAN."""
        others = [
            other
            for other in self._fabric.hosts.values()
            if other.vlan == host.vlan and other is not host
        ]
        other = self._random.choice(others)
        stranger = f"10.0.{host.vlan}.{100 + self._random.randrange(_STRANGERS)}"
        ordinary = (host.address, other.address, BROADCAST)
        rare = (
            (host.address, stranger, BROADCAST),
            (host.address, stranger, BROADCAST),
            (host.address, host.leaf.gateway(host.vlan), BROADCAST),
            (host.address, host.address, BROADCAST),  # an announcement
            (_ANY, other.address, BROADCAST),  # a probe
            (host.address, other.address, other.mac),
        )
        return ordinary if self._random.random() < 0.7 else self._random.choice(rare)

    def look(self):
        """Takes what has come."""
        for name, tap in self._taps.items():
            for frame in tap.take():
                arp = arp_of(frame.data)
                if arp is None:
                    continue
                if frame.outgoing and arp.request:
                    self.period.requests[Asked(name, arp.target)] += 1
                elif not frame.outgoing and not arp.request:
                    self.period.replies[Asked(name, arp.sender)] += 1
        for carried in self._fabric.wire.take():
            arp, name = carried.arp, self._names.get(carried.arp.source)
            ordinary = arp.request and arp.sender not in (_ANY, arp.target)
            if name and ordinary and arp.destination == BROADCAST:
                self.period.floods[Asked(name, arp.target)] += 1


class Written:
    """Counts what a leaf's agent writes on its devices. They come and go with the agent: looks are
    to be taken more often than it takes one from making them to writing on them."""

    NAMES = {"fabric": "wire.replies", "arpinject": "wire.reinjected"}

    def __init__(self, leaf):
        self._leaf = leaf
        self._taps = {}
        self.count = {}
        self.begin()

    def begin(self):
        """Counts from nothing."""
        self.count = dict.fromkeys(self.NAMES.values(), 0)

    def close(self):
        for tap in self._taps.values():
            tap.close()

    def look(self):
        for device, name in self.NAMES.items():
            tap = self._taps.get(device)
            if tap:
                self.count[name] += sum(frame.outgoing for frame in tap.take())
            if tap and tap.lost:
                self._taps.pop(device).close()
            if device not in self._taps:
                with contextlib.suppress(OSError):  # there is no such device at the moment
                    self._taps[device] = Tap(self._leaf.namespace, device)
