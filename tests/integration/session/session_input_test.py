#!/usr/bin/env python3
"""Sessions that are asked for wrongly, or for which something is missing: ports, folders, room."""
import os
import re
import shutil
import unittest

from sessions import SessionTest
from xkor import BIN, over_tmp, processes_naming


class BadInput(SessionTest):
    def refused(self, status, part, *arguments, environment=None):
        with self.subTest(arguments=arguments):
            result = self.korsession(*arguments, environment=environment)
            self.expect_failure(result, status, part, program="korsession")
            self.assertEqual(result.stdout, "")
            if self.sessions.exists():
                self.assertEqual(list(self.sessions.iterdir()), [])

    def test_wrong_use(self):
        for part, arguments in (
                ("what to do?", ()),
                ("none of start", ("begin",)),
                ("unknown option --colour", ("start", "--colour", "sleep", "1")),
                ("--size wants a value", ("start", "--size")),
                ("--size takes", ("start", "--size", "800", "sleep", "1")),
                ("--size takes", ("start", "--size=63x64", "sleep", "1")),
                ("--size takes", ("start", "--size=7681x64", "sleep", "1")),
                ("--size takes", ("start", "--size=-800x600", "sleep", "1")),
                ("--display takes", ("start", "--display", "x", "sleep", "1")),
                ("--display takes", ("start", "--display=:59536", "sleep", "1")),
                ("--display takes", ("start", "--display=:-1", "sleep", "1")),
                ("--display :59456 leaves no port", ("start", "--display=:59456", "sleep", "1")),
                ("--vnc takes a port", ("start", "--vnc", "0", "sleep", "1")),
                ("--vnc takes a port", ("start", "--vnc", "65536", "sleep", "1")),
                ("--vnc takes a port", ("start", "--vnc=-ac", "sleep", "1")),
                # Xorg's option that opens the display to everybody.
                ("--web takes a port", ("start", "--web", "-ac", "sleep", "1")),
                ("--web takes a port", ("start", "--web", "8o80", "sleep", "1")),
                ("--web takes a port", ("start", "--web", "+6080", "sleep", "1")),
                ("same port 6001", ("start", "--vnc", "6001", "--web=06001", "sleep", "1")),
                ("--listen takes", ("start", "--listen", "localhost", "sleep", "1")),
                ("--listen takes", ("start", "--listen", "-ac", "sleep", "1")),
                ("--listen takes", ("start", "--listen=1.2.3", "sleep", "1")),
                ("missing after --", ("start", "--")),
                ("empty name", ("start", "")),
                ("exclude", ("start", "--insecure", "--password", "x", "sleep", "1")),
                ("loopback only", ("start", "--insecure", "--listen", "all", "sleep", "1")),
                ("exclude", ("start", "--no-web", "--web", "6080", "sleep", "1")),
                ("takes no arguments", ("list", ":1")),
                ("one session at a time", ("stop", ":1", ":2")),
                ("exclude", ("stop", ":1", "--all")),
                ("unknown option", ("attach", "--all")),
                ("one session at a time", ("attach", ":1", ":2")),
                ("attach takes a display", ("attach", "here")),
                ("stop takes a display", ("stop", "")),
                ("stop takes a display", ("stop", ":123456")),
                ("takes no arguments", ("list", "--watch")),
                ("run wants a command", ("run",)),
                ("run wants a command", ("run", ":1")),
                ("run wants a command", ("run", ":1", "--")),
                ("run takes a display", ("run", ":x", "true")),
                ("unknown option --now", ("run", "--now", "true")),
                ("empty name", ("run", "")),
        ):
            self.refused(2, part, *arguments)

    def test_what_is_not_there(self):
        self.refused(127, "/no/such/program was not found", "start", "/no/such/program")
        self.refused(3, "display :59 ", "start", "--gl-display", ":59", "sleep", "1")
        self.refused(1, "no session is running", "stop")
        self.refused(1, "no session is running", "attach")
        self.refused(1, "no session is running", "run", "true")
        self.refused(1, "no session runs on :7", "attach", "7")
        self.refused(1, "no session runs on :7", "run", ":7", "true")
        self.refused(1, "no session runs on :7", "stop", ":7")
        self.refused(3, "cannot be read: No such file", "start", "--password",
                     self.folder / "missing", "sleep", "1")
        self.refused(3, "install the package novnc", "start", "sleep", "1",
                     environment={"KOR_NOVNC": "/no/such/folder"})
        self.refused(3, "install the package tigervnc-tools", "start", "/bin/sleep", "1",
                     environment={"PATH": str(self.tools("Xvfb"))})

    def tools(self, *names):
        tools = self.folder / "tools"
        tools.mkdir(exist_ok=True)
        for name in names:
            (tools / name).symlink_to(shutil.which(name, path="/usr/bin:/bin"))
        return tools

    def test_port_taken(self):
        session = self.start_session("sleep", "600")
        for option, port in (("--vnc", session.port),
                             ("--web", re.search(r":(\d+)/vnc", session.page).group(1))):
            result = self.korsession("start", option, port, "sleep", "600")
            self.assertEqual(result.returncode, 3)
            self.assertRegex(result.stderr,
                             rf"\Akorsession: Xkor: port {port} for .* is in use: [^\n]*\n\Z")
        taken = self.korsession("start", "--display", session.display, "sleep", "600")
        self.assertEqual(taken.returncode, 3)
        self.assertIn(f"display {session.display} is in use", taken.stderr)
        self.assertEqual(len(self.korsession("list").stdout.splitlines()), 1)
        self.assertEqual(len(list(self.sessions.iterdir())), 1)

    def test_log_directory_that_cannot_be_used(self):
        self.refused(3, "log directory /proc/none cannot be made", "start", "--log-dir",
                     "/proc/none", "sleep", "1")
        file = self.folder / "file"
        file.write_text("")
        self.refused(3, "cannot be made", "start", "--log-dir", file, "sleep", "1")
        self.refused(3, "cannot be made", "start", "sleep", "1",
                     environment={"XDG_STATE_HOME": "/proc/none"})

    def test_logs_in_a_folder_that_others_may_have_made(self):
        """Without HOME they are below /tmp, where everybody may make folders."""
        isolation = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
        place = self.folder / "tmp"
        place.mkdir()
        for made in ("mkdir -m 0777 $place", "touch $place", "mkdir -m 0700 own && ln -s own $place"):
            with self.subTest(made):
                script = (f"mount -t tmpfs none {place} && {over_tmp(place)} && cd /tmp && "
                          f"place=kor-$(id -u) && {made} && "
                          f"unset HOME XDG_STATE_HOME && KOR_SESSION_DIR=/tmp/sessions "
                          f"exec {BIN}/korsession start sleep 600")
                result = self.run_program(*isolation, "sh", "-c", script, timeout=120)
                self.expect_failure(result, 3, "/tmp/kor-", "is no folder of yours", "--log-dir",
                                    program="korsession")

    def test_full_disk(self):
        small = self.folder / "small"
        small.mkdir()
        script = (f"mount -t tmpfs -o size=128k none {small} && "
                  f"{{ head -c 1000000 /dev/zero > {small}/rest 2>/dev/null; "
                  f"exec {BIN}/korsession start --log-dir {small}/logs sleep 600; }}")
        isolation = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
        result = self.run_program(*isolation, "sh", "-c", script)
        self.expect_failure(result, 3, f"log directory {small}/logs cannot be",
                            "No space left on device", program="korsession")
        self.assertEqual(list(self.sessions.iterdir()) if self.sessions.exists() else [], [])

    def in_small_place(self, script):
        """Runs a script in whose mount namespace the folder "small" has room for 512 KiB."""
        small = self.folder / "small"
        small.mkdir()
        isolation = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
        return self.run_program(*isolation, "sh", "-c",
                                f"mount -t tmpfs -o size=512k none {small} && {{ {script}\n}}",
                                timeout=120)

    def test_disk_that_fills_up_later(self):
        """The session goes on, whoever asks is told, and it ends as ever."""
        small, program = self.folder / "small", f"{BIN}/korsession"
        result = self.in_small_place(f"""
            {program} start --log-dir {small}/logs sh -c \
                'head -c 2000000 /dev/zero; echo full > {self.folder}/full; sleep 600' &&
            while ! [ -e {self.folder}/full ]; do sleep 0.1; done &&
            {program} list && {program} run glxinfo -B && {program} stop && {program} list
            echo status $?""")
        self.assertIn("status 0\n", result.stdout, result.stderr)
        self.assertIn("OpenGL renderer string", result.stdout)
        self.assertRegex(result.stdout, r"session :\d+ has ended\nstatus")
        self.assertRegex(result.stderr,
                         rf"\Akorsession: :\d+: the log directory {small}/logs cannot be written to "
                         r"any more: No space left on device; [^\n]*\n\Z")
        self.assertEqual(list(self.sessions.iterdir()), [])
        self.assertEqual(processes_naming(str(self.folder)), [])

    def test_disk_that_fills_up_while_the_session_starts(self):
        """After the log directory was tried: what Xkor says is lost."""
        small = self.folder / "small"
        tools = self.tools(*("Xvfb", "vncpasswd", "websockify", "python3", "sh"))
        (tools / "Xvfb").unlink()
        (tools / "Xvfb").write_text(f"#!/bin/sh\nPATH=/usr/bin:/bin\n"
                                    f"head -c 2000000 /dev/zero 2>/dev/null > {small}/rest\n"
                                    'exec Xvfb "$@"\n')
        (tools / "Xvfb").chmod(0o755)
        result = self.in_small_place(
            f"PATH={tools} exec {BIN}/korsession start --log-dir {small}/logs /bin/sleep 600")
        self.expect_failure(result, 3, f"{small}/logs/Xkor.log", "the disk is full",
                            program="korsession")
        self.assertEqual(list(self.sessions.iterdir()), [])

    def test_folder_of_the_sessions_that_others_can_write_to(self):
        self.sessions.mkdir()
        self.sessions.chmod(0o777)
        self.refused(3, "only you can write to", "start", "sleep", "1")
        self.sessions.chmod(0o700)


if __name__ == "__main__":
    unittest.main()
