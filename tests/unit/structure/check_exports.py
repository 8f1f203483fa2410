#!/usr/bin/env python3
"""Compares the symbols that a library exports with the reviewed list of them.

Usage: check_exports.py NM LIBRARY LIST
A symbol that is exported and not listed was exported by accident or wants a review; one that is
listed and not exported is missed by somebody.
"""

import subprocess
import sys


def main(nm, library, listed_in):
    with open(listed_in, encoding="ascii") as file:
        listed = file.read().split()
    if listed != sorted(set(listed)):
        print(f"{listed_in} is not sorted, or names a symbol twice")
        return 1
    output = subprocess.run([nm, "-D", "--defined-only", "--format=posix", library],
                            check=True, capture_output=True, text=True).stdout
    # Absolute symbols are version names.
    exported = {line.split()[0].split("@")[0] for line in output.splitlines()
                if line.split()[1] != "A"}
    if not exported:
        print(f"{library} exports nothing at all")
        return 1
    for name in sorted(exported - set(listed)):
        print(f"exported, but not on the list: {name}")
    for name in sorted(set(listed) - exported):
        print(f"on the list, but not exported: {name}")
    return 0 if exported == set(listed) else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
