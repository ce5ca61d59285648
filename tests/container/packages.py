"""The installed packages: the units, and what becomes of shutdowns when the packages change."""
import re

from container import wait_until
from fixture import INTERFACES, goodbye
from tap import expect

UNITS = ("valend.service", "valend-drain.service")


def units_active(machine):
    """The installation enabled and started both units"""
    for unit in UNITS:
        for question, answer in (("is-enabled", "enabled"), ("is-active", "active")):
            result = machine.run(f"systemctl {question} {unit}")
            expect(result.output.strip() == answer, str(result))


def units_valid(machine):
    """systemd finds no fault in the units, and their exposure is at most 3.0"""
    found = machine.must("systemd-analyze verify --man=no " + " ".join(UNITS))
    expect(found == "", found)
    exposure = machine.must("systemd-analyze security --no-pager valend.service")
    level = re.search(r"exposure level for valend.service: ([0-9.]+)", exposure)
    expect(level and float(level[1]) <= 3.0, exposure)


def hold(machine, delay_ms):
    """Begins a shutdown of wan1 with that delay; returns when it began."""
    machine.configure(delay_ms)
    since = machine.wire.now()
    machine.must("valenctl shutdown wan1")
    wait_until("a goodbye", lambda: machine.wire.received("eth1", goodbye("wan1"), since))
    return since


def expect_resumed(machine, since, delay_ms):
    """The link went down at the deadline, or soon after valend came back, and the history says so."""
    device = INTERFACES["wan1"]
    down = wait_until("the link goes down", lambda: machine.wire.went_down(device, since), delay_ms / 1000 + 10)
    expect(down - since > delay_ms / 1000 - 0.1, f"the link went down {down - since:.1f} s after the shutdown")
    shown = machine.must("valenctl history")
    expect(re.search(r"wan1 .*\bdown \(valend restarted \d+ ms into the delay\)\n$", shown), shown)
    sent = machine.wire.received(device, goodbye("wan1"), since)
    expect(len(sent) == 1, f"{len(sent)} goodbyes")


def upgrade(machine):
    """An upgrade during a shutdown resumes it"""
    since = hold(machine, 4000)
    machine.must("apt-get install -y --reinstall /srv/valen/build/packages/*.deb")
    expect_resumed(machine, since, 4000)
    units_active(machine)


def removal(machine):
    """A removal during a shutdown ends it, and says so"""
    since = hold(machine, 3000)
    output = machine.must("apt-get remove -y valend")
    expect("wan1" in output, f"the removal does not say what becomes of the shutdown of wan1:\n{output}")
    expect(machine.wire.went_down("eth1", since), "the link is still up")


def hook_without_package(machine):
    """ifdown works without the package; the hooks remain, and do nothing"""
    machine.must("apt-get remove -y valend")
    machine.must("test -x /etc/network/if-down.d/valen")
    machine.must("ifup --force eth1")
    output = machine.must("ifdown eth1")
    expect("valen" not in output, output)
    expect(not machine.wire.is_up("eth1"), "the link is still up")
    machine.must("ifup eth1")


def reinstallation(machine):
    """Installing the package again enables and starts the service"""
    machine.must("apt-get install -y /srv/valen/build/packages/*.deb")
    units_active(machine)


INSTALLED = [units_active, units_valid]
CHANGES = [upgrade, removal, hook_without_package, reinstallation]
