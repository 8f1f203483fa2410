"""Chromium without a screen, driven through its debugging port; every wait bounded."""
import base64
import json
import os
import pathlib
import socket
import struct
import time
import urllib.request
import zlib

# The browser asks nobody for anything.
ARGUMENTS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--remote-debugging-port=0")


class WebSocket:
    """As much of RFC 6455 as a client needs that talks to a browser."""

    def __init__(self, host, port, path, timeout=30):
        self.socket = socket.create_connection((host, port), timeout=timeout)
        self.socket.settimeout(timeout)
        key = base64.b64encode(os.urandom(16)).decode()
        self.socket.sendall((f"GET {path} HTTP/1.1\r\nHost: {host}:{port}\r\n"
                             "Upgrade: websocket\r\nConnection: Upgrade\r\n"
                             f"Sec-WebSocket-Key: {key}\r\n"
                             "Sec-WebSocket-Version: 13\r\n\r\n").encode())
        self.rest = b""
        while b"\r\n\r\n" not in self.rest:
            self.rest += self.more()
        head, self.rest = self.rest.split(b"\r\n\r\n", 1)
        if b" 101 " not in head:
            raise ConnectionError(head.decode())

    def close(self):
        self.socket.close()

    def more(self):
        data = self.socket.recv(1 << 16)
        if not data:
            raise ConnectionError("closed")
        return data

    def read(self, size):
        while len(self.rest) < size:
            self.rest += self.more()
        data, self.rest = self.rest[:size], self.rest[size:]
        return data

    def send(self, text):
        data = text.encode()
        if len(data) < 126:
            head = struct.pack(">BB", 0x81, 0x80 | len(data))
        else:
            head = struct.pack(">BBH", 0x81, 0x80 | 126, len(data))
        mask = os.urandom(4)
        masked = bytes(byte ^ mask[i % 4] for i, byte in enumerate(data))
        self.socket.sendall(head + mask + masked)

    def receive(self):
        text = b""
        while True:
            first, second = self.read(2)
            size = second & 127
            if size == 126:
                (size,) = struct.unpack(">H", self.read(2))
            elif size == 127:
                (size,) = struct.unpack(">Q", self.read(8))
            text += self.read(size)
            if first & 0x80:
                return text.decode()


class Page:
    """The one page of a browser whose profile is in the folder."""

    def __init__(self, folder, timeout=60):
        end = time.monotonic() + timeout
        port_file = pathlib.Path(folder) / "DevToolsActivePort"
        while not (port_file.exists() and "\n" in port_file.read_text()):
            if time.monotonic() > end:
                raise TimeoutError("the browser does not start")
            time.sleep(0.1)
        port = int(port_file.read_text().split()[0])
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/json/list", timeout=20) as answer:
            page = next(page for page in json.load(answer) if page["type"] == "page")
        path = page["webSocketDebuggerUrl"].split("/", 3)[3]
        self.connection = WebSocket("127.0.0.1", port, "/" + path)
        self.count = 0

    def close(self):
        self.connection.close()

    def ask(self, method, **parameters):
        self.count += 1
        self.connection.send(json.dumps({"id": self.count, "method": method,
                                         "params": parameters}))
        while (answer := json.loads(self.connection.receive())).get("id") != self.count:
            pass
        return answer["result"]

    def picture(self, width, height, scale):
        """Rows of (red, green, blue) of the page, made smaller by scale."""
        clip = {"x": 0, "y": 0, "width": width, "height": height, "scale": scale}
        return png_rows(base64.b64decode(
            self.ask("Page.captureScreenshot", format="png", clip=clip)["data"]))

    def run(self, script):
        return self.ask("Runtime.evaluate", expression=script)["result"].get("value")


def png_rows(data):
    position, packed = 8, b""
    while position < len(data):
        length, kind = struct.unpack(">I4s", data[position:position + 8])
        body = data[position + 8:position + 8 + length]
        if kind == b"IHDR":
            width, _, depth, colours, _, _, interlace = struct.unpack(">IIBBBBB", body)
            if depth != 8 or colours not in (2, 6) or interlace:
                raise ValueError("not a kind of PNG that browsers write")
            size = 3 if colours == 2 else 4
        elif kind == b"IDAT":
            packed += body
        position += 12 + length
    raw, stride = zlib.decompress(packed), width * size
    rows, previous = [], bytearray(stride)
    for start in range(0, len(raw), stride + 1):
        kind, line = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        for i in range(stride):
            left = line[i - size] if i >= size else 0
            corner = previous[i - size] if i >= size else 0
            up = previous[i]
            if kind == 4:
                guess = left + up - corner
                predicted = min((left, up, corner), key=lambda value: abs(guess - value))
            else:
                predicted = (0, left, up, (left + up) // 2)[kind]
            line[i] = (line[i] + predicted) & 255
        rows.append([tuple(line[i:i + 3]) for i in range(0, stride, size)])
        previous = line
    return rows


def gears_in(rows):
    """How many points of each gear's colour there are."""
    counts = [0, 0, 0]
    for row in rows:
        for colour in row:
            strongest = max(range(3), key=lambda channel: colour[channel])
            if colour[strongest] > 100 and sum(colour) - colour[strongest] < colour[strongest] / 2:
                counts[strongest] += 1
    return counts
