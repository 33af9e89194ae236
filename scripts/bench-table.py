#!/usr/bin/env python3
"""Runs kolm_bench and prints a Markdown table of its times beside the peers'.

A pair is judged by the ratio of the medians, this library's time over the peer's.
"""

import argparse
import dataclasses
import json
import os
import pathlib
import re
import shlex
import statistics
import subprocess
import sys

BEGIN = "<!-- table: begin -->"
END = "<!-- table: end -->"
SIZES = ["640x480", "1280x720", "1920x1080"]
ENLARGED = ["640x480-1280x720", "640x480-1920x1080"]
SCALED = ENLARGED + ["1280x720-640x480", "1920x1080-640x480", "1920x1080-1280x720",
                     "640x480-160x120"]
BLUR_SPREAD = 1.15


@dataclasses.dataclass
class Row:
    key: str  # the first part of its benchmarks' names
    peer: str
    must: float | None  # None: shown, not judged
    aim: float | None
    works: dict[str, list[str]]  # the sizes of each work


def each(sizes, *works):
    return {work: sizes for work in works}


ROWS = [
    Row("tone", "memcpy", 1.25, 1.05, each(SIZES, "Grayscale", "Sepia", "Negative")),
    Row("posterize", "cv::LUT", 0.3, 0.15, each(SIZES, "Posterize:4", "Posterize:1")),
    Row("relief", "memcpy", 2.5, 1.5,
        each(SIZES, "EmbossGrey", "EmbossColour", "EdgeReliefGrey", "EdgeReliefColour")),
    Row("sketch", "5 cv::filter2D, cv::max", 0.3, 0.15, each(SIZES, "Sketch")),
    Row("pixelate", "memcpy", 1.5, 1.0, each(SIZES, "Pixelate:3", "Pixelate:1")),
    Row("blur", "cv::blur, 3 planes", 1.0, 0.6,
        each(SIZES, *(f"BoxBlur:{radius}" for radius in range(1, 9)))),
    Row("nearest", "cv::resize nearest", 0.5, 0.25,
        each(SCALED, "CropScaleYUV16")
        | each(SIZES, "ZoomIn:2", "ZoomOut:2", "PictureGrid:3", "HorizontalBulge",
               "VerticalBulge")),
    Row("same-size", "cv::resize, which copies", None, None, each([f"{size}-{size}" for size in SIZES], "CropScaleYUV16")),
    Row("bilinear", "libyuv apart, scale, pack", 1.0, 0.5,
        each(ENLARGED, "CropScaleYUV16Bilinear")),
    Row("plane", "libyuv ScalePlane", 0.8, 0.4, each(ENLARGED, "ScalePlaneBilinear")),
    Row("blending", "libyuv BlendPlane", 1.3, 1.0, each(SIZES, "BlendBackground")),
    Row("background", "libyuv, picture and alpha", 1.0, 0.5,
        each(["640x480-1280x720"], "ScaleBackground")),
    Row("conversion", "libyuv by way of ARGB", 1.0, 0.6, each(["640x480"], "ConvertPicture:24")),
    Row("tracking", "2 cv::resize, cv::CascadeClassifier", 1.05, 1.0,
        each(["640x480-160x120"], "DoFaceTracking:1100")),
    Row("cascade", "cv::CascadeClassifier::load", 1.0, 0.5, each(["24x24"], "CreateFaceDetector")),
]


def expected_pairs(pattern):
    """(row, work, size) of each pair; one side's name that matches the pattern brings in both."""
    return [(row, work, size)
            for row in ROWS for work, sizes in row.works.items() for size in sizes
            if any(re.search(pattern, f"{row.key}/{work}/{size}/{side}")
                   for side in ("kolm", "peer"))]


def run(pattern, options):
    """The program's context, and the processor times of each benchmark's repetitions."""
    environment = dict(os.environ)
    if options.instruction_set:
        environment["KOLM_INSTRUCTION_SET"] = options.instruction_set
    command = [options.bench, f"--benchmark_filter={pattern}",
               f"--benchmark_min_time={options.min_time}",
               f"--benchmark_repetitions={options.repetitions}",
               "--benchmark_enable_random_interleaving=true", "--benchmark_format=json"]
    done = subprocess.run(command, env=environment, stdout=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit(f"{options.bench} ended with {done.returncode}")
    report = json.loads(done.stdout)
    times = {}
    for entry in report["benchmarks"]:
        if entry["run_type"] == "iteration":
            times.setdefault(entry["run_name"], []).append(entry["cpu_time"])
    return report["context"], times


def run_by_size(pairs, options):
    """The same for the pairs given, one row and size at a time: what is compared runs within a few
    seconds, so that a processor which changes its clock does so for both sides."""
    groups = {}
    for row, work, size in pairs:
        groups.setdefault((row.key, size), []).append(work)
    times = {}
    for (key, size), works in groups.items():
        context, some = run(f"^{key}/({'|'.join(works)})/{size}/", options)
        times |= some
    return context, times


def verdict(ratio, row):
    if row.must is None:
        return "–"
    if ratio <= row.aim:
        return "aim"
    return "must" if ratio <= row.must else "**missed**"


def limit(value):
    return "–" if value is None else f"{value:.2f}"


def table(pairs, times):
    """The table's lines and the number of limits missed."""
    lines = ["| Work | Size | Kolm µs | Peer | Peer µs | Ratio | Must | Aim | Reached |",
             "|---|---|--:|---|--:|--:|--:|--:|---|"]
    missed = 0
    blurs = {}
    for row, work, size in pairs:
        name = f"{row.key}/{work}/{size}"
        kolm = statistics.median(times[f"{name}/kolm"])
        peer = statistics.median(times[f"{name}/peer"])
        ratio = kolm / peer
        reached = verdict(ratio, row)
        missed += reached == "**missed**"
        shown = size.replace("x", "×").replace("-", " → ")
        lines.append(f"| {work} | {shown} | {kolm:.1f} | {row.peer} | {peer:.1f} | {ratio:.2f} "
                     f"| {limit(row.must)} | {limit(row.aim)} | {reached} |")
        if row.key == "blur":
            blurs.setdefault(shown, []).append(kolm)
    if any(len(medians) > 1 for medians in blurs.values()):
        lines += ["", "| Box blur, slowest radius / fastest | Ratio | Must | Reached |",
                  "|---|--:|--:|---|"]
    for size, medians in blurs.items():
        if len(medians) == 1:
            continue
        spread = max(medians) / min(medians)
        reached = "must" if spread <= BLUR_SPREAD else "**missed**"
        missed += spread > BLUR_SPREAD
        lines.append(f"| {size}, {len(medians)} radii | {spread:.2f} | {BLUR_SPREAD:.2f} "
                     f"| {reached} |")
    return lines, missed


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return "unknown processor"


def conditions(context, options):
    return (f"{processor()}; instruction set {context['instruction_set']}; peers: glibc "
            f"{context['glibc']}, OpenCV {context['opencv']}, libyuv {context['libyuv']}; median of "
            f"{options.repetitions} runs of {options.min_time:g} s or more each.")


def update(path, text):
    """Puts text between the two marks of the file."""
    document = path.read_text()
    before, begin, rest = document.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        sys.exit(f"{path} lacks the marks {BEGIN} and {END}")
    path.write_text(f"{before}{begin}\n\n{text}\n\n{end}{after}")


def compare_names(pairs, times):
    """Describes each benchmark that is missing or that the table does not know."""
    expected = {f"{row.key}/{work}/{size}/{side}"
                for row, work, size in pairs for side in ("kolm", "peer")}
    return ([f"missing: {name}" for name in sorted(expected - times.keys())]
            + [f"not in the table: {name}" for name in sorted(times.keys() - expected)])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bench", default="build/host/kolm_bench", help="the program to run")
    parser.add_argument("--filter", default=".", metavar="REGEX",
                        help="only pairs whose name (ROW/WORK/SIZE/SIDE) it is found in")
    parser.add_argument("--instruction-set", choices=["plain", "sse2", "ssse3"],
                        help="hold the library to it; default: the best that the machine has")
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--min-time", type=float, default=0.02, help="seconds of each repetition")
    parser.add_argument("--check", action="store_true", help="fail if a must is missed")
    parser.add_argument("--pairs", action="store_true",
                        help="time nothing: fail unless each pair of the table exists and runs")
    parser.add_argument("--update", type=pathlib.Path, metavar="FILE",
                        help="put the table between the marks of this Markdown file")
    options = parser.parse_args()
    if options.pairs:
        options.repetitions, options.min_time = 1, 1e-6

    pairs = expected_pairs(options.filter)
    if not pairs:
        sys.exit(f"no pair matches {options.filter}")
    if options.pairs:
        context, times = run(options.filter, options)
    else:
        context, times = run_by_size(pairs, options)
    wrong = compare_names(pairs, times)
    if wrong:
        sys.exit("\n".join(wrong))
    if options.pairs:
        print(f"{len(pairs)} pairs")
        return

    lines, missed = table(pairs, times)
    lines += ["", conditions(context, options)]
    print("\n".join(lines))
    if options.update:
        command = shlex.join(["scripts/bench-table.py"] + sys.argv[1:])
        update(options.update, "\n".join([f"By `{command}`:", ""] + lines))
    if options.check and missed:
        sys.exit(f"{missed} limits missed")


main()
