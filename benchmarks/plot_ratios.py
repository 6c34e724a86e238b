#!/usr/bin/python3
"""Draws the pictures of docs/performance.md. Needs python3-matplotlib.

On an otherwise idle machine, once per compiler:

    build/release/benchmarks/shadermachine-benchmarks --benchmark_repetitions=12 \\
        --benchmark_enable_random_interleaving=true --benchmark_filter='^(native|plain|machine)/' \\
        --benchmark_out=gcc.json --benchmark_out_format=json
    benchmarks/plot_ratios.py docs/images/ratios.svg g++=gcc.json clang=clang.json

and for batches, with --benchmark_filter='^patch/':

    benchmarks/plot_ratios.py docs/images/batches.svg patch.json
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
SETS = (("baseline", "SSE2", "#b0b0b0"), ("AVX2", "AVX2", "#6fb21f"), ("AVX-512", "AVX-512", TRANSLATED))


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


def draw_batches(axes, times):
    shaders = SHADERS + ["noise"]
    for k, (kind, name, colour) in enumerate(SETS):
        faster = [times[f"patch/machine/{s}"] / times[f"patch/{kind}/{s}"] for s in shaders]
        axes.barh([i + 0.27 * (k - 1) for i in range(len(shaders))], faster, 0.25, color=colour, label=name)
    axes.set_yticks(range(len(shaders)), shaders)
    axes.axvline(1, color="#404040", linewidth=0.8)
    axes.invert_yaxis()
    axes.grid(axis="x", color="#e0e0e0")
    axes.set_axisbelow(True)
    axes.set_xlabel("times as fast as a machine that runs one fragment after another")
    axes.legend(loc="upper center", bbox_to_anchor=(0.5, -0.17), ncol=3, frameon=False)


def main():
    picture, *inputs = sys.argv[1:]
    figure, axes = plt.subplots(figsize=(8, 3.6))
    if len(inputs) == 1 and "=" not in inputs[0]:
        draw_batches(axes, fastest_times(inputs[0]))
    else:
        series = [text.split("=", 1) for text in inputs]
        draw(axes, [(label, fastest_times(path)) for label, path in series])
    figure.savefig(picture, bbox_inches="tight", metadata={"Date": None})


main()
