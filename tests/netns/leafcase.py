"""A leaf with an agent, in the demo's fabric. The entries of the control plane are made by hand,
but for tests that want BGP."""

import os
import shutil
import sys
import tempfile
import unittest

from fabric import asking
from fabric.agent import Agent
from fabric.fabric import Fabric
from fabric.namespaces import eventually


class LeafCase(unittest.TestCase):
    """h11 and h14 ask, on a leaf with an agent, for h21 and h24 behind the other leaf."""

    programs = ""
    bgp = False

    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="leaf")
        self.addCleanup(shutil.rmtree, self.directory)
        self.fabric = Fabric(f"leaf{os.getpid()}")
        self.addCleanup(self.fabric.stop)
        self.fabric.start(self.bgp)
        self.leaf = self.fabric.leaves[1]
        self.agent = Agent(self.leaf, self.programs, f"{self.directory}/leaf1")
        self.h11, self.h12, self.h14, self.h21, self.h24 = (
            self.fabric.hosts[name] for name in ("h11", "h12", "h14", "h21", "h24")
        )

    def tearDown(self):
        if self.agent.running():
            self.assertEqual(self.agent.stop(), 0)

    def ask(self, host, target, times=2):
        return asking.ask(self.fabric, host, asking.request(target.address), times)

    def assert_flooded(self, host, target, times=2):
        """Every request goes through the tunnel once, and its owner replies to it once."""
        asked = self.ask(host, target, times)
        self.assertEqual(asked.requests, times)
        self.assertEqual(len(asked.floods), times)
        self.assertEqual(asked.answers, {target.mac: times})

    def assert_suppressed(self, host, target, times=2):
        """No request goes through the tunnel, and one reply comes to each."""
        asked = self.ask(host, target, times)
        self.assertEqual(asked.requests, times)
        self.assertEqual(asked.floods, [])
        self.assertEqual(asked.answers, {target.mac: times})

    def trapped(self):
        return self.agent.counters().get("trapArpRequest", 0)

    def await_trapping(self, host, target):
        """Until the agent is asked about the requests of a VLAN."""

        def trapped():
            before = self.trapped()
            self.ask(host, target, 1)
            return self.trapped() > before

        eventually(trapped, 60, f"requests in VLAN {host.vlan} are trapped")

    def await_not_trapping(self, host, target):
        def passed():
            before = self.trapped()
            self.ask(host, target, 1)
            return self.trapped() == before

        eventually(passed, 60, f"requests in VLAN {host.vlan} pass")

    def start(self, *trapping):
        self.agent.start()
        for host, target in trapping or ((self.h11, self.h21),):
            self.await_trapping(host, target)

    def bind(self, host):
        """Tells the leaf of a remote host, and waits until the agent answers for it."""
        self.leaf.fdb_entry("replace", host)
        self.leaf.neighbour("replace", host)
        asker = self.h11 if host is self.h21 else self.h14
        eventually(lambda: not self.ask(asker, host, 1).floods, 60, "the binding counts")


def main():
    """PROGRAMS [TEST...]: with the fabric's package in PYTHONPATH, as root."""
    if os.geteuid() != 0:
        sys.exit("network namespaces need root")
    if not os.path.exists("/usr/bin/arping"):
        sys.exit("there is no arping: iputils-arping is missing")
    LeafCase.programs = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
