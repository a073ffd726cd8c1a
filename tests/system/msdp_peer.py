"""A peer inside the test that speaks MSDP: it takes the router's connection whenever it comes, and sends what it is told."""

import socket
import struct

ENTRIES = 100  # of a message


def announcements(originator, pairs, kind=1):
    """Source active messages about (source, group) pairs, as many as that takes."""
    messages = []
    for at in range(0, len(pairs), ENTRIES):
        some = pairs[at:at + ENTRIES]
        value = bytes([len(some)]) + socket.inet_aton(originator) + b"".join(
            bytes([0, 0, 0, 32]) + socket.inet_aton(group) + socket.inet_aton(source) for source, group in some)
        messages.append(struct.pack(">BH", kind, len(value) + 3) + value)
    return b"".join(messages)


class MsdpPeer:
    def __init__(self, host, address):
        with host.inside():
            self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind((address, 639))
        self.listener.listen(4)
        self.listener.setblocking(False)
        self.connection = None

    def send(self, message):
        """Whether there is a connection that takes it. A keepalive goes first, and what came is thrown away."""
        try:
            self.connection, _ = self.listener.accept()
            self.connection.setblocking(False)
        except BlockingIOError:
            pass
        if self.connection is None:
            return False
        try:
            while self.connection.recv(65536):
                pass
            self.connection.close()
            self.connection = None
            return False
        except BlockingIOError:
            pass
        except OSError:
            self.connection = None
            return False
        try:
            self.connection.settimeout(20)
            self.connection.sendall(b"\x04\x00\x03" + message)
            self.connection.setblocking(False)
        except OSError:
            self.connection = None
        return self.connection is not None

    def close(self):
        self.listener.close()
        if self.connection is not None:
            self.connection.close()
