# SPDX-License-Identifier: GPL-3.0-or-later
"""A simulated receiver, and the package with the built module."""

import os
import subprocess

import pytest

import veltraio


class Receiver:
    """The program of a simulated receiver. `end()` returns what it printed."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen([os.environ["VELTRA_RECEIVER"], "--log", "nothing", *arguments],
                                        stdout=subprocess.PIPE, text=True)
        self.address = self.process.stdout.readline().split()[-1]

    def plugin(self, **settings):
        return veltraio.Plugin(settings={"Device": f"TCP:{self.address}", **settings})

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()

        return self.process.communicate(timeout=30)[0]


@pytest.fixture
def start():
    """Starts receivers by their arguments; all end with the test."""
    started = []

    def make(*arguments):
        started.append(Receiver(*arguments))
        return started[-1]

    yield make

    for receiver in started:
        receiver.end()
