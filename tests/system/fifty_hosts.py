#!/usr/bin/python3
"""Many hosts at one database: valenctl shows all of them in a second, and drains all of them at once.

   scripts/sandbox tests/system/fifty_hosts.py --valend build/dev/src/valend/valend --valenctl build/dev/src/valenctl/valenctl

Each host is a valend in a network namespace of its own. Checked are:

  - "valenctl --database URL --host all status" knows all hosts and interfaces, none of them stale, within --status-within
    seconds, in the median of five times
  - "valenctl --database URL --host all shutdown --all --wait" ends with 0, when all links are down; none goes down before its
    delay is over. The link downs are not more than --spread times as far apart as those of "ip", which sets the links of one host
    down after those of the other: the kernel sets down one link at a time, whatever their namespaces

Prints the times, and how far the link downs are apart. With --short, for ten hosts that are drained once, and without bounds for
the times. Ends with 0 if all of it was so, and with 77 if this user may not create devices.
"""
import contextlib
import json
import math
import pathlib
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
import database_rig as rig  # noqa: E402
from database_rig import eventually  # noqa: E402


class Host:
    def __init__(self, number, options, work, server):
        self.name = f"rtr{number}"
        self.devices = [f"h{number}e{index}" for index in range(1, options.interfaces + 1)]
        subprocess.run(["ip", "netns", "add", self.name], check=True)
        rig.make_devices(self.devices, self.name)
        lines = [f"shutdown-delay-ms: {options.delay}",
                 f'database: {{server: "unix://{server.socket}", prefix: "valen:{self.name}"}}', "interfaces:"]
        names = [f"Ethernet{index}" for index in range(1, options.interfaces + 1)]
        lines += [f"  - {{name: {name}, device: {device}}}" for name, device in zip(names, self.devices)]
        lines += ["agents:", "  - name: lldp", "    messages:"]
        lines += [f"      {name}: [{rig.FRAME.hex()}]" for name in names]
        self.valend = rig.Valend(options.valend, work / self.name, "\n".join(lines) + "\n", netns=self.name)


class Test:
    def __init__(self, options, work):
        self.options, self.problems, self.spreads = options, 0, []
        self.server = rig.Server(work)
        self.hosts = [Host(number, options, work, self.server) for number in range(1, options.hosts + 1)]
        self.devices = [device for host in self.hosts for device in host.devices]
        self.downs = rig.LinkDowns([host.name for host in self.hosts])

    def problem(self, text):
        self.problems += 1
        print(f"PROBLEM: {text}", flush=True)

    def ctl(self, *words):
        """What it prints, and how long it takes. That it ends with another status than 0 is a problem."""
        begin = time.monotonic()
        done = subprocess.run([self.options.valenctl, "--database", f"unix://{self.server.socket}", "--host", "all",
                               "--timeout", "60", *words], capture_output=True, text=True, check=False)
        seconds = time.monotonic() - begin
        if done.returncode != 0:
            self.problem(f"{words} ends with {done.returncode}: {(done.stdout + done.stderr)[-500:]}")
        return done.stdout, seconds

    def run(self):
        with contextlib.ExitStack() as stack:
            for host in self.hosts:
                host.valend.start(wait=False)
                stack.callback(host.valend.stop)
            if not eventually(self.all_ready, 60, 0.1):
                return self.problem("the hosts are not ready")
            print(f"{rig.machine()}; {len(self.hosts)} hosts with {self.options.interfaces} interfaces, "
                  f"delay {self.options.delay} ms")
            self.check_status()
            for what in ["shutdown --all --wait"] if self.options.short else ["shutdown --all --wait", "once more"]:
                self.drain(what)
                self.ctl("enable", "--all")
                if not eventually(self.all_ready, 60, 0.1):
                    return self.problem("not all are ready again")
        bare = self.bare()
        print(f"ip: the last link is down {bare * 1000:.0f} ms after the first")
        if min(self.spreads, default=0) > self.options.spread * bare:
            self.problem(f"the link downs are {min(self.spreads):.2f} s apart, with ip {bare:.2f} s")
        return None

    def all_ready(self):
        with self.server.client() as client:
            status = [fields for host in self.hosts for fields in rig.hashes(client, f"valen:{host.name}:status:*").values()]
            alive = sum(client.exists(f"valen:{host.name}:alive") for host in self.hosts)
        return (alive == len(self.hosts) and len(status) == len(self.devices)
                and all(fields.get("ready") == "yes" for fields in status))

    def check_status(self):
        hosts = json.loads(self.ctl("status", "--json")[0] or '{"hosts": []}')["hosts"]
        stale = [one for one in hosts if one["stale"]]
        interfaces = sum(len(one["interfaces"]) for one in hosts)
        if len(hosts) != len(self.hosts) or stale or interfaces != len(self.devices):
            self.problem(f"status has {len(hosts)} hosts, {len(stale)} of them stale, and {interfaces} interfaces")
        times = [self.ctl("status")[1] for _ in range(5)]
        print(f"status of all: median {statistics.median(times):.3f} s, worst {max(times):.3f} s")
        if statistics.median(times) > self.options.status_within:
            self.problem(f"status takes {statistics.median(times):.2f} s")

    def bare(self):
        """Seconds from the first link down to the last one, without valend."""
        self.downs.downs.clear()
        for host in self.hosts:
            rig.ip_batch("".join(f"link set {device} down\n" for device in host.devices), host.name)
        eventually(lambda: len(self.downs.downs) == len(self.devices), 2)
        downs = self.downs.downs.values()
        return max(downs) - min(downs)

    def drain(self, what):
        self.downs.downs.clear()
        begin = time.monotonic()
        seconds = self.ctl("shutdown", "--all", "--wait", "--reason", "test")[1]
        eventually(lambda: len(self.downs.downs) == len(self.devices), 2)
        downs = {device: when - begin for device, when in self.downs.downs.items()}
        if missing := [device for device in self.devices if device not in downs]:
            return self.problem(f"{len(missing)} links are not down: {missing[:5]}")
        first, last = min(downs.values()), max(downs.values())
        print(f"{what}: {seconds:.2f} s; the first link is down {first * 1000 - self.options.delay:.0f} ms after the delay, the "
              f"last one {(last - first) * 1000:.0f} ms after the first, "
              f"half of them within {(statistics.median(downs.values()) - first) * 1000:.0f} ms")
        if first * 1000 < self.options.delay:
            self.problem(f"a link went down after {first * 1000:.0f} ms")
        self.spreads.append(last - first)
        if seconds < last - 0.05:
            self.problem(f"valenctl ended after {seconds:.3f} s, before the last link was down after {last:.3f} s")
        return None


def main():
    parser = rig.parser_for(__doc__)
    parser.add_argument("--valend", required=True, help="the program")
    parser.add_argument("--valenctl", required=True, help="the program")
    parser.add_argument("--hosts", type=int, default=50, help="[50]")
    parser.add_argument("--interfaces", type=int, default=4, help="of each [4]")
    parser.add_argument("--delay", type=int, default=2000, metavar="MS", help="how long links are held [2000]")
    parser.add_argument("--status-within", type=float, default=1, metavar="S", help="[1]")
    parser.add_argument("--spread", type=float, default=3, metavar="N", help="of link downs, of that of ip, at most [3]")
    parser.add_argument("--short", action="store_true", help="some seconds: 10 hosts, a delay of 500 ms, one drain; times are not checked")
    options = parser.parse_args()
    if options.short:
        options.hosts, options.delay = 10, 500
        options.status_within = options.spread = math.inf
    return rig.run_test(lambda work: Test(options, work))


if __name__ == "__main__":
    sys.exit(main())
