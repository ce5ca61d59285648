"""The life of the service: stop, start, reboot and power-off."""
from container import Failed, wait_until
from fixture import INTERFACES
from tap import expect

# Stands for what configures a cloud machine: it needs the network before basic.target.
EARLY = """[Unit]
DefaultDependencies=no
After=networking.service
Before=sysinit.target
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/true
[Install]
WantedBy=sysinit.target"""

# Uses the network until three seconds after it was asked to stop.
SLOW = """[Unit]
After=network.target
[Service]
ExecStart=/usr/bin/python3 /srv/slow"""
SLOW_PROGRAM = """import signal, socket, time
stop_at = float("inf")
def stop(*ignored):
    global stop_at
    stop_at = time.monotonic() + 3
signal.signal(signal.SIGTERM, stop)
link = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
link.bind(("eth2", 0))
def send(text):
    link.send(bytes.fromhex("ffffffffffff02000000000188b5") + text)
while time.monotonic() < stop_at:
    send(b"slow is running")
    time.sleep(0.02)
send(b"slow has ended")"""


def stop_in_delay(machine):
    """Stopping the service during a shutdown logs what becomes of it, and the start resumes it"""
    since = machine.hold("wan1", 3000)
    machine.must("date +%s >/tmp/stopped; systemctl stop valend")
    log = machine.must("journalctl --unit=valend --since=@$(cat /tmp/stopped) --output=cat --no-pager")
    link_up = machine.wire.is_up("eth1")
    machine.must("systemctl start valend")
    machine.expect_resumed("wan1", since, 3000)
    expect(link_up, "the stop set the link down")
    expect("resume" in log, f"the log does not say what becomes of it:\n{log}")


def stop_and_start(machine):
    """The drain unit remains active when the service stops and starts"""
    machine.must("systemctl stop valend; systemctl start valend; systemctl is-active valend-drain")
    machine.must("systemctl restart valend; systemctl is-active valend-drain")


def drain_starts(machine):
    """Starting the service starts the drain unit, and stopping the drain unit shuts nothing down"""
    since = machine.wire.now()
    machine.must("systemctl stop valend valend-drain; systemctl start valend")
    wait_until("the drain unit starts", lambda: machine.run("systemctl is-active valend-drain").status == 0)
    expect(not machine.wire.went_down("eth1", since), "eth1 went down")


def reboot(machine):
    """A reboot sends one goodbye on each link before it goes down"""
    machine.container.write("/etc/systemd/system/early.service", EARLY)
    machine.must("systemctl enable early.service")
    machine.configure(300)
    machine.container.write("/etc/valen/conf.d/wrong.yaml", "shutdown-delay-ms: soon")
    since = machine.wire.now()
    machine.must("systemctl --no-block reboot")
    machine.container.wait_ended(133)
    machine.container.boot()
    try:
        for interface in INTERFACES:
            machine.expect_one_goodbye(interface, since)
    except Failed as failure:
        log = machine.container.log("--boot=-1", "--lines=40", "--unit=valend", "--unit=valend-drain",
                                    "--unit=networking")
        raise Failed(f"{failure}\n{log}") from None


def wrong_drop_in(machine):
    """With an invalid drop-in at boot, valend starts with the last valid configuration"""
    try:
        machine.must("systemctl is-active valend")
        shown = machine.must("valenctl status")
        expect(shown.startswith("shutdown delay: 300 ms"), shown)
        log = machine.container.log("--unit=valend", "--boot")
        expect("/etc/valen/conf.d/wrong.yaml:1:20: " in log, log)
    finally:
        machine.must("rm /etc/valen/conf.d/wrong.yaml; systemctl reload-or-restart valend")


def start_order(machine):
    """valend starts before the network is configured, also where that is needed before basic.target"""
    found = machine.run("systemd-analyze verify --man=no default.target").output
    expect("cycle" not in found, found)
    machine.must("systemctl is-active early.service networking.service valend-drain.service")

    def started(unit, event):
        return int(machine.must(f"systemctl show --value --property={event}TimestampMonotonic {unit}"))
    expect(started("networking.service", "InactiveExit") >= started("valend.service", "InactiveExit") > 0,
           "networking.service started before valend.service")


def poweroff(machine):
    """A power-off sends the goodbyes when the services that use the network have stopped"""
    machine.configure(300)
    machine.container.write("/etc/systemd/system/slow.service", SLOW)
    machine.container.write("/srv/slow", SLOW_PROGRAM)
    machine.must("systemctl daemon-reload; systemctl start slow")
    now = machine.wire.now()
    wait_until("the slow service sends", lambda: machine.wire.received("eth2", b"slow is running", now))
    since = machine.wire.now()
    machine.must("systemctl --no-block poweroff")
    machine.container.wait_ended(0)
    last = machine.wire.received("eth2", b"slow has ended", since)
    expect(last, "the slow service lost its link before it ended")
    expect(last[0].when - since > 2.9, "the slow service was not slow")
    for interface in INTERFACES:
        sent, down = machine.expect_one_goodbye(interface, since)
        expect(sent > last[0].when, f"the goodbye of {interface} left before the slow service ended")
        expect(down - sent >= 0.25, f"{interface} was held for {down - sent:.3f} s only")


RUNNING = [stop_in_delay, stop_and_start, drain_starts]
REBOOT = [reboot, start_order, wrong_drop_in]
END = [poweroff]
