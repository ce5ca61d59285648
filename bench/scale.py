"""What the benchmarks of many links share: namespaces full of devices, a running valend, its client, and
rtnetlink requests without valend."""

import contextlib
import ctypes
import fcntl
import json
import multiprocessing
import os
import signal
import socket
import statistics
import struct
import subprocess
import sys
import time

DELAY_MS = 500
FRAME = "0180c200000e02000000000188cc020704020000000001040703020000000001060200000000"

_libc = ctypes.CDLL(None, use_errno=True)


# --- Devices --------------------------------------------------------------------------------------


def ip_batch(vrf, commands):
    subprocess.run(["ip", "-n", f"scale{vrf}", "-batch", "-"], input=commands, text=True, check=True)


def devices(vrf, vrfs, count):
    return [f"et{i}" for i in range(vrf, count, vrfs)]


def for_each_device(vrfs, count, commands):
    """Runs the ip commands once for each device, with its name in place of {0}."""
    for v in range(vrfs):
        ip_batch(v, "".join(commands.format(name) for name in devices(v, vrfs, count)))


def make_namespace(vrf, ipv6, routes):
    subprocess.run(["ip", "netns", "add", f"scale{vrf}"], check=True)
    off = int(ipv6 == "off")
    subprocess.run(["ip", "netns", "exec", f"scale{vrf}", "sysctl", "-q", "-w",
                    f"net.ipv6.conf.all.disable_ipv6={off}",
                    f"net.ipv6.conf.default.disable_ipv6={off}"],
                   check=True)
    if routes:
        ip_batch(vrf, "link add routes type ifb\nlink set routes up\n"
                 + "".join(f"route add 2001:db8:{i >> 16:x}:{i & 0xffff:x}::/64 dev routes\n"
                           for i in range(routes)))


def make_devices(vrfs, count, ipv6, routes):
    for v in range(vrfs):
        make_namespace(v, ipv6, routes)
    for_each_device(vrfs, count, "link add {0} type ifb\nlink set {0} up\n")


def delete_devices(vrfs):
    for v in range(vrfs):
        subprocess.run(["ip", "netns", "del", f"scale{v}"], check=True)


@contextlib.contextmanager
def inside(vrf):
    """Sockets that are opened inside belong to the namespace of the VRF."""
    with open("/proc/thread-self/ns/net", "rb") as before, open(f"/run/netns/scale{vrf}", "rb") as there:
        if _libc.setns(there.fileno(), 0) < 0:
            raise OSError(ctypes.get_errno(), "setns")
        try:
            yield
        finally:
            _libc.setns(before.fileno(), 0)


class Flags:
    """Asks for the state of links in the namespace of a VRF. That does not wait for rtnl, the kernel's lock
    for changes of the network."""

    def __init__(self, vrf):
        with inside(vrf):
            self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)

    def up(self, device):
        request = struct.pack("16sH14x", device.encode(), 0)
        return struct.unpack("16xH14x", fcntl.ioctl(self.socket, 0x8913, request))[0] & 1  # SIOCGIFFLAGS

    def wait_until_down(self, names, seconds=120.0, pause=0.0005):
        """Returns when all are down. Looks at one that was up, and then waits for `pause` seconds, to take little of
        the time of what is measured."""
        rest = list(names)
        end = time.monotonic() + seconds
        while rest:
            if self.up(rest[-1]):
                if time.monotonic() > end:
                    sys.exit(f"timed out: {rest[-1]} is not down")
                time.sleep(pause)
            else:
                rest.pop()


class Rtnetlink:
    """Sets links of one namespace down without valend, on one socket."""

    AT_ONCE = 100  # their acknowledgments fit into the socket's buffer

    def __init__(self, vrf, names):
        with inside(vrf):
            self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
            self.socket.bind((0, 0))
            indexes = [socket.if_nametoindex(name) for name in names]
        requests = [struct.pack("=IHHII" "BxHiII", 32, 16, 5, i + 1, 0, 0, 0, index, 0, 1)
                    for i, index in enumerate(indexes)]  # RTM_NEWLINK, REQUEST | ACK; flags 0 of IFF_UP
        self.datagrams = [(b"".join(requests[i:i + self.AT_ONCE]), len(requests[i:i + self.AT_ONCE]))
                          for i in range(0, len(requests), self.AT_ONCE)]

    def set_down(self):
        """Sends as many requests as the socket holds, and reads their acknowledgments. Returns ms."""
        begin = time.monotonic()
        for datagram, count in self.datagrams:
            self.socket.send(datagram)
            while count:
                error = struct.unpack_from("=i", self.socket.recv(4096), 16)[0]
                if error:
                    raise OSError(-error, os.strerror(-error))
                count -= 1
        return (time.monotonic() - begin) * 1000


# --- valend ---------------------------------------------------------------------------------------


class Client:
    """One connection to valend, on which answers are waited for."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.rest = b""

    def send(self, method, more=False, **parameters):
        call = {"method": "org.valen.daemon." + method, "parameters": parameters, "more": more}
        self.socket.sendall(json.dumps(call).encode() + b"\0")

    def answer(self):
        while b"\0" not in self.rest:
            chunk = self.socket.recv(1 << 20)
            if not chunk:
                raise ConnectionError("valend closed the connection")
            self.rest += chunk
        text, self.rest = self.rest.split(b"\0", 1)
        answer = json.loads(text)
        if "error" in answer:
            raise RuntimeError(f"{answer['error']}: {answer['parameters']}")
        return answer["parameters"]

    def call(self, method, **parameters):
        self.send(method, **parameters)
        return self.answer()


def configuration(vrfs, count, frame=FRAME):
    """`frame`: of the first interface."""
    lines = [f"shutdown-delay-ms: {DELAY_MS}", "vrfs:"]
    lines += [f"- {{name: vrf{v}, namespace: scale{v}}}" for v in range(vrfs)]
    lines += ["interfaces:"]
    lines += [f"- {{name: Ethernet{i}, device: et{i}, vrf: vrf{i % vrfs}}}" for i in range(count)]
    lines += ["agents:", "- name: lldp", "  messages:"]
    lines += [f"    Ethernet{i}: [{FRAME if i else frame}]" for i in range(count)]
    return "\n".join(lines) + "\n"


class Valend:
    """A valend that runs inside a "with" statement, with its files in the directory `work`."""

    def __init__(self, build, work, text):
        self.build, self.work = build, work
        self.config, self.path, self.state = f"{work}/valen.yaml", f"{work}/socket", f"{work}/state"
        self.process = None
        self.configure(text)

    def configure(self, text):
        with open(self.config, "w", encoding="ascii") as file:
            file.write(text)

    def __enter__(self):
        with open(f"{self.work}/log", "w", encoding="ascii") as log:
            self.process = subprocess.Popen(
                [f"{self.build}/src/valend/valend", "--config", self.config, "--socket", self.path,
                 "--state-directory", self.state], stderr=log)
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait()
        subprocess.run(["rm", "-rf", self.state], check=True)

    def ctl(self, *words):
        """The command line of valenctl."""
        return [f"{self.build}/src/valenctl/valenctl", "--socket", self.path, "--timeout", "60", *words]

    def client(self):
        return Client(self.path)

    def call(self, method, **parameters):
        return self.client().call(method, **parameters)

    def wait_until_ready(self, count):
        end = time.monotonic() + 60
        while True:
            if self.process.poll() is not None or time.monotonic() > end:
                sys.exit("timed out: the interfaces are not ready")
            try:
                if len(self.call("List", ready=True)["interfaces"]) == count:
                    return
            except OSError:  # it is not listening yet
                pass
            time.sleep(0.002)

    def resident_kb(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


# --- The machine ----------------------------------------------------------------------------------


@contextlib.contextmanager
def awake_processors():
    """Keeps the processors from sleeping, with processes that get only the time that is left. To set a
    link down, the kernel has to wait until each processor has taken notice. On a virtual machine, one that
    sleeps takes between some microseconds and some milliseconds for that, from minute to minute."""
    def spin():
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
        while True:
            pass
    spinners = [multiprocessing.Process(target=spin, daemon=True) for _ in range(os.cpu_count())]
    for spinner in spinners:
        spinner.start()
    try:
        yield
    finally:
        for spinner in spinners:
            spinner.kill()
            spinner.join()


# --- Results --------------------------------------------------------------------------------------


def machine():
    return f"{os.cpu_count()} cores, Linux {os.uname().release}, load {os.getloadavg()[0]:.1f}"


class Report:
    """Prints one line for each result, as bench/report does."""

    def __init__(self):
        self.missed = 0
        print(machine())
        print(f"{'what':<78} {'found':>8} {'bound':>8}", flush=True)

    def line(self, what, found, bound, notes=""):
        """`bound`: None for what is only told."""
        met = not bound or found <= bound
        self.missed += not met
        word = ("met" if met else "MISSED") if bound else ""
        print(f"{what:<78} {found:>8.4g} {f'{bound:.4g}' if bound else '':>8}  {word:<7}"
              f"{'(' + notes + ')' if notes else ''}", flush=True)

    def exit(self):
        print(f"{self.missed} bounds missed" if self.missed else "all bounds met")
        sys.exit(self.missed > 0)


def median_and_worst(values, unit="ms"):
    return f"median {statistics.median(values):.4g}, worst {max(values):.4g} {unit}, {len(values)} times"
