"""Daemons that authenticate what they say with MD5 or HMAC. valend has no key: it learns nothing, sends nothing in
their name, and mutes nothing. So the neighbor believes in them until the link goes down."""
import time

import bird
import frr
import keepalived
import network
from daemon import Daemon
from rounds import AWAY_POLL
from scenario_base import Scenario
from waiting import expect, wait_until

# So that the interface is ready, and its shutdown is delayed: a frame that no neighbor understands.
OTHER_AGENT = """agents: [{name: test, messages: {wan0: ["0180c200000e 020000000001 88b5 00"]}}]
"""


# Until valend has heard the daemon several times.
HELLOS = 4


class Authenticated(Scenario):
    config = OTHER_AGENT

    def play(self, rounds):
        daemon: Daemon = rounds.daemon
        wait_until("the neighbor believes", self.believes, self.longest)
        wait_until("the interface is ready", lambda: daemon.interface()["ready"])
        time.sleep(HELLOS)
        expect(not daemon.learned() & self.protocols, f"learned: {daemon.learned()}")
        reasons = [speaker["notLearned"] for speaker in daemon.speakers() if speaker["protocol"] in self.protocols]
        expect(reasons and all("authenticat" in (reason or "") for reason in reasons), f"reasons: {reasons}")
        for _ in range(rounds.count):
            self.hold(rounds)

    def hold(self, rounds):
        """The shutdown sends the goodbyes of others, and the neighbor goes on believing."""
        rounds.figures.rounds += 1
        daemon: Daemon = rounds.daemon
        wait_until("the neighbor believes", self.believes, self.longest)
        started = time.monotonic()
        daemon.shutdown(rounds.delay)
        while time.monotonic() < started + rounds.delay - 0.1:
            expect(self.believes(), f"the neighbor stopped believing {time.monotonic() - started:.1f} s into the delay")
            time.sleep(AWAY_POLL)
        wait_until("the link is down", lambda: not network.near_link_is_up(), 10)
        wait_until("the shutdown ends", lambda: not daemon.interface()["shuttingDown"])
        record = daemon.last_record()
        muted = {speaker["protocol"] for speaker in record["muted"]}
        expect(not muted & self.protocols, f"muted: {record['muted']}")
        senders = {frames["agent"] for frames in record["agents"] if frames["sent"]}
        expect(not {f"learned-{protocol}" for protocol in self.protocols} & senders, f"sent: {senders}")
        rounds.figures.notes = [f"nothing learned, sent or muted in {rounds.figures.rounds} shutdowns"]
        # Without a goodbye, the neighbor believes until its hold time is over.
        wait_until("the neighbor stops believing", lambda: not self.believes(), self.longest)
        daemon.enable()


class OspfMd5(Authenticated, bird.Ospf):
    both = bird.Ospf.both.replace("hello 1;", 'hello 1; authentication cryptographic; password "secret";')


class RipMd5(Authenticated, bird.Rip):
    both = bird.Rip.both.replace("update time 1;", 'update time 1; authentication cryptographic; password "secret";')


class BfdSha1(Authenticated, bird.Bfd):
    both = bird.Bfd.both.replace("multiplier 5;", 'multiplier 5; authentication meticulous keyed sha1; '
                                                  'password "secret";')


class VrrpHeader(Authenticated, keepalived.Vrrp):
    version = 2
    more = keepalived.authentication("AH")


class IsisMd5(Authenticated, frr.Isis):
    both = frr.Isis.both.replace(" isis hello-interval", " isis password md5 secret\n isis hello-interval")
