#!/usr/bin/env python3
"""Looks for each command, option, argument and exit code of --help in the man pages.

Usage: man_pages_test.py KOLM FOLDER
"""

import os
import pathlib
import re
import subprocess
import sys
import unittest

KOLM, FOLDER = os.path.abspath(sys.argv.pop(1)), pathlib.Path(sys.argv.pop(1))


def section(text, name):
    """The first words of a help text's lines under a heading."""
    found = re.search(rf"^ *{name}:\n((?: .*\n)+)", text, re.MULTILINE)
    return re.findall(r"^ {2,4}(\S+) ", found[1], re.MULTILINE) if found else []


def rendered(page):
    done = subprocess.run(["groff", "-man", "-ww", "-Tascii", "-P-cbou", "-rHY=0", "-rLL=2000n",
                           FOLDER / page], capture_output=True, text=True)
    return done.stdout, done.stderr


class ManPages(unittest.TestCase):
    def check(self, path):
        """Checks the page of a command and those below it; returns their names."""
        done = subprocess.run([KOLM, *path, "--help"], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0)
        page = "-".join(["kolm", *path]) + ".1"
        text, warnings = rendered(page)
        self.assertEqual(warnings, "", page)
        self.assertIn(page.removesuffix(".1") + " - ", text)
        self.assertIn(" ".join(["kolm", *path]) + " [OPTIONS]", text)
        commands = section(done.stdout, "Subcommands")
        options = [option for words in re.findall(r"^ +(-\S+) ", done.stdout, re.MULTILINE)
                   for option in words.split(",")]
        self.assertIn("--help", options)
        for word in (commands + options + section(done.stdout, "Positionals")
                     + section(done.stdout, "Exit codes")):
            self.assertRegex(text, rf"(?m)^ +(-\w, )?{re.escape(word)}[, \n]", page)
        for example in re.findall(r"^  (.*\bkolm .*)", done.stdout, re.MULTILINE):
            self.assertIn("$ " + example, text)
        pages = {page}
        for command in commands:
            self.assertIn(f"{page.removesuffix('.1')}-{command}(1)", text)
            pages |= self.check([*path, command])
        return pages

    def test_all(self):
        pages = self.check([])
        self.assertIn("kolm-store-create.1", pages)
        self.assertEqual({file.name for file in FOLDER.iterdir()}, pages)


if __name__ == "__main__":
    unittest.main()
