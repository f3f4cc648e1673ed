# SPDX-License-Identifier: GPL-3.0-or-later
"""`veltra trace` changes nothing and records all, and `veltra-receiver --replay` plays the recording."""

import json
import re
import shutil
import unittest

import document
import receiver
from dissector_test import SCRIPT
from support import ROOT, SIMULATED, VELTRA, ScratchTest, Simulated, run, veltra


def documented_keys(program):
    """The events of docs/json.md, each with a key; what is in objects and lists counts as these."""
    part = re.search(rf"^## {program}$(.*?)(^## |\Z)", (ROOT / "docs" / "json.md").read_text(), re.M | re.S)[1]
    return set(re.findall(r"^\| `(\w+)` \| `(\w+)", part, re.M))


def keys_in(lines):
    events = [json.loads(line) for line in lines]
    return {(event["event"], key) for event in events for key in event if key != "event"}


class Trace(Simulated):
    """`veltra trace`, for as long as a `with` lasts."""

    def __init__(self, address, *options):
        self.start(VELTRA, "trace", "--device", address, *options)


class TraceTest(ScratchTest):
    def setUp(self):
        super().setUp()
        self.filters = self.write("filters.xml", document.filters())
        self.recording = self.folder / "session.pcapng"

    def traced_download(self, *options):
        """A download by way of a trace. @returns the lines of the trace"""
        port = receiver.Server(receiver.Receiver()).port
        with Trace(f"127.0.0.1:{port}", "-o", self.recording, *options) as trace:
            log = self.folder / "module.log"
            ending = veltra("download", "--slot", "1", self.filters, "--device", trace.address, "--log", log, "--log-level", "debug")
            self.assertEqual(0, ending.returncode, ending.stderr)
        self.assertEqual(0, trace.process.returncode)
        return trace.output.splitlines()

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

    def test_prints_the_keys_of_the_document_for_scripts(self):
        (self.folder / "module.log").touch()
        lines = self.traced_download("--json", "--log", str(self.folder / "module.log"))
        self.assertEqual(documented_keys("veltra trace") - {("full", "time")}, keys_in(lines))

    def test_the_simulated_receiver_prints_the_keys_of_the_document_too(self):
        rooms = (ROOT / "examples" / "living-room").glob("F[LR]_*.wav")
        filters = self.folder / "room.xml"
        self.assertEqual(0, veltra("import", "--for", "stereo", "-o", filters, *rooms).returncode)
        with Simulated("--json", "--profile", "stereo") as simulated:
            self.assertEqual(0, veltra("download", "--slot", "1", filters, "--device", simulated.address).returncode)
        self.traced_download()
        with Simulated("--json", "--replay", self.recording) as replay:
            veltra("info", "--device", replay.address)
        # Announcing needs a network of its own.
        self.assertEqual(documented_keys("veltra-receiver") - {("announced", "name")},
                         keys_in(simulated.output.splitlines() + replay.output.splitlines()))

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
            with Trace(simulated.address, "-o", self.recording, "--limit", "1") as trace:
                # More than a pipe holds, and nobody reads it yet.
                ending = veltra("check", "--device", trace.address, "--level", "3", "--slot", "0", "--slack", "3000")
                self.assertEqual(0, ending.returncode, ending.stdout)
        self.assertEqual(1, trace.output.count("has reached its limit"))
        self.assertLess(self.recording.stat().st_size, (1 << 20) + 1)

    def test_a_file_that_is_no_recording_is_refused_in_words(self):
        ending = run(SIMULATED, "--replay", self.filters)
        self.assertEqual(6, ending.returncode)
        self.assertIn("it is not a pcapng file", ending.stderr)


if __name__ == "__main__":
    unittest.main()
