"""A server that answers as a test says, in the place of valend."""

import fcntl
import json
import pathlib
import socket
import struct
import tempfile
import termios
import threading
import time
import unittest


class FakeDaemonTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.socket = str(pathlib.Path(directory.name) / "sock")
        self._listening = socket.socket(socket.AF_UNIX)
        self.addCleanup(self._end)
        self._listening.bind(self.socket)
        self._listening.listen(8)
        self._threads = []
        self.calls = []

    def serve(self, *answers):
        """On each connection, takes one call for each of `answers`, and answers it with these bytes; then
        disconnects. An answer may also be a function, which gets the connection."""
        self._start(self._accept, answers)

    def _start(self, function, *arguments):
        thread = threading.Thread(target=function, args=arguments, daemon=True)
        self._threads.append(thread)
        thread.start()

    # After the cleanup of what tests add, which disconnects their clients.
    def _end(self):
        self._listening.shutdown(socket.SHUT_RDWR)
        for thread in self._threads:  # the first one may add others
            thread.join()
        self._listening.close()

    def _accept(self, answers):
        while True:
            try:
                connection, _ = self._listening.accept()
            except OSError:  # the test's end
                return
            self._start(self._answer, connection, answers)

    def _answer(self, connection, answers):
        with connection:
            for answer in answers:
                call = b""
                while not call.endswith(b"\0"):
                    received = connection.recv(65536)
                    if not received:
                        return
                    call += received
                self.calls.append(json.loads(call[:-1]))
                try:
                    if callable(answer):
                        answer(connection)
                    else:
                        connection.sendall(answer)
                except BrokenPipeError:  # the client disconnected
                    return


def silence(connection):
    """Does not answer, and waits until the client disconnects."""
    connection.recv(1)


def pieces(*parts):
    """Sends each part after the client has read the one before."""

    def send(connection):
        for part in parts:
            connection.sendall(part)
            while struct.unpack("i", fcntl.ioctl(connection, termios.TIOCOUTQ, bytes(4)))[0]:
                time.sleep(0.001)

    return send


def answer(parameters, **members):
    return json.dumps({"parameters": parameters, **members}).encode() + b"\0"
