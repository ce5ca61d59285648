"""VRRP, with keepalived at both ends: far is the backup."""
import ipaddress

from network import DEVICE, FAR, NEAR, kernel_table
from scenario_base import Scenario

VIRTUAL = "192.0.2.100"
VIRTUAL6 = "fe80::100"

CONFIG = """global_defs {{
   vrrp_garp_master_refresh 60
   {globals}
}}
vrrp_instance test {{
   interface {device}
   virtual_router_id 7
   priority {priority}
   state {state}
   advert_int 1
   {more}
   virtual_ipaddress {{
      {address}
   }}
}}
"""
PRIORITY = {NEAR: 200, FAR: 100}
STATE = {NEAR: "MASTER", FAR: "BACKUP"}


def authentication(kind):
    return f"""authentication {{
      auth_type {kind}
      auth_pass secret
   }}"""


class Vrrp(Scenario):
    title = "VRRP version 3, IPv4"
    remark = "the backup waits for the skew time"
    protocols = {"vrrp"}
    between = "keepalived -> keepalived"
    version = 3
    more = ""
    address = VIRTUAL

    def start(self, near, far):
        for side in near, far:
            config = CONFIG.format(device=DEVICE[side.name], priority=PRIORITY[side.name], state=STATE[side.name],
                                   globals=f"vrrp_version {self.version}", more=self.more, address=self.address)
            path = side.write("keepalived/keepalived.conf", config)
            side.start(["/usr/sbin/keepalived", "--dont-fork", "--log-console", "--log-detail", "--vrrp",
                        "--use-file", path])
        self._on_near = self._has_address(NEAR)
        self._on_far = self._has_address(FAR)

    def _has_address(self, side):
        if ":" in self.address:
            table = kernel_table(side, "if_inet6")
            text = ipaddress.ip_address(self.address).packed.hex()
            return lambda: text in table()
        table = kernel_table(side, "fib_trie")
        text = f"|-- {self.address}\n"
        return lambda: text in table()

    def believes(self):
        """Whether near is the master for far: it has taken the address, and far does not have it."""
        return self._on_near() and not self._on_far()


class Vrrp2Password(Vrrp):
    title = "VRRP version 2, password"
    version = 2
    more = authentication("PASS")


class Vrrp3Ipv6(Vrrp):
    title = "VRRP version 3, IPv6"
    address = VIRTUAL6
