"""What speakers said last, and which goodbyes valend must therefore have queued at a time."""

# What was said within this time need not be learned yet, and what ends within it may be forgotten: in seconds.
TOLERANCE = 2.0


class Said:
    """What one speaker has said, or one part of all that it says."""

    def __init__(self):
        self._history = []  # of (when, goodbye, hold time): not older than the tolerance, and one before

    def add(self, when, goodbye, hold):
        """It said what has this goodbye; None: it has left."""
        self._history.append((when, goodbye, hold))
        while len(self._history) > 1 and self._history[1][0] <= when - TOLERANCE:
            del self._history[0]

    def over_at(self):
        """When nothing of it can be queued any more."""
        when, goodbye, hold = self._history[-1]
        return when + TOLERANCE + (hold if goodbye is not None else 0)

    def expected(self, now):
        """The goodbyes of which one must be queued, or none; and those of which one may be."""
        while len(self._history) > 1 and self._history[1][0] <= now - TOLERANCE:
            del self._history[0]
        may = {goodbye for _, goodbye, _ in self._history} - {None}
        if now > self.over_at():
            may = set()
        return (may if self._must(now) else set()), may

    def _must(self, now):
        """It has been there for longer than the tolerance, without a pause, and is still."""
        if self._history[0][0] > now - TOLERANCE or not all(entry[1] is not None for entry in self._history):
            return False
        ends = [when for when, _, _ in self._history[1:]] + [now]
        return all(end < when + hold - TOLERANCE for (when, _, hold), end in zip(self._history, ends))


def differences(said, frames, now):
    """What is missing in the frames of a device and a protocol, or is there without reason.
       said   of all speakers of that protocol on the device"""
    allowed = set()
    found = []
    for one in said:
        must, may = one.expected(now)
        allowed |= may
        if must and not must & frames:
            found.append(f"missing {sorted(must)[0].hex()}")
        if len(may & frames) > 1:
            found.append(f"outdated beside a newer one {sorted(may & frames)[0].hex()}")
    return found + [f"outdated {frame.hex()}" for frame in frames - allowed]
