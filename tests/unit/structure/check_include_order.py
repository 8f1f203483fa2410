#!/usr/bin/env python3
"""Checks that the folders of src/ are floors: a file includes from its own floor and those below.

Usage: check_include_order.py SRC
What must reach upward is declared low and implemented above, in a file named after what it does.
"""

import pathlib
import re
import sys

FLOORS = ["support", "config", "core", "display", "visual", "context", "drawable", "transport",
          "entry"]

# (file, included file): why it may look upward all the same. An entry that no file needs any more is
# an error too.
EXCEPTIONS = {
    ("context/make_current.cpp", "drawable/registry.h"):
        "a context becomes current on a drawable's record, which is found or made on the way; the "
        "records know contexts by their handles only",
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def main(source):
    source = pathlib.Path(source)
    problems = []
    used = set()
    seen = 0
    for path in sorted(source.rglob("*")):
        if path.suffix not in {".h", ".cpp", ".def"}:
            continue
        name = path.relative_to(source).as_posix()
        floor = name.split("/")[0]
        if floor not in FLOORS:
            problems.append(f"{name}: not on any floor")
            continue
        seen += 1
        for included in INCLUDE.findall(path.read_text(encoding="utf-8")):
            target = included.split("/")[0]
            if target not in FLOORS or not (source / included).is_file():
                problems.append(f'{name}: includes "{included}", which is no file below src/')
            elif FLOORS.index(target) > FLOORS.index(floor):
                if (name, included) in EXCEPTIONS:
                    used.add((name, included))
                else:
                    problems.append(f'{name}: includes "{included}" from a floor above')
    for name, included in EXCEPTIONS.keys() - used:
        problems.append(f'{name} does not include "{included}": the exception is not needed')
    if seen == 0:
        problems.append(f"{source} holds no source files")
    print("\n".join(problems) if problems else f"{seen} files look down only")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
