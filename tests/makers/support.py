# SPDX-License-Identifier: GPL-3.0-or-later
"""What the tests of the makers' tools share: the built programs, and receivers for them."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
VELTRA = os.environ["VELTRA_PROGRAM"]
SIMULATED = os.environ["VELTRA_RECEIVER_PROGRAM"]
MODULE = os.environ["VELTRA_MODULE"]
PATIENCE_S = 60


def run(*words, **options):
    """A program to its end. Its output is text unless the options say otherwise."""
    return subprocess.run(
        [str(word) for word in words], capture_output=True, timeout=PATIENCE_S, **{"text": True, "cwd": ROOT, **options})


def veltra(*words):
    return run(VELTRA, *words)


class Simulated:
    """The simulated receiver, for as long as a `with` lasts."""

    def __init__(self, *options):
        self.start(SIMULATED, "--log", "nothing", *options)

    def start(self, *words):
        self.process = subprocess.Popen([str(word) for word in words], stdout=subprocess.PIPE, text=True, cwd=ROOT)
        self.first_line = self.process.stdout.readline()
        self.address = re.search(r"127\.0\.0\.1:\d+", self.first_line)[0]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.output = self.first_line + self.process.communicate(timeout=PATIENCE_S)[0]


def private_network():
    """The words before a command that run it in a network of its own, or the reason why there is none."""
    words = ["unshare", "--net", "--map-root-user", "sh", "-c", 'ip link set lo up && exec "$@"', "sh"]
    if subprocess.run([*words, "true"], capture_output=True).returncode == 0:
        return words
    if os.environ.get("VELTRA_REQUIRE_NETNS") == "1":
        raise AssertionError("private network namespaces are required and not permitted here")
    raise unittest.SkipTest("private network namespaces are not permitted here")


class ScratchTest(unittest.TestCase):
    """A test with a folder of its own."""

    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, text):
        (self.folder / name).write_text(text)
        return self.folder / name
