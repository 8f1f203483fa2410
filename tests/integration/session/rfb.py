"""A small VNC client: as much of the protocol as the tests need, every wait bounded."""
import socket
import struct

NONE, VNC_AUTH = 1, 2
RAW, DESKTOP_SIZE, EXTENDED_DESKTOP_SIZE = 0, -223, -308


class RfbError(Exception):
    pass


class Client:
    """A connection past the handshake of security type None."""

    def __init__(self, port, host="127.0.0.1", timeout=20, security=NONE):
        self.socket = socket.create_connection((host, port), timeout=timeout)
        self.socket.settimeout(timeout)
        try:
            self.handshake(security)
        except Exception:
            self.close()
            raise

    def handshake(self, security):
        version = self.read(12)
        if not version.startswith(b"RFB 003.00"):
            raise RfbError(f"no VNC server: {version!r}")
        self.socket.sendall(b"RFB 003.008\n")
        count = self.read(1)[0]
        if count == 0:
            raise RfbError(self.reason())
        self.security_types = list(self.read(count))
        self.width = self.height = None
        self.pixels = {}  # rows of four bytes a pixel
        self.asked = self.painted = False
        self.layout = []
        self.resize_status = None
        if security not in self.security_types:
            raise RfbError(f"security types {self.security_types}")
        self.socket.sendall(bytes([security]))
        if security == VNC_AUTH:
            # No one is going to guess the answer to a random challenge.
            self.read(16)
            self.socket.sendall(bytes(16))
        (result,) = struct.unpack(">I", self.read(4))
        if result != 0:
            raise RfbError(self.reason())
        self.socket.sendall(b"\x01")  # others may stay connected
        self.width, self.height = struct.unpack(">HH", self.read(4))
        self.read(16)
        (length,) = struct.unpack(">I", self.read(4))
        self.name = self.read(length).decode()
        # 32 bits a pixel, true colour, blue in the first byte
        self.socket.sendall(struct.pack(">B3xBBBBHHHBBB3x", 0, 32, 24, 0, 1, 255, 255, 255, 16, 8, 0))
        encodings = (RAW, DESKTOP_SIZE, EXTENDED_DESKTOP_SIZE)
        self.socket.sendall(struct.pack(f">BxH{len(encodings)}i", 2, len(encodings), *encodings))

    def close(self):
        self.socket.close()

    def read(self, size):
        data = bytearray()
        while len(data) < size:
            part = self.socket.recv(size - len(data))
            if not part:
                raise RfbError("the server closed the connection")
            data += part
        return bytes(data)

    def reason(self):
        (length,) = struct.unpack(">I", self.read(4))
        return self.read(length).decode(errors="replace")

    def request_update(self, incremental):
        self.socket.sendall(struct.pack(">BBHHHH", 3, incremental, 0, 0, self.width, self.height))

    def receive(self):
        """Takes in one message of the server; True when it was an update of the picture."""
        kind = self.read(1)[0]
        if kind == 1:  # colour map
            _, count = struct.unpack(">xHH", self.read(5))
            self.read(6 * count)
        elif kind == 3:  # clipboard
            (length,) = struct.unpack(">3xi", self.read(7))
            self.read(abs(length))
        elif kind == 0:
            (count,) = struct.unpack(">xH", self.read(3))
            for _ in range(count):
                self.rectangle()
            return True
        elif kind != 2:  # bell
            raise RfbError(f"unexpected message {kind}")
        return False

    def rectangle(self):
        x, y, width, height, encoding = struct.unpack(">HHHHi", self.read(12))
        if encoding == RAW:
            self.painted = True
            data = self.read(width * height * 4)
            for row in range(height):
                line = self.pixels.setdefault(y + row, bytearray(self.width * 4))
                line[x * 4:(x + width) * 4] = data[row * width * 4:(row + 1) * width * 4]
        elif encoding == DESKTOP_SIZE:
            self.take_size(width, height)
        elif encoding == EXTENDED_DESKTOP_SIZE:
            (screens,) = struct.unpack(">B3x", self.read(4))
            self.layout = [struct.unpack(">IHHHHI", self.read(16)) for _ in range(screens)]
            if x == 1:  # an answer to this client's own request; y says how it went
                self.resize_status = y
            if y == 0:
                self.take_size(width, height)
        else:
            raise RfbError(f"unexpected encoding {encoding}")

    def take_size(self, width, height):
        if (width, height) != (self.width, self.height):
            self.width, self.height = width, height
            self.pixels = {}

    def picture(self):
        """Brings self.pixels up to date: the first time all of the screen, then what changes; waits
        for something to change."""
        # The server answers the first request with the desktop's size alone.
        self.request_update(incremental=int(self.asked))
        self.asked, self.painted = True, False
        while not self.painted:
            if self.receive() and not self.painted:
                self.request_update(incremental=1)

    def pixel(self, x, y):
        """The colour as 0xRRGGBB, out of what was received last."""
        blue, green, red = self.pixels[y][x * 4:x * 4 + 3]
        return red << 16 | green << 8 | blue

    def key(self, keysym, down):
        self.socket.sendall(struct.pack(">BBxxI", 4, down, keysym))

    def pointer(self, x, y, buttons):
        self.socket.sendall(struct.pack(">BBHH", 5, buttons, x, y))

    def resize(self, width, height):
        """Asks for another size of the desktop and returns the server's verdict: 0 for done."""
        self.resize_status = None
        screen = self.layout[0][0] if self.layout else 0
        self.socket.sendall(struct.pack(">BxHHBx", 251, width, height, 1) +
                            struct.pack(">IHHHHI", screen, 0, 0, width, height, 0))
        # The verdict comes with the answer to a request.
        self.request_update(incremental=1)
        while self.resize_status is None:
            if self.receive() and self.resize_status is None:
                self.request_update(incremental=1)
        return self.resize_status
