#!/usr/bin/env python3
"""Whole sessions: started, listed, stopped, crashed, and nothing left of them."""
import os
import pathlib
import re
import signal
import shutil
import unittest
import urllib.request

import rfb
from sessions import LINE, SessionTest, Started
from xkor import BIN, free_port, listens, processes_naming, wait_until


class Life(SessionTest):
    def test_start_list_stop(self):
        session = self.start_session("--size", "800x600", "xev", "-root")
        listed = self.korsession("list")
        self.assertEqual(listed.returncode, 0)
        again = LINE.fullmatch(listed.stdout)
        self.assertIsNotNone(again, listed.stdout)
        self.assertEqual(again.group(1, 2, 4), (session.display, session.page, "/usr/bin/xev -root"))
        with urllib.request.urlopen(session.page.split("#")[0], timeout=20) as answer:
            self.assertEqual(answer.status, 200)
        with self.assertRaisesRegex(rfb.RfbError, "security types"):
            rfb.Client(session.port)  # without the password nobody gets in
        self.assertEqual(self.stop_session(), f"session {session.display} has ended\n")
        self.assertEqual(self.remains(session), [])
        self.assertEqual(self.korsession("list").stdout, "")
        self.assertIn("asked to end", (session.logs / "korsession.log").read_text())

    def test_password_is_the_sessions_own_and_nobody_elses_to_read(self):
        session = self.start_session("sleep", "600")
        password = re.search(r"#password=([\w-]{8})$", session.page).group(1)
        other = self.start_session("sleep", "600")
        self.assertNotIn(password, other.page)
        for path in [self.sessions, *self.sessions.iterdir()]:
            self.assertEqual(path.stat().st_mode & 0o077, 0, path)

    def test_programs_render_through_the_library(self):
        output = self.folder / "glxinfo"
        session = self.start_session("sh", "-c", f"glxinfo -B > {output} 2>&1; sleep 600",
                                     environment={"KOR_GL_PRINT_VERSION": "1"})
        self.assertTrue(wait_until(lambda: output.exists() and "renderer" in output.read_text()))
        self.assertIn("TESSERA KOR-GL", output.read_text())
        self.assertIn(f"name of display: {session.display}", output.read_text())

    def test_programs_are_run_in_a_session_that_is_there(self):
        session = self.start_session("sleep", "600")
        # As from a shell of another session.
        elsewhere = {"DISPLAY": ":59", "XAUTHORITY": "/no/such/file", "KOR_GL_DISPLAY": ":59",
                     "WAYLAND_DISPLAY": "wayland-9"}
        result = self.korsession("run", "glxinfo", "-B", environment=elsewhere)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(f"name of display: {session.display}", result.stdout)
        self.assertIn("TESSERA s.r.l.", self.korsession("run", "--", "glxinfo").stdout)
        result = self.korsession("run", session.display, "sh", "-c",
                                 'echo "<$WAYLAND_DISPLAY> $XDG_SESSION_TYPE"; exit 7',
                                 environment=elsewhere)
        self.assertEqual((result.returncode, result.stdout), (7, "<> x11\n"))
        other = self.start_session("--no-web", "sleep", "600")
        self.assertEqual(self.korsession("run", "true").returncode, 1)
        result = self.korsession("run", other.display, "sh", "-c", "echo $DISPLAY")
        self.assertEqual(result.stdout, f"{other.display}\n")
        missing = self.korsession("run", other.display, "/no/such/program")
        self.assertEqual(missing.returncode, 127)
        self.assertRegex(missing.stderr, r"\Akorsession: [^\n]*/no/such/program[^\n]*\n\Z")

    def test_outlives_the_shell_that_started_it(self):
        shell = self.start("sh", "-c", f"{BIN}/korsession start sleep 600; sleep 600",
                           start_new_session=True)
        self.assertTrue(wait_until(lambda: LINE.fullmatch(shell.written())), shell.complaints())
        session = Started(shell.written())
        os.killpg(shell.pid, signal.SIGHUP)
        os.killpg(shell.pid, signal.SIGKILL)
        shell.wait(20)
        self.assertTrue(listens(session.port))
        self.assertIn(session.display, self.korsession("list").stdout)

    def test_ends_with_its_command(self):
        session = self.start_session("sh", "-c", "echo a word to the log; sleep 1")
        self.assertTrue(wait_until(lambda: not self.remains(session)), self.remains(session))
        self.assertEqual((session.logs / "command.log").read_text(), "a word to the log\n")

    def test_takes_along_what_hides_from_it(self):
        session = self.start_session(
            "sh", "-c", "setsid sh -c 'trap \"\" TERM HUP; sleep 601; sleep 602' & "
                        "(setsid sleep 603 &); sleep 604")
        self.assertTrue(wait_until(lambda: any("sleep\x00603" in line for line in
                                               processes_naming(str(self.folder)))))
        self.stop_session()
        self.assertEqual(self.remains(session), [])

    def test_several(self):
        first = self.start_session("sleep", "600")
        second = self.start_session("--no-web", "--insecure", "sleep", "600")
        self.assertEqual(second.page, f"127.0.0.1::{second.port}")
        rfb.Client(second.port).close()
        unnamed = self.korsession("stop")
        self.assertEqual(unnamed.returncode, 1)
        self.assertIn("several sessions", unnamed.stderr)
        self.stop_session(second.number)
        self.assertEqual(len(self.korsession("list").stdout.splitlines()), 1)
        self.assertTrue(listens(first.port))
        self.start_session("sleep", "600")
        self.stop_session("--all")
        self.assertEqual(self.korsession("list").stdout, "")
        self.assertEqual(processes_naming(str(self.folder)), [])

    def test_chosen_display_and_ports(self):
        number, vnc, web = 5000 + free_port() % 1000, free_port(), free_port()
        session = self.start_session("--display", f":{number}", "--vnc", vnc, "--web", web, "--",
                                     "sleep", "600")
        self.assertEqual((session.display, session.port), (f":{number}", vnc))
        self.assertTrue(session.page.startswith(f"http://127.0.0.1:{web}/vnc.html?"))

    def test_other_ports_when_one_is_taken_in_between(self):
        """As by a session that starts at the same time: the first attempt finds it taken."""
        tools = self.folder / "tools"
        tools.mkdir()
        slow = tools / "websockify"
        slow.write_text(f"""#!/bin/sh
            if mkdir {self.folder}/first 2> /dev/null; then
                (setsid python3 -c 'import pathlib, socket, sys, time
host, port = sys.argv[1].split(":")
end = socket.create_server((host, int(port)))
pathlib.Path("{self.folder}/first/taken").write_text(port)
time.sleep(600)' "$3" &)
                while ! [ -s {self.folder}/first/taken ]; do sleep 0.05; done
                sleep 0.5
            fi
            exec /usr/bin/websockify "$@"
            """)
        slow.chmod(0o755)
        session = self.start_session("sleep", "600",
                                     environment={"PATH": f"{tools}:/usr/bin:/bin"})
        taken = (self.folder / "first/taken").read_text()
        self.assertNotIn(f":{taken}/", session.page)
        with urllib.request.urlopen(session.page.split("#")[0], timeout=20) as answer:
            self.assertEqual(answer.status, 200)
        self.stop_session()
        self.assertEqual(self.remains(session), [])

    def test_listens_where_it_is_told(self):
        session = self.start_session("--listen", "all", "sleep", "600")
        web = re.search(r":(\d+)/vnc", session.page).group(1)
        for port in (session.port, web):
            sockets = self.run_program("ss", "-ltnH", f"sport = :{port}").stdout
            self.assertTrue({f"0.0.0.0:{port}", f"*:{port}"} &
                            {line.split()[3] for line in sockets.splitlines()}, sockets)
        with self.assertRaisesRegex(rfb.RfbError, "security types"):
            rfb.Client(session.port)  # it has a password all the same

    def test_logs_of_the_newest_ten_are_kept(self):
        place = self.folder / "state/kor/sessions"
        others = [place / f"20200101-0000{i:02}-77" for i in range(12)]
        for folder in [*others, place / "notes"]:
            folder.mkdir(parents=True)
        session = self.start_session("sleep", "600")
        self.assertEqual(sorted(place.iterdir()),
                         sorted([*others[3:], place / "notes", session.logs]))

    def test_desktop_when_no_command_is_given(self):
        tools = self.folder / "tools"
        tools.mkdir()
        for name in ("Xvfb", "vncpasswd", "websockify", "python3", "openbox", "sh"):
            (tools / name).symlink_to(shutil.which(name, path="/usr/bin:/bin"))
        environment = {"PATH": str(tools)}
        session = self.start_session(environment=environment)
        self.assertIn(f"command: {tools}/openbox;", self.korsession("list").stdout)
        root = self.run_program("xprop", "-root", "_NET_SUPPORTING_WM_CHECK",
                                environment=self.client_environment(session))
        self.assertTrue(wait_until(lambda: "window id" in self.run_program(
            "xprop", "-root", "_NET_SUPPORTING_WM_CHECK",
            environment=self.client_environment(session)).stdout), root.stdout)
        self.stop_session()
        (tools / "openbox").unlink()
        result = self.korsession("start", environment=environment)
        self.expect_failure(result, 3, "no desktop or window manager", program="korsession")

    def client_environment(self, session):
        authority = next(self.sessions.glob("*/Xauthority"))
        return {"DISPLAY": session.display, "XAUTHORITY": str(authority)}

    def test_programs_follow_the_viewers_size(self):
        """A maximized program fills the screen that a viewer has made larger, and then smaller."""
        (self.folder / "home/openbox").mkdir()
        (self.folder / "home/openbox/rc.xml").write_text(
            '<openbox_config xmlns="http://openbox.org/3.4/rc"><applications>'
            '<application class="*"><decor>no</decor><maximized>yes</maximized></application>'
            "</applications></openbox_config>\n")
        program = self.folder / "program"
        program.write_text("#!/bin/sh\nopenbox &\nsleep 1\nexec glxgears\n")
        program.chmod(0o755)
        session = self.start_session("--size", "640x480", "--insecure", program)
        client = rfb.Client(session.port)
        self.addCleanup(client.close)

        def extent(colour):
            """Where the gear begins and ends, as parts of the screen's width."""
            columns = []
            for row in range(0, client.height, 4):
                line = client.pixels.get(row, b"")
                for x in range(0, len(line) // 4, 4):
                    channels = line[x * 4 + 2], line[x * 4 + 1], line[x * 4]
                    others = sum(channels) - channels[colour]
                    if channels[colour] > 100 and others < channels[colour] / 2:
                        columns.append(x / client.width)
            return (min(columns), max(columns)) if columns else (1, 0)

        for width, height in ((900, 900), (1201, 701), (500, 400)):
            self.assertEqual(client.resize(width, height), 0)

            def gears_fill_the_screen():
                client.picture()
                # The program scales its picture to its window's width.
                begins, ends = extent(1)
                return 0.5 < begins < 0.62 and 0.72 < ends < 0.9 and extent(0)[0] < 0.15
            self.assertTrue(wait_until(gears_fill_the_screen, 30),
                            (width, height, [extent(colour) for colour in range(3)]))


class Unfinished(SessionTest):
    """Sessions that are not wanted any more before they are there."""

    def slow_program(self, name):
        """PATH with such a program, which tells that it has begun, and waits to be told to go on."""
        tools = self.folder / "tools"
        tools.mkdir()
        (tools / name).write_text(f"#!/bin/sh\ntouch {self.folder}/begun\n"
                                  f"while ! [ -e {self.folder}/go ]; do sleep 0.05; done\n"
                                  f'exec /usr/bin/{name} "$@"\n')
        (tools / name).chmod(0o755)
        return {"PATH": f"{tools}:/usr/bin:/bin"}

    def begin(self, name):
        start = self.start(BIN / "korsession", "start", "sleep", "600",
                           environment=self.slow_program(name))
        self.assertTrue(wait_until((self.folder / "begun").exists), start.complaints())
        return start

    def expect_nothing_left(self):
        self.assertTrue(wait_until(lambda: not processes_naming(str(self.folder)), 30),
                        processes_naming(str(self.folder)))
        self.assertEqual(self.korsession("list").stdout, "")
        self.assertEqual(list(self.sessions.iterdir()), [])

    def test_start_that_is_broken_off(self):
        for number in (signal.SIGINT, signal.SIGKILL):
            with self.subTest(number):
                start = self.begin("Xvfb")
                start.send_signal(number)
                self.assertEqual(start.wait(20), -number)
                (self.folder / "go").touch()
                self.expect_nothing_left()
            shutil.rmtree(self.folder / "tools")
            for name in ("begun", "go"):
                (self.folder / name).unlink()

    def test_stop_before_there_is_a_keeper(self):
        start = self.begin("vncpasswd")
        stop = self.start(BIN / "korsession", "stop")

        def waits():
            status = pathlib.Path(f"/proc/{stop.pid}/status").read_text()
            return int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status, re.M).group(1)) > 20
        self.assertTrue(wait_until(waits))
        self.assertIsNone(stop.poll())
        (self.folder / "go").touch()
        self.assertEqual(stop.wait(90), 0, stop.complaints())
        self.assertEqual((stop.written(), stop.complaints()),
                         ("session that is starting has ended\n", ""))
        self.assertEqual(start.wait(20), 3)
        self.assertEqual(start.written(), "")
        self.assertRegex(start.complaints(), r"\Akorsession: [^\n]+")
        self.expect_nothing_left()


class Crash(SessionTest):
    def started(self):
        return self.start_session("sh", "-c", "(setsid sleep 603 &); sleep 600")

    def expect_nothing_left(self, session):
        self.assertTrue(wait_until(lambda: not self.remains(session), 30), self.remains(session))
        self.assertEqual(self.korsession("list").stdout, "")

    def test_inner_keeper_killed(self):
        session = self.started()
        os.kill(self.keepers(session)[1], signal.SIGKILL)
        self.expect_nothing_left(session)

    def test_outer_keeper_killed(self):
        session = self.started()
        os.kill(self.keepers(session)[0], signal.SIGKILL)
        self.expect_nothing_left(session)

    def test_both_keepers_killed(self):
        session = self.start_session("sleep", "600")
        keepers = self.keepers(session)
        for process in keepers:
            os.kill(process, signal.SIGSTOP)
        for process in keepers:
            os.kill(process, signal.SIGKILL)
        self.assertTrue(wait_until(lambda: not processes_naming(str(self.folder)), 30),
                        processes_naming(str(self.folder)))
        # The folder is removed by whoever looks next.
        self.assertEqual(self.korsession("list").stdout, "")
        self.assertEqual(self.remains(session), [])
        self.assertEqual(self.korsession("stop", session.display).returncode, 1)

    def test_server_killed(self):
        session = self.started()
        xorg = [line for line in processes_naming(str(self.folder)) if "/Xorg\x00" in line]
        os.kill(int(xorg[0].split(":")[0]), signal.SIGKILL)
        self.expect_nothing_left(session)
        self.assertIn("Xkor has ended", (session.logs / "korsession.log").read_text())


    def test_software_display_killed(self):
        session = self.started()
        xvfb = [line for line in processes_naming(str(self.folder)) if "Xvfb\x00" in line]
        os.kill(int(xvfb[0].split(":")[0]), signal.SIGKILL)
        self.expect_nothing_left(session)
        self.assertIn("Xvfb has ended", (session.logs / "korsession.log").read_text())
        self.assertEqual(self.korsession("stop", session.display).returncode, 1)

    def test_gpu_display_that_goes_away(self):
        """It may come back: the session stays, and says what is missing."""
        reading, writing = os.pipe()
        gpu = self.start("Xvfb", "-displayfd", str(writing), "-screen", "0", "640x480x24",
                         "+extension", "GLX", "-nolisten", "tcp", pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as pipe:
            name = ":" + pipe.readline().strip()
        session = self.start_session("--gl-display", name, "sleep", "600")
        self.assertEqual(self.korsession("run", "glxinfo", "-B").returncode, 0)
        gpu.kill()
        gpu.wait(20)
        result = self.korsession("run", "glxinfo", "-B")
        self.assertEqual((result.returncode, result.stdout), (3, ""))
        self.assertRegex(result.stderr,
                         rf"\Akorsession: the session's GPU display {name} [^\n]+\n\Z")
        self.assertIn(session.display, self.korsession("list").stdout)
        self.stop_session()
        self.assertEqual(self.remains(session), [])


class Attach(SessionTest):
    def test_without_a_display_it_says_how(self):
        session = self.start_session("sleep", "600")
        result = self.korsession("attach")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("DISPLAY is not set", result.stdout)
        self.assertIn(f"ssh -L {session.port}:localhost:{session.port} ", result.stdout)

    def test_it_says_where_the_server_listens(self):
        session = self.start_session("--listen", "127.0.0.2", "--vnc", free_port(), "sleep", "600")
        self.assertTrue(listens(session.port, "127.0.0.2"))
        self.assertFalse(listens(session.port))
        self.assertIn(f"ssh -L {session.port}:127.0.0.2:{session.port} ",
                      self.korsession("attach").stdout)

    def test_viewer_gets_in(self):
        session = self.start_session("xev", "-root")
        screen = self.xkor("-geometry", "1400x900")
        viewer = self.start(BIN / "korsession", "attach", session.display,
                            environment=screen.client_environment)
        self.assertTrue(wait_until(lambda: "TigerVNC" in self.run_program(
            "xwininfo", "-root", "-tree", environment=screen.client_environment).stdout),
            viewer.complaints())
        self.assertIsNone(viewer.poll())


if __name__ == "__main__":
    unittest.main()
