"""What the machine and its processes hold: measured, watched while a scenario runs, and compared
afterwards."""
import ctypes
import os
import pathlib
import signal
import threading
import time

PROC = pathlib.Path("/proc")
MARK = "KOR_SOAK_MARK"  # in the environment of every process of a run
PAGE = os.sysconf("SC_PAGE_SIZE")
TICKS = os.sysconf("SC_CLK_TCK")


def read(path):
    """The file's text; empty when it or its process has gone."""
    try:
        return pathlib.Path(path).read_text(errors="replace")
    except OSError:
        return ""


def die_with_parent(number):
    """For preexec_fn: the process ends when the one that runs the suite does."""
    libc = ctypes.CDLL(None, use_errno=True)

    def prepare():
        libc.prctl(1, number)  # PR_SET_PDEATHSIG
        for one in (signal.SIGPIPE, signal.SIGINT):
            signal.signal(one, signal.SIG_DFL)

    return prepare


def segments():
    """The shared memory segments of this IPC namespace: (id, creator, seconds, owner)."""
    found = []
    for line in read("/proc/sysvipc/shm").splitlines()[1:]:
        word = line.split()
        found.append((int(word[1]), int(word[4]), int(word[13]), int(word[7])))
    return found


def segment_limit():
    return int(read("/proc/sys/kernel/shmmni") or 4096)


def memory(name):
    """A line of /proc/meminfo in bytes."""
    for line in read("/proc/meminfo").splitlines():
        if line.startswith(name + ":"):
            return int(line.split()[1]) * 1024
    return 0


def status_line(pid, name):
    for line in read(f"/proc/{pid}/status").splitlines():
        if line.startswith(name + ":"):
            return line.split(":", 1)[1].split()[0]
    return "0"


def resident(pid):
    return int(status_line(pid, "VmRSS")) * 1024


def threads(pid):
    return int(status_line(pid, "Threads"))


def descriptors(pid):
    try:
        return len(os.listdir(f"/proc/{pid}/fd"))
    except OSError:
        return 0


def mapped_segments(pid):
    return read(f"/proc/{pid}/maps").count("/SYSV")


def processor_seconds(pid):
    text = read(f"/proc/{pid}/stat")
    words = text[text.rfind(")") + 2:].split()
    return (int(words[11]) + int(words[12])) / TICKS if len(words) > 12 else 0.0


def alive(pid):
    return read(f"/proc/{pid}/stat") != "" and status_line(pid, "State") != "Z"


def marked(mark):
    """The processes whose environment has the mark, wherever they went; this one left out."""
    wanted = f"{MARK}={mark}".encode()
    found = []
    for entry in PROC.iterdir():
        if not entry.name.isdigit() or int(entry.name) == os.getpid():
            continue
        try:
            if wanted in (entry / "environ").read_bytes().split(b"\0"):
                found.append(int(entry.name))
        except OSError:
            pass
    return found


def session_of(pid):
    """A program that leads a session of its own, and its children in it."""
    found = []
    for entry in PROC.iterdir():
        if entry.name.isdigit():
            text = read(entry / "stat")
            words = text[text.rfind(")") + 2:].split()
            if len(words) > 3 and int(words[3]) == pid and words[0] != "Z":
                found.append(int(entry.name))
    return sorted(found)


def end_segments(pid):
    """Removes the segments that a process has left; how many."""
    found = [one[0] for one in segments() if one[1] == pid and not alive(pid)]
    for number in found:
        ctypes.CDLL(None).shmctl(number, 0, None)  # IPC_RMID
    return len(found)


def measure(pid):
    return {
        "resident": resident(pid),
        "descriptors": descriptors(pid),
        "threads": threads(pid),
        "mapped segments": mapped_segments(pid),
        "segments": sum(1 for one in segments() if one[1] == pid),
    }


def display_owner(number):
    """The process of the X server that has that display number now; 0 where there is none."""
    text = read(f"/tmp/.X{number}-lock").strip()
    return int(text) if text.isdigit() and alive(int(text)) else 0


class Guard:
    """Ends a scenario's programs before the machine's segments, its memory or the clients of a
    server are used up. `reason` says why it did."""

    def __init__(self, mark, kill):
        self.reason = None
        self.peaks = {"segments": 0, "resident": 0}
        self._mark = mark
        self._kill = kill
        self._end = threading.Event()
        self._servers = {}
        self._thread = threading.Thread(target=self._watch, daemon=True)
        self._thread.start()

    def watch_clients(self, name, pid, most):
        """From now on, a server that may have so many clients."""
        self._servers[pid] = (name, most)

    def forget_clients(self, pid):
        self._servers.pop(pid, None)

    def close(self):
        self._end.set()
        self._thread.join()

    def _watch(self):
        while not self._end.wait(0.5):
            reason = self._look()
            if reason:
                self.reason = self.reason or reason
                self._kill()

    def _look(self):
        total, left = segment_limit(), memory("MemTotal")
        used = len(segments())
        ours = sum(resident(pid) for pid in marked(self._mark))
        self.peaks["segments"] = max(self.peaks["segments"], used)
        self.peaks["resident"] = max(self.peaks["resident"], ours)
        if used > total * 3 // 4:
            return f"{used} of the machine's {total} segments are in use"
        if ours > left // 2:
            return f"the scenario's processes have {ours >> 20} MB resident, more than half the memory"
        if memory("MemAvailable") < left // 10:
            return "less than a tenth of the machine's memory is left"
        for pid, (name, most) in list(self._servers.items()):
            clients = descriptors(pid) - 30
            if clients > most * 9 // 10:
                return f"{name} has {clients} of its {most} clients"
        return None


class Before:
    """The state to which the machine has to come back."""

    def __init__(self, mark, folder, wait=10):
        self._mark = mark
        self._folder = pathlib.Path(folder)
        self._since = int(time.time())
        self._segments = {one[0] for one in segments()}
        self._shared = self._names("/dev/shm")
        self._wait = wait

    @staticmethod
    def _names(folder):
        try:
            return {name for name in os.listdir(folder) if "kor" in name.lower()}
        except OSError:
            return set()

    def left(self, displays=()):
        """What has been left, in words; it is given some seconds to go. Of the displays' servers the
        sockets may be left."""
        end = time.monotonic() + self._wait
        while True:
            found = self._look(displays)
            if not found or time.monotonic() >= end:
                return found
            time.sleep(0.2)

    def _look(self, displays):
        found = []
        for number, creator, made, owner in segments():
            new = number not in self._segments and made >= self._since and owner == os.getuid()
            if new and not alive(creator):
                found.append(f"segment {number} of process {creator}")
        for pid in marked(self._mark):
            if alive(pid):
                command = read(f"/proc/{pid}/cmdline").replace("\0", " ").strip()
                found.append(f"process {pid} ({command[:60]})")
        for number in displays:
            # By now another's server may have taken the number.
            if not display_owner(number):
                found += [path for path in (f"/tmp/.X11-unix/X{number}", f"/tmp/.X{number}-lock")
                          if os.path.exists(path)]
        found += [str(path) for path in sorted((self._folder / "tmp").rglob("*"))]
        found += ["/dev/shm/" + name for name in sorted(self._names("/dev/shm") - self._shared)]
        return found
