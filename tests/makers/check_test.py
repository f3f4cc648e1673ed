# SPDX-License-Identifier: GPL-3.0-or-later
"""`veltra check` passes receivers that do what the document says, and finds each thing that one does wrong."""

import json
import unittest
import xml.etree.ElementTree as xml

import receiver
from support import Simulated, ScratchTest, veltra

SLACK_MS = 3000  # the machine may be busy
TAPS = 512  # of the receiver in Python: a block has to be longer than its message limit

# A fault of the simulated receiver, the check that finds it, and the first level at which it shows.
FAULTS = (
    ("refuse GetVolume * 'no'", "tells-volume", 1),
    ("lose GetFilteringState *", "tells-filtering", 1),
    ("lose-reply Ping *", "answers-ping", 1),
    ("delay GetStimulusState * 6000", "tells-stimulus-state", 1),
    ("wrong-checksum GetStimulusState *", "tells-stimulus-state", 1),
    ("wrong-length GetActiveFilterSlot * 5", "tells-active-slot", 1),
    ("noise GetVolume * 9", "tells-volume", 1),
    ("pieces GetUnit * 20 1200", "tells-unit", 1),
    ("close GetUnit * 9", "tells-unit", 1),
    ("reset GetTopologyInfo * 9", "tells-topology", 1),
    ("answer GetVolume * ActiveFilterSlot 'deviceIndex: 0 slotIndex: 0'", "tells-volume", 1),
    ("duplicate GetFilteringState *", "tells-filtering", 1),
    ("truncate GetStimulusInfo * 1", "tells-stimuli", 1),
    ("reset connect *", "opens", 1),
    ("duplicate FilterDataChunk *", "acknowledges-once", 3),
    ("limit LoadFilter 1 1200", "takes-full-envelopes", 3),
    ("lose AudioData 20", "streams-its-microphone", 4),
)

# What the receiver in Python does wrong, the check that finds it, and a level at which it shows.
DEVIATIONS = {
    "wrong-checksum": ("tells-volume", 4),
    "refuses-without-text": ("explains-refusals", 2),
    "ignores-limit": ("refuses-longer-envelopes", 3),
    "acknowledges-twice": ("acknowledges-once", 3),
    "forgets-slot": ("remembers-slots", 3),
    "wrong-answer": ("tells-filtering", 2),
    "keeps-no-repeat": ("takes-chunks-again", 3),
    "in-order-only": ("takes-chunks-in-any-order", 3),
    "drops-volume": ("sets-volume", 2),
    "takes-any-volume": ("refuses-volume", 2),
    "one-read-one-envelope": ("reads-envelopes-glued", 4),
    "never-stale": ("forgets-half-envelopes", 4),
    "skips-packets": ("streams-its-microphone", 4),
    "plays-on": ("ends-measurement-with-its-connection", 4),
    "cancel-of-slot-0": ("cancels", 3),
}


class Check(ScratchTest):
    def check(self, address, *options):
        """The exit status, and what became of each check."""
        report = self.folder / "report.json"
        ending = veltra("check", "--device", address, "--slot", "1", "--slack", SLACK_MS, "--json", report, "--force", *options)
        outcomes = {one["name"]: one["outcome"] for one in json.loads(report.read_text())["checks"]}
        return ending, outcomes

    def expect_only(self, found, address, *options):
        ending, outcomes = self.check(address, *options)
        failed = [name for name, outcome in outcomes.items() if outcome == "failed"]
        self.assertEqual([found], failed, ending.stdout)
        self.assertEqual(4 if found == "opens" else 5, ending.returncode, ending.stderr)

    def test_the_simulated_receiver_passes_with_each_profile(self):
        for profile in ("stereo", "seven-one", "twelve"):
            with self.subTest(profile), Simulated("--profile", profile) as simulated:
                before = veltra("volume", "0.5", "--device", simulated.address).stdout
                ending, outcomes = self.check(simulated.address, "--level", 5, "--minutes", "0.05")
                self.assertEqual(0, ending.returncode, ending.stdout)
                self.assertEqual({"passed"}, set(outcomes.values()), ending.stdout)
                self.assertEqual(before, veltra("volume", "--device", simulated.address).stdout)

    def test_finds_each_fault_of_the_simulated_receiver_and_nothing_else(self):
        for fault, found, level in FAULTS:
            with self.subTest(fault), Simulated("--profile", "seven-one", "--fault", fault) as simulated:
                self.expect_only(found, simulated.address, "--level", level)

    def test_finds_what_another_receiver_does_wrong_and_passes_it_otherwise(self):
        server = receiver.Server(receiver.Receiver(taps=TAPS))
        ending, outcomes = self.check(f"127.0.0.1:{server.port}", "--level", 4)
        self.assertEqual((0, {"passed"}), (ending.returncode, set(outcomes.values())), ending.stdout)
        self.assertEqual(set(receiver.DEVIATIONS), set(DEVIATIONS))
        for deviation, (found, level) in DEVIATIONS.items():
            with self.subTest(deviation):
                theirs = receiver.Receiver([deviation], taps=TAPS)
                self.expect_only(found, f"127.0.0.1:{receiver.Server(theirs).port}", "--level", level)
                self.assertEqual((0.3, False), (round(theirs.volume, 3), theirs.slots[1].occupied))

    def test_touches_no_slot_unless_allowed_and_says_why_it_skips(self):
        with Simulated("--profile", "stereo") as simulated:
            report = self.folder / "report.xml"
            ending = veltra("check", "--device", simulated.address, "--level", 3, "--slack", SLACK_MS, "--junit", report)
        self.assertEqual(0, ending.returncode, ending.stderr)
        self.assertNotIn("slot 1", simulated.output)
        suites = xml.parse(report).getroot()
        skipped = {one.get("name"): one.find("skipped").get("message") for one in suites.iter("testcase") if len(one)}
        self.assertEqual("no slot was given away with --slot", skipped["acknowledges-once"])
        self.assertEqual(suites.get("skipped"), str(len(skipped)))
        self.assertEqual(11, len(skipped))

    def test_a_receiver_that_is_not_there_has_a_status_of_its_own(self):
        ending, outcomes = self.check("127.0.0.1:1")
        self.assertEqual(4, ending.returncode, ending.stderr)
        self.assertEqual("failed", outcomes["opens"])


if __name__ == "__main__":
    unittest.main()
