"""Goodbyes of the frames that daemons send, derived apart from valend: for frames that are known to be sound, and by the
protocols' own words."""
import dataclasses
import struct
import sys
import typing

import programs

sys.path.append(str(programs.SOURCE / "tests/support"))
from checksum import checksum  # noqa: E402


@dataclasses.dataclass
class Derived:
    agent: str  # whose frame valend makes of it
    who: tuple  # the speaker, and which part of what it says
    hold: float  # in seconds
    goodbye: typing.Optional[bytes]  # None: the frame is one itself


def number(data, at, size=2):
    return int.from_bytes(data[at:at + size], "big")


def put(data, at, value, size=2):
    return data[:at] + value.to_bytes(size, "big") + data[at + size:]


class Ip:
    """A frame with one message over IPv4 without options, or over IPv6 without extension headers."""

    def __init__(self, frame):
        self.link = frame[:14]
        self.version = 4 if number(frame, 12) == 0x0800 else 6
        size = 20 if self.version == 4 else 40
        self.head = frame[14:14 + size]
        self.protocol = self.head[9 if self.version == 4 else 6]
        addresses = self.head[12:] if self.version == 4 else self.head[8:]
        self.source, self.destination = addresses[:len(addresses) // 2], addresses[len(addresses) // 2:]
        end = number(self.head, 2) if self.version == 4 else size + number(self.head, 4)
        self.message = frame[14 + size:14 + end]

    def pseudo(self, message):
        return self.source + self.destination + struct.pack("!II", self.protocol, len(message))

    def summed(self, message, at, pseudo):
        """The message with its checksum, which is at this place."""
        message = put(message, at, 0)
        return put(message, at, checksum((self.pseudo(message) if pseudo else b"") + message))

    def framed(self, message):
        """The frame with this message instead."""
        if self.version == 6:
            return self.link + put(self.head, 4, len(message)) + message
        head = put(put(self.head, 2, len(self.head) + len(message)), 10, 0)
        return self.link + put(head, 10, checksum(head)) + message


def lldp(frame):
    """IEEE 802.1AB: a time to live of 0. The speaker is its chassis and port id."""
    at, ids, ttl_at = 14, [], 0
    while not ttl_at:
        kind, size = number(frame, at) >> 9, number(frame, at) & 0x1FF
        if kind == 3:
            ttl_at = at + 2
        else:
            ids.append(frame[at + 2:at + 2 + size])
        at += 2 + size
    ttl = number(frame, ttl_at)
    return Derived("learned-lldp", tuple(ids), ttl, put(frame, ttl_at, 0) if ttl else None)


def vrrp(ip):
    """RFC 3768, RFC 5798: priority 0. The speaker is the virtual router."""
    version, router, priority = ip.message[0] >> 4, ip.message[1], ip.message[2]
    interval = ip.message[5] if version == 2 else (number(ip.message, 4) & 0xFFF) / 100
    goodbye = ip.framed(ip.summed(put(ip.message, 2, 0, 1), 6, version == 3)) if priority else None
    return Derived("learned-vrrp", (ip.version, router), 4 * interval, goodbye)


def ospf(ip):
    """RFC 2328, RFC 5340: a Hello without neighbors. The speaker is the router id."""
    if ip.message[1] != 1:
        return None
    version = ip.message[0]
    fixed = 44 if version == 2 else 36
    hold = number(ip.message, 32, 4) if version == 2 else number(ip.message, 26)
    goodbye = None
    if number(ip.message, 2) > fixed:
        message = put(ip.message[:fixed], 2, fixed)
        goodbye = ip.framed(ip.summed(message, 12, version == 3))
    return Derived("learned-ospf" if version == 2 else "learned-ospfv3",
                   (ip.source, ip.message[4:8], None if is_multicast(ip) else ip.destination), hold, goodbye)


def router_advertisement(ip):
    """RFC 4861: a router lifetime of 0."""
    if ip.message[0] != 134 or not is_multicast(ip):
        return None
    lifetime = number(ip.message, 6)
    return Derived("learned-ra", (ip.source,), lifetime,
                   ip.framed(ip.summed(put(ip.message, 6, 0), 2, True)) if lifetime else None)


def rip(ip):
    """RFC 2453: metric 16 for each route. The routes of an update are a part of what the router says."""
    entries = ip.message[12:]
    if number(ip.message, 2) != 520 or ip.message[8] != 2 or not entries:
        return None
    message, routes, reachable = ip.message, set(), False
    for at in range(0, len(entries), 20):
        routes.add(entries[at + 4:at + 12])
        reachable = reachable or number(entries, at + 16, 4) < 16
        message = put(message, 12 + at + 16, 16, 4)
    return Derived("learned-rip", (ip.source, frozenset(routes), None if is_multicast(ip) else ip.destination), 180,
                   ip.framed(ip.summed(message, 6, True)) if reachable else None)


def is_multicast(ip):
    return ip.link[0] & 1 == 1


# By the IP protocol.
OVER_IP = {17: rip, 58: router_advertisement, 89: ospf, 112: vrrp}


def derive(frame):
    """None for a frame of no speaker."""
    kind = number(frame, 12)
    if kind == 0x88CC:
        return lldp(frame)
    if kind not in (0x0800, 0x86DD):
        return None
    ip = Ip(frame)
    return OVER_IP[ip.protocol](ip) if ip.protocol in OVER_IP else None
