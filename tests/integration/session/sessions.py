"""What the tests of whole sessions share: sessions that are started, and what is left of them."""
import os
import pathlib
import re

from xkor import BIN, TestCase, processes_naming

LINE = re.compile(r"session (:\d+): open (\S+) \(VNC viewer: 127\.0\.0\.\d::(\d+); "
                  r"(?:command: (.*); )?logs: (.*)\)\n")


def identity_of(path):
    """Tells a file from a later one of the same name: others take a number as soon as it is free."""
    try:
        status = os.stat(path)
        return status.st_ino, status.st_ctime_ns
    except FileNotFoundError:
        return None


class Started:
    def __init__(self, line):
        found = LINE.fullmatch(line)
        if not found:
            raise AssertionError(f"not what start says: {line!r}")
        self.display, self.page, port, _, logs = found.groups()
        self.port = int(port)
        self.logs = pathlib.Path(logs)
        self.number = self.display[1:]
        self.socket = identity_of(f"/tmp/.X11-unix/X{self.number}")


class SessionTest(TestCase):
    def setUp(self):
        super().setUp()
        self.sessions = self.folder / "sessions"
        self.environment["KOR_SESSION_DIR"] = str(self.sessions)
        # Runs before what is left over is killed.
        self.addCleanup(self.korsession, "stop", "--all")

    def korsession(self, *arguments, environment=None):
        return self.run_program(BIN / "korsession", *arguments, environment=environment,
                                timeout=120)

    def start_session(self, *arguments, environment=None):
        result = self.korsession("start", *arguments, environment=environment)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return Started(result.stdout)

    def stop_session(self, *arguments):
        result = self.korsession("stop", *arguments)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def remains(self, session):
        found = processes_naming(str(self.folder))
        found += [str(path) for path in self.sessions.iterdir()]
        if session.socket and identity_of(f"/tmp/.X11-unix/X{session.number}") == session.socket:
            found.append(f"/tmp/.X11-unix/X{session.number}")
        return found

    def keepers(self, session):
        """Process numbers of the outer and the inner one."""
        outer = int(next(self.sessions.iterdir()).joinpath("keeper").read_text())
        children = pathlib.Path(f"/proc/{outer}/task/{outer}/children").read_text().split()
        self.assertEqual(len(children), 1)
        return outer, int(children[0])
