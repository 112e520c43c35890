#!/usr/bin/env python3
"""Reads Google Benchmark JSON files and prints every figure against its baseline and target.

A benchmark "X/baseline" is the baseline of "X"; counters on "X" carry its target:
  at_most         time of X over time of its baseline (medians), at most this
  speed_at_least  time of the baseline over time of X, at least this
  at_most_ns      time of X in nanoseconds, at most this
  p99_over_median and rss_growth_kB are figures of their own.
Exit status 0 always: the table is for people; targets that miss are marked.
"""
import json
import sys

UNIT_US = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}


def runs(paths):
    found = {}
    for path in paths:
        with open(path) as f:
            for run in json.load(f)["benchmarks"]:
                name = run.get("run_name", run["name"])
                median = run.get("aggregate_name") == "median"
                errored = run.get("error_occurred", False)
                if median or (run.get("run_type") == "iteration" or errored) and name not in found:
                    found[name] = run
    return found


def micros(run):
    return run["real_time"] * UNIT_US[run.get("time_unit", "ns")]


def main(paths):
    found = runs(paths)
    print(f"{'figure':<26} {'measured':>12} {'baseline':>12} {'figure':>10}  target")
    for name, run in found.items():
        if name.endswith("/baseline"):
            continue
        base = found.get(name + "/baseline")
        failed = [r for r in (run, base) if r and r.get("error_occurred")]
        if failed:
            print(f"{name:<26} FAILED: {failed[0]['name']}: {failed[0].get('error_message', '')}")
            continue
        ours = micros(run)
        line = f"{name:<26} {ours:>10.2f}us"
        line += f" {micros(base):>10.2f}us" if base else f" {'':>12}"
        if base and "at_most" in run:
            ratio = ours / micros(base)
            ok = ratio <= run["at_most"]
            line += f" {ratio:>9.2f}x  <= {run['at_most']:g}x{'' if ok else '  MISSED'}"
        elif base and "speed_at_least" in run:
            speed = micros(base) / ours
            ok = speed >= run["speed_at_least"]
            line += f" {speed:>9.2f}x  >= {run['speed_at_least']:g}x speed{'' if ok else '  MISSED'}"
        elif "at_most_ns" in run:
            ok = ours * 1e3 <= run["at_most_ns"]
            line += f" {ours * 1e3:>8.1f}ns  <= {run['at_most_ns']:g} ns{'' if ok else '  MISSED'}"
        elif "p99_over_median" in run:
            ratio = run["p99_over_median"]
            ok = ratio <= run.get("at_most", float("inf"))
            line = (f"{name:<26} median {run['median_us']:.1f}us, p99 {run['p99_us']:.1f}us"
                    f" {ratio:>6.2f}x  <= {run['at_most']:g}x{'' if ok else '  MISSED'}")
        elif "rss_growth_kB" in run:
            line = (f"{name:<26} resident memory {run['rss_growth_kB']:+.0f} kB,"
                    f" frames left {run['frames_left']:.0f}")
        print(line)


if __name__ == "__main__":
    main(sys.argv[1:])
