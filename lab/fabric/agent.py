"""arpsupd on one leaf."""

import collections
import json
import os
import re
import signal

from .fabric import VNI, VRF, VRF_VLAN, Binding
from .namespaces import run


class Agent:
    """What it owns on disk is below the directory, which must not exist yet. Static bindings are
    what it is told of the other leaf's hosts in the second VRF, where no control plane finds
    them."""

    def __init__(self, leaf, programs, directory, static_bindings=frozenset()):
        self.leaf = leaf
        self._programs = programs
        self._directory = directory
        self.runtime = f"{directory}/runtime"
        self._configuration = f"{directory}/arpsupd.toml"
        self.log = f"{directory}/arpsupd.log"
        self._process = None
        self.static_bindings = static_bindings
        self.selective_install = False
        for name in ("", "/log", "/toggles"):
            os.makedirs(directory + name)
        self.configure()

    def configure(self, mpls=True):
        """Writes its configuration. Suppression runs only with EVPN over MPLS."""
        with open(self._configuration, "w", encoding="ascii") as file:
            file.write(self._text(mpls))

    def reload(self):
        self._process.send_signal(signal.SIGHUP)

    def start(self):
        daemon = f"{self._programs}/Host/arpsupd"
        run(daemon, "--check", "--config", self._configuration)
        self._process = self.leaf.namespace.start(
            daemon, "--config", self._configuration, log=self.log
        )

    def stop(self):
        """A clean stop. Gives the exit status."""
        return self._end(signal.SIGTERM)

    def kill(self):
        self._end(signal.SIGKILL)

    def running(self):
        return self._process is not None

    @property
    def pid(self):
        return self._process.pid

    def control(self, *arguments, check=True):
        """What arpsupctl prints."""
        program = f"{self._programs}/Ctl/arpsupctl"
        return run(program, "--runtime-directory", self.runtime, *arguments, check=check).stdout

    def counters(self):
        """All counters by name; none if no agent has run yet."""
        return {row["name"]: row["count"] for row in self._rows("counters", "--all")}

    def bindings(self):
        """The remote bindings that it has."""
        return _bindings(self._rows("bindings", "remote"))

    def local_bindings(self):
        """The bindings of its own hosts, as far as it knows them."""
        return _bindings(self._rows("bindings", "local"))

    def asked_for(self):
        """How many neighbour entries it asks for, by what has become of them."""
        shown = self._rows("neighbours") or {"entries": []}
        return collections.Counter(entry["outcome"] for entry in shown["entries"])

    def listens_for(self, mac):
        """Whether it takes replies to a virtual address that gateways share."""
        shown = self.control("show", "tech-support", check=False)
        listeners = re.search(r"varpReplyV4Sm\[\] #(\d+)", shown)
        return f"varpVirtualMac={mac}" in shown and listeners and int(listeners[1]) > 0

    def active_vlans(self):
        """Those that it has published as active; none if it cannot be asked."""
        return {row["vlan"] for row in self._rows("vlans") if row["active"]}

    def forwarding_plane(self):
        """What show forwarding-plane says; nothing if it cannot be asked."""
        return self._rows("forwarding-plane") or {}

    def _rows(self, *what):
        shown = self.control("show", *what, "-j", check=False)
        return json.loads(shown) if shown else []

    def _end(self, number):
        process, self._process = self._process, None
        process.send_signal(number)
        return process.wait(10)

    def _text(self, mpls):
        lines = [
            f'runtime_directory = "{self.runtime}"',
            f'log_directory = "{self._directory}/log"',
            f'toggle_directory = "{self._directory}/toggles"',
            "[bridging]",
            f'mac = "{self.leaf.mac}"',
            "[evpn]",
            f"mpls = {str(mpls).lower()}",
        ]
        if self.selective_install:
            lines += ["[l2vpn]", "selective_arp_install = true"]
        for vlan, vni in VNI.items():
            lines += ["[[evpn.vlan]]", f"vlan = {vlan}", f"imet_label = {vni}"]
        lines += [
            "[[vrf]]",
            f'name = "{VRF}"',
            f'namespace = "{self.leaf.vrf_namespace.name}"',
            "[linux]",
            "[[linux.vlan]]",
            f"vlan = {VRF_VLAN}",
            f'bridge = "{self.leaf.bridge(VRF_VLAN)}"',
        ]
        for _, address, mac in sorted(self.static_bindings):
            lines += [
                "[[remote_binding]]",
                f"vlan = {VRF_VLAN}",
                f'ip = "{address}"',
                f'mac = "{mac}"',
            ]
        return "\n".join(lines) + "\n"


def _bindings(rows):
    return {Binding(row["vlan"], row["ip"], row["mac"]) for row in rows}
