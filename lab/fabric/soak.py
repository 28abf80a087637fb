"""Two hours' worth of what a fabric goes through, in ten minutes. lab/soak starts it; see --help.

Hosts ask without a break, as often in ten minutes as eight hosts do in two hours if each asks every
2.4 seconds. Every ten seconds something happens: a host moves, bgpd of a leaf is restarted, the
interface of a VLAN goes down and comes up, an agent is told another configuration, or it is stopped
or killed and started again. Then the fabric has to come to rest. Until the next event every request
has to be answered by one reply or by none, as it is due, and none for a remote host may be flooded.

What the agents cost and count is held to Life and to LAWS. One seed gives the same requests and the
same events in the same order."""

import argparse
import os
import random
import shutil
import signal
import sys
import time
import traceback
from collections import Counter

from . import ledger
from .fabric import VLANS, VRF_VLAN
from .namespaces import CommandFailed, Expired, eventually
from .signals import Interrupted, hold_off, interruptible
from .tour import Tour
from .traffic import Period, Traffic, Written
from .vitals import Life, sample
from .watch import Watch

EVERY = 10  # seconds from one event to the next
SETTLED = 60  # seconds after which an agent's memory is flat, or two fifths of a shorter life
# KiB that are no growth: code is paged in when it runs for the first time, and the heap has its
# ups and downs. 48 KiB are some 25 bytes for each request of a life's settled part.
SLACK = {"resident": 512, "anonymous": 48, "runtime": 0}
RESTARTS = {1: (1 / 4, 1 / 2, 3 / 4), 2: (3 / 8, 5 / 8)}  # when, in parts of the whole time
SHORT_RESTARTS = {1: (1 / 2,), 2: (1 / 3,)}  # if lives would be too short otherwise
OTHERS = ("move", "flap", "bgpd", "reload", "move", "move", "reload", "move", "flap", "move")


class Fault(Exception):
    """Something is not as it must be."""


class Soak:
    """The fabric, its agents, and what happens to them."""

    def __init__(self, tour, seconds, seed):
        self._tour = tour
        self._seconds = seconds
        self._random = random.Random(f"events of {seed}")
        self._requests = random.Random(f"requests of {seed}")
        self._watch = self._traffic = None
        self._written = {}
        self._lives = {}  # by the leaf's number: those that have ended, and last the present one
        self._descriptors = {}
        self._total = Counter()
        self._happened = Counter()
        self._begin = time.monotonic()
        self.at = "the start"

    def run(self):
        self._tour.start()
        fabric = self._tour.fabric
        self._traffic = Traffic(fabric, self._requests)
        self._written = {number: Written(leaf) for number, leaf in fabric.leaves.items()}
        self._watch = Watch(self._traffic, list(self._written.values()))
        self._watch.start()
        for number in self._tour.agents:
            self._start(number)
        self._begin = time.monotonic()
        for number, (name, event) in enumerate(self._events(), 1):
            self._happened[name] += 1
            event()
            self._come_to_rest()
            self._keep_until(self._begin + number * EVERY)
        for number in self._tour.agents:
            self._end(number, kill=False)
        self._check_certain()

    def close(self):
        if self._watch:
            self._watch.end()
            self._traffic.close()
            for written in self._written.values():
                written.close()
        self._tour.stop()

    # What happens

    def _events(self):
        """Names and what is to be done, in the order of their times."""
        slots = max(len(OTHERS) // 2, int(self._seconds / EVERY))
        restarts = RESTARTS if slots >= 40 else SHORT_RESTARTS
        deck = []
        for number, parts in restarts.items():
            kills = [True, False, self._random.random() < 0.5][: len(parts)]
            self._random.shuffle(kills)
            deck += [(int(part * slots), number, kill) for part, kill in zip(parts, kills)]
        restart_at = {slot: (number, kill) for slot, number, kill in deck}
        count = slots - len(restart_at)
        others = [OTHERS[index % len(OTHERS)] for index in range(count)]
        self._random.shuffle(others)
        kinds = {"move": self._move, "flap": self._flap, "bgpd": self._bgpd, "reload": self._reload}
        for slot in range(slots):
            if slot in restart_at:
                number, kill = restart_at[slot]
                name = "kill" if kill else "restart"
                yield name, lambda number=number, kill=kill: self._restart(number, kill)
            else:
                name = others.pop()
                yield name, kinds[name]

    def _say(self, text):
        self.at = f"{time.monotonic() - self._begin:.0f} s, {text}"
        print(f"{time.monotonic() - self._begin:5.0f} s  {text}", flush=True)

    def _move(self):
        fabric = self._tour.fabric
        host = fabric.hosts[self._random.choice(sorted(fabric.hosts))]
        self._say(f"{host.name} moves to {fabric.other(host.leaf).name}")
        fabric.move(host)
        if host.vlan == VRF_VLAN:
            for number, agent in self._tour.agents.items():
                agent.static_bindings = self._tour.static_bindings(number)
                agent.configure()
                agent.reload()

    def _flap(self):
        fabric = self._tour.fabric
        leaf = fabric.leaves[self._random.choice(sorted(fabric.leaves))]
        vlan = self._random.choice(VLANS)
        self._say(f"Vlan{vlan} of {leaf.name} goes down and comes up")
        routing = leaf.routing_namespace(vlan)
        routing.links(f"link set Vlan{vlan} down")
        time.sleep(self._random.uniform(0.1, 1.5))
        routing.links(f"link set Vlan{vlan} up")
        for host in fabric.hosts_of(leaf):
            if host.vlan == vlan:
                fabric.introduce(host)

    def _bgpd(self):
        leaves = self._tour.fabric.leaves
        number = self._random.choice(sorted(leaves))
        how = self._random.choice((signal.SIGTERM, signal.SIGKILL))
        self._say(f"bgpd of {leaves[number].name} is ended with {how.name} and started again")
        leaves[number].frr.end_daemon("bgpd", how)
        agent = self._tour.agents[number]
        eventually(
            lambda: agent.bindings() == agent.static_bindings, 10, "what bgpd had brought is gone"
        )
        leaves[number].frr.start_daemon("bgpd")
        eventually(leaves[number].frr.established, 20, "the BGP session", 0.1)

    def _reload(self):
        agents = self._tour.agents
        number = self._random.choice(sorted(agents))
        agent, off = agents[number], self._random.random() < 0.5
        self._say(
            f"the agent of {agent.leaf.name} reads its configuration again"
            + (", without EVPN over MPLS and with it" if off else "")
        )
        if off:
            self._reload_without_mpls(number, agent)
        else:
            agent.reload()

    def _reload_without_mpls(self, number, agent):
        eventually(agent.active_vlans, 20, "suppression begins")
        agent.configure(mpls=False)
        agent.reload()
        eventually(lambda: not agent.active_vlans(), 10, "suppression ends")
        agent.configure()
        agent.reload()

    def _restart(self, number, kill):
        how = "killed" if kill else "stopped"
        self._say(f"the agent of leaf{number} is {how} and started again")
        self._end(number, kill)
        self._start(number)

    def _start(self, number):
        agent = self._tour.agents[number]
        with self._watch.lock:
            self._written[number].begin()
        agent.start()
        lives = self._lives.setdefault(number, [])
        shortest = self._seconds / (4 if self._seconds >= 40 * EVERY else 2)
        lives.append(Life(agent.pid, agent.runtime, min(SETTLED, 0.4 * shortest)))
        self._watch.follow(lives[-1])
        # The first time costs memory that then is there for the next one.
        self._reload_without_mpls(number, agent)

    def _end(self, number, kill):
        agent, life = self._tour.agents[number], self._lives[number][-1]
        self._watch.leave(life)
        if kill:
            agent.kill()
        else:
            status = agent.stop()
            if status != 0:
                raise Fault(f"the agent of leaf{number} has ended with status {status}")
        with self._watch.quiet():
            counts = {**agent.counters(), **self._written[number].count}
        self._hold(number, ledger.faults(counts, ledger.UNDER_WAY if kill else 0))
        self._total.update(counts)
        self._check_life(number)

    # What must hold

    def _come_to_rest(self):
        for leaf in self._tour.fabric.leaves.values():
            self._tour.fabric.await_routes(leaf)
        for number, agent in self._tour.agents.items():
            due = self._tour.bindings_due(number)
            eventually(lambda: agent.bindings() == due, 20, f"bindings of leaf{number}: {due}")
            eventually(
                lambda: agent.active_vlans() == set(VLANS)
                and agent.forwarding_plane().get("trapping"),
                20,
                f"the agent of leaf{number} suppresses in all VLANs",
            )
        with self._watch.quiet():
            self._traffic.period = Period()

    def _keep_until(self, deadline):
        self._watch.sleep(max(2.0, deadline - time.monotonic()))
        with self._watch.quiet():
            period = self._traffic.period
            for number, agent in self._tour.agents.items():
                self._check_process(number, agent)
                self._check_counters(number, agent)
        self._check_period(period)

    def _check_period(self, period):
        fabric = self._tour.fabric
        hosts = {host.address for host in fabric.hosts.values()}
        owned = hosts | {leaf.gateway(vlan) for leaf in fabric.leaves.values() for vlan in VLANS}
        texts = [
            f"{asked.host} asked {requests} times for {asked.address} and had {replies} replies"
            for asked, (requests, replies) in period.unanswered(owned).items()
        ]
        texts += [
            f"{count} requests of {asked.host} for {asked.address} were flooded"
            for asked, count in period.floods.items()
            if asked.address in hosts
        ]
        texts += [f"{name} could not send" for name in period.unsent]
        if texts:
            raise Fault("; ".join(texts))

    def _check_counters(self, number, agent):
        counts = self._counts(number, agent)
        self._hold(number, ledger.faults(counts, 0, ledger.LAWS + ledger.PLANE_LAWS))

    def _counts(self, number, agent):
        counts = {**agent.counters(), **self._written[number].count}
        plane = agent.forwarding_plane().get("counters", {})
        counts.update({f"plane.{name}": count for name, count in plane.items()})
        return counts

    def _check_process(self, number, agent):
        now = sample(agent.pid, agent.runtime)
        first = self._descriptors.setdefault(number, now.descriptors)
        if now.descriptors != first:
            more, less = now.descriptors - first, first - now.descriptors
            raise Fault(
                f"the agent of leaf{number} has descriptors that it had not before:"
                f" {dict(more) or 'none'}, and lacks {dict(less) or 'none'}"
            )
        if now.threads != 1:
            raise Fault(f"the agent of leaf{number} has {now.threads} threads")

    def _check_life(self, number):
        life, first = self._lives[number][-1], self._lives[number][0]
        for what, slack in SLACK.items():
            if life.grown(what) > slack:
                raise Fault(f"the agent of leaf{number} has grown: {life.course(what)} KiB {what}")
            if life.typical(what) > first.typical(what) + slack:
                raise Fault(
                    f"the agent of leaf{number} takes more than in its first life: {what}"
                    f" {life.typical(what)} KiB, not {first.typical(what)} KiB"
                )

    def _check_certain(self):
        still = [name for name in ledger.CERTAIN if not self._total[name]]
        if still:
            raise Fault(f"these counters have not moved at all: {', '.join(still)}")

    def _hold(self, number, faults):
        if faults:
            raise Fault(f"the agent of leaf{number}: " + "; ".join(faults))

    # What it was like

    def summary(self):
        lines = [
            ", ".join(f"{count} times {name}" for name, count in sorted(self._happened.items())),
            f"{'agent of':<10}{'life':>5}{'seconds':>9}{'resident KiB':>14}{'of no file':>12}"
            f"{'runtime KiB':>13}{'descriptors':>13}",
        ]
        for number, lives in sorted(self._lives.items()):
            for index, life in enumerate(lives, 1):
                lines.append(
                    f"{f'leaf{number}':<10}{index:>5}{life.seconds:>9.0f}"
                    f"{life.course('resident'):>14}{life.course('anonymous'):>12}"
                    f"{life.course('runtime'):>13}"
                    f"{sum(self._descriptors[number].values()):>13}"
                )
        lines += [f"{count:>9} {name}" for name, count in sorted(self._total.items()) if count]
        return "\n".join(lines)


def main():
    purpose = __doc__.split(". ", maxsplit=1)[0] + "."
    parser = argparse.ArgumentParser(prog="lab/soak", description=purpose)
    parser.add_argument("--minutes", type=float, default=10, help="how long, at least one: 10")
    parser.add_argument("--seed", type=int, help="what to repeat; else another one each time")
    parser.add_argument("--programs", default="build/release", help=argparse.SUPPRESS)
    parser.add_argument("--directory", default="build/run", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if os.geteuid() != 0:
        sys.exit("error: network namespaces need root")
    if options.minutes < 1:
        parser.error("--minutes must be at least 1")
    seed = random.randrange(10**6) if options.seed is None else options.seed
    name = f"soak{os.getpid()}"
    directory = os.path.abspath(f"{options.directory}/{name}")
    soak = Soak(
        Tour(name, os.path.abspath(options.programs), directory), options.minutes * 60, seed
    )
    print(f"seed {seed}", flush=True)
    good = False
    interruptible()
    try:
        soak.run()
        print(soak.summary(), flush=True)
        good = True
    except Exception as error:  # whatever it is, it is to be said when, and how to repeat it
        known = isinstance(error, (Fault, Expired, CommandFailed))
        what = error if known else "".join(traceback.format_exception(error))
        print(f"error: {what}\nat {soak.at}", file=sys.stderr)
        print(f"again: lab/soak --minutes {options.minutes:g} --seed {seed}", file=sys.stderr)
        print(f"what the agents wrote is in {directory}", file=sys.stderr)
    except Interrupted:
        print("interrupted", file=sys.stderr)
    finally:
        hold_off()
        soak.close()
        if good:
            shutil.rmtree(directory, ignore_errors=True)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
