"""What is seen on devices: by hosts of their own ARP, and between the leaves of what is inside
VXLAN."""

import errno
import socket
import struct
import time
from typing import NamedTuple

_ETH_P_ALL = 0x0003  # a bridge takes frames before others are asked
_VXLAN_PORT = 4789
_SOL_PACKET = 263
_PACKET_STATISTICS = 6
_SO_TIMESTAMPNS = 35
BROADCAST = "ff:ff:ff:ff:ff:ff"


class Frame(NamedTuple):
    """A frame as the kernel handed it to a device, or had it from there."""

    data: bytes
    nanoseconds: int  # since 1970, by the kernel
    outgoing: bool


class Arp(NamedTuple):
    """An ARP packet and the addresses of its frame."""

    source: str
    destination: str
    request: bool
    sender: str
    target: str


class Carried(NamedTuple):
    """An ARP packet that a leaf sent through the tunnel."""

    leaf: int
    vni: int
    arp: Arp
    nanoseconds: int


def arp_of(frame):
    """The ARP packet that is in a frame, or nothing."""
    if len(frame) < 42 or frame[12:14] != b"\x08\x06":
        return None
    return Arp(
        source=frame[6:12].hex(":"),
        destination=frame[:6].hex(":"),
        request=frame[20:22] == b"\x00\x01",
        sender=socket.inet_ntoa(frame[28:32]),
        target=socket.inet_ntoa(frame[38:42]),
    )


def request(sender_mac, sender, target, destination=BROADCAST):
    """An ARP request as it is on the wire."""
    mac = bytes.fromhex(sender_mac.replace(":", ""))
    return (
        bytes.fromhex(destination.replace(":", ""))
        + mac
        + b"\x08\x06\x00\x01\x08\x00\x06\x04\x00\x01"
        + mac
        + socket.inet_aton(sender)
        + bytes(6)
        + socket.inet_aton(target)
    )


def vxlan_of(frame):
    """The VNI and the frame that are in a VXLAN packet over IPv4, or nothing."""
    if len(frame) < 34 or frame[12:14] != b"\x08\x00" or frame[23] != socket.IPPROTO_UDP:
        return None
    udp = 14 + (frame[14] & 15) * 4
    if len(frame) < udp + 16 or struct.unpack_from("!H", frame, udp + 2)[0] != _VXLAN_PORT:
        return None
    return int.from_bytes(frame[udp + 12 : udp + 15], "big"), frame[udp + 16 :]


class Tap:
    """Listens on a device from the moment it is made. What is not taken waits. It does not see what
    it sends itself."""

    def __init__(self, namespace, device):
        with namespace.entered():
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
            self._socket.setsockopt(socket.SOL_SOCKET, 33, 64 << 20)  # SO_RCVBUFFORCE
            self._socket.setsockopt(socket.SOL_SOCKET, _SO_TIMESTAMPNS, 1)
            self._socket.bind((device, _ETH_P_ALL))
        self._socket.setblocking(False)
        self._device = device
        self.lost = False  # whether the device has gone down or away

    def close(self):
        self._socket.close()

    def send(self, frame):
        self._socket.send(frame)

    def take(self):
        """What has come since it was last taken. Raises RuntimeError if frames were missed."""
        frames = []
        while True:
            try:
                data, control, _, origin = self._socket.recvmsg(65536, socket.CMSG_SPACE(16))
            except BlockingIOError:
                break
            except OSError as error:
                if error.errno != errno.ENETDOWN:
                    raise
                self.lost = True  # said once, in front of the frames that came before
                continue
            seconds, nanoseconds = struct.unpack("qq", control[0][2])
            outgoing = origin[2] == socket.PACKET_OUTGOING
            frames.append(Frame(data, seconds * 10**9 + nanoseconds, outgoing))
        statistics = self._socket.getsockopt(_SOL_PACKET, _PACKET_STATISTICS, 8)
        missed = struct.unpack("II", statistics)[1]
        if missed:
            raise RuntimeError(f"the observer of {self._device} has missed {missed} frames")
        return frames


class Wire:
    """Listens where the links of the leaves arrive at the spine."""

    def __init__(self, spine, device_by_leaf):
        self._taps = {leaf: Tap(spine, device) for leaf, device in device_by_leaf.items()}

    def close(self):
        for tap in self._taps.values():
            tap.close()

    def take(self):
        """The ARP packets that the leaves have sent each other since they were last taken."""
        carried = []
        for leaf, tap in self._taps.items():
            for frame in tap.take():
                packet = None if frame.outgoing else vxlan_of(frame.data)
                arp = arp_of(packet[1]) if packet else None
                if arp:
                    carried.append(Carried(leaf, packet[0], arp, frame.nanoseconds))
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
