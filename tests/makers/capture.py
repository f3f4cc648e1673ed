# SPDX-License-Identifier: GPL-3.0-or-later
"""Captures for the dissector: written packet by packet, or of a whole download in a private network."""

import socket
import struct
import time

HOST, RECEIVER = ("10.0.0.1", 50000), ("10.0.0.2", 47600)


def checksum16(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


class Conversation:
    """One TCP connection as a pcap file of raw IP packets, each 1 ms behind the one before."""

    def __init__(self):
        self.packets = []
        self.next = {HOST: 1000, RECEIVER: 5000}
        self.packet(HOST, RECEIVER, b"", 0x02)
        self.packet(RECEIVER, HOST, b"", 0x12)
        self.packet(HOST, RECEIVER, b"", 0x10)

    def packet(self, source, target, payload, flags=0x18):
        acknowledged = self.next[target] if flags & 0x10 else 0
        tcp = struct.pack(">HHIIBBHHH", source[1], target[1], self.next[source], acknowledged, 0x50, flags, 65535, 0, 0) + payload
        ends = socket.inet_aton(source[0]) + socket.inet_aton(target[0])
        tcp = tcp[:16] + struct.pack(">H", checksum16(ends + struct.pack(">HH", 6, len(tcp)) + tcp)) + tcp[18:]
        ip = struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(tcp), len(self.packets) + 1, 0x4000, 64, 6, 0) + ends
        ip = ip[:10] + struct.pack(">H", checksum16(ip)) + ip[12:]
        self.packets.append(ip + tcp)
        self.next[source] += len(payload) + (1 if flags & 0x02 else 0)

    def sends(self, *payloads):
        for payload in payloads:
            self.packet(HOST, RECEIVER, payload)
        return self

    def answers(self, *payloads):
        for payload in payloads:
            self.packet(RECEIVER, HOST, payload)
        return self

    def write(self, file):
        data = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 101)
        for number, packet in enumerate(self.packets):
            data += struct.pack("<IIII", 1700000000, number * 1000, len(packet), len(packet)) + packet
        file.write_bytes(data)
        return file


def capture_download(file, profile, folder, filters):
    """In a private network: a download into slot 1 of a simulated receiver, seen on the loopback interface."""
    import signal
    import subprocess

    from support import Simulated, veltra

    dump = subprocess.Popen(
        ["dumpcap", "-q", "-i", "lo", "-B", "64", "-w", file, "-f", "tcp"], stderr=subprocess.PIPE, text=True)
    while "File:" not in (line := dump.stderr.readline()):
        if not line:
            raise AssertionError("dumpcap has ended")
    with Simulated("--profile", profile, "--folder", folder) as receiver:
        ending = veltra("download", "--slot", "1", "--partial", filters, "--device", receiver.address)
    time.sleep(1)  # dumpcap reads what has come once in a while
    dump.send_signal(signal.SIGINT)
    dump.communicate(timeout=30)
    assert ending.returncode == 0, ending.stderr
