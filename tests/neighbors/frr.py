"""What FRR speaks: PIM, OSPF, RIP, EIGRP, IS-IS and BFD."""
import json
import socket

from network import ADDRESS, DEVICE, FAR, NEAR
from programs import Side
from scenario_base import Scenario
from waiting import wait_until

ROUTE = "203.0.113.0/24"


class Frr:
    """zebra and another daemon on a side. The configuration may have {device}, {address} and {neighbor}."""

    def __init__(self, side: Side, daemon, config):
        other = FAR if side.name == NEAR else NEAR
        config = config.replace("{device}", DEVICE[side.name]).replace("{address}", ADDRESS[side.name])
        config = config.replace("{neighbor}", ADDRESS[other]).replace("{number}", "1" if side.name == NEAR else "2")
        self._side, self._daemon = side, daemon
        side.directory("frr", "frr")
        self._start("zebra", "ip forwarding\n")
        self._start(daemon, config)

    def _start(self, daemon, config):
        path = self._side.write(f"{daemon}.conf", config)
        self._side.start([f"/usr/lib/frr/{daemon}", "-f", path, "-A", "127.0.0.1",
                          "--log", "stdout"])
        wait_until(f"{daemon} answers", lambda: self.show("version", daemon))

    def show(self, what, daemon=None):
        """What the daemon shows; empty while it does not answer."""
        return self.do(f"show {what}", daemon)

    def configure(self, lines):
        """Configures the running daemon. Each line of an interface or a router follows the line that opens it."""
        lines = lines.replace("{device}", DEVICE[self._side.name]).splitlines()
        self.do("\0".join(["configure terminal", *lines]))

    def do(self, what, daemon=None):
        """The answer of the daemon to a command, as vtysh asks it; to the last of several, separated by zeros."""
        self._side.expect_running()
        try:
            with socket.socket(socket.AF_UNIX) as vty:
                vty.settimeout(5)
                vty.connect(f"{self._side.run}/frr/{daemon or self._daemon}.vty")
                command(vty, "enable")
                return [command(vty, one) for one in what.split("\0")][-1]
        except OSError:
            return ""


def command(vty, text):
    """The answer ends with three zero bytes and the result."""
    vty.sendall(text.encode() + b"\0")
    answer = b""
    while answer[-4:-1] != b"\0\0\0":
        more = vty.recv(65536)
        if not more:
            raise ConnectionError(text)
        answer += more
    return answer[:-4].decode(errors="replace")


class FrrPair(Scenario):
    between = "FRR -> FRR"
    daemon = ""
    both = ""
    only_near = ""
    ask = ""

    def start(self, near, far):
        self._near = Frr(near, self.daemon, self.both + self.only_near)
        self._far = Frr(far, self.daemon, self.both)

    def asked(self):
        return self._far.show(self.ask)

    def asked_json(self):
        text = self.asked()
        try:
            return json.loads(text)
        except ValueError:
            return {}


class Pim(FrrPair):
    title = "PIM"
    protocols = {"pim"}
    daemon = "pimd"
    both = """interface {device}
 ip pim
 ip pim hello 1 4
"""
    ask = "ip pim neighbor json"

    def believes(self):
        return ADDRESS[NEAR] in self.asked()


class Ospf(FrrPair):
    title = "OSPF"
    remark = "a new adjacency: hello, then the exchange"
    greeting_heals = False
    protocols = {"ospf"}
    daemon = "ospfd"
    both = """interface {device}
 ip ospf area 0
 ip ospf hello-interval 1
 ip ospf dead-interval 4
 ip ospf retransmit-interval 2
router ospf
 ospf router-id {address}
"""
    ask = "ip ospf neighbor json"

    def believes(self):
        return '"Full' in self.asked()


class Ospf6(FrrPair):
    title = "OSPF version 3"
    remark = "a new adjacency: hello, then the exchange"
    greeting_heals = False
    protocols = {"ospfv3"}
    daemon = "ospf6d"
    both = """interface {device}
 ipv6 ospf6 area 0
 ipv6 ospf6 hello-interval 1
 ipv6 ospf6 dead-interval 4
 ipv6 ospf6 retransmit-interval 2
router ospf6
 ospf6 router-id {address}
"""
    ask = "ipv6 ospf6 neighbor json"

    def believes(self):
        return '"Full"' in self.asked()


class Rip(FrrPair):
    title = "RIP"
    protocols = {"rip"}
    daemon = "ripd"
    both = """router rip
 network {device}
 timers basic 5 15 5
"""
    only_near = f""" route {ROUTE}
"""
    ask = "ip rip"

    def believes(self):
        """Whether the route has a metric below 16."""
        for line in self.asked().splitlines():
            fields = line.split()
            if ROUTE in fields:
                return int(fields[fields.index(ROUTE) + 2]) < 16
        return False


class Eigrp(FrrPair):
    title = "EIGRP"
    protocols = {"eigrp"}
    daemon = "eigrpd"
    both = """router eigrp 1
 network 192.0.2.0/24
"""
    # Possible only when the daemon has begun to use the interface.
    interface = """interface {device}
 ip hello-interval eigrp 1
 ip hold-time eigrp 4
"""
    ask = "ip eigrp neighbors"
    remark = ("not back in 60 s after an abort, since FRR's eigrpd takes the new Init of its neighbor for a repeated "
              "packet; `clear ip eigrp neighbors` helps")

    def start(self, near, far):
        super().start(near, far)
        for router, side in (self._near, near), (self._far, far):
            wait_until("eigrpd uses the interface", lambda: DEVICE[side.name] in router.show("ip eigrp interfaces"))
            router.configure(self.interface)

    def believes(self):
        return ADDRESS[NEAR] in self.asked()

    def play(self, rounds):
        for _ in range(rounds.count):
            rounds.shutdown()


class Isis(FrrPair):
    title = "IS-IS"
    protocols = {"isis"}
    daemon = "isisd"
    both = """hostname node{number}
interface {device}
 ip router isis test
 isis circuit-type level-2-only
 isis hello-interval 1
 isis hello-multiplier 4
router isis test
 net 49.0001.0000.0000.000{number}.00
 is-type level-2-only
"""
    ask = "isis neighbor"

    def believes(self):
        return " Up " in self.asked()


class Bfd(FrrPair):
    title = "BFD, 300 ms"
    greeting_heals = False
    protocols = {"bfd"}
    daemon = "bfdd"
    # A multiplier that a busy machine does not exceed.
    both = """bfd
 peer {neighbor} interface {device}
  detect-multiplier 5
  receive-interval 300
  transmit-interval 300
  no shutdown
"""
    ask = "bfd peers json"

    def believes(self):
        peers = self.asked_json()
        return bool(peers) and peers[0]["status"] == "up"
