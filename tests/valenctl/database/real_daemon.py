"""valend, valenctl and a producer, each with the user of its role, at one server. In scripts/sandbox.
    real_daemon.py [CLASS[.TEST]] SOURCE_DIRECTORY VALEND VALENCTL"""

import json
import os
import pathlib
import signal
import subprocess
import sys
import unittest

valenctl = sys.argv.pop()
valend = sys.argv.pop()
source = pathlib.Path(sys.argv.pop())
sys.path[:0] = [str(source / "tests" / "support"), str(source / "tests" / "clients")]
from redis_server import TIMEOUT, RedisServer, eventually  # noqa: E402
from running_daemon import RunningDaemonTest, frame  # noqa: E402

examples = source / "examples" / "database"


class RealDaemon(RunningDaemonTest):
    valend = valend
    delay_ms = 1500  # long enough to be seen while the machine has other work

    def configure(self, delay_ms):
        super().configure(delay_ms)
        self.server = RedisServer(self, "--aclfile", examples / "users.acl", "--notify-keyspace-events", "Khgx")
        with (self.work / "valen.yaml").open("a", encoding="ascii") as config:
            server = self.url("valend-rtr1", "change-me-rtr1")
            config.write(f"database: {{server: '{server}', prefix: 'valen:rtr1'}}\n")

    def url(self, user, password):
        file = self.work / user
        file.write_text(password, encoding="ascii")
        file.chmod(0o600)
        return f"{self.server.url}?user={user}&password-file={file}"

    def setUp(self):
        super().setUp()
        self.operator = self.url("operator", "change-me-operator")
        self.database = self.server.client("operator", "change-me-operator")
        self.addCleanup(self.database.close)
        self.assertTrue(eventually(lambda: self.interface("Ethernet1").get("ready")), self.log())

    def ctl(self, *words):
        return subprocess.run(
            [valenctl, "--database", self.operator, *words], capture_output=True, encoding="utf-8", timeout=TIMEOUT
        )

    def host(self):
        """What the database has of the host; empty if that is not there yet."""
        answer = self.ctl("status", "--json")
        return json.loads(answer.stdout).get("hosts", [{}])[0] if answer.returncode == 0 else {}

    def interface(self, name):
        return {each["name"]: each for each in self.host().get("interfaces", [])}.get(name, {})

    def frames(self):
        return {each["agent"]: each["count"] for each in self.interface("Ethernet1")["frames"]}

    def test_the_rights_of_the_daemon_are_enough(self):
        self.assertEqual(self.host()["conditions"], [])
        self.assertNotIn("NOPERM", self.log())

    def test_an_operator_shuts_down_and_enables(self):
        answer = self.ctl("--host", "rtr1", "shutdown", "Ethernet1", "--wait", "--reason", "new optics")
        self.assertEqual(answer.returncode, 0, answer.stderr + self.log())
        self.assertRegex(answer.stderr, r"^rtr1 Ethernet1: (held for \d+ ms|shutting down)\nrtr1 Ethernet1: link down after \d+ ms")
        self.assertEqual(self.neighbor.received(), frame("lldp"))
        self.assertFalse(self.link_is_up("et1"))
        self.assertTrue(self.link_is_up("et2"))
        record = json.loads(self.ctl("history", "--json").stdout)["hosts"][0]["shutdowns"][-1]
        self.assertEqual((record["by"], record["reason"], record["ending"]), ("database", "new optics", "down"))
        answer = self.ctl("--host", "all", "enable", "Ethernet1")
        self.assertEqual((answer.returncode, answer.stderr), (0, "rtr1 Ethernet1: link up\n"))
        self.assertTrue(self.link_is_up("et1"))

    def test_an_abort(self):
        answer = self.ctl("--host", "rtr1", "shutdown", "Ethernet1", "--delay", "9000")
        self.assertRegex(answer.stderr, r"^rtr1 Ethernet1: (held for \d+ ms|shutting down)\n$")
        answer = self.ctl("--host", "rtr1", "enable", "Ethernet1")
        self.assertEqual(answer.stderr, "rtr1 Ethernet1: shutdown aborted; link stays up\n")

    def test_what_a_daemon_rejects(self):
        answer = self.ctl("--host", "rtr1", "shutdown", "Ethernet1", "--delay", "3000000")
        self.assertEqual(answer.returncode, 1, answer.stderr)
        self.assertRegex(answer.stderr, "^valenctl: rtr1 Ethernet1: rejected: ")
        self.assertTrue(self.link_is_up("et1"))

    def test_configuration_in_the_database(self):
        self.database.hset("valen:rtr1:config:delay", "shutdown-delay-ms", "123")
        self.assertTrue(eventually(lambda: self.host()["shutdownDelayMs"] == 123))
        self.database.hset("valen:rtr1:config:delay", "shutdown-delay-ms", "soon")
        self.assertTrue(eventually(lambda: self.host()["rejected"]))
        self.assertRegex(self.ctl("status").stdout, r"(?m)^rtr1: config:delay is rejected: ")
        self.assertEqual(self.host()["shutdownDelayMs"], 123)
        self.database.delete("valen:rtr1:config:delay")
        self.assertTrue(eventually(lambda: self.host()["shutdownDelayMs"] == self.delay_ms))

    def test_a_producer_that_is_killed(self):
        producer = subprocess.Popen(
            [examples / "producer.sh", "rtr1", "bgp", "Ethernet1", frame("bgp").hex()],
            env=os.environ
            | {
                "REDIS_CLI": f"redis-cli -s {self.server.socket} --user producer-rtr1",
                "REDISCLI_AUTH": "change-me-bgp",
            },
            start_new_session=True,
        )
        self.addCleanup(producer.wait)
        self.addCleanup(producer.kill)
        self.assertTrue(eventually(lambda: self.frames() == {"bgp": 1, "lldp": 1}), self.log())
        os.killpg(producer.pid, signal.SIGKILL)
        self.assertTrue(eventually(lambda: self.frames() == {"lldp": 1}), self.log())  # its lease has 10 s


unittest.main()
