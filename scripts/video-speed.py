#!/usr/bin/env python3
"""Compares whole runs of the tool with FFmpeg's program on 1280x720 video.

Each effect goes from the same input to the same kind of output through `kolm apply` and through the
nearest filter that FFmpeg has. Runs alternate, and the ratio is the median of each two neighbours':
the tool's time over FFmpeg's, so that other work on the machine meets both. Raw and YUV4MPEG2 files
come from and go to memory where /dev/shm has room, so that no disk is measured.

Usage: scripts/video-speed.py [--kolm PROGRAM] [--case NAME]... [--effect NAME]... [--frames N]
       [--repeat N] [--check]
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

WIDTH, HEIGHT, RATE = 1280, 720, 30
SIZE = f"{WIDTH}x{HEIGHT}"


def grid():
    part = f"scale={WIDTH // 3}:{HEIGHT // 3}:flags=neighbor,split=9"
    outputs = "".join(f"[p{i}]" for i in range(9))
    columns = ["0", "w0", "w0+w0"]
    rows = ["0", "h0", "h0+h0"]
    layout = "|".join(f"{column}_{row}" for row in rows for column in columns)
    return f"{part}{outputs};{outputs}xstack=inputs=9:layout={layout},scale={WIDTH}:{HEIGHT}:flags=neighbor"


EMBOSS = "-2 -1 0 -1 1 1 0 1 2"
# With the sizes, radii and blocks of the effects' defaults, so that as much is left to encode.
FILTERS = {
    "zoom-in": "crop=1088:612,scale=1280:720:flags=neighbor",
    "zoom-out": "scale=1088:612:flags=neighbor,pad=1280:720:(ow-iw)/2:(oh-ih)/2",
    "grayscale": "lutyuv=u=128:v=128",
    "sepia": "lutyuv=u=96:v=150",
    "box-blur": "boxblur=2:1:2:1",
    "pixelate": "scale=iw/12:ih/12:flags=neighbor,scale=1280:720:flags=neighbor",
    "emboss-grey": f"convolution='{EMBOSS}:0 0 0 0 0 0 0 0 0:0 0 0 0 0 0 0 0 0:{EMBOSS}:1:1:1:1:128:128:128:0'",
    "emboss-colour": f"convolution='{EMBOSS}:{EMBOSS}:{EMBOSS}:{EMBOSS}'",
    "picture-grid": grid(),
    "edge-relief-grey": "sobel=planes=1,lutyuv=u=128:v=128",
    "edge-relief-colour": "sobel",
    "sketch": "kirsch=planes=1,lutyuv=y=negval:u=128:v=128",
    "negative": "negate",
    "posterize": "lutyuv=y=bitand(val\\,240):u=bitand(val\\,240):v=bitand(val\\,240)",
    "horizontal-bulge": "lenscorrection=k1=0.2",
    "horizontal-pinch": "lenscorrection=k1=-0.2",
    "vertical-bulge": "lenscorrection=k1=0.2",
    "vertical-pinch": "lenscorrection=k1=-0.2",
}

RAW = ["-f", "rawvideo", "-pix_fmt", "yuyv422"]
ENCODER = ["-c:v", "libx264", "-preset", "veryfast", "-crf", "18"]
# For each case: the input's name and how FFmpeg makes it, its input options, its output options, the
# tool's options and the output's name.
CASES = {
    "raw": ("in.yuv", RAW, [*RAW, "-s", SIZE, "-r", str(RATE)], RAW, ["-s", SIZE, "-r", str(RATE)], "yuv"),
    "y4m": ("in.y4m", ["-pix_fmt", "yuv420p"], [], ["-pix_fmt", "yuv420p"], [], "y4m"),
    "encoded": ("in.mp4", [*ENCODER, "-pix_fmt", "yuv420p"], [], [*ENCODER, "-pix_fmt", "yuv420p"], [], "mp4"),
}
FFMPEG = ["ffmpeg", "-nostdin", "-v", "error", "-y"]


def seconds(command, output):
    begin = time.perf_counter()
    subprocess.run(command, check=True)
    taken = time.perf_counter() - begin
    os.remove(output)
    return taken


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--kolm", default=os.path.join(os.path.dirname(__file__), "../build/host/kolm"))
    parser.add_argument("--case", action="append", choices=CASES)
    parser.add_argument("--effect", action="append", choices=FILTERS)
    parser.add_argument("--frames", type=int, default=200)
    parser.add_argument("--repeat", type=int, default=5)
    parser.add_argument("--check", action="store_true", help="fail if a ratio is above 1.0")
    options = parser.parse_args()

    largest = WIDTH * HEIGHT * 2 * options.frames
    has_memory = os.path.isdir("/dev/shm") and shutil.disk_usage("/dev/shm").free > 3 * largest
    worst = 0.0
    with tempfile.TemporaryDirectory(dir="/dev/shm" if has_memory else None) as folder:
        print(f"{options.frames} frames of {SIZE}, median of {options.repeat}, seconds"
              + ("" if has_memory else ", on disk"))
        print(f"{'case':8} {'effect':20} {'kolm':>7} {'ffmpeg':>7} {'ratio':>6}")
        for case in options.case or CASES:
            name, made_by, read_by, written_by, told, extension = CASES[case]
            source = os.path.join(folder, name)
            subprocess.run([*FFMPEG, "-f", "lavfi", "-i",
                            f"testsrc2=s={SIZE}:r={RATE}:d={options.frames / RATE}", *made_by, source],
                           check=True)
            for effect in options.effect or FILTERS:
                ours = os.path.join(folder, f"kolm.{extension}")
                theirs = os.path.join(folder, f"ffmpeg.{extension}")
                kolm = [options.kolm, "apply", "--quiet", "-e", effect, *told, source, ours]
                ffmpeg = [*FFMPEG, *read_by, "-i", source, "-filter_complex", FILTERS[effect],
                          *written_by, theirs]
                times = [(seconds(kolm, ours), seconds(ffmpeg, theirs)) for _ in range(options.repeat)]
                mine, peer = (statistics.median(column) for column in zip(*times))
                ratio = statistics.median(own / other for own, other in times)
                worst = max(worst, ratio)
                print(f"{case:8} {effect:20} {mine:7.3f} {peer:7.3f} {ratio:6.2f}", flush=True)
            os.remove(source)
    return 1 if options.check and worst > 1.0 else 0


if __name__ == "__main__":
    sys.exit(main())
