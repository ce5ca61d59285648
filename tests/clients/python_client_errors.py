"""The Python client against a server that fails, or answers what valend does not."""

import pathlib
import socket
import sys
import threading
import time
import unittest

from fake_daemon import FakeDaemonTest, answer, pieces, silence

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "clients" / "python"))
import valen  # noqa: E402


class PythonClientErrors(FakeDaemonTest):
    def client(self, timeout=10.0):
        client = valen.Client(self.socket, timeout)
        self.addCleanup(client.close)
        return client

    def test_no_daemon(self):
        text = "^cannot connect to valend at /nonesuch: No such file or directory .is it running"
        with self.assertRaisesRegex(valen.Unreachable, text) as caught:
            valen.Client("/nonesuch")
        self.assertIsInstance(caught.exception.__cause__, FileNotFoundError)

    def test_a_path_that_is_too_long(self):
        with self.assertRaisesRegex(valen.Unreachable, "AF_UNIX path too long"):
            valen.Client("/" + "x" * 200)

    def test_no_connection_in_time(self):
        connections = []
        self.addCleanup(lambda: [connection.close() for connection in connections])
        while True:  # until the backlog is full
            connection = socket.socket(socket.AF_UNIX)
            connections.append(connection)
            connection.setblocking(False)
            if connection.connect_ex(self.socket):
                break
        begin = time.monotonic()
        with self.assertRaisesRegex(valen.NoAnswer, "accepted no connection in 0.05 s"):
            valen.Client(self.socket, timeout=0.05)
        self.assertGreater(time.monotonic() - begin, 0.04)

    def test_the_connection_ends_before_the_answer(self):
        self.serve(b"")
        client = self.client()
        with self.assertRaisesRegex(valen.Disconnected, "^Status: the connection to valend at .* is closed$"):
            client.status()

    def test_the_connection_ends_in_the_middle_of_the_answer(self):
        self.serve(answer({})[:-3])
        with self.assertRaises(valen.Disconnected):
            self.client().status()

    def test_no_answer_in_time(self):
        self.serve(silence)
        with self.assertRaisesRegex(valen.NoAnswer, "^Status: valend did not answer in 0.05 s$"):
            self.client(0.05).status()

    def test_a_late_answer_is_not_taken_for_that_of_the_next_call(self):
        timed_out = threading.Event()

        def late(connection):
            timed_out.wait()
            connection.sendall(answer({"version": "late"}))

        self.serve(late, answer({"interfaces": []}))
        client = self.client(0.05)
        with self.assertRaises(valen.NoAnswer):
            client.status()
        timed_out.set()
        with self.assertRaises(valen.Disconnected):
            client.call("List")

    def test_pieces_of_an_answer_do_not_extend_the_timeout(self):
        def trickle(connection):
            connection.settimeout(0.01)
            for _ in range(500):
                connection.sendall(b" ")
                try:
                    if not connection.recv(1):
                        return
                except TimeoutError:
                    pass

        self.serve(trickle)
        with self.assertRaises(valen.NoAnswer):
            self.client(0.05).status()

    def test_an_answer_that_is_not_varlink(self):
        self.serve(b"HTTP/1.1 400\0")
        with self.assertRaisesRegex(valen.BadAnswer, "is not JSON$"):
            self.client().status()

    def test_an_answer_that_is_not_an_object(self):
        self.serve(b"[]\0")
        with self.assertRaisesRegex(valen.BadAnswer, "is not a JSON object$"):
            self.client().status()

    def test_an_error_without_a_class(self):
        self.serve(
            answer({"message": "too late"}, error="org.valen.daemon.Later"),
            answer({"x": 1}, error="org.valen.daemon.Later"),
            answer({}, error="com.example.NoDevice"),
        )
        client = self.client()
        texts = []
        for _ in range(3):
            with self.assertRaises(valen.CallError) as caught:
                client.status()
            self.assertIs(type(caught.exception), valen.CallError)
            texts.append(str(caught.exception))
        self.assertEqual(texts[0], "too late")
        self.assertEqual(texts[1], 'Status: org.valen.daemon.Later {"x": 1}')

    def test_answers_in_one_piece_and_in_many(self):
        large = {"text": "x" * 3_000_000}
        self.serve(answer({"n": 1}, continues=True) + answer({"n": 2}, continues=True) + answer(large))
        client = self.client()
        answers = list(client.stream("Trace"))
        self.assertEqual(answers, [{"n": 1}, {"n": 2}, large])

    def test_an_answer_whose_end_comes_alone(self):
        self.serve(pieces(answer({"n": 1})[:-1], b"\0"))
        self.assertEqual(self.client(1).call("List"), {"n": 1})

    def test_an_error_ends_a_stream(self):
        self.serve(answer({"n": 1}, continues=True) + answer({"message": "gone"}, error="org.valen.daemon.NoSuchPath"))
        answers = self.client().stream("Watch", path="status")
        self.assertEqual(next(answers), {"n": 1})
        with self.assertRaisesRegex(valen.NoSuchPath, "^gone$"):
            next(answers)
        self.assertEqual(list(answers), [])

    def test_the_calls_on_the_wire(self):
        step = {"step": "ended", "delayMs": None, "shutdown": {"interface": "Ethernet1"}}
        self.serve(answer({**step, "steps": [step], "pending": 0}))
        client = self.client()
        client.shutdown("Ethernet1", reason="new optics", delayMs=200)
        client.shutdown_many(all=True, reason=None, wait=True)
        self.assertEqual(
            self.calls,
            [
                {
                    "method": "org.valen.daemon.Shutdown",
                    "parameters": {"interface": "Ethernet1", "reason": "new optics", "delayMs": 200},
                },
                {"method": "org.valen.daemon.ShutdownMany", "parameters": {"all": True}, "more": True},
            ],
        )

    def test_the_longest_delay_is_waited_for(self):
        held = valen._Held(1)
        self.assertAlmostEqual(held.limit([{"delayMs": 60_000}, {"delayMs": 10}]), 61, delta=5)
        self.assertAlmostEqual(held.limit([{"delayMs": None}]), 61, delta=5)
        self.assertEqual(valen._Held(1).limit([]), 1)
        self.assertIsNone(valen._Held(None).limit([{"delayMs": 10}]))


unittest.main()
