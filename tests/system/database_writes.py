#!/usr/bin/python3
"""Many write to the database at once, much of it wrong, while the server fails: valend always has what a fresh start would read.

   scripts/sandbox tests/system/database_writes.py --valend build/dev/src/valend/valend [--writes 100000]

Four producers write frames with leases, two tools configuration and requests: valid and invalid, replaced and deleted. Every few
seconds the server or a connection fails. Checked are:

  - at random moments: everything that is active was written, and is valid
  - in each quiet moment: what is wrong is rejected, and what is right is not. An interface that is rejected has a value that was
    written before, and all that was rejected is deleted or repaired. Then configuration and frames are, byte for byte,
    those of a second valend that starts with nothing but a copy of the hashes under another prefix
  - the request that is in the database for an interface in a quiet moment was acted on, with a result; and no request was
    acted on twice

Prints counts, and the first differences. Ends with 0 if there were none, and with 77 if this user may not create devices.
"""
import json
import pathlib
import random
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
import database_rig as rig  # noqa: E402
import server_faults  # noqa: E402
from database_rig import PREFIX, eventually, replace  # noqa: E402

FRESH = "valen:fresh"
LINKS = [f"Link{number}" for number in range(1, 9)]  # with devices, of the file: requests are for these
CHANGING = [f"Ethernet{number}" for number in range(1, 21)]  # of the database
VRFS = [f"red{number}" for number in range(1, 6)]
MISSING = ["Nowhere1", "Nowhere2"]  # never configured
AGENTS = [f"agent{number}" for number in range(1, 5)]
FINAL = ("down", "up", "aborted", "already-up", "already-down", "failed", "rejected")
LONGEST_FRAME = 65535
LEASE_MS = 1500
PAUSE_S = 0.004  # of a writer, at most


class Written:
    """Everything valid that was ever written, by what valend shows of it. Texts have numbers, so no two values are alike."""

    def __init__(self):
        self.lock = threading.Lock()
        self.number = 0
        self.valid = {"interfaces": set(), "vrfs": set(), "delays": {"200"}, "messages": set()}
        self.interfaces = {}  # name: devices that were written for it
        self.count = self.invalid = self.errors = 0

    def next(self):
        with self.lock:
            self.number += 1
            return self.number


class Writer(threading.Thread):
    """Writes until it is told to stop, and pauses when it is told to. What the server does not take is lost."""

    def __init__(self, server, written, seed):
        super().__init__(daemon=True)
        self.server, self.written, self.choice = server, written, random.Random(seed)
        self.may_write, self.paused, self.stopped = threading.Event(), threading.Event(), False
        self.client = server.client(socket_timeout=2)

    def run(self):
        while not self.stopped:
            if not self.may_write.is_set():
                self.paused.set()
                self.may_write.wait()
                self.paused.clear()
            try:
                self.write()
            except rig.redis.RedisError:
                self.written.errors += 1
                time.sleep(0.02)
            time.sleep(self.choice.uniform(0, PAUSE_S))

    def set(self, name, fields, valid=True):
        replace(self.client, f"{PREFIX}:{name}", fields)
        with self.written.lock:
            self.written.count += 1
            self.written.invalid += not valid

    def write(self):
        raise NotImplementedError


class Producer(Writer):
    """An agent with a lease."""

    def __init__(self, server, written, seed, agent):
        super().__init__(server, written, seed)
        self.agent, self.lease = agent, f"{PREFIX}:lease:{agent}"

    def write(self):
        interface = self.choice.choice(CHANGING + LINKS + MISSING)
        name = f"frames:{self.agent}:{interface}"
        draw = self.choice.random()
        if draw < 0.1:
            return self.set(name, {})
        if draw < 0.25:
            return self.set(name, self.wrong(), valid=False)
        frames = [self.frame() for _ in range(self.choice.randrange(1, 4))]
        self.written.valid["messages"].add((self.agent, interface, tuple(frame.hex() for frame in frames)))
        fields = {f"{number + 1:04}": frame for number, frame in enumerate(frames)} | {"owner": f"{self.agent} of the test"}
        if self.choice.random() < 0.5:
            fields["lease"] = self.lease
        if self.choice.random() < 0.02:  # else it is not renewed for some time
            self.client.set(self.lease, "", px=LEASE_MS)
        return self.set(name, fields)

    def frame(self):
        length = 9000 if self.choice.random() < 0.01 else self.choice.randrange(0, 100)
        return bytes.fromhex("ffffffffffff02000000000188b5") + f"{self.written.next():08}".encode() + bytes(length)

    def wrong(self):
        return self.choice.choice([
            {"0001": b"too short"}, {"0001": bytes(LONGEST_FRAME + 1)}, {"owner": "no frames"},
            {"0001": self.frame(), "unknown": "x"}, {"0001": self.frame(), "owner": "a\nb"},
            {"0001": self.frame(), "owner": "x" * 300}, {"0001": self.frame(), "lease": "\x01"}])


class Operator(Writer):
    """A tool that changes the configuration and requests links."""

    def write(self):
        self.choice.choice([self.interface, self.interface, self.vrf, self.delay, self.want])()

    def interface(self):
        name = self.choice.choice(CHANGING)
        key, draw, number = f"config:interface:{name}", self.choice.random(), self.written.next()
        device = f"d{number}"
        if draw < 0.1:
            return self.set(key, {})
        if draw < 0.3:
            return self.set(key, self.choice.choice([
                {"device": f"no/{number}"}, {"device": f"far-too-long-a-name-{number}"}, {"device": device, "vrf": "no-such-vrf"},
                {"device": device, "colour": "red"}, {"device": device, "shutdown-delay": "perhaps"},
                {"device": device, "goodbyes": "[lldp, nothing"}, {"device": "link1"}]), valid=False)
        vrf = self.choice.choice(["default", "default", *VRFS])
        delay = self.choice.choice([True, False])
        goodbyes = self.choice.choice([None, "off", "[lldp, ra]"])
        self.written.valid["interfaces"].add((name, device, vrf, delay, goodbyes))
        fields = {"device": device, "shutdown-delay": "true" if delay else "false"}
        fields |= {"vrf": vrf} if vrf != "default" else {}
        return self.set(key, fields | ({"goodbyes": goodbyes} if goodbyes else {}))

    def vrf(self):
        name = self.choice.choice(VRFS)
        key, draw, number = f"config:vrf:{name}", self.choice.random(), self.written.next()
        if draw < 0.1:
            return self.set(key, {})
        if draw < 0.3:
            return self.set(key, self.choice.choice([{"namespace": f"no/{number}"}, {"colour": "red"},
                                                     {"namespace": f"ns{number}", "x": "y"}]), valid=False)
        self.written.valid["vrfs"].add((name, f"ns{number}"))
        return self.set(key, {"namespace": f"ns{number}"})

    def delay(self):
        draw = self.choice.random()
        if draw < 0.1:
            return self.set("config:delay", {})
        if draw < 0.4:
            return self.set("config:delay", {"shutdown-delay-ms": self.choice.choice(["-1", "much", "99999999999", ""])},
                            valid=False)
        delay = str(self.choice.randrange(50, 500))
        self.written.valid["delays"].add(delay)
        return self.set("config:delay", {"shutdown-delay-ms": delay})

    def want(self):
        name = self.choice.choice(LINKS + MISSING[:1])
        fields = {"link": self.choice.choice(["up", "down"]), "id": f"id-{self.written.next():08}", "by": "test"}
        wrong = self.choice.random() < 0.2
        if wrong:
            fields |= self.choice.choice([{"link": "sideways"}, {"id": ""}, {"id": "x" * 65}, {"delay-ms": "soon"}])
        elif self.choice.random() < 0.5:
            fields["delay-ms"] = str(self.choice.randrange(0, 300))
        self.set(f"want:{name}", fields, valid=not wrong)


class Looker(threading.Thread):
    """Looks at what is active at random moments, and collects the shutdowns."""

    def __init__(self, valend, written, problem):
        super().__init__(daemon=True)
        self.valend, self.written, self.problem = valend, written, problem
        self.looks = 0
        self.shutdowns = {}  # by the id of the request: when they were asked for
        self.stopped = False

    def run(self):
        choice = random.Random()
        with self.valend.client() as api:
            while not self.stopped:
                self.look(api)
                time.sleep(choice.uniform(0, 0.2))

    def look(self, api):
        active = state_of(api)
        valid = self.written.valid
        for kind, found in (("interfaces", [tuple(one[:5]) for one in active["interfaces"] if one[0] not in LINKS]),
                            ("vrfs", [tuple(one[:2]) for one in active["vrfs"] if one[0] != "default"]),
                            ("delays", [active["delay"][0]]),
                            ("messages", [(one[0], one[1], tuple(one[2])) for one in active["messages"] if one[0] != "noise"])):
            for one in found:
                if one not in valid[kind]:
                    self.problem(f"active, but not valid: {kind} {str(one)[:300]}")
        for record in api.call("History")["shutdowns"]:
            if record["requestId"]:
                self.shutdowns.setdefault(record["requestId"], set()).add((record["interface"], record["whenMs"]))
        self.looks += 1


def state_of(api):
    """The configuration and the published frames, without the paths of the process."""
    config = api.call("Config")
    place = lambda one: one["place"] and one["place"]["database"] and one["place"]["file"]  # noqa: E731
    delay = next(one for one in config["settings"] if one["name"] == "shutdown-delay-ms")
    return {
        "delay": [delay["value"], place(delay)],
        "vrfs": [[one["name"], one["namespace"], place(one)] for one in config["vrfs"]],
        "interfaces": [[one["name"], one["device"], one["vrf"], one["shutdownDelay"], one["goodbyes"], place(one)]
                       for one in config["interfaces"]],
        "configured": config["messages"],
        "messages": [[one["agent"], one["interface"], one["frames"], one["owner"], one["lifetime"], one["inForce"]]
                     for one in api.call("ListMessages")["messages"]],
    }


class Test:
    def __init__(self, options, work):
        self.options, self.work = options, work
        self.choice = random.Random(options.seed)
        self.problems = 0
        self.quiet = self.repaired = self.requests = 0
        rig.make_devices([link.lower() for link in LINKS])
        rig.subprocess.run(["ip", "netns", "add", "fresh"], check=True)
        self.server = rig.Server(work)
        self.proxy = rig.Proxy(work, self.server.socket)
        server_faults.fill(self.server)
        self.written = Written()
        seeds = iter(range(options.seed, options.seed + 10))
        self.writers = [Producer(self.server, self.written, next(seeds), agent) for agent in AGENTS]
        self.writers += [Operator(self.server, self.written, next(seeds)) for _ in range(2)]

    def problem(self, text):
        self.problems += 1
        if self.problems <= 20:
            print(f"PROBLEM: {text}", flush=True)

    @staticmethod
    def configuration(socket, prefix):
        lines = ["shutdown-delay-ms: 200", f'database: {{server: "unix://{socket}", prefix: "{prefix}"}}', "interfaces:"]
        lines += [f"  - {{name: {link}, device: {link.lower()}}}" for link in LINKS]
        return "\n".join(lines) + "\n"

    def run(self):
        main = rig.Valend(self.options.valend, self.work / "main", self.configuration(self.proxy.socket, PREFIX))
        with main:
            looker = Looker(main, self.written, self.problem)
            looker.start()
            for writer in self.writers:
                writer.start()
            with main.client() as api:
                goal, faults = 0, []
                while self.written.count < self.options.writes and not self.problems > 100:
                    goal += self.options.writes_between
                    self.write_until(goal, main, api, faults)
                    self.quiet_moment(main, api)
                looker.stopped = True
                looker.join()
                looker.look(api)
                self.check_shutdowns(looker)
                memory = main.memory_kb()
        print(f"{rig.machine()}; seed {self.options.seed}\n{self.written.count} writes, {self.written.invalid} of them invalid, "
              f"{self.written.errors} that the server did not take; {len(faults)} faults\n{looker.looks} looks at what was active, "
              f"{self.quiet} quiet moments, {self.repaired} rejected values repaired or deleted, {self.requests} requests looked "
              f"at, {len(looker.shutdowns)} shutdowns of requests\nvalend has {memory} kB; {self.problems} differences", flush=True)

    def write_until(self, goal, main, api, faults):
        for writer in self.writers:
            writer.may_write.set()
        while self.written.count < goal:
            time.sleep(self.choice.uniform(0.2, self.options.between_faults))
            if not eventually(lambda: main.metric(api, "valen_database_connected") == 1):
                self.problem("valend does not connect again")
            kinds = server_faults.QUICK if self.options.short else server_faults.FAULTS
            # What is inserted into a value cannot be told from the value.
            kinds = [kind for kind in kinds if kind is not server_faults.Garbage]
            fault = self.choice.choice(kinds)(self.server, self.proxy)
            fault.begin()
            time.sleep(fault.seconds)
            fault.end()
            faults.append(fault)
            eventually(self.server.usable)
        for writer in self.writers:
            writer.paused.clear()
            writer.may_write.clear()
        for writer in self.writers:
            writer.paused.wait()

    def quiet_moment(self, main, api):
        self.quiet += 1
        eventually(lambda: main.metric(api, "valen_database_connected") == 1)
        eventually(lambda: main.metric(api, "valen_database_writes_pending") == 0)
        with self.server.client() as client:
            for agent in AGENTS:  # some have gone, the others stay for long
                lease = f"{PREFIX}:lease:{agent}"
                client.set(lease, "", px=600000) if self.choice.random() < 0.7 else client.delete(lease)
            time.sleep(2)  # leases are looked at once a second
            self.check_requests(client)
            self.repair(client, api)
            time.sleep(1)
            self.compare(client, api)

    def repair(self, client, api):
        """What is rejected is checked, and deleted or replaced, until nothing is rejected."""
        known = {*LINKS, *CHANGING, *VRFS, "delay"}
        for attempt in range(8):
            rejected = [key[len(f"{PREFIX}:rejected:"):] for key in rig.hashes(client, f"{PREFIX}:rejected:*")]
            self.check_rejected(client, api, rejected, attempt)
            if not rejected:
                return
            for key in rejected:
                self.repaired += 1
                delete = attempt > 3 or self.choice.random() < 0.5 or key.rpartition(":")[2] not in known
                replace(client, f"{PREFIX}:{key}", {} if delete else self.repaired_value(key))
            eventually(lambda: not rig.hashes(client, f"{PREFIX}:rejected:*"), 4)
        self.problem(f"still rejected after repairs: {rejected}")

    def repaired_value(self, key):
        number = self.written.next()
        if key == "config:delay":
            self.written.valid["delays"].add("250")
            return {"shutdown-delay-ms": "250"}
        if key.startswith("config:vrf:"):
            self.written.valid["vrfs"].add((key[11:], f"ns{number}"))
            return {"namespace": f"ns{number}"}
        if key.startswith("config:interface:"):
            self.written.valid["interfaces"].add((key[17:], f"d{number}", "default", True, None))
            return {"device": f"d{number}"}
        _, agent, interface = key.split(":", 2)
        frame = self.writers[0].frame()
        self.written.valid["messages"].add((agent, interface, (frame.hex(),)))
        return {"0001": frame}

    def check_rejected(self, client, api, rejected, attempt):
        """What is wrong by itself is rejected, and what is active of it was there before."""
        present = rig.hashes(client, f"{PREFIX}:config:*") | rig.hashes(client, f"{PREFIX}:frames:*")
        for key in rejected:
            if f"{PREFIX}:{key}" not in present:
                told = client.hgetall(f"{PREFIX}:rejected:{key}")
                self.problem(f"rejected, but does not exist: {key} (type {client.type(f'{PREFIX}:{key}')}): {told}")
        wrong = [key for key, fields in present.items() if is_wrong(key[len(PREFIX) + 1:], fields)]
        for key in wrong:
            if key[len(PREFIX) + 1:] not in rejected:
                self.problem(f"wrong, but not rejected: {key} {str(present[key])[:200]} (attempt {attempt})")
        active = state_of(api)
        interfaces = {one[0]: one for one in active["interfaces"]}
        for key, fields in present.items():
            name = key[len(f"{PREFIX}:config:interface:"):]
            if not key.startswith(f"{PREFIX}:config:interface:"):
                continue
            is_rejected = f"config:interface:{name}" in rejected
            if not is_rejected and interfaces.get(name, [None] * 2)[1] != fields["device"]:
                self.problem(f"not active, and not rejected: {key} {fields}; {interfaces.get(name)}")
            if is_rejected and name in interfaces and tuple(interfaces[name][:5]) not in self.written.valid["interfaces"]:
                self.problem(f"{name} is {interfaces[name]}, which is not its last valid value")

    def check_requests(self, client):
        for key, fields in rig.hashes(client, f"{PREFIX}:want:*").items():
            name = key[len(f"{PREFIX}:want:"):]
            if not 0 < len(fields.get("id", "")) <= 64:
                continue  # it has no id by which to tell
            self.requests += 1
            status = f"{PREFIX}:status:{name}"

            def done(status=status, wanted=fields["id"]):
                acted, result = (rig.text_of(one or b"") for one in client.hmget(status, "id", "result"))
                return acted == wanted and result.startswith(FINAL)

            if not eventually(done, 10):
                self.problem(f"{key} {fields} was not acted on: {client.hmget(status, 'id', 'result')}")

    def check_shutdowns(self, looker):
        for request, when in looker.shutdowns.items():
            if len(when) > 1:
                self.problem(f"the request {request} was acted on {len(when)} times: {when}")
        with self.server.client() as client:
            ids = [fields[b"id"] for _, fields in client.xrange(f"{PREFIX}:history") if fields[b"id"]]
            if len(ids) != len(set(ids)):
                self.problem("an id is twice in the history of the database")

    def compare(self, client, api):
        """With a valend that knows nothing but a copy."""
        state = json.dumps(state_of(api), indent=1)
        copied = rig.hashes(client, f"{PREFIX}:config:*") | rig.hashes(client, f"{PREFIX}:frames:*")
        for key in copied:
            client.copy(key, FRESH + key[len(PREFIX):], replace=True)
        work = self.work / f"fresh{self.quiet}"
        fresh = rig.Valend(self.options.valend, work, self.configuration(self.server.socket, FRESH), netns="fresh")
        with fresh, fresh.client() as other:
            if not eventually(lambda: json.dumps(state_of(other), indent=1) == state, 10, 0.05):
                mine, its = state.splitlines(), json.dumps(state_of(other), indent=1).splitlines()
                lines = [f"  {one[:150]!r} here, {two[:150]!r} in a fresh one" for one, two in zip(mine, its) if one != two]
                self.problem(f"{len(mine)} and {len(its)} lines:\n" + "\n".join(lines[:5]))
        for key in client.scan_iter(f"{FRESH}:*", count=1000):
            client.delete(key)


def is_wrong(key, fields):
    """By itself, whatever else there is."""
    if key.startswith("frames:"):
        frames = [value for name, value in fields.items() if name.isdigit()]
        return (not frames or "unknown" in fields or "too short" in frames or any(len(one) > LONGEST_FRAME for one in frames)
                or len(fields.get("owner", "")) > 255 or "\n" in fields.get("owner", "") or fields.get("lease") == "\x01")
    if key == "config:delay":
        return not fields.get("shutdown-delay-ms", "").isdigit() or len(fields["shutdown-delay-ms"]) > 6
    if key.startswith("config:vrf:"):
        return set(fields) != {"namespace"} or "/" in fields["namespace"]
    return ("/" in fields["device"] or len(fields["device"]) > 15 or "colour" in fields
            or fields.get("shutdown-delay") == "perhaps" or "nothing" in fields.get("goodbyes", ""))


def main():
    parser = rig.parser_for(__doc__)
    parser.add_argument("--valend", required=True, help="the program")
    parser.add_argument("--writes", type=int, default=100000, help="in all [100000]")
    parser.add_argument("--writes-between", type=int, default=5000, help="quiet moments [5000]")
    parser.add_argument("--between-faults", type=float, default=3, metavar="S", help="at most [3]")
    parser.add_argument("--seed", type=int, default=random.randrange(10 ** 9), help="repeats the choices of a run")
    parser.add_argument("--short", action="store_true", help="some seconds: 3000 writes, two quiet moments, quick faults")
    options = parser.parse_args()
    if options.short:
        options.writes, options.writes_between, options.between_faults = 3000, 1500, 0.5
    return rig.run_test(lambda work: Test(options, work), log="main/valend.log")


if __name__ == "__main__":
    sys.exit(main())
