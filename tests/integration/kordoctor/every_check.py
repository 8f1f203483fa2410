#!/usr/bin/env python3
"""Every check that kordoctor makes is expected by its tests both well and not well.

usage: every_check.py KORDOCTOR PROGRAM

The checks are asked of KORDOCTOR itself; what is expected is read in the tests' sources: a check by
its identifier and the status, `found["glx"], HasStatus("ok")`, or a list of identifiers whose
`found[check]` has the status.
"""
import collections
import json
import os
import pathlib
import re
import subprocess
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
# Functions of the tests that return one check.
RETURNED = {"frontOf": "program-front", "frontWithoutVendor": "program-front",
            "check32": "libraries-32-bit"}
CALL = re.compile(rf"\b({'|'.join(RETURNED)})\(")


def checks_of(kordoctor, program):
    environment = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
    report = subprocess.run([kordoctor, "--json", "--", program], stdout=subprocess.PIPE,
                            env=environment | {"KOR_GL_DISPLAY": ":59000"}, timeout=120,
                            check=False)
    # Each setting is a check, made by the same code.
    return sorted({check["id"].split(".")[0] for check in json.loads(report.stdout)["checks"]})


def expectations():
    """The statuses that the tests expect, by check."""
    expected = collections.defaultdict(set)
    for source in SOURCES.glob("*_test.cpp"):
        for test in re.split(r"^TEST", source.read_text(), flags=re.M):
            for name, status in re.findall(r'\["([\w.-]+)"[^\]]*\],\s*HasStatus\("(\w+)"\)', test):
                expected[name.split(".")[0]].add(status)
            for names, status in re.findall(
                    r'for \([^{;]*\{([^}]*)\}\)\s*\{?[^{}]*?\[check\],\s*HasStatus\("(\w+)"\)',
                    test):
                for name in re.findall(r'"([\w.-]+)"', names):
                    expected[name.split(".")[0]].add(status)
            # Findings that were given a name first.
            for variable, value in re.findall(r"const Finding (\w+) =\s*([^;]*);", test):
                found = re.search(r'\["([\w.-]+)"', value)
                call = CALL.search(value)
                if not (found or call):
                    continue
                name = RETURNED[call.group(1)] if call else found.group(1)
                for status in re.findall(rf'\({variable}, HasStatus\("(\w+)"\)', test):
                    expected[name.split(".")[0]].add(status)
            for function, status in re.findall(
                    rf'THAT\(({"|".join(RETURNED)})\([^;]*?\), HasStatus\("(\w+)"\)', test):
                expected[RETURNED[function]].add(status)
    return expected


def main():
    checks = checks_of(*sys.argv[1:3])
    expected = expectations()
    missing = [f"{check}: no test expects it to be {what}" for check in checks
               for what, statuses in (("ok", {"ok"}), ("a warning or broken", {"warning", "broken"}))
               if not expected[check] & statuses]
    print("\n".join(missing) or f"{len(checks)} checks, each expected well and not well")
    # A report without checks would miss nothing.
    return 1 if missing or len(checks) < 20 else 0


if __name__ == "__main__":
    sys.exit(main())
