"""Connections to a server that do nothing but be there."""
import socket
import struct


class Connections:
    """Takes all the clients that the server has left."""

    def __init__(self, server, authority, most):
        data = authority.read_bytes()
        cookie = data[-16:]
        name = b"MIT-MAGIC-COOKIE-1"
        hello = struct.pack("<BxHHHHxx", ord("l"), 11, 0, len(name), len(cookie))
        hello += name + b"\0" * (-len(name) % 4) + cookie
        self._sockets = []
        for _ in range(most + 4):
            one = socket.socket(socket.AF_UNIX)
            one.settimeout(5)
            try:
                one.connect(f"/tmp/.X11-unix/X{server.number}")
                one.sendall(hello)
                answer = one.recv(8)
            except OSError:
                one.close()
                break
            if answer[:1] != b"\x01":
                one.close()
                break
            self._sockets.append(one)

    def close(self):
        for one in self._sockets:
            one.close()
