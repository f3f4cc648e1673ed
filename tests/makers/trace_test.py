# SPDX-License-Identifier: GPL-3.0-or-later
"""`veltra trace` changes nothing and records all, and `veltra-receiver --replay` plays the recording."""

import re
import shutil
import signal
import subprocess
import unittest

import document
from dissector_test import SCRIPT
from support import SIMULATED, VELTRA, ScratchTest, Simulated, run, veltra


class Trace(ScratchTest):
    def setUp(self):
        super().setUp()
        self.filters = self.write("filters.xml", document.filters())
        self.recording = self.folder / "session.pcapng"

    def traced_download(self, *options):
        """A download by way of a trace. @returns the lines of the trace, and what the receiver stored"""
        with Simulated("--profile", "stereo", "--folder", self.folder / "stored") as simulated:
            trace = subprocess.Popen(
                [VELTRA, "trace", "--device", simulated.address, "-o", self.recording, *options], stdout=subprocess.PIPE, text=True)
            address = trace.stdout.readline().removeprefix("Listening on ").strip()
            log = self.folder / "module.log"
            ending = veltra("download", "--slot", "1", self.filters, "--device", address, "--log", log, "--log-level", "debug")
            self.assertEqual(0, ending.returncode, ending.stderr)
            trace.send_signal(signal.SIGINT)
            lines = trace.communicate(timeout=30)[0].splitlines()
            self.assertEqual(0, trace.returncode)
        return lines

    def test_shows_each_envelope_and_the_time_to_its_answer(self):
        (self.folder / "module.log").touch()
        lines = self.traced_download("--log", str(self.folder / "module.log"))
        text = "\n".join(lines)
        self.assertRegex(text, r"\d\d:\d\d:\d\d\.\d{6}  #\d+  > LoadFilter \{ .*name: \"Room\"")
        self.assertRegex(text, r"#\d+  < Acknowledge \{ ok: true \}  \d+\.\d{3} ms")
        self.assertNotIn("answers no question", text)
        self.assertIn("log    ", text)
        if shutil.which("tshark"):
            found = run("tshark", "-r", self.recording, "-X", f"lua_script:{SCRIPT}", "-Y", "veltraio", "-T", "fields",
                        "-e", "veltraio.message", "-e", "_ws.malformed").stdout.split()
            self.assertEqual(sum(line.count("  > ") for line in lines), sum(name not in ("Acknowledge", "ProtocolInfo", "Unit", "TopologyInfo", "StimulusInfo") for name in found))

    def test_a_replay_answers_as_recorded_and_says_where_a_host_leaves_it(self):
        self.traced_download()
        other = self.write("other.xml", document.filters().replace('"Room"', '"Other"'))
        for filters, status, said in ((self.filters, 0, "has played the whole recording"),
                                      (other, 5, "it sent LoadFilter, recorded is LoadFilter with other fields")):
            with Simulated("--replay", self.recording) as replay:
                ending = veltra("download", "--slot", "1", filters, "--device", replay.address)
            self.assertEqual(status, ending.returncode, ending.stderr)
            self.assertIn(said, replay.output)

    def test_a_full_recording_ends_and_the_trace_goes_on(self):
        with Simulated("--profile", "seven-one") as simulated:
            trace = subprocess.Popen(
                [VELTRA, "trace", "--device", simulated.address, "-o", self.recording, "--limit", "1"], stdout=subprocess.PIPE, text=True)
            address = trace.stdout.readline().removeprefix("Listening on ").strip()
            ending = veltra("check", "--device", address, "--level", "3", "--slot", "0", "--slack", "3000")
            self.assertEqual(0, ending.returncode, ending.stdout)
            trace.send_signal(signal.SIGINT)
            self.assertEqual(1, len(re.findall("has reached its limit", trace.communicate(timeout=30)[0])))
        self.assertLess(self.recording.stat().st_size, (1 << 20) + 1)

    def test_a_file_that_is_no_recording_is_refused_in_words(self):
        ending = run(SIMULATED, "--replay", self.filters)
        self.assertEqual(6, ending.returncode)
        self.assertIn("it is not a pcapng file", ending.stderr)


if __name__ == "__main__":
    unittest.main()
