"""A valend on virtual devices, for the tests of its clients. They run in scripts/sandbox, so that no device
is the machine's."""

import fcntl
import pathlib
import socket
import struct
import subprocess
import tempfile
import time
import unittest

TIMEOUT = 30.0  # generous: what is waited for takes milliseconds
ETHERTYPE = 0x88B5  # for experiments; the neighbors receive nothing else

SIOCGIFFLAGS = 0x8913
IFF_UP = 1


def frame(payload):
    return bytes.fromhex("ffffffffffff 020000000001 88b5") + payload.encode().ljust(46, b".")


def eventually(condition):
    end = time.monotonic() + TIMEOUT
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.005)
    return True


def run(*command):
    subprocess.run(command, check=True)


class Neighbor:
    """The far end of a device: receives the frames that valend sends."""

    def __init__(self, device):
        self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
        self._socket.bind((device, ETHERTYPE))

    def close(self):
        self._socket.close()

    def received(self):
        """The next frame, with a generous timeout."""
        self._socket.settimeout(TIMEOUT)
        return self._socket.recv(2000)

    def nothing_received(self):
        self._socket.settimeout(0)
        try:
            return not self._socket.recv(2000)
        except BlockingIOError:
            return True


class RunningDaemonTest(unittest.TestCase):
    """valend with Ethernet1 on et1 and Ethernet2 on et2, whose far ends are far1 and far2. Agent "lldp"
    has a frame for Ethernet1. Subclasses set `valend`, the program."""

    valend = None
    delay_ms = 300

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.work = pathlib.Path(directory.name)
        self.work.chmod(0o755)  # other users connect as well
        self.socket = str(self.work / "sock")
        for number in "1", "2":
            self._cable(f"et{number}", f"far{number}")
        self.neighbor = Neighbor("far1")
        self.addCleanup(self.neighbor.close)
        self.configure(self.delay_ms)
        self.start()

    def _cable(self, device, far):
        run("ip", "link", "add", device, "type", "veth", "peer", "name", far)
        self.addCleanup(run, "ip", "link", "delete", device)
        for end in device, far:
            run("ip", "link", "set", end, "up")

    def configure(self, delay_ms):
        (self.work / "valen.yaml").write_text(
            f"shutdown-delay-ms: {delay_ms}\n"
            "interfaces: [{name: Ethernet1, device: et1}, {name: Ethernet2, device: et2}]\n"
            f"agents: [{{name: lldp, messages: {{Ethernet1: ['{frame('lldp').hex()}']}}}}]\n",
            encoding="ascii",
        )

    def start(self):
        log = open(self.work / "log", "ab")
        self.addCleanup(log.close)
        self.daemon = subprocess.Popen(
            [self.valend, "--config", self.work / "valen.yaml", "--socket", self.socket]
            + ["--state-directory", self.work / "state"],
            stderr=log,
        )
        self.addCleanup(self.stop)
        self.assertTrue(eventually(self._listens), self.log())

    def stop(self):
        self.daemon.terminate()
        self.assertEqual(self.daemon.wait(TIMEOUT), 0, self.log())
        self.stop = lambda: None

    def _listens(self):
        self.assertIsNone(self.daemon.poll(), self.log())
        with socket.socket(socket.AF_UNIX) as probe:
            return probe.connect_ex(self.socket) == 0

    def log(self):
        return (self.work / "log").read_text(encoding="utf-8")

    def link_is_up(self, device):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
            request = struct.pack("16sh14x", device.encode(), 0)
            flags = struct.unpack("16sh14x", fcntl.ioctl(any_socket, SIOCGIFFLAGS, request))[1]
        return bool(flags & IFF_UP)
