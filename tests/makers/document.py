#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""The parts of docs/wire-format.md that are worked out from the schema: the identifiers and the download byte by byte.

    document.py --write      writes them into the document
"""

import pathlib
import re
import struct
import sys

import veltraio_pb2 as pb
from receiver import MARKER, envelope, hash_of

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "wire-format.md"


def filters():
    """The application's two filters, of which the document's download is made."""
    channel = '<Channel Name="{}" Number="{}" {}><Coefficients Topology="FIR" Fs="48000">' \
              '<FIR NbrOfTaps="2"><taps>{}</taps></FIR></Coefficients></Channel>'
    return ('<Veltra><Tune ProjectName="Room" Technology="FIR">'
            + channel.format("FL", 1, "", "1 0.5")
            + channel.format("FR", 2, 'GaindB="-3" Delayms="1.5"', "0.25 -0.125")
            + "</Tune></Veltra>")


def download():
    """What the plug-in sends for them into slot 1."""
    load = pb.LoadFilter(deviceIndex=0, slotIndex=1)
    load.filter.CopyFrom(pb.Filter(name="Room", technology="FIR", noOfChannels=2, totalNoOfBytes=16))
    level = dict(maxGain_dB=0, latency_ms=0, noEq=False)
    return [
        load,
        pb.FilterChannel(channelIndex=0, name="FL", gain_dB=0, delay_ms=0, **level),
        pb.FilterChannel(channelIndex=1, name="FR", gain_dB=-3, delay_ms=1.5, **level),
        pb.FilterData(deviceIndex=0, slotIndex=1, sampleRate=48000, channelIndices=[0, 1], sizeBytes=16),
        pb.FilterDataChunk(deviceIndex=0, slotIndex=1, dataOffset=0, data=[struct.pack("<4f", 1, 0.5, 0.25, -0.125)]),
    ]


def hexed(data):
    return " ".join(f"{byte:02X}" for byte in data)


def field_lines(message, indent=""):
    """Each field's bytes, its name and its value."""
    lines = []
    for field, value in message.ListFields():
        for one in value if field.label == field.LABEL_REPEATED else [value]:
            alone = type(message)()
            if field.label == field.LABEL_REPEATED:
                getattr(alone, field.name).append(one)
            elif field.message_type:
                getattr(alone, field.name).CopyFrom(one)
            else:
                setattr(alone, field.name, one)
            data = alone.SerializePartialToString()
            if field.message_type:
                lines.append((hexed(data[: -one.ByteSize()]), f"{indent}{field.name}"))
                lines += field_lines(one, indent + "  ")
            elif field.type == field.TYPE_BYTES:
                lines.append((hexed(data[: -len(one)]), f"{indent}{field.name}: {len(one)} bytes"))
                for start in range(0, len(one), 8):
                    numbers = struct.unpack("<2f", one[start : start + 8])
                    lines.append((hexed(one[start : start + 8]), f"{indent}  taps {numbers[0]:g}, {numbers[1]:g}"))
            else:
                text = f'"{one}"' if isinstance(one, str) else str(one).lower() if isinstance(one, bool) else f"{one:g}"
                lines.append((hexed(data), f"{indent}{field.name}: {text}"))
    return lines


def envelope_lines(message):
    data = envelope(message)
    return [
        (hexed(data[:3]), "marker"),
        (hexed(data[3:7]), f"length: {len(data) - 15}"),
        (hexed(data[7:11]), f"messageId: {message.DESCRIPTOR.full_name}"),
        (hexed(data[11:15]), "checksum"),
        *field_lines(message),
    ]


def listing(message):
    lines = envelope_lines(message)
    width = max(len(data) for data, _ in lines)
    return "```\n" + "".join(f"{data:<{width}}  {name}\n" for data, name in lines) + "```\n"


def download_text():
    accepted = pb.Acknowledge(ok=True)
    text = f"Each of the five messages is answered by the same `Acknowledge`:\n\n{listing(accepted)}\n"
    return text + "\n".join(f"`{message.DESCRIPTOR.name}`:\n\n{listing(message)}" for message in download())


def identifiers_text():
    names = sorted(pb.DESCRIPTOR.message_types_by_name)
    names.remove("Filter")  # only ever a part of LoadFilter
    cells = [f"`{name}` | `{hexed(struct.pack('>I', hash_of(('veltraio.' + name).encode())))}`" for name in names]
    half = (len(cells) + 1) // 2
    rows = [f"| {left} | {right} |" for left, right in zip(cells[:half], cells[half:] + [" | "])]
    return "| message | identifier | message | identifier |\n|---|---|---|---|\n" + "\n".join(rows) + "\n"


PARTS = {"identifiers": identifiers_text, "download": download_text}


def part_of(page, name):
    """The text of a part, and where it is."""
    return re.search(rf"(?<=<!-- {name}: written by tests/makers/document.py -->\n).*?(?=<!-- end -->)", page, re.DOTALL)


def envelopes_in(text):
    """The envelopes that a reader finds in the hexadecimal columns of a text."""
    data = b""
    for line in text.splitlines():
        if column := re.match(r"((?:[0-9A-F]{2} )*[0-9A-F]{2})(?:  |$)", line):
            data += bytes.fromhex(column[1])
    return [MARKER + rest for rest in data.split(MARKER)[1:]]


if __name__ == "__main__":
    if sys.argv[1:] != ["--write"]:
        sys.exit(__doc__)
    written = PAGE.read_text()
    for name, text in PARTS.items():
        place = part_of(written, name)
        written = written[: place.start()] + "\n" + text() + "\n" + written[place.end() :]
    PAGE.write_text(written)
