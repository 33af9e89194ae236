#!/usr/bin/env python3
"""Writes facetrack/default_face_cascade_text.cpp from OpenCV's frontal-face cascade.

The cascade is Debian's, package opencv-data. Every record is one stage: its count of trees; for each
tree its count of nodes, the nodes and the leaf values; the stage's threshold. A node is its count of
rectangles, the rectangles, the feature's name, a threshold and two links.
"""

import argparse
import pathlib
import sys
import xml.etree.ElementTree

CASCADE = "/usr/share/opencv4/haarcascades/haarcascade_frontalface_default.xml"
OUTPUT = pathlib.Path(__file__).parent.parent / "facetrack/default_face_cascade_text.cpp"
COLUMNS = 100
INDENT = "    "

HEAD = """// The frontal-face cascade that OpenCV publishes; NOTICE has its licence. Made by
// tools/face_cascade_text.py: change that instead.
#include "facetrack/default_face_cascade_text.h"

namespace kolm {

const char* const DefaultFaceCascadeText[] = {
"""
TAIL = """    nullptr,
};

}  // namespace kolm
"""


def real(number):
    return f"{float(number):.6f}"


def feature_name(rectangles):
    if len(rectangles) == 3:
        return "haar_x2_y2"
    (x, y, width, height, _), (x2, y2, width2, height2, weight2) = rectangles
    if (y, height) == (y2, height2):
        return f"haar_x{weight2}"
    if (x, width) == (x2, width2):
        return f"haar_y{weight2}"
    sys.exit(f"no name for {rectangles}")


def read_feature(element):
    """The rectangles as x, y, width, height, weight."""
    if element.findtext("tilted", "0").strip() != "0":
        sys.exit("tilted features are not expected")
    rectangles = []
    for rectangle in element.find("rects"):
        *place, weight = rectangle.text.split()
        if float(weight) != int(float(weight)):
            sys.exit(f"a weight of {weight}")
        rectangles.append((*map(int, place), int(float(weight))))
    return rectangles


def tree_text(tree, features):
    left, right, feature, threshold = tree.findtext("internalNodes").split()
    rectangles = features[int(feature)]
    tokens = ["1", str(len(rectangles))]
    for *place, weight in rectangles:
        tokens += [*map(str, place), "0", str(weight)]
    tokens += [feature_name(rectangles), real(threshold), left, right]
    tokens += map(real, tree.findtext("leafValues").split())
    return "".join(f" {token}" for token in tokens) + " "


def record(stage, features):
    trees = stage.find("weakClassifiers")
    return "".join([f" {len(trees)}", *(tree_text(tree, features) for tree in trees),
                    f" {real(stage.findtext('stageThreshold'))}"])


def literals(text):
    """The text as adjacent string literals, broken behind spaces."""
    room = COLUMNS - len(INDENT) - len('"",')
    lines = []
    while len(text) > room:
        end = text.rindex(" ", 0, room) + 1
        lines.append(text[:end])
        text = text[end:]
    lines.append(text)
    return "\n".join(f'{INDENT}"{line}"' for line in lines) + ",\n"


def generate(cascade):
    root = xml.etree.ElementTree.parse(cascade).getroot().find("cascade")
    features = [read_feature(element) for element in root.find("features")]
    records = [literals(record(stage, features)) for stage in root.find("stages")]
    return HEAD + "".join(records) + TAIL


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cascade", default=CASCADE, help="the file to read")
    parser.add_argument("--compare", action="store_true",
                        help="write nothing: fail unless the file is as it would be written")
    options = parser.parse_args()
    text = generate(options.cascade)
    if not options.compare:
        OUTPUT.write_text(text)
    elif OUTPUT.read_text() != text:
        sys.exit(f"{OUTPUT} differs from what {options.cascade} gives")


main()
