#!/usr/bin/env python3
"""Runs benchmark programs and prints each quillon case beside its baselines.

Naming rule of the benchmarks: "<case>/quillon" is the library's path and
"<case>/<baseline>" the same work done by the baseline (std::, the C library,
raw system calls), optionally followed by "/<argument>". The ratio printed is
quillon time / baseline time: below 1 the library is faster.

usage: bench/ratios.py build/bench/foundation_bench [more programs...]
"""
import json
import subprocess
import sys
from collections import defaultdict


def run(program):
    out = subprocess.run([program, "--benchmark_format=json",
                          "--benchmark_min_time=0.2"],
                         check=True, capture_output=True, text=True).stdout
    return json.loads(out)["benchmarks"]


def main(programs):
    for program in programs:
        cases = defaultdict(dict)
        for b in run(program):
            if b.get("run_type") == "aggregate":
                continue
            parts = b["name"].split("/")
            if len(parts) < 2:
                continue
            case = "/".join([parts[0]] + parts[2:])
            cases[case][parts[1]] = b["real_time"]
        print(f"## {program.split('/')[-1]}")
        print("| case | quillon | baseline | baseline time | ratio |")
        print("|---|---|---|---|---|")
        for case, times in cases.items():
            mine = times.get("quillon")
            if mine is None:
                continue
            for name, theirs in times.items():
                if name == "quillon":
                    continue
                print(f"| {case} | {mine:.1f} ns | {name} | {theirs:.1f} ns | {mine / theirs:.2f} |")
        print()


if __name__ == "__main__":
    main(sys.argv[1:])
