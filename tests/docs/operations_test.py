#!/usr/bin/env python3
"""Each log line that docs/operations.md explains is one that the sources can write."""

import pathlib
import re
import sys

PROJECT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("backend", "certificates", "client", "platform", "process", "vehicle")


def main():
    text = "".join(path.read_text() for folder in FOLDERS
                   for path in (PROJECT / folder).rglob("*.cpp"))
    text = re.sub(r'"\s*"', "", text.replace('\\"', "'"))
    tables = (PROJECT / "docs" / "operations.md").read_text().split("## Log lines")[1]
    lines = [line for row in re.findall(r"^\| (`.*?) \|", tables, re.MULTILINE)
             for line in re.findall(r"`(.*?)`", row)]
    unknown = [line for line in lines for piece in line.replace('"', "'").split("…")
               if piece.strip(" :'") not in text]
    print(f"{len(lines)} lines, unknown: {unknown}")
    return 1 if unknown or not lines else 0


if __name__ == "__main__":
    sys.exit(main())
