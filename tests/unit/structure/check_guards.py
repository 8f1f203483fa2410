#!/usr/bin/env python3
"""Finds local static objects that have a lock of their own.

Usage: check_guards.py NM LIBRARY...
The compiler guards the making of such an object. A child that is forked meanwhile finds the guard
taken by a thread that it does not have, and waits for ever. What a process has one of is a
kor::PerProcess (src/support/forked_child.h).
"""

import subprocess
import sys


def main(nm, *libraries):
    found = 0
    for library in libraries:
        output = subprocess.run([nm, "-C", library], check=True, capture_output=True,
                                text=True).stdout
        if " T " not in output and " t " not in output:
            print(f"{library} has no symbols to look at")
            return 1
        for line in output.splitlines():
            # Those of the C++ runtime, which the fronts bring along, are its own affair.
            if "guard variable for " in line and "std::" not in line.split("(")[0] \
                    and "__gnu" not in line:
                print(f"{library}: {line.split(maxsplit=2)[2]}")
                found += 1
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
