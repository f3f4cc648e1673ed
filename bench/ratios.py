#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Prints the ratios of scripts/bench from what veltra_bench measured.

ratios.py TABLE RESULTS [--json]
TABLE has the lines of ratios.txt, RESULTS is veltra_bench's own JSON with medians. With --json one object a line."""

import json
import re
import sys

NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def read_medians(file):
    """The medians of all benchmarks by name: nanoseconds, and quantiles where single operations were timed."""
    medians = {}
    with open(file, encoding="utf-8") as results:
        for one in json.load(results)["benchmarks"]:
            if one.get("aggregate_name") == "median":
                name = re.sub(r"/(real_time|manual_time|iterations:\d+)", "", one["run_name"])
                medians[name] = {"time_ns": one["real_time"] * NS[one["time_unit"]],
                                 **{f"p{part}_ns": one[f"p{part}_us"] * 1e3 for part in (50, 99) if f"p{part}_us" in one}}
    return medians


def read_rows(file):
    with open(file, encoding="utf-8") as table:
        for line in table:
            yield [cell.strip() for cell in line.split("|")]


def shown(time_ns):
    for unit, size in (("s", 1e10), ("ms", 1e7), ("us", 1e4)):
        if time_ns >= size:
            return f"{time_ns / NS[unit]:.1f} {unit}"
    return f"{time_ns:.0f} ns"


def compared(how, measured, reference):
    return {"rate": reference / measured, "time": measured / reference, "added": measured - reference}[how]


def main(table, results, *options):
    medians = read_medians(results)
    is_complete = True
    if "--json" not in options:
        print(f"{'':92} {'measured':>10} {'reference':>10} {'ratio':>8} {'p50':>6} {'p99':>6}  bound")
    for name, benchmark, against, how, bound in read_rows(table):
        if benchmark not in medians or against not in medians:
            print(f"{name}: was not measured", file=sys.stderr)
            is_complete = False
            continue
        measured, reference = medians[benchmark], medians[against]
        ratios = {key[:-3]: compared(how, measured[key], reference[key]) for key in measured if key in reference}
        if "--json" in options:
            print(json.dumps({"name": name, "measured_ns": measured, "reference_ns": reference, "how": how, "bound": bound, **ratios}))
            continue
        cells = ["" if key not in ratios else shown(ratios[key]) if how == "added" else f"{ratios[key]:.2f}"
                 for key in ("time", "p50", "p99")]
        print(f"{name:92} {shown(measured['time_ns']):>10} {shown(reference['time_ns']):>10} "
              f"{cells[0]:>8} {cells[1]:>6} {cells[2]:>6}  {bound}")
    return 0 if is_complete else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
