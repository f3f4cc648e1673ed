# SPDX-License-Identifier: GPL-3.0-or-later
"""A receiver that was written from the documents alone works with the programs."""

import struct
import sys
import unittest

import document
import receiver
from support import VELTRA, ScratchTest, private_network, run, veltra


class WrittenFromTheDocuments(ScratchTest):
    def setUp(self):
        super().setUp()
        self.theirs = receiver.Receiver()
        self.address = f"127.0.0.1:{receiver.Server(self.theirs).port}"

    def expect(self, *words, status=0):
        ending = veltra(*words, "--device", self.address)
        self.assertEqual(status, ending.returncode, ending.stderr)
        return ending.stdout

    def test_tells_what_it_is_and_takes_filters(self):
        text = self.expect("info")
        self.assertIn("Receiver           Example, Two, Main\n", text)
        self.assertIn("44100 Hz  FIR, 64 taps", text)

        self.assertIn("Slot 1 holds", self.expect("download", "--slot", "1", self.write("filters.xml", self.filters())))
        for rate, size, data, come in self.theirs.slots[1].blocks:
            taps = struct.unpack(f"<{size // 4}f", data)
            self.assertEqual((1.0, 0.5, 0.0), taps[:3], rate)
            self.assertEqual((0.25, -0.125, 0.0), taps[64:67], rate)
            self.assertTrue(all(come))
        self.assertEqual([44100, 48000], [block[0] for block in self.theirs.slots[1].blocks])
        self.expect("remove", "--slot", "1")
        self.assertFalse(self.theirs.slots[1].occupied)

    @staticmethod
    def filters():
        """The document's filters at both rates."""
        at_48000 = document.filters()
        start, end = '<Coefficients Topology="FIR" Fs="48000">', "</Coefficients>"
        parts = at_48000.split(start)
        return parts[0] + "".join(
            start.replace("48000", "44100") + part.split(end)[0] + end + start + part for part in parts[1:])

    def test_plays_and_is_heard(self):
        self.expect("volume", "0.5")
        self.assertAlmostEqual(0.35, self.theirs.volume)
        capture = self.folder / "capture.wav"
        self.assertIn("peak -12", self.expect("measure", "--channel", "FL", "--rate", "48000", "--tail", "0.2", "-o", capture))
        self.assertIsNone(self.theirs.measuring)

    def test_is_found(self):
        script = ("import receiver, subprocess; receiver.announce(receiver.Server(receiver.Receiver()).port, 'Example');"
                  f"subprocess.run(['{VELTRA}', 'find', '--timeout', '3000'])")
        ending = run(*private_network(), sys.executable, "-B", "-c", script, cwd=None)
        self.assertRegex(ending.stdout, r"Example +127\.0\.0\.1:\d+ +Example Two", ending.stderr)


if __name__ == "__main__":
    unittest.main()
