"""The scenarios of ends and disturbances: of programs, of their servers, and of what they may use."""
import os
import re
import resource
import signal
import subprocess
import time

from . import machine
from .settings import turned_settings
from .world import DIRECT, GLVND, Session
from .xclient import Connections

# How a program ends, and the status that is its own then.
ENDS = {"exit": 7, "_exit": 7, "quick_exit": 7, "abort": 128 + signal.SIGABRT,
        "terminate": 128 + signal.SIGTERM, "other-thread": 7, "detached": 7, "signals": 7,
        "fork": 7, "fork-exec": 7, "fork-render": 7, "release": 7, "release-single": 7,
        "destroy": 7, "error": 7}
PATIENCE = {"KOR_CLIENT_PATIENCE": "4"}
WITHIN = 1.0  # seconds from the end's begin to the process's


def no_core():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def ends_as_it_should(outcome, status):
    """What is wrong with the end, if anything, and how long it took."""
    if outcome.hung:
        return "hangs", 0.0
    if outcome.status != status:
        return f"status {outcome.status}, not {status}", 0.0
    said = [line for line in outcome.lines if line.startswith("ending ")]
    taken = (outcome.ended - int(said[-1].split()[1])) / 1e9 if said else 0.0
    return ("ends late" if taken > WITHIN else ""), taken


def exits(run):
    """Ends of a program at random points of a frame."""
    times = run.size(2, 20, 200)
    with run.world() as world:
        direct = Session(world, DIRECT)
        for road in run.roads():
            session = Session(world, road)
            longest = {}
            for how, status in ENDS.items():
                if run.over():
                    return
                bad = []
                for i in range(times):
                    options = ["--end", how, "--seed", run.seed * 1000 + i]
                    outcome = session.run("exits", options, 20, PATIENCE, limits=no_core)
                    run.result.count("ends")
                    wrong, taken = ends_as_it_should(outcome, status)
                    wrong = wrong or leaves_something(outcome)
                    longest[how] = max(longest.get(how, 0), round(taken, 3))
                    if wrong:
                        bad.append((wrong, outcome))
                if bad:
                    report_ends(run, direct, road, how, status, bad, times)
            run.result.measured[f"longest end, {road}"] = longest
            rounds = run.size(3, 20, 100)
            outcome = session.run("loaded", ["--rounds", rounds], 60 + rounds)
            run.result.count("loads", rounds)
            run.result.passed(outcome, f"exits (dlopen, {road})", 7)


def leaves_something(outcome):
    """What is there a second after the end that was not there before."""
    end = time.monotonic() + 1
    while time.monotonic() < end:
        if not any(one[1] == outcome.pid for one in machine.segments()):
            break
        time.sleep(0.05)
    left = machine.end_segments(outcome.pid)
    children = machine.session_of(outcome.pid)
    if left:
        return f"leaves {left} segments"
    return f"leaves processes: {children}" if children else ""


def report_ends(run, direct, road, how, status, bad, times):
    """What went wrong counts where the direct run does not end that way, or half as often at most."""
    tries = max(10, times)
    plain = []
    for i in range(tries):
        options = ["--end", how, "--seed", run.seed * 1000 + i]
        again = direct.run("exits", options, 20, PATIENCE, limits=no_core)
        plain.append(ends_as_it_should(again, status)[0] or leaves_something(again))
    failed = [one for one in plain if one]
    if failed:
        run.result.note(f"{how}: {len(bad)} of {times} ({road}), directly {len(failed)} of {tries} "
                        f"({failed[0]})")
    if not failed or len(bad) / times > 2 * len(failed) / tries:
        for wrong, outcome in bad:
            run.result.find(f"exits ({how}, {road}): {wrong}",
                            outcome.last_words() + outcome.stacks[-4000:])


def exits_settled(run, outcome, what, statuses):
    """Whether a program whose server went has ended in one of these ways, or lives as told."""
    run.result.expect(not outcome.hung, f"{what}: hangs", outcome.stacks[-4000:])
    if not outcome.hung:
        run.result.expect(outcome.status in statuses, f"{what}: {outcome.word()}",
                          outcome.last_words())


class Steady:
    """Runs steady_stress, does something to its world when it draws, and looks at what becomes of it
    when it has nothing to do any more."""

    def __init__(self, run, session, what):
        self.run, self.session, self.what = run, session, what

    def go(self, act=None, extra=None, seconds=60, frames=None, **options):
        idle = []
        span = self.run.size(0.4, 1.0, 2.0, scaled=False)

        def at(name, program):
            if name == "drawing" and act:
                act()
            if name == "idle":
                before = machine.processor_seconds(program.pid)
                time.sleep(span)
                idle.append((machine.processor_seconds(program.pid) - before) / span)

        frames = frames or self.run.size(8, 60, 200, scaled=False)
        outcome = self.session.run("steady", ["--frames", frames, "--seed", self.run.seed], seconds,
                                   dict(extra or {}, KOR_CLIENT_PATIENCE="5"), at, **options)
        self.run.result.count("disturbances")
        for spent in idle:
            self.run.result.expect(spent < 0.5, f"{self.what}: burns a core while nothing is drawn",
                                   f"{spent:.2f} of it")
        repeated(self.run, outcome, self.what)
        return outcome


def repeated(run, outcome, what):
    """A line of the log is not printed at every frame."""
    counts = {}
    for line in outcome.errors.splitlines():
        text = re.sub(r"[0-9]+", "#", line)
        counts[text] = counts.get(text, 0) + 1
    for text, times in counts.items():
        if times > 12 and "libGL" not in text:
            run.result.find(f"{what}: a line is printed without end", f"{times} times: {text[:200]}")


def own_namespace():
    """The words before a command that give it an IPC namespace of its own; None if there is no way."""
    for prefix in (["unshare", "--ipc"], ["unshare", "--user", "--map-current-user", "--ipc"]):
        if subprocess.run([*prefix, "true"], stderr=subprocess.DEVNULL).returncode == 0:
            return prefix
    return None


def servers(run):
    """Servers that die, stop or refuse, and programs with less than they need."""
    cases = [killed_application_server, killed_local_server, stopped_servers, no_clients_left,
             without_shared_memory, other_namespace, few_descriptors, little_memory, no_segment_left]
    for road in run.roads():
        for case in cases:
            if run.over():
                return
            case(run, road)


def killed_application_server(run, road):
    with run.world() as world:
        session = Session(world, road)
        outcome = Steady(run, session, f"servers (session's server killed, {road})").go(
            lambda: os.kill(session.application.pid, signal.SIGKILL))
        # Xlib ends a program whose server is gone with status 1.
        exits_settled(run, outcome, f"servers (session's server killed, {road})", (1,))
        session.application.forget_sockets()


def killed_local_server(run, road):
    with run.world() as world:
        session = Session(world, road)
        what = f"servers (local server killed, {road})"
        outcome = Steady(run, session, what).go(
            lambda: os.kill(session.local.pid, signal.SIGKILL), frames=5)
        # It lives on without frames, or its driver ends it; it does not hang.
        run.result.expect(not outcome.hung, f"{what}: hangs", outcome.stacks[-4000:])
        run.result.measured[what] = outcome.word()
        session.local.forget_sockets()


def stopped_servers(run, road):
    pause = run.size(1, 10, 10, scaled=False)
    with run.world() as world:
        session = Session(world, road)
        for server, name in ((session.application, "session's"), (session.local, "local")):
            what = f"servers ({name} server stopped, {road})"

            def stop(pid=server.pid):
                os.kill(pid, signal.SIGSTOP)
                # From another process: this one goes on, so that the program draws meanwhile.
                subprocess.Popen(["sh", "-c", f"sleep {pause}; kill -CONT {pid}"],
                                 start_new_session=True, env=world.environment())

            outcome = Steady(run, session, what).go(stop, frames=10, seconds=60 + pause)
            run.result.passed(outcome, what)


def no_clients_left(run, road):
    most = 64
    with run.world() as world:
        session = Session(world, road, local=("-maxclients", str(most)))
        world.guard.forget_clients(session.local.pid)
        full = Connections(session.local, world.authority, most)
        what = f"servers (no client left, {road})"
        outcome = Steady(run, session, what).go(frames=5, seconds=40)
        full.close()
        run.result.expect(not outcome.hung, f"{what}: hangs", outcome.stacks[-4000:])
        run.result.expect(outcome.status < 128, f"{what}: {outcome.word()}", outcome.last_words())
        said = outcome.errors.count("Cannot open connection to local display")
        run.result.expect(said >= 1, f"{what}: it is not said", outcome.last_words())
        run.result.measured[what] = {"status": outcome.word(), "said": said}
        # There is room again: the next program is none the worse.
        after = Steady(run, session, what).go(frames=3)
        run.result.passed(after, f"{what}, afterwards")


def without_shared_memory(run, road):
    with run.world() as world:
        session = Session(world, road, application=("-extension", "MIT-SHM"))
        what = f"servers (no MIT-SHM in the session, {road})"
        run.result.passed(Steady(run, session, what).go(), what)


def other_namespace(run, road):
    prefix = own_namespace()
    if not prefix:
        run.result.note("no IPC namespace can be made here: that case was not tried")
        return
    with run.world() as world:
        session = Session(world, road)
        what = f"servers (another IPC namespace, {road})"
        run.result.passed(Steady(run, session, what).go(prefix=prefix), what)


def few_descriptors(run, road):
    """With so few that a direct program just works, through us it ends or draws, and says why."""
    def limit():
        no_core()
        resource.setrlimit(resource.RLIMIT_NOFILE, (9, 9))

    limited(run, road, "9 descriptors", limit)


def little_memory(run, road):
    # The vendor front has the driver in the program twice, once for each display, and each makes
    # itself at home: at 600 MB and below the driver crashes in its own start.
    megabytes = 800 if road == GLVND else 400

    def limit():
        no_core()
        size = megabytes << 20
        resource.setrlimit(resource.RLIMIT_AS, (size, size))

    limited(run, road, f"{megabytes} MB", limit)


def limited(run, road, name, limit):
    with run.world() as world:
        direct = Session(world, DIRECT)
        session = Session(world, road)
        what = f"servers ({name}, {road})"
        plain = Steady(run, direct, f"servers ({name}, direct)").go(limits=limit, frames=5)
        outcome = Steady(run, session, what).go(limits=limit, frames=5)
        run.result.measured[what] = {"direct": plain.word(), "ours": outcome.word(),
                                     "last words": outcome.last_words()}
        run.result.expect(not outcome.hung, f"{what}: hangs", outcome.stacks[-4000:])
        # Less than it needs ends it with a word, never with a crash that the direct run has not.
        if not outcome.hung and outcome.status >= 128 and plain.status < 128:
            run.result.find(f"{what}: {outcome.word()}, directly {plain.word()}",
                            outcome.last_words())


def no_segment_left(run, road):
    with run.world() as world:
        session = Session(world, road)
        preload = world.build / "tests/stress/no_segments.so"
        for left, name in (("0", "no segment left"), ("4", "segments end meanwhile")):
            what = f"servers ({name}, {road})"
            extra = {"LD_PRELOAD": str(preload), "KOR_STRESS_SEGMENTS": left}
            run.result.passed(Steady(run, session, what).go(extra=extra), what)


def functions(run):
    """Each of the driver's functions failing at its first, its second and further calls."""
    share = run.size(8, 1, 1, scaled=False)
    further = run.size(1, 10, 40, scaled=False)
    ways = [("plain", {}), ("settings turned", turned_settings(run))] * run.size(1, 1, 3)
    with run.world() as world:
        for number, (way, extra) in enumerate(ways):
            if run.over():
                return
            program = world.start([world.program("functions"), "--seed", str(run.seed + number),
                                   "--share", str(share), "--further", str(further)],
                                  world.environment(extra))
            outcome = program.finish(1800)
            run.result.count("failures of functions", outcome.numbers.get("cases", 0))
            run.result.measured["functions"] = outcome.numbers.get("functions", 0)
            run.result.measured[f"never called, {way}"] = [
                line.split()[-1] for line in outcome.lines if line.startswith("not called")]
            found = [line for line in outcome.lines if line.startswith("found ")]
            for line in found:
                run.result.find(f"functions ({way}): " + line[6:], "\n".join(outcome.lines[-60:]))
            if not found:
                run.result.passed(outcome, f"functions ({way})")


def requests(run):
    """Requests of any bytes to the server's extension, from many clients in either byte order."""
    seconds = run.size(4, 20, 60)
    with run.world() as world:
        server = world.xkor()
        environment = world.environment({"DISPLAY": server.name})
        command = [world.program("requests"), "--seconds", str(seconds), "--clients", "50", "--seed"]
        # The first run warms the server up; what it has then, it has at the end.
        warm = world.start([*command[:2], "1", *command[3:], str(run.seed)], environment)
        run.result.passed(warm.finish(60), "requests (warming up)")
        before = machine.resident(server.pid), machine.descriptors(server.pid)
        outcome = world.start([*command, str(run.seed)], environment).finish(seconds + 60)
        run.result.count("requests", outcome.numbers.get("requests", 0))
        run.result.count("connections", outcome.numbers.get("connections", 0))
        run.result.passed(outcome, "requests")
        run.result.expect(machine.alive(server.pid), "requests: the server has ended", server.words()[-400:])
        time.sleep(1)
        after = machine.resident(server.pid), machine.descriptors(server.pid)
        run.result.measured["server, resident and descriptors"] = {"before": before, "after": after}
        run.result.expect(after[0] <= before[0] * 1.1 + (8 << 20), "requests: the server grows",
                          f"from {before[0]} to {after[0]} bytes resident")
        run.result.expect(after[1] <= before[1] + 4, "requests: the server keeps descriptors",
                          f"{before[1]} before, {after[1]} after")


def fuzz(run):
    """The fuzz targets, for an hour of processor time each."""
    seconds = run.size(10, 120, 3600)
    for target in ("ini", "settings", "extensions", "attributes", "replies"):
        with run.world() as world:
            program = run.build / "tests" / f"fuzz_{target}"
            folder = run.top / "tests/fuzz"
            found = run.build / "tests/fuzz/found" / target
            spent = before = 0.0
            # Its own clock is the wall's: it runs until the processor has spent the time.
            while spent < seconds and not run.over():
                environment = world.environment({"KOR_FUZZ_SECONDS": str(int(seconds - spent) + 1)})
                before = children_seconds()
                done = world.start([str(folder / "run"), str(program), str(folder / "corpus" / target),
                                    str(folder / "dictionaries" / f"{target}.dict"), str(found), "1"],
                                   environment).finish(3 * seconds + 300)
                spent += max(1.0, children_seconds() - before)
                if not run.result.passed(done, f"fuzz ({target})"):
                    break
            run.result.count(f"seconds of {target}", round(spent))


def children_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime
