"""What is not a speaker's is not held up: a TCP stream and a BGP session on the same interface lose nothing while
LLDP, VRRP, OSPF and router advertisements are muted."""
import socket
import struct
import threading
import time

import bird
import keepalived
import lldp
from daemon import Daemon
from network import ADDRESS, FAR, NEAR, inside
from scenario_base import Scenario
from waiting import expect, wait_until

PORT = 5001
CHUNK = b"." * 8192
PAUSE = 0.002  # between chunks: some 4 MB/s
# Where tcp_info has the retransmissions, and those of data that had arrived: a machine that is busy acknowledges late.
TOTAL_RETRANSMISSIONS, NEEDLESS_RETRANSMISSIONS = 100, 216


class Stream:
    """A TCP connection from near to far that carries data all the time."""

    def __init__(self):
        listening = inside(FAR, lambda: socket.create_server((ADDRESS[FAR], PORT)))
        self._sender = inside(NEAR, lambda: socket.create_connection((ADDRESS[FAR], PORT)))
        self._receiver = listening.accept()[0]
        self.sent = self.received = 0
        self._running = True
        self._threads = [threading.Thread(target=work, daemon=True) for work in (self._send, self._receive)]
        for thread in self._threads:
            thread.start()

    def _send(self):
        while self._running:
            self._sender.sendall(CHUNK)
            self.sent += len(CHUNK)
            time.sleep(PAUSE)
        self._sender.shutdown(socket.SHUT_WR)

    def _receive(self):
        while data := self._receiver.recv(65536):
            self.received += len(data)

    def lost(self):
        """How many segments had to be sent again."""
        info = self._sender.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 224)
        total, needless = (struct.unpack_from("=I", info, at)[0]
                           for at in (TOTAL_RETRANSMISSIONS, NEEDLESS_RETRANSMISSIONS))
        return total - needless

    def end(self):
        self._running = False
        for thread in self._threads:
            thread.join(30)


class Traffic(Scenario):
    protocols = {"lldp", "vrrp", "ospf", "ra"}
    between = "BIRD, keepalived, lldpd"
    both = bird.Ospf.both + """protocol bgp {
   local as 65001;
   neighbor {neighbor} as 65001;
   direct;
   hold time 3;
   keepalive time 1;
   ipv4 { import none; export none; };
}
"""
    only_near = bird.RouterAdvertisement.config_of_near

    def start(self, near, far):
        bird.Bird(near, self.both + self.only_near)
        self._bird = bird.Bird(far, self.both)
        self._speakers = [lldp.Lldp(), keepalived.Vrrp()]
        for speaker in self._speakers:
            speaker.start(near, far)

    def believes(self):
        ospf = self._bird.show("ospf neighbors")
        return ADDRESS[NEAR] in ospf and "Full" in ospf and all(speaker.believes() for speaker in self._speakers)

    def session(self):
        """Since when the BGP session is up, in seconds of the day; nothing while it is not."""
        for line in wait_until("BIRD answers", lambda: self._bird.show("protocols")).splitlines():
            if "BGP" in line and "Established" in line:
                hours, minutes, seconds = line.split()[-2].split(":")
                return int(hours) * 3600 + int(minutes) * 60 + float(seconds)
        return None

    def expect_session(self, since):
        """A millisecond more or less is the same time: BIRD computes it each time."""
        now = self.session()
        expect(now is not None and abs(now - since) < 1, f"the BGP session, up since {since}, went down: "
               + " / ".join(line.strip() for line in self._bird.show("protocols all").splitlines() if line.strip())[-1500:])

    def play(self, rounds):
        daemon: Daemon = rounds.daemon
        since = wait_until("the BGP session is up", self.session)
        stream = Stream()
        for _ in range(rounds.count):
            rounds.wait_ready()
            lost, received = stream.lost(), stream.received
            rounds.figures.rounds += 1
            started = time.monotonic()
            daemon.shutdown(rounds.delay)
            while time.monotonic() < started + rounds.delay - 0.5:
                self.expect_session(since)
                time.sleep(0.1)
            expect(not self.believes(), "the neighbors believe during the delay")
            expect(daemon.enable() == "aborted", "the shutdown was not aborted")
            muted = {speaker["protocol"] for speaker in daemon.last_record()["muted"]}
            expect(self.protocols <= muted, f"muted: {muted}")
            expect(stream.received > received, "the stream stopped")
            expect(stream.lost() == lost, f"{stream.lost() - lost} segments lost")
        stream.end()
        expect(stream.sent == stream.received, f"{stream.sent} bytes sent, {stream.received} received")
        self.expect_session(since)
        rounds.figures.notes = [f"{stream.sent} bytes in {rounds.count} holds of {rounds.delay:g} s: none lost; "
                                "BGP was up all the time"]
