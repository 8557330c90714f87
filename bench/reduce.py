#!/usr/bin/env python3
"""Rows and columns that the presolve leaves, against clp's presolve, file by file.

The table goes to standard output and to bench/results/reduce-<set>.md. Rows are those that are not free, columns those
that are not fixed.
"""
import argparse
import gzip
import json
import pathlib
import re
import shutil
import subprocess
import tempfile

from run import ROOT, find_set, geomean, read_index, run


def ours(path, scratch, limit):
    report = scratch / "out.json"
    report.unlink(missing_ok=True)
    run([str(ROOT / "build/release/tarvo"), "-q", "-o", "primal", "-p", "SIM_SOLVE_FORM=PRIMAL", "-p", "PRESOLVE_USE=ON", "-p", "SIM_MAX_ITERATIONS=0",
         "--json", str(report), str(path)], limit)
    answer = json.loads(report.read_text())
    return [answer[key] for key in ("rows", "columns", "presolved_rows", "presolved_columns", "presolved_nonzeros")]


def theirs(path, limit):
    output, _, _ = run(["clp", str(path), "-presolve", "on", "-maxIterations", "0", "-dualsimplex"], limit)
    found = re.search(r"Presolve (\d+) \(-?\d+\) rows, (\d+) \(-?\d+\) columns and (\d+)", output)
    return [int(v) for v in found.groups()] if found else [0, 0, 0]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("set")
    parser.add_argument("--only", help="regular expression on the file names")
    parser.add_argument("--limit", type=int, default=60)
    args = parser.parse_args()
    folder = find_set(args.set)
    names = [n for n in sorted(read_index(folder)) if not args.only or re.search(args.only, n)]
    scratch = pathlib.Path(tempfile.mkdtemp())
    lines = ["| file | rows | columns | rows left | columns left | non-zeros left | clp rows | clp columns | clp non-zeros |",
             "|" + "---|" * 9]
    ratios = ([], [], [])
    for name in names:
        packed = next((p for p in (folder / (name + ".gz"), folder / name) if p.exists()), None)
        if packed is None:
            continue
        plain = scratch / pathlib.Path(name).name
        plain.write_bytes(gzip.decompress(packed.read_bytes()) if packed.suffix == ".gz" else packed.read_bytes())
        mine, peer = ours(plain, scratch, args.limit), theirs(plain, args.limit)
        for k in range(3):
            ratios[k].append((mine[2 + k] + 1) / (peer[k] + 1))
        lines.append("| " + " | ".join([name] + [str(v) for v in mine + peer]) + " |")
        print(lines[-1], flush=True)
        plain.unlink()
    shutil.rmtree(scratch)
    closing = "geometric mean of what is left against clp: rows {:.3f}, columns {:.3f}, non-zeros {:.3f}".format(
        *(geomean(r) for r in ratios))
    print(closing)
    if not args.only:
        (ROOT / "bench/results" / f"reduce-{folder.name}.md").write_text(
            f"# What the presolve leaves, {folder.name}\n\n" + "\n".join(lines) + "\n\n" + closing + "\n")


if __name__ == "__main__":
    main()
