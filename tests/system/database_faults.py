#!/usr/bin/python3
"""The database fails in the middle of shutdowns: each link goes down on time, and afterwards the database equals the daemon.

   scripts/sandbox tests/system/database_faults.py --valend build/dev/src/valend/valend [--holds 50] [--delay 2000]

valend works with a real server, through a proxy that can damage what the server says. In each round two interfaces are
shut down, one over the API and one by a hash "want:INTERFACE", and a fault happens while they are held. Checked are:

  - each link goes down, not early, and at most 500 ms late; no other link goes down
  - when the server takes values again and valend has connected again, status, history and rejected values in the database are
    those of the API, within --equal-within seconds
  - the request of the database was acted on, with its result

Prints a table: the fault, the holds, median and worst lateness, median and worst time until both sides were equal, and the most
lines of valend's log in a round. Ends with 0 if all of it was so, and with 77 if this user may not create devices.
"""
import pathlib
import random
import sys
import time
import uuid

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
import database_rig as rig  # noqa: E402
import server_faults  # noqa: E402
from database_rig import PREFIX, eventually  # noqa: E402

INTERFACES = 10
BAD_KEY = "config:interface:Bad"
LATE_BOUND_MS = 500


def device(name):
    return name.replace("Ethernet", "et")


class Test:
    def __init__(self, options, work):
        self.options = options
        self.choice = random.Random(options.seed)
        self.names = [f"Ethernet{number}" for number in range(1, INTERFACES + 1)]
        rig.make_devices([device(name) for name in self.names])
        self.downs = rig.LinkDowns()
        self.server = rig.Server(work)
        self.proxy = rig.Proxy(work, self.server.socket)
        self.valend = rig.Valend(options.valend, work / "valend", self.configuration())
        self.results = {}  # by fault: of (lateness, equal after, lines of the log)
        self.problems = []

    def configuration(self):
        """The first half of the interfaces; the others are in the database."""
        lines = [f"shutdown-delay-ms: {self.options.delay}",
                 f'database: {{server: "unix://{self.proxy.socket}", prefix: "{PREFIX}"}}', "interfaces:"]
        lines += [f"  - {{name: {name}, device: {device(name)}}}" for name in self.names[:INTERFACES // 2]]
        return "\n".join(lines) + "\n"

    def produce(self):
        """What agents and operators have in the database, and publish again when it is empty."""
        with self.server.client() as client, client.pipeline(transaction=False) as pipeline:
            for name in self.names[INTERFACES // 2:]:
                pipeline.hset(f"{PREFIX}:config:interface:{name}", "device", device(name))
            for name in self.names:
                pipeline.hset(f"{PREFIX}:frames:agent:{name}", mapping={"0001": rig.FRAME, "owner": "test"})
            pipeline.hset(f"{PREFIX}:{BAD_KEY}", "device", "no/device")
            pipeline.execute()
        server_faults.fill(self.server)

    def problem(self, text):
        self.problems.append(text)
        print(f"PROBLEM: {text}", flush=True)

    def want(self, name, link):
        request = uuid.uuid4().hex
        with self.server.client() as client:
            rig.replace(client, f"{PREFIX}:want:{name}", {"link": link, "id": request, "by": "test"})
        return request

    def run(self):
        self.produce()
        with self.valend:
            with self.valend.client() as api:
                rig.wait_until_ready(api, INTERFACES)
                before = self.valend.memory_kb()
                rounds = (self.options.holds + 1) // 2
                faults = [server_faults.FAULTS[number % len(server_faults.FAULTS)] for number in range(rounds)]
                if self.options.faults:
                    wanted = self.options.faults.split(",")
                    faults = [kind for kind in server_faults.FAULTS for _ in range(max(rounds // len(wanted), 1))
                              if kind.__name__ in wanted]
                for number, kind in enumerate(faults):
                    self.round(api, kind, self.names[2 * number % INTERFACES], self.names[(2 * number + 1) % INTERFACES])
                self.print_table(before)

    def round(self, api, kind, by_api, by_want):
        fault = kind(self.server, self.proxy)
        name = kind.__doc__
        if not eventually(lambda: not any(one["name"] == "database" for one in api.status()["conditions"])):
            self.problem(f"before {name}: the condition of the database is still raised: {api.status()['conditions']}")
        lines, delay = self.log_lines(), self.options.delay / 1000
        before = {one: len(api.call("History", interfaces=[one])["shutdowns"]) for one in (by_api, by_want)}
        self.downs.downs.clear()
        asked = {by_want: time.monotonic()}
        request = self.want(by_want, "down")
        if not eventually(lambda: api.interface(by_want)["shuttingDown"], delay / 3):
            self.problem(f"{name}: the request for {by_want} was not acted on in {delay / 3:.1f} s")
        asked[by_api] = time.monotonic()
        api.shutdown(by_api)
        time.sleep(delay * self.choice.uniform(0.1, 0.3))
        pairs = list(self.proxy.pairs)
        fault.begin()
        begun = time.monotonic()
        if not all(api.interface(one)["shuttingDown"] for one in asked):
            print(f"{name}: the holds ended before the fault was there: this machine is too slow", flush=True)
        if self.choice.random() < 0.5:  # the fault outlasts the holds
            self.wait_for_downs(asked, delay)
        time.sleep(max(0, begun + fault.seconds - time.monotonic()))
        fault.end()
        eventually(self.server.usable)
        if fault.empties:
            self.produce()
        equal = self.equality(api, fault, name, pairs)
        self.wait_for_downs(asked, delay)
        late = self.lateness(name, asked, delay)
        self.check_results(api, name, before, by_want, request)
        self.results.setdefault(name, []).append((late, equal, self.log_lines() - lines))
        self.restore(api, name, by_api, by_want)

    def wait_for_downs(self, asked, delay):
        eventually(lambda: all(device(one) in self.downs.downs for one in asked), delay + 3)

    def lateness(self, name, asked, delay):
        found = []
        for one, when in asked.items():
            down = self.downs.downs.pop(device(one), None)
            if not down:
                self.problem(f"{name}: {one} has not gone down")
                continue
            late = (down - when - delay) * 1000
            found.append(late)
            if not 0 <= late <= LATE_BOUND_MS:
                self.problem(f"{name}: {one} went down {late:.1f} ms late")
        for other in self.downs.downs:
            self.problem(f"{name}: {other} went down, which was not requested")
        return found

    def equality(self, api, fault, name, pairs):
        """Seconds from the new connection until both sides are equal."""
        if fault.loses and not eventually(lambda: not any(pair.alive for pair in pairs)):
            self.problem(f"{name}: valend has not noticed the loss")
        if not eventually(lambda: self.valend.metric(api, "valen_database_connected") == 1):
            self.problem(f"{name}: valend has not connected again")
        begin = time.monotonic()
        with self.server.client() as client:
            last = []
            while found := rig.differences(api, client, [BAD_KEY]):
                last = found
                if time.monotonic() > begin + max(10, self.options.equal_within):
                    break
                time.sleep(0.01)
        seconds = time.monotonic() - begin
        if seconds > self.options.equal_within:
            self.problem(f"{name}: not equal {'after' if found else 'before'} {seconds:.2f} s: {last[:5]}")
        return seconds

    def check_results(self, api, name, before, by_want, request):
        for one in before:
            records = lambda one=one: api.call("History", interfaces=[one])["shutdowns"]  # noqa: E731
            if not eventually(lambda: len(records()) > before[one], 5) or len(records()) != before[one] + 1:
                self.problem(f"{name}: {len(records()) - before[one]} records of {one} instead of one")
            elif records()[-1]["ending"] != "down":
                self.problem(f"{name}: the record of {one}: {records()[-1]}")
        with self.server.client() as client:
            key = f"{PREFIX}:status:{by_want}"
            wanted = [request.encode(), b"down"]
            if not eventually(lambda: client.hmget(key, "id", "result") == wanted, 5):
                self.problem(f"{name}: {key} has {client.hmget(key, 'id', 'result')} for the request {request}")

    def restore(self, api, name, by_api, by_want):
        rig.wait_until_configured(api, self.names)
        api.enable(by_api)
        self.want(by_want, "up")
        if not eventually(lambda: len(api.call("List", ready=True)["interfaces"]) == INTERFACES):
            self.problem(f"{name}: not ready again: "
                         f"{[(one['name'], one['notReady']) for one in api.status()['interfaces'] if not one['ready']]}")

    def log_lines(self):
        return sum("database" in line for line in self.valend.log.read_text(encoding="utf-8").splitlines())

    def print_table(self, memory_before):
        head = f"{'fault':<32} {'holds':>5} {'late, ms: median':>17} {'worst':>6} {'equal, ms: median':>18} {'worst':>6} {'lines':>6}"
        print(f"\n{rig.machine()}; delay {self.options.delay} ms; seed {self.options.seed}\n{head}")
        for name, rounds in [*self.results.items(), ("all", sum(self.results.values(), []))]:
            lates = [late for one in rounds for late in one[0]]
            equals = [one[1] * 1000 for one in rounds]
            late, equal = rig.median_and_worst(lates), rig.median_and_worst(equals)
            print(f"{name:<32} {len(lates):>5} {late[0]:>17.1f} {late[1]:>6.1f} {equal[0]:>18.0f} {equal[1]:>6.0f} "
                  f"{max(one[2] for one in rounds):>6}")
        print(f"valend had {memory_before} kB, and has {self.valend.memory_kb()} kB; {len(self.problems)} problems", flush=True)


def main():
    parser = rig.parser_for(__doc__)
    parser.add_argument("--valend", required=True, help="the program")
    parser.add_argument("--holds", type=int, default=50, help="shutdowns in all [50]")
    parser.add_argument("--delay", type=int, default=2000, metavar="MS", help="how long links are held [2000]")
    parser.add_argument("--equal-within", type=float, default=1, metavar="S", help="the bound [1]")
    parser.add_argument("--faults", metavar="NAME,...", help="only these: " + ", ".join(one.__name__ for one in server_faults.FAULTS))
    parser.add_argument("--seed", type=int, default=random.randrange(10 ** 9), help="repeats the choices of a run")
    parser.add_argument("--short", action="store_true",
                        help="some seconds: six faults, a delay of 1 s, and twice the time until both sides are equal")
    options = parser.parse_args()
    if options.short:
        options.faults = options.faults or "Restarted,Emptied,Killed,Half,Garbage,OutOfMemory"
        options.holds, options.delay, options.equal_within = 0, 1000, 2
    return rig.run_test(lambda work: Test(options, work), log="valend/valend.log")


if __name__ == "__main__":
    sys.exit(main())
