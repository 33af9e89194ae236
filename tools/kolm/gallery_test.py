#!/usr/bin/env python3
"""Makes galleries and looks at their pages in a real browser.

Usage: gallery_test.py KOLM
"""

import html.parser
import json
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import unittest

KOLM = os.path.abspath(sys.argv.pop(1))
BROWSER = "chromium-headless-shell"
EFFECTS = 18
LARGEST_PAGE = 15_000_000

# Moves every slider, shows the source and, when all this has loaded, tells what there is.
PROBE = """<script>
const wrong = [];
for (const section of document.querySelectorAll('section')) {
  const slider = section.querySelector('input');
  if (!slider) continue;
  slider.value = slider.min;
  slider.dispatchEvent(new Event('input'));
  const first = section.querySelector('.choice').src;
  if (section.querySelector('.shown').src !== first) wrong.push(section.id + ': slider');
  section.querySelectorAll('button')[1].click();
  if (section.querySelector('.shown').src === first) wrong.push(section.id + ': button');
  if (slider.value !== String(Number(slider.min) + 1)) wrong.push(section.id + ': value');
}
const widths = () => [...document.images].map(picture => picture.getBoundingClientRect().width);
compare.click();
const hidden = widths().filter(width => width === 0).length;
compare.click();
window.onload = () => {
  const pictures = [...document.images];
  const asked = performance.getEntriesByType('resource').map(entry => entry.name)
      .filter(name => !name.startsWith('data:'));
  const report = {
    pictures: pictures.length,
    loaded: pictures.filter(picture => picture.naturalWidth > 0).length,
    visible: widths().filter(width => width > 40).length,
    hidden: hidden,
    described: pictures.filter(picture => picture.alt !== '').length,
    unnamed: [...document.querySelectorAll('input')].filter(input => !input.labels.length).length,
    overflow: document.documentElement.scrollWidth > document.documentElement.clientWidth,
    paper: getComputedStyle(document.body).backgroundColor,
    wrong: wrong, asked: asked};
  for (const picture of pictures) picture.removeAttribute('src');
  document.body.append('REPORT' + JSON.stringify(report) + 'END');
};
</script>"""


class References(html.parser.HTMLParser):
    """Collects what a page's attributes point to, and its images and headings."""

    def __init__(self):
        super().__init__()
        self.targets, self.images, self.headings, self.sections = [], 0, 0, []

    def handle_starttag(self, tag, attributes):
        self.images += tag == "img"
        self.headings += tag == "h2"
        for name, value in attributes:
            if name in ("src", "href", "srcset", "action", "data", "poster", "background"):
                self.targets.append(value)
            if tag == "section" and name == "id":
                self.sections.append(value)


def run(*arguments, **options):
    return subprocess.run([KOLM, *map(str, arguments)], capture_output=True, text=True, timeout=300,
                          **options)


def browse(page, *options):
    # Root, as in a container, has no sandbox.
    with tempfile.TemporaryDirectory() as home:
        done = subprocess.run(
            [BROWSER, "--no-sandbox", "--disable-gpu", f"--user-data-dir={home}",
             *options, page.as_uri()],
            capture_output=True, text=True, timeout=240, env={**os.environ, "HOME": home})
    if done.returncode != 0:
        raise AssertionError(f"{BROWSER} ended with {done.returncode}: {done.stderr}")
    return done.stdout


def jpeg_size(path):
    data = path.read_bytes()
    at = 2
    while data[at + 1] not in (0xC0, 0xC1, 0xC2):
        at += 2 + struct.unpack_from(">H", data, at + 2)[0]
    height, width = struct.unpack_from(">HH", data, at + 5)
    return width, height


class Gallery(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory()
        cls.folder = pathlib.Path(cls.temporary.name) / "a" / "gallery"
        cls.outcome = run("gallery", cls.folder)

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def setUp(self):
        self.assertEqual((self.outcome.returncode, self.outcome.stderr), (0, ""))
        self.page = self.folder / "index.html"

    def parsed(self):
        references = References()
        references.feed(self.page.read_text())
        return references

    def test_sheets(self):
        listed = run("effects").stdout.splitlines()[1:]
        expected = {"index.html"}
        for line in listed:
            number, name, least, *rest = line.split()
            file = f"{int(number):02}-{name}.jpg"
            expected.add(file)
            cells = int(rest[1]) - int(least) + 2 if rest else 2
            columns = min(cells, 4)
            rows = -(-cells // columns)
            self.assertEqual(jpeg_size(self.folder / file),
                             (56 + columns * 500 - 20, 56 + rows * (34 + 360 + 20) - 20), file)
        self.assertEqual(len(listed), EFFECTS)
        self.assertEqual({file.name for file in self.folder.iterdir()}, expected)

    def test_page_refers_to_nothing_outside(self):
        references = self.parsed()
        self.assertEqual(references.images, 1 + 12 + 11 + 11 + 9 + 9 + 8 + 11)
        self.assertEqual(references.headings, EFFECTS)
        for target in references.targets:
            if not target.startswith("data:image/jpeg;base64,"):
                self.assertIn(target.removeprefix("#"), references.sections)
                self.assertTrue(target.startswith("#"), target)
        without_pictures = re.sub(r"data:image/jpeg;base64,[A-Za-z0-9+/=]+", "",
                                  self.page.read_text())
        self.assertNotRegex(without_pictures, r"//[a-z]|url\(|@import|fetch\(|XMLHttpRequest")
        self.assertLess(self.page.stat().st_size, LARGEST_PAGE)

    def test_browser_shows_every_picture(self):
        probed = self.folder.parent / "probed.html"
        probed.write_text(self.page.read_text().replace("</body>", PROBE + "</body>"))
        for width, scheme, paper in ((400, 0, "rgb(22, 25, 29)"), (1280, 1, "rgb(247, 246, 243)")):
            dump = browse(probed, "--dump-dom", f"--window-size={width},900",
                          f"--blink-settings=preferredColorScheme={scheme}")
            # The probe's own text stands in the page too.
            report = re.findall(r"REPORT(\{.*?\})END", dump)
            self.assertEqual(len(report), 1, dump[-2000:])
            # The page's own, each effect's source, and the six that sliders choose.
            pictures = 72 + EFFECTS + 6
            self.assertEqual(json.loads(report[0]), {
                "pictures": pictures, "loaded": pictures, "visible": pictures, "hidden": EFFECTS,
                "described": pictures, "unnamed": 0, "overflow": False, "paper": paper,
                "wrong": [], "asked": []})

    def test_noise_fits_into_a_page(self):
        noise = self.folder.parent / "noise.ppm"
        noise.write_bytes(b"P6 700 700 255\n" + os.urandom(700 * 700 * 3))
        folder = self.folder.parent / "noise"
        self.assertEqual(run("gallery", noise, folder).returncode, 0)
        self.assertLess((folder / "index.html").stat().st_size, LARGEST_PAGE)

    def test_existing_files_stay(self):
        folder = self.folder.parent / "existing"
        folder.mkdir()
        (folder / "index.html").write_text("mine")
        outcome = run("gallery", folder)
        self.assertEqual(outcome.returncode, 7)
        self.assertIn("index.html' exists already; give -y", outcome.stderr)
        self.assertEqual([file.name for file in folder.iterdir()], ["index.html"])
        self.assertEqual((folder / "index.html").read_text(), "mine")
        (folder / "notes.txt").write_text("mine")
        narrow = self.folder.parent / "narrow.ppm"
        narrow.write_bytes(b"P6 4 90 255\n" + bytes(range(240)) * 4 + bytes(120))
        outcome = run("gallery", "-y", narrow, folder)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
        self.assertEqual(len(list(folder.iterdir())), EFFECTS + 2)
        self.assertEqual((folder / "notes.txt").read_text(), "mine")
        self.assertIn("<html", (folder / "index.html").read_text())

    def test_first_frame_of_a_video(self):
        pages = []
        for colours in ("red", "blue"), ("red", "green"), ("blue", "red"):
            video = self.folder.parent / f"{'-'.join(colours)}.mkv"
            inputs = [word for colour in colours
                      for word in ("-f", "lavfi", "-i", f"color={colour}:s=64x48:r=5:d=0.2")]
            subprocess.run(["ffmpeg", "-v", "error", *inputs, "-filter_complex",
                            "[0][1]concat=n=2", "-c:v", "ffv1", video], check=True)
            folder = video.with_suffix("")
            outcome = run("gallery", video, folder)
            self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
            pages.append((folder / "index.html").read_text())
        self.assertEqual(pages[0], pages[1])
        self.assertNotEqual(pages[0], pages[2])

    def test_what_cannot_be(self):
        file = self.folder.parent / "file"
        file.write_text("")
        outcome = run("gallery", file)
        self.assertEqual(outcome.returncode, 8)
        self.assertIn("expected a directory", outcome.stderr)
        junk = self.folder.parent / "junk.mp4"
        junk.write_bytes(bytes(range(256)) * 20)
        for unreadable in file, junk, "missing.mp4":
            outcome = run("gallery", unreadable, self.folder.parent / "never")
            self.assertEqual(outcome.returncode, 3)
            self.assertRegex(outcome.stderr, r"\Akolm: cannot read .*\n\Z")
            self.assertFalse((self.folder.parent / "never").exists())
        self.assertEqual(run("gallery").returncode, 2)


if __name__ == "__main__":
    unittest.main()
