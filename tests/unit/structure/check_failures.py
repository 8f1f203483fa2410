#!/usr/bin/env python3
"""Finds entry points that an exception could leave.

Usage: check_failures.py SOURCE_FOLDER
Each function of core/entry_points.def, and each other exported one, is a function-try-block that
ends with KOR_OTHERWISE (support/failures.h).
"""

import pathlib
import re
import sys

# They neither allocate nor call what does.
EXEMPT = {"kor_printlog", "kor_close_log", "kor_claim_process", "kor_set_connection_hook",
          "kor_set_connection_end_hook", "kor_when_to_tell_error"}


def main(folder):
    source = pathlib.Path(folder)
    # Log lines quote signatures.
    texts = {path: re.sub(r'"(?:\\.|[^"\\\n])*"', '""', path.read_text(encoding="utf-8"))
             for path in source.rglob("*.cpp")}
    wanted = {"kor_" + name for name in re.findall(
        r"^KOR_ENTRY\((\w+)\)",
        (source / "core/entry_points.def").read_text(encoding="ascii"), re.M)}
    for path in source.rglob("*.h"):
        wanted |= set(re.findall(r"^KOR_EXPORT [^;()]*?\b((?:kor_|XKorExt)\w+)\(",
                                 path.read_text(encoding="utf-8"), re.M))
    wanted -= EXEMPT
    if len(wanted) < 90:
        print("the lists of exported functions were not found")
        return 1
    bad = 0
    for name in sorted(wanted):
        pattern = re.compile(rf"^[^\n;(]*\b{name}\([^;{{]*?\) (try )?\{{(?:[^\n]*|\n.*?^)\}}"
                             r"(\nKOR_OTHERWISE\()?", re.M | re.S)
        found = [match for text in texts.values() for match in pattern.finditer(text)]
        if len(found) != 1:
            print(f"{name}: defined {len(found)} times")
            bad += 1
        elif not found[0].group(1) or not found[0].group(2):
            print(f"{name}: an exception can leave it")
            bad += 1
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
