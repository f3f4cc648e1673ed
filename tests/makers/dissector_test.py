# SPDX-License-Identifier: GPL-3.0-or-later
"""The dissector, in tshark."""

import collections
import shutil
import subprocess
import sys
import unittest

import veltraio_pb2 as pb
from capture import Conversation
from receiver import Receiver, envelope
from support import ROOT, ScratchTest, private_network, run, veltra

SCRIPT = ROOT / "share/veltraio/wireshark/veltraio.lua"
SCHEMA = ROOT / "protocol"


def request(kind):
    return envelope(pb.Request(requestType=pb.Request.RequestType.Value("RequestType_kGet" + kind), deviceIndex=0))


def chunk(offset, data, slot=1):
    return envelope(pb.FilterDataChunk(deviceIndex=0, slotIndex=slot, dataOffset=offset, data=[data]))


OK = envelope(pb.Acknowledge(ok=True))
UNIT = envelope(Receiver().describe())


@unittest.skipUnless(shutil.which("tshark"), "tshark is not installed")
class Dissector(ScratchTest):
    def tshark(self, capture, *options):
        # A script that cannot be loaded shows on standard error only.
        schema = f'uat:protobuf_search_paths:"{SCHEMA}","TRUE"'
        ending = run("tshark", "-r", capture, "-X", f"lua_script:{SCRIPT}", "-o", schema, *options)
        self.assertEqual(0, ending.returncode, ending.stderr)
        self.assertNotIn("Lua", ending.stderr)
        return ending.stdout

    def fields(self, capture, *names, two_passes=False, display="veltraio", options=()):
        words = [word for name in names for word in ("-e", name)]
        out = self.tshark(capture, *(["-2"] if two_passes else []), "-Y", display, "-T", "fields", "-E", "separator=|", *words, *options)
        return out.splitlines()

    def capture(self, conversation):
        return conversation.write(self.folder / "capture.pcap")

    def test_names_fields_and_answers(self):
        info = pb.ProtocolInfo(versionInfo=8, messageLimit=100)
        refusal = pb.Acknowledge(ok=False, errorMessage="flash busy")
        volume = pb.Volume(deviceIndex=0, volume=0.25)
        capture = self.capture(
            Conversation().sends(request("ProtocolInfo")).answers(envelope(info)).sends(request("Volume"))
            .answers(envelope(volume)).sends(envelope(volume)).answers(OK)
            .sends(chunk(64, b"abcd")).answers(envelope(refusal)))
        rows = [line.split("|") for line in self.fields(
            capture, *("veltraio." + name for name in (
                "message", "request", "slot", "offset", "data", "refusal", "answer_in", "answer_to", "answer_time")), two_passes=True)]
        self.assertEqual(
            ["Request|ProtocolInfo|||||5|", "ProtocolInfo|||||||4", "Request|Volume|||||7|", "Volume|||||||6", "Volume||||||9|",
             "Acknowledge|||||||8", "FilterDataChunk||1|64|61626364||11|", "Acknowledge|||||flash busy||10"],
            ["|".join(row[:-1]) for row in rows])
        self.assertEqual([1] * 8, [round(1000 * float(row[-1]), 2) for row in rows])

        text = self.tshark(capture, "-V", "-Y", "veltraio.message == Volume")
        self.assertIn("Message: veltraio.Volume", text)
        self.assertIn("Field(2): volume = 0.25", text)
        self.assertRegex(
            self.tshark(capture, "-q", "-X", "lua_script1:exchanges"),
            r"FilterDataChunk +1 +0 +1.000 +1.000 +1.000\nRequest ProtocolInfo +1 ")

    def test_says_what_is_wrong(self):
        broken, unknown = bytearray(chunk(0, b"abcd")), bytearray(OK)
        broken[14] ^= 1
        unknown[7] ^= 1
        right = int.from_bytes(chunk(0, b"abcd")[11:15], "big")
        info = envelope(pb.ProtocolInfo(versionInfo=8, messageLimit=100))
        volume = envelope(pb.Volume(deviceIndex=0, volume=1))
        ask = request("Unit")
        for name, conversation, found in (
                ("checksum", Conversation().sends(bytes(broken)), [f"The checksum is wrong, 0x{right:08x} is right"]),
                ("identifier", Conversation().sends(bytes(unknown)), ["No message has this identifier"]),
                ("limit", Conversation().sends(request("ProtocolInfo")).answers(info).sends(chunk(0, bytes(90))).answers(OK),
                 ["The envelope is longer than the announced 100 bytes"]),
                ("length", Conversation().sends(ask + b"\x21\x01\xff\xff\xff\xff\xff").answers(UNIT),
                 ["The envelope would be longer than 32767 bytes"]),
                ("noise", Conversation().sends(ask + b"\x21\x21" + ask).answers(UNIT, UNIT),
                 ["Bytes that belong to no envelope"]),
                ("no answer", Conversation().sends(ask, request("Volume")).answers(volume), ["No answer"]),
                ("another answer", Conversation().sends(ask).answers(envelope(pb.Pong())), ["No answer", "Answer to no question"]),
                ("twice", Conversation().sends(chunk(0, b"a")).answers(OK, OK), ["Answer to no question"]),
                ("refusal", Conversation().sends(chunk(0, b"a")).answers(envelope(pb.Acknowledge(ok=False))),
                 ["The receiver refused"])):
            with self.subTest(name):
                capture = self.capture(conversation)
                self.assertEqual(
                    found, self.fields(capture, "_ws.expert.message", display="veltraio && _ws.expert", two_passes=True))

    def test_finds_envelopes_however_the_stream_is_cut(self):
        whole = request("Unit") + chunk(0, b"abcd") + request("Volume")
        for size in (1, 2, 7, 14, 16, len(whole)):
            pieces = [whole[at : at + size] for at in range(0, len(whole), size)]
            capture = self.capture(Conversation().sends(*pieces))
            found = self.fields(capture, "veltraio.message", options=("-o", "veltraio.ports:47600"))
            self.assertEqual(["Request", "FilterDataChunk", "Request"], ",".join(filter(None, found)).split(","), size)
        for start in (3, 8):  # without a port, the first three bytes have to come together
            capture = self.capture(Conversation().sends(whole[:start], whole[start:]))
            self.assertEqual(["Request,FilterDataChunk,Request"], [line for line in self.fields(capture, "veltraio.message") if line])

    @unittest.skipUnless(shutil.which("dumpcap"), "dumpcap is not installed")
    def test_puts_each_profiles_download_together(self):
        for profile in ("stereo", "seven-one", "twelve"):
            with self.subTest(profile):
                filters, capture, stored = (self.folder / f"{profile}.{end}" for end in ("xml", "pcapng", "stored"))
                rooms = sorted((ROOT / "examples/living-room").glob("*_*.wav"))
                self.assertEqual(0, veltra("import", "--for", profile, "--partial", "-o", filters, *rooms).returncode)
                script = f"from capture import *; capture_download({str(capture)!r}, {profile!r}, {str(stored)!r}, {str(filters)!r})"
                ending = run(*private_network(), sys.executable, "-B", "-c", script, cwd=None)
                self.assertEqual(0, ending.returncode, ending.stderr)
                blocks = collections.defaultdict(bytearray)
                rate = None
                for line in self.fields(
                        capture, "veltraio.rate", "veltraio.offset", "veltraio.data", "_ws.malformed", "_ws.expert.message",
                        "protobuf.message.name"):
                    new_rate, offset, data, malformed, problem, decoded = line.split("|")
                    self.assertEqual(("", ""), (malformed, problem))
                    self.assertTrue(decoded.startswith("veltraio."))
                    rate = new_rate or rate
                    if data:
                        self.assertEqual(len(blocks[rate]), int(offset))
                        blocks[rate] += bytes.fromhex(data)
                for at in (44100, 48000, 96000):
                    self.assertEqual((stored / f"slot1_{at}.bin").read_bytes(), blocks[str(at)], at)


if __name__ == "__main__":
    unittest.main()
