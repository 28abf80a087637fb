"""Local bindings and the kernel's neighbour entries, on a leaf with an agent."""

import json

from fabric import asking
from fabric.fabric import VRF, Owner
from fabric.monitor import Monitor
from fabric.namespaces import eventually
from leafcase import LeafCase, main

VIRTUAL_MAC = "02:00:5e:00:00:01"


class NeighbourCase(LeafCase):
    """The agent knows of h24 from its configuration: there the entries are its own to write."""

    def setUp(self):
        super().setUp()
        self.agent.static_bindings = {self.h24.binding}
        self.agent.configure()

    def speak(self, host):
        """The host asks for its gateway."""
        asking.ask(self.fabric, host, asking.request(host.leaf.gateway(host.vlan)))

    def await_local(self, host, local=True):
        eventually(
            lambda: (host.binding in self.agent.local_bindings()) == local,
            60,
            f"{host.name} is in the record: {local}",
        )

    def await_owner(self, host, owner):
        eventually(
            lambda: self.leaf.owner(host) is owner, 60, f"the entry of {host.name} is {owner}"
        )

    def ask_from_leaf(self, host):
        """The leaf's own kernel would ask like this."""
        self.leaf.routing_namespace(host.vlan).run(
            *("arping", "-b", "-c", "1", "-w", "1", "-I", f"Vlan{host.vlan}"),
            *("-s", self.leaf.gateway(host.vlan), host.address),
            check=False,
        )

    def monitor(self, vlan):
        monitor = Monitor(self.leaf.routing_namespace(vlan), f"{self.directory}/monitor{vlan}")
        self.addCleanup(monitor.end)
        return monitor

    def reload(self, *bindings, selective=False):
        self.agent.static_bindings = set(bindings)
        self.agent.selective_install = selective
        self.agent.configure()
        self.agent.reload()


class LocalBindingTest(NeighbourCase):
    """Who is in the record, and whose the entries are."""

    def test_host_that_speaks(self):
        self.leaf.forget(self.h12)
        self.start()
        self.leaf.forget(self.h11)
        self.await_local(self.h11, False)
        self.assertEqual(self.agent.local_bindings() & {self.h11.binding, self.h12.binding}, set())
        self.speak(self.h12)
        self.await_local(self.h12)
        self.await_owner(self.h12, Owner.KERNEL)
        self.assertNotIn(self.h11.binding, self.agent.local_bindings())

    def test_kernel_forgets_host(self):
        self.start()
        self.speak(self.h12)
        self.await_local(self.h12)
        self.await_owner(self.h12, Owner.KERNEL)
        self.leaf.forget(self.h12)
        self.await_local(self.h12, False)
        self.assertIsNone(self.leaf.owner(self.h12))

    def test_host_moves_away_and_back(self):
        self.start()
        self.speak(self.h12)
        self.await_local(self.h12)
        self.await_owner(self.h12, Owner.KERNEL)
        monitor = self.monitor(10)
        self.fabric.move(self.h12)
        self.leaf.fdb_entry("replace", self.h12)
        self.leaf.neighbour("replace", self.h12)
        self.await_local(self.h12, False)
        eventually(lambda: self.h12.binding in self.agent.bindings(), 60, "it is remote")
        self.assertIs(self.leaf.owner(self.h12), Owner.CONTROL_PLANE)
        self.assert_suppressed(self.h11, self.h12)
        monitor.end()
        self.assertFalse(monitor.lost(self.h12.binding))

        self.leaf.neighbour("del", self.h12)
        self.leaf.fdb_entry("del", self.h12)
        self.fabric.move(self.h12)
        self.assertIs(self.h12.leaf, self.leaf)
        self.await_local(self.h12)
        self.assertNotIn(self.h12.binding, self.agent.bindings())
        self.assertIs(self.leaf.owner(self.h12), Owner.KERNEL)

    def test_reply_to_virtual_gateway(self):
        self.start()
        self.leaf.forget(self.h12)
        self.await_local(self.h12, False)
        self.leaf.namespace.links(
            f"link add link Vlan10 name varp10 address {VIRTUAL_MAC} type macvlan mode bridge",
            "addr add 10.0.10.254/24 dev varp10",
            "link set varp10 up",
        )
        self.leaf.namespace.run(
            "bridge", "fdb", "replace", VIRTUAL_MAC, "dev", "Vlan10", "self", "local"
        )
        eventually(lambda: self.agent.listens_for(VIRTUAL_MAC), 60, "the agent listens")
        before = self.agent.counters()
        self.leaf.namespace.run(
            *("arping", "-b", "-c", "1", "-w", "1", "-I", "varp10", "-s", "10.0.10.254"),
            self.h12.address,
        )
        self.await_local(self.h12)
        after = self.agent.counters()
        self.assertEqual(after["varpArpAccepted"] - before["varpArpAccepted"], 1)
        # The request was trapped, too: its sender is nobody's host.
        self.assertEqual(after["bindingVarpMac"] - before["bindingVarpMac"], 1)
        self.assertNotIn(VIRTUAL_MAC, {mac for _, _, mac in self.agent.local_bindings()})


class EntryTest(NeighbourCase):
    """The entries that the agent asks for."""

    def test_follows_the_binding(self):
        self.agent.start()
        self.await_owner(self.h24, Owner.AGENT)
        self.await_trapping(self.h14, self.h24)
        monitor = self.monitor(30)
        self.fabric.move(self.h24)
        self.await_local(self.h24)
        self.await_owner(self.h24, Owner.KERNEL)
        self.reload()
        eventually(lambda: not self.agent.bindings(), 60, "the binding is withdrawn")
        self.assertIs(self.leaf.owner(self.h24), Owner.KERNEL)
        monitor.end()
        self.assertFalse(monitor.lost(self.h24.binding))

    def test_binding_is_withdrawn(self):
        self.agent.start()
        self.await_owner(self.h24, Owner.AGENT)
        monitor = self.monitor(30)
        self.reload()
        # The kernel is to find out whether the host is still to be had, but not by asking hosts
        # behind the tunnel.
        self.await_owner(self.h24, Owner.KERNEL)
        monitor.end()
        self.assertFalse(monitor.lost(self.h24.binding))
        asked = {item.arp.target for item in self.fabric.wire.settle() if item.arp.request}
        self.assertNotIn(self.h24.address, asked)

    def test_binding_is_withdrawn_without_refresh(self):
        with open(f"{self.directory}/leaf1/toggles/EvpnLib.json", "w", encoding="ascii") as file:
            file.write('{ "EvpnMplsProxyArpRefresh": false }')
        self.agent.start()
        self.await_owner(self.h24, Owner.AGENT)
        self.reload()
        self.await_owner(self.h24, None)

    def test_control_plane_serves(self):
        self.leaf.fdb_entry("replace", self.h21)
        self.leaf.neighbour("replace", self.h21)
        monitor = self.monitor(10)
        self.agent.start()
        self.await_owner(self.h24, Owner.AGENT)
        self.await_satisfied(1)
        self.assertIs(self.leaf.owner(self.h21), Owner.CONTROL_PLANE)
        monitor.end()
        self.assertFalse(monitor.lost(self.h21.binding))

    def await_satisfied(self, count):
        eventually(
            lambda: self.agent.asked_for().get("satisfied by a control plane's entry", 0) == count,
            60,
            f"{count} entries are satisfied",
        )

    def test_shown_with_what_became_of_them(self):
        self.start((self.h11, self.h21), (self.h14, self.h24))
        self.bind(self.h21)
        self.await_satisfied(1)
        self.await_owner(self.h24, Owner.AGENT)
        lines = self.agent.control("show", "neighbours").splitlines()
        self.assertIn(
            f"default {self.h21.address} Vlan10 permanent {self.h21.mac} satisfied by a control"
            f" plane's entry; control plane: {self.h21.mac}",
            lines,
        )
        self.assertIn(
            f"{VRF} {self.h24.address} Vlan30 permanent {self.h24.mac} installed; kernel:"
            f" {self.h24.mac} static arpSuppression",
            lines,
        )
        self.assertIn(["added", "1"], [line.split() for line in lines])
        shown = json.loads(self.agent.control("show", "neighbours", "-j"))
        self.assertTrue(shown["carriedOut"])
        self.assertEqual(shown["counters"]["satisfied"], 1)
        self.assertIn(
            {
                "vrf": VRF,
                "ip": self.h24.address,
                "interface": "Vlan30",
                "type": "permanent",
                "mac": self.h24.mac,
                "refresh": "none",
                "outcome": "installed",
                "kernel": {"mac": self.h24.mac, "static": True, "source": "arpSuppression"},
                "controlPlane": None,
            },
            shown["entries"],
        )

    def test_selective_install(self):
        self.agent.selective_install = True
        self.agent.configure()
        self.start((self.h11, self.h21), (self.h14, self.h24))
        self.bind(self.h21)
        self.await_satisfied(0)
        self.assertIsNone(self.leaf.owner(self.h24))
        before = self.agent.counters()
        self.ask_from_leaf(self.h21)
        self.await_satisfied(1)
        self.assertIs(self.leaf.owner(self.h21), Owner.CONTROL_PLANE)
        self.assertIsNone(self.leaf.owner(self.h24))
        self.ask_from_leaf(self.h24)
        self.await_owner(self.h24, Owner.AGENT)
        after = self.agent.counters()
        self.assertEqual(after["staticBindingTriggered"] - before["staticBindingTriggered"], 2)
        self.assertEqual(after["inputPermanentAdded"] - before["inputPermanentAdded"], 2)

    def test_killed_and_started(self):
        gone = self.h24.binding._replace(address="10.0.30.77")
        self.agent.static_bindings = {self.h24.binding, gone}
        self.agent.configure()
        self.agent.start()
        self.await_owner(self.h24, Owner.AGENT)
        eventually(
            lambda: self.leaf.neighbours(30).get(gone) is Owner.AGENT, 60, "both are there"
        )
        monitor = self.monitor(30)
        self.agent.kill()
        self.assertIs(self.leaf.owner(self.h24), Owner.AGENT)
        self.agent.static_bindings = {self.h24.binding}
        self.agent.configure()
        self.agent.start()
        eventually(lambda: gone not in self.leaf.neighbours(30), 60, "the stale entry goes")
        eventually(lambda: self.agent.asked_for(), 60, "the agent asks for entries")
        self.assertIs(self.leaf.owner(self.h24), Owner.AGENT)
        monitor.end()
        self.assertTrue(monitor.lost(gone))
        self.assertFalse(monitor.lost(self.h24.binding))

    def test_killed_and_switched_off(self):
        self.agent.start()
        self.await_owner(self.h24, Owner.AGENT)
        self.agent.kill()
        self.assertIs(self.leaf.owner(self.h24), Owner.AGENT)
        self.agent.configure(mpls=False)
        self.agent.start()
        self.await_owner(self.h24, None)
        self.assertFalse(self.agent.asked_for())

    def test_clean_stop_leaves_nothing(self):
        self.start()
        self.await_owner(self.h24, Owner.AGENT)
        self.assertEqual(self.agent.stop(), 0)
        self.assertIsNone(self.leaf.owner(self.h24))


class BgpTest(NeighbourCase):
    """With FRR on both leaves, and an agent on one of them."""

    bgp = True

    def test_bgpd_restarts(self):
        due = self.fabric.expected_neighbours(self.leaf) | {self.h24.binding}
        self.agent.start()
        eventually(lambda: self.agent.bindings() == due, 60, "routes are bindings")
        self.await_trapping(self.h11, self.h21)
        self.speak(self.h12)
        self.await_local(self.h12)
        self.fabric.wire.settle()
        self.leaf.frr.kill_daemon("bgpd")
        eventually(lambda: self.agent.bindings() == {self.h24.binding}, 60, "they are gone")
        self.leaf.frr.start_daemon("bgpd")
        eventually(lambda: self.agent.bindings() == due, 60, "they are back")
        for host in (self.h21, self.fabric.hosts["h22"]):
            self.assertIs(self.leaf.owner(host), Owner.CONTROL_PLANE)
        self.assertIs(self.leaf.owner(self.h24), Owner.AGENT)
        self.assertIn(self.h12.binding, self.agent.local_bindings())
        # The leaf has not asked for the hosts that were gone.
        asked = {
            item.arp.target
            for item in self.fabric.wire.settle()
            if item.arp.request and item.arp.source == self.leaf.mac
        }
        self.assertEqual(asked, set())
        self.assert_suppressed(self.h11, self.h21)


if __name__ == "__main__":
    main()
