"""Shows the agent at work in a fabric of two leaves. See --help."""

import argparse
import os
import shutil
import sys
import time

from .checks import Moved, holds, text_of
from .fabric import take_down
from .namespaces import CommandFailed, Expired
from .signals import Interrupted, hold_off, interruptible
from .steps import STEPS
from .tour import Tour


class Unexpected(Exception):
    """A step has shown something else than it should."""


def show(step, number, tour):
    """Does a step and prints it."""
    print(f"\n{number:2}  {step.name}", flush=True)
    seen = step.act(tour)
    expected = step.expect(tour)
    print_values("expected", expected)
    print_values("seen", seen)
    if not holds(expected, seen):
        raise Unexpected(f"step {number}, {step.name}: expected and seen differ")


def print_values(title, values):
    """Short values together, sets and counters in lines of their own."""
    short = {name: value for name, value in values.items() if not isinstance(value, (set, Moved))}
    lines = ["; ".join(f"{name}: {text_of(value)}" for name, value in short.items())]
    for name, value in values.items():
        if isinstance(value, Moved):
            lines.append(f"{name}: {text_of(value)}")
        elif isinstance(value, set):
            lines.append(f"{name}:" if value else f"{name}: none")
            lines += [f"  {item}" for item in sorted(value)]
    for line in filter(None, lines):
        print(f"    {title:<10}{line}", flush=True)
        title = ""


def show_table(figures):
    def microseconds(asked):
        return f"{asked.median:.0f} us" if asked.median is not None else "-"

    line = "{:<56} {:>8} {:>8} {:>8} {:>10} {:>10}"
    print("\n" + line.format("", "", "floods", "floods", "median", "median"))
    print(line.format("asked for", "requests", "without", "with", "without", "with"))
    for name, (without, with_agent) in figures.items():
        print(
            line.format(
                name,
                with_agent.requests,
                len(without.floods),
                len(with_agent.floods),
                microseconds(without),
                microseconds(with_agent),
            )
        )
    print("The leaves are a veth pair apart: without the agent no request has far to go here.")


def show_around(tour, name, programs):
    leaf = f"{name}-leaf1"
    print(
        f"""
The fabric is up. Some ways to look around; leaf2 and the hosts h11 to h24 are alike:
  ip netns exec {name}-h11 arping -c 3 -b -I eth0 10.0.10.22
  export ARPSUP_RUNTIME_DIRECTORY={tour.agents[1].runtime}
  {programs}/Ctl/arpsupctl show status; {programs}/Ctl/arpsupctl show bindings local
  {programs}/Ctl/arpsupctl explain 10.0.10.22
  ip netns exec {leaf} vtysh -N {leaf} -c 'show bgp l2vpn evpn' -c 'show evpn arp-cache vni all'
  ip -n {leaf} neigh; bridge -n {leaf} fdb show br Vlan10; ip -n {leaf}-red addr
It is taken down by
  ./run --down {name}"""
    )


def go_through(tour):
    print(f"two leaves and their hosts: namespaces {tour.fabric.name}-*", flush=True)
    started = time.monotonic()
    tour.start()
    for number, step in enumerate(STEPS, 1):
        show(step, number, tour)
    show_table(tour.figures)
    seconds = time.monotonic() - started
    print(f"\nall {len(STEPS)} steps as expected, in {seconds:.0f} s", flush=True)


def show_tour(tour, directory):
    """Goes through all steps. Gives whether they were as expected."""
    try:
        go_through(tour)
        return True
    except (Unexpected, Expired, CommandFailed) as error:
        print(f"error: {error}", file=sys.stderr)
        print(f"what the agents wrote is in {directory}", file=sys.stderr)
        return False


def main():
    parser = argparse.ArgumentParser(prog="./run", description=__doc__.split(". ")[0] + ".")
    parser.add_argument("--keep", action="store_true", help="leave the fabric up at the end")
    parser.add_argument("--down", metavar="NAME", help="take down a fabric that was kept")
    parser.add_argument("--programs", default="build/release", help=argparse.SUPPRESS)
    parser.add_argument("--directory", default="build/run", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if os.geteuid() != 0:
        sys.exit("error: network namespaces need root")
    if options.down:
        take_down(options.down)
        shutil.rmtree(os.path.abspath(f"{options.directory}/{options.down}"), ignore_errors=True)
        return 0

    name = f"lab{os.getpid()}"
    directory = os.path.abspath(f"{options.directory}/{name}")
    programs = os.path.abspath(options.programs)
    tour = Tour(name, programs, directory)
    good = interrupted = keep = False
    interruptible()
    try:
        good = show_tour(tour, directory)
        keep = options.keep
        if keep:
            show_around(tour, name, programs)
    except Interrupted:
        interrupted = True
        print("interrupted", file=sys.stderr)
    finally:
        hold_off()
        if not keep:
            tour.stop()
        if (good or interrupted) and not keep:
            shutil.rmtree(directory, ignore_errors=True)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
