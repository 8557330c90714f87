#!/usr/bin/env python3
"""Solves a set of problems under every combination of optimiser, form, presolve and scaling; prints what is not as
published: status, objective within 1e-6, number of basic keys, violations below 1e-6.

    bench/matrix.py netlib --skip 'dfl001|qap12|pilot87' --jobs 2
"""
import argparse
import concurrent.futures
import gzip
import itertools
import pathlib
import re
import shutil
import tempfile

from run import deviation, find_set, read_index, run_tarvo


def trial(job):
    path, row, (optimizer, form, presolve, scaling), limit = job
    scratch = pathlib.Path(tempfile.mkdtemp())
    options = ["-o", optimizer]
    for name, value in (("SIM_SOLVE_FORM", form), ("PRESOLVE_USE", presolve), ("SIM_SCALING", scaling)):
        options += ["-p", f"{name}={value}"]
    mine = run_tarvo(path, options, limit, scratch)
    shutil.rmtree(scratch)
    wrong = []
    if mine["status"] != row.get("status"):
        wrong.append(f"status {mine['status']}")
    elif mine["status"] == "optimal" and (deviation(mine["objective"], float(row["objective"])) or 0) > 1e-6:
        wrong.append(f"objective {mine['objective']:.10g} for {row['objective']}")
    if mine.get("violation", 0) > 1e-6:
        wrong.append(f"violation {mine['violation']:.1e}")
    if mine["status"] == "optimal" and mine["basic"] != mine["rows"]:
        wrong.append(f"{mine['basic']} basic keys, {mine['rows']} rows")
    return path.name, " ".join(options), ", ".join(wrong), mine["cpu"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("set")
    parser.add_argument("--only", help="regular expression on the file names")
    parser.add_argument("--skip", help="regular expression on the file names")
    parser.add_argument("--limit", type=int, default=60)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--optimizers", default="primal,dual,free-simplex")
    parser.add_argument("--forms", default="PRIMAL,DUAL,FREE")
    parser.add_argument("--presolves", default="OFF,ON")
    parser.add_argument("--scalings", default="FREE,NONE,MODERATE,AGGRESSIVE")
    args = parser.parse_args()
    folder = find_set(args.set)
    index = read_index(folder)
    scratch = pathlib.Path(tempfile.mkdtemp())
    combinations = list(itertools.product(args.optimizers.split(","), args.forms.split(","), args.presolves.split(","),
                                          args.scalings.split(",")))
    jobs = []
    for name, row in sorted(index.items()):
        packed = next((p for p in (folder / (name + ".gz"), folder / name) if p.exists()), None)
        if packed is None or (args.only and not re.search(args.only, name)) or (args.skip and re.search(args.skip, name)):
            continue
        plain = scratch / pathlib.Path(name).name
        plain.write_bytes(gzip.decompress(packed.read_bytes()) if packed.suffix == ".gz" else packed.read_bytes())
        jobs += [(plain, row, combination, args.limit) for combination in combinations]
    wrong, cpu = 0, 0.0
    with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        for name, options, text, seconds in pool.map(trial, jobs):
            cpu += seconds
            if text:
                wrong += 1
                print(f"{name} {options}: {text} ({seconds:.1f} s)", flush=True)
    shutil.rmtree(scratch)
    print(f"{len(jobs)} runs, {len(combinations)} combinations, {cpu:.0f} CPU seconds, {wrong} not as published")


if __name__ == "__main__":
    main()
