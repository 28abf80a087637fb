"""What the leaves send each other, seen between them: the ARP packets inside VXLAN."""

import socket
import struct
import time
from typing import NamedTuple

_ETH_P_ALL = 0x0003  # the bridge takes frames before others are asked
_VXLAN_PORT = 4789
_SOL_PACKET = 263
_PACKET_STATISTICS = 6


class Carried(NamedTuple):
    """An ARP packet that a leaf sent through the tunnel."""

    leaf: int
    vni: int
    source: str
    destination: str
    request: bool
    sender: str
    target: str

    @property
    def flooded_request(self):
        return self.request and self.destination == "ff:ff:ff:ff:ff:ff"


def _mac(octets):
    return octets.hex(":")


def decode(frame, leaf):
    """The ARP packet in a frame of the underlay, or nothing."""
    if len(frame) < 34 or frame[12:14] != b"\x08\x00" or frame[23] != socket.IPPROTO_UDP:
        return None
    udp = 14 + (frame[14] & 15) * 4
    inner = udp + 8 + 8
    if len(frame) < inner + 42 or struct.unpack_from("!H", frame, udp + 2)[0] != _VXLAN_PORT:
        return None
    if frame[inner + 12 : inner + 14] != b"\x08\x06":
        return None
    return Carried(
        leaf=leaf,
        vni=int.from_bytes(frame[udp + 12 : udp + 15], "big"),
        source=_mac(frame[inner + 6 : inner + 12]),
        destination=_mac(frame[inner : inner + 6]),
        request=frame[inner + 20 : inner + 22] == b"\x00\x01",
        sender=socket.inet_ntoa(frame[inner + 28 : inner + 32]),
        target=socket.inet_ntoa(frame[inner + 38 : inner + 42]),
    )


class Wire:
    """Listens where the underlay's links arrive at the spine, from the moment it is made."""

    def __init__(self, spine, device_by_leaf):
        self._sockets = {}
        for leaf, device in device_by_leaf.items():
            opened = spine.packet_socket(device, _ETH_P_ALL)
            opened.setsockopt(_SOL_PACKET, 23, 1)  # PACKET_IGNORE_OUTGOING
            self._sockets[leaf] = opened

    def close(self):
        for opened in self._sockets.values():
            opened.close()

    def take(self):
        """What has come since it was last taken. Raises RuntimeError if frames were missed."""
        carried = []
        for leaf, opened in self._sockets.items():
            while True:
                try:
                    frame = opened.recv(65536)
                except BlockingIOError:
                    break
                arp = decode(frame, leaf)
                if arp:
                    carried.append(arp)
            missed = struct.unpack("II", opened.getsockopt(_SOL_PACKET, _PACKET_STATISTICS, 8))[1]
            if missed:
                raise RuntimeError(f"the observer of the wire has missed {missed} frames")
        return carried

    def settle(self, quiet=0.15):
        """As take(), but waits until nothing has come for so many seconds."""
        carried = []
        deadline = time.monotonic() + quiet
        while time.monotonic() < deadline:
            fresh = self.take()
            if fresh:
                carried += fresh
                deadline = time.monotonic() + quiet
            time.sleep(0.01)
        return carried
