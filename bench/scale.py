#!/usr/bin/env python3
"""Time per simplex iteration against size: sparse transport problems of 10k, 40k and 160k rows.

Each problem is cut off after two iteration counts, a fifth and four fifths of its rows, and the difference of the
optimise times is taken, so that reading, scaling and the first factorisation drop out. The table goes to
bench/results/scale.md.
"""
import json
import pathlib
import random
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
CUTS = (0.2, 0.8)  # of the rows


def write_transport(path, rows, seed):
    """Half of the rows are supplies, half demands; every demand is served by four random supplies."""
    draw = random.Random(seed)
    half = rows // 2
    with path.open("w") as f:
        f.write("NAME          TRANSPORT\nROWS\n N  COST\n")
        f.writelines(f" L  S{i}\n" for i in range(half))
        f.writelines(f" G  D{i}\n" for i in range(half))
        f.write("COLUMNS\n")
        number = 0
        for d in range(half):
            for s in draw.sample(range(half), 4):
                f.write(f"    X{number}  COST  {draw.randint(1, 1000)}  S{s}  1\n    X{number}  D{d}  1\n")
                number += 1
        f.write("RHS\n")
        f.writelines(f"    RHS  S{i}  {draw.randint(20, 60)}\n" for i in range(half))
        f.writelines(f"    RHS  D{i}  {draw.randint(5, 15)}\n" for i in range(half))
        f.write("ENDATA\n")


def solve(path, cut, scratch):
    report = scratch / "out.json"
    subprocess.run([ROOT / "build/release/tarvo", "-q", "-o", "primal", "-p", f"SIM_MAX_ITERATIONS={cut}", "-p",
                    "PRESOLVE_USE=OFF", "--mps-format", "free", "--json", report, path], stdout=subprocess.DEVNULL)
    answer = json.loads(report.read_text())
    return answer["iterations"], answer["seconds"]


def main():
    lines = ["| rows | columns | iterations | microseconds per iteration | growth for four times the rows |",
             "|---|---|---|---|---|"]
    last = None
    with tempfile.TemporaryDirectory() as folder:
        scratch = pathlib.Path(folder)
        for rows in (10000, 40000, 160000):
            path = scratch / "transport.mps"
            write_transport(path, rows, 1)
            figures = []
            for _ in range(3):
                (i0, s0), (i1, s1) = (solve(path, int(cut * rows), scratch) for cut in CUTS)
                figures.append((s1 - s0) / max(1, i1 - i0) * 1e6)
            per = min(figures)
            lines.append(f"| {rows} | {rows * 2} | {i1 - i0} | {per:.1f} | {'-' if last is None else f'{per / last:.2f}'} |")
            print(lines[-1], flush=True)
            last = per
    target = ROOT / "bench/results/scale.md"
    target.parent.mkdir(exist_ok=True)
    target.write_text("# Time per iteration of the primal simplex\n\nTransport problems, difference of runs cut at "
                      f"{CUTS[0]} and {CUTS[1]} iterations a row, best of 3.\n\n" + "\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
