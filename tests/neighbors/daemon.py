"""valend on near: it holds wan0 and learns all goodbyes. Most scenarios have nothing else in its configuration."""
import os
import sys

from network import DEVICE, NEAR
from waiting import wait_until

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../clients/python"))
import valen  # noqa: E402

INTERFACE = DEVICE[NEAR]
CONFIG = """shutdown-delay-ms: 10000
goodbyes: learned
interfaces:
"""


class Daemon:
    def __init__(self, side, program, config="", more_interfaces=()):
        self._side = side
        interfaces = "".join(f"  - name: {name}\n" for name in [INTERFACE, *more_interfaces])
        self._config = side.write("valen/valen.yaml", CONFIG + interfaces + config)
        self._program = program
        self.process = None
        self.client = None

    def start(self):
        """Returns when it answers."""
        self.process = self._side.start([self._program, "--config", self._config,
                                         "--socket", "/run/valen/sock", "--state-directory", "/run/valen/state"])
        self.client = wait_until("valend answers", self._connected, 30)

    def _connected(self):
        self._side.expect_running()
        try:
            client = valen.Client(f"{self._side.run}/valen/sock", timeout=30)
            client.interface(INTERFACE)
            return client
        except valen.Error:
            return None

    def kill(self):
        """As a crash ends it."""
        self.process.kill()
        self.process.wait()
        self.client.close()

    def interface(self):
        return self.client.interface(INTERFACE)

    def learned(self):
        """The protocols whose goodbyes are queued."""
        return {frames["agent"].removeprefix("learned-") for frames in self.interface()["frames"] if frames["count"]}

    def speakers(self):
        """What is heard on the device."""
        return self.client.call("Explain", interface=INTERFACE)["speakers"]

    def shutdown(self, delay):
        """Returns when the goodbyes were sent."""
        return self.client.shutdown(INTERFACE, delayMs=round(delay * 1000))

    def enable(self):
        return self.client.enable(INTERFACE)

    def last_record(self):
        """What became of the last shutdown."""
        return self.client.call("History", interfaces=[INTERFACE])["shutdowns"][-1]
