#!/usr/bin/env python3
"""compare_symbols.py FRONT FOLDER: compares what the front library FRONT exports with what the
system's libGL.so.1 exports, and with the lists in FOLDER (symbols.def, own_symbols.txt)."""

import pathlib
import re
import subprocess
import sys


def exported(library):
    text = subprocess.run(["nm", "-D", "--defined-only", library], check=True,
                          capture_output=True, text=True).stdout
    return {line.split()[2].split("@")[0]: line.split()[1] for line in text.splitlines()}


def system_library(front):
    # The fifth byte tells 32-bit libraries from 64-bit ones.
    kind = "libc6" if pathlib.Path(front).read_bytes()[4] == 1 else r"libc6,x86-64"
    text = subprocess.run(["/sbin/ldconfig", "-p"], check=True, capture_output=True,
                          text=True).stdout
    found = re.findall(rf"libGL\.so\.1 \({kind}(?:, .*)?\) => (\S+)", text)
    if not found:
        sys.exit("the system has no libGL.so.1 to compare with")
    return found[0]


def complain(what, names):
    if names:
        print(f"{what}: {', '.join(sorted(names))}")
    return bool(names)


def main():
    front = exported(sys.argv[1])
    folder = pathlib.Path(sys.argv[2])
    system = exported(system_library(sys.argv[1]))
    listed = set(re.findall(r"^KOR_SYMBOL\((\w+)\)", (folder / "symbols.def").read_text(), re.M))
    own = {line for line in (folder / "own_symbols.txt").read_text().split("\n")
           if line and not line.startswith("#")}
    functions = {name for name, kind in front.items() if kind in "Ti"}
    failed = complain("exported by the system's library, not by the front",
                      system.keys() - front.keys())
    failed |= complain("in symbols.def, but no function of the front", listed - functions)
    failed |= complain("exported by the front without being on a list",
                       front.keys() - listed - own - {"__bss_start", "_edata", "_end"})
    failed |= complain("in own_symbols.txt, but not exported", own - front.keys())
    print(f"{len(system)} symbols of the system's library, {len(front)} of the front")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
