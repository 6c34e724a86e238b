#!/usr/bin/python3
"""Draws the ratios to plain C++ of docs/performance.md. Needs python3-matplotlib.

On an otherwise idle machine, once per compiler:

    build/release/benchmarks/shadermachine-benchmarks --benchmark_repetitions=12 \\
        --benchmark_enable_random_interleaving=true --benchmark_filter='^(native|plain|machine)/' \\
        --benchmark_out=gcc.json --benchmark_out_format=json
    benchmarks/plot_ratios.py docs/images/ratios.svg g++=gcc.json clang=clang.json
"""
import json
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "ratios"  # the same file from the same figures
import matplotlib.pyplot as plt

SHADERS = ["empty", "mandelbrot", "phong", "march", "lights", "hash_noise"]
MARKERS = "os^D"
TRANSLATED, PLAIN = "#1f6fb2", "#b0b0b0"


def fastest_times(path):
    """Nanoseconds of every benchmark by name: the fastest of its repetitions."""
    times = {}
    with open(path, encoding="utf-8") as file:
        for run in json.load(file)["benchmarks"]:
            if run["run_type"] == "iteration":
                name = run["run_name"]
                times[name] = min(run["cpu_time"], times.get(name, run["cpu_time"]))
    return times


def draw(axes, series):
    for marker, (label, times) in zip(MARKERS, series):
        for kind, name, colour in (("plain", "plain handlers", PLAIN),
                                   ("machine", "translated", TRANSLATED)):
            ratios = [times[f"{kind}/{s}"] / times[f"native/{s}"] for s in SHADERS]
            axes.plot(ratios, SHADERS, marker, color=colour, label=f"{name}, {label}")
    axes.set_xscale("log")
    axes.set_xticks([1, 2, 5, 10, 20, 50, 100], ["1", "2", "5", "10", "20", "50", "100"])
    axes.minorticks_off()
    axes.invert_yaxis()
    axes.grid(axis="x", color="#e0e0e0")
    axes.set_axisbelow(True)
    axes.set_xlabel("times the run time of the same work in plain C++ (-O2)")
    axes.legend(loc="upper center", bbox_to_anchor=(0.5, -0.17), ncol=2, frameon=False)


def main():
    picture, *inputs = sys.argv[1:]
    series = []
    for text in inputs:
        label, path = text.split("=", 1)
        series.append((label, fastest_times(path)))
    figure, axes = plt.subplots(figsize=(8, 3.6))
    draw(axes, series)
    figure.savefig(picture, bbox_inches="tight", metadata={"Date": None})


main()
