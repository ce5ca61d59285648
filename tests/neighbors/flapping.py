"""Machines whose daemons restart, change, stop and are killed at random."""
import contextlib
import glob
import os
import signal
import subprocess

import network
import programs
from waiting import wait_until

VRRP = """vrrp_instance v{router}_{version}_{device} {{
   interface {device}
   version {version}
   virtual_router_id {router}
   priority {priority}
   state BACKUP
   advert_int 1
   virtual_ipaddress {{
      {address}
   }}
}}
"""
BIRD = """log stderr all;
router id {id};
protocol device {{ scan time 5; }}
protocol static {{ ipv4; {routes} }}
protocol ospf v2 {{
   ipv4 {{ import none; export none; }};
   area 0 {{ interface "d*" {{ hello 2; dead 8; wait 4; retransmit 5; priority {priority}; }}; }};
}}
protocol ospf v3 {{
   ipv6 {{ import none; export none; }};
   area 0 {{ interface "d*" {{ hello 2; dead 8; wait 4; retransmit 5; priority {priority}; }}; }};
}}
protocol rip {{
   ipv4 {{ import none; export all; }};
   interface "d*" {{ update time 5; timeout time 180; garbage time 120; }};
}}
protocol radv {{
   interface "d*" {{ min ra interval 3; max ra interval 4; default lifetime {lifetime}; solicited ra unicast no; }};
}}
"""
# Few sets of routes: each is a part of what the router says for three minutes.
ROUTES = ["203.0.113.0/24", "198.51.100.0/24"]


class Daemon:
    """One of a machine. It is started, and then one thing after another happens to it."""

    def __init__(self, side, devices, choice):
        self._side, self._choice = side, choice
        self.devices = devices
        self.process = None
        self._ending = False
        self._due = 0.0
        self.failed = []

    def configure(self):
        """Writes another configuration; returns the command that starts the daemon with it."""
        raise NotImplementedError

    def act(self, now):
        """Returns what happened to it, if anything did."""
        if self.process and self.process.poll() is not None:
            if not self._ending:
                self.failed.append("\n".join(self._side.ended()))
            self.process, self._ending = None, False
        if now < self._due:
            return None
        if self.process and self._ending:
            return None
        self._due = now + self._choice.uniform(2, 40)
        if not self.process:
            return self._start()
        event = self._choice.choice([self._stop, self._kill, self._change])
        return event()

    def _start(self):
        self.process = self._side.start(self.configure())
        return "starts"

    def _stop(self):
        self._ending = True
        self._due = 0.0 if self._choice.randrange(2) else self._due  # started again at once, or later
        self.process.terminate()
        return "stops"

    def _kill(self):
        self._ending = True
        self._due = 0.0 if self._choice.randrange(2) else self._due
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        wait_until("its other processes have ended", self._has_ended)  # else it would not start again
        return "kills"

    def _has_ended(self):
        """Whether nothing of it runs. Processes that have ended may stay in the table for long."""
        for path in glob.glob("/proc/[0-9]*/stat"):
            with contextlib.suppress(OSError), open(path, encoding="ascii", errors="replace") as stat:
                state, _, group = stat.read().rsplit(")", 1)[1].split()[:3]
                if int(group) == self.process.pid and state not in "ZX":
                    return False
        return True

    def _change(self):
        self.configure()
        self.process.send_signal(signal.SIGHUP)
        return "changes"


class Lldpd(Daemon):
    def configure(self):
        self._chassis = f"chassis {self._choice.randrange(10 ** 6)}" if self._choice.randrange(2) else "chassis"
        text = (f"configure lldp tx-interval 2\nconfigure system chassisid \"{self._chassis}\"\n"
                f"configure system description \"{self._choice.randrange(10 ** 6)}\"\n")
        path = self._side.write("lldpd.conf", text)
        return ["/usr/sbin/lldpd", "-d", "-O", path, "-u", "/run/lldpd.socket", "-I", "d*"]

    def _change(self):
        """lldpd reads its configuration only at its start."""
        self.configure()
        command = self._side.inside(["lldpcli", "-u", "/run/lldpd.socket", "-c", "/run/lldpd.conf"])
        subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return "changes"


class Keepalived(Daemon):
    """Two virtual routers on each interface, one of IPv4 and one of IPv6."""
    versions = 2, 3

    def configure(self):
        text = "global_defs {\n   vrrp_garp_master_refresh 60\n}\n"
        for device in self.devices:
            link = int(device[1:-1])
            router = self._choice.choice([7, 8, 9])
            text += VRRP.format(device=device, router=router, priority=self._choice.randrange(1, 255),
                                version=self._choice.choice(self.versions), address=f"10.1.{link}.100")
            text += VRRP.format(device=device, router=router, priority=self._choice.randrange(1, 255),
                                version=3, address=f"fe80::{router}").replace("vrrp_instance v", "vrrp_instance w")
        path = self._side.write("keepalived/keepalived.conf", text)
        return ["/usr/sbin/keepalived", "--dont-fork", "--log-console", "--vrrp", "--use-file", path]


class Bird(Daemon):
    def configure(self):
        routes = [route for route in ROUTES if self._choice.randrange(2)] or ROUTES
        text = BIRD.format(id=f"192.0.2.{self._choice.randrange(1, 255)}", priority=self._choice.randrange(0, 3),
                           lifetime=self._choice.randrange(10, 20),
                           routes=" ".join(f"route {route} blackhole;" for route in routes))
        path = self._side.write("bird/bird.conf", text)
        return ["/usr/sbin/bird", "-f", "-c", path, "-s", "/run/bird.ctl"]


class Machine:
    def __init__(self, name, choice):
        self.name = name
        self.devices = []
        self._choice = choice
        self._daemons = []
        network.ip(f"netns add {name}")
        network.sysctls(name, network.SYSCTLS)
        network.ip(f"-n {name} link set lo up")

    def equip(self):
        side = programs.Side(self.name)
        side.write("lldpd/empty", "")  # makes the directory
        self._daemons = [kind(side, self.devices, self._choice) for kind in (Lldpd, Keepalived, Bird)]

    def act(self, now):
        return [event for event in [daemon.act(now) for daemon in self._daemons] if event]

    def pids(self):
        return {daemon.process.pid for daemon in self._daemons if daemon.process}

    @property
    def failed(self):
        return [text for daemon in self._daemons for text in daemon.failed]


def machines(interfaces, choice):
    """Machines of some ten interfaces, each at a link to another machine."""
    count = max(2, interfaces // 10)
    made = [Machine(f"m{number}", choice) for number in range(count)]
    for link in range(interfaces // 2):
        one = made[link % count]
        other = made[(link + 1 + link // count % (count - 1)) % count]
        network.ip(f"link add d{link}a netns {one.name} type veth peer name d{link}b netns {other.name}")
        for host, (machine, end) in enumerate([(one, "a"), (other, "b")], 1):
            device = f"d{link}{end}"
            machine.devices.append(device)
            network.ip(f"-n {machine.name} address add 10.1.{link}.{host}/24 dev {device}")
            network.ip(f"-n {machine.name} link set {device} up")
    for machine in made:
        machine.equip()
    return made
