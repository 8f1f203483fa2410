#!/usr/bin/env python3
"""Runs the commands that the documents show: every box that is marked as shell code."""
import os
import pathlib
import re
import subprocess
import unittest

from xkor import BIN, TestCase, free_port, processes_naming, wait_until

DOCUMENTS = pathlib.Path(os.environ["KOR_SOURCE_DIR"]) / "docs"


def boxes(document):
    """The boxes of a document, each with the number of its line."""
    text = (DOCUMENTS / document).read_text()
    for found in re.finditer(r"^```sh\n(.*?)^```$", text, re.M | re.S):
        yield text.count("\n", 0, found.start()) + 1, found.group(1)


def options_in(text):
    """The long options that a text names, and those of Xkor."""
    return set(re.findall(r"(?<![\w-])--?[a-z][a-z-]+", text))


class Documents(TestCase):
    def setUp(self):
        super().setUp()
        self.environment |= {"KOR_SESSION_DIR": str(self.folder / "sessions"),
                             "PATH": f"{BIN}:{self.environment['PATH']}",
                             "FREE": str(6000 + free_port() % 1000)}
        self.addCleanup(self.run_program, BIN / "korsession", "stop", "--all")

    def gpu_display(self):
        """Stands for the GPU's display: a server of its own that wants a cookie."""
        authority = self.folder / "gpu-authority"
        reading, writing = os.pipe()
        number = 7000 + free_port() % 1000
        subprocess.run(["xauth", "-f", authority, "add", f":{number}", ".", "5a" * 16],
                       check=True, capture_output=True, timeout=20)
        # Not in PATH's folder alone: the document's programs must find it by the name only.
        server = self.start("Xvfb", f":{number}", "-screen", "0", "640x480x24", "+extension",
                            "GLX", "-nolisten", "tcp", "-auth", authority, "-displayfd",
                            str(writing), pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as pipe:
            self.assertEqual(pipe.readline().strip(), str(number), server.complaints())
        self.environment |= {"GPU": f":{number}.0", "GPU_AUTH": str(authority),
                             "XAUTHORITY": str(authority)}

    def no_session(self):
        return self.run_program(BIN / "korsession", "list").stdout == ""

    def run_boxes(self, document, at_least):
        count = 0
        self.gpu_display()
        for line, script in boxes(document):
            count += 1
            with self.subTest(f"{document}:{line}"):
                result = self.run_program("bash", "-e", "-o", "pipefail", "-c", script,
                                          timeout=120)
                # A machine without a GPU has one warning at least.
                accepted = (0, 1) if "kordoctor" in script.split() else (0,)
                self.assertIn(result.returncode, accepted,
                              f"{script}\n{result.stdout}\n{result.stderr}")
                self.assertTrue(wait_until(self.no_session), "a box leaves no session behind")
        self.assertGreaterEqual(count, at_least, "the boxes are written in another way")
        left = [line for line in processes_naming(str(self.folder)) if "Xvfb" not in line]
        self.assertEqual(left, [])

    def test_security(self):
        self.run_boxes("security.md", 1)

    def test_deployment(self):
        self.run_boxes("deployment.md", 5)

    def test_troubleshooting(self):
        self.run_boxes("troubleshooting.md", 7)

    def test_manual_page_of_korsession(self):
        text = (DOCUMENTS / "man/korsession.1").read_text()
        example = text.split(".SH EXAMPLES")[1].split(".nf")[1].split(".fi")[0]
        commands = [line.strip().replace("\\-", "-") for line in example.splitlines()
                    if line.strip()]
        self.assertEqual(commands[0], "korsession start xterm")
        for command in commands:
            result = self.run_program("sh", "-c", command.replace("xterm", "sleep 60"))
            self.assertEqual(result.returncode, 0, f"{command}: {result.stderr}")

    def test_manual_pages_know_the_options(self):
        for program, at_least in (("Xkor", 9), ("korsession", 9), ("korrun", 11),
                                  ("kordoctor", 5)):
            page = f"{program}.1"
            help_text = self.run_program(BIN / program, "--help").stdout
            text = (DOCUMENTS / "man" / page).read_text().replace("\\-", "-")
            options = options_in(help_text)
            self.assertGreaterEqual(len(options), at_least, program)
            self.assertEqual(sorted(options - options_in(text)), [], f"not in {page}")

    def test_manual_pages_are_well_formed(self):
        for page in ("Xkor.1", "korsession.1", "korrun.1", "kordoctor.1"):
            result = self.run_program("man", "--warnings", "-l", DOCUMENTS / "man" / page)
            self.assertEqual((result.returncode, result.stderr), (0, ""), page)
            self.assertIn("SYNOPSIS", result.stdout)


if __name__ == "__main__":
    unittest.main()
