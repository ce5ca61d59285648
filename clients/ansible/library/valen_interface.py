"""The Ansible module valen_interface: shuts interfaces of valend down, or enables them."""

DOCUMENTATION = r"""
module: valen_interface
short_description: Shut network interfaces down gracefully, or enable them
description:
  - Shuts interfaces down through valend, which sends their goodbye frames, keeps the links up for the
    configured time, and then sets them down. Or enables them, which aborts their shutdowns.
  - Fails if an interface is not configured or its device does not exist. Then nothing is changed.
author: The Valen maintainers
options:
  name:
    description: The interface, or several, as in valend's configuration. They are shut down at the same time.
    type: list
    elements: str
    required: true
  state:
    description: C(shutdown) sets the links down. C(enabled) sets them up.
    type: str
    choices: [shutdown, enabled]
    required: true
  wait:
    description:
      - Whether to wait until the links are down. Otherwise the task is done when the shutdowns are in
        progress. Used only for C(shutdown).
    type: bool
    default: true
  reason:
    description: Why the interfaces are shut down, for the history. Used only for C(shutdown).
    type: str
  delay_ms:
    description:
      - How long the links stay up after the frames were sent, in milliseconds, instead of the configured
        time. Used only for C(shutdown).
    type: int
  socket:
    description: The socket of valend.
    type: path
    default: /run/valen/valend.sock
  timeout:
    description: How many seconds an answer of valend may take, in addition to the delay.
    type: int
    default: 10
requirements:
  - On the managed host, the packages valend and python3-valen.
  - The right to change interfaces. Root has it, and members of the group valen-admin.
attributes:
  check_mode:
    description: Predicts what would change. Requires only the right to read the status.
    support: full
  diff_mode:
    description: Shows the links before and after.
    support: full
"""

EXAMPLES = r"""
- name: Shut the uplink down before its optics are replaced
  valen_interface:
    name: Ethernet1
    state: shutdown

- name: Shut two interfaces down, and do not wait for the delay
  valen_interface:
    name: [Ethernet1, Ethernet2]
    state: shutdown
    wait: false

- name: Enable them
  valen_interface:
    name: [Ethernet1, Ethernet2]
    state: enabled
"""

RETURN = r"""
changed_interfaces:
  description: The names of the interfaces that were changed, or would be.
  returned: always
  type: list
  elements: str
shutdowns:
  description: What valend has recorded of each shutdown, as type ShutdownRecord of its API.
  returned: state is shutdown, and not in check mode
  type: list
  elements: dict
  sample:
    - interface: Ethernet1
      ending: down
      sent: 2
      heldMs: 500
"""

import traceback  # noqa: E402

from ansible.module_utils.basic import AnsibleModule, missing_required_lib  # noqa: E402

try:
    import valen
except ImportError:
    VALEN_IMPORT_ERROR = traceback.format_exc()
else:
    VALEN_IMPORT_ERROR = None

ARGUMENT_SPEC = {
    "name": {"type": "list", "elements": "str", "required": True},
    "state": {"type": "str", "choices": ["shutdown", "enabled"], "required": True},
    "wait": {"type": "bool", "default": True},
    "reason": {"type": "str"},
    "delay_ms": {"type": "int"},
    "socket": {"type": "path", "default": "/run/valen/valend.sock"},
    "timeout": {"type": "int", "default": 10},
}

LINK = {"shutdown": "down", "enabled": "up"}


def is_reached(interface, state):
    """Whether the interface is in the state, or valend is already bringing it there."""
    if state == "shutdown":
        return interface["link"] == "down" or interface["shuttingDown"]
    return interface["link"] == "up" and not interface["shuttingDown"]


def shut_down(client, interfaces, params):
    """Shuts down what is not down, joining shutdowns in progress if they are waited for. Returns which
    interfaces it changed, the records, and what failed."""
    names = [
        name
        for name, interface in interfaces.items()
        if not is_reached(interface, "shutdown") or (params["wait"] and interface["shuttingDown"])
    ]
    if not names:
        return [], [], []
    steps = client.shutdown_many(
        names, wait=params["wait"], reason=params["reason"], delayMs=params["delay_ms"]
    )
    records = [step["shutdown"] for step in steps.values()]
    changed = [
        record["interface"]
        for record in records
        if record["ending"] in ("running", "down") and not interfaces[record["interface"]]["shuttingDown"]
    ]
    failed = [
        f"{record['interface']}: shutdown ended as {record['ending']}" + (f": {record['why']}" if record["why"] else "")
        for record in records
        if record["ending"] not in ("running", "down", "already-down")
    ] + [
        f"{step['shutdown']['interface']}: cannot set the link down, valend goes on trying: {step['shutdown']['why']}"
        for step in steps.values()
        if step["step"] == "retrying"
    ]
    return changed, records, failed


def enable(client, interfaces):
    """Enables what is not enabled. Returns which interfaces it changed, and what failed."""
    names = [name for name, interface in interfaces.items() if not is_reached(interface, "enabled")]
    results = client.enable_many(names).values() if names else []
    changed = [result["interface"] for result in results if result["result"] in ("up", "aborted")]
    failed = [f"{result['interface']}: {result['message']}" for result in results if result["result"] == "failed"]
    return changed, failed


def warn_of_losses(module, records):
    for record in records:
        if record["failed"]:
            module.warn(f"{record['interface']}: {record['failed']} frames not sent: {record['failReason']}")
        if record["ending"] == "down" and record["why"]:
            module.warn(f"{record['interface']}: {record['why']}")


def run(module, client):
    params = module.params
    state = params["state"]
    interfaces = {name: client.interface(name) for name in params["name"]}
    absent = [f"{name}: device {interface['device']} not present" for name, interface in interfaces.items()
              if interface["link"] == "absent"]
    if absent:
        module.fail_json(msg="; ".join(absent))
    result, failed = {}, []
    if module.check_mode:
        changed = [name for name, interface in interfaces.items() if not is_reached(interface, state)]
    elif state == "shutdown":
        changed, result["shutdowns"], failed = shut_down(client, interfaces, params)
        warn_of_losses(module, result["shutdowns"])
    else:
        changed, failed = enable(client, interfaces)
    result["changed"] = bool(changed)
    result["changed_interfaces"] = changed
    result["diff"] = {
        "before": {name: interfaces[name]["link"] for name in changed},
        "after": {name: LINK[state] for name in changed},
    }
    if failed:
        module.fail_json(msg="; ".join(failed), **result)
    module.exit_json(**result)


def main():
    module = AnsibleModule(argument_spec=ARGUMENT_SPEC, supports_check_mode=True)
    if VALEN_IMPORT_ERROR:
        module.fail_json(msg=missing_required_lib("valen", reason="to talk to valend"), exception=VALEN_IMPORT_ERROR)
    try:
        with valen.Client(module.params["socket"], timeout=module.params["timeout"]) as client:
            run(module, client)
    except valen.Error as error:
        module.fail_json(msg=str(error))


if __name__ == "__main__":
    main()
