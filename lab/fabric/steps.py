"""The steps of the tour: what is done, and what should be seen."""

import time

from . import asking
from .checks import AtLeast, AtMost, Moved, Step
from .fabric import VNI, Binding
from .neighbours import (
    NOT_HEARD_OF,
    SELECTIVE,
    SPEAKS,
    VIRTUAL_GATEWAY,
    lost_entries,
    lost_entries_due,
    stale_entries,
    watch_entries,
    where,
    where_due,
)
from .questions import QUESTIONS


def _routes(tour):
    return {
        f"neighbours of {leaf.name}": leaf.remote_neighbours()
        for leaf in tour.fabric.leaves.values()
    }


def _routes_due(tour):
    vlan = {vni: number for number, vni in VNI.items()}
    return {
        f"neighbours of {leaf.name}": {
            Binding(vlan[vni], address, mac) for vni, address, mac in leaf.frr.mac_ip_routes()
        }
        for leaf in tour.fabric.leaves.values()
    }


def _without(question):
    def act(tour):
        asked = question.ask(tour.fabric)
        tour.figures[question.name] = [asked]
        return tour.seen(asked)

    return Step(
        f"without the agent: {question.name}",
        act,
        lambda tour: {
            "requests": question.times,
            "answers": question.expected_answers,
            "floods": question.times,
        },
    )


def _with(question):
    def ask(tour):
        asked = question.ask(tour.fabric)
        tour.figures[question.name].append(asked)
        return tour.seen(asked)

    return Step(
        f"with the agent: {question.name}",
        lambda tour: tour.counting(1, lambda: ask(tour)),
        lambda tour: {
            "requests": question.times,
            "answers": question.expected_answers,
            "floods": question.floods,
            "the agent counts": Moved(question.counters),
        },
    )


def _start_agents(tour):
    for agent in tour.agents.values():
        agent.start()
    seen = _bindings(tour)
    if seen == _bindings_due(tour):
        for number in tour.agents:
            tour.await_suppression(number)
    return seen


def _bindings(tour):
    return {
        f"bindings of {agent.leaf.name}": tour.await_bindings(number, tour.bindings_due(number))
        for number, agent in tour.agents.items()
    }


def _bindings_due(tour):
    return {
        f"bindings of {agent.leaf.name}": tour.bindings_due(number)
        for number, agent in tour.agents.items()
    }


def _move(tour):
    tour.fabric.move(tour.fabric.hosts["h21"])
    for leaf in tour.fabric.leaves.values():
        tour.fabric.await_routes(leaf)
    for number in tour.agents:
        tour.await_bindings(number, tour.bindings_due(number))
    return where(tour, "h21")


def _asks(host, target, times, number, floods, counter):
    """One host asks for another, and the agent of one leaf counts it."""
    return (
        lambda tour: tour.counting(
            number, lambda: tour.seen(tour.ask(host, target, times))
        ),
        lambda tour: {
            "requests": times,
            "answers": {target: times},
            "floods": floods,
            "the agent counts": Moved({"trapArpRequest": times, counter: times}),
        },
    )


def _stop_bgp(tour):
    leaf = tour.fabric.leaves[1]
    leaf.frr.kill_daemon("bgpd")
    return {
        "bindings": tour.await_bindings(1, tour.agents[1].static_bindings),
        "flood list": leaf.flood_list(10),
    }


def _ask_without_bgp(tour):
    hosts = tour.fabric.hosts
    request = asking.request(hosts["h22"].address)
    return tour.counting(
        1,
        lambda: tour.reinjecting(
            1, lambda: tour.seen(asking.ask_at_once(tour.fabric, hosts["h11"], request, 3))
        ),
    )


def _start_bgp(tour):
    tour.fabric.leaves[1].frr.start_daemon("bgpd")
    seen = _bindings(tour)
    tour.await_suppression(1)
    return {**seen, **where(tour, "h21")}


def _lost(asked):
    return [exchange for exchange in asked.exchanges if not exchange.replies]


def _stop_agent(tour):
    result = {}

    def stop():
        result["exit status"] = tour.agents[1].stop()

    asked = tour.steadily("h11", "h22", 2, stop)
    return {
        **result,
        "requests lost": len(_lost(asked)),
        "flooded of the last ten": sum(
            flood >= asked.exchanges[-10].sent for flood in asked.floods
        ),
    }


def _start_agent(tour):
    asked = tour.steadily("h11", "h22", 3, tour.agents[1].start)
    tour.await_suppression(1)
    return {
        "requests lost": len(_lost(asked)),
        "flooded of the last ten": sum(
            flood >= asked.exchanges[-10].sent for flood in asked.floods
        ),
    }


def _start_selective(tour):
    agent = tour.agents[1]
    agent.selective_install = True
    agent.configure()
    return _start_agent(tour)


def _kill_agent(tour):
    killed = []
    watch_entries(tour)

    def kill():
        tour.agents[1].kill()
        killed.append(time.time_ns())

    asked = tour.steadily("h11", "h22", 4, kill)
    lost = _lost(asked)
    end = lost[-1].sent if lost else killed[0]
    after = [exchange for exchange in asked.exchanges if exchange.sent > end]
    return {
        "seconds of silence": max(0.0, (end - killed[0]) / 1e9),
        "requests after it": len(after),
        "not answered": sum(not exchange.replies for exchange in after),
        "not flooded": len(after) - sum(flood > end for flood in asked.floods),
    }


def _start_with_less(tour):
    """The configuration has changed while nobody was there to see it."""
    agent = tour.agents[1]
    agent.static_bindings = tour.static_bindings(1)
    agent.selective_install = False
    agent.configure()
    return {**_start_agent(tour), **stale_entries(tour), **lost_entries(tour)}


_STARTED_AGAIN = {"requests lost": 0, "flooded of the last ten": 0}

STEPS = (
    Step("BGP: what the other leaf advertises is in the kernel", _routes, _routes_due),
    *(_without(question) for question in QUESTIONS),
    Step("an agent starts on each leaf: routes become bindings", _start_agents, _bindings_due),
    *(_with(question) for question in QUESTIONS),
    VIRTUAL_GATEWAY,
    NOT_HEARD_OF,
    SPEAKS,
    Step(
        "h11 asks for h21: answered from the new binding",
        *_asks("h11", "h21", 5, 1, 0, "answeredFromRemoteBinding"),
    ),
    Step("h21 moves to leaf1", _move, lambda tour: where_due("leaf1", "leaf2")),
    Step(
        "h11 asks for h21, now beside it: h21 answers itself",
        *_asks("h11", "h21", 5, 1, 0, "localTargetNotAnswered"),
    ),
    Step(
        "h22 asks for h21, now remote to it: its leaf answers",
        *_asks("h22", "h21", 5, 2, 0, "answeredFromRemoteBinding"),
    ),
    Step(
        "bgpd of leaf1 is killed: what it brought goes",
        _stop_bgp,
        lambda tour: {"bindings": tour.agents[1].static_bindings, "flood list": set()},
    ),
    Step(
        "h11 asks for h22: the agent sends it on, to a flood list that is empty",
        _ask_without_bgp,
        lambda tour: {
            "requests": 3,
            "answers": {},
            "floods": 0,
            "sent on by the agent": 3,
            "the agent counts": Moved({"sentToRemoteTeps": 3, "reinjectWritten": 3}),
        },
    ),
    Step(
        "h14 asks for h24, whose binding is configured: answered as before",
        *_asks("h14", "h24", 5, 1, 0, "answeredFromRemoteBinding"),
    ),
    Step(
        "bgpd is started again: everything is as before",
        _start_bgp,
        lambda tour: {**_bindings_due(tour), **where_due("leaf1", "leaf2")},
    ),
    Step(
        "the agent of leaf1 is stopped while h11 asks for h22: floods, nothing is lost",
        _stop_agent,
        lambda tour: {"exit status": 0, "requests lost": 0, "flooded of the last ten": 10},
    ),
    Step(
        "it is started again while h11 asks, to install entries selectively: nothing is lost",
        _start_selective,
        lambda tour: _STARTED_AGAIN,
    ),
    *SELECTIVE,
    Step(
        "it is killed with SIGKILL while h11 asks: soon floods as if it were not there",
        _kill_agent,
        lambda tour: {
            "seconds of silence": AtMost(2),
            "requests after it": AtLeast(15),
            "not answered": 0,
            "not flooded": 0,
        },
    ),
    Step(
        "it is started once more, without 10.0.30.77: that entry goes, that of h24 stays",
        _start_with_less,
        lambda tour: {**_STARTED_AGAIN, "stale entries": set(), **lost_entries_due()},
    ),
    Step(
        "h11 asks for h22: answered from the binding, as before",
        *_asks("h11", "h22", 20, 1, 0, "answeredFromRemoteBinding"),
    ),
)
