"""The container with Valen installed in it, in the words of its operator."""
import json
import re

from container import wait_until
from tap import expect

# The device of each interface, and the frame that says its goodbye.
INTERFACES = {"wan1": "eth1", "wan2": "eth2"}


def goodbye(interface):
    """The part of the frame that no other frame has."""
    return f"goodbye of {interface}".encode()


class Fixture:
    def __init__(self, container, wire, source):
        self.source = source
        self.container = container
        self.wire = wire
        self.run = container.run
        self.must = container.must

    def configure(self, delay_ms, more=""):
        """Gives valend both interfaces, each with a frame, and makes sure that both are ready."""
        self.write_configuration(delay_ms, more)
        self.must("systemctl reload valend")
        for interface, device in INTERFACES.items():
            self.must(f"valenctl wait {interface} --until idle --timeout 10 && ip link set {device} up && "
                      f"valenctl wait {interface} --until up --timeout 10 && "
                      f"valenctl wait {interface} --until ready --timeout 10")

    def write_configuration(self, delay_ms, more=""):
        lines = [f"shutdown-delay-ms: {delay_ms}", "interfaces:"]
        lines += [f"  - {{name: {interface}, device: {device}}}" for interface, device in INTERFACES.items()]
        lines += ["agents:", "  - name: test", "    messages:"]
        lines += [f'      {interface}: ["0180c200000e 020000000001 88b5 {goodbye(interface).hex()}"]'
                  for interface in INTERFACES]
        self.must("rm -f /etc/valen/conf.d/*")
        self.container.write("/etc/valen/valen.yaml", "\n".join(lines) + "\n" + more)

    def history(self, interface):
        """The shutdowns of the interface, oldest first."""
        return json.loads(self.must(f"valenctl --json history {interface}"))["shutdowns"]

    def expect_one_goodbye(self, interface, since, link_down=True, timeout=10):
        """One goodbye has left since then, and the link went down after it, or stayed up. Returns both times."""
        device = INTERFACES[interface]
        sent = wait_until(f"a goodbye of {interface}",
                          lambda: self.wire.received(device, goodbye(interface), since), 10)
        if link_down:
            down = wait_until(f"{device} goes down", lambda: self.wire.went_down(device, since), timeout)
            expect(down > sent[0].when, f"{device} went down before the goodbye")
        else:
            down = self.wire.went_down(device, since)
            expect(not down, f"{device} went down")
        sent = self.wire.received(device, goodbye(interface), since)
        expect(len(sent) == 1, f"{len(sent)} goodbyes of {interface}, expected 1")
        return sent[0].when, down

    def hold(self, interface, delay_ms):
        """Begins a shutdown with that delay; returns when it began."""
        self.configure(delay_ms)
        since = self.wire.now()
        self.must(f"valenctl shutdown {interface}")
        wait_until("a goodbye", lambda: self.wire.received(INTERFACES[interface], goodbye(interface), since))
        return since

    def expect_resumed(self, interface, since, delay_ms):
        """The link went down at the deadline, or soon after valend came back, and the history says so."""
        down = self.expect_one_goodbye(interface, since, timeout=delay_ms / 1000 + 10)[1]
        expect(down - since > delay_ms / 1000 - 0.1, f"the link went down {down - since:.1f} s after the shutdown")
        shown = self.must("valenctl history")
        expect(re.search(rf"{interface} .*\bdown \(valend restarted \d+ ms into the delay\).*\n$", shown), shown)
