#!/usr/bin/python3
"""Daemons of several hosts, as a client of their database sees them: each writes its status, and acts on requests. No
interface is real.

    fake_hosts.py SOCKET HOSTS INTERFACES [--delay-ms N]

HOSTS are named rtr1, rtr2 ..., INTERFACES Ethernet1, Ethernet2 ... Prints "ready" when everything is written. SIGUSR1 makes
rtr1 stale, SIGUSR2 brings it back."""

import argparse
import json
import signal
import sys
import time

import redis

ALIVE_S = 5


def now_ms():
    return int(time.time() * 1000)


class Interface:
    def __init__(self, number):
        self.name, self.device = f"Ethernet{number}", f"et{number}"
        self.vrf = "red" if number % 2 == 0 else "default"
        self.link, self.seen, self.result = "up", "", ""
        self.held_until = self.shutdown = None
        self.sent = self.aborts = 0

    def status(self):
        return {
            "name": self.name, "device": self.device, "vrf": self.vrf, "namespace": self.vrf, "link": self.link,
            "carrier": self.link == "up", "ifIndex": 1, "mtu": 1500, "ready": self.link == "up", "notReady": None,
            "delayed": self.held_until is not None, "shuttingDown": self.held_until is not None, "retrying": None,
            "frames": [{"agent": "lldp", "count": 1, "tooLong": []}], "shutdowns": 0, "sent": self.sent, "failed": 0,
            "lastError": None, "aborts": self.aborts, "withoutGoodbye": False,
        }  # fmt: skip

    def hash(self):
        return {
            "link": self.link, "ready": "yes", "not-ready": "", "frames": 1, "shutdowns": 0, "aborted": 0, "failed": 0,
            "shutting-down": "yes" if self.held_until else "no", "held-until-ms": self.held_until or "",
            "id": self.seen, "result": self.result, "interface": json.dumps(self.status()),
        }  # fmt: skip


class Host:
    def __init__(self, server, name, interfaces, delay_ms):
        self.server, self.name, self.prefix, self.delay_ms = server, name, f"valen:{name}", delay_ms
        self.interfaces = [Interface(number) for number in range(1, interfaces + 1)]
        self.silent = False
        self.written = 0.0

    def write(self, *interfaces):
        with self.server.pipeline(transaction=True) as all_at_once:
            for interface in interfaces:
                key = f"{self.prefix}:status:{interface.name}"
                all_at_once.delete(key).hset(key, mapping=interface.hash())
            all_at_once.execute()

    def sign(self):
        if time.monotonic() - self.written < 2:
            return
        self.written = time.monotonic()
        self.write(*self.interfaces)  # the server may have lost them without a loss of the connection that is noticed
        daemon = {
            "version": "0.1.0", "shutdownDelayMs": self.delay_ms, "active": True, "faults": 0, "lastFaults": [],
            "conditions": [], "vrfs": [{"name": "red", "namespace": "red", "error": None}],
        }  # fmt: skip
        with self.server.pipeline(transaction=True) as all_at_once:
            all_at_once.sadd("valen:hosts", self.prefix)
            all_at_once.hset(f"{self.prefix}:alive", mapping={"version": "0.1.0", "daemon": json.dumps(daemon)})
            all_at_once.expire(f"{self.prefix}:alive", ALIVE_S)
            all_at_once.execute()

    def work(self):
        if self.silent:
            return
        self.sign()
        with self.server.pipeline(transaction=False) as reading:
            for interface in self.interfaces:
                reading.hgetall(f"{self.prefix}:want:{interface.name}")
            for interface, want in zip(self.interfaces, reading.execute()):
                if want and want["id"] != interface.seen:
                    self.act(interface, want)
        for interface in self.interfaces:
            if interface.held_until and now_ms() >= interface.held_until:
                interface.link = "down"
                self.end(interface, "down")

    def act(self, interface, want):
        if interface.held_until and want["link"] == "up":
            interface.aborts += 1
            self.end(interface, "aborted")
            interface.result = "aborted"
        elif want["link"] == "up":
            interface.result = "already-up" if interface.link == "up" else "up"
            interface.link = "up"
        elif int(want.get("delay-ms", 0)) > 65535:
            interface.result = "rejected: delay-ms: at most 65535"
        elif interface.link == "down":
            interface.result = "already-down"
        else:
            delay_ms = int(want.get("delay-ms", self.delay_ms))
            interface.held_until = now_ms() + delay_ms
            interface.shutdown = want | {"begin": now_ms()}
            interface.result = "running"
            interface.sent += 1
        interface.seen = want["id"]
        self.write(interface)

    def end(self, interface, ending):
        want, interface.held_until = interface.shutdown, None
        record = {
            "interface": interface.name, "device": interface.device, "namespace": interface.vrf, "by": "database",
            "login": want.get("by"), "reason": want.get("reason"), "requestedDelayMs": None, "whenMs": want["begin"],
            "withDelay": True, "resumed": False, "sent": 1, "failed": 0, "failReason": None, "agents": [],
            "sendingUs": 10, "heldMs": now_ms() - want["begin"], "totalMs": now_ms() - want["begin"], "muted": [],
            "notMuted": None, "unflushedBytes": 0, "ending": ending, "why": None, "count": 1, "untilMs": None,
        }  # fmt: skip
        interface.result = ending
        self.write(interface)
        entry = {"interface": interface.name, "ending": ending, "id": want["id"], "record": json.dumps(record)}
        self.server.xadd(f"{self.prefix}:history", entry)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("socket")
    parser.add_argument("hosts", type=int)
    parser.add_argument("interfaces", type=int)
    parser.add_argument("--delay-ms", type=int, default=300)
    options = parser.parse_args()
    server = redis.Redis(unix_socket_path=options.socket, decode_responses=True)
    hosts = [Host(server, f"rtr{n}", options.interfaces, options.delay_ms) for n in range(1, options.hosts + 1)]

    def silence(silent):
        hosts[0].silent = silent
        if silent:
            server.delete("valen:rtr1:alive")
        hosts[0].written = 0.0

    signal.signal(signal.SIGUSR1, lambda *_: silence(True))
    signal.signal(signal.SIGUSR2, lambda *_: silence(False))
    for host in hosts:
        host.write(*host.interfaces)
        host.work()
    print("ready", flush=True)
    lost = False
    while True:
        try:
            for host in hosts:
                if lost:
                    host.write(*host.interfaces)
                    host.written = 0.0
                host.work()
            lost = False
        except redis.RedisError:
            lost = True
        time.sleep(0.01)


if __name__ == "__main__":
    sys.exit(main())
