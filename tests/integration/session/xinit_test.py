#!/usr/bin/env python3
"""Xkor started by those who start X servers: xinit, startx, display managers."""
import os
import re
import signal
import unittest

from xkor import BIN, TestCase, free_port, over_tmp, processes_naming, wait_until

PROGRAM = """#!/bin/sh
echo "display $DISPLAY"
xdpyinfo | grep -e dimensions: -e 'depth of root' -e resolution: -e KOR-V1
exit 7
"""


class Starters(TestCase):
    def setUp(self):
        super().setUp()
        self.number = 2000 + free_port() % 1000
        self.program = self.folder / "program"
        self.program.write_text(PROGRAM)
        self.program.chmod(0o755)

    def expect_session(self, result):
        self.assertIn(f"display :{self.number}\n", result.stdout, result.stderr)
        self.assertIn("KOR-V1\n", result.stdout, result.stderr)
        self.assertEqual(processes_naming(str(self.folder)), [])
        self.assertFalse(os.path.exists(f"/tmp/.X{self.number}-lock"))
        self.assertFalse(os.path.exists(f"/tmp/.X11-unix/X{self.number}"))

    def test_xinit(self):
        result = self.run_program("xinit", self.program, "--", BIN / "Xkor", f":{self.number}")
        self.expect_session(result)

    def test_xinit_with_what_people_give_a_server(self):
        result = self.run_program("xinit", self.program, "--", BIN / "Xkor", f":{self.number}",
                                  "-geometry", "1500x900", "-depth", "24", "-dpi", "120",
                                  "-nolisten", "tcp")
        self.expect_session(result)
        self.assertRegex(result.stdout, r"dimensions: +1500x900 pixels")
        self.assertRegex(result.stdout, r"resolution: +120x120 dots per inch")
        self.assertRegex(result.stdout, r"depth of root window: +24 planes")

    def test_startx(self):
        # It looks for a server only behind a path, makes the cookies itself, and may name a virtual
        # terminal.
        result = self.run_program("startx", self.program, "--", BIN / "Xkor", f":{self.number}",
                                  "vt7", "-keeptty")
        self.expect_session(result)

    def server_file(self):
        """The file in which a user names his server; both starters look for it in his home."""
        file = self.folder / "home/.xserverrc"
        file.write_text('#!/bin/sh\nexec Xkor -geometry 900x700 "$@"\n')
        file.chmod(0o755)
        return {"PATH": f"{BIN}:{self.environment['PATH']}"}

    def test_xinit_with_a_server_file(self):
        environment = self.server_file()
        result = self.run_program("xinit", self.program, "--", f":{self.number}",
                                  environment=environment)
        self.expect_session(result)
        self.assertRegex(result.stdout, r"dimensions: +900x700 pixels")

    def test_startx_with_a_server_file(self):
        # It looks at the file only when nothing is said of the server, and takes the first number
        # that looks free, which another server could take as well: it gets a /tmp of its own, and
        # a network, since sockets of displays have names there.
        self.server_file()
        isolation = ["unshare", "--mount", "--net"]
        isolation += [] if os.geteuid() == 0 else ["--map-root-user"]
        result = self.run_program(
            *isolation, "sh", "-c", f"{over_tmp(self.folder)} && startx /tmp/program",
            environment={"PATH": f"{BIN}:{self.environment['PATH']}", "HOME": "/tmp/home",
                         "XDG_STATE_HOME": "/tmp/state", "XDG_RUNTIME_DIR": "/tmp/runtime",
                         "XDG_CONFIG_HOME": "/tmp/home", "TMPDIR": "/tmp",
                         "KOR_TEST_FOLDER": str(self.folder)})
        self.assertIn("display :0\n", result.stdout, result.stderr)
        self.assertIn("KOR-V1\n", result.stdout, result.stderr)
        self.assertRegex(result.stdout, r"dimensions: +900x700 pixels")
        self.assertEqual(processes_naming(str(self.folder)), [])

    def test_display_manager(self):
        authority = self.folder / "authority"
        self.run_program("xauth", "-f", authority, "add", f":{self.number}", ".", "00" * 16)
        ready = []
        former = signal.signal(signal.SIGUSR1, lambda *_: ready.append(True))
        self.addCleanup(signal.signal, signal.SIGUSR1, former)
        server = self.start(BIN / "Xkor", f":{self.number}", "-seat", "seat0", "-auth", authority,
                            "-nolisten", "tcp", "vt7", "-novtswitch", "-background", "none",
                            preexec_fn=lambda: signal.signal(signal.SIGUSR1, signal.SIG_IGN))
        self.assertTrue(wait_until(lambda: ready), server.complaints())
        result = self.run_program(self.program, environment={"DISPLAY": f":{self.number}",
                                                             "XAUTHORITY": str(authority)})
        self.assertEqual(result.returncode, 7)
        server.terminate()
        self.assertEqual(server.wait(20), 0)
        self.expect_session(result)
        self.assertTrue(authority.exists(), "the display manager's file is its own")

    def test_number_taken(self):
        first = self.start(BIN / "Xkor", f":{self.number}")
        self.assertTrue(wait_until(lambda: "to use this server" in first.complaints()))
        result = self.run_program("xinit", self.program, "--", BIN / "Xkor", f":{self.number}")
        self.assertNotEqual(result.returncode, 0)
        self.assertTrue(re.search(rf"^Xkor: display :{self.number} is in use", result.stderr, re.M),
                        result.stderr)
        self.assertIsNone(first.poll())


if __name__ == "__main__":
    unittest.main()
