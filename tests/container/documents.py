"""The commands of the documents do what the documents say."""
import re

from container import wait_until
from tap import expect

METRICS = "/var/lib/prometheus/node-exporter/valen.prom"


def commands(machine, document, heading):
    """The commands in the section of that heading."""
    with open(f"{machine.source}/{document}", encoding="utf-8") as file:
        text = file.read()
    section = re.search(rf"^##+ {heading}\n(.*?)(?=^##|\Z)", text, re.S | re.M)
    expect(section, f'{document} has no section "{heading}"')
    found = re.findall(r"^```sh\n(.*?)^```\n", section[1], re.S | re.M)
    expect(found, f'{document} has no commands in the section "{heading}"')
    return "set -e\n" + "".join(found)


def first_minutes(machine):
    """The README's first five minutes, its commands alone, do what it says"""
    # Not by lldpcli, after which lldpd may send nothing more.
    machine.must("echo configure lldp tx-interval 2 >/etc/lldpd.d/valen.conf && systemctl start lldpd")
    result = machine.run("cd /srv/valen\n" + commands(machine, "README.md", "The first five minutes"))
    expect(result.status == 0, str(result))
    machine.must("systemctl stop lldpd")
    for text in (r"eth1 +eth1 +default +\S+ +yes", r"Time to Live TLV.*TTL 0s", r"eth1: 1 frame sent",
                 r"eth1: link down after 20\d\d ms", r"eth1: shutdown aborted; link stays up",
                 r"\bdown\b.*\n.*\baborted\b.* \(enabled after"):
        expect(re.search(text, result.output), f'no "{text}" in:\n{result}')
    expect(len(machine.wire.received("eth1", bytes.fromhex("06020000"))) >= 2,
           "the neighbor did not receive two goodbyes of LLDP")
    shown = machine.must("valenctl status")
    expect(shown.startswith("shutdown delay: 500 ms"), f"the second reload did not apply:\n{shown}")


def node_exporter(machine):
    """node_exporter scrapes the metrics file after the commands of the manual"""
    machine.must(commands(machine, "docs/operating.md", "node_exporter"))
    wait_until(METRICS, lambda: machine.run(f"test -e {METRICS}").status == 0)
    scraped = machine.must("python3 -c 'import urllib.request as r; "
                           'print(r.urlopen("http://127.0.0.1:9100/metrics").read().decode())\' | '
                           "grep -E '^(valen_interfaces|node_textfile_scrape_error) '")
    expect(scraped == "node_textfile_scrape_error 0\nvalen_interfaces 2\n",
           scraped + machine.container.log("--unit=prometheus-node-exporter", "--lines=2"))


def promtool(machine):
    """promtool finds no fault in the metrics file"""
    result = machine.run(f"promtool check metrics <{METRICS}")
    expect(result.status == 0 and result.output == "", str(result))


CHECKS = [node_exporter, promtool]
