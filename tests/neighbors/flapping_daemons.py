#!/usr/bin/env python3
"""Many daemons that restart, come back with new ids and priorities, stop and are killed, for a given time: what valend
has queued is always the goodbye of what each said last. The goodbyes that are expected are made of the frames that were
captured behind valend's filters, apart from valend.

   tests/neighbors/flapping_daemons.py build/release/src/valend/valend [--minutes 60] [--interfaces 100]

lldpd, keepalived and BIRD (OSPF versions 2 and 3, RIP, router advertisements) run on each machine, a network namespace of
some ten interfaces; each link has two machines. Prints a line a minute, and the first differences. Ends with 0 if there was
none, and with 77 if this user may not load filters. Needs what scripts/install-dependencies neighbors unpacks."""
import argparse
import collections
import os
import pathlib
import random
import select
import signal
import subprocess
import sys
import time

import flapping
import network
import programs
from capture import Capture
from derived import derive
from waiting import wait_until

sys.path += [str(programs.SOURCE / "clients/python"), str(programs.SOURCE / "tests/support")]
import said  # noqa: E402
import valen  # noqa: E402

AGENTS = ["learned-lldp", "learned-ospf", "learned-ospfv3", "learned-ra", "learned-rip", "learned-vrrp"]
MOST_PRINTED = 20


class Expected:
    """What the speakers on all devices have said, by device and agent."""

    def __init__(self):
        self._said = collections.defaultdict(dict)
        self.frames = 0

    def take(self, when, device, frame):
        derived = derive(frame)
        if not derived:
            return
        self.frames += 1
        known = self._said[device, derived.agent]
        if derived.who in known or derived.goodbye is not None:
            known.setdefault(derived.who, said.Said()).add(when, derived.goodbye, derived.hold)

    def differences(self, queued, now):
        """`queued`: by device and agent."""
        found = []
        for key in self._said.keys() | queued.keys():
            known = self._said[key]
            for who in [who for who, one in known.items() if now > one.over_at()]:
                del known[who]
            found += [f"{key[0]} {key[1]}: {text}"
                      for text in said.differences(known.values(), queued.get(key, set()), now)]
        return found


class Valend:
    def __init__(self, program, machines):
        lines = ["shutdown-delay-ms: 1000", "goodbyes: learned", "vrfs:"]
        lines += [f"  - {{name: {machine.name}, namespace: {machine.name}}}" for machine in machines]
        lines += ["interfaces:"]
        self._devices = [(machine.name, device) for machine in machines for device in machine.devices]
        lines += [f"  - {{name: {device}, vrf: {vrf}}}" for vrf, device in self._devices]
        pathlib.Path("/run/valen/valen.yaml").write_text("\n".join(lines) + "\n", encoding="ascii")
        os.mkdir("/run/valen/state")
        self.process = subprocess.Popen([program, "--config", "/run/valen/valen.yaml", "--socket", "/run/valen/sock",
                                         "--state-directory", "/run/valen/state"])
        wait_until("valend answers", lambda: os.path.exists("/run/valen/sock"))
        self._client = valen.Client("/run/valen/sock", timeout=60)
        wait_until("all filters are attached", self._attached, 120, 0.5)

    def _attached(self):
        status = self._client.call("Status")
        return not status["conditions"] and \
            all(not self._client.call("Explain", interface=device)["notMuted"] for _, device in self._devices)

    def queued(self):
        """The frames by device and agent."""
        return {(message["interface"], message["agent"]): {bytes.fromhex(frame) for frame in message["frames"]}
                for message in self._client.call("ListMessages", interface=None)["messages"]}

    def lost(self):
        """Frames that the filters could not copy."""
        return self._client.call("Status")["conditions"]

    def memory_kb(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmRSS"))


class Run:
    def __init__(self, options):
        choice = random.Random(options.seed)
        self.machines = flapping.machines(options.interfaces, choice)
        self.captures = [Capture(machine.name) for machine in self.machines]
        self.expected = Expected()
        self.events = collections.Counter()
        self.looks = self.compared = self.different = 0
        self.valend = Valend(options.valend, self.machines)

    def follow(self, until):
        """Takes what leaves the devices."""
        while True:
            left = until - time.time()
            ready = select.select(self.captures, [], [], max(0.0, left))[0]
            for capture in ready:
                for frame in capture.frames():
                    self.expected.take(*frame)
            if left <= 0:
                return

    def act(self):
        programs.reap_orphans({self.valend.process.pid, *(pid for machine in self.machines for pid in machine.pids())})
        for machine in self.machines:
            for event in machine.act(time.time()):
                self.events[event] += 1

    def look(self):
        queued = self.valend.queued()
        now = time.time()
        self.follow(now)
        differences = self.expected.differences(queued, now)
        for text in differences[:max(0, MOST_PRINTED - self.different)]:
            print(text, flush=True)
        self.looks += 1
        self.different += len(differences)
        self.compared += sum(len(frames) for frames in queued.values())
        return queued

    def problems(self):
        """Why the result is worth nothing."""
        lost = sum(capture.lost() for capture in self.captures)
        return ([f"{lost} frames were lost by the capture"] if lost else []) + \
            [f"{condition['name']}: {condition['text']}" for condition in self.valend.lost()]

    def summary(self):
        events = ", ".join(f"{count} {event}" for event, count in sorted(self.events.items()))
        return (f"{events}; {self.expected.frames} frames, {self.looks} looks, {self.compared} goodbyes compared, "
                f"{self.different} differences; valend has {self.valend.memory_kb()} kB")


def play(options):
    run = Run(options)
    begin = time.time()
    report = begin + 60
    agents = set()
    problems = []
    while time.time() < begin + options.minutes * 60:
        run.act()
        agents |= {agent for _, agent in run.look()}
        run.follow(time.time() + 0.5)
        if time.time() >= report:
            report += 60
            problems += run.problems()
            print(f"{(time.time() - begin) / 60:.0f} min: {run.summary()}", flush=True)
    problems += run.problems() + [f"nothing was learned as {agent}" for agent in set(AGENTS) - agents]
    problems += [text for machine in run.machines for text in machine.failed]
    for text in problems:
        print(text)
    print(run.summary())
    run.valend.process.terminate()
    run.valend.process.wait()
    return 1 if run.different or problems else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("valend", type=pathlib.Path)
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--interfaces", type=int, default=100)
    parser.add_argument("--seed", type=int, default=random.randrange(10 ** 9))
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.inside:
        programs.lay_over(programs.PACKAGES)
        return play(options)
    why_not = programs.why_not_here()
    if why_not is not None:
        return why_not
    print(f"seed {options.seed}", flush=True)
    given = [options.valend.resolve(), "--minutes", options.minutes, "--interfaces", options.interfaces,
             "--seed", options.seed]
    return subprocess.run(programs.in_sandbox(__file__, "--inside", *given), check=False).returncode


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    sys.exit(main())
