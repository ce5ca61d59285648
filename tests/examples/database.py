"""What examples/database has, with a real server: each user may do what its role needs and nothing else, and the
producers keep their frames published.
    database.py [CLASS[.TEST]] SOURCE_DIRECTORY"""

import os
import pathlib
import signal
import subprocess
import sys
import unittest

import redis

source = pathlib.Path(sys.argv.pop())
sys.path.insert(0, str(source / "tests" / "support"))
from redis_server import TIMEOUT, RedisServer, eventually  # noqa: E402

examples = source / "examples" / "database"
FRAME = bytes.fromhex("ffffffffffff 020000000001 88b5 676f6f64627965 00 22 0a 5c")
LEASE_S = 10


def server_with_users(test):
    """The users of the example, and one for the test itself."""
    rules = test.work / "users.acl"
    rules.write_text((examples / "users.acl").read_text() + "user test on nopass allkeys allchannels allcommands\n")
    return RedisServer(test, "--aclfile", rules, "--notify-keyspace-events", "Kg$hx")


class ExampleTest(unittest.TestCase):
    def setUp(self):
        self.work = RedisServer.directory(self)
        self.server = server_with_users(self)
        self.all = self.client("test", "")

    def client(self, user, password):
        client = self.server.client(user, password)
        self.addCleanup(client.close)
        return client


class Users(ExampleTest):
    def may(self, client, *commands):
        for command in commands:
            with self.subTest(command):
                client.execute_command(*command.split())

    def may_not(self, client, *commands):
        for command in commands:
            with self.subTest(command), self.assertRaises(redis.exceptions.NoPermissionError):
                client.execute_command(*command.split())

    def test_nobody_else(self):
        with self.assertRaises(redis.AuthenticationError):
            self.server.client().ping()
        with self.assertRaisesRegex(redis.ResponseError, "WRONGPASS"):
            self.client("operator", "wrong").ping()

    def test_the_daemon(self):
        daemon = self.client("valend-rtr1", "change-me-rtr1")
        self.may(
            daemon,
            "PING",
            "SELECT 0",
            "CLIENT SETNAME valend",
            "SCAN 0 MATCH valen:rtr1:config:* COUNT 500",
            "HGETALL valen:rtr1:config:delay",
            "MEMORY USAGE valen:rtr1:frames:bgp:Ethernet1 SAMPLES 0",
            "HSET valen:rtr1:status:Ethernet1 link up",
            "DEL valen:rtr1:status:Ethernet1",
            "XREVRANGE valen:rtr1:history + - COUNT 1",
            "XADD valen:rtr1:history MAXLEN ~ 1000 * interface Ethernet1",
            "PEXPIRE valen:rtr1:alive 5000",
            "EXISTS valen:rtr1:lease:bgp:Ethernet1",
            "SADD valen:hosts valen:rtr1",
        )
        with daemon.pipeline(transaction=True) as transaction:
            transaction.delete("valen:rtr1:alive").hset("valen:rtr1:alive", "version", "1")
            transaction.execute()
        with daemon.pubsub() as notices:
            for names in "config:*", "frames:*", "want:*", "test":
                notices.psubscribe(f"__keyspace@0__:valen:rtr1:{names}")
                self.assertEqual(notices.get_message(timeout=TIMEOUT)["type"], "psubscribe")
            self.all.hset("valen:rtr1:want:Ethernet1", "link", "down")
            self.assertEqual(notices.get_message(timeout=TIMEOUT)["data"], "hset")
        self.may_not(
            daemon,
            "HSET valen:rtr2:status:Ethernet1 link down",
            "HGETALL valen:rtr2:status:Ethernet1",
            "SMEMBERS valen:hosts",
            "FLUSHALL",
            "KEYS *",
            "CONFIG GET *",
            "ACL LIST",
            "CLIENT KILL TYPE normal",
            "PUBLISH __keyspace@0__:valen:rtr1:want:Ethernet1 hset",
            "SUBSCRIBE __keyspace@0__:valen:rtr2:want:Ethernet1",
            "EVAL return 0",
        )

    def test_the_producer(self):
        producer = self.client("producer-rtr1", "change-me-bgp")
        self.may(
            producer,
            "PING",
            "SET valen:rtr1:lease:bgp:Ethernet1 held EX 10",
            "EXPIRE valen:rtr1:lease:bgp:Ethernet1 10",
            "HSET valen:rtr1:frames:bgp:Ethernet1 0001 x",
            "HGET valen:rtr1:rejected:frames:bgp:Ethernet1 why",
            "DEL valen:rtr1:frames:bgp:Ethernet1 valen:rtr1:lease:bgp:Ethernet1",
        )
        self.may_not(
            producer,
            "HSET valen:rtr1:frames:lldp:Ethernet1 0001 x",
            "HSET valen:rtr1:want:Ethernet1 link down",
            "HSET valen:rtr1:config:delay shutdown-delay-ms 0",
            "HSET valen:rtr1:status:Ethernet1 link down",
            "HSET valen:rtr2:frames:bgp:Ethernet1 0001 x",
            "DEL valen:rtr1:rejected:frames:bgp:Ethernet1",
            "DEL valen:rtr1:lease:lldp:Ethernet1",
            "HGETALL valen:rtr1:status:Ethernet1",
            "SCAN 0",
            "PSUBSCRIBE *",
            "FLUSHDB",
        )

    def test_the_operator(self):
        operator = self.client("operator", "change-me-operator")
        self.may(
            operator,
            "PING",
            "SMEMBERS valen:hosts",
            "SCAN 0 MATCH *:status:* COUNT 1000",
            "HGETALL valen:rtr1:status:Ethernet1",
            "HGETALL valen:rtr2:alive",
            "HGET valen:rtr2:want:Ethernet1 id",
            "XREVRANGE valen:rtr1:history + - COUNT 1",
            "HSET valen:rtr2:want:Ethernet1 link down id 1",
            "HSET valen:rtr1:config:delay shutdown-delay-ms 500",
            "DEL valen:rtr1:config:delay",
        )
        self.may_not(
            operator,
            "HSET valen:rtr1:status:Ethernet1 link down",
            "HSET valen:rtr1:alive version 1",
            "HSET valen:rtr1:frames:bgp:Ethernet1 0001 x",
            "DEL valen:hosts",
            "DEL valen:rtr1:history",
            "SADD valen:hosts valen:rtr9",
            "HSET other link down",
            "HGETALL other",
            "FLUSHALL",
            "CONFIG SET maxmemory 1",
        )


class Producers(ExampleTest):
    frames_key, lease_key = "valen:rtr1:frames:bgp:Ethernet1", "valen:rtr1:lease:bgp:Ethernet1"

    def start(self, example):
        """Starts a producer and waits until its frames are there."""
        environment = os.environ | {
            "VALEN_PASSWORD": "change-me-bgp",
            "REDISCLI_AUTH": "change-me-bgp",
            "REDIS_CLI": f"redis-cli -s {self.server.socket} --user producer-rtr1",
        }
        words = [str(examples / example), "rtr1", "bgp", "Ethernet1", FRAME.hex(" "), FRAME[:14].hex()]
        if example.endswith(".py"):
            words.insert(1, f"unix://producer-rtr1@{self.server.socket}")
        log = open(self.work / "log", "wb")
        self.addCleanup(log.close)
        self.producer = subprocess.Popen(words, env=environment, stderr=log, start_new_session=True)
        self.addCleanup(self.producer.wait)
        self.addCleanup(self.end_all)
        self.assertTrue(eventually(lambda: self.said("the frames are published")), self.log())

    def end_all(self):
        """Also what it has started."""
        try:
            os.killpg(self.producer.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    def log(self):
        return (self.work / "log").read_text()

    def said(self, text):
        return text in self.log()

    def published(self):
        binary = redis.Redis(unix_socket_path=self.server.socket, username="test", password="")
        self.addCleanup(binary.close)
        return binary.hgetall(self.frames_key)

    def check(self, example):
        self.start(example)
        fields = self.published()
        self.assertEqual((fields[b"0001"], fields[b"0002"]), (FRAME, FRAME[:14]))
        self.assertEqual(fields[b"lease"].decode(), self.lease_key)
        self.assertIn(str(self.producer.pid).encode(), fields[b"owner"])

        # It renews the lease before that runs out.
        self.all.expire(self.lease_key, 4)
        self.assertTrue(eventually(lambda: self.all.ttl(self.lease_key) > 4))

        # It says what the daemon says.
        self.all.hset(f"valen:rtr1:rejected:frames:bgp:Ethernet1", mapping={"why": "too long", "at-ms": "1"})
        self.assertTrue(eventually(lambda: self.said("too long")), self.log())
        self.all.delete("valen:rtr1:rejected:frames:bgp:Ethernet1")

        # A server that comes back empty gets the frames again.
        self.server.kill()
        self.assertTrue(eventually(lambda: self.said("cannot reach the database")), self.log())
        self.server.start()
        self.assertTrue(eventually(lambda: self.published() == fields), self.log())

        # When it ends, they are gone at once.
        self.producer.terminate()
        self.assertEqual(self.producer.wait(TIMEOUT), 0)
        self.assertEqual((self.published(), self.all.exists(self.lease_key)), ({}, 0))

        # When it is killed, the lease runs out, by which the daemon knows.
        self.start(example)
        self.end_all()
        self.assertTrue(0 < self.all.pttl(self.lease_key) <= LEASE_S * 1000)
        self.all.pexpire(self.lease_key, 100)  # rather than to wait
        self.assertTrue(eventually(lambda: not self.all.exists(self.lease_key)))
        self.producer.wait()

    def test_python(self):
        self.check("producer.py")

    def test_shell(self):
        self.check("producer.sh")


unittest.main()
