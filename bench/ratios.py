#!/usr/bin/env python3
"""Turns benchmark results into Markdown tables of ratios.

Naming rule of the benchmarks: "<case>/quillon" is the library's path,
"<case>/poco" the same work through POCO (the peer), and "<case>/<baseline>"
the same work done by the baseline (std::, the C library, raw system calls),
each optionally followed by "/<argument>". A ratio is quillon / other: below 1
the library is faster or leaner.

Times are the medians over the repetitions of each case (real time, and
for the cases that measure it, the CPU time of the whole process).
Instructions come from callgrind runs (see run-figures): the count of one
benchmark iteration, divided by the items or bytes that the iteration
processes when it declares them.

As a program: bench/ratios.py results.json [more.json ...] prints one table
per file of benchmark JSON output (--benchmark_format=json).
"""
import json
import re
import statistics
import sys
from collections import OrderedDict

QUILLON = "quillon"
PEER = "poco"

# Suffixes that Google Benchmark appends to a run name.
_SUFFIX = re.compile(r"^(real_time|manual_time|process_time|threads:\d+|iterations:\d+|repeats:\d+|min_time:.*)$")
_TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def split_name(run_name):
    """(case key, implementation) of a run name, or None if it has no implementation part."""
    parts = [p for p in run_name.split("/") if not _SUFFIX.match(p)]
    if len(parts) < 2:
        return None
    case = "/".join([parts[0]] + parts[2:])
    return case, parts[1]


def load(path):
    with open(path) as f:
        return json.load(f)


def median_times(results, field="real_time"):
    """{case: {implementation: median of field in ns}}, cases sorted by name and
    argument. Output that holds only aggregates gives their medians. The field
    "process_time" is the CPU time of the whole process, for the cases that
    measure it (MeasureProcessCPUTime), and leaves the others out."""
    samples = OrderedDict()
    for b in results["benchmarks"]:
        aggregate = b.get("run_type") == "aggregate"
        if b.get("error_occurred") or (aggregate and b.get("aggregate_name") != "median"):
            continue
        run_name = b.get("run_name", b["name"])
        named = split_name(run_name)
        if named is None or (field == "process_time" and "/process_time" not in run_name):
            continue
        case, impl = named
        ns = b["cpu_time" if field == "process_time" else field] * _TO_NS[b.get("time_unit", "ns")]
        runs = samples.setdefault(case, OrderedDict()).setdefault(impl, {"runs": [], "median": []})
        runs["median" if aggregate else "runs"].append(ns)
    return OrderedDict(
        (case, OrderedDict((impl, statistics.median(v["runs"] or v["median"])) for impl, v in impls.items()))
        for case, impls in sorted(samples.items(), key=lambda item: natural_key(item[0])))


def natural_key(case):
    """Sorts "Throughput/65536" before "Throughput/1048576"."""
    return [(0, int(p), "") if p.isdigit() else (1, 0, p) for p in case.split("/")]


def operations_per_iteration(bench):
    """(count, unit) of what one iteration processes, from its rate counters."""
    for counter, unit in (("bytes_per_second", "byte"), ("items_per_second", "item")):
        rate = bench.get(counter)
        if rate:
            real = "/real_time" in bench.get("run_name", bench["name"])
            seconds = bench["real_time" if real else "cpu_time"] / 1e9 * _TO_NS[bench.get("time_unit", "ns")]
            return max(1, round(rate * seconds)), unit
    return 1, "iteration"


def instruction_counts(results, loop_counts):
    """{case: {implementation: (instructions per operation, unit)}} from the JSON of a
    callgrind run and the instruction count of the last run of each benchmark."""
    counts = OrderedDict()
    for b, total in zip(results["benchmarks"], loop_counts):
        named = split_name(b.get("run_name", b["name"]))
        if named is None or total is None:
            continue
        ops, unit = operations_per_iteration(b)
        counts.setdefault(named[0], OrderedDict())[named[1]] = (total / b["iterations"] / ops, unit)
    return counts


def human_time(ns):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= scale:
            return f"{ns / scale:.3g} {unit}"
    return f"{ns:.3g} ns"


def count_text(count):
    return f"{count:,.0f}" if count >= 100 else f"{count:.1f}"


def ratio(mine, theirs):
    return f"{mine / theirs:.2f}" if mine and theirs else "–"


def table(times, instructions=None, cpu=None):
    """Markdown table: one row for each case and baseline; POCO beside each
    baseline where the case has it, the process's CPU time where the case
    measures it, instructions where callgrind counted them."""
    instructions = instructions or {}
    cpu = cpu or {}
    has_peer = any(PEER in impls for impls in times.values())
    has_cpu = any(cpu.values())
    has_counts = any(instructions.values())
    head = ["case", "quillon", "baseline", "quillon / baseline"]
    if has_peer:
        head.append("quillon / POCO")
    if has_cpu:
        head.append("CPU time, quillon / baseline")
        if has_peer:
            head.append("CPU time, quillon / POCO")
    if has_counts:
        head += ["instructions, quillon", "instructions, quillon / baseline"]
        if has_peer:
            head.append("instructions, quillon / POCO")
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    for case, impls in times.items():
        mine = impls.get(QUILLON)
        if mine is None:
            continue
        used = cpu.get(case, {})
        counted = instructions.get(case, {})
        count = {impl: value[0] for impl, value in counted.items()}
        for name, theirs in sorted(impls.items()):
            if name in (QUILLON, PEER):
                continue
            row = [f"`{case}`", human_time(mine), f"`{name}`", ratio(mine, theirs)]
            if has_peer:
                row.append(ratio(mine, impls.get(PEER)))
            if has_cpu:
                row.append(ratio(used.get(QUILLON), used.get(name)) if used else "")
                if has_peer:
                    row.append(ratio(used.get(QUILLON), used.get(PEER)) if used else "")
            if has_counts:
                own = counted.get(QUILLON)
                row.append(f"{count_text(own[0])} per {own[1]}" if own else "")
                row.append(ratio(count.get(QUILLON), count.get(name)) if own else "")
                if has_peer:
                    row.append(ratio(count.get(QUILLON), count.get(PEER)) if own else "")
            lines.append("| " + " | ".join(row) + " |")
    return "\n".join(lines)


def main(paths):
    for path in paths:
        print(f"## {path}\n")
        results = load(path)
        print(table(median_times(results), cpu=median_times(results, "process_time")))
        print()


if __name__ == "__main__":
    main(sys.argv[1:])
