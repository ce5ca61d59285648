"""LLDP, with lldpd at both ends."""
import json

from network import DEVICE, FAR
from scenario_base import Scenario

LLDPD = "/usr/sbin/lldpd"


class Lldp(Scenario):
    title = "LLDP"
    protocols = {"lldp"}
    between = "lldpd -> lldpd"
    interval = "1"

    def start(self, near, far):
        for side in near, far:
            side.write("lldpd/empty", "")  # makes the directory
            config = side.write("lldpd.conf", f"configure lldp tx-interval {self.interval}\n")
            side.start([LLDPD, "-d", "-O", config, "-u", "/run/lldpd.socket", "-I", DEVICE[side.name],
                        "-C", DEVICE[side.name], "-S", f"the system {side.name}"])
        self._far = far

    def believes(self):
        shown = self._far.ask("lldpcli", "-u", "/run/lldpd.socket", "-f", "json0", "show", "neighbors", "ports",
                              DEVICE[FAR])
        return bool(shown) and "interface" in json.loads(shown)["lldp"][0]
