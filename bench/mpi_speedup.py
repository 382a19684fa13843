#!/usr/bin/env python3
"""Predicted speed-up of an MPI batch run from the figures bench_mpi_evaluation measures.

    build/bench/bench_mpi_evaluation --benchmark_format=json > figures.json
    python3 bench/mpi_speedup.py figures.json [--cost-factor F]

One iteration on R ranks of one thread each takes

    T(R) = s(n) + max(n c / R, n (k + b / B) + m(n, R) L) + c

s(n): the serial part at n points (rank 0 alone: steps, bookkeeping, files);
c: one point's evaluation (Stage 1 or Stage 2); k: rank 0's encoding and
decoding per point; b: bytes per point; B: bandwidth into rank 0; m: chunks
handed out (the batch tool's shrinking-chunk rule); L: rank 0's time per
chunk message; the last + c is the slowest last chunk. T(1) = s(n) + n c is
one process on one thread. --cost-factor scales c (a heavier model).
"""
import argparse
import json
import math

BANDWIDTH = 1.25e9  # bytes/s into rank 0: 10 Gbit/s Ethernet (assumed)
LATENCY = 20e-6  # s per chunk round trip at rank 0 (assumed)


def chunk_count(points, ranks, smallest=1):
    """Chunks of the batch tool's rule: half the remaining rows shared by the ranks."""
    remaining, chunks = points, 0
    while remaining > 0:
        take = min(remaining, max(smallest, math.ceil(remaining / (2 * ranks))))
        remaining -= take
        chunks += 1
    return chunks


def figures(path):
    rows = {}
    for b in json.load(open(path))["benchmarks"]:
        rows[b["name"].split("/")[0]] = b
    seconds = {"us": 1e-6, "ms": 1e-3, "s": 1.0, "ns": 1e-9}
    real = lambda name: rows[name]["real_time"] * seconds[rows[name]["time_unit"]]
    return {
        "c1": real("BM_EvaluatePoint_Stage1"),
        "c2": real("BM_EvaluatePoint_Stage2"),
        "b": rows["BM_EvaluatePoint_Stage1"]["bytes_per_point"],
        "k": 1.0 / rows["BM_MessageCodec"]["items_per_second"],
        "s": {2500: rows["BM_SerialPart_Points2500"]["serial_s_per_iter"],
              10000: rows["BM_SerialPart_Points10000"]["serial_s_per_iter"]},
    }


def iteration_seconds(f, n, c, ranks):
    if ranks == 1:
        return f["s"][n] + n * c
    transfer = n * (f["k"] + f["b"] / BANDWIDTH) + chunk_count(n, ranks) * LATENCY
    return f["s"][n] + max(n * c / ranks, transfer) + c


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("figures")
    parser.add_argument("--cost-factor", type=float, default=1.0)
    args = parser.parse_args()
    f = figures(args.figures)
    f["c1"] *= args.cost_factor
    f["c2"] *= args.cost_factor
    print("c1 %.3g s, c2 %.3g s, b %d B, k %.3g s, s(2500) %.3g s, s(10000) %.3g s"
          % (f["c1"], f["c2"], f["b"], f["k"], f["s"][2500], f["s"][10000]))
    cases = [(n, stage) for n in (2500, 10000) for stage in (1, 2)]
    print("| ranks | " + " | ".join("%d points, Stage %d" % case for case in cases) + " |")
    print("|---" * (len(cases) + 1) + "|")
    for ranks in (16, 64, 256):
        cells = []
        for n, stage in cases:
            c = f["c%d" % stage]
            cells.append("%.1f" % (iteration_seconds(f, n, c, 1) / iteration_seconds(f, n, c, ranks)))
        print("| %d | %s |" % (ranks, " | ".join(cells)))
    limits = ["%.1f" % ((f["s"][n] + n * f["c%d" % stage]) / f["s"][n]) for n, stage in cases]
    print("| limit (serial part) | %s |" % " | ".join(limits))


if __name__ == "__main__":
    main()
