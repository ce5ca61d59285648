"""The container with Valen installed in it, in the words of its operator."""
import json

from container import wait_until
from tap import expect

# The device of each interface, and the frame that says its goodbye.
INTERFACES = {"wan1": "eth1", "wan2": "eth2"}


def goodbye(interface):
    """The part of the frame that no other frame has."""
    return f"goodbye of {interface}".encode()


class Fixture:
    def __init__(self, container, wire):
        self.container = container
        self.wire = wire
        self.run = container.run
        self.must = container.must

    def configure(self, delay_ms, more=""):
        """Gives valend both interfaces, each with a frame, and makes sure that both are ready."""
        self.write_configuration(delay_ms, more)
        self.must("systemctl reload valend")
        for interface, device in INTERFACES.items():
            self.must(f"ip link set {device} up && valenctl wait {interface} --until ready --timeout 10")

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

    def expect_one_goodbye(self, interface, since, link_down=True):
        """One goodbye has left since then, and the link went down after it, or stayed up."""
        device = INTERFACES[interface]
        sent = wait_until(f"a goodbye of {interface}",
                          lambda: self.wire.received(device, goodbye(interface), since), 10)
        if link_down:
            down = wait_until(f"{device} goes down", lambda: self.wire.went_down(device, since), 10)
            expect(down > sent[0].when, f"{device} went down before the goodbye")
        else:
            expect(self.wire.went_down(device, since) is None, f"{device} went down")
        sent = self.wire.received(device, goodbye(interface), since)
        expect(len(sent) == 1, f"{len(sent)} goodbyes of {interface}, expected 1")
        return sent[0].when
