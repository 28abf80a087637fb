"""Two leaves, the wire between them and their hosts.

    h11 h12 h13 h14                                   h21 h22 h23 h24
      |   |   |   |                                     |   |   |   |
    +---------------+  uplink +---------+ uplink  +---------------+
    |     leaf1     |---------|  spine  |---------|     leaf2     |
    +---------------+         +---------+         +---------------+

VLANs 10 and 20 are routed in the leaf's own namespace, where FRR sees its neighbours and advertises
them. VLAN 30 is routed in a second VRF, "red", which is another namespace; FRR knows the MAC
addresses of its hosts only. A leaf does not forward between its uplink and its VLANs: it is an EVPN
bridge with one gateway address per VLAN.
"""

import enum
import json
import shutil
from dataclasses import dataclass, field
from typing import NamedTuple

from . import namespaces
from .frr import Frr, directory_of
from .namespaces import Namespace, eventually
from .wire import Wire

VRF = "red"
VRF_VLAN = 30
VNI = {10: 10010, 20: 10020, VRF_VLAN: 10030}  # by VLAN
VLANS = tuple(VNI)


class Binding(NamedTuple):
    """Which MAC address an IP address is at."""

    vlan: int
    address: str
    mac: str

    def __str__(self):
        return f"VLAN {self.vlan} {self.address} {self.mac}"


class Owner(enum.Enum):
    """Whose an entry of the kernel's neighbour table is."""

    KERNEL = "learnt"
    CONTROL_PLANE = "the control plane's"
    AGENT = "the agent's"

    def __str__(self):
        return self.value


@dataclass
class Host:
    """A host with one device, eth0."""

    name: str
    vlan: int
    leaf: "Leaf"
    number: str  # the leaf's at first, and its own: both addresses end in it
    namespace: Namespace = field(repr=False)

    @property
    def address(self):
        return f"10.0.{self.vlan}.{self.number}"

    @property
    def mac(self):
        return f"02:00:00:00:{self.vlan}:{self.number}"

    @property
    def binding(self):
        return Binding(self.vlan, self.address, self.mac)

    @property
    def port(self):
        """Its device on the leaf."""
        return f"et-{self.name}"

    def ping_gateway(self):
        """So the leaf knows the host, and FRR advertises it."""
        gateway = self.leaf.gateway(self.vlan)
        self.namespace.run("ping", "-q", "-c", "1", "-W", "2", gateway, check=False)


class Leaf:
    """A switch: a bridge with a tunnel per VLAN, and FRR."""

    def __init__(self, number, prefix):
        self.number = number
        self.name = f"leaf{number}"
        self.mac = f"02:00:00:00:00:0{number}"
        self.underlay = f"192.0.2.{number}"
        self.namespace = Namespace(f"{prefix}-{self.name}")
        self.vrf_namespace = Namespace(f"{prefix}-{self.name}-{VRF}")
        self.frr = None

    def gateway(self, vlan):
        return f"10.0.{vlan}.{self.number}"

    def bridge(self, vlan):
        return f"br{vlan}" if vlan == VRF_VLAN else f"Vlan{vlan}"

    def routing_namespace(self, vlan):
        """Where the VLAN's routed interface is."""
        return self.vrf_namespace if vlan == VRF_VLAN else self.namespace

    def connect(self):
        """Addresses, bridges and tunnels; the uplink is there."""
        self.namespace.links(f"addr add {self.underlay}/24 dev uplink", "link set uplink up")
        for vlan in VLANS:
            self._bridge(vlan)

    def _bridge(self, vlan):
        bridge, tunnel = self.bridge(vlan), f"vxlan{vlan}"
        mac = f"02:00:00:00:{vlan}:0{self.number}" if vlan == VRF_VLAN else self.mac
        # The tunnel leaves all learning to BGP.
        self.namespace.links(
            f"link add {bridge} address {mac} type bridge stp_state 0 forward_delay 0"
            " mcast_snooping 0",
            f"link add {tunnel} type vxlan id {VNI[vlan]} local {self.underlay} dstport 4789"
            " nolearning",
            f"link set {tunnel} master {bridge}",
            f"link set {tunnel} type bridge_slave learning off neigh_suppress off",
            f"link set {tunnel} up",
            f"link set {bridge} up",
        )
        if vlan == VRF_VLAN:
            self.namespace.links(
                f"link add {VRF}{vlan} type veth peer name Vlan{vlan} address {self.mac}"
                f" netns {self.vrf_namespace.name}",
                f"link set {VRF}{vlan} master {bridge} up",
            )
        self.routing_namespace(vlan).links(
            f"link set Vlan{vlan} up", f"addr add {self.gateway(vlan)}/24 dev Vlan{vlan}"
        )

    def plug(self, host):
        """The host's cable: its end at the leaf becomes a port of its VLAN."""
        self.namespace.links(
            f"link add {host.port} type veth peer name eth0 address {host.mac}"
            f" netns {host.namespace.name}"
        )
        host.namespace.links("link set eth0 up", f"addr add {host.address}/24 dev eth0")
        self.port_up(host)

    def port_up(self, host):
        self.namespace.links(
            f"link set {host.port} master {self.bridge(host.vlan)}", f"link set {host.port} up"
        )

    def knows(self, host):
        """Whether the kernel has the host as a neighbour that it found itself."""
        return self.owner(host) is Owner.KERNEL

    def forget(self, host):
        """The kernel has not heard of the host."""
        self.routing_namespace(host.vlan).run(
            "ip", "neigh", "del", host.address, "dev", f"Vlan{host.vlan}"
        )

    def neighbours(self, vlan):
        """What the kernel has in its neighbour table, by whose it is: Binding to Owner."""
        shown = self.routing_namespace(vlan).run("ip", "-j", "neigh", "show", "dev", f"Vlan{vlan}")
        found = {}
        for row in json.loads(shown.stdout or "[]"):
            if "lladdr" not in row or "FAILED" in row["state"]:
                continue
            if "extern_learn" in row:
                owner = Owner.CONTROL_PLANE
            elif "PERMANENT" in row["state"] and row.get("protocol") == "110":
                owner = Owner.AGENT
            else:
                owner = Owner.KERNEL
            found[Binding(vlan, row["dst"], row["lladdr"])] = owner
        return found

    def owner(self, host):
        """Whose entry the kernel has for a host, if it has any."""
        return self.neighbours(host.vlan).get(host.binding)

    def remote_neighbours(self):
        """What FRR has put into the kernel's neighbour table."""
        return {
            binding
            for vlan in VLANS
            if vlan != VRF_VLAN
            for binding, owner in self.neighbours(vlan).items()
            if owner is Owner.CONTROL_PLANE
        }

    def remote_macs(self):
        """What FRR has put into the FDB: (VLAN, MAC)."""
        found = set()
        for vlan in VLANS:
            shown = self.namespace.run("bridge", "fdb", "show", "dev", f"vxlan{vlan}").stdout
            for line in shown.splitlines():
                if "extern_learn" in line and "master" in line:
                    found.add((vlan, line.split()[0]))
        return found

    def flood_to(self, other):
        """Makes the flood lists by hand."""
        self.namespace.run(
            "bridge",
            "-batch",
            "-",
            text="".join(
                f"fdb append 00:00:00:00:00:00 dev vxlan{vlan} dst {other.underlay}\n"
                for vlan in VLANS
            ),
        )

    def fdb_entry(self, command, host):
        """Adds ("replace") or removes ("del") a remote host's FDB entry, as FRR would."""
        tunnel = ["dev", f"vxlan{host.vlan}", "master"]
        how = [] if command == "del" else ["extern_learn"]
        self.namespace.run("bridge", "fdb", command, host.mac, *tunnel, *how)
        self.namespace.run(
            "bridge", "fdb", command, host.mac, *tunnel[:2], "self", "dst", host.leaf.underlay, *how
        )

    def neighbour(self, command, host):
        """Adds ("replace") or removes ("del") a remote host's neighbour entry, as FRR would."""
        where = [host.address, "dev", f"Vlan{host.vlan}"]
        how = ["lladdr", host.mac, "nud", "noarp", "extern_learn", "proto", "zebra"]
        self.routing_namespace(host.vlan).run(
            "ip", "neigh", command, *where, *([] if command == "del" else how)
        )

    def flood_list(self, vlan):
        """The remote tunnel end points that floods of a VLAN go to."""
        shown = self.namespace.run("bridge", "fdb", "show", "dev", f"vxlan{vlan}").stdout
        return {
            line.split()[line.split().index("dst") + 1]
            for line in shown.splitlines()
            if line.startswith("00:00:00:00:00:00") and "dst" in line
        }


class Fabric:
    """Is up once start() has returned; stop() takes it down, from whatever state."""

    HOSTS = {"1": 10, "2": 10, "3": 20, "4": 30}  # last digit, VLAN

    def __init__(self, name):
        self.name = name
        self.leaves = {}
        self.hosts = {}
        self.wire = None

    def start(self, bgp=True):
        """Links, hosts that their leaves know, and then either FRR and BGP, until each leaf knows
        the hosts of the other, or flood lists made by hand."""
        spine = Namespace(f"{self.name}-spine")
        spine.links("link add underlay type bridge forward_delay 0 mcast_snooping 0")
        spine.links("link set underlay up")
        for number in (1, 2):
            leaf = self.leaves[number] = Leaf(number, self.name)
            spine.links(
                f"link add leaf{number} mtu 1600 type veth peer name uplink mtu 1600"
                f" netns {leaf.namespace.name}",
                f"link set leaf{number} master underlay up",
            )
            leaf.connect()
            for last, vlan in self.HOSTS.items():
                self._add_host(leaf, f"{number}{last}", vlan)
        self.wire = Wire(spine, {number: f"leaf{number}" for number in self.leaves})
        if bgp:
            self._start_bgp()
        else:
            for leaf in self.leaves.values():
                leaf.flood_to(self.other(leaf))
        for host in self.hosts.values():
            self.introduce(host)
        if bgp:
            for leaf in self.leaves.values():
                self.await_routes(leaf)

    def _start_bgp(self):
        for leaf in self.leaves.values():
            leaf.frr = Frr(leaf.namespace, leaf.underlay, self.other(leaf).underlay)
            leaf.frr.start()
        for leaf in self.leaves.values():
            eventually(leaf.frr.established, 60, f"BGP session of {leaf.name}", 0.1)
            for vlan in VLANS:
                eventually(
                    lambda leaf=leaf, vlan=vlan: leaf.flood_list(vlan),
                    10,
                    f"{leaf.name} has a flood list for VLAN {vlan}",
                    0.1,
                )

    def stop(self):
        if self.wire:
            self.wire.close()
        take_down(self.name)
        for leaf in self.leaves.values():
            if leaf.frr:
                leaf.frr.wait()

    def other(self, leaf):
        return self.leaves[3 - leaf.number]

    def hosts_of(self, leaf):
        return [host for host in self.hosts.values() if host.leaf is leaf]

    def expected_neighbours(self, leaf):
        """What a leaf should know of the other's hosts through BGP."""
        return {
            host.binding
            for host in self.hosts_of(self.other(leaf))
            if host.vlan != VRF_VLAN
        }

    def await_routes(self, leaf):
        """Until the kernel of a leaf has its own hosts as neighbours, and the other's there and in
        its FDB."""
        for host in self.hosts_of(leaf):
            eventually(lambda host=host: leaf.knows(host), 60, f"{leaf.name} knows {host.name}")
        eventually(
            lambda: leaf.remote_neighbours() == self.expected_neighbours(leaf),
            60,
            f"{leaf.name} has the other's hosts as neighbours",
        )
        macs = {(host.vlan, host.mac) for host in self.hosts_of(self.other(leaf))}
        eventually(
            lambda: leaf.remote_macs() >= macs, 60, f"{leaf.name} has the other's hosts in its FDB"
        )

    def move(self, host):
        """Pulls a host's cable out and plugs it into the other leaf, where the host then talks."""
        source, host.leaf = host.leaf, self.other(host.leaf)
        source.namespace.links(f"link set {host.port} netns {host.leaf.namespace.name}")
        host.leaf.port_up(host)
        self.introduce(host)

    def introduce(self, host):
        """The host talks until its leaf knows it. Once is not enough after a move: zebra removes
        the neighbour that it had as a remote one only after it has seen the host at its new port.
        """

        def known():
            host.ping_gateway()
            return host.leaf.knows(host)

        eventually(known, 60, f"{host.leaf.name} knows {host.name}", 0.1)

    def _add_host(self, leaf, number, vlan):
        name = f"h{number}"
        host = Host(name, vlan, leaf, number, Namespace(f"{self.name}-{name}"))
        self.hosts[name] = host
        leaf.plug(host)


def take_down(name):
    """Ends and removes all that a fabric of this name consists of."""
    names = namespaces.present(f"{name}-")
    namespaces.take_down(f"{name}-")
    for namespace in names:
        shutil.rmtree(directory_of(namespace), ignore_errors=True)
