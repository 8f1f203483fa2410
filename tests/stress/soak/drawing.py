"""The scenarios of programs that draw: windows that end, windows that are resized, many threads, and
programs that open and close windows for long."""
import re
import subprocess
import time

from . import machine
from .settings import turned_settings
from .world import CLASSIC, DIRECT, GLVND, PAINTERS_GCS, Session

HANDS = ("program", "client", "kill", "manager", "resized", "between", "close")


def words(values):
    return [part for name, value in values.items() for part in (f"--{name}", value)]


def windows(run):
    """Windows destroyed at random moments by every hand that can."""
    # In full 10,000 for each hand, in four combinations and by two fronts.
    rounds = run.size(24, 40, 1250)
    cases = [(how, handler, current) for how in HANDS for handler in (0, 1) for current in (0, 1)]
    if run.form == "short":  # each hand once, handler and context by chance
        cases = [(how, run.random.randrange(2), run.random.randrange(2)) for how in HANDS]
    with run.world() as world:
        direct = Session(world, DIRECT)
        roads = [Session(world, road) for road in run.roads()]
        for number, (how, handler, current) in enumerate(cases):
            options = words({"how": how, "handler": handler, "current": current,
                             "seed": run.seed + number})
            name = f"{how}, {'' if handler else 'no '}handler, {'' if current else 'no '}context"
            limit = 30 + rounds * 0.5
            plain = direct.run("windows", [*options, "--rounds", max(24, rounds // 4)], limit)
            for session in roads:
                if run.over():
                    return
                outcome = session.run("windows", [*options, "--rounds", rounds], limit)
                run.result.count("windows", rounds)
                what = f"windows ({name}, {session.road})"
                if plain.status != 0 and not outcome.hung:
                    run.result.note(f"{name}: the program ends directly as well, {plain.word()}")
                elif run.result.passed(outcome, what):
                    run.result.compare(what, outcome.measures, plain.measures)
                    # With both, it draws into windows that are gone: errors of its own, at times.
                    errors = 0 if handler and current else outcome.numbers.get("errors", 0)
                    run.result.expect(errors == 0 or plain.numbers.get("errors", 0) > 0,
                                      f"{what}: X errors reach the program's handler, none directly",
                                      f"{errors} for {rounds} windows: {outcome.last_words()}")
                    kept = outcome.measures["end"].get("X " + PAINTERS_GCS, 0)
                    run.result.expect(kept <= rounds + 20, f"{what}: more than a GC for each window",
                                      f"{kept} for {rounds} windows")


def resizes(run):
    """Resizes at every frame, in four threads."""
    each = run.size(40, 250, 2500)
    most = run.size(240, 500, 1024, scaled=False)
    size = f"{2 * most}x{2 * most}"
    options = words({"resizes": each, "most": most, "seed": run.seed})
    with run.world() as world:
        direct = Session(world, DIRECT, size)
        plain = direct.run("resizes", options, 60 + each)
        if not run.result.passed(plain, "resizes (direct)"):
            return
        for road in run.roads():
            session = Session(world, road, size)
            for name, extra in (("shown", {}), ("not read back", {"KOR_GL_NO_READBACK": "1"})):
                if run.over():
                    return
                check = ["--check", 0 if extra else 1]
                outcome = session.run("resizes", [*options, *check], 60 + each, extra)
                run.result.count("resizes", 4 * each)
                what = f"resizes ({name}, {road})"
                if run.result.passed(outcome, what):
                    run.result.compare(what, outcome.measures, plain.measures)


def threads(run):
    """Threads that create, use, share, swap and destroy at random."""
    number = run.size(16, 64, 64, scaled=False)
    seconds = run.size(3, 30, 600)
    limit = seconds * 2 + 120
    options = words({"threads": number, "seconds": seconds, "seed": run.seed,
                     "patience": 10 if run.form == "short" else 30})
    ways = [("plain", {}), ("settings turned", turned_settings(run))]
    with run.world() as world:
        direct = Session(world, DIRECT)
        plain = direct.run("threads", options, limit)
        run.result.measured["direct"] = plain.numbers
        run.result.passed(plain, "threads (direct)")
        for road in run.roads():
            session = Session(world, road)
            for name, extra in ways:
                if run.over():
                    return
                outcome = session.run("threads", options, limit, extra)
                run.result.count("seconds of threads", seconds)
                run.result.count("steps of threads", outcome.numbers.get("steps", 0))
                what = f"threads ({name}, {road})"
                if run.result.passed(outcome, what):
                    if name == "plain":
                        # At its end two common windows have been drawn into, and the last one.
                        run.result.compare(what, outcome.measures, plain.measures,
                                           ("resident", "segments", "X GLXContext"), windows=3)
                elif outcome.stacks:
                    run.keep(f"threads-{road}.stacks", outcome.stacks)
            at_once(run, direct, session)
    if run.form == "full" or run.wants_tsan:
        sanitized_threads(run, options)


def at_once(run, direct, session):
    """Threads that draw into one window with no order between them. Mesa's software driver does not
    always survive that itself; what counts is that a program ends where it lives directly."""
    for i in range(run.size(2, 10, 50)):
        options = words({"threads": 3, "seconds": 1, "common": 1, "seed": run.seed + i})
        outcome = session.run("threads", options, 60)
        run.result.count("seconds of threads in one window")
        if outcome.hung or outcome.status != 0:
            plain = direct.run("threads", options, 60)
            if plain.status == 0 or outcome.hung:
                run.result.passed(outcome, f"threads (in one window, {session.road})")
            else:
                run.result.note(f"in one window: the program ends directly as well, {plain.word()}")


def sanitized_threads(run, options):
    """The same under ThreadSanitizer: program and library are instrumented, the driver is not, and
    what happens within it is left out."""
    build = run.top / "build/tsan"
    targets = ["threads_stress", "GL_KOR", "kor-sysgl", "kor_front", "kor_vendor_front"]
    for command in (["cmake", "--preset", "tsan"], ["ninja", "-C", str(build), *targets]):
        if subprocess.run(command, cwd=run.top, stdout=subprocess.DEVNULL).returncode != 0:
            run.result.find("the ThreadSanitizer build fails", " ".join(command))
            return
    suppressions = run.top / "tests/sanitizers/tsan.supp"
    with run.world() as world:
        session = Session(world, GLVND)
        report = world.folder / "tsan"
        extra = {"LD_LIBRARY_PATH": str(build / "lib"),
                 "TSAN_OPTIONS": f"suppressions={suppressions}:second_deadlock_stack=1:"
                                 f"ignore_noninstrumented_modules=1:log_path={report}"}
        program = world.start([str(build / "tests/stress/threads_stress"), *map(str, options)],
                              session.environment(extra))
        seconds = int(options[options.index("--seconds") + 1])
        outcome = program.finish(seconds * 10 + 300, session.look)
        run.result.count("seconds of threads under ThreadSanitizer", seconds)
        reports = "".join(machine.read(path) for path in sorted(world.folder.glob("tsan.*")))
        for summary in sorted(set(re.findall(r"SUMMARY: ThreadSanitizer: (.*)", reports))):
            run.result.find(f"ThreadSanitizer: {summary}")
        if reports:
            run.keep("threads.tsan", reports)
        elif not run.result.passed(outcome, "threads (ThreadSanitizer)") and outcome.stacks:
            run.keep("threads-tsan.stacks", outcome.stacks)


# What is looked at while programs run for long; a growth beyond a tenth and the slack counts.
SLACK = {"resident": 16 << 20, "X pixmap-bytes": 8 << 20}


def flat(run, name, samples):
    """Whether the last third of the samples is where the second third was."""
    if len(samples) < 6:
        return
    third = len(samples) // 3
    for key in samples[-1]:
        middle = [one.get(key, 0) for one in samples[third:2 * third]]
        last = [one.get(key, 0) for one in samples[2 * third:]]
        before, after = max(middle), sum(last) / len(last)
        if after > before * 1.1 + SLACK.get(key, 10):
            run.result.find(f"{name}: {key} grows", f"{before} in the second third of the time, "
                                                    f"{after:.0f} on average in the last")
    run.result.measured[name] = {"first": samples[0], "middle": samples[len(samples) // 2],
                                 "last": samples[-1]}


def growth(run):
    """Programs that open and close windows for a long time."""
    number = run.size(4, 10, 10, scaled=False)
    seconds = run.size(8, 120, 1800)
    every = max(0.5, seconds / 60)
    with run.world() as world:
        session = Session(world, run.random.choice((CLASSIC, GLVND)))
        run.result.note(f"front: {session.road}")
        programs = [session.start("churn", words({"seconds": seconds, "seed": run.seed + i,
                                                  "pause": 50000}), tag=i) for i in range(number)]
        samples = {"a program": [], "session's server": [], "local server": []}
        begin = time.monotonic()
        while time.monotonic() < begin + seconds - every and not world.guard.reason:
            time.sleep(every)
            each = [machine.measure(one.pid) for one in programs if one.process.poll() is None]
            if not each:
                break
            # The largest of each: one program that grows is enough.
            samples["a program"].append({key: max(one[key] for one in each) for key in each[0]})
            for name, server in (("session's server", session.application),
                                 ("local server", session.local)):
                counts = {"X " + key: value for key, value in world.counts(server).items()
                          if key in ("PIXMAP", "GC" if server is session.local else PAINTERS_GCS,
                                     "GLXContext", "clients", "pixmap-bytes",
                                     "WINDOW", "COLORMAP", "GLXDrawable")}
                counts["resident"] = machine.resident(server.pid)
                counts["descriptors"] = machine.descriptors(server.pid)
                samples[name].append(counts)
        for program in programs:
            outcome = program.finish(30)
            run.result.count("windows", outcome.numbers.get("windows", 0))
            run.result.passed(outcome, "growth: a program")
        run.result.count("programs", number)
        if not world.guard.reason:
            for name, list_of in samples.items():
                flat(run, name, list_of)
