"""The fabric with an agent on each leaf, and what the steps of the tour are made of."""

import contextlib
import os

from . import asking
from .agent import Agent
from .checks import Moved
from .fabric import VRF_VLAN, Fabric
from .namespaces import Expired, eventually
from .wire import Tap


class Tour:
    """start() brings up the fabric without agents, stop() takes all of it down."""

    def __init__(self, name, programs, directory):
        self.fabric = Fabric(name)
        self.agents = {}  # by the leaf's number
        self.monitor = None  # of neighbour entries, while a step watches them
        self.figures = {}  # by the question's name: what was Asked without the agent, and with it
        self._programs = programs
        self.directory = directory

    def start(self):
        os.makedirs(self.directory)
        self.fabric.start()
        for number, leaf in self.fabric.leaves.items():
            directory = f"{self.directory}/{leaf.name}"
            self.agents[number] = Agent(
                leaf, self._programs, directory, self.static_bindings(number)
            )

    def stop(self):
        self.fabric.stop()

    def static_bindings(self, number):
        """What a leaf's configuration is to say: where the hosts are that no control plane finds.
        """
        remote = self.fabric.hosts_of(self.fabric.other(self.fabric.leaves[number]))
        return {host.binding for host in remote if host.vlan == VRF_VLAN}

    def bindings_due(self, number):
        """What an agent should know: what BGP has told its leaf, and its configuration."""
        learnt = self.fabric.expected_neighbours(self.fabric.leaves[number])
        return learnt | self.agents[number].static_bindings

    def await_bindings(self, number, expected):
        """The bindings of an agent as soon as they are these, or after ten seconds."""
        agent = self.agents[number]
        self.await_quietly(lambda: agent.bindings() == expected, "bindings")
        return agent.bindings()

    def await_quietly(self, condition, what):
        """Gives up after ten seconds: what there is instead is what the step shows."""
        with contextlib.suppress(Expired):
            eventually(condition, 10, what, 0.05)

    def await_suppression(self, number):
        """Until no request for a remote host is flooded any more, in whatever VLAN."""
        leaf = self.fabric.leaves[number]
        others = self.fabric.hosts_of(self.fabric.other(leaf))
        for host in self.fabric.hosts_of(leaf):
            target = next(other for other in others if other.vlan == host.vlan)
            try:
                eventually(
                    lambda host=host, target=target: not self.ask(host.name, target.name).floods,
                    10,
                    f"{leaf.name} suppresses requests in VLAN {host.vlan}",
                )
            except Expired as error:
                status = self.agents[number].control("show", "status", check=False)
                raise Expired(f"{error}\n{status}") from error

    def ask(self, host, target, times=1):
        hosts = self.fabric.hosts
        return asking.ask(
            self.fabric, hosts[host], asking.request(hosts[target].address), times
        )

    def seen(self, asked):
        """What became of requests, with hosts by their names."""
        names = {host.mac: host.name for host in self.fabric.hosts.values()}
        return {
            "requests": asked.requests,
            "answers": {names.get(mac, mac): count for mac, count in asked.answers.items()},
            "floods": len(asked.floods),
        }

    def counting(self, number, act):
        """What an action sees, and which counters of an agent have moved meanwhile."""
        agent = self.agents[number]
        before = agent.counters()
        seen = act()
        moved = {
            name: count - before.get(name, 0)
            for name, count in agent.counters().items()
            if count != before.get(name, 0)
        }
        return {**seen, "the agent counts": Moved(moved)}

    def reinjecting(self, number, act):
        """What an action sees, and how many requests an agent has sent on meanwhile."""
        tap = Tap(self.fabric.leaves[number].namespace, "arpinject")
        try:
            seen = act()
            sent = [frame for frame in tap.take() if frame.outgoing]
        finally:
            tap.close()
        return {**seen, "sent on by the agent": len(sent)}

    def steadily(self, host, target, seconds, during):
        """Asks every tenth of a second. Gives what became of it."""
        hosts = self.fabric.hosts
        return asking.ask_steadily(
            self.fabric,
            hosts[host],
            asking.request(hosts[target].address),
            seconds,
            0.1,
            during,
        )
