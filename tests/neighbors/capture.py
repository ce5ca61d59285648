"""The frames that leave the devices of a namespace, as the kernel hands them to the devices."""
import ctypes
import socket
import struct

from network import inside

ETH_P_ALL = 3
SO_ATTACH_FILTER, SO_RCVBUFFORCE, SO_TIMESTAMPNS = 26, 33, 35
SOL_PACKET, PACKET_STATISTICS = 263, 6
LONGEST = 2048
BUFFER = 16 << 20
# ld #pkttype; jeq #PACKET_OUTGOING, 0, 1; ret #LONGEST; ret #0
ONLY_OUTGOING = [(0x28, 0, 0, 0xFFFFF004), (0x15, 0, 1, socket.PACKET_OUTGOING), (6, 0, 0, LONGEST), (6, 0, 0, 0)]


class Capture:
    def __init__(self, namespace):
        self._socket = inside(namespace, self._open)

    @staticmethod
    def _open():
        one = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        program = ctypes.create_string_buffer(b"".join(struct.pack("=HBBI", *step) for step in ONLY_OUTGOING))
        one.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER,
                       struct.pack("HP", len(ONLY_OUTGOING), ctypes.addressof(program)))
        one.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, BUFFER)
        one.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        one.setblocking(False)
        return one

    def fileno(self):
        return self._socket.fileno()

    def frames(self):
        """Those that have left: (when by time.time(), device, frame)."""
        while True:
            try:
                frame, extra, _, address = self._socket.recvmsg(LONGEST, 64)
            except BlockingIOError:
                return
            if address[2] == socket.PACKET_OUTGOING:  # others came before the filter
                seconds, nanoseconds = struct.unpack("qq", extra[0][2])
                yield seconds + nanoseconds / 1e9, address[0], frame

    def lost(self):
        """How many frames were lost since this was asked last."""
        return struct.unpack("II", self._socket.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))[1]
