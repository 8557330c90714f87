#!/usr/bin/env python3
"""Times the tarvo program on a folder of problem files, against glpsol and clp where these are installed.

All solvers run on the same plain copy of a file, one after the other, file by file, so that a drift of the machine's
speed touches all of them alike. Times are CPU seconds of the whole process, reading included, as the operating
system accounts for them. The published optima come from FOLDER/<name of folder>.csv (columns name, objective, status).
The table goes to standard output and to bench/results/<set>-<mode>.md.
"""
import argparse
import csv
import gzip
import json
import math
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
IPOPT = ROOT / "build/release/ipopt_qp"

# mode: (options of tarvo, of glpsol, of clp before the file is solved); None: that solver can't
MODES = {
    "intpnt": (["-o", "intpnt", "-p", "INTPNT_BASIS=NEVER"], ["--interior"], ["-crossover", "off", "-barrier"]),
    "qp": (["-o", "intpnt"], None, ["-barrier"]),  # and Ipopt, through bench/ipopt_qp.cpp
    "conic": (["-o", "conic"], None, None),
    "primal": (["-o", "primal", "--presolve", "off", "-p", "SIM_SOLVE_FORM=PRIMAL"], ["--nopresol", "--primal"], ["-presolve", "off", "-primalsimplex"]),
    "dual": (["-o", "dual"], ["--dual"], ["-dualsimplex"]),  # presolve on for all
    "free": (["-o", "free-simplex"], [], ["-dualsimplex"]),
}


def find_set(name):
    for folder in (pathlib.Path(name), pathlib.Path(os.environ.get("TARVO_DATA", "")) / name, ROOT / "tests/data" / name):
        if folder.is_dir():
            return folder.resolve()
    sys.exit(f"no folder '{name}' here, in $TARVO_DATA or in tests/data")


def read_index(folder):
    table = folder / (folder.name + ".csv")
    if not table.exists():
        return {}
    with table.open(newline="") as f:
        return {row["name"]: row for row in csv.DictReader(f)}


def run(command, limit):
    """Runs a command; gives (output, CPU seconds, timed out)."""
    with tempfile.TemporaryFile() as out:
        process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT)
        deadline = time.monotonic() + limit
        late = False
        while True:
            pid, status, usage = os.wait4(process.pid, os.WNOHANG)
            if pid:
                process.returncode = status
                break
            if time.monotonic() > deadline:
                process.kill()
                late = True
                _, process.returncode, usage = os.wait4(process.pid, 0)
                break
            time.sleep(0.002)
        out.seek(0)
        return out.read().decode(errors="replace"), usage.ru_utime + usage.ru_stime, late


def run_tarvo(path, options, limit, scratch):
    report = scratch / "tarvo.json"
    report.unlink(missing_ok=True)
    output, cpu, late = run([str(ROOT / "build/release/tarvo"), "-q", "-t", str(limit), "--json", str(report)] + options
                            + [str(path)], limit + 30)
    try:
        answer = json.loads(report.read_text())
    except (OSError, ValueError):
        return {"status": "timeout" if late else "no answer", "cpu": cpu, "objective": None, "iterations": None,
                "output": output}
    status = answer["solution_status"]
    status = {"prim_infeas_cer": "infeasible", "dual_infeas_cer": "unbounded"}.get(status, status)
    # Of an infeasible problem only the dual side is a certificate, of an unbounded one only the primal side.
    violation = max([answer["max_primal_infeasibility"] or 0] * (status != "infeasible")
                    + [answer["max_dual_infeasibility"] or 0] * (status != "unbounded"))
    # A certificate is as good at any length: what it violates counts against what it proves.
    proves = {"infeasible": answer["dual_objective"], "unbounded": answer["primal_objective"]}.get(status)
    if proves is not None:
        violation = violation / abs(proves) if proves else float("inf")
    return {"status": status, "cpu": cpu, "objective": answer["primal_objective"], "iterations": answer["iterations"],
            "violation": violation, "basic": answer.get("basic_keys", answer["rows"]), "rows": answer["rows"]}


def run_glpsol(path, options, limit, free=False):
    output, cpu, late = run(["glpsol", "--freemps" if free else "--mps", str(path), "--tmlim", str(limit)] + options,
                            limit + 30)
    if not free and "MPS file processing error" in output:
        return run_glpsol(path, options, limit, True)
    rows = re.findall(r"^[*#]?\s*(\d+): obj =\s*([^\s;]+)", output, re.M)
    status = ("optimal" if "OPTIMAL" in output else "infeasible" if "NO PRIMAL FEASIBLE" in output or
              "NO FEASIBLE" in output else "unbounded" if "UNBOUNDED" in output or "NO DUAL FEASIBLE" in output else
              "timeout" if late or "TIME LIMIT" in output else "unknown")
    return {"status": status, "cpu": cpu, "objective": float(rows[-1][1]) if rows else None,
            "iterations": int(rows[-1][0]) if rows else None}


def run_clp(path, options, limit):
    output, cpu, late = run(["clp", str(path), "-seconds", str(limit)] + options, limit + 30)
    best = re.search(r"Optimal objective\s+(\S+) - (\d+) iterations", output)
    status = ("optimal" if best else "infeasible" if "infeasible" in output.lower() else
              "timeout" if late else "unknown")
    return {"status": status, "cpu": cpu, "objective": float(best.group(1)) if best else None,
            "iterations": int(best.group(2)) if best else None}


def run_ipopt(path, limit):
    output, cpu, late = run([str(IPOPT), str(path), str(limit)], limit + 30)
    best = re.search(r"Optimal objective (\S+) - (\d+) iterations", output)
    return {"status": "optimal" if best else "timeout" if late else "unknown", "cpu": cpu,
            "objective": float(best.group(1)) if best else None, "iterations": int(best.group(2)) if best else None}


def deviation(value, published):
    if value is None or published is None:
        return None
    return abs(value - published) / max(1.0, abs(published))


def text(value, pattern):
    return "-" if value is None else format(value, pattern)


def geomean(values):
    return math.exp(sum(map(math.log, values)) / len(values)) if values else None


def main():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("set", help="a folder of problem files, or its name below $TARVO_DATA or tests/data")
    parser.add_argument("--mode", choices=sorted(MODES), default="primal")
    parser.add_argument("--only", help="regular expression on the file names")
    parser.add_argument("--limit", type=int, default=600, help="seconds a file and solver (600)")
    parser.add_argument("--floor", type=float, default=0.05, help="files below this for everyone don't count (0.05)")
    parser.add_argument("--alone", action="store_true", help="don't run the other solvers")
    parser.add_argument("--no-write", action="store_true", help="don't write the table to bench/results")
    parser.add_argument("--tarvo", nargs=argparse.REMAINDER, default=[], help="further options of tarvo")
    args = parser.parse_args()

    folder = find_set(args.set)
    index = read_index(folder)
    names = sorted(index) or sorted(p.name for p in folder.iterdir() if p.suffix in (".gz", ".mps"))
    if args.only:
        names = [n for n in names if re.search(args.only, n)]
    ours, glp, clp = MODES[args.mode]
    wanted = [p for p, options in (("glpsol", glp), ("clp", clp)) if options is not None and not args.alone]
    peers = [p for p in wanted if shutil.which(p)]
    if args.mode == "qp" and IPOPT.exists() and not args.alone:
        peers.append("ipopt")
    for missing in set(wanted) - set(peers):
        print(f"{missing} is not installed (packages glpk-utils, coinor-clp): left out", file=sys.stderr)

    head = ["file", "status", "objective", "deviation", "violation", "iterations", "seconds"]
    for p in peers:
        head += [f"{p} iter", f"{p} s", f"ratio {p}"]
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    print(lines[0] + "\n" + lines[1], flush=True)
    ratios = {p: [] for p in peers}
    wrong = []
    scratch = pathlib.Path(tempfile.mkdtemp())
    for name in names:
        packed = next((p for p in (folder / (name + ".gz"), folder / name) if p.exists()), None)
        if packed is None:
            continue
        plain = scratch / pathlib.Path(name).name
        plain.write_bytes(gzip.decompress(packed.read_bytes()) if packed.suffix == ".gz" else packed.read_bytes())
        row = index.get(name, {})
        published = float(row["objective"]) if row.get("objective") else None
        mine = run_tarvo(plain, ours + args.tarvo, args.limit, scratch)
        off = deviation(mine["objective"], published) if mine["status"] == "optimal" else None
        expected = row.get("status", "")
        good = (mine["status"] == expected or expected not in ("optimal", "infeasible", "unbounded") or
                (expected == "optimal" and mine["status"] == "integer_optimal"))
        if not good or (off is not None and off > 1e-6) or mine.get("violation", 0) > 1e-6:
            wrong.append(name)
        cells = [name, mine["status"], text(mine["objective"], ".10g"), text(off, ".1e"),
                 text(mine.get("violation"), ".1e"), text(mine["iterations"], "d"), text(mine["cpu"], ".3f")]
        theirs = {}
        for p in peers:
            theirs[p] = (run_glpsol(plain, glp, args.limit, False) if p == "glpsol" else
                         run_ipopt(plain, args.limit) if p == "ipopt" else run_clp(plain, clp, args.limit))
        slowest = max([mine["cpu"]] + [t["cpu"] for t in theirs.values()])
        for p in peers:
            ratio = mine["cpu"] / max(theirs[p]["cpu"], 1e-3)
            solved = theirs[p]["status"] in ("optimal", "infeasible", "unbounded")
            if slowest > args.floor and solved and mine["status"] in ("optimal", "infeasible", "unbounded"):
                ratios[p].append(ratio)
            cells += [text(theirs[p]["iterations"], "d"), text(theirs[p]["cpu"], ".3f") + ("" if solved else "!"),
                      text(ratio, ".2f")]
        lines.append("| " + " | ".join(cells) + " |")
        print(lines[-1], flush=True)
        plain.unlink()
    shutil.rmtree(scratch)
    closing = [f"{len(lines) - 2} files; not as published or violation above 1e-6: {', '.join(wrong) or 'none'}"]
    for p in peers:
        closing.append(f"geometric mean of CPU seconds against {p} over {len(ratios[p])} files that take anyone more than "
                       f"{args.floor} s: {text(geomean(ratios[p]), '.3f')}")
    print("\n" + "\n".join(closing))
    if not args.no_write and not args.only:
        target = ROOT / "bench/results" / f"{folder.name}-{args.mode}.md"
        target.parent.mkdir(exist_ok=True)
        target.write_text(f"# {folder.name}, {args.mode}\n\nOne run, all solvers in turn on each file; CPU seconds of the "
                          "whole process, reading included. `!`: that solver gave no final status.\n\n"
                          + "\n".join(lines) + "\n\n" + "\n".join(closing) + "\n")


if __name__ == "__main__":
    main()
