"""LACP, with Open vSwitch at both ends. Its datapath is in the process, since the kernel may have none."""
import os

from network import DEVICE, FAR
from programs import Side
from scenario_base import Scenario
from waiting import wait_until

SCHEMA = "/usr/share/openvswitch/vswitch.ovsschema"


class Lacp(Scenario):
    title = "LACP, fast"
    protocols = {"lacp"}
    between = "Open vSwitch -> Open vSwitch"

    def start(self, near, far):
        for side in near, far:
            start_switch(side)
        self._far = far

    def believes(self):
        """Whether the partner of far's port is collecting and distributing."""
        shown = self._far.ask("ovs-appctl", "-t", "/run/openvswitch/ovs-vswitchd.ctl", "lacp/show", DEVICE[FAR])
        for line in (shown or "").splitlines():
            if line.strip().startswith("partner state:"):
                return "collecting" in line and "distributing" in line and "synchronized" in line
        return False


def start_switch(side: Side):
    os.makedirs(f"{side.run}/openvswitch")
    side.must("ovsdb-tool", "create", "/run/openvswitch/conf.db", SCHEMA)
    side.start(["/usr/sbin/ovsdb-server", "/run/openvswitch/conf.db", "--remote=punix:/run/openvswitch/db.sock",
                "--unixctl=/run/openvswitch/ovsdb-server.ctl"])
    side.start(["/usr/lib/openvswitch-switch/ovs-vswitchd", "unix:/run/openvswitch/db.sock",
                "--unixctl=/run/openvswitch/ovs-vswitchd.ctl"])
    device = DEVICE[side.name]
    # Only the port is needed; packets of the bridge itself would need a tap device.
    wait_until("Open vSwitch answers", lambda: side.ask(
        "ovs-vsctl", "--db=unix:/run/openvswitch/db.sock", "--timeout=20", "--",
        "--may-exist", "add-br", "br0", "--", "set", "bridge", "br0", "datapath_type=netdev", "--",
        "--may-exist", "add-port", "br0", device, "--", "set", "port", device, "lacp=active",
        "other_config:lacp-time=fast") is not None)
