"""The installed packages: the units, and what becomes of shutdowns when the packages change."""
import re

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


def upgrade(machine):
    """An upgrade during a shutdown resumes it"""
    since = machine.hold("wan1", 4000)
    machine.must("apt-get install -y --reinstall /srv/valen/build/packages/*.deb")
    machine.expect_resumed("wan1", since, 4000)
    units_active(machine)


def removal(machine):
    """A removal during a shutdown ends it, and says so"""
    since = machine.hold("wan1", 3000)
    output = machine.must("apt-get remove -y valend")
    expect("wan1" in output, f"the removal does not say what becomes of the shutdown of wan1:\n{output}")
    machine.expect_one_goodbye("wan1", since)


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
    try:
        units_active(machine)
    finally:
        machine.must(f"systemctl enable --now {' '.join(UNITS)}")


INSTALLED = [units_active, units_valid]
CHANGES = [upgrade, removal, hook_without_package, reinstallation]
