"""The network of the container: its devices, and what arrives at their far ends, which are outside."""
import collections
import ctypes
import os
import socket
import struct
import subprocess
import threading
import time

RTMGRP_LINK = 1
RTM_NEWLINK = 16
IFLA_IFNAME = 3
IFF_UP = 1
CLONE_NEWNET = 0x40000000
ETH_P_ALL = 3

Frame = collections.namedtuple("Frame", "when device data")
Change = collections.namedtuple("Change", "when device up")


def ip(arguments):
    subprocess.run(["ip", *arguments.split()], check=True)


class Wire:
    """Records with the time what the far end of each device receives, and when a device is set up or down."""

    def __init__(self, namespace, devices):
        self.namespace = namespace
        ip(f"netns add {namespace}")
        ip(f"-n {namespace} link set lo up")
        ip("link set lo up")
        for device in devices:
            ip(f"link add far-{device} type veth peer name {device} netns {namespace}")
            ip(f"link set far-{device} up")
        self.frames = []
        self.changes = []
        packets = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        links = self._links()
        links.bind((0, RTMGRP_LINK))
        threading.Thread(target=self._receive, args=(packets,), daemon=True).start()
        threading.Thread(target=self._follow, args=(links,), daemon=True).start()

    def _links(self):
        """A socket of rtnetlink in the namespace of the container."""
        libc = ctypes.CDLL(None, use_errno=True)
        own = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
        other = os.open(f"/run/netns/{self.namespace}", os.O_RDONLY)
        try:
            if libc.setns(other, CLONE_NEWNET) != 0:
                raise OSError(ctypes.get_errno(), "setns")
            return socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
        finally:
            libc.setns(own, CLONE_NEWNET)
            os.close(own)
            os.close(other)

    def _receive(self, packets):
        while True:
            data, address = packets.recvfrom(65536)
            if address[0].startswith("far-") and address[2] != socket.PACKET_OUTGOING:
                self.frames.append(Frame(time.monotonic(), address[0][4:], data))

    def _follow(self, links):
        while True:
            data = links.recv(65536)
            while len(data) >= 32:
                length, kind = struct.unpack_from("=IH", data)
                name = interface_name(data[32:length])
                if kind == RTM_NEWLINK:
                    flags = struct.unpack_from("=I", data, 24)[0]
                    self.changes.append(Change(time.monotonic(), name, bool(flags & IFF_UP)))
                data = data[(length + 3) & ~3:]

    @staticmethod
    def now():
        """The time, as it is recorded."""
        return time.monotonic()

    def received(self, device, content, since=0.0):
        """The frames with that content, of that device."""
        return [frame for frame in self.frames
                if frame.device == device and frame.when >= since and content in frame.data]

    def went_down(self, device, since):
        """When the device was set down; None if it was not."""
        return next((change.when for change in self.changes
                     if change.device == device and change.when >= since and not change.up), None)

    def is_up(self, device):
        """Whether the device is set up now."""
        shown = subprocess.run(["ip", "-n", self.namespace, "-o", "link", "show", device],
                               capture_output=True, text=True, check=True).stdout
        return "UP" in shown.split("<")[1].split(">")[0].split(",")


def interface_name(attributes):
    """The name in the attributes of a link."""
    while len(attributes) >= 4:
        length, kind = struct.unpack_from("=HH", attributes)
        if kind == IFLA_IFNAME:
            return attributes[4:length].rstrip(b"\0").decode()
        attributes = attributes[(length + 3) & ~3 or 4:]
    return ""
