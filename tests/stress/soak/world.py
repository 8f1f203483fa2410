"""X servers for one scenario, on display numbers that they pick themselves, and programs on them."""
import os
import pathlib
import secrets
import select
import shutil
import signal
import struct
import subprocess
import tempfile
import time

from . import machine

DIRECT, CLASSIC, GLVND = "direct", "classic", "glvnd"
# By rule a window's painter never frees its graphics context: one for each window that was painted.
PAINTERS_GCS = "GC of painters"
FORGET = ("LD_PRELOAD", "LD_LIBRARY_PATH", "LIBGL_ALWAYS_SOFTWARE", "__GLX_VENDOR_LIBRARY_NAME")


def authority(path):
    """An authority file that opens every server that is started with it."""
    name, cookie = b"MIT-MAGIC-COOKIE-1", secrets.token_bytes(16)
    entry = struct.pack(">H", 65535)  # any host
    for field in (b"", b"", name, cookie):
        entry += struct.pack(">H", len(field)) + field
    path.touch(mode=0o600)
    path.write_bytes(entry)


class Outcome:
    """How a program ended, and what it said on the way."""

    def __init__(self):
        self.pid = 0
        self.status = None       # exit status, or 128 plus the signal
        self.hung = False        # its time was over; it was killed
        self.stacks = ""         # then: of all its threads
        self.numbers = {}        # lines "NAME NUMBER"
        self.lines = []
        self.measures = {}       # by the name of the point
        self.errors = ""
        self.ended = 0           # monotonic time in ns
        self.seconds = 0.0

    def word(self):
        if self.hung:
            return "hangs"
        return f"status {self.status}"

    def last_words(self):
        lines = [line for line in self.errors.splitlines() if line.strip()]
        return " / ".join(lines[-3:])[:400]


class Server:
    def __init__(self, world, program, arguments):
        ends = os.pipe()
        command = [program, "-displayfd", str(ends[1]), "-auth", str(world.authority), *arguments]
        self._errors = open(world.folder / f"server-{len(world.servers)}.log", "w+b")
        self.process = subprocess.Popen(
            command, pass_fds=[ends[1]], stdin=subprocess.DEVNULL, stdout=self._errors,
            stderr=self._errors, env=world.environment(), start_new_session=True,
            preexec_fn=machine.die_with_parent(signal.SIGTERM))
        os.close(ends[1])
        text, end = b"", time.monotonic() + 60
        while not text.endswith(b"\n") and time.monotonic() < end:
            if select.select([ends[0]], [], [], 0.2)[0]:
                more = os.read(ends[0], 16)
                text += more
                if not more:
                    break
        os.close(ends[0])
        if not text.endswith(b"\n"):
            self.stop()
            raise RuntimeError(f"{program} does not start: {self.words()[-500:]}")
        self.number = int(text)
        self.name = f":{self.number}"
        # Below the launcher stands the server itself.
        children = machine.read(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        words = [int(word) for word in children.split()]
        servers = [pid for pid in words if "Xorg" in machine.read(f"/proc/{pid}/comm")]
        self.pid = (servers or [self.process.pid])[0]

    def words(self):
        self._errors.flush()
        return pathlib.Path(self._errors.name).read_text(errors="replace")

    def forget_sockets(self):
        """After its server was killed: it could not remove them, unless another's has the number."""
        self.process.wait(20)
        if not machine.display_owner(self.number):
            for path in (f"/tmp/.X11-unix/X{self.number}", f"/tmp/.X{self.number}-lock"):
                pathlib.Path(path).unlink(missing_ok=True)

    def stop(self):
        if self.process.poll() is None:
            for pid in {getattr(self, "pid", self.process.pid), self.process.pid}:
                try:
                    os.kill(pid, signal.SIGCONT)  # a stopped one could not end
                except OSError:
                    pass
            self.process.terminate()
            try:
                self.process.wait(20)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, signal.SIGKILL)
                self.process.wait()
        self._errors.close()


class World:
    """The folder, servers and programs of one scenario. close() ends all of it and says what was
    left behind."""

    def __init__(self, build):
        self.build = pathlib.Path(build)
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kor-soak-"))
        for name in ("tmp", "home", "state", "run"):
            (self.folder / name).mkdir(mode=0o700)
        self.mark = secrets.token_hex(8)
        self.authority = self.folder / "authority"
        authority(self.authority)
        self.servers = []
        self.dumps = 2
        self._programs = []
        self.before = machine.Before(self.mark, self.folder)
        self.guard = machine.Guard(self.mark, self._kill_programs)

    def environment(self, extra=None):
        result = {name: value for name, value in os.environ.items()
                  if not name.startswith("KOR_GL_") and name not in FORGET}
        result.update({
            machine.MARK: self.mark, "XAUTHORITY": str(self.authority),
            "HOME": str(self.folder / "home"), "TMPDIR": str(self.folder / "tmp"),
            "XDG_STATE_HOME": str(self.folder / "state"),
            "XDG_CONFIG_HOME": str(self.folder / "home"),
            "XDG_RUNTIME_DIR": str(self.folder / "run"),
            "LP_NUM_THREADS": "1", "LC_ALL": "C.UTF-8"})
        result.update(extra or {})
        return result

    def program(self, name):
        return str(self.build / "tests/stress" / f"{name}_stress")

    def xvfb(self, size="1024x768", arguments=()):
        return self._start("Xvfb", ["-screen", "0", size + "x24", "+extension", "GLX", "-noreset",
                                    "-nolisten", "tcp", *arguments])

    def xkor(self, size="1024x768", arguments=()):
        return self._start(str(self.build / "bin/Xkor"), ["-geometry", size, *arguments])

    def _start(self, program, arguments):
        server = Server(self, program, arguments)
        self.servers.append(server)
        most = int(arguments[arguments.index("-maxclients") + 1]) if "-maxclients" in arguments else 256
        self.guard.watch_clients(pathlib.Path(program).name, server.pid, most)
        return server

    def start(self, command, environment, **options):
        program = Program(self, command, environment, **options)
        self._programs.append(program)
        return program

    def _kill_programs(self):
        for program in self._programs:
            program.kill()

    def counts(self, server):
        """What the clients of a server hold in it."""
        try:
            done = subprocess.run([self.program("counts"), server.name], env=self.environment(),
                                  capture_output=True, text=True, timeout=20, check=True)
        except (subprocess.SubprocessError, OSError):
            return {}
        return {name: int(number) for name, number in map(str.split, done.stdout.splitlines())}

    def close(self):
        self._kill_programs()
        for program in self._programs:
            program.close()
        self.guard.close()
        for server in self.servers:
            server.stop()
        left = self.before.left([server.number for server in self.servers])
        for pid in machine.marked(self.mark):
            try:
                os.kill(pid, signal.SIGKILL)
            except OSError:
                pass
        shutil.rmtree(self.folder, ignore_errors=True)
        return left


class Program:
    """A program of one scenario. It says "measure NAME" and waits for a line where it is to be
    looked at; the last of its output lines and its errors are kept."""

    def __init__(self, world, command, environment, limits=None, prefix=(), tag=None):
        self.world = world
        self.outcome = Outcome()
        self.tag = tag
        self._errors = tempfile.TemporaryFile(dir=world.folder)
        self._text = b""
        self._begin = time.monotonic()
        prepare = machine.die_with_parent(signal.SIGKILL)

        def limited():
            prepare()
            if limits:
                limits()

        self.process = subprocess.Popen(
            [*prefix, *command], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._errors,
            env=environment, start_new_session=True, preexec_fn=limited, cwd=world.folder / "home")

    @property
    def pid(self):
        return self.process.pid

    def kill(self):
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except OSError:
            pass

    def close(self):
        self.kill()
        self.process.wait()
        for file in (self.process.stdin, self.process.stdout, self._errors):
            try:
                file.close()
            except OSError:
                pass

    def dump_stacks(self):
        """The stacks of all its threads, and of its children's; only the first few programs of a
        scenario that hang are worth the time."""
        self.world.dumps -= 1
        if self.world.dumps < 0:
            return
        for pid in machine.session_of(self.pid):
            command = ["gdb", "-nx", "-batch", "-p", str(pid), "-ex", "thread apply all backtrace"]
            try:
                done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True,
                                      text=True, errors="replace", timeout=30)
                self.outcome.stacks += f"process {pid}\n{done.stdout}"
            except (OSError, subprocess.SubprocessError) as problem:
                self.outcome.stacks += f"process {pid}: no stacks: {problem}\n"

    def go_on(self):
        try:
            self.process.stdin.write(b"\n")
            self.process.stdin.flush()
        except OSError:
            pass

    def next_line(self, deadline):
        """The next line of its output; None at its end, "" when the time is over."""
        stream = self.process.stdout.fileno()
        while b"\n" not in self._text:
            left = deadline - time.monotonic()
            if left <= 0:
                return ""
            if select.select([stream], [], [], min(left, 0.5))[0]:
                more = os.read(stream, 65536)
                if not more:
                    return None
                self._text += more
        line, self._text = self._text.split(b"\n", 1)
        return line.decode(errors="replace")

    def finish(self, seconds, at=None):
        """Runs it to its end. at(name, program) is called where it waits to be looked at."""
        deadline = time.monotonic() + seconds
        outcome = self.outcome
        while True:
            line = self.next_line(deadline)
            if line is None:
                break
            if line == "":
                outcome.hung = True
                break
            self._take(line, at)
        while not outcome.hung and self.process.poll() is None:
            if time.monotonic() >= deadline:
                outcome.hung = True
            time.sleep(0.001)
        outcome.pid, outcome.ended = self.pid, time.monotonic_ns()
        if outcome.hung:
            if not outcome.stacks:
                self.dump_stacks()
            self.kill()
        code = self.process.wait()
        outcome.status = code if code >= 0 else 128 - code
        outcome.seconds = time.monotonic() - self._begin
        self._errors.seek(0)
        outcome.errors = self._errors.read().decode(errors="replace")
        return outcome

    def _take(self, line, at):
        outcome = self.outcome
        words = line.split()
        outcome.lines.append(line)
        del outcome.lines[:-2000]
        if len(words) == 2 and words[0] == "measure":
            if words[1] == "stuck":
                self.dump_stacks()
            elif at:
                at(words[1], self)
            self.go_on()
        elif len(words) == 2 and words[1].lstrip("-").isdigit():
            outcome.numbers[words[0]] = int(words[1])


class Session:
    """Servers of one road, and the environment in which a program takes it: the system's own GL
    library on a software server, or ours as korrun starts programs, by either front."""

    def __init__(self, world, road, size="1024x768", application=(), local=()):
        self.world = world
        self.road = road
        self.local = None
        if road == DIRECT:
            self.application = world.xvfb(size, application)
        else:
            self.local = world.xvfb("640x480", local)
            self.application = world.xkor(size, application)

    def environment(self, extra=None):
        result = self.world.environment({"DISPLAY": self.application.name})
        if self.local:
            result["KOR_GL_DISPLAY"] = self.local.name
        result.update(extra or {})
        return result

    def command(self, words):
        if self.road == DIRECT:
            return words
        return [str(self.world.build / "bin/korrun"), "--front", self.road, *words]

    def start(self, name, arguments=(), extra=None, **options):
        words = [self.world.program(name), *map(str, arguments)]
        return self.world.start(self.command(words), self.environment(extra), **options)

    def run(self, name, arguments=(), seconds=60, extra=None, at=None, **options):
        program = self.start(name, arguments, extra, **options)
        return program.finish(seconds, at or self.look)

    def look(self, name, program):
        """Measures the program, and what it holds in its servers."""
        found = machine.measure(program.pid)
        for server in self.servers():
            for kind, number in self.world.counts(server).items():
                if kind == "GC" and self.local and server is self.application:
                    kind = PAINTERS_GCS
                found["X " + kind] = found.get("X " + kind, 0) + number
        program.outcome.measures[name] = found

    def servers(self):
        return [server for server in (self.application, self.local) if server]
