# SPDX-License-Identifier: GPL-3.0-or-later
"""docs/wire-format.md holds what the schema and the programs hold."""

import re
import unittest

import document
import receiver
import veltraio_pb2 as pb
from support import ScratchTest, veltra


class Document(ScratchTest):
    page = document.PAGE.read_text()

    def served(self, **options):
        """A receiver of this process, and the address at which it is."""
        theirs = receiver.Receiver(**options)
        return theirs, f"127.0.0.1:{receiver.Server(theirs).port}"

    def test_its_worked_out_parts_are_those_of_the_schema(self):
        for name, text in document.PARTS.items():
            self.assertEqual(text(), document.part_of(self.page, name)[0].strip() + "\n", f"{name}: document.py --write")

    def test_its_bytes_are_those_that_the_plug_in_and_the_receiver_send(self):
        written = document.envelopes_in(document.part_of(self.page, "download")[0])
        found = [receiver.MESSAGES[one[0]] for one in receiver.Reader().feed(b"".join(written))]
        names = [message.DESCRIPTOR.name for message in document.download()]
        self.assertEqual(["Acknowledge", *names], found)

        theirs, address = self.served(rates=[48000], taps=2)
        filters = self.write("filters.xml", document.filters())
        ending = veltra("download", "--slot", "1", filters, "--device", address)
        self.assertEqual(0, ending.returncode, ending.stderr)
        self.assertEqual(written[1:], [data for name, data in theirs.received if name in names])
        self.assertEqual(written[:1] * len(names), theirs.sent[-len(names) - 1 : -1])  # the last says what the slot holds

    def test_its_least_limits_are_enough_and_not_too_high(self):
        table = dict(re.findall(r"\| `(\w+)` \| (\d+)", self.page))
        name = "N" * 32
        filters = self.write("filters.xml", document.filters().replace('"Room"', f'"{name}"'))
        need = max(int(table["LoadFilter"]) + len(name) + len("FIR"), int(table["FilterChannel"]) + 2)
        for limit, status in ((need - 4, 0), (need - 5, 5)):  # the total of this download has 1 byte and not 5
            _, address = self.served(rates=[48000], taps=2, limit=limit)
            ending = veltra("download", "--slot", "0", filters, "--device", address)
            self.assertEqual(status, ending.returncode, f"{limit} {ending.stderr}")

        for limit, status in ((int(table["FilterDataChunk"]), 0), (int(table["FilterDataChunk"]) - 1, 5)):
            self.assertEqual(status == 0, fits_chunks(limit))


def fits_chunks(limit):
    """The rule by which the plug-in cuts chunks, at the last offset of the largest download."""
    chunk = pb.FilterDataChunk(deviceIndex=0, slotIndex=127, dataOffset=0, data=[bytes(1024)])
    excess = len(receiver.envelope(chunk)) - limit
    size = (1024 - excess - 4) // 4 * 4
    chunk.dataOffset, chunk.data[0] = 256 * 1024 * 1024 - 4, bytes(max(size, 0))
    return size >= 4 and len(receiver.envelope(chunk)) <= limit


if __name__ == "__main__":
    unittest.main()
