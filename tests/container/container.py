"""A container with systemd, booted on a copy of a root file system."""
import os
import shlex
import subprocess
import time


class Failed(Exception):
    """A check or a command failed; the text says what, and shows its output."""


def wait_until(what, condition, timeout=30.0):
    """Calls condition() until it returns something true, and returns that."""
    deadline = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise Failed(f"timed out after {timeout:.0f} s: {what}")
        time.sleep(0.02)


class Result:
    """How a command ended."""

    def __init__(self, command, status, output):
        self.command, self.status, self.output = command, status, output

    def __str__(self):
        return f"$ {self.command}\n{self.output}[status {self.status}]"


class Container:
    """The changes go to memory. The network namespace remains when the container reboots, so that what happens to
    its links can be observed all the time."""

    def __init__(self, root, namespace, binds):
        self.namespace = namespace
        self.work = "/run/container"
        os.makedirs(self.work)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", self.work], check=True)
        for name in ("upper", "work", "root"):
            os.mkdir(f"{self.work}/{name}")
        subprocess.run(
            ["mount", "-t", "overlay", "overlay", "-o",
             f"lowerdir={root},upperdir={self.work}/upper,workdir={self.work}/work", f"{self.work}/root"],
            check=True)
        self.root = f"{self.work}/root"
        self.console = f"{self.work}/console"
        self.binds = binds
        self.nspawn = None
        self.leader = None

    def boot(self):
        """Starts systemd, and returns when it has started all units. A reboot ends it; start it again."""
        # Not --network-namespace-path: it would show the devices of this namespace in /sys.
        command = ["nsenter", f"--net=/run/netns/{self.namespace}", "systemd-nspawn", "--quiet",
                   f"--directory={self.root}", "--boot", "--register=no", "--keep-unit",
                   "--machine=valen-test", "--capability=CAP_NET_ADMIN", "--system-call-filter=bpf", "--resolv-conf=off",
                   "--timezone=off", "--console=pipe"]
        command += [f"--bind-ro={source}:{target}" for source, target in self.binds]
        with open(self.console, "ab") as console:
            self.nspawn = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=console, stderr=console)
        self.leader = wait_until("the container boots", self._booted, 60)

    def _booted(self):
        """The first process of the container, if all units have been started."""
        self.expect_running()
        for child in children(self.nspawn.pid):
            state = self.run("systemctl is-system-running", child).output.strip()
            if state in ("running", "degraded"):
                return child
        return None

    def expect_running(self):
        """Fails if the container has ended."""
        if self.nspawn.poll() is not None:
            raise Failed(f"systemd-nspawn ended with {self.nspawn.returncode}:\n{self.console_text()}")

    def console_text(self):
        """What systemd and the kernel printed since the first boot."""
        with open(self.console, encoding="utf-8", errors="replace") as console:
            return console.read()

    def wait_ended(self, status):
        """Returns when the container has ended: 0 is a power-off, 133 a reboot."""
        ended = wait_until("the container ends", lambda: self.nspawn.poll() is not None and [self.nspawn.poll()], 60)
        if ended != [status]:
            raise Failed(f"systemd-nspawn ended with {ended[0]}, expected {status}")

    def run(self, script, leader=None, timeout=90):
        """Runs the script with bash in the container."""
        command = ["nsenter", "-t", str(leader or self.leader), "--all", "--",
                   "env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8",
                   "DEBIAN_FRONTEND=noninteractive", "bash", "-c", script]
        try:
            done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, timeout=timeout, check=False)
        except subprocess.TimeoutExpired as late:
            output = (late.stdout or b"").decode(errors="replace")
            raise Failed(f"$ {script}\n{output}[no end after {timeout} s]") from None
        return Result(script, done.returncode, done.stdout.decode(errors="replace"))

    def must(self, script, timeout=90):
        """Runs the script, which must succeed, and returns its output."""
        result = self.run(script, timeout=timeout)
        if result.status != 0:
            raise Failed(str(result))
        return result.output

    def write(self, path, text):
        """Writes a file."""
        self.must(f"mkdir -p {shlex.quote(os.path.dirname(path))} && cat >{shlex.quote(path)} <<'END-OF-FILE'\n"
                  f"{text}\nEND-OF-FILE")

    def log(self, *matches):
        """The lines of the journal that match."""
        return self.must("journalctl --quiet --output=cat --no-pager " + " ".join(map(shlex.quote, matches)))


def children(pid):
    """The processes that a process started."""
    try:
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            return [int(child) for child in file.read().split()]
    except OSError:
        return []
