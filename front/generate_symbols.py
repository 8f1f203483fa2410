#!/usr/bin/env python3
"""Makes symbols.def, the list of the functions that the front library exports.

    generate_symbols.py            writes symbols.def
    generate_symbols.py --verify   fails when symbols.def is not what would be written

The names are the commands of the Khronos registry (package khronos-api) and those of
beyond_registry.txt, which a system's libGL.so.1 exports although the registry lacks them.
"""

import argparse
import difflib
import pathlib
import re
import sys
import xml.etree.ElementTree

HERE = pathlib.Path(__file__).resolve().parent
REGISTRY = pathlib.Path("/usr/share/khronos-api")
OUTPUT = HERE / "symbols.def"
HEAD = """\
// Made by generate_symbols.py; not edited by hand. KOR_SYMBOL(name): one function that the front
// library exports. The order is the order of the slots and of the names (stubs_*.S, names.S).
"""


def registry_names(folder):
    names = set()
    for file in ("gl.xml", "glx.xml"):
        path = folder / file
        if not path.exists():
            sys.exit(f"{path} is missing; install the package khronos-api or name its folder "
                     "with --registry")
        for command in xml.etree.ElementTree.parse(path).getroot().iter("command"):
            name = command.find("proto/name")
            if name is not None:
                names.add(name.text)
    return names


def further_names():
    lines = (HERE / "beyond_registry.txt").read_text().splitlines()
    return {line.strip() for line in lines if line.strip() and not line.startswith("#")}


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--registry", type=pathlib.Path, default=REGISTRY,
                        help="folder of gl.xml and glx.xml")
    parser.add_argument("--verify", action="store_true", help="write nothing, compare")
    arguments = parser.parse_args()

    registry = registry_names(arguments.registry)
    further = further_names()
    for name in sorted(registry | further):
        if not re.fullmatch(r"gl[A-Za-z0-9_]+", name):
            sys.exit(f"{name!r} is no name of a GL or GLX function")
    text = HEAD + "".join(f"KOR_SYMBOL({name})\n" for name in sorted(registry | further))

    if not arguments.verify:
        OUTPUT.write_text(text)
        return
    found = OUTPUT.read_text() if OUTPUT.exists() else ""
    if found != text:
        sys.stdout.writelines(difflib.unified_diff(found.splitlines(True), text.splitlines(True),
                                                   "symbols.def", "generated"))
        sys.exit("symbols.def is out of date; run front/generate_symbols.py")
    twice = registry & further
    if twice:
        sys.exit("beyond_registry.txt names what the registry has: " + ", ".join(sorted(twice)))


if __name__ == "__main__":
    main()
