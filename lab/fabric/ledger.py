"""What must hold between an agent's counters and the wire, and which counters may move at all.

"plane." stands before the counters of the forwarding plane, "wire." before what was seen on the
agent's devices: "wire.replies" are its replies on "fabric", "wire.reinjected" the requests that it
wrote on "arpinject"."""

from typing import NamedTuple

# Replies and requests that an agent may have counted and not yet written when it is killed, or
# written and not yet counted.
UNDER_WAY = 32


class Law(NamedTuple):
    """Both sides come to the same."""

    meaning: str
    left: tuple
    right: tuple

    def difference(self, counts):
        return sum(counts[name] for name in self.left) - sum(counts[name] for name in self.right)

    def text(self, counts):
        def side(names):
            return " + ".join(f"{name} {counts[name]}" for name in names)

        return f"{self.meaning}: {side(self.left)} is not {side(self.right)}"


_ANSWERED = (
    "answeredFromRemoteBinding",
    "answeredForDesignatedForwarder",
    "answeredForNonDesignatedForwarder",
)

LAWS = (
    Law(
        "one decision on each request",
        ("trapArpRequest",),
        ("targetIsMine", "sentToRemoteTeps", "localTargetNotAnswered", *_ANSWERED),
    ),
    Law(
        "each answer is a reply on the wire, an entry asked for, or a reason why not",
        _ANSWERED,
        (
            "wire.replies",
            "unknownSourcePort",
            "sourceAndTargetOnSamePort",
            "replyFabricNotUsable",
            "replyTransmitFailed",
            "staticBindingTriggered",
            "staticBindingBadMac",
            "staticBindingBadIp",
            "staticBindingBridgeMac",
            "staticBindingVarpMac",
            "staticBindingNoVlanL3Info",
        ),
    ),
    Law(
        "each request to be sent on is written, or a reason why not",
        ("sentToRemoteTeps",),
        (
            "reinjectWritten",
            "reinjectWriteFailed",
            "reinjectNoImetLabel",
            "reinjectQueueDroppedOldest",
        ),
    ),
    Law("what is written is on the wire", ("reinjectWritten",), ("wire.reinjected",)),
    Law(
        # A host has one address here, so a MAC address that comes to this leaf is one binding.
        "each sender, each MAC address that comes here and each reply to the virtual router is a"
        " binding, or a reason why not",
        ("trapArpRequest", "bindingsFromLocalMac", "varpArpAccepted", "varpNaAccepted"),
        (
            "bindingBadMac",
            "bindingBadIp",
            "bindingBridgeMac",
            "bindingVarpMac",
            "bindingLocalMultihomedHost",
            "bindingSeveralMacs",
            "bindingNoVlanL3Info",
            "bindingCreated",
            "bindingRefreshed",
        ),
    ),
)

# These need an agent that can still be asked.
PLANE_LAWS = (
    Law(
        "the agent has read what was trapped",
        ("plane.trapped",),
        (
            "trapArpRequest",
            "trapArpReply",
            "trapArpNeitherRequestNorReply",
            "trapMalformed",
            "trapVlanNotSuppressed",
        ),
    ),
    Law(
        "replies are delivered, or a reason why not",
        ("wire.replies",),
        (
            "plane.delivered",
            "plane.droppedUntagged",
            "plane.droppedNoBridge",
            "plane.droppedUnknownDestination",
        ),
    ),
    Law(
        "requests are injected, or a reason why not",
        ("wire.reinjected",),
        ("plane.injected", "plane.droppedMalformed", "plane.droppedNoTunnel"),
    ),
)

# Counters that the soak's scenario moves, and by what. Any other one is unexplained.
EXPLAINED = {
    "trapArpRequest": "hosts ask",
    "trapVlanNotSuppressed": "a VLAN's suppression ends while requests are under way",
    "targetIsMine": "hosts ask for their gateway",
    "sentToRemoteTeps": "strangers, announcements, probes, and hosts while a route is missing",
    "reinjectWritten": "what is sent on",
    "answeredFromRemoteBinding": "hosts ask for remote hosts",
    "localTargetNotAnswered": "hosts ask for local hosts",
    "unknownSourcePort": "a port moves away while its host's request is under way",
    "staticBindingTriggered": "the leaf itself asks for a remote host",
    "bindingBadIp": "probes have no sender",
    "bindingBridgeMac": "the leaf itself asks",
    "bindingNoVlanL3Info": "hosts ask while the VLAN's interface is down",
    "bindingsFromLocalMac": "a host moves here",
    "bindingCreated": "hosts speak for the first time",
    "bindingRefreshed": "hosts speak again",
    "bindingDeleted": "hosts move away",
    "inputPermanentAdded": "remote bindings come",
    "inputPermanentRewritten": "remote bindings are looked at again",
    "inputDynamicAdded": "local bindings that the kernel knows",
    "inputDynamicRewritten": "a remote host has become a local one",
    "inputDeleted": "bindings go, or the kernel has learnt the neighbour",
    "inputNoVlanL3Info": "bindings go with their VLAN's interface",
}

# Those without which the soak has not done what it says.
CERTAIN = (
    "trapArpRequest",
    "targetIsMine",
    "sentToRemoteTeps",
    "reinjectWritten",
    "answeredFromRemoteBinding",
    "localTargetNotAnswered",
    "bindingBadIp",
    "bindingCreated",
    "bindingRefreshed",
    "bindingDeleted",
    "inputPermanentAdded",
    "inputDeleted",
)


def faults(counts, slack=0, laws=LAWS):
    """What does not hold, as texts. The slack is what a law's sides may differ by."""
    broken = [law.text(counts) for law in laws if abs(law.difference(counts)) > slack]
    unexplained = [
        f"nothing explains {count} of the counter {name}"
        for name, count in counts.items()
        if count and "." not in name and name not in EXPLAINED
    ]
    unknown = [f"there is no counter {name}" for name in EXPLAINED if name not in counts]
    return broken + unexplained + unknown
