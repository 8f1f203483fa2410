"""What the tests of Xkor and korsession in Python share: started programs, bounded waits."""
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

BIN = pathlib.Path(os.environ["KOR_BIN_DIR"])


def wait_until(predicate, timeout=20):
    """The predicate's last answer."""
    end = time.monotonic() + timeout
    while not (answer := predicate()) and time.monotonic() < end:
        time.sleep(0.05)
    return answer


def listens(port, host="127.0.0.1"):
    try:
        socket.create_connection((host, port), timeout=2).close()
        return True
    except OSError:
        return False


def free_port():
    """A port that nobody uses; far from those that programs pick by themselves."""
    while True:
        port = 10000 + int.from_bytes(os.urandom(2), "big") % 20000
        with socket.socket() as end:
            try:
                end.bind(("127.0.0.1", port))
                return port
            except OSError:
                pass


def processes_naming(text):
    """Command lines of running processes that have the text in their environment or arguments."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdigit() or int(entry.name) == os.getpid():
            continue
        try:
            arguments = (entry / "cmdline").read_bytes()
            if arguments and text.encode() in (entry / "environ").read_bytes() + arguments:
                found.append(f"{entry.name}: {arguments.decode(errors='replace')}")
        except OSError:
            pass
    return found


def over_tmp(folder):
    """Shell text for a mount namespace: puts the folder over /tmp. What is tested stays where it is,
    also where that is below /tmp."""
    build = BIN.parent.resolve()
    if not build.is_relative_to("/tmp"):
        return f"mount --rbind {folder} /tmp"
    return (f"mkdir {folder}/build && mount --rbind {build} {folder}/build && "
            f"mount --rbind {folder} /tmp && mkdir -p {build} && "
            f"mount --rbind /tmp/build {build}")


class TestCase(unittest.TestCase):
    """Gives each test a folder of its own; everything that it starts names that folder in its
    environment, so that what is left over can be found."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kor-session-test-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        for name in ("state", "runtime", "home"):
            (self.folder / name).mkdir(mode=0o700)
        self.environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": str(self.folder / "home"),
            "XDG_STATE_HOME": str(self.folder / "state"),
            "XDG_RUNTIME_DIR": str(self.folder / "runtime"),
            "XDG_CONFIG_HOME": str(self.folder / "home"),
            "TMPDIR": str(self.folder),
            "LANG": "C.UTF-8",
        }
        self.addCleanup(self.kill_rest)

    def kill_rest(self):
        """Last resort after a failed test."""
        for line in processes_naming(str(self.folder)):
            try:
                os.kill(int(line.split(":")[0]), signal.SIGKILL)
            except ProcessLookupError:
                pass

    def environment_with(self, changes):
        environment = self.environment | (changes or {})
        return {name: value for name, value in environment.items() if value is not None}

    def run_program(self, *arguments, timeout=60, environment=None):
        return subprocess.run([str(argument) for argument in arguments], capture_output=True,
                              text=True, timeout=timeout, stdin=subprocess.DEVNULL,
                              cwd=self.folder, env=self.environment_with(environment))

    def start(self, *arguments, environment=None, **further):
        """Starts a program whose output goes to files; it is ended with the test."""
        errors = tempfile.TemporaryFile(dir=self.folder, mode="w+")
        output = tempfile.TemporaryFile(dir=self.folder, mode="w+")
        process = subprocess.Popen([str(argument) for argument in arguments],
                                   stdin=subprocess.DEVNULL, stdout=output, stderr=errors,
                                   cwd=self.folder, env=self.environment_with(environment),
                                   **further)
        process.written = lambda: pathlib.Path(f"/proc/self/fd/{output.fileno()}").read_text()
        process.complaints = lambda: pathlib.Path(f"/proc/self/fd/{errors.fileno()}").read_text()

        def end():
            if process.poll() is None:
                process.terminate()
                try:
                    process.wait(20)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait(20)
            output.close()
            errors.close()
        self.addCleanup(end)
        return process

    def xkor(self, *arguments, environment=None):
        """A running Xkor; its attribute display says where."""
        for _ in range(5):
            reading, writing = os.pipe()
            server = self.start(BIN / "Xkor", "-displayfd", str(writing), *arguments,
                                environment=environment, pass_fds=[writing])
            os.close(writing)
            with os.fdopen(reading) as pipe:
                line = pipe.readline()  # ends when the server has ended
            # A port that was free can have been taken by another test's server in between.
            if line or "ddress already in use" not in server.complaints():
                break
        self.assertRegex(line, r"^\d+\n$", server.complaints())
        server.display = ":" + line.strip()
        found = re.search(r"XAUTHORITY=(\S+)", server.complaints())
        server.client_environment = {"DISPLAY": server.display}
        if found:
            server.client_environment["XAUTHORITY"] = found.group(1)
        return server

    def expect_failure(self, result, status, *parts, program="Xkor"):
        """One line for the user, and nothing left."""
        self.assertEqual(result.returncode, status, result.stderr)
        self.assertRegex(result.stderr, rf"\A{program}: [^\n]+\n\Z")
        for part in parts:
            self.assertIn(part, result.stderr)
        self.assertEqual(processes_naming(str(self.folder)), [])
