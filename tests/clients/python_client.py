"""The Python client against a running valend.

   python_client.py VALEND [OPTION-OF-UNITTEST...]"""

import contextlib
import io
import os
import pathlib
import re
import sys
import unittest

from running_daemon import RunningDaemonTest, eventually, frame

CLIENT = pathlib.Path(__file__).parents[2] / "clients" / "python"
sys.path.insert(0, str(CLIENT))
import valen  # noqa: E402


class PythonClient(RunningDaemonTest):
    def setUp(self):
        super().setUp()
        self.client = valen.Client(pathlib.Path(self.socket))
        self.addCleanup(self.client.close)
        self.client.wait("Ethernet1", "ready", timeout=30)

    # --- Status -------------------------------------------------------------------------------------

    def test_status_of_all_and_of_one(self):
        names = [interface["name"] for interface in self.client.status()["interfaces"]]
        self.assertEqual(names, ["Ethernet1", "Ethernet2"])
        self.assertEqual(len(self.client.status("Ethernet2")["interfaces"]), 1)
        self.assertEqual(self.client.interface("Ethernet1")["device"], "et1")

    def test_a_method_without_a_function_of_its_own(self):
        self.assertEqual(self.client.call("List", device="et2"), {"interfaces": ["Ethernet2"]})
        self.assertEqual(self.client.call("org.varlink.service.GetInfo")["product"], "valend")

    def test_wait_returns_the_interface(self):
        self.client.shutdown("Ethernet1")
        self.assertEqual(self.client.wait("Ethernet1", "down", timeout=30)["link"], "down")
        self.assertEqual(self.client.wait("Ethernet1", "idle")["name"], "Ethernet1")

    def test_wait_times_out(self):
        with self.assertRaisesRegex(valen.TimedOut, '^timed out: interface "Ethernet1" is not down$'):
            self.client.wait("Ethernet1", "down", timeout=0.01)
        self.assertEqual(self.client.interface("Ethernet1")["link"], "up")

    def test_wait_may_take_longer_than_the_timeout_of_the_client(self):
        with valen.Client(self.socket, timeout=0.1) as impatient:
            with self.assertRaises(valen.TimedOut):
                impatient.wait("Ethernet1", "down", timeout=0.3)

    def test_watch_shows_a_shutdown(self):
        changes = self.client.watch()
        first = next(changes)["interfaces"]
        self.assertEqual([interface["name"] for interface in first], ["Ethernet1", "Ethernet2"])
        self.client.shutdown("Ethernet1")
        self.assertTrue(self._seen(changes, lambda interface: interface["delayed"]))
        self.assertTrue(self._seen(changes, lambda interface: interface["link"] == "down"))
        changes.close()

    def _seen(self, changes, condition):
        for change in changes:
            for interface in change["interfaces"]:
                self.assertEqual(interface["name"], "Ethernet1")
                if condition(interface):
                    return True
        return False

    def test_a_watch_ends_when_valend_exits(self):
        changes = self.client.watch("Ethernet1")
        self.assertEqual(len(next(changes)["interfaces"]), 1)
        self.stop()
        with self.assertRaises(valen.Disconnected):
            for _ in changes:
                pass

    def test_a_watch_that_is_closed_disconnects(self):
        def connections():
            metrics = self.client.call("Metrics")["text"]
            return int(re.search(r"^valen_api_connections (\d+)$", metrics, re.MULTILINE)[1])

        before = connections()
        changes = self.client.watch()
        next(changes)
        self.assertEqual(connections(), before + 1)
        changes.close()
        self.assertTrue(eventually(lambda: connections() == before))

    # --- Shutting down ------------------------------------------------------------------------------

    def test_shutdown_returns_during_the_delay_and_enable_aborts_it(self):
        step = self.client.shutdown("Ethernet1")
        self.assertEqual((step["step"], step["delayMs"]), ("delayed", self.delay_ms))
        self.assertEqual(self.neighbor.received(), frame("lldp"))
        self.assertEqual(self.client.enable("Ethernet1"), "aborted")
        self.assertEqual(self.client.enable("Ethernet1"), "already-up")
        self.assertTrue(self.link_is_up("et1"))

    def test_shutdown_waits_until_the_link_is_down(self):
        with valen.Client(self.socket, timeout=0.2) as impatient:  # shorter than the delay
            step = impatient.shutdown("Ethernet1", wait=True)
        self.assertFalse(self.link_is_up("et1"))
        self.assertEqual(step["step"], "ended")
        record = step["shutdown"]
        self.assertEqual((record["ending"], record["sent"]), ("down", 1))
        self.assertGreaterEqual(record["heldMs"], self.delay_ms)
        self.assertEqual(self.client.enable("Ethernet1"), "up")
        self.assertTrue(self.link_is_up("et1"))

    def test_several_interfaces(self):
        steps = self.client.shutdown_many(["Ethernet1", "Ethernet2"])
        self.assertEqual(steps["Ethernet1"]["step"], "delayed")
        self.assertEqual(steps["Ethernet2"]["shutdown"]["ending"], "down")
        self.assertEqual(self.client.enable_many(["Ethernet1"])["Ethernet1"]["result"], "aborted")
        with valen.Client(self.socket, timeout=0.2) as impatient:
            steps = impatient.shutdown_many(["Ethernet2", "Ethernet1"], wait=True)
        endings = {name: step["shutdown"]["ending"] for name, step in steps.items()}
        self.assertEqual(endings, {"Ethernet1": "down", "Ethernet2": "already-down"})
        results = self.client.enable_many(device="et2")
        self.assertEqual({name: result["result"] for name, result in results.items()}, {"Ethernet2": "up"})

    def test_no_interface_is_not_all_of_them(self):
        self.assertEqual(self.client.shutdown_many([], wait=True), {})
        self.assertEqual(self.client.shutdown_many(iter([])), {})
        self.assertEqual(self.client.enable_many([]), {})
        self.assertTrue(self.link_is_up("et1"))

    # --- Frames -------------------------------------------------------------------------------------

    def test_published_frames_are_sent(self):
        bgp = frame("bgp")
        isis = bytearray(frame("isis"))
        text = frame("text").hex(" ")
        self.assertEqual(self.client.publish("bgp", "Ethernet1", [bgp, isis, text], "kept"), [])
        self.client.shutdown("Ethernet1")
        received = [self.neighbor.received() for _ in range(4)]
        self.assertEqual(received, [frame("lldp"), bgp, bytes(isis), frame("text")])

    def test_frames_that_are_too_long_are_returned(self):
        too_long = self.client.publish("bgp", "Ethernet1", [frame("a"), frame("b" * 2000)], "kept")
        self.assertEqual(too_long, [{"frame": 2, "bytes": 2014, "limit": 1514}])

    def test_withdrawn_frames_are_not_sent(self):
        self.client.publish("bgp", "Ethernet1", [frame("bgp")], "kept")
        self.client.withdraw("bgp", "Ethernet1")
        self.client.shutdown("Ethernet1", wait=True)
        self.assertEqual(self.neighbor.received(), frame("lldp"))
        self.assertTrue(self.neighbor.nothing_received())
        with self.assertRaises(valen.NoSuchMessages):
            self.client.withdraw("bgp", "Ethernet1")

    def test_the_end_of_the_client_withdraws_its_frames(self):
        with valen.Client(self.socket) as daemon:
            daemon.publish("bgp", "Ethernet2", [frame("bgp")], "connection")
            self.assertEqual(self._agents("Ethernet2"), ["bgp"])
        self.assertTrue(eventually(lambda: self._agents("Ethernet2") == []))

    def _agents(self, interface):
        return [message["agent"] for message in self.client.call("ListMessages", interface=interface)["messages"]]

    # --- The documentation ---------------------------------------------------------------------------

    def test_the_examples_of_the_documentation(self):
        page = (CLIENT.parents[1] / "docs" / "clients.md").read_text(encoding="utf-8")
        program = "".join(re.findall(r"^```python\n(.*?)^```$", page, re.MULTILINE | re.DOTALL))
        usual = pathlib.Path(valen.DEFAULT_SOCKET)  # in the sandbox's /run
        usual.symlink_to(self.socket)
        self.addCleanup(usual.unlink)
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            names = {}
            exec(program, names)
        self.addCleanup(names["daemon"].close)
        lines = output.getvalue().splitlines()
        self.assertEqual(lines[:2], ["down 1 frames sent", "['Ethernet1']"])
        self.assertEqual(lines[-1], 'timed out: interface "Ethernet1" is not down')
        self.assertEqual(self._agents("Ethernet1"), ["lldp", "bgp"])

    def test_the_documentation_has_the_functions(self):
        page = (CLIENT.parents[1] / "docs" / "clients.md").read_text(encoding="utf-8")
        table = page.partition("| function of")[2].partition("\n\n")[0]
        documented = {name for row in table.splitlines() for name in re.findall(r"`(\w+)\(", row.split("|")[1])}
        functions = {name for name in vars(valen.Client) if not name.startswith("_")}
        self.assertEqual(documented, functions)

    # --- Errors -------------------------------------------------------------------------------------

    def test_an_error_has_the_text_of_valend(self):
        with self.assertRaises(valen.NoSuchInterface) as caught:
            self.client.shutdown("Ethernet9", wait=True)
        self.assertEqual(str(caught.exception), 'interface "Ethernet9" is not configured')
        self.assertEqual(caught.exception.name, "org.valen.daemon.NoSuchInterface")
        self.assertEqual(caught.exception.method, "Shutdown")
        self.client.status()  # the connection is still usable

    def test_a_parameter_without_a_name_here_is_passed_on(self):
        for call in (
            lambda: self.client.shutdown("Ethernet1", resaon="typo"),
            lambda: self.client.shutdown("Ethernet1", wait=True, resaon="typo"),
            lambda: self.client.shutdown_many(["Ethernet1"], resaon="typo"),
            lambda: self.client.shutdown_many(["Ethernet1"], wait=True, resaon="typo"),
            lambda: self.client.enable("Ethernet1", resaon="typo"),
            lambda: self.client.enable_many(["Ethernet1"], resaon="typo"),
            lambda: self.client.publish("bgp", "Ethernet1", [frame("bgp")], "kept", resaon="typo"),
            lambda: self.client.withdraw("bgp", "Ethernet1", resaon="typo"),
        ):
            with self.assertRaisesRegex(valen.InvalidParameter, 'the parameter "resaon" is unknown'):
                call()
        self.assertFalse(self.client.interface("Ethernet1")["shuttingDown"])

    def test_each_error_of_the_description_has_a_class(self):
        described = {
            name
            for interface in ("org.valen.daemon", "org.varlink.service")
            for name in re.findall(
                r"^error (\w+)",
                self.client.call("org.varlink.service.GetInterfaceDescription", interface=interface)["description"],
                re.MULTILINE,
            )
        }
        self.assertIn("NoSuchInterface", self.client.description())
        classes = {
            name
            for name, value in vars(valen).items()
            if isinstance(value, type) and issubclass(value, valen.CallError) and value is not valen.CallError
        }
        self.assertEqual(classes, described)

    def test_a_method_that_valend_does_not_have(self):
        with self.assertRaisesRegex(valen.MethodNotFound, "^this valend does not have the method Nonesuch$"):
            self.client.call("Nonesuch")

    def test_a_parameter_that_is_not_json_is_not_sent(self):
        with self.assertRaises(TypeError):
            self.client.call("Status", interface=b"Ethernet1")
        self.client.status()

    def test_a_user_without_the_group_is_denied(self):
        text = self._as_nobody(self._enable)
        self.assertRegex(text, "^PermissionDenied: permission denied: Enable requires root or group")

    def _enable(self):
        with valen.Client(self.socket) as client:
            client.enable("Ethernet1")

    def _as_nobody(self, call):
        """The error of the call, when another user makes it."""
        reader, writer = os.pipe()
        child = os.fork()
        if child == 0:
            try:
                os.setgroups([])
                os.setgid(65534)
                os.setuid(65534)
                call()
            except BaseException as error:
                os.write(writer, f"{type(error).__name__}: {error}".encode())
            os._exit(0)
        os.close(writer)
        os.waitpid(child, 0)
        with open(reader, encoding="utf-8") as text:
            return text.read()


if len(sys.argv) < 2:
    sys.exit(__doc__)
RunningDaemonTest.valend = sys.argv.pop(1)
unittest.main()
