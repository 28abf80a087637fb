"""The kinds of requests that the tour asks without the agent and with it."""

from dataclasses import dataclass, field

from . import asking


@dataclass(frozen=True)
class Question:
    """Some requests of one host, and what should come of them."""

    name: str
    host: str
    target: str  # the name of a host, or an address
    times: int
    answers: bool  # whether the target is there to answer
    floods: int  # how many go through the tunnel while the agent runs; without it all do
    counters: dict  # those of the agent that move, and by how much
    arguments: object = field(default=asking.request)

    def ask(self, fabric):
        target = fabric.hosts.get(self.target)
        if self.arguments is asking.announcement:
            arguments = asking.announcement(target)
        else:
            arguments = self.arguments(target.address if target else self.target)
        how = asking.ask if self.answers else asking.ask_at_once
        return how(fabric, fabric.hosts[self.host], arguments, self.times)

    @property
    def expected_answers(self):
        return {self.target: self.times} if self.answers else {}


QUESTIONS = (
    Question(
        "a remote host, VLAN 10",
        host="h11",
        target="h21",
        times=20,
        answers=True,
        floods=0,
        counters={"trapArpRequest": 20, "answeredFromRemoteBinding": 20},
    ),
    Question(
        "a remote host, VLAN 20",
        host="h13",
        target="h23",
        times=5,
        answers=True,
        floods=0,
        counters={"trapArpRequest": 5, "answeredFromRemoteBinding": 5},
    ),
    Question(
        "a remote host, VLAN 30 in VRF red, configured by hand",
        host="h14",
        target="h24",
        times=5,
        answers=True,
        floods=0,
        counters={"trapArpRequest": 5, "answeredFromRemoteBinding": 5},
    ),
    Question(
        "an address that nobody has",
        host="h11",
        target="10.0.10.99",
        times=3,
        answers=False,
        floods=3,
        counters={"trapArpRequest": 3, "sentToRemoteTeps": 3, "reinjectWritten": 3},
    ),
    Question(
        "a gratuitous ARP",
        host="h11",
        target="h11",
        times=3,
        answers=False,
        floods=3,
        counters={"trapArpRequest": 3, "sentToRemoteTeps": 3, "reinjectWritten": 3},
        arguments=asking.announcement,
    ),
    Question(
        "a probe for a remote host's address",
        host="h11",
        target="h21",
        times=3,
        answers=True,
        floods=3,
        counters={"trapArpRequest": 3, "sentToRemoteTeps": 3, "reinjectWritten": 3},
        arguments=asking.probe,
    ),
    Question(
        "a local host",
        host="h11",
        target="h12",
        times=5,
        answers=True,
        floods=0,
        counters={"trapArpRequest": 5, "localTargetNotAnswered": 5},
    ),
)
