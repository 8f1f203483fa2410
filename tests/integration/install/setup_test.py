#!/usr/bin/env python3
"""scripts/setup while another program holds the package system's locks: the real apt-get, on a
package system of the test's own that knows no package."""
import fcntl
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SETUP = pathlib.Path(__file__).resolve().parents[3] / "scripts/setup"
WAITING = "scripts/setup: another program is changing the packages, waiting for it: "


class Locked(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kor-setup-test-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        for name in ("scripts", "tools", "etc", "state/lists/partial", "dpkg",
                     "cache/archives/partial"):
            (self.folder / name).mkdir(parents=True)
        shutil.copy(SETUP, self.folder / "scripts")
        (self.folder / "scripts/packages.txt").write_text("kor-no-such-package\n")
        (self.folder / "dpkg/status").write_text("")
        (self.folder / "apt.conf").write_text(f"""
            Dir::Etc "{self.folder}/etc";
            Dir::State "{self.folder}/state";
            Dir::State::status "{self.folder}/dpkg/status";
            Dir::Cache "{self.folder}/cache";
            Dir::Log "{self.folder}";
            APT::Sandbox::User "";
            """)
        # Root's rights are not needed in these folders.
        sudo = self.folder / "tools/sudo"
        sudo.write_text('#!/bin/sh\n[ "$1" = -n ] && shift\nexec "$@"\n')
        sudo.chmod(0o755)

    def lock(self, name):
        """Held until it is closed, the way dpkg and apt hold theirs."""
        file = open(self.folder / name, "w")
        self.addCleanup(file.close)
        fcntl.lockf(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        return file

    def start(self, **environment):
        setup = subprocess.Popen(
            [str(self.folder / "scripts/setup")], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
            env={"PATH": f"{self.folder}/tools:{os.environ['PATH']}", "TMPDIR": str(self.folder),
                 "APT_CONFIG": str(self.folder / "apt.conf")} | environment)
        self.addCleanup(setup.stderr.close)
        self.addCleanup(setup.kill)
        return setup

    def expect_waiting(self, name):
        lock = self.lock(name)
        setup = self.start(KOR_SETUP_PATIENCE="60")
        before = []
        while (line := setup.stderr.readline()) and not line.startswith(WAITING):
            before.append(line)
        self.assertIn(str(self.folder / name), line, "".join(before))
        lock.close()
        _, rest = setup.communicate(timeout=60)
        self.assertNotIn("lock", "".join(before) + rest)
        self.assertIn("kor-no-such-package", rest)
        self.assertNotIn(WAITING, rest, "said once")

    def test_lists(self):
        self.expect_waiting("state/lists/lock")

    def test_dpkg(self):
        self.expect_waiting("dpkg/lock-frontend")

    def test_waiting_ends(self):
        self.lock("state/lists/lock")
        setup = self.start(KOR_SETUP_PATIENCE="1")
        _, errors = setup.communicate(timeout=60)
        self.assertEqual(setup.returncode, 1)
        self.assertEqual(errors.count(WAITING), 1, errors)
        self.assertIn("scripts/setup: waited 1 seconds for another program's package lock\n", errors)
        self.assertIn("Could not get lock", errors.split("waited 1 seconds")[1], "apt's own words")
        self.assertIn("still missing after the installation: kor-no-such-package", errors)


if __name__ == "__main__":
    unittest.main()
