"""LLDP, with lldpd at both ends."""
import json

from network import DEVICE, FAR
from scenario_base import Scenario
from waiting import wait_until

LLDPD = "/usr/sbin/lldpd"


class Lldp(Scenario):
    title = "LLDP"
    protocols = {"lldp"}
    between = "lldpd -> lldpd"

    def start(self, near, far):
        for side in near, far:
            side.write("lldpd/empty", "")
            side.start([LLDPD, "-d", "-O", "/dev/null", "-u", "/run/lldpd.socket", "-I", DEVICE[side.name],
                        "-C", DEVICE[side.name], "-S", f"the system {side.name}"])
            wait_until("lldpd answers", lambda side=side: side.ask("lldpcli", "-u", "/run/lldpd.socket", "configure",
                                                                   "lldp", "tx-interval", "1") is not None)
        self._far = far

    def believes(self):
        shown = self._far.ask("lldpcli", "-u", "/run/lldpd.socket", "-f", "json0", "show", "neighbors", "ports",
                              DEVICE[FAR])
        return bool(shown) and "interface" in json.loads(shown)["lldp"][0]
