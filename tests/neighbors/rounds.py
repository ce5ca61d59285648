"""Rounds of a scenario: shutdowns whose link goes down, and shutdowns that are aborted."""
import statistics
import time

import network
from daemon import INTERFACE
from waiting import Failed, expect, wait_until

REACT_POLL = 0.002
AWAY_POLL = 0.02

# When the link goes down, in milliseconds from the end of the delay. A busy machine is late.
EARLIEST, LATEST = -50, 3000
# How long a greeting may take to bring a neighbor back, in milliseconds.
GREETING = 400


class Figures:
    """Times in milliseconds, and what went wrong."""

    def __init__(self):
        self.reacted, self.back, self.after_link_up = [], [], []
        self.rounds = 0
        self.came_back = 0
        self.problems = []
        self.notes = []

    def problem(self, text):
        self.problems.append(f"round {self.rounds}: {text}")

    def summary(self):
        return {
            "rounds": self.rounds,
            "reacted": spread(self.reacted),
            "cameBack": self.came_back,
            "back": spread(self.back),
            "afterLinkUp": spread(self.after_link_up),
            "problems": self.problems,
            "notes": self.notes,
        }


def spread(times):
    """Median and worst."""
    return [round(statistics.median(times), 1), round(max(times), 1), len(times)] if times else None


def milliseconds_since(started):
    return (time.monotonic() - started) * 1000


class Rounds:
    """`count` rounds of each kind. valend holds the link for `delay` seconds; an abort comes `abort_after` seconds
    after the request."""

    def __init__(self, scenario, daemon, count, delay, abort_after):
        self.daemon, self.count, self.delay, self.abort_after = daemon, count, delay, abort_after
        self._scenario = scenario
        self.figures = Figures()

    def wait_ready(self):
        """The neighbor believes in the daemon, and valend has its goodbyes."""
        wait_until("the neighbor believes", self._scenario.believes, self._scenario.longest)
        wait_until(f"{sorted(self._scenario.protocols)} learned, not {sorted(self.daemon.learned())}",
                   lambda: self._scenario.protocols <= self.daemon.learned(), self._scenario.longest)
        wait_until(f"{INTERFACE} is ready", lambda: self.daemon.interface()["ready"])

    def shutdown(self):
        """A shutdown to its end, and enabling afterwards."""
        started = self._begin()
        self._expect_away(started, started + self.delay - 0.1)
        wait_until("the link is down", lambda: not network.near_link_is_up(), 10)
        down = milliseconds_since(started)
        wait_until("the shutdown ends", lambda: not self.daemon.interface()["shuttingDown"])
        if not EARLIEST <= down - self.delay * 1000 <= LATEST:
            self.figures.problem(f"the link went down after {down:.0f} ms, of which it was held for "
                                 f"{self.daemon.last_record()['heldMs']}")
        self._expect_record("down", greeted=False)
        enabled = time.monotonic()
        self.daemon.enable()
        wait_until("the neighbor believes again", self._scenario.believes, self._scenario.longest)
        self.figures.after_link_up.append(milliseconds_since(enabled))

    def abort(self):
        """A shutdown that is aborted."""
        started = self._begin()
        self._expect_away(started, started + self.abort_after)
        aborted = time.monotonic()
        result = self.daemon.enable()
        expect(result == "aborted", f"enable: {result}")
        wait_until("the neighbor believes again", self._scenario.believes, self._scenario.longest, REACT_POLL)
        self.figures.back.append(milliseconds_since(aborted))
        self._expect_record("aborted", greeted=True)
        expect(network.near_link_is_up(), "the link is down after an abort")

    def expect_greetings(self):
        """After most aborts, the neighbor was back before the next frame of a daemon that says hello once a second."""
        median = statistics.median(self.figures.back)
        if median > GREETING:
            self.figures.problem(f"the neighbor was back {median:.0f} ms after an abort: too late for a greeting")

    def _begin(self):
        self.figures.rounds += 1
        self.wait_ready()
        started = time.monotonic()
        self.daemon.shutdown(self.delay)
        try:
            wait_until("the neighbor reacts", lambda: not self._scenario.believes(),
                       min(self.delay, self.abort_after), REACT_POLL)
            self.figures.reacted.append(milliseconds_since(started))
        except Failed as failure:
            self.figures.problem(str(failure))
        return started

    def _expect_away(self, started, until):
        while time.monotonic() < until:
            if self._scenario.believes():
                self.figures.came_back += 1
                self.figures.problem(f"the neighbor believes again {milliseconds_since(started):.0f} ms into the delay")
                time.sleep(max(0.0, until - time.monotonic()))
                return
            time.sleep(AWAY_POLL)

    def _expect_record(self, ending, greeted):
        record = self.daemon.last_record()
        muted = {speaker["protocol"] for speaker in record["muted"]}
        if record["ending"] != ending:
            self.figures.problem(f"the shutdown ended as {record['ending']}: {record['why']}")
        if not self._scenario.protocols <= muted or record["notMuted"]:
            self.figures.problem(f"muted {sorted(muted)}: {record['notMuted']}")
        if record["failed"]:
            self.figures.problem(f"{record['failed']} goodbyes failed")
        self._expect_greeted(record["muted"] if greeted else [])
        if not greeted and any(speaker["greeted"] for speaker in record["muted"]):
            self.figures.problem("greeted, although the link went down")

    def _expect_greeted(self, muted):
        """One that was forgotten while it was muted does not greet: a session that ended when the link went down in
        the round before."""
        heard = [(speaker["protocol"], speaker["speaker"]) for speaker in self.daemon.speakers()]
        for speaker in muted:
            name = (speaker["protocol"], speaker["speaker"])
            if name in heard and name[0] in self._scenario.protocols and not speaker["greeted"]:
                self.figures.problem(f"{' '.join(name)} not greeted")
        greeting = {speaker["protocol"] for speaker in muted if speaker["greeted"]}
        if muted and not self._scenario.protocols <= greeting:
            self.figures.problem(f"only {sorted(greeting)} greeted")
