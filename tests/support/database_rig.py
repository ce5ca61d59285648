"""What the programs that put valend and its database under faults and load share: the server, a proxy in front of it that
does harm, a running valend, its devices and when their links go down, and the comparison of the two sides."""

import argparse
import contextlib
import ctypes
import json
import os
import pathlib
import select
import shutil
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
import time

import redis

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "clients" / "python"))
import valen  # noqa: E402

FRAME = bytes.fromhex("0180c200000e02000000000188cc020704020000000001040703020000000001060200000000")
PREFIX = "valen:rtr1"
SKIPPED = 77
_libc = ctypes.CDLL(None, use_errno=True)


def eventually(condition, seconds=30.0, pause=0.005):
    """Whether it becomes true in time. What it returns is returned."""
    end = time.monotonic() + seconds
    while not (found := condition()):
        if time.monotonic() > end:
            return False
        time.sleep(pause)
    return found


def _end_with_this_process():
    _libc.prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG


def spawn(words, **parameters):
    return subprocess.Popen([str(word) for word in words], preexec_fn=_end_with_this_process, **parameters)


def machine():
    return f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f}"


def median_and_worst(values):
    return (statistics.median(values), max(values)) if values else (float("nan"), float("nan"))


def parser_for(doc):
    """A parser of options with the text of the program as its help."""
    return argparse.ArgumentParser(description=doc, formatter_class=argparse.RawDescriptionHelpFormatter)


def may_create_devices():
    """Whether this user may. Without that right, nothing can be tested."""
    made = subprocess.run(["ip", "link", "add", "probe", "type", "ifb"], capture_output=True, check=False)
    if made.returncode == 0:
        subprocess.run(["ip", "link", "del", "probe"], check=True)
    return made.returncode == 0


# --- Devices --------------------------------------------------------------------------------------


def ip_batch(commands, netns=None):
    where = ["-n", netns] if netns else []
    subprocess.run(["ip", *where, "-batch", "-"], input=commands, text=True, check=True)


def without_ipv6(netns=None):
    words = ["sysctl", "-q", "-w", "net.ipv6.conf.all.disable_ipv6=1", "net.ipv6.conf.default.disable_ipv6=1"]
    subprocess.run((["ip", "netns", "exec", netns] if netns else []) + words, check=True)


def make_devices(names, netns=None):
    """Devices that are up."""
    without_ipv6(netns)
    ip_batch("".join(f"link add {name} type ifb\nlink set {name} up\n" for name in names), netns)


@contextlib.contextmanager
def inside(netns):
    """Sockets that are opened inside belong to the namespace; None is that of this program."""
    if not netns:
        yield
        return
    with open("/proc/thread-self/ns/net", "rb") as before, open(f"/run/netns/{netns}", "rb") as there:
        if _libc.setns(there.fileno(), 0) < 0:
            raise OSError(ctypes.get_errno(), "setns")
        try:
            yield
        finally:
            _libc.setns(before.fileno(), 0)


class LinkDowns(threading.Thread):
    """Follows rtnetlink in namespaces, whose devices have different names: when each was set down last."""

    def __init__(self, namespaces=(None,)):
        super().__init__(daemon=True)
        self.sockets = [self._open(netns) for netns in namespaces]
        self.up = {}
        self.downs = {}
        self.start()

    @staticmethod
    def _open(netns):
        with inside(netns):
            one = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
        one.setsockopt(socket.SOL_SOCKET, 33, 8 << 20)  # SO_RCVBUFFORCE
        one.bind((0, 1))  # RTMGRP_LINK
        return one

    def run(self):
        poll = select.epoll()
        by_fd = {one.fileno(): one for one in self.sockets}
        for one in by_fd:
            poll.register(one, select.EPOLLIN)
        while True:
            ready = poll.poll()
            now = time.monotonic()
            for fd, _ in ready:
                self._datagram(by_fd[fd].recv(1 << 16), now)

    def _datagram(self, data, now):
        while len(data) >= 32:
            length, kind = struct.unpack_from("=IH", data)
            if kind == 16:  # RTM_NEWLINK
                self._message(data[16:length], now)
            data = data[(length + 3) & ~3:]

    def _message(self, body, now):
        up = struct.unpack_from("=I", body, 8)[0] & 1
        attributes = body[16:]
        while len(attributes) >= 4:
            length, kind = struct.unpack_from("=HH", attributes)
            if kind == 3:  # IFLA_IFNAME
                name = attributes[4:length].rstrip(b"\0").decode()
                if self.up.get(name, 1) and not up:
                    self.downs[name] = now
                self.up[name] = up
                return
            attributes = attributes[(length + 3) & ~3:]


# --- The server -----------------------------------------------------------------------------------


class Server:
    """A Redis server on a Unix socket in the directory `work`, which keeps its data in a file (AOF)."""

    def __init__(self, work, *options, aof=True):
        self.work, self.options, self.aof = pathlib.Path(work), options, aof
        self.socket = str(self.work / "redis")
        self.process = None
        self.start()

    def start(self, *options, wait=True):
        self.process = spawn(
            ["redis-server", "--port", "0", "--unixsocket", self.socket, "--save", "", "--dir", self.work]
            + ["--appendonly", "yes" if self.aof else "no", "--appendfsync", "everysec"]
            + ["--logfile", self.work / "redis.log", "--notify-keyspace-events", "Khgx"]
            + [*self.options, *options],
            executable="redis-check-rdb")  # the server has this name in the package without the service
        if wait and not eventually(self.usable):
            raise RuntimeError((self.work / "redis.log").read_text())

    def kill(self):
        if self.process:
            self.process.kill()
            self.process.wait()
            self.process = None
            pathlib.Path(self.socket).unlink(missing_ok=True)

    def forget(self):
        """What a server that is not running has on the disk."""
        for path in self.work.glob("appendonly*"):
            shutil.rmtree(path)

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)

    def thaw(self):
        self.process.send_signal(signal.SIGCONT)

    def client(self, **parameters):
        return redis.Redis(unix_socket_path=self.socket, **parameters)

    def usable(self):
        """Whether it takes values."""
        try:
            with self.client(socket_timeout=1) as client:
                return bool(client.set("probe", "1", px=10000))
        except redis.RedisError:
            return False


def replace(client, key, fields):
    """One hash, as a whole, or none."""
    with client.pipeline(transaction=True) as pipeline:
        pipeline.delete(key)
        if fields:
            pipeline.hset(key, mapping=fields)
        pipeline.execute()


class Proxy:
    """Passes bytes between clients at its Unix socket and the server, and does harm to replies when it is told to: once on each
    connection that there is."""

    def __init__(self, work, target):
        self.socket, self.target = str(pathlib.Path(work) / "proxy"), target
        self.pairs = []
        self.open = threading.Event()  # for new connections
        self.open.set()
        self.reading = threading.Event()  # of what the server says
        self.reading.set()
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.socket)
        self.listener.listen(100)
        threading.Thread(target=self._accept, daemon=True).start()

    def harm(self, kind):
        """`kind`: half, stall, garbage. Returns a function that tells whether it was done."""
        pairs = [pair for pair in list(self.pairs) if pair.alive]
        for pair in pairs:
            pair.harm = kind
        return lambda: any(pair.harmed for pair in pairs)

    def _accept(self):
        while True:
            client, _ = self.listener.accept()
            threading.Thread(target=self._serve, args=(client,), daemon=True).start()

    def _serve(self, client):
        self.open.wait()
        server = socket.socket(socket.AF_UNIX)
        try:
            server.connect(self.target)
        except OSError:
            client.close()
            return
        pair = _Pair(client, server, self.reading)
        self.pairs = [one for one in self.pairs if one.alive] + [pair]
        threading.Thread(target=pair.requests, daemon=True).start()
        pair.replies()


class _Pair:
    def __init__(self, client, server, reading):
        self.client, self.server, self.reading = client, server, reading
        self.harm = None
        self.harmed = False
        self.alive = True

    def end(self):
        self.alive = False
        for side in (self.client, self.server):
            with contextlib.suppress(OSError):
                side.shutdown(socket.SHUT_RDWR)

    def requests(self):
        with contextlib.suppress(OSError):
            while data := self.client.recv(1 << 16):
                self.server.sendall(data)
        self.end()
        self.client.close()

    def replies(self):
        silent = False
        with contextlib.suppress(OSError):
            while data := self.server.recv(1 << 16):
                self.reading.wait()
                harm, self.harm = self.harm, None
                if harm:
                    self.harmed = True
                    half = len(data) // 2
                    self.client.sendall(data[:half] + b"\xff\x00garbage\r\n" + data[half:]
                                        if harm == "garbage" else data[:half])
                    silent = silent or harm == "stall"
                    if harm == "half":
                        break
                elif not silent:
                    self.client.sendall(data)
        self.end()
        self.server.close()


# --- valend ---------------------------------------------------------------------------------------


class Valend:
    """A valend with its files in the directory `work`, for a "with" statement. `netns`: where it runs."""

    def __init__(self, program, work, text, netns=None):
        self.work = pathlib.Path(work)
        self.work.mkdir(exist_ok=True)
        self.program, self.netns = program, netns
        self.path, self.log = str(self.work / "sock"), self.work / "valend.log"
        (self.work / "valen.yaml").write_text(text, encoding="utf-8")
        self.process = None

    def start(self, wait=True):
        inside = ["ip", "netns", "exec", self.netns] if self.netns else []
        with open(self.log, "a", encoding="utf-8") as log:
            self.process = spawn(
                [*inside, self.program, "--config", self.work / "valen.yaml", "--socket", self.path,
                 "--state-directory", self.work / "state"], stderr=log)
        if wait and not eventually(self.answers):
            raise RuntimeError(f"valend does not start: {self.log.read_text()}")
        return self

    def answers(self):
        if self.process.poll() is not None:
            raise RuntimeError(f"valend has exited with {self.process.returncode}: {self.log.read_text()[-2000:]}")
        try:
            with self.client() as client:
                return bool(client.call("List"))
        except valen.Error:
            return False

    def stop(self):
        if self.process:
            self.process.terminate()
            self.process.wait()
            self.process = None

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.stop()

    def client(self):
        return valen.Client(self.path, timeout=30)

    def metric(self, client, name):
        for line in client.call("Metrics")["text"].splitlines():
            if line.startswith(name + " "):
                return float(line.rsplit(" ", 1)[1])
        return None

    def memory_kb(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def cpu_seconds(self):
        """Of all threads."""
        return self._cpu_seconds(f"/proc/{self.process.pid}/stat")

    def loop_seconds(self):
        """CPU time of the thread with the loop."""
        return self._cpu_seconds(f"/proc/{self.process.pid}/task/{self.process.pid}/stat")

    @staticmethod
    def _cpu_seconds(path):
        fields = pathlib.Path(path).read_text(encoding="utf-8").rsplit(") ", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def wait_until_ready(client, count, seconds=60.0):
    if not eventually(lambda: len(client.call("List", ready=True)["interfaces"]) >= count, seconds):
        raise RuntimeError(f"the interfaces are not ready: {client.status()['interfaces']}")


def wait_until_configured(client, names, seconds=30.0):
    def configured():
        return set(client.call("List")["interfaces"]) >= set(names)

    if not eventually(configured, seconds):
        raise RuntimeError("not all interfaces are configured")


# --- Both sides -----------------------------------------------------------------------------------


def text_of(value):
    return value.decode("utf-8", "replace") if isinstance(value, bytes) else value


def hashes(client, pattern):
    """All hashes of the pattern, by the key."""
    keys = sorted(client.scan_iter(pattern, count=1000))
    with client.pipeline(transaction=False) as pipeline:
        for key in keys:
            pipeline.hgetall(key)
        found = pipeline.execute()
    return {text_of(key): {text_of(name): text_of(value) for name, value in fields.items()}
            for key, fields in zip(keys, found) if fields}


def expected_status(interface):
    """The fields of the hash that tell of an interface of the API, without those of time and request."""
    shown = {name: value for name, value in interface.items() if name != "remainingMs"}
    yes_or_no = {True: "yes", False: "no"}
    return {
        "link": interface["link"], "ready": yes_or_no[interface["ready"]], "not-ready": interface["notReady"] or "",
        "shutting-down": yes_or_no[interface["shuttingDown"]],
        "frames": str(sum(agent["count"] for agent in interface["frames"])),
        "shutdowns": str(interface["shutdowns"]), "aborted": str(interface["aborts"]),
        "failed": str(interface["failed"]), "interface": shown,
    }


def differences(api, client, rejected, prefix=PREFIX):
    """What the database has, and the daemon has not, and the reverse. `rejected`: the keys that must be."""
    found = []
    interfaces = {one["name"]: expected_status(one) for one in api.status()["interfaces"]}
    written = hashes(client, f"{prefix}:status:*")
    for key, fields in written.items():
        name = key[len(f"{prefix}:status:"):]
        fields = dict(fields)
        if "interface" not in fields:  # nothing but the result of a request for what is not configured
            if name in interfaces:
                found.append(f"{key} has no status: {fields}")
            continue
        fields["interface"] = json.loads(fields["interface"])
        if name not in interfaces:
            found.append(f"{key} is of no interface")
            continue
        found += [f"{key}: {field} is {fields.get(field)!r}, not {value!r}"
                  for field, value in interfaces[name].items() if fields.get(field) != value]
        if bool(fields.get("held-until-ms")) != (interfaces[name]["interface"]["delayed"]):
            found.append(f"{key}: held-until-ms is {fields.get('held-until-ms')!r}")
    found += [f"no status of {name}" for name in interfaces if f"{prefix}:status:{name}" not in written]
    stream = [json.loads(fields[b"record"]) for _, fields in client.xrange(f"{prefix}:history")]
    history = [one for one in api.call("History")["shutdowns"] if one["ending"] != "running"]
    order = {"sort_keys": True}
    stream_texts, history_texts = (sorted(json.dumps(one, **order) for one in side) for side in (stream, history))
    if stream_texts != history_texts:
        missing = [one for one in history_texts if one not in stream_texts]
        more = [one for one in stream_texts if one not in history_texts]
        found.append(f"history: {len(stream)} entries, not {len(history)}; missing {missing[:2]}; not known {more[:2]}")
    in_database = {key[len(f"{prefix}:rejected:"):] for key in hashes(client, f"{prefix}:rejected:*")}
    if in_database != set(rejected):
        found.append(f"rejected: {sorted(in_database)}, not {sorted(rejected)}")
    if not client.exists(f"{prefix}:alive"):
        found.append("no sign of life")
    return found


@contextlib.contextmanager
def work_directory():
    with tempfile.TemporaryDirectory(prefix="valen-") as work:
        yield pathlib.Path(work)


def run_test(make, log=None):
    """Runs the test that `make` makes for a directory, which has run(), a server and a list of problems. Returns the exit
    status of the program. `log` is that of a valend in the directory, whose end is printed if there are problems."""
    if not may_create_devices():
        print("skipped: this user may not create devices")
        return SKIPPED
    with work_directory() as work:
        test = make(work)
        try:
            test.run()
        finally:
            test.server.kill()
        if test.problems and log:
            print((work / log).read_text(encoding="utf-8")[-4000:])
    return 1 if test.problems else 0
