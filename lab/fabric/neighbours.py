"""The steps about a leaf's own hosts and about neighbour entries."""

from . import asking
from .checks import Moved, Step
from .fabric import VRF_VLAN, Binding, Owner
from .monitor import Monitor

_VIRTUAL_MAC = "02:00:5e:00:00:01"
_VIRTUAL_ADDRESS = "10.0.10.254"
_VIRTUAL_DEVICE = "varp10"
_SATISFIED = "satisfied by a control plane's entry"
# A host that is configured, for a while.
_GUEST = Binding(VRF_VLAN, "10.0.30.77", "02:00:00:00:30:77")


def where(tour, name):
    """Which leaf has a host as its own, which one as the other's, and whose the kernels' neighbour
    entries are."""
    host = tour.fabric.hosts[name]
    agents = tour.agents.values()

    def names(chosen):
        return ", ".join(agent.leaf.name for agent in chosen) or "no leaf"

    return {
        f"{name} is local to": names(a for a in agents if host.binding in a.local_bindings()),
        "remote to": names(a for a in agents if host.binding in a.bindings()),
        **{f"entry at {a.leaf.name}": a.leaf.owner(host) or "none" for a in agents},
    }


def where_due(local, remote):
    """Of h21 once it has spoken."""
    return {
        "h21 is local to": local,
        "remote to": remote,
        **{
            f"entry at {leaf}": Owner.KERNEL if leaf == local else Owner.CONTROL_PLANE
            for leaf in sorted((local, remote))
        },
    }


def _forget(tour):
    host = tour.fabric.hosts["h21"]
    host.leaf.forget(host)
    tour.await_quietly(lambda: host.binding not in tour.agents[1].bindings(), "it is withdrawn")
    return where(tour, "h21")


def _speak(tour):
    host = tour.fabric.hosts["h21"]
    asked = asking.ask(tour.fabric, host, asking.request(host.leaf.gateway(host.vlan)))
    tour.await_bindings(1, tour.bindings_due(1))
    return {"answers": len(asked.latencies), **where(tour, "h21")}


def _ask_from_virtual_gateway(tour):
    """What gateways with a shared address do: the replies go to the nearest one."""
    leaf, agent, host = tour.fabric.leaves[1], tour.agents[1], tour.fabric.hosts["h12"]
    leaf.forget(host)
    tour.await_quietly(lambda: host.binding not in agent.local_bindings(), "h12 is forgotten")
    before = host.binding in agent.local_bindings()
    leaf.namespace.links(
        f"link add link Vlan10 name {_VIRTUAL_DEVICE} address {_VIRTUAL_MAC} type macvlan"
        " mode bridge",
        f"addr add {_VIRTUAL_ADDRESS}/24 dev {_VIRTUAL_DEVICE}",
        f"link set {_VIRTUAL_DEVICE} up",
    )
    entry = ("fdb", "replace", _VIRTUAL_MAC, "dev", "Vlan10", "self", "local")
    leaf.namespace.run("bridge", *entry)
    tour.await_quietly(lambda: agent.listens_for(_VIRTUAL_MAC), "it listens")
    asked = ("-I", _VIRTUAL_DEVICE, "-s", _VIRTUAL_ADDRESS, host.address)
    seen = tour.counting(1, lambda: _arping_from(leaf.namespace, *asked))
    after = host.binding in agent.local_bindings()
    leaf.namespace.links(f"link del {_VIRTUAL_DEVICE}")
    tour.fabric.introduce(host)
    tour.await_bindings(2, tour.bindings_due(2))
    return {**seen, "h12 is in the record": f"{_yes(before)}, then {_yes(after)}"}


def _ask_from_leaf(tour):
    leaf, agent, host = tour.fabric.leaves[1], tour.agents[1], tour.fabric.hosts["h22"]
    before = agent.asked_for()
    seen = tour.counting(1, lambda: _arping(leaf, host.vlan, host.address))
    tour.await_quietly(lambda: agent.asked_for() != before, "an entry is asked for")
    return {
        **seen,
        f"entries {_SATISFIED}": f"{before.get(_SATISFIED, 0)}, then"
        f" {agent.asked_for().get(_SATISFIED, 0)}",
        "entry of h22 at leaf1": leaf.owner(host) or "none",
    }


def _ask_in_vrf(tour):
    agent, leaf, host = tour.agents[1], tour.fabric.leaves[1], tour.fabric.hosts["h24"]
    agent.static_bindings = agent.static_bindings | {_GUEST}
    agent.configure()
    agent.reload()
    tour.await_bindings(1, tour.bindings_due(1))
    seen = {}
    for name, binding in (("h24", host.binding), (_GUEST.address, _GUEST)):
        before = leaf.neighbours(VRF_VLAN).get(binding) or "none"
        _arping(leaf, VRF_VLAN, binding.address)
        tour.await_quietly(
            lambda binding=binding: binding in leaf.neighbours(VRF_VLAN), "its entry"
        )
        after = leaf.neighbours(VRF_VLAN).get(binding) or "none"
        seen[f"entry of {name}"] = f"{before}, then {after}"
    return seen


def watch_entries(tour):
    """From now on, those of VLAN 30 at leaf1."""
    leaf = tour.fabric.leaves[1]
    tour.monitor = Monitor(leaf.vrf_namespace, f"{tour.directory}/neighbours.log")


def lost_entries(tour):
    """Whether entries have gone since they are watched, if only for a moment."""
    bindings = {"h24": tour.fabric.hosts["h24"].binding, _GUEST.address: _GUEST}
    tour.monitor.end()
    return {
        f"entry of {name} ever missing": _yes(tour.monitor.lost(binding))
        for name, binding in bindings.items()
    }


def lost_entries_due():
    return {"entry of h24 ever missing": "no", f"entry of {_GUEST.address} ever missing": "yes"}


def stale_entries(tour):
    """Those of the agent's that no binding supports any more."""
    leaf, agent = tour.fabric.leaves[1], tour.agents[1]

    def stale():
        own = (b for b, owner in leaf.neighbours(VRF_VLAN).items() if owner is Owner.AGENT)
        return set(own) - agent.static_bindings

    tour.await_quietly(lambda: not stale(), "stale entries go")
    return {"stale entries": stale()}


def _arping(leaf, vlan, address):
    """The leaf itself asks once."""
    where_from = ("-I", f"Vlan{vlan}", "-s", leaf.gateway(vlan))
    return _arping_from(leaf.routing_namespace(vlan), *where_from, address)


def _arping_from(namespace, *arguments):
    done = namespace.run("arping", "-b", "-c", "1", "-w", "1", *arguments, check=False)
    return {"answers": done.stdout.count("reply from")}


def _yes(truth):
    return "yes" if truth else "no"


NOT_HEARD_OF = Step(
    "leaf2 forgets h21",
    _forget,
    lambda tour: {
        "h21 is local to": "no leaf",
        "remote to": "no leaf",
        "entry at leaf1": "none",
        "entry at leaf2": "none",
    },
)

SPEAKS = Step(
    "h21 asks for its gateway: its own leaf learns where it is, and tells the other",
    _speak,
    lambda tour: {"answers": 1, **where_due("leaf2", "leaf1")},
)

VIRTUAL_GATEWAY = Step(
    "leaf1 forgets h12, and a virtual gateway on it asks: the reply is learnt",
    _ask_from_virtual_gateway,
    lambda tour: {
        "answers": 1,
        "h12 is in the record": "no, then yes",
        "the agent counts": Moved(
            {"sentToRemoteTeps": 1, "varpArpAccepted": 1, "bindingCreated": 1}
        ),
    },
)

SELECTIVE = (
    Step(
        "leaf1 itself asks for h22: only now its entry is asked for, and BGP's serves",
        _ask_from_leaf,
        lambda tour: {
            "answers": 0,
            "the agent counts": Moved({"staticBindingTriggered": 1, "inputPermanentAdded": 1}),
            f"entries {_SATISFIED}": "0, then 1",
            "entry of h22 at leaf1": Owner.CONTROL_PLANE,
        },
    ),
    Step(
        f"leaf1 asks for h24 in VRF red, and for {_GUEST.address}: entries of the agent's own",
        _ask_in_vrf,
        lambda tour: {
            f"entry of {name}": f"none, then {Owner.AGENT}" for name in ("h24", _GUEST.address)
        },
    ),
)
