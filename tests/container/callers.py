"""The programs that call Valen: systemctl, ifdown, nmcli."""
from fixture import goodbye
from tap import expect


def reload(machine):
    """systemctl reload applies a changed configuration"""
    machine.write_configuration(310)
    machine.must("systemctl reload valend")
    shown = machine.must("valenctl status")
    expect(shown.startswith("shutdown delay: 310 ms"), shown)


def reload_rejected(machine):
    """systemctl reload fails for an invalid configuration, which the log explains, and valend runs on"""
    process = machine.must("systemctl show --property=MainPID valend")
    machine.container.write("/etc/valen/conf.d/wrong.yaml", "shutdown-delay-ms: soon")
    result = machine.run("systemctl reload valend")
    machine.must("rm /etc/valen/conf.d/wrong.yaml")
    expect(result.status != 0, "the reload succeeded")
    log = machine.container.log("--unit=valend.service", "--since=-1min")
    expect("/etc/valen/conf.d/wrong.yaml:1:20: " in log, log)
    expect(machine.must("systemctl show --property=MainPID valend") == process, "valend was restarted")
    machine.must("systemctl is-active valend && systemctl reload valend")


def write_interfaces(machine):
    """Gives eth1 to ifupdown."""
    machine.container.write("/etc/network/interfaces",
                            "auto lo\niface lo inet loopback\n"
                            "auto eth1\niface eth1 inet static\n  address 192.0.2.1/24\n")
    machine.must("ip link set eth1 down; ip address flush dev eth1; ifup eth1")
    machine.must("valenctl wait wan1 --until up --timeout 10")


def ifdown(machine):
    """ifdown of ifupdown waits for one goodbye"""
    write_interfaces(machine)
    check_ifdown(machine)


def check_ifdown(machine):
    """Runs ifdown and ifup."""
    machine.must("ip link set eth1 up && valenctl wait wan1 --until ready --timeout 10")
    before = len(machine.history("wan1"))
    since = machine.wire.now()
    machine.must("ifdown eth1")
    expect(not machine.wire.is_up("eth1"), "the link is up")
    sent, down = machine.expect_one_goodbye("wan1", since)
    expect(down - sent >= 0.25, f"the link was held for {down - sent:.3f} s only")
    new = [record["ending"] for record in machine.history("wan1")[before:]]
    expect(new == ["down"], f"the history has {new}")
    expect("192.0.2.1" not in machine.must("ip address show eth1"), "ifdown did not go on")
    machine.must("ifup eth1")
    machine.must("valenctl wait wan1 --until up --timeout 10")


def ifdown2(machine):
    """ifdown of ifupdown2 waits for one goodbye"""
    machine.must("apt-get install -y /srv/ifupdown2/*.deb")
    write_interfaces(machine)
    check_ifdown(machine)


def use_network_manager(machine):
    """Gives eth2 to NetworkManager."""
    machine.must("nmcli connection add type ethernet con-name second ifname eth2 ipv4.method manual "
                 "ipv4.addresses 198.51.100.1/24 ipv6.method disabled && "
                 "nmcli device set eth2 managed yes && nmcli --wait 20 connection up second && "
                 "valenctl wait wan2 --until up --timeout 10 && valenctl wait wan2 --until ready --timeout 10")


def expect_disconnected(machine, since):
    """NetworkManager waited for one goodbye, removed the address, and left the link up."""
    sent = machine.wire.received("eth2", goodbye("wan2"), since)
    expect(len(sent) == 1, f"{len(sent)} goodbyes of wan2, expected 1")
    expect("198.51.100.1" not in machine.must("ip address show eth2"), "NetworkManager did not go on")
    expect(not machine.wire.went_down("eth2", since), "eth2 went down")


def nmcli_device(machine):
    """nmcli device disconnect waits for one goodbye"""
    use_network_manager(machine)
    since = machine.wire.now()
    machine.must("nmcli device disconnect eth2")
    expect_disconnected(machine, since)


def nmcli_connection(machine):
    """nmcli connection down waits for one goodbye"""
    machine.must("nmcli --wait 20 connection up second && valenctl wait wan2 --until up --timeout 10")
    since = machine.wire.now()
    machine.must("nmcli connection down second")
    expect_disconnected(machine, since)
    machine.must("nmcli connection delete second; ip link set eth2 up")


CHECKS = [reload, reload_rejected, ifdown, nmcli_device, nmcli_connection]
