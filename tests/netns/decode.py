#!/usr/bin/python3
"""Takes frames apart with scapy, for tests of what others have put together.

Standard input has a frame per line, in hexadecimal digits. Standard output is a JSON array with an
array per frame: the frame's layers from the outside in, each an object with its fields.
"""

import json
import sys

try:
    from scapy.contrib.mpls import EoMCW, MPLS
    from scapy.fields import IntField, ShortField
    from scapy.layers.l2 import ARP, Dot1Q, Ether
    from scapy.packet import Packet, bind_layers
except ImportError as error:
    sys.exit(f"{error}: install python3-scapy")


class Trap(Packet):
    """The header of the forwarding plane in a frame that it traps."""

    fields_desc = [ShortField("zero1", 0), IntField("vlan", 0), IntField("srcIfIndex", 0),
                   IntField("zero2", 0), ShortField("type", 0)]


bind_layers(Ether, Trap, type=0x8135)
bind_layers(Trap, ARP, type=0x0806)
bind_layers(Trap, Dot1Q, type=0x8100)
bind_layers(Dot1Q, MPLS, type=0x8847)

FIELDS = {
    Ether: ("dst", "src", "type"),
    Dot1Q: ("prio", "id", "vlan", "type"),
    Trap: ("zero1", "vlan", "srcIfIndex", "zero2", "type"),
    MPLS: ("label", "cos", "s", "ttl"),
    EoMCW: ("zero", "reserved", "seq"),
    ARP: ("hwtype", "ptype", "hwlen", "plen", "op", "hwsrc", "psrc", "hwdst", "pdst"),
}


def described(packet):
    while packet:
        kind = type(packet)
        fields = {name: packet.getfieldval(name) for name in FIELDS.get(kind, ())}
        if kind not in FIELDS:
            fields["bytes"] = bytes(packet).hex()
        yield {"layer": kind.__name__, **fields}
        if kind not in FIELDS:
            return
        packet = packet.payload


def main():
    frames = [bytes.fromhex(line) for line in sys.stdin]
    json.dump([list(described(Ether(frame))) for frame in frames], sys.stdout)


main()
