"""The README's first five minutes: its commands alone, on a machine without Valen."""
import re

from tap import expect


def commands(readme):
    """The commands of the section."""
    section = re.search(r"^## The first five minutes\n(.*?)^## ", readme, re.S | re.M)
    expect(section, "README.md has no section about the first five minutes")
    return "".join(re.findall(r"^```sh\n(.*?)^```\n", section[1], re.S | re.M))


def first_minutes(machine, source):
    """The commands of the README's first five minutes do what it says"""
    with open(f"{source}/README.md", encoding="utf-8") as readme:
        script = commands(readme.read())
    result = machine.run("cd /srv/valen; set -e\n" + script)
    expect(result.status == 0, str(result))
    for text in (r"eth1 +eth1 +default +\S+ +yes", r"LLDP.*length", r"eth1: 1 frame sent", r"eth1: link down after 20\d\d ms",
                 r"eth1: shutdown aborted; link stays up", r"\bdown\n.*\baborted \(enabled after"):
        expect(re.search(text, result.output), f'no "{text}" in:\n{result}')
    expect(len(machine.wire.received("eth1", bytes.fromhex("88cc0207"))) == 2,
           "the neighbor did not receive two LLDP frames")
    shown = machine.must("valenctl status")
    expect(shown.startswith("shutdown delay: 500 ms"), f"the second reload did not apply:\n{shown}")
