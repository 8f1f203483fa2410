#!/usr/bin/env python3
"""Checks that every file and folder which the documents name is there.

usage: check_documents.py TOP DOCUMENT...

Looked at are the targets of links and what stands between backticks and begins with one of the
tree's folders.
"""
import pathlib
import re
import sys


def named_paths(top, document):
    text = document.read_text(encoding="utf-8")
    folders = "|".join(sorted(entry.name for entry in top.iterdir()
                              if entry.is_dir() and not entry.name.startswith((".", "build"))))
    for match in re.finditer(r"`((?:%s)/[^`\s]*)`" % folders, text):
        yield match.group(1), top / match.group(1)
    for match in re.finditer(r"\]\(([^)#:]+)\)", text):
        yield match.group(1), document.parent / match.group(1)


def main():
    top = pathlib.Path(sys.argv[1])
    missing, count = [], 0
    for name in sys.argv[2:]:
        for text, path in named_paths(top, top / name):
            count += 1
            if not path.exists():
                missing.append(f"{name}: {text} is not there")
    print("\n".join(missing) or f"{count} names, all there")
    # No name at all means that the documents are written in a way that this does not read.
    return 1 if missing or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
