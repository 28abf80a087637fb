"""FRR on one leaf: zebra and bgpd, with EVPN towards the other."""

import json
import os
import shutil
import signal

from .namespaces import eventually

_PROGRAMS = "/usr/lib/frr"
_RUN = "/run/frr"
_AS = 65000


def directory_of(name):
    """Where the FRR of a namespace has its files."""
    return f"{_RUN}/{name}"


class Frr:
    """Both daemons run in the foreground as children, under the name of their namespace: what they
    own is in a directory of that name, which belongs to their user."""

    def __init__(self, namespace, address, neighbour):
        self._namespace = namespace
        self._address = address
        self._neighbour = neighbour
        self._running = {}
        os.makedirs(self.directory, exist_ok=True)
        for path in (_RUN, self.directory):
            shutil.chown(path, "frr", "frr")
        self._write("zebra", ["no ipv6 forwarding"])
        self._write(
            "bgpd",
            [
                f"router bgp {_AS}",
                f" bgp router-id {address}",
                " no bgp default ipv4-unicast",
                " timers bgp 1 3",
                f" neighbor {neighbour} remote-as {_AS}",
                f" neighbor {neighbour} timers connect 1",
                f" neighbor {neighbour} advertisement-interval 0",
                " address-family l2vpn evpn",
                f"  neighbor {neighbour} activate",
                "  advertise-all-vni",
                " exit-address-family",
            ],
        )

    @property
    def directory(self):
        return directory_of(self._namespace.name)

    def start(self):
        self.start_daemon("zebra")
        eventually(lambda: os.path.exists(f"{self.directory}/zserv.api"), 60, "zebra's socket")
        self.start_daemon("bgpd")

    def start_daemon(self, daemon):
        # -N alone would prefer a configuration below /etc/frr, if there is one.
        self._running[daemon] = self._namespace.start(
            f"{_PROGRAMS}/{daemon}",
            "-N",
            self._namespace.name,
            "-f",
            f"{self.directory}/{daemon}.conf",
            "-P",
            "0",
            log=f"{self.directory}/{daemon}.log",
        )

    def kill_daemon(self, daemon):
        self.end_daemon(daemon, signal.SIGKILL)

    def end_daemon(self, daemon, number):
        process = self._running.pop(daemon)
        process.send_signal(number)
        process.wait(10)

    def wait(self):
        """Until both daemons, which somebody has ended, are gone."""
        while self._running:
            self._running.popitem()[1].wait(10)

    def established(self):
        peers = self._show("show bgp l2vpn evpn summary").get("peers", {})
        return peers.get(self._neighbour, {}).get("state") == "Established"

    def mac_ip_routes(self):
        """The MAC-IP routes that the other leaf has advertised: (VNI, address, MAC)."""
        routes = set()
        for vni, content in self._show("show evpn arp-cache vni all").items():
            for address, entry in content.items():
                if isinstance(entry, dict) and entry.get("type") == "remote":
                    routes.add((int(vni), address, entry["mac"]))
        return routes

    def _show(self, command):
        done = self._namespace.run(
            "vtysh", "-N", self._namespace.name, "-c", f"{command} json", check=False
        )
        try:
            return json.loads(done.stdout)
        except json.JSONDecodeError:
            return {}  # the daemon is not there (yet)

    def _write(self, daemon, lines):
        path = f"{self.directory}/{daemon}.conf"
        with open(path, "w", encoding="ascii") as file:
            file.write("\n".join(lines) + "\n")
        shutil.chown(path, "frr", "frr")
