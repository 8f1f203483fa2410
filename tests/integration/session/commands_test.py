#!/usr/bin/env python3
"""Every command that the documents show is run by a test, or stands here with the reason why not."""
import importlib.machinery
import importlib.util
import os
import pathlib
import re
import unittest

from xkor import BIN, TestCase, wait_until

ROOT = pathlib.Path(os.environ["KOR_SOURCE_DIR"])

# Their boxes marked as shell code are run: README's here, the others' by documents_test.
RUN = ("README.md", "docs/deployment.md", "docs/security.md", "docs/troubleshooting.md")

# README's commands that a test of the tree as it is cannot run; scripts/new-user runs them all.
BY_NEW_USER = {
    "scripts/demo": "builds",
    "scripts/test": "is what runs this",
    "cmake --install build/release --prefix /usr/local && ldconfig": "changes the machine",
}

# Lines of other boxes, each as it stands there, or by how it begins when "..." follows.
NOT_RUN = {
    "xauth -f /run/gpu-display.auth add :0 . $(mcookie); \\":
        "a line of a service for a GPU's display",
    "scripts/package": "builds packages, for minutes; scripts/test --all does it",
    "apt-get install ./build/packages/{libgl-kor,kor-gl-tools,xserver-kor}_*.deb":
        "changes the machine; scripts/package-test does it",
    "scripts/setup --32": "installs packages; scripts/test --all does it",
    "cmake --preset release -DCMAKE_INSTALL_SYSCONFDIR=/etc":
        "builds anew, for another folder of the settings",
    "cmake --build --preset release": "builds anew; scripts/demo and scripts/test do it",
    "cmake --install build/release --prefix /usr/local":
        "changes the machine; scripts/new-user does it",
    "ldconfig": "changes the machine; scripts/new-user does it",
    "cmake --preset release && cmake --build --preset release":
        "builds anew; scripts/test does it",
    "cmake --preset release-32 && cmake --build --preset release-32":
        "builds anew; scripts/test --all does it",
    "cmake --install build/release --prefix DIR && cmake --install build/release-32 --prefix DIR":
        "wants both builds; both_kinds_test does it",
    "cmake --preset release && cmake --preset release-32 && cmake --build --preset release-32":
        "builds anew; scripts/test --all does it",
    "ctest --preset release-32": "wants its build; scripts/test --all does it",
    "scripts/soak...": "strains the machine for minutes or hours; scripts/test --all does it",
    "podman run ...": "wants a container engine and an image",
    "ssh -L 6080:localhost:6080 the-machine": "wants another machine",
    "cmake --preset asan-ubsan && ...": "builds anew; scripts/test --all does it",
    "cmake --preset tsan ...": "builds anew; scripts/test --all does it",
    "bench/run ...": "measures for minutes, and is no test",
    "KOR_TEST_LOCAL_DISPLAY=:0 build/release/tests/e2e_test": "wants a GPU's display",
    "KOR_TEST_ENVIRONMENT=\"KOR_FRONT_LOCAL_VENDOR=nvidia\" ...": "wants that driver, and its GPU",
}

# The examples of the manual pages, and the test that does what they say; those of korsession(1) are
# run by documents_test, and "here" by test_examples.
EXAMPLES = {
    "xinit /usr/bin/xeyes -- /usr/bin/Xkor :5 -geometry 1600x900":
        "xinit_test.test_xinit_with_what_people_give_a_server",
    'exec Xkor "$@"': "xinit_test.test_startx_with_a_server_file",
    "/usr/bin/Xkor -geometry 1920x1200 -gldisplay :0.0": "xinit_test.test_display_manager",
    "Xkor :5 -web -vnc-password ~/.vnc/passwd": "vnc_test.test_ports_follow_the_display_number",
    "korrun --session kordoctor": "here",
    "kordoctor -- glxgears": "here",
    "kordoctor --watch $(pidof glxgears) --seconds 10": "here",
    "korrun --session --screenshot gears.png --seconds 5 glxgears": "here",
    "korrun --gl-display :1.0 glxgears": "here",
}

OURS = ("korrun", "korsession", "kordoctor", "Xkor")
COMMAND = re.compile(r"\s*(?:[A-Z_]+=\S+ )*(?:" + "|".join(OURS) + r"|scripts/\S+|bench/run|cmake|"
                     r"ctest|build/\S+|ldconfig|systemctl|loginctl|ssh|podman|docker|xauth|xhost|grep|apt|apt-get|sudo|dpkg|xinit|startx|"
                     r"xrandr|export|cd|printf)(?: |$)")


def new_user():
    """The script that reads README's commands, as a module."""
    loader = importlib.machinery.SourceFileLoader("new_user", str(ROOT / "scripts/new-user"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("new_user", loader))
    loader.exec_module(module)
    return module


def documents():
    yield from (ROOT / name for name in ("README.md", "bench/README.md"))
    yield from sorted((ROOT / "docs").glob("*.md"))


def lines_shown(text):
    """(kind, line) of all lines that stand apart: in a box, or indented."""
    kind = None
    for line in text.splitlines():
        if line.startswith("```"):
            kind = None if kind is not None else line[3:]
        elif kind is not None:
            yield kind, line
        elif line.startswith("    "):
            yield "indented", line


def is_line(line, known):
    return line.startswith(known[:-3]) if known.endswith("...") else line == known


def examples(page):
    text = page.read_text().replace("\\-", "-").split("\n.SH EXAMPLES\n")[-1].split("\n.SH ")[0]
    for box in re.findall(r"^\.nf\n(.*?)^\.fi$", text, re.M | re.S):
        yield from (line.strip() for line in box.splitlines())


class Commands(TestCase):
    def setUp(self):
        super().setUp()
        self.environment |= {"KOR_SESSION_DIR": str(self.folder / "sessions"),
                             "PATH": f"{BIN}:{self.environment['PATH']}"}
        self.addCleanup(self.run_program, BIN / "korsession", "stop", "--all")

    def test_readme(self):
        script = new_user()
        expected, parts, left = [], [], dict(BY_NEW_USER)
        for line, command in script.commands_of((ROOT / "README.md").read_text()):
            if left.pop(script.without_comment(command), None):
                continue
            accepted = next((script.ACCEPTED[word] for word in command.split()
                             if word in script.ACCEPTED), (0,))
            expected.append((line, command, accepted))
            # What goes on in the background writes elsewhere.
            parts.append(f"{{ {command}\n}} >> output 2>&1 </dev/null\necho {line} $?")
        self.assertEqual(left, {}, "README shows these no more")
        self.assertGreater(len(expected), 5)
        result = self.run_program("bash", "-c", "\n".join(parts), timeout=240)
        printed = (self.folder / "output").read_text()
        statuses = dict(map(int, line.split()) for line in result.stdout.splitlines())
        for line, command, accepted in expected:
            self.assertIn(statuses.get(line), accepted, f"{command}\n{result.stderr}{printed}")
        self.assertIn("open http://127.0.0.1:", printed)
        self.assertGreater((self.folder / "gears.png").stat().st_size, 1000)
        self.assertEqual(self.run_program(BIN / "korsession", "list").stdout, "")

    def test_every_box_is_run_or_has_its_reason(self):
        reasons, seen = set(NOT_RUN), 0
        for document in documents():
            name = str(document.relative_to(ROOT))
            for kind, line in lines_shown(document.read_text()):
                # Drawings name the programs as well.
                if (kind == "sh" and name in RUN) or not COMMAND.match(line) or not line.isascii():
                    continue
                seen += 1
                found = [known for known in NOT_RUN if is_line(line.strip(), known)]
                if name == "docs/fronts.md" and line.strip().startswith("grep"):
                    continue  # by test_examples
                self.assertTrue(found, f"{name}: nothing runs: {line}")
                reasons -= set(found)
        self.assertEqual(reasons, set(), "these are shown no more")
        self.assertGreater(seen, 5)

    def test_examples_have_their_tests(self):
        shown = {line for page in (ROOT / "docs/man").glob("*.1")
                 if page.name != "korsession.1" for line in examples(page)}
        self.assertEqual(shown, set(EXAMPLES))
        for line, test in EXAMPLES.items():
            if test != "here":
                file, function = test.split(".")
                source = pathlib.Path(__file__).with_name(f"{file}.py").read_text()
                self.assertIn(f"def {function}(self)", source, line)

    def test_examples(self):
        result = self.run_program("korrun", "--session", "kordoctor", timeout=120)
        self.assertIn(result.returncode, (0, 1), result.stdout)
        result = self.run_program("korrun", "--session", "--screenshot", "gears.png", "--seconds",
                                  "5", "glxgears", timeout=120)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertGreater((self.folder / "gears.png").stat().st_size, 1000)

        # A session, with the display that renders in it as the GPU's display of the examples.
        result = self.run_program("korsession", "start", "--no-web", "sh", "-c",
                                  f"echo $KOR_GL_DISPLAY > {self.folder}/gpu; sleep 600")
        self.assertEqual(result.returncode, 0, result.stderr)
        gpu_file = self.folder / "gpu"
        self.assertTrue(wait_until(lambda: gpu_file.exists() and gpu_file.read_text().strip()))
        result = self.run_program("korsession", "run", "kordoctor", "--", "glxgears", timeout=120)
        self.assertIn(result.returncode, (0, 1), result.stdout)
        self.assertIn("program's front", result.stdout)
        program = self.start("korsession", "run", "korrun", "--gl-display",
                             gpu_file.read_text().strip(), "glxgears")
        watch = ("kordoctor", "--watch", program.pid, "--seconds")
        self.assertTrue(wait_until(lambda: self.run_program(*watch, "0.1").returncode == 0, 30),
                        program.complaints())
        self.assertIn("shared memory", self.run_program(*watch, "2").stdout)
        text = (ROOT / "docs/fronts.md").read_text()
        line = next(line for line in text.splitlines() if line.startswith("    grep"))
        result = self.run_program("sh", "-c", line.replace("PID", str(program.pid)))
        self.assertIn("libGLX_kor.so.0\n", result.stdout)
        self.assertIn("libGL_KOR.so\n", result.stdout)

    def test_options_in_prose_are_known(self):
        count = 0
        helps = {name: self.run_program(name, "--help").stdout for name in OURS}
        for document in documents():
            for code in re.findall(r"`([^`\n]+)`", document.read_text()):
                words = code.split()
                program = words[0]
                if program.startswith("scripts/") and program != "scripts/":
                    text = (ROOT / program).read_text()
                elif program in OURS:
                    text = helps[program]
                    words = words[:words.index("--")] if "--" in words else words
                else:
                    continue
                for option in words[1:]:
                    if option.startswith("-"):
                        count += 1
                        self.assertIn(option.split("=")[0], text, f"{document.name}: {code}")
        self.assertGreater(count, 8)


if __name__ == "__main__":
    unittest.main()
