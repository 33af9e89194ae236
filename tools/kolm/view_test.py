#!/usr/bin/env python3
"""Presses keys in the window of kolm view, on a display without a screen, and looks at its pixels.

Usage: view_test.py KOLM FAKE_CAMERA
"""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from PIL import Image, ImageChops, ImageStat

KOLM, FAKE_CAMERA = (os.path.abspath(sys.argv.pop(1)) for _ in range(2))
PATIENCE = 30  # seconds: machines may be busy
TITLE = re.compile(r"(no effect|\d+ [a-z-]+, (?:no parameter|parameter \d+ \(\d+ to \d+\)))"
                   r" \| (\d+) µs \| (\d+\.\d) fps((?: \| [a-z, ]+)*) - kolm")


def difference(picture, other):
    """The mean difference of two pictures' colour values."""
    return sum(ImageStat.Stat(ImageChops.difference(picture, other)).mean) / 3


class Window:
    """A running kolm view and its window."""

    def __init__(self, test, *arguments, first=b"", more={}, **options):
        self.environment = test.environment
        self.process = subprocess.Popen([KOLM, "view", *map(str, arguments)], cwd=test.folder,
                                        env={**self.environment, **more}, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        if first:
            self.process.stdin.buffer.write(first)
            self.process.stdin.flush()
        self.number = None
        self.number = self.until(lambda: self.xdotool("search", "--onlyvisible", "--name",
                                                      " - kolm$").split())[0]
        self.xdotool("windowfocus", "--sync", self.number)

    def xdotool(self, *arguments):
        return subprocess.run(["xdotool", *arguments], env=self.environment, capture_output=True,
                              text=True, timeout=PATIENCE).stdout

    def until(self, condition):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            if found := condition():
                return found
            if self.process.poll() is not None:
                raise AssertionError(f"ended with {self.process.returncode}: "
                                     f"{self.process.communicate()}")
            time.sleep(0.05)
        raise AssertionError(f"waited in vain; the title is {self.title() if self.number else None}")

    def title(self):
        return self.xdotool("getwindowname", self.number).strip()

    def press(self, keys, state):
        """Presses keys and waits for a title with `state` in it."""
        self.xdotool("key", "--delay", "50", *keys.split())
        return self.until(lambda: state in self.title() and self.title())

    def picture(self, clear=True):
        """The window's pixels, without text over them unless clear is False."""
        if clear:
            # The list of keys takes a message away, and itself when asked for again.
            self.xdotool("key", "--delay", "50", "h", "h")
            time.sleep(0.3)
        with tempfile.NamedTemporaryFile(suffix=".png") as file:
            subprocess.run(["import", "-silent", "-window", self.number, file.name],
                           env=self.environment, check=True, timeout=PATIENCE)
            return Image.open(file.name).convert("RGB").copy()

    def end(self):
        output, errors = self.process.communicate(timeout=PATIENCE)
        return self.process.returncode, output, errors


class View(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        read, write = os.pipe()
        cls.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(write), "-screen", "0", "1280x1024x24", "-nolisten", "tcp",
             "-noreset"],
            pass_fds=[write], stderr=subprocess.DEVNULL)
        os.close(write)
        with os.fdopen(read) as display:
            cls.environment = {**os.environ, "DISPLAY": ":" + display.readline().strip()}
        cls.environment.pop("WAYLAND_DISPLAY", None)

    @classmethod
    def tearDownClass(cls):
        cls.server.terminate()
        cls.server.wait()

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)

    @contextlib.contextmanager
    def window(self, *arguments, **options):
        window = Window(self, *arguments, **options)
        try:
            yield window
        finally:
            if window.process.poll() is None:
                window.process.kill()
                window.process.communicate()

    def make_picture(self):
        """Coloured fields, high enough that another matrix would be chosen by the size."""
        picture = Image.new("RGB", (800, 640))
        fields = [(200, 40, 40), (40, 170, 60), (50, 60, 210), (190, 180, 50)]
        for number, colour in enumerate(fields):
            picture.paste(colour, (number * 200, 0, number * 200 + 200, 640))
        picture.paste((120, 120, 120), (0, 500, 800, 640))
        picture.save(self.folder / "fields.png")
        return picture

    def make_video(self, name, rate):
        """Eight grey frames, each brighter than the last."""
        with open(self.folder / name, "wb") as video:
            video.write(b"YUV4MPEG2 W64 H48 F%d:1 C422\n" % rate)
            for number in range(8):
                video.write(b"FRAME\n" + bytes([30 + 25 * number]) * (64 * 48)
                            + b"\x80" * (64 * 48))

    def run_tool(self, *arguments, **options):
        return subprocess.run([KOLM, *arguments], cwd=self.folder, capture_output=True, text=True,
                              timeout=PATIENCE, **{"env": self.environment, **options})

    def result(self, *arguments):
        """What another command writes of the same picture."""
        done = self.run_tool(*arguments, "-y", "fields.png", "result.png")
        self.assertEqual(done.returncode, 0, done.stderr)
        return Image.open(self.folder / "result.png").convert("RGB")

    def test_effects(self):
        source = self.make_picture()
        with self.window("fields.png") as window:
            self.assertTrue(TITLE.fullmatch(window.title()), window.title())
            self.assertLess(difference(window.picture(), source), 3)
            window.press("Right Right Right Right", "4 sepia, no parameter")
            sepia = self.result("apply", "-e", "4")
            self.assertGreater(difference(sepia, source), 20)
            self.assertLess(difference(window.picture(), sepia), 3)
            window.press("Right", "5 box-blur, parameter 2 (0 to 8)")
            window.press("Up Up Up Up Up", "box-blur, parameter 7 ")
            self.assertLess(difference(window.picture(), self.result("apply", "-e", "5:7")), 1.5)
            window.press("Up Up Up", "box-blur, parameter 8 ")
            window.press("Down", "box-blur, parameter 7 ")
            window.press("Left Left Left Left Left", "no effect")
            window.press("Left", "18 vertical-pinch")
            window.press("Right", "no effect")
            window.xdotool("key", "q")
            self.assertEqual(window.end(), (0, "", ""))

    def test_numbers(self):
        self.make_picture()
        with self.window("fields.png", "-e", "box-blur") as window:
            time.sleep(2)
            _, microseconds, rate, _ = TITLE.fullmatch(window.title()).groups()
            self.assertGreater(int(microseconds), 0)
            self.assertLess(int(microseconds), 1e6 / 25)
            self.assertTrue(5 < float(rate) < 35, rate)

    def test_halves(self):
        source = self.make_picture()
        with self.window("-e", "negative", "--split", "fields.png") as window:
            self.assertIn("13 negative, no parameter", window.title())
            self.assertIn(" | halves", window.title())
            picture, negative = window.picture(), self.result("apply", "-e", "negative")
            left, right = (0, 0, 400, 640), (400, 0, 800, 640)
            self.assertLess(difference(picture.crop(left), source.crop(left)), 3)
            self.assertLess(difference(picture.crop(right), negative.crop(right)), 3)
            self.assertGreater(difference(source.crop(right), negative.crop(right)), 20)
            window.xdotool("key", "v")
            window.until(lambda: "halves" not in window.title())
            self.assertLess(difference(window.picture(), negative), 3)

    def test_background(self):
        source = self.make_picture()
        Image.new("RGB", (640, 480), (230, 120, 20)).save(self.folder / "orange.bmp")
        with self.window("fields.png", "--bitmap", "orange.bmp") as window:
            self.assertIn(" | background", window.title())
            expected = self.result("background", "--bitmap", "orange.bmp")
            self.assertLess(difference(window.picture(), expected), 3)
            window.xdotool("key", "b")
            window.until(lambda: "background" not in window.title())
            self.assertLess(difference(window.picture(), source), 3)
        # The built-in one keeps the middle.
        with self.window("fields.png") as window:
            window.press("b", " | background")
            picture = window.picture()
            self.assertLess(difference(picture.crop((350, 300, 450, 400)),
                                       source.crop((350, 300, 450, 400))), 4)
            self.assertGreater(difference(picture.crop((0, 0, 200, 200)),
                                          source.crop((0, 0, 200, 200))), 20)
        done = self.run_tool("store", "create", "store.img", "fields.png")
        self.assertEqual(done.returncode, 0, done.stderr)
        done = self.run_tool("view", "--store", "store.img", "--record", "2", "fields.png")
        self.assertEqual(done.returncode, 10, done.stderr)

    def test_pause_and_step(self):
        self.make_video("grey.y4m", 10)
        with self.window("grey.y4m") as window:
            def level():
                return window.picture(clear=False).getpixel((250, 250))[0]
            window.press("space", " | paused")
            first = level()
            time.sleep(0.5)
            self.assertEqual(level(), first)
            seen = [first]
            for _ in range(9):  # round the video's end
                window.xdotool("key", "period")
                window.until(lambda: level() != seen[-1])
                seen.append(level())
            self.assertEqual(len(set(seen)), 8)
            self.assertEqual(seen[8:], seen[:2])
            self.assertEqual(sum(after < before for before, after in zip(seen[:8], seen[1:9])), 1)
            window.press("Right Right Right", "3 grayscale, no parameter")
            self.assertIn(" | paused", window.title())
            window.xdotool("key", "space")
            window.until(lambda: "paused" not in window.title())
            window.until(lambda: level() != seen[-1])

    def test_own_rate(self):
        for rate in (10, 100):
            self.make_video(f"grey-{rate}.y4m", rate)
        # Three seconds' worth of frames, but for what may come early after a late one.
        self.assertGreaterEqual(self.seconds("grey-10.y4m", 31), 2.85)
        self.assertLess(min(self.seconds("grey-100.y4m", 31) for _ in range(3)), 2.85)

    def seconds(self, name, frames):
        begin = time.monotonic()
        done = self.run_tool("view", "--frames", str(frames), name)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return time.monotonic() - begin

    def test_screenshot(self):
        self.make_picture()
        (self.folder / "sub").mkdir()
        os.rename(self.folder / "fields.png", self.folder / "sub" / "fields.png")
        with self.window("-e", "4", "sub/fields.png") as window:
            window.xdotool("key", "s")
            first = self.folder / "sub" / "fields-sepia-1.png"
            window.until(first.exists)
            bytes_before = first.read_bytes()
            window.press("v", " | halves")
            window.xdotool("key", "s")
            second = self.folder / "sub" / "fields-sepia-2.png"
            window.until(second.exists)
            window.xdotool("key", "Escape")
            code, output, errors = window.end()
        self.assertEqual((code, output), (0, ""))
        self.assertEqual(errors, "kolm: wrote 'sub/fields-sepia-1.png'\n"
                                 "kolm: wrote 'sub/fields-sepia-2.png'\n")
        self.assertEqual(first.read_bytes(), bytes_before)
        self.assertNotEqual(second.read_bytes(), bytes_before)
        os.rename(self.folder / "sub" / "fields.png", self.folder / "fields.png")
        expected = self.result("apply", "-e", "4")
        self.assertEqual(difference(Image.open(first), expected), 0)

    def test_text(self):
        Image.new("RGB", (640, 480), (0, 0, 0)).save(self.folder / "black.png")

        def bright_rows(picture):
            grey = picture.convert("L")
            return sum(max(grey.crop((0, row, 640, row + 1)).getdata()) > 200
                       for row in range(480))
        with self.window("black.png") as window:
            window.xdotool("key", "h")
            window.until(lambda: bright_rows(window.picture(clear=False)) > 120)
            window.xdotool("key", "h")
            window.until(lambda: bright_rows(window.picture(clear=False)) == 0)
            window.press("Right", "1 zoom-in")
            window.until(lambda: 5 < bright_rows(window.picture(clear=False)) < 30)
            # A message goes by itself.
            window.until(lambda: bright_rows(window.picture(clear=False)) == 0)

    def test_tracking(self):
        self.make_picture()
        with self.window("fields.png") as window:
            before = window.picture()
            window.xdotool("key", "o")
            time.sleep(1)
            if " | tracking, outlines" in window.title():
                self.assertGreater(difference(window.picture(), before), 0.1)
                window.press("o", " | tracking -")
                self.assertLess(difference(window.picture(), before), 1)
                window.xdotool("key", "t")
                window.until(lambda: "tracking" not in window.title())
                window.xdotool("key", "q")
                self.assertEqual(window.end(), (0, "", ""))
            else:
                self.assertEqual(difference(window.picture(), before), 0)
                window.xdotool("key", "q")
                self.assertIn("no face tracker can be had", window.end()[2])

    def test_standard_input(self):
        self.make_video("grey.y4m", 50)
        with open(self.folder / "grey.y4m", "rb") as video:
            with self.window("-", stdin=video) as window:
                def level():
                    return window.picture(clear=False).getpixel((250, 250))[0]
                window.until(lambda: level() > 210)
                time.sleep(0.5)
                self.assertGreater(level(), 210)
                window.xdotool("key", "q")
                code, _, errors = window.end()
        self.assertEqual((code, errors), (0, "kolm: the input has ended; its last frame stays\n"))
        # A window whose input stays away for a while can be left all the same.
        with self.window("-", "-s", "64x48", stdin=subprocess.PIPE,
                         first=b"\x80" * (64 * 48 * 2)) as window:
            window.xdotool("key", "q")
            self.assertEqual(window.end()[0], 0)

    def test_camera(self):
        more = {"LD_PRELOAD": FAKE_CAMERA, "FAKE_CAMERA_FRAMES": "100"}
        done = self.run_tool("view", "/dev/video7", env={**self.environment, **more})
        self.assertEqual(done.returncode, 11)
        self.assertIn("'/dev/video7' gives no more frames: it breaks off: No such device",
                      done.stderr)
        # All bytes of the last frame are 115: a pale green.
        with self.window("/dev/video7", more={**more, "FAKE_CAMERA_STAYS": "1"}) as window:
            pixel = window.picture().getpixel((250, 250))
            for value, expected in zip(pixel, (94, 131, 89)):
                self.assertAlmostEqual(value, expected, delta=4, msg=pixel)
            window.press("Right", "1 zoom-in")
            window.xdotool("key", "q")
            self.assertEqual(window.end(), (0, "", ""))

    def test_signal(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.window() as window:
                window.process.send_signal(number)
                self.assertEqual(window.end(), (130, "", ""))

    def test_wrong_arguments(self):
        without = {name: value for name, value in self.environment.items()
                   if name not in ("DISPLAY", "XDG_RUNTIME_DIR")}
        for environment in (without, {**without, "DISPLAY": ":999"}):
            done = self.run_tool("view", env=environment)
            self.assertEqual(done.returncode, 13, done.stderr)
            self.assertRegex(done.stderr, r"\Akolm: there is no display: .*'kolm apply'.*\n\Z")
        for arguments, code in ((["none.mp4"], 3), (["-e", "none"], 5), (["-e", "5:9"], 6),
                                (["--frames", "0"], 2), (["--bitmap", "a", "--store", "b"], 2),
                                (["--record", "1"], 2), (["--bitmap", "none.bmp"], 3),
                                (["--store", "none.img"], 9)):
            done = self.run_tool("view", *arguments)
            self.assertEqual(done.returncode, code, (arguments, done.stderr))
            self.assertNotEqual(done.stderr, "")


if __name__ == "__main__":
    unittest.main()
