"""valend is killed at many points of a delay. What it muted is heard again in time, whether it is started again or
not, and no filter of the dead process remains."""
import socket
import threading
import time

import filters
import lldp
import network
from daemon import Daemon
from network import DEVICE, FAR, inside
from rounds import milliseconds_since, spread
from waiting import expect, wait_until

LLDP = 0x88CC
# When a frame arrives at the latest, in seconds after the end of the delay.
MARGIN = 2.0
# How long a restarted valend may take to attach its filters and to mute again, in seconds.
FILTER_TIME = 1.0
# More devices than get their filters by tcx.
MANY = 33


class Received:
    """When frames of LLDP arrive at far."""

    def __init__(self):
        self._socket = inside(FAR, lambda: socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(LLDP)))
        self._socket.bind((DEVICE[FAR], LLDP))
        self.times = []
        threading.Thread(target=self._follow, daemon=True).start()

    def _follow(self):
        while True:
            address = self._socket.recvfrom(2000)[1]
            if address[2] != socket.PACKET_OUTGOING:
                self.times.append(time.monotonic())

    def since(self, when):
        return [one for one in self.times if one > when]


class Killed(lldp.Lldp):
    """Without a restart: a filter by tcx ends with the process, so the next frame is heard."""
    measured = "after the kill"
    interval = "500ms"
    filters = {"tcx": 1, "clsact": 0}
    filters_left = 0
    undone = 0

    def play(self, rounds):
        received = Received()
        heard = []
        for number in range(rounds.count):
            heard.append(self.killed_at((number + 0.5) / rounds.count, rounds, received))
        median, worst, _ = spread(heard)
        rounds.figures.notes = [f"killed at {rounds.count} points of a delay of {rounds.delay:g} s: the next frame "
                                f"{self.measured}: median {median:.0f} ms, worst {worst:.0f} ms; "
                                f"{self.filters_left} filters of the dead process; "
                                f"a frame arrived before the end of the delay in {self.undone}"]

    def killed_at(self, part, rounds, received):
        """Returns after how many milliseconds the next frame arrived."""
        rounds.figures.rounds += 1
        daemon: Daemon = rounds.daemon
        rounds.wait_ready()
        self.expect_filters()
        started = time.monotonic()
        daemon.shutdown(rounds.delay)
        time.sleep(max(0.0, started + part * rounds.delay - time.monotonic()))
        killed = time.monotonic()
        daemon.kill()
        heard = self.after_kill(daemon, rounds, received, started, killed)
        wait_until("the neighbor believes again", self.believes)
        return heard

    def expect_filters(self):
        attached = {"tcx": filters.by_tcx(), "clsact": filters.by_clsact()}
        expect(attached == self.filters, f"filters while valend runs: {attached}")

    def after_kill(self, daemon, rounds, received, started, killed):
        until = started + rounds.delay + MARGIN
        wait_until("a frame arrives", lambda: received.since(killed), until - time.monotonic())
        expect(network.near_link_is_up(), "the link is down")
        left = filters.by_tcx() + filters.by_clsact()
        expect(left == self.filters_left, f"{left} filters of the dead valend")
        heard = (received.since(killed)[0] - killed) * 1000
        self.undone += received.since(killed)[0] < started + rounds.delay
        daemon.start()
        wait_until("the shutdown that was resumed ends", lambda: not daemon.interface()["shuttingDown"], 30)
        daemon.enable()
        return heard


class Restarted(Killed):
    """valend goes on with the shutdown: the daemon is muted again, and the link goes down at the deadline. Frames pass
    after it was enabled."""
    measured = "after enabling"

    def after_kill(self, daemon, rounds, received, started, killed):
        daemon.start()
        muted = time.monotonic() + FILTER_TIME
        wait_until("the link is down", lambda: not network.near_link_is_up(), rounds.delay + 10)
        self.undone += bool(received.since(killed))
        expect(not received.since(muted), "the daemon was heard although its speaker was muted again")
        late = milliseconds_since(started) - rounds.delay * 1000
        expect(late > -50, f"the link went down {-late:.0f} ms before the deadline")
        wait_until("the shutdown ends", lambda: not daemon.interface()["shuttingDown"])
        expect(daemon.last_record()["ending"] == "down", f"the shutdown ended as {daemon.last_record()['ending']}")
        self.expect_filters()
        enabled = time.monotonic()
        daemon.enable()
        wait_until("a frame arrives", lambda: received.since(enabled), MARGIN)
        return (received.since(enabled)[0] - enabled) * 1000


class KilledManyDevices(Killed):
    """The filters of many devices are in a clsact, and stay: the mutes end by themselves."""
    more_interfaces = MANY
    filters = {"tcx": 0, "clsact": 1}
    filters_left = 1


class RestartedManyDevices(Restarted):
    more_interfaces = MANY
    filters = {"tcx": 0, "clsact": 1}
