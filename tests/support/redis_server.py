"""A Redis server of a test: on a Unix socket in a directory of its own, with nothing on disk."""

import pathlib
import socket
import subprocess
import tempfile
import time

import redis

TIMEOUT = 30.0  # generous: what is waited for takes milliseconds


def eventually(condition):
    end = time.monotonic() + TIMEOUT
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


class RedisServer:
    """For a unittest.TestCase, which it ends with. `options`: as on the command line of redis-server."""

    @staticmethod
    def directory(test):
        directory = tempfile.TemporaryDirectory()
        test.addCleanup(directory.cleanup)
        return pathlib.Path(directory.name)

    def __init__(self, test, *options):
        self.work = self.directory(test)
        self.socket = str(self.work / "redis")
        self.url = f"unix://{self.socket}"
        self._options = options
        self._process = None
        test.addCleanup(self.kill)
        self.start()

    def start(self):
        """Also again, after kill(): empty."""
        self._process = subprocess.Popen(
            ["redis-server", "--port", "0", "--unixsocket", self.socket, "--save", "", "--dir", self.work]
            + ["--logfile", self.work / "log", *self._options],
            executable="redis-check-rdb",  # the name that it has in the package without the service
        )
        if not eventually(self._answers):
            raise RuntimeError((self.work / "log").read_text())

    def _answers(self):
        if self._process.poll() is not None:
            raise RuntimeError((self.work / "log").read_text())
        with socket.socket(socket.AF_UNIX) as probe:
            if probe.connect_ex(self.socket):
                return False
            probe.sendall(b"PING\r\n")
            return probe.recv(100).startswith((b"+PONG", b"-NOAUTH"))

    def kill(self):
        if self._process:
            self._process.kill()
            self._process.wait()
            self._process = None
            pathlib.Path(self.socket).unlink(missing_ok=True)

    def client(self, user=None, password=None):
        return redis.Redis(unix_socket_path=self.socket, username=user, password=password, decode_responses=True)
