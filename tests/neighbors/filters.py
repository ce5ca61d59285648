"""The filters that programs have attached to near's device, as the kernel tells."""
import ctypes
import os
import platform
import socket
import struct
import subprocess

from network import DEVICE, NEAR, inside

SYS_BPF = {"x86_64": 321, "aarch64": 280}
BPF_PROG_QUERY = 16
BPF_TCX_EGRESS = 47
EINVAL = 22


def by_tcx():
    """How many filters there are at the egress by tcx. Older kernels have none."""
    return inside(NEAR, _tcx)


def by_clsact():
    """How many there are in a clsact."""
    shown = subprocess.run(["tc", "-n", NEAR, "filter", "show", "dev", DEVICE[NEAR], "egress"],
                           capture_output=True, text=True, check=True).stdout
    return shown.count(" handle ")


def _tcx():
    libc = ctypes.CDLL(None, use_errno=True)
    # target_ifindex, attach_type, query_flags, attach_flags, prog_ids, prog_cnt, and what is not asked for
    query = ctypes.create_string_buffer(
        struct.pack("=IIIIQI", socket.if_nametoindex(DEVICE[NEAR]), BPF_TCX_EGRESS, 0, 0, 0, 0), 128)
    if libc.syscall(SYS_BPF[platform.machine()], BPF_PROG_QUERY, query, 64) != 0:
        error = ctypes.get_errno()
        if error == EINVAL:
            return 0
        raise OSError(error, os.strerror(error))
    return struct.unpack_from("=I", query, 24)[0]
