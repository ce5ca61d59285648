"""The Ansible module, run by ansible-playbook: against a running valend, and against a server that answers
as the test says.

   ansible_module.py VALEND [OPTION-OF-UNITTEST...]

Ends with status 77 if ansible-playbook is not installed."""

import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import unittest

from fake_daemon import FakeDaemonTest, answer
from running_daemon import RunningDaemonTest, frame

CLIENTS = pathlib.Path(__file__).parents[2] / "clients"
sys.path.insert(0, str(CLIENTS / "python"))
import valen  # noqa: E402


class Playbook:
    """Mixed into a test that has `work`, a directory, and `socket`."""

    def environment(self, python_path=CLIENTS / "python"):
        configuration = self.work / "ansible.cfg"  # not that of the user or the machine
        configuration.touch()
        return {
            **os.environ,
            "ANSIBLE_LIBRARY": str(CLIENTS / "ansible" / "library"),
            "ANSIBLE_LOCAL_TEMP": str(self.work / "ansible"),
            "ANSIBLE_REMOTE_TEMP": str(self.work / "ansible"),
            "ANSIBLE_HOME": str(self.work / "ansible"),
            "ANSIBLE_CONFIG": str(configuration),
            "ANSIBLE_NOCOLOR": "1",
            "ANSIBLE_PIPELINING": "1",
            "ANSIBLE_STDOUT_CALLBACK": "oneline",
            "LC_ALL": "C.UTF-8",
            "PYTHONPATH": str(python_path),
            "PYTHONWARNINGS": "",
        }

    def run_playbook(self, path, *options, **environment):
        command = ["ansible-playbook", "-i", "localhost,", "-c", "local", *options, path]
        done = subprocess.run(
            [*command, "-e", "ansible_python_interpreter=/usr/bin/python3"],
            env=self.environment(**environment),
            capture_output=True,
            text=True,
        )
        self.output = done.stdout + done.stderr
        return done.returncode

    def play(self, *tasks, options=(), **environment):
        """Runs the module once for each of `tasks`, its options, and returns the results."""
        steps = []
        for number, task in enumerate(tasks):
            check = {"check_mode": True} if task.pop("check", False) else {}
            module = {"socket": self.socket, **task}
            steps.append({"valen_interface": module, "register": f"r{number}", "ignore_errors": True, **check})
        names = ", ".join(f"r{number}" for number in range(len(tasks)))
        steps.append({"debug": {"msg": "results: {{ [" + names + "] | to_json }}"}})
        playbook = self.work / "playbook.yml"
        playbook.write_text(json.dumps([{"hosts": "all", "gather_facts": False, "tasks": steps}]), encoding="utf-8")
        self.assertEqual(self.run_playbook(playbook, *options, **environment), 0, self.output)
        last = json.loads(re.search(r"^localhost \| SUCCESS => (\{.*results: .*\})$", self.output, re.MULTILINE)[1])
        return json.loads(last["msg"].removeprefix("results: "))


class AnsibleModule(Playbook, RunningDaemonTest):
    delay_ms = 200

    def configure(self, delay_ms):
        super().configure(delay_ms)
        configuration = self.work / "valen.yaml"
        text = configuration.read_text(encoding="ascii")
        configuration.write_text(text.replace("}]\n", "}, {name: Ethernet3, device: et9}]\n", 1), encoding="ascii")

    def setUp(self):
        super().setUp()
        self.client = valen.Client(self.socket)
        self.addCleanup(self.client.close)
        self.client.wait("Ethernet1", "ready", timeout=30)

    def history(self):
        records = self.client.call("History")["shutdowns"]
        return [(record["interface"], record["ending"]) for record in records]

    def test_check_mode_changes_nothing(self):
        shut, enabled = self.play(
            {"name": "Ethernet1", "state": "shutdown"},
            {"name": "Ethernet1", "state": "enabled"},
            options=["--check", "--diff"],
        )
        self.assertTrue(shut["changed"])
        self.assertEqual(shut["changed_interfaces"], ["Ethernet1"])
        self.assertEqual(shut["diff"], {"before": {"Ethernet1": "up"}, "after": {"Ethernet1": "down"}})
        self.assertNotIn("shutdowns", shut)
        self.assertFalse(enabled["changed"])
        self.assertTrue(self.link_is_up("et1"))
        self.assertTrue(self.neighbor.nothing_received())
        self.assertEqual(self.history(), [])

    def test_a_second_run_changes_nothing(self):
        results = self.play(
            {"name": "Ethernet1", "state": "shutdown"},
            {"name": "Ethernet1", "state": "shutdown"},
            {"name": "Ethernet1", "state": "shutdown", "check": True},
            {"name": "Ethernet1", "state": "enabled", "check": True},
        )
        self.assertEqual([result["changed"] for result in results], [True, False, False, True])
        self.assertEqual(results[0]["shutdowns"][0]["sent"], 1)
        self.assertGreaterEqual(results[0]["shutdowns"][0]["heldMs"], self.delay_ms)
        self.assertEqual(results[1]["shutdowns"], [])
        self.assertEqual(results[3]["diff"], {"before": {"Ethernet1": "down"}, "after": {"Ethernet1": "up"}})
        self.assertFalse(self.link_is_up("et1"))
        self.assertEqual(self.neighbor.received(), frame("lldp"))
        self.assertTrue(self.neighbor.nothing_received())
        self.assertEqual(self.history(), [("Ethernet1", "down")])

        results = self.play({"name": "Ethernet1", "state": "enabled"}, {"name": "Ethernet1", "state": "enabled"})
        self.assertEqual([result["changed"] for result in results], [True, False])
        self.assertTrue(self.link_is_up("et1"))

    def test_a_shutdown_that_is_not_waited_for(self):
        self.configure(60000)
        self.client.call("Reload")
        results = self.play(
            {"name": "Ethernet1", "state": "shutdown", "wait": False},
            {"name": "Ethernet1", "state": "shutdown", "wait": False},
            {"name": "Ethernet1", "state": "shutdown", "check": True},
            {"name": "Ethernet1", "state": "enabled", "check": True},
            {"name": "Ethernet1", "state": "enabled"},
        )
        self.assertEqual([result["changed"] for result in results], [True, False, False, True, True])
        self.assertEqual(results[0]["shutdowns"][0]["ending"], "running")
        self.assertEqual(self.history(), [("Ethernet1", "aborted")])
        self.assertTrue(self.link_is_up("et1"))

    def test_a_shutdown_in_progress_is_joined(self):
        self.configure(10000)
        self.client.call("Reload")
        self.client.shutdown("Ethernet1")
        (result,) = self.play({"name": "Ethernet1", "state": "shutdown", "timeout": 5})
        self.assertFalse(result["changed"])
        self.assertEqual(result["shutdowns"][0]["ending"], "down")
        self.assertFalse(self.link_is_up("et1"))

    def test_several_interfaces(self):
        self.client.shutdown("Ethernet2", wait=True)
        shut, enabled = self.play(
            {"name": ["Ethernet1", "Ethernet2"], "state": "shutdown"},
            {"name": ["Ethernet1", "Ethernet2"], "state": "enabled"},
        )
        self.assertEqual(shut["changed_interfaces"], ["Ethernet1"])
        self.assertEqual(sorted(enabled["changed_interfaces"]), ["Ethernet1", "Ethernet2"])
        self.assertTrue(self.link_is_up("et1"))
        self.assertTrue(self.link_is_up("et2"))

    def test_an_interface_that_cannot_be_changed_fails_and_changes_no_other(self):
        silent = socket.socket(socket.AF_UNIX)
        self.addCleanup(silent.close)
        silent.bind(str(self.work / "silent"))
        silent.listen()
        results = self.play(
            {"name": ["Ethernet1", "Ethernet9"], "state": "shutdown"},
            {"name": ["Ethernet1", "Ethernet9"], "state": "shutdown", "check": True},
            {"name": ["Ethernet1", "Ethernet3"], "state": "shutdown"},
            {"name": ["Ethernet1", "Ethernet3"], "state": "shutdown", "check": True},
            {"name": "Ethernet1", "state": "shutdown", "socket": "/nonesuch"},
            {"name": "Ethernet1", "state": "shutdown", "socket": str(self.work / "silent"), "timeout": 1},
        )
        self.assertEqual([result.get("failed") for result in results], [True] * 6)
        self.assertEqual([result["changed"] for result in results], [False] * 6)
        unknown, absent = 'interface "Ethernet9" is not configured', "Ethernet3: device et9 not present"
        self.assertEqual([result["msg"] for result in results[:4]], [unknown, unknown, absent, absent])
        self.assertRegex(results[4]["msg"], "^cannot connect to valend at /nonesuch: No such file")
        self.assertEqual(results[5]["msg"], "Status: valend did not answer in 1 s")
        self.assertTrue(self.link_is_up("et1"))
        self.assertEqual(self.history(), [])

    def test_the_python_module_is_missing(self):
        (self.work / "missing").mkdir()
        text = 'raise ImportError("No module named valen")\n'
        (self.work / "missing" / "valen.py").write_text(text, encoding="ascii")
        (result,) = self.play({"name": "Ethernet1", "state": "shutdown"}, python_path=self.work / "missing")
        self.assertRegex(result["msg"], r"Failed to import the required Python library \(valen\)")

    def test_the_example_playbook(self):
        example = CLIENTS / "ansible" / "maintenance.yml"
        options = ["-e", "ansible_become=false", "-e", "interfaces=Ethernet1,Ethernet2"]
        options += ["-e", f"valend_socket={self.socket}"]
        self.assertEqual(self.run_playbook(example, *options, "--tags", "before"), 0, self.output)
        self.assertFalse(self.link_is_up("et1"))
        self.assertFalse(self.link_is_up("et2"))
        self.assertEqual(self.run_playbook(example, *options, "--tags", "after"), 0, self.output)
        self.assertTrue(self.link_is_up("et1"))
        self.assertTrue(self.link_is_up("et2"))


class AnsibleModuleWithFakeDaemon(Playbook, FakeDaemonTest):
    def setUp(self):
        super().setUp()
        self.work = pathlib.Path(self.socket).parent

    @staticmethod
    def record(**changes):
        record = {"interface": "Ethernet1", "ending": "down", "why": None, "failed": 0, "failReason": None}
        return {**record, **changes}

    @classmethod
    def steps(cls, step, **changes):
        steps = [{"step": step, "delayMs": None, "shutdown": cls.record(**changes)}]
        return answer({"steps": steps, "pending": 0})

    def serve_methods(self, **answers):
        """Answers each method with its bytes; Status with an interface that is up."""
        up = {"name": "Ethernet1", "device": "et1", "link": "up", "shuttingDown": False}
        answers = {"Status": answer({"interfaces": [up]}), **answers}

        def by_method(connection):
            connection.sendall(answers[self.calls[-1]["method"].rpartition(".")[2]])

        self.serve(by_method, by_method)

    def test_the_reason_and_the_delay_are_passed_on(self):
        self.serve_methods(ShutdownMany=self.steps("ended"))
        task = {"name": "Ethernet1", "state": "shutdown", "reason": "new optics", "delay_ms": 200}
        (result,) = self.play(task)
        self.assertTrue(result["changed"])
        expected = {"interfaces": ["Ethernet1"], "reason": "new optics", "delayMs": 200}
        self.assertEqual(self.calls[-1]["parameters"], expected)

    def test_a_shutdown_that_ends_otherwise_fails(self):
        ended = self.steps("ended", ending="aborted", why="enabled after 23 ms")
        self.serve_methods(ShutdownMany=ended)
        (result,) = self.play({"name": "Ethernet1", "state": "shutdown"})
        self.assertTrue(result["failed"])
        self.assertFalse(result["changed"])
        self.assertEqual(result["msg"], "Ethernet1: shutdown ended as aborted: enabled after 23 ms")

    def test_frames_that_were_not_sent_are_warned_of(self):
        ended = self.steps("ended", failed=2, failReason="Message too long", why="sending timed out")
        self.serve_methods(ShutdownMany=ended)
        (result,) = self.play({"name": "Ethernet1", "state": "shutdown"})
        self.assertTrue(result["changed"])
        self.assertEqual(
            result["warnings"],
            ["Ethernet1: 2 frames not sent: Message too long", "Ethernet1: sending timed out"],
        )

    def test_a_link_that_cannot_be_enabled_fails(self):
        down = {"name": "Ethernet1", "device": "et1", "link": "down", "shuttingDown": False}
        failed = {"interface": "Ethernet1", "result": "failed", "message": "cannot set et1 up: Device busy"}
        self.serve_methods(Status=answer({"interfaces": [down]}), EnableMany=answer({"results": [failed]}))
        (result,) = self.play({"name": "Ethernet1", "state": "enabled"})
        self.assertTrue(result["failed"])
        self.assertEqual(result["msg"], "Ethernet1: cannot set et1 up: Device busy")

    def test_the_documentation_has_the_options(self):
        command = ["ansible-doc", "-t", "module", "--json", "valen_interface"]
        done = subprocess.run(command, env=self.environment(), capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        documented = json.loads(done.stdout)["valen_interface"]["doc"]["options"]
        sys.path.insert(0, str(CLIENTS / "ansible" / "library"))
        import valen_interface

        for option in documented.values():
            del option["description"]
            if not option.get("required", True):
                del option["required"]
        self.assertEqual(documented, valen_interface.ARGUMENT_SPEC)
        page = (CLIENTS.parent / "docs" / "clients.md").read_text(encoding="utf-8")
        table = page.partition("| option | meaning")[2].partition("\n\n")[0]
        defaults = dict(re.findall(r"^\| `(\w+)` \|.*\|([^|]*)\|$", table, re.MULTILINE))
        self.assertEqual(list(defaults), list(valen_interface.ARGUMENT_SPEC))
        for name, option in valen_interface.ARGUMENT_SPEC.items():
            default = str(option.get("default", "")).replace("True", "true")
            self.assertEqual(defaults[name].strip(" `"), default)


if len(sys.argv) < 2:
    sys.exit(__doc__)
if not shutil.which("ansible-playbook"):
    print("ansible-playbook is not installed")
    sys.exit(77)
RunningDaemonTest.valend = sys.argv.pop(1)
unittest.main()
