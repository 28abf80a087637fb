"""The agent in the place of the kernel's own suppression: what one leaf floods through its tunnel,
counted between the leaves. The entries of the control plane are made by hand.

suppression.py PROGRAMS [TEST...]: with the fabric's package in PYTHONPATH, as root."""

import os
import shutil
import signal
import sys
import tempfile
import threading
import time
import unittest

from fabric import asking
from fabric.agent import Agent
from fabric.fabric import Fabric
from fabric.namespaces import eventually
from fabric.wire import Tap, arp_of, request

programs = ""


class SuppressionTest(unittest.TestCase):
    """h11 and h14 ask, on a leaf with an agent, for h21 and h24 behind the other leaf."""

    def setUp(self):
        directory = tempfile.mkdtemp(prefix="suppression")
        self.addCleanup(shutil.rmtree, directory)
        self.fabric = Fabric(f"suppression{os.getpid()}")
        self.addCleanup(self.fabric.stop)
        self.fabric.start(bgp=False)
        self.leaf = self.fabric.leaves[1]
        self.agent = Agent(self.leaf, programs, f"{directory}/leaf1")
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

        eventually(trapped, 20, f"requests in VLAN {host.vlan} are trapped")

    def await_not_trapping(self, host, target):
        def passed():
            before = self.trapped()
            self.ask(host, target, 1)
            return self.trapped() == before

        eventually(passed, 20, f"requests in VLAN {host.vlan} pass")

    def start(self, *trapping):
        self.agent.start()
        for host, target in trapping or ((self.h11, self.h21),):
            self.await_trapping(host, target)

    def bind(self, host):
        """Tells the leaf of a remote host, and waits until the agent answers for it."""
        self.leaf.fdb_entry("replace", host)
        self.leaf.neighbour("replace", host)
        asker = self.h11 if host is self.h21 else self.h14
        eventually(lambda: not self.ask(asker, host, 1).floods, 20, "the binding counts")

    def test_off_on_and_off_again(self):
        self.agent.configure(mpls=False)
        self.agent.start()
        self.leaf.fdb_entry("replace", self.h21)
        self.leaf.neighbour("replace", self.h21)
        self.assert_flooded(self.h11, self.h21)
        self.agent.configure(mpls=True)
        self.agent.reload()
        self.await_trapping(self.h11, self.h21)
        eventually(lambda: not self.ask(self.h11, self.h21, 1).floods, 20, "suppression")
        self.assert_suppressed(self.h11, self.h21)
        self.agent.configure(mpls=False)
        self.agent.reload()
        self.await_not_trapping(self.h11, self.h21)
        self.assert_flooded(self.h11, self.h21)

    def test_without_binding(self):
        self.start()
        before = self.trapped()
        self.assert_flooded(self.h11, self.h21)
        self.assertEqual(self.trapped(), before + 2)

    def test_with_fdb_entry_only(self):
        self.start()
        self.leaf.fdb_entry("replace", self.h21)
        self.assert_flooded(self.h11, self.h21, times=5)

    def test_with_binding(self):
        self.start()
        self.bind(self.h21)
        self.assert_suppressed(self.h11, self.h21, times=5)

    def test_binding_removed(self):
        self.start()
        self.bind(self.h21)
        self.leaf.neighbour("del", self.h21)
        eventually(lambda: self.ask(self.h11, self.h21, 1).floods, 20, "the binding is gone")
        self.assert_flooded(self.h11, self.h21)

    def test_remote_host_down(self):
        # The binding stands as long as the control plane has not withdrawn it.
        self.start()
        self.bind(self.h21)
        self.h21.namespace.links("link set eth0 down")
        self.assert_suppressed(self.h11, self.h21)

    def test_local_host(self):
        # It replies itself, and nobody behind the tunnel needs to hear of it.
        self.start()
        self.assert_suppressed(self.h11, self.h12)

    def test_probe_and_announcement_are_always_forwarded(self):
        # Linux's own suppression keeps both from the tunnel once it is on.
        self.start()
        self.bind(self.h21)
        probe = asking.ask(self.fabric, self.h11, asking.probe(self.h21.address), 2)
        self.assertEqual(len(probe.floods), 2)
        self.assertEqual(probe.answers, {self.h21.mac: 2})
        announced = asking.ask_at_once(self.fabric, self.h11, asking.announcement(self.h11), 2)
        self.assertEqual(len(announced.floods), 2)
        self.assertEqual(announced.answers, {})

    def test_unicast_request_has_one_reply_from_the_owner(self):
        self.start()
        self.bind(self.h21)
        before = self.trapped()
        self.fabric.wire.settle()
        tap = Tap(self.h11.namespace, "eth0")
        self.addCleanup(tap.close)
        tap.send(
            request(self.h11.mac, self.h11.address, self.h21.address, self.h21.mac)
        )
        carried = [item.arp for item in self.fabric.wire.settle()]
        replies = [arp_of(frame.data) for frame in tap.take() if not frame.outgoing]
        self.assertEqual([reply.source for reply in replies if reply], [self.h21.mac])
        self.assertEqual(
            [(arp.request, arp.source, arp.destination) for arp in carried],
            [(True, self.h11.mac, self.h21.mac), (False, self.h21.mac, self.h11.mac)],
        )
        self.assertEqual(self.trapped(), before)

    def test_each_vlan_for_itself(self):
        # VLAN 30 has no binding: without its routed interface it is not active.
        self.leaf.vrf_namespace.links("link set Vlan30 down")
        self.start()
        self.bind(self.h21)
        before = self.trapped()
        self.assert_flooded(self.h14, self.h24)
        self.assertEqual(self.trapped(), before)
        self.assert_suppressed(self.h11, self.h21)
        self.leaf.vrf_namespace.links("link set Vlan30 up")
        self.await_trapping(self.h14, self.h24)
        self.bind(self.h24)
        self.assert_suppressed(self.h14, self.h24)
        self.assert_suppressed(self.h11, self.h21)

    def test_clean_stop_and_start_lose_nothing(self):
        self.start()
        self.bind(self.h21)
        statuses = []

        def restart():
            for _ in range(3):
                time.sleep(0.3)
                # It stops while it has requests to work off.
                with open(f"{self.agent.runtime}/lock", encoding="ascii") as lock:
                    process = int(lock.read())
                os.kill(process, signal.SIGSTOP)
                threading.Timer(0.05, os.kill, (process, signal.SIGCONT)).start()
                statuses.append(self.agent.stop())
                self.agent.start()
                eventually(
                    lambda: self.agent.control("show", "vlans", check=False), 20, "it answers"
                )
            time.sleep(1)

        tap = Tap(self.h11.namespace, "eth0")
        self.addCleanup(tap.close)
        self.fabric.wire.settle()
        frame = request(self.h11.mac, self.h11.address, self.h21.address)
        requests = 0
        meanwhile = threading.Thread(target=restart)
        meanwhile.start()
        while meanwhile.is_alive():
            tap.send(frame)
            requests += 1
            time.sleep(0.0005)
        meanwhile.join()
        self.assertEqual(statuses, [0, 0, 0])
        floods = [item for item in self.fabric.wire.settle() if item.arp.request]
        replies = [arp_of(frame.data) for frame in tap.take() if not frame.outgoing]
        self.assertEqual(
            sum(reply is not None and reply.source == self.h21.mac for reply in replies), requests
        )
        self.assertGreater(len(floods), 0)
        self.assertLess(len(floods), requests)

    def test_killed_agent_fails_open(self):
        self.start()
        self.bind(self.h21)
        killed = []

        def kill():
            self.agent.kill()
            killed.append(time.time_ns())

        asked = asking.ask_steadily(
            self.fabric, self.h11, asking.request(self.h21.address), 3.5, 0.1, kill
        )
        after = [exchange for exchange in asked.exchanges if exchange.sent > killed[0] + 2 * 10**9]
        self.assertGreater(len(after), 10)
        for exchange in after:
            self.assertEqual([mac for mac, _ in exchange.replies], [self.h21.mac])
        self.assertGreaterEqual(
            sum(flood > killed[0] + 2 * 10**9 for flood in asked.floods), len(after)
        )


if __name__ == "__main__":
    if os.geteuid() != 0:
        sys.exit("network namespaces need root")
    if not os.path.exists("/usr/bin/arping"):
        sys.exit("there is no arping: iputils-arping is missing")
    programs = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
