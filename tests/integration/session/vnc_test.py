#!/usr/bin/env python3
"""Xkor seen through VNC and served in a browser's protocol."""
import re
import socket
import subprocess
import unittest
import urllib.request

import rfb
from xkor import BIN, TestCase, free_port, listens, processes_naming, wait_until

INSECURE = ("-vnc-insecure",)


class Vnc(TestCase):
    def password_file(self, password="secret12"):
        path = self.folder / "password"
        path.write_bytes(subprocess.run(["vncpasswd", "-f"], input=password.encode() + b"\n",
                                        capture_output=True, check=True, timeout=20).stdout)
        return path

    def test_picture_is_what_the_screen_shows(self):
        port = free_port()
        server = self.xkor("-vnc", port, *INSECURE, "-geometry", "700x500")
        self.assertIn(f"with a VNC viewer: 127.0.0.1::{port}\n", server.complaints())
        client = rfb.Client(port)
        self.addCleanup(client.close)
        self.assertEqual((client.width, client.height), (700, 500))
        self.run_program("xsetroot", "-solid", "#c04080", environment=server.client_environment)
        client.picture()
        self.assertEqual([client.pixel(x, y) for x, y in ((0, 0), (699, 499), (90, 410))],
                         [0xC04080] * 3)

    def test_keyboard_and_pointer(self):
        port = free_port()
        server = self.xkor("-vnc", port, *INSECURE, "-geometry", "700x500")
        watcher = self.start("stdbuf", "-oL", "xev", "-geometry", "300x200+100+50",
                             environment=server.client_environment)
        self.assertTrue(wait_until(lambda: "VisibilityNotify" in watcher.written()),
                        watcher.complaints())
        client = rfb.Client(port)
        self.addCleanup(client.close)

        def seen(pattern):
            return wait_until(lambda: re.search(pattern, watcher.written(), re.S))

        client.pointer(150, 90, 0)
        self.assertTrue(seen(r"MotionNotify event.*root:\(150,90\)"), watcher.written())
        client.pointer(160, 95, 1)
        self.assertTrue(seen(r"ButtonPress event.*root:\(160,95\).*button 1,"))
        client.pointer(160, 95, 0)
        self.assertTrue(seen(r"ButtonRelease event.*button 1,"))
        # From another keyboard's layout too: the viewer sends characters, not keys.
        for keysym, name in ((ord("k"), "k"), (ord("Q"), "Q"), (0xFF0D, "Return"),
                             (0xFC, "udiaeresis")):
            client.key(keysym, True)
            self.assertTrue(seen(rf"KeyPress event.*keysym 0x{keysym:x}, {name}\)"), name)
            client.key(keysym, False)
            self.assertTrue(seen(rf"KeyRelease event.*keysym 0x{keysym:x}, {name}\)"), name)

    def test_viewer_resizes_the_desktop(self):
        port = free_port()
        server = self.xkor("-vnc", port, *INSECURE, "-geometry", "700x500")
        client = rfb.Client(port)
        self.addCleanup(client.close)

        def screen():
            text = self.run_program("xrandr", environment=server.client_environment).stdout
            size = re.search(r"current (\d+) x (\d+), maximum 7680 x 4320", text)
            output = re.search(r"^DUMMY0 connected primary (\d+)x(\d+)\+0\+0", text, re.M)
            return [tuple(map(int, found.groups())) if found else None for found in (size, output)]

        client.picture()
        for size in ((1000, 600), (1921, 1081), (7680, 4320), (13, 7), (1024, 768)):
            self.assertEqual(client.resize(*size), 0, size)
            self.assertEqual((client.width, client.height), size)
            # The one monitor covers the screen: window managers go by it.
            self.assertEqual(screen(), [size, size])
        # What is too large is refused, and nothing changes; the viewer goes on being served.
        for size in ((7681, 4320), (7680, 4321), (8000, 600), (600, 5000), (16384, 16384),
                     (32768, 1), (65535, 65535)):
            self.assertIn(client.resize(*size), (1, 3), size)  # prohibited, or invalid
            self.assertEqual(screen(), [(1024, 768)] * 2, size)
        client.picture()
        self.assertEqual(client.pixel(1023, 767), 0)
        self.assertEqual(client.resize(1000, 600), 0)
        self.assertIsNone(server.poll())

    def test_xrandr_is_followed(self):
        port = free_port()
        server = self.xkor("-vnc", port, *INSECURE, "-geometry", "700x500")
        for mode in ("1280x1024", "3840x2160", "7680x4320", "640x480"):
            result = self.run_program("xrandr", "--output", "DUMMY0", "--mode", mode,
                                      environment=server.client_environment)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            client = rfb.Client(port)
            self.addCleanup(client.close)
            self.assertEqual(f"{client.width}x{client.height}", mode)

    def test_loopback_only_unless_told(self):
        port, page = free_port(), free_port()
        self.xkor("-vnc", port, "-web", page, *INSECURE)
        sockets = self.run_program("ss", "-ltnH", f"sport = :{port} or sport = :{page}").stdout
        self.assertEqual(sorted(line.split()[3] for line in sockets.splitlines()),
                         sorted([f"127.0.0.1:{port}", f"[::1]:{port}", f"127.0.0.1:{page}"]))
        other, web = free_port(), free_port()
        server = self.xkor("-vnc", other, "-vnc-listen", "all", "-web", web, "-web-listen", "all",
                           "-vnc-password", self.password_file())
        sockets = self.run_program("ss", "-ltnH", f"sport = :{other} or sport = :{web}").stdout
        self.assertTrue(any(line.split()[3] in (f"0.0.0.0:{other}", f"*:{other}")
                            for line in sockets.splitlines()), sockets)
        self.assertTrue(any(line.split()[3] in (f"0.0.0.0:{web}", f"*:{web}")
                            for line in sockets.splitlines()), sockets)
        self.assertIsNone(server.poll())

    def test_password(self):
        port = free_port()
        path = self.password_file()
        server = self.xkor("-vnc", port, "-vnc-password", path, "-geometry", "640x480")
        with self.assertRaisesRegex(rfb.RfbError, r"security types \[(19, 2|2, 19|2)\]"):
            rfb.Client(port, security=rfb.NONE)
        with self.assertRaisesRegex(rfb.RfbError, "Authentication fail"):
            rfb.Client(port, security=rfb.VNC_AUTH)
        # Debian's viewer, on a screen of its own, gets in with the password.
        screen = self.xkor("-geometry", "800x600")
        viewer = self.start("vncviewer", "-passwd", path, "-RemoteResize=0", f"127.0.0.1::{port}",
                            environment=screen.client_environment)
        self.assertTrue(wait_until(lambda: "accepted" in server.complaints()))

        # Its window opens when the password was right; before that it would ask for one.
        tree = wait_until(lambda: re.search(
            r"TigerVNC", self.run_program("xwininfo", "-root", "-tree",
                                          environment=screen.client_environment).stdout))
        self.assertTrue(tree, viewer.complaints())

    def test_ports_follow_the_display_number(self):
        number = 4000 + free_port() % 1000
        server = self.start(BIN / "Xkor", f":{number}", "-vnc", "-web", *INSECURE)
        self.assertTrue(wait_until(lambda: "in a browser" in server.complaints()),
                        server.complaints())
        self.assertIn(f"viewer: 127.0.0.1::{5900 + number}\n", server.complaints())
        self.assertIn(f"http://127.0.0.1:{6080 + number}/vnc.html", server.complaints())
        rfb.Client(5900 + number).close()

    def test_ports_are_looked_for_with_a_number_that_is_not_given(self):
        first = self.xkor("-web", *INSECURE)
        second = self.xkor("-web", *INSECURE)
        pages = [re.search(r"http://\S+", server.complaints()).group()
                 for server in (first, second)]
        self.assertNotEqual(pages[0], pages[1])
        for page in pages:
            with urllib.request.urlopen(page, timeout=20) as answer:
                self.assertIn(b"noVNC", answer.read())


class Web(TestCase):
    def test_comes_and_goes_with_the_server(self):
        port, web = free_port(), free_port()
        server = self.xkor("-vnc", port, "-web", web, *INSECURE)
        # Ready when it says so, not some time later.
        with urllib.request.urlopen(f"http://127.0.0.1:{web}/vnc.html", timeout=20) as answer:
            self.assertEqual(answer.status, 200)
        server.terminate()
        self.assertEqual(server.wait(20), 0)
        self.assertFalse(listens(web))
        self.assertFalse(listens(port))
        self.assertEqual(processes_naming(str(self.folder)), [])

    def test_port_that_another_takes_in_between_is_not_announced(self):
        """Somebody answers there, but with another session's page."""
        tools = self.folder / "tools"
        tools.mkdir()
        taken = self.folder / "taken"
        slow = tools / "websockify"
        slow.write_text(f"#!/bin/sh\ntouch {self.folder}/begun\n"
                        f"while ! [ -e {taken} ]; do sleep 0.05; done\n"
                        'sleep 0.5\nexec /usr/bin/websockify "$@"\n')
        slow.chmod(0o755)
        web = free_port()
        number = 3000 + free_port() % 1000
        server = self.start(BIN / "Xkor", f":{number}", "-web", web, *INSECURE,
                            environment={"PATH": f"{tools}:/usr/bin:/bin"})
        self.assertTrue(wait_until((self.folder / "begun").exists), server.complaints())
        with socket.create_server(("127.0.0.1", web)):
            taken.touch()
            wait_until(lambda: server.poll() is not None, 30)
        self.assertRegex(server.complaints(),
                         r"\AXkor: the web server did not start: [^\n]*ddress already in use\n\Z")
        self.assertEqual(server.poll(), 1)
        self.assertEqual(processes_naming(str(self.folder)), [])

    def test_is_gone_when_the_launcher_is_killed(self):
        web = free_port()
        server = self.xkor("-web", web, *INSECURE)
        server.kill()
        server.wait(20)
        self.assertTrue(wait_until(lambda: not processes_naming(str(self.folder))),
                        processes_naming(str(self.folder)))
        self.assertFalse(listens(web))
        self.assertEqual(list((self.folder / "runtime").iterdir()), [])

    def test_session_goes_on_when_the_web_server_is_lost(self):
        port, web = free_port(), free_port()
        server = self.xkor("-vnc", port, "-web", web, *INSECURE)
        found = []

        def web_server():
            # For each connection there is a second.
            found[:] = [line for line in processes_naming(str(self.folder))
                        if "websockify" in line]
            return len(found) == 1
        self.assertTrue(wait_until(web_server), found)
        subprocess.run(["kill", "-KILL", found[0].split(":")[0]], check=True, timeout=10)
        self.assertTrue(wait_until(
            lambda: "browsers no longer reach display " + server.display in server.complaints()),
            server.complaints())
        rfb.Client(port).close()


class BadInput(TestCase):
    def refused(self, status, parts, *arguments, environment=None):
        with self.subTest(arguments=arguments):
            result = self.run_program(BIN / "Xkor", f":{3000 + free_port() % 1000}", *arguments,
                                      environment=environment)
            self.expect_failure(result, status, *parts)

    def test_wrong_use(self):
        for arguments, part in (
                (("-vnc",), "wants a password"),
                (("-web",), "wants a password"),
                (("-vnc", "0", *INSECURE), "is no port"),
                (("-vnc", "65536", *INSECURE), "is no port"),
                (("-web", "8o80", *INSECURE), "is no port"),
                (("-vnc", "-vnc-insecure", "-vnc-password", "/x"), "exclude each other"),
                (("-vnc", "-vnc-listen", "all", *INSECURE), "for loopback only"),
                (("-web", "-web-listen", "192.0.2.1", *INSECURE), "for loopback only"),
                (("-vnc", "-vnc-listen", "localhost", *INSECURE), "is no address"),
                (("-vnc", "-vnc-listen"), "wants an address"),
                (("-vnc", "-web-listen", "127.0.0.1", *INSECURE), "goes with -web"),
                (("-vnc-insecure",), "go with -vnc or -web"),
                (("-vnc-password", "/x"), "go with -vnc or -web"),
                (("-vnc", "-vnc-password", 'a"b'), "quotation mark"),
                (("-vnc", "-vnc-password", ""), "is empty"),
                (("-vnc", "6001", "-web", "6001", *INSECURE), "same port"),
        ):
            self.refused(2, [part], *arguments)
        result = self.run_program(BIN / "Xkor", ":59535", "-web", *INSECURE)
        self.expect_failure(result, 2, "-web wants a PORT")

    def test_port_taken(self):
        port = free_port()
        first = self.xkor("-vnc", port, *INSECURE)
        self.addCleanup(first.wait, 20)
        self.addCleanup(first.terminate)
        for option in ("-vnc", "-web"):
            result = self.run_program(BIN / "Xkor", f":{3000 + free_port() % 1000}", option, port,
                                      *INSECURE)
            self.assertEqual(result.returncode, 1)
            self.assertRegex(result.stderr,
                             rf"\AXkor: port {port} for {option} is in use: [^\n]+\n\Z")
        self.assertTrue(listens(port), "the first one is unharmed")

    def test_password_file(self):
        missing = self.folder / "missing"
        self.refused(1, ["cannot be read: No such file"], "-vnc", "-vnc-password", missing)
        self.refused(1, ["cannot be read"], "-vnc", "-vnc-password", self.folder)
        short = self.folder / "short"
        short.write_bytes(b"1234567")
        self.refused(1, ["holds no password", "vncpasswd"], "-vnc", "-vnc-password", short)

    def test_missing_packages(self):
        modules = self.folder / "modules"
        (modules / "drivers").mkdir(parents=True)
        (modules / "drivers/dummy_drv.so").symlink_to("/usr/lib/xorg/modules/drivers/dummy_drv.so")
        self.refused(1, ["install the package tigervnc-xorg-extension"], "-vnc", *INSECURE,
                     "-modulepath", modules)
        self.refused(1, ["install the package novnc"], "-web", *INSECURE,
                     environment={"KOR_NOVNC": "/no/such/folder"})
        self.refused(1, ["install the package websockify"], "-web", *INSECURE,
                     environment={"PATH": "/no/such/folder"})

    def test_web_server_that_does_not_start(self):
        tools = self.folder / "tools"
        tools.mkdir()
        broken = tools / "websockify"
        broken.write_text("#!/bin/sh\necho It is broken. >&2\nexit 3\n")
        broken.chmod(0o755)
        self.refused(1, ["the web server did not start: It is broken."], "-web", *INSECURE,
                     environment={"PATH": f"{tools}:/usr/bin:/bin"})

    def test_address_of_another_machine(self):
        path = self.folder / "password"
        path.write_bytes(bytes(8))
        self.refused(1, ["at 192.0.2.1 cannot be used: Cannot assign"], "-vnc", "-vnc-listen",
                     "192.0.2.1", "-vnc-password", path)


if __name__ == "__main__":
    unittest.main()
