"""Waits for what a scenario expects, with a bound."""
import time


class Failed(Exception):
    """A scenario cannot go on, or found what must not be; the text says what."""


def wait_until(what, condition, timeout=60.0, pause=0.01):
    """Calls condition() until it returns something true, and returns that."""
    deadline = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise Failed(f"timed out after {timeout:.0f} s: {what}")
        time.sleep(pause)


def expect(condition, text):
    """Fails the scenario with the text unless the condition is true."""
    if not condition:
        raise Failed(text)
