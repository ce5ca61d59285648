"""A database over TCP, which the unit of valend permits with a drop-in only."""
import json
import re

from container import wait_until
from tap import expect

DROP_IN = "/etc/systemd/system/valend.service.d/database.conf"
CONFIGURATION = "/etc/valen/conf.d/database.yaml"


def documented_drop_in(machine):
    """The drop-in for TCP of the manual, for the server at the loopback address."""
    with open(f"{machine.source}/docs/database.md", encoding="utf-8") as file:
        section = file.read().split("\n## What the service needs\n")[1].split("\n## ")[0]
    found = [block for block in re.findall(r"^```\n(.*?)^```\n", section, re.S | re.M) if "AF_INET" in block]
    expect(len(found) == 1 and "192.0.2.10" in found[0], f"no drop-in for TCP in:\n{section}")
    return found[0].replace("192.0.2.10", "127.0.0.1")


def condition(machine):
    """The text of the condition "database"; empty without it."""
    status = json.loads(machine.must("valenctl --json status"))
    return "".join(each["text"] for each in status["conditions"] if each["name"] == "database")


def over_tcp(machine):
    """A database over TCP needs the drop-in of the manual, and the condition names what is missing"""
    machine.must("systemctl start redis-server && redis-cli config set notify-keyspace-events Khgx")
    machine.container.write(CONFIGURATION, "database:\n  server: redis://127.0.0.1\n  prefix: valen:inside")
    try:
        machine.must("systemctl reload valend")
        said = wait_until("the condition", lambda: condition(machine))
        expect("RestrictAddressFamilies" in said, said)
        machine.container.write(DROP_IN, documented_drop_in(machine))
        machine.must("systemctl daemon-reload && systemctl restart valend")
        wait_until("valend writes to the database",
                   lambda: machine.run("redis-cli hget valen:inside:alive host").output.strip())
        wait_until("the condition ends", lambda: not condition(machine))
        shown = machine.must("valenctl --database redis://127.0.0.1 status")
        expect(re.search(r"^inside\b.*", shown, re.M) and "wan1" in shown, shown)
    finally:
        machine.must(f"rm -f {CONFIGURATION} {DROP_IN} && systemctl daemon-reload && systemctl restart valend && "
                     "systemctl stop redis-server")


CHECKS = [over_tcp]
