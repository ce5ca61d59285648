"""What BIRD speaks: router advertisements, OSPF, BFD and RIP."""
import re
import socket

from network import ADDRESS, ADDRESS6, DEVICE, FAR, NEAR, kernel_table, sysctls
from scenario_base import Scenario
from waiting import wait_until

CONTROL = "bird.ctl"
COMMON = """log stderr all;
router id {id};
protocol device {{ scan time 1; }}
"""
# The prefix of a route that near announces.
ROUTE = "203.0.113.0/24"
ROUTE6 = "2001:db8:cafe::/48"

IPV6_ROUTE_FLAGS = 0x50002  # RTF_DEFAULT, RTF_ADDRCONF, RTF_GATEWAY


class Bird:
    """BIRD on a side. Its configuration may have {device} and {neighbor}."""

    def __init__(self, side, config):
        other = FAR if side.name == NEAR else NEAR
        text = COMMON.format(id=ADDRESS[side.name])
        text += config.replace("{device}", DEVICE[side.name]).replace("{neighbor}", ADDRESS[other])
        text = text.replace("{neighbor6}", ADDRESS6[other])
        path = side.write("bird/bird.conf", text)
        self._side = side
        side.start(["/usr/sbin/bird", "-f", "-c", path, "-s", f"/run/{CONTROL}"])
        wait_until("bird answers", lambda: self.show("status"))

    def show(self, what):
        """What BIRD shows; empty while it does not answer."""
        self._side.expect_running()
        try:
            with socket.socket(socket.AF_UNIX) as control:
                control.settimeout(5)
                control.connect(f"{self._side.run}/{CONTROL}")
                answers = control.makefile("rw", encoding="utf-8")
                answers.readline()  # the greeting
                answers.write(f"show {what}\n")
                answers.flush()
                lines = []
                for line in answers:
                    lines.append(line)
                    if re.match(r"\d{4} ", line):
                        break
                return "".join(lines)
        except OSError:
            return ""


class BirdPair(Scenario):
    """The same configuration on both sides, but for what only near announces."""
    both = ""
    only_near = ""

    def start(self, near, far):
        Bird(near, self.both + self.only_near)
        self._far = Bird(far, self.both)

    def asked(self, what):
        return self._far.show(what)


class RouterAdvertisement(Scenario):
    title = "IPv6 router advertisement"
    # The shortest intervals that RFC 4861 allows.
    config_of_near = """protocol radv {
   interface "{device}" { min ra interval 3; max ra interval 4; solicited ra unicast no; };
}
"""
    protocols = {"ra"}
    between = "BIRD -> Linux host"

    def start(self, near, far):
        sysctls(FAR, {f"net/ipv6/conf/{DEVICE[FAR]}/accept_ra": 2})
        Bird(near, self.config_of_near)
        self._routes = kernel_table(FAR, "ipv6_route")

    def believes(self):
        """Whether the host has a default route by near."""
        for line in self._routes().splitlines():
            fields = line.split()
            if fields[1] == "00" and fields[9] == DEVICE[FAR] and \
                    int(fields[8], 16) & IPV6_ROUTE_FLAGS == IPV6_ROUTE_FLAGS:
                return True
        return False


class Ospf(BirdPair):
    title = "OSPF"
    remark = "a new adjacency: hello, then the exchange"
    greeting_heals = False
    protocols = {"ospf"}
    between = "BIRD -> BIRD"
    both = """protocol ospf v2 {
   ipv4 { export all; };
   area 0 { interface "{device}" { hello 1; dead 4; wait 2; retransmit 2; }; };
}
"""

    def believes(self):
        neighbors = self.asked("ospf neighbors")
        return ADDRESS[NEAR] in neighbors and "Full" in neighbors


class OspfV3(Ospf):
    title = "OSPF version 3"
    protocols = {"ospfv3"}
    both = Ospf.both.replace("ospf v2", "ospf v3").replace("ipv4", "ipv6")


class Bfd(BirdPair):
    title = "BFD, 300 ms"
    greeting_heals = False
    protocols = {"bfd"}
    between = "BIRD -> BIRD"
    # A multiplier that a busy machine does not exceed.
    both = """protocol bfd {
   interface "{device}" { min rx interval 300 ms; min tx interval 300 ms; idle tx interval 1 s; multiplier 5; };
   neighbor {neighbor} dev "{device}";
}
"""

    def believes(self):
        return " Up " in self.asked("bfd sessions")


class Rip(BirdPair):
    title = "RIP"
    protocols = {"rip"}
    between = "BIRD -> BIRD"
    both = """protocol rip {
   ipv4 { import all; export all; };
   interface "{device}" { update time 1; timeout time 4; garbage time 2; };
}
"""
    only_near = f"""protocol static {{ ipv4; route {ROUTE} blackhole; }}
"""

    def believes(self):
        return "via" in self.asked(f"route {ROUTE}")


class RipNg(Rip):
    title = "RIPng"
    protocols = {"ripng"}
    both = Rip.both.replace("protocol rip ", "protocol rip ng ").replace("ipv4", "ipv6")
    only_near = f"""protocol static {{ ipv6; route {ROUTE6} blackhole; }}
"""

    def believes(self):
        return "via" in self.asked(f"route {ROUTE6}")
