#!/usr/bin/env python3
"""Checks that every folder of src/ includes only the folders that CMakeLists.txt allows it."""
import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
allowed = {}
for line in (root / "CMakeLists.txt").read_text().splitlines():
    match = re.match(r"tarvo_folder\((.*)\)$", line)
    if match and not match.group(1).startswith("name"):
        words = match.group(1).replace("tarvo_calls", "tarvo").split()
        allowed[words[0]] = {words[0]} | {w for w in words[1:] if "::" not in w}

faults = 0
for path in sorted((root / "src").rglob("*")):
    if path.suffix not in (".cpp", ".h"):
        continue
    folder = path.relative_to(root / "src").parts[0]
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = re.match(r'\s*#include "([^"]+)"', line)
        if not match:
            continue
        target = match.group(1)
        if target == "tarvo.h":
            fault = folder not in ("optimize", "tarvo")
        else:
            top = target.split("/")[0]
            fault = "/" not in target or top not in allowed.get(folder, set())
        if fault:
            print(f"{path.relative_to(root)}:{number}: {folder} may not include {target}")
            faults += 1
sys.exit(1 if faults else 0)
