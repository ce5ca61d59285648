"""The network of a scenario: the namespaces near and far, and a bridge between their devices. So a link that is
set down at one end keeps its carrier at the other, as it does behind a switch."""
import ctypes
import os
import subprocess
import threading

CLONE_NEWNET = 0x40000000

NEAR, FAR = "near", "far"
DEVICE = {NEAR: "wan0", FAR: "lan0"}
ADDRESS = {NEAR: "192.0.2.1", FAR: "192.0.2.2"}
ADDRESS6 = {NEAR: "2001:db8::1", FAR: "2001:db8::2"}
# The bridge forwards all that it would otherwise keep to itself, such as LLDP.
FORWARD_ALL = "0xfff8"
FORWARD_PORT = "0xfffd"

# No pause before an IPv6 address can be used, and none is lost when a link is set down.
SYSCTLS = {
    "net/ipv6/conf/all/accept_dad": 0,
    "net/ipv6/conf/default/accept_dad": 0,
    "net/ipv6/conf/default/router_solicitation_delay": 0,
    "net/ipv6/conf/default/keep_addr_on_down": 1,
    "net/ipv6/conf/all/keep_addr_on_down": 1,
    "net/ipv4/ip_forward": 1,
    "net/ipv4/conf/all/rp_filter": 0,
    "net/ipv4/conf/default/rp_filter": 0,
}


def ip(arguments):
    subprocess.run(["ip", *arguments.split()], check=True)


def inside(namespace, function):
    """Calls the function in a thread that is in the namespace, and returns what it returns."""
    result = []

    def run():
        libc = ctypes.CDLL(None, use_errno=True)
        descriptor = os.open(f"/run/netns/{namespace}", os.O_RDONLY)
        try:
            if libc.setns(descriptor, CLONE_NEWNET) != 0:
                raise OSError(ctypes.get_errno(), "setns")
        finally:
            os.close(descriptor)
        result.append(function())

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    return result[0]


def sysctls(namespace, values):
    def write():
        for name, value in values.items():
            with open(f"/proc/sys/{name}", "w", encoding="ascii") as file:
                file.write(str(value))
    inside(namespace, write)


def kernel_table(namespace, name):
    """Returns a function that reads what the kernel shows of the namespace now in /proc/net/NAME."""
    file = inside(namespace, lambda: open(f"/proc/thread-self/net/{name}", encoding="ascii"))

    def read():
        file.seek(0)
        return file.read()
    return read


def more_devices(count):
    """Names of more devices of near, which come before its own."""
    return [f"more{number:02}" for number in range(count)]


def create(snooping=False, more=0):
    """Both namespaces, with the addresses above, and the bridge. Near has so many more devices."""
    ip("link add bridge type bridge stp_state 0 forward_delay 0")
    ip(f"link set bridge type bridge mcast_snooping {int(snooping)} mcast_querier {int(snooping)}")
    ip(f"link set bridge type bridge group_fwd_mask {FORWARD_ALL}")
    for side, device in DEVICE.items():
        ip(f"netns add {side}")
        sysctls(side, SYSCTLS)
        ip(f"-n {side} link set lo up")
        ip(f"link add {side} type veth peer name {device} netns {side}")
        ip(f"link set {side} master bridge up")
        ip(f"link set {side} type bridge_slave group_fwd_mask {FORWARD_PORT}")
        ip(f"-n {side} address add {ADDRESS[side]}/24 dev {device}")
        ip(f"-n {side} address add {ADDRESS6[side]}/64 dev {device}")
        ip(f"-n {side} link set {device} up")
    ip("link set bridge up")
    for device in more_devices(more):
        ip(f"-n {NEAR} link add {device} type veth peer name {device}-peer")


def near_link_is_up():
    shown = subprocess.run(["ip", "-n", NEAR, "-o", "link", "show", DEVICE[NEAR]],
                           capture_output=True, text=True, check=True).stdout
    return "UP" in shown.split("<")[1].split(">")[0].split(",")
