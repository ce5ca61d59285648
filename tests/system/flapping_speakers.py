#!/usr/bin/env python3
"""Many speakers that restart, change what they say, get new ids and fall silent, for a given time: what valend has
learned is always what each said last. The goodbyes that are expected are made here, apart from valend.

   scripts/sandbox tests/system/flapping_speakers.py --valend build/dev/src/valend/valend [--minutes 60] [--interfaces 100]

The speakers send LLDP, OSPF and VRRP on veth pairs, as daemons do. Prints a line a minute, and the first differences. Ends
with 0 if there was no difference, and with 77 if this user may not load filters.
"""
import argparse
import itertools
import os
import random
import socket
import struct
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path += [f"{HERE}/../../clients/python", f"{HERE}/../support"]
import said  # noqa: E402
import valen  # noqa: E402
from checksum import checksum  # noqa: E402


def ipv4(protocol, ttl, source, destination, payload):
    head = struct.pack("!BBHHHBBH4s4s", 0x45, 0xC0, 20 + len(payload), 0, 0, ttl, protocol, 0,
                       socket.inet_aton(source), socket.inet_aton(destination))
    return head[:10] + struct.pack("!H", checksum(head)) + head[12:] + payload


class Lldp:
    agent = "learned-lldp"
    hold = 6

    def __init__(self, choice, _):
        self.port = f"p{choice.randrange(1000)}".encode()
        self.mac = bytes([2, 0, 0]) + choice.randbytes(3)
        self.change(choice)

    def change(self, choice):
        self.name = f"router{choice.randrange(10 ** 6)}".encode()

    def frame(self, ttl):
        tlvs = [(1, b"\4" + self.mac), (2, b"\7" + self.port), (3, struct.pack("!H", ttl)), (5, self.name), (0, b"")]
        return (bytes.fromhex("0180c200000e") + self.mac + b"\x88\xcc" +
                b"".join(struct.pack("!H", kind << 9 | len(value)) + value for kind, value in tlvs))

    def hello(self):
        return self.frame(self.hold)

    def goodbye(self):
        return self.frame(0)


class Ospf:
    agent = "learned-ospf"
    hold = 6

    def __init__(self, choice, number):
        self.address = f"10.{number >> 8}.{number & 255}.1"
        self.router = choice.randbytes(4)
        self.change(choice)

    def change(self, choice):
        self.neighbors = [choice.randbytes(4) for _ in range(choice.randrange(1, 4))]

    def frame(self, neighbors):
        body = struct.pack("!4sHBBI4s4s", b"\xff\xff\xff\0", 1, 2, 1, self.hold, b"\0" * 4, b"\0" * 4) + b"".join(neighbors)
        head = struct.pack("!BBH4s4s", 2, 1, 24 + len(body), self.router, b"\0" * 4)
        packet = head + struct.pack("!HH", checksum(head + b"\0" * 4 + body), 0) + b"\0" * 8 + body
        return bytes.fromhex("01005e000005 020000000001 0800") + ipv4(89, 1, self.address, "224.0.0.5", packet)

    def hello(self):
        return self.frame(self.neighbors)

    def goodbye(self):
        return self.frame([])


class Vrrp:
    agent = "learned-vrrp"
    hold = 6
    numbers = itertools.count()  # no two of a device are the same within their hold times

    def __init__(self, choice, number):
        self.address = f"10.{number >> 8}.{number & 255}.1"
        self.router = next(self.numbers) % 255 + 1
        self.change(choice)

    def change(self, choice):
        self.priority = choice.randrange(1, 255)

    def frame(self, priority):
        message = struct.pack("!BBBBHH4s", 0x31, self.router, priority, 1, 100, 0, b"\x0a\0\0\xfe")
        pseudo = socket.inet_aton(self.address) + socket.inet_aton("224.0.0.18") + struct.pack("!HH", 112, len(message))
        message = message[:6] + struct.pack("!H", checksum(pseudo + message)) + message[8:]
        return (bytes.fromhex("01005e000012 00005e0001") + bytes([self.router]) + b"\x08\0" +
                ipv4(112, 255, self.address, "224.0.0.18", message))

    def hello(self):
        return self.frame(self.priority)

    def goodbye(self):
        return self.frame(0)


class Speaking:
    """A speaker, and what it has said."""

    def __init__(self, speaker):
        self.speaker = speaker
        self.said = None  # nothing yet
        self.speaks = False

    def says(self, goodbye):
        self.said = self.said or said.Said()
        self.said.add(time.monotonic(), goodbye, self.speaker.hold)
        self.speaks = goodbye is not None


class Device:
    """A device and its speakers: one of each protocol, besides those that fell silent."""

    def __init__(self, number, choice):
        self.number = number
        self.name = f"v{number}"
        self.choice = choice
        subprocess.run(["ip", "link", "add", self.name, "type", "veth", "peer", "name", f"w{number}"], check=True)
        for end in (f"w{number}", self.name):
            with open(f"/proc/sys/net/ipv6/conf/{end}/disable_ipv6", "w", encoding="ascii") as file:
                file.write("1")
            subprocess.run(["ip", "link", "set", end, "up"], check=True)
        self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
        self.socket.bind((self.name, 0))
        self.all = []  # that may be known
        self.speakers = {kind: self.begin(kind) for kind in (Lldp, Ospf, Vrrp)}

    def begin(self, kind):
        self.all.append(Speaking(kind(self.choice, self.number)))
        return self.all[-1]

    def hello(self, one):
        one.says(one.speaker.goodbye())
        self.socket.send(one.speaker.hello())

    def act(self):
        """Something happens to one of the speakers."""
        kind = self.choice.choice(list(self.speakers))
        one = self.speakers[kind]
        event = self.choice.choice(["hello", "hello", "change", "leave", "restart", "damage"])
        if event == "change":
            one.speaker.change(self.choice)
        if event in ("hello", "change"):
            self.hello(one)
        elif event == "leave":
            one.says(None)
            self.socket.send(one.speaker.goodbye())
        elif event == "restart":  # without a goodbye, as another speaker
            self.speakers[kind] = self.begin(kind)
            self.hello(self.speakers[kind])
        else:
            self.socket.send(one.speaker.hello()[:30])

    def refresh(self):
        """Every speaker says what it said before, if it has not left."""
        for one in self.speakers.values():
            if one.speaks:
                self.hello(one)

    def differences(self, learned, now):
        self.all = [one for one in self.all
                    if one in self.speakers.values() or (one.said and now < one.said.over_at())]
        found = []
        for kind in self.speakers:
            frames = {bytes.fromhex(frame) for frame in learned.get(kind.agent, [])}
            of_kind = [one.said for one in self.all if isinstance(one.speaker, kind) and one.said]
            found += [f"{self.name} {kind.agent}: {text}" for text in said.differences(of_kind, frames, now)]
        return found


def frames_of(client):
    learned = {}
    for message in client.call("ListMessages", interface=None)["messages"]:
        learned.setdefault(message["interface"], {})[message["agent"]] = message["frames"]
    return learned


def memory_kb(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


def start(valend, work, devices):
    lines = ["shutdown-delay-ms: 1000", "goodbyes: learned", "interfaces:"]
    lines += [f"  - name: {device.name}" for device in devices]
    with open(f"{work}/valen.yaml", "w", encoding="ascii") as file:
        file.write("\n".join(lines) + "\n")
    process = subprocess.Popen([valend, "--config", f"{work}/valen.yaml", "--socket", f"{work}/sock",
                                "--state-directory", f"{work}/state"])
    for _ in range(300):
        if os.path.exists(f"{work}/sock"):
            return process
        time.sleep(0.1)
    raise SystemExit("valend does not start")


def is_root_of_the_machine():
    with open("/proc/self/uid_map", encoding="ascii") as file:
        return file.read().split()[2] == "4294967295"


def main():
    if not is_root_of_the_machine():
        print("skipped: loading filters needs root of the machine")
        return 77
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--valend", required=True)
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--interfaces", type=int, default=100)
    parser.add_argument("--seed", type=int, default=random.randrange(10 ** 9))
    options = parser.parse_args()
    choice = random.Random(options.seed)
    print(f"seed {options.seed}", flush=True)
    devices = [Device(number, choice) for number in range(options.interfaces)]
    with tempfile.TemporaryDirectory() as work:
        os.mkdir(f"{work}/state")
        process = start(options.valend, work, devices)
        try:
            return flap(options, choice, devices, process, f"{work}/sock")
        finally:
            process.terminate()
            process.wait()


def flap(options, choice, devices, process, path):
    time.sleep(1 + len(devices) / 50)  # until the filters are attached
    client = valen.Client(path)
    begin = time.monotonic()
    end = begin + options.minutes * 60
    report = begin + 60
    refresh = begin
    checks = compared = events = differences = 0
    while time.monotonic() < end:
        for _ in range(len(devices) // 10 + 1):
            choice.choice(devices).act()
            events += 1
        if time.monotonic() >= refresh:
            refresh += 1
            for device in devices:
                device.refresh()
        learned = frames_of(client)
        now = time.monotonic()
        for device in devices:
            for difference in device.differences(learned.get(device.name, {}), now):
                differences += 1
                if differences <= 10:
                    print(difference, flush=True)
        checks += 1
        compared += sum(len(frames) for agents in learned.values() for frames in agents.values())
        if time.monotonic() >= report:
            report += 60
            print(f"{(now - begin) / 60:.0f} min: {events} events, {checks} looks, {compared} goodbyes compared, "
                  f"{differences} differences; valend has {memory_kb(process.pid)} kB", flush=True)
        time.sleep(0.5)
    print(f"{events} events, {checks} looks, {compared} goodbyes compared, {differences} differences")
    return 1 if differences or not compared else 0


if __name__ == "__main__":
    sys.exit(main())
