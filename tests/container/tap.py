"""Runs checks one after the other, and prints their results in the Test Anything Protocol."""
import re
import time

from container import Failed

# What dpkg prints while it reads its database.
PROGRESS = re.compile(r"\(Reading database \.\.\. (\d+%)?$")


class Checks:
    def __init__(self):
        self.done = 0
        self.failed = 0

    def run(self, check, *arguments):
        """Runs a check; its name is the first line of its description. A check fails by raising Failed."""
        self.done += 1
        name = check.__doc__.strip().splitlines()[0].rstrip(".")
        started = time.monotonic()
        try:
            check(*arguments)
            result = "ok"
            problem = None
        except Failed as failure:
            self.failed += 1
            result = "not ok"
            problem = str(failure)
        print(f"{result} {self.done} - {name} # {time.monotonic() - started:.1f} s", flush=True)
        for line in (problem or "").splitlines():
            if PROGRESS.match(line):
                continue
            print(f"#   {line}", flush=True)

    def end(self):
        """Prints the plan; returns the exit status of the program."""
        print(f"1..{self.done}")
        print(f"# {self.done - self.failed} passed, {self.failed} failed", flush=True)
        return 1 if self.failed else 0


def expect(condition, text):
    """Fails the running check with the text unless the condition is true."""
    if not condition:
        raise Failed(text)
