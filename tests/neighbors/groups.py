"""Group memberships, IGMP and MLD: the kernel is the host on near, and the bridge, which asks and listens, is the
neighbor."""
import json
import socket
import struct
import subprocess

from network import ADDRESS, DEVICE, NEAR, inside, ip
from scenario_base import Scenario


class Group(Scenario):
    snooping = True
    between = "Linux host -> Linux bridge"
    remark = "the bridge asks twice for other members first, 0.2 s apart"
    group = ""

    def start(self, near, far):
        ip("link set bridge type bridge mcast_query_interval 200 mcast_startup_query_interval 100")
        ip("link set bridge type bridge mcast_last_member_interval 20 mcast_igmp_version 3 mcast_mld_version 2")
        self._member = inside(NEAR, self._join)

    def believes(self):
        shown = subprocess.run(["bridge", "-j", "mdb", "show", "dev", "bridge"], capture_output=True, text=True,
                               check=True).stdout
        return any(entry["grp"] == self.group and entry["port"] == NEAR
                   for part in json.loads(shown) for entry in part.get("mdb", []))


class Igmp(Group):
    title = "IGMP"
    protocols = {"igmp"}
    group = "239.1.2.3"

    def _join(self):
        member = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        member.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                          socket.inet_aton(self.group) + socket.inet_aton(ADDRESS[NEAR]))
        return member


class Mld(Group):
    title = "MLD"
    protocols = {"mld"}
    group = "ff15::1234"

    def _join(self):
        member = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
        member.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_JOIN_GROUP,
                          socket.inet_pton(socket.AF_INET6, self.group) +
                          struct.pack("@I", socket.if_nametoindex(DEVICE[NEAR])))
        return member
