"""The programs of a scenario. Each side has a /run of its own, where its daemons find their usual places."""
import os
import pathlib
import shlex
import shutil
import subprocess
import sys

from waiting import Failed

# With the groups that they are in besides their own.
USERS = {"_lldpd": [], "frr": ["frrvty"], "avahi": [], "messagebus": []}
OVERLAID = ["usr", "etc"]


SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
PACKAGES = SOURCE / "build/neighbors"
SKIPPED = 77


def in_sandbox(*command):
    """The Python command in a sandbox. All that it starts is in a process namespace of its own, and ends with it."""
    return ["setpriv", "--pdeathsig", "KILL", "unshare", "--pid", "--fork", "--kill-child", "--mount-proc",
            str(SOURCE / "scripts/sandbox"), sys.executable, "-B", *map(str, command)]


def why_not_here():
    """The status to exit with if daemons cannot be run here, after it was printed why; else None."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        if os.geteuid() != 0 or file.read().split()[2] != "4294967295":
            print("skipped: loading filters needs root of the machine")
            return SKIPPED
    if not PACKAGES.is_dir():
        print(f"{PACKAGES} is missing; run: scripts/install-dependencies neighbors")
        return 1
    return None


def reap_orphans(others):
    """Reaps what daemons left behind, if this is the first process of its namespace.
       others   processes that the caller waits for"""
    with open("/proc/thread-self/children", encoding="ascii") as file:
        for pid in set(map(int, file.read().split())) - others:
            os.waitpid(pid, os.WNOHANG)


def run_of(side):
    return f"/run/{side}"


def lay_over(packages):
    """Shows the unpacked packages in their usual places, with the system users that they would make. Only for this
    process and its children: they have a mount namespace of their own."""
    for name in OVERLAID:
        upper, scratch = f"/run/overlay/{name}/upper", f"/run/overlay/{name}/scratch"
        os.makedirs(upper)
        os.makedirs(scratch)
        subprocess.run(["mount", "-t", "overlay", "overlay", "-o",
                        f"lowerdir={packages}/{name}:/{name},upperdir={upper},workdir={scratch}", f"/{name}"], check=True)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/var/tmp"], check=True)
    for number, (user, groups) in enumerate(USERS.items(), 900):
        append("/etc/passwd", user, f"{user}:x:{number}:{number}::/nonexistent:/usr/sbin/nologin\n")
        append("/etc/group", user, f"{user}:x:{number}:\n")
        for more, group in enumerate(groups, 950):
            append("/etc/group", group, f"{group}:x:{more}:{user}\n")


def append(path, name, line):
    with open(path, "r+", encoding="utf-8") as file:
        if not any(other.startswith(f"{name}:") for other in file.read().splitlines()):
            file.write(line)


class Side:
    """Starts programs in the namespace of that name."""

    def __init__(self, name):
        self.name = name
        self.run = run_of(name)
        os.makedirs(self.run)
        self.started = {}

    def inside(self, command):
        script = f"mount --bind {self.run} /run && exec {shlex.join(command)}"
        return ["nsenter", f"--net=/run/netns/{self.name}", "unshare", "--mount", "sh", "-c", script]

    def start(self, command, environment=None):
        """Starts a daemon that stays in the foreground, in a process group of its own."""
        name = os.path.basename(command[0])
        with open(self.log_of(name), "ab") as log:
            self.started[name] = subprocess.Popen(
                self.inside(command), stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True,
                env={**os.environ, **(environment or {})})
        return self.started[name]

    def ask(self, *command, environment=None):
        """The output of a program; None if it fails."""
        done = subprocess.run(self.inside(list(command)), stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              env={**os.environ, **(environment or {})}, check=False)
        return done.stdout if done.returncode == 0 else None

    def must(self, *command):
        """Runs a program, which must succeed."""
        done = subprocess.run(self.inside(list(command)), stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              check=False)
        if done.returncode != 0:
            raise Failed(f"$ {shlex.join(command)}\n{done.stdout}{done.stderr}")
        return done.stdout

    def write(self, path, text):
        """Writes a file of this side's /run; returns its name there."""
        os.makedirs(os.path.dirname(f"{self.run}/{path}") or self.run, exist_ok=True)
        with open(f"{self.run}/{path}", "w", encoding="utf-8") as file:
            file.write(text)
        return f"/run/{path}"

    def directory(self, path, owner):
        """Makes a directory of this side's /run for a system user."""
        os.makedirs(f"{self.run}/{path}")
        shutil.chown(f"{self.run}/{path}", owner)

    def log_of(self, name):
        return f"{self.run}/{name}.log"

    def ended(self):
        """For each daemon that has ended, why."""
        texts = []
        for name, process in self.started.items():
            if process.poll() is not None:
                with open(self.log_of(name), encoding="utf-8", errors="replace") as log:
                    texts.append(f"{name} on {self.name} ended with {process.returncode}:\n{log.read()[-2000:]}")
        return texts

    def expect_running(self):
        texts = self.ended()
        if texts:
            raise Failed("\n".join(texts))
