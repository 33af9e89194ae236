#!/usr/bin/env python3
"""Writes small bitmap files of all kinds into a folder, for the bitmap fuzzer to begin with, and beside
it FOLDER.list, their paths for -seed_inputs=@FOLDER.list."""
import pathlib
import struct
import sys


def bitmap(width, height, bits, header=40, place=54, image_bytes=None, colours=0, kept=None):
    row_bytes = (bits * width + 31) // 32 * 4
    pixels = bytes(i * 37 % 256 for i in range(row_bytes * abs(height)))
    if image_bytes is None:
        image_bytes = len(pixels)
    info = struct.pack("<IiiHHIIiiII", header, width, height, 1, bits, 0, image_bytes, 2835, 2835,
                       colours, 0)
    start = max(54 + colours * 4, place)
    file = struct.pack("<2sIHHI", b"BM", start + len(pixels), 0, 0, place) + info
    return (file.ljust(start, b"\xee") + pixels)[:kept]


SEEDS = {
    "24-bits": bitmap(3, 3, 24),
    "24-bits-top-down": bitmap(3, -3, 24),
    "32-bits": bitmap(4, 4, 32),
    "32-bits-top-down": bitmap(4, -4, 32),
    "one-pixel": bitmap(1, 1, 24),
    "gap": bitmap(2, 2, 24, header=52, place=66),
    "no-place": bitmap(2, 2, 24, place=0, colours=3),
    "no-size": bitmap(3, 2, 24, image_bytes=0),
    "no-size-top-down": bitmap(3, -2, 32, image_bytes=0),
    "small-size": bitmap(3, 3, 32, image_bytes=5),
    "huge-size": bitmap(2, 2, 24, image_bytes=0xFFFFFFFF),
    "record-size": bitmap(640, 480, 24, kept=128),
    "record-size-top-down": bitmap(640, -480, 32, kept=128),
    "wide": bitmap(70000, 1, 24, kept=128),
    "high": bitmap(1, 200000, 32, kept=128),
    "core-header": bitmap(2, 2, 24, header=12),
    "8-bits": bitmap(4, 4, 8),
    "48-bits": bitmap(1, 1, 48),
    "cut-header": bitmap(2, 2, 24, kept=30),
    "no-pixels": bitmap(2, 2, 24, kept=54),
}

folder = pathlib.Path(sys.argv[1])
folder.mkdir(parents=True, exist_ok=True)
for name, seed in SEEDS.items():
    (folder / name).write_bytes(seed)
pathlib.Path(f"{folder}.list").write_text(",".join(str(folder / name) for name in SEEDS))
