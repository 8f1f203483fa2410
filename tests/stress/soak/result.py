"""The result of a scenario: how often it was tried, and what was found."""
import json
import os
import pathlib
import platform
import subprocess
import time

RATIO = 1.5
# What a count may be above the direct run's without a word: constant, whatever the number of rounds.
SLACK = {"resident": 64 << 20, "X pixmap-bytes": 8 << 20}
COUNT_SLACK = 12
# Of a window that is drawn into through us, for as long as it lives: its painter's image, and the
# buffers of its two pbuffers on the local display.
SEGMENTS_OF_A_WINDOW = 6


class Result:
    def __init__(self, name, seed, form, scale):
        self.name, self.seed, self.form, self.scale = name, seed, form, scale
        self.tried, self.found, self.measured = {}, [], {}
        self.notes = []
        self._begin = time.monotonic()

    def count(self, what, number=1):
        self.tried[what] = self.tried.get(what, 0) + number

    def find(self, what, example=""):
        for one in self.found:
            if one["what"] == what:
                one["times"] += 1
                return
        self.found.append({"what": what, "times": 1, "example": example})

    def note(self, text):
        if text not in self.notes:
            self.notes.append(text)

    def expect(self, holds, what, example=""):
        if not holds:
            self.find(what, example)
        return holds

    def passed(self, outcome, what, status=0):
        """Whether a program ended as it was to."""
        if not outcome.hung and outcome.status == status:
            return True
        self.find(f"{what}: {outcome.word()}", outcome.last_words() + outcome.stacks[-4000:])
        return False

    def compare(self, what, ours, direct, keys=None, windows=1):
        """Whether what a program holds at its end through us is what it holds directly, or what it
        held through us when it had run for a tenth of its time. Beyond the first window, each one
        that it has at its end is allowed for."""
        begin, end = ours.get("begin"), ours.get("end")
        other = direct.get("end")
        if not end or not other:
            return
        self.measured[what] = {"direct": direct, "ours": ours}
        for key in keys or ("resident", "mapped segments", "segments", "descriptors", "threads",
                            "X PIXMAP", "X GC", "X GLXContext", "X pixmap-bytes"):
            most = RATIO * max(other.get(key, 0), (begin or {}).get(key, 0))
            most += SLACK.get(key, COUNT_SLACK)
            if key.endswith("segments"):
                most += (windows - 1) * SEGMENTS_OF_A_WINDOW
            if end.get(key, 0) > most:
                self.find(f"{what}: {key} at the end {amount(key, end[key])}, directly "
                          f"{amount(key, other.get(key, 0))}",
                          f"after a tenth of the time {amount(key, (begin or {}).get(key, 0))}")

    def seconds(self):
        return time.monotonic() - self._begin

    def line(self):
        tried = ", ".join(f"{number} {what}" for what, number in self.tried.items())
        times = sum(one["times"] for one in self.found)
        return (f"soak {self.name}: seed {self.seed}, {self.form}, {self.seconds():.0f} s; tried "
                f"{tried or 'nothing'}; found {times}")

    def write(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        top = pathlib.Path(__file__).resolve().parents[3]
        commit = subprocess.run(["git", "-C", top, "rev-parse", "--short", "HEAD"], text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.strip()
        text = json.dumps({
            "scenario": self.name, "seed": self.seed, "form": self.form, "scale": self.scale,
            "seconds": round(self.seconds(), 1), "date": time.strftime("%Y-%m-%d"),
            "commit": commit, "processors": os.cpu_count(), "kernel": platform.release(),
            "tried": self.tried, "found": self.found, "notes": self.notes,
            "measured": self.measured}, indent=1)
        suffix = "" if self.form == "full" else f"-{self.form}"
        (folder / f"{self.name}{suffix}.json").write_text(text + "\n")


def amount(key, number):
    if key == "resident" or key.endswith("bytes"):
        return f"{number / (1 << 20):.0f} MB"
    return str(number)
