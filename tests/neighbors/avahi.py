"""Multicast DNS, with avahi at both ends: near publishes a service."""
import os
import subprocess
import threading

from network import DEVICE, FAR, NEAR
from programs import Side
from scenario_base import Scenario
from waiting import wait_until

BUS = """<busconfig>
<type>system</type>
<listen>unix:path=/run/bus</listen>
<auth>EXTERNAL</auth>
<policy context="default">
<allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
</policy>
</busconfig>
"""
ADDRESS_OF_BUS = {"DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/run/bus"}
AVAHI = """[server]
host-name={name}
allow-interfaces={device}
use-ipv6=no
disallow-other-stacks=no
[publish]
publish-workstation=no
"""
SERVICE = "_valen-test._tcp"


class Mdns(Scenario):
    title = "mDNS"
    remark = "records go one second after the goodbye (RFC 6762, 10.1)"
    protocols = {"mdns"}
    between = "avahi -> avahi"

    def start(self, near, far):
        for side in near, far:
            start_avahi(side)
        near.start(["/usr/bin/avahi-publish", "-s", "the service of near", SERVICE, "4711"], ADDRESS_OF_BUS)
        self._found = set()
        browser = subprocess.Popen(far.inside(["/usr/bin/avahi-browse", "--parsable", "--no-db-lookup", SERVICE]),
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                   env={**os.environ, **ADDRESS_OF_BUS})
        threading.Thread(target=self._follow, args=(browser.stdout,), daemon=True).start()

    def _follow(self, lines):
        for line in lines:
            change, device, family, name = line.split(";")[:4]
            if change == "+":
                self._found.add((device, family, name))
            elif change == "-":
                self._found.discard((device, family, name))

    def believes(self):
        return bool(self._found)


def start_avahi(side: Side):
    side.start(["/usr/bin/dbus-daemon", "--nofork", "--nopidfile", "--config-file", side.write("bus.conf", BUS)])
    wait_until("the bus answers", lambda: side.ask(
        "dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.DBus", "/",
        "org.freedesktop.DBus.ListNames", environment=ADDRESS_OF_BUS) is not None)
    side.directory("avahi-daemon", "avahi")
    config = side.write("avahi.conf", AVAHI.format(name=side.name, device=DEVICE[side.name]))
    side.start(["/usr/sbin/avahi-daemon", "--no-drop-root", "--no-chroot", "--no-rlimits", "-f", config],
               ADDRESS_OF_BUS)
    wait_until("avahi answers", lambda: side.ask(
        "avahi-browse", "--terminate", SERVICE, environment=ADDRESS_OF_BUS) is not None)
