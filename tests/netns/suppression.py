"""The agent in the place of the kernel's own suppression: what one leaf floods through its tunnel,
counted between the leaves."""

import os
import signal
import threading
import time

from fabric import asking
from fabric.namespaces import eventually
from fabric.wire import Tap, arp_of, request
from leafcase import LeafCase, main


class SuppressionTest(LeafCase):
    """What one leaf floods through its tunnel."""

    def test_off_on_and_off_again(self):
        self.agent.configure(mpls=False)
        self.agent.start()
        self.leaf.fdb_entry("replace", self.h21)
        self.leaf.neighbour("replace", self.h21)
        self.assert_flooded(self.h11, self.h21)
        self.agent.configure(mpls=True)
        self.agent.reload()
        self.await_trapping(self.h11, self.h21)
        eventually(lambda: not self.ask(self.h11, self.h21, 1).floods, 60, "suppression")
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
        eventually(lambda: self.ask(self.h11, self.h21, 1).floods, 60, "the binding is gone")
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
                    lambda: self.agent.control("show", "vlans", check=False), 60, "it answers"
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

    def test_switching_it_off_and_on_loses_nothing(self):
        self.start()
        self.bind(self.h21)

        def switch():
            for mpls in (False, True) * 3:
                time.sleep(0.3)
                with open(f"{self.agent.runtime}/lock", encoding="ascii") as lock:
                    process = int(lock.read())
                os.kill(process, signal.SIGSTOP)
                self.agent.configure(mpls=mpls)
                self.agent.reload()
                time.sleep(0.05)
                os.kill(process, signal.SIGCONT)
            time.sleep(1)

        tap = Tap(self.h11.namespace, "eth0")
        self.addCleanup(tap.close)
        self.fabric.wire.settle()
        frame = request(self.h11.mac, self.h11.address, self.h21.address)
        requests = 0
        meanwhile = threading.Thread(target=switch)
        meanwhile.start()
        while meanwhile.is_alive():
            tap.send(frame)
            requests += 1
            time.sleep(0.0005)
        meanwhile.join()
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
    main()
