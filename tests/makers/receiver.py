#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""A small receiver, written from docs/wire-format.md, docs/discovery.md and protocol/veltraio.proto alone: tests show with it
that these suffice, and that `veltra check` finds what a receiver does wrong.

    receiver.py [--announce] [--deviation NAME]...

Prints "Listening on HOST:PORT" and serves until its standard input ends. Needs the classes that protoc makes of the schema.
"""

import argparse
import http.server
import math
import socket
import struct
import sys
import threading
import time

import veltraio_pb2 as pb

MARKER = b"\x21\x01\xff"
LONGEST_ENVELOPE = 32767
STALE_S = 1.0
LIMIT = 1400
RATES = [44100, 48000]
TAPS = 64

DEVIATIONS = {
    "wrong-checksum": "the checksum of an answer to GetVolume is wrong",
    "refuses-without-text": "refusals have no errorMessage",
    "ignores-limit": "envelopes above the message limit are carried out",
    "acknowledges-twice": "a chunk is acknowledged twice",
    "forgets-slot": "a slot is empty again when its connection has ended",
    "wrong-answer": "GetFilteringState is answered by ActiveFilterSlot",
    "keeps-no-repeat": "a chunk that comes again is refused",
    "in-order-only": "a chunk that leaves a gap is refused",
    "drops-volume": "Volume is acknowledged and not kept",
    "takes-any-volume": "a volume above 1 is taken",
    "one-read-one-envelope": "what follows the first envelope of a read is lost",
    "never-stale": "half an envelope is kept for ever",
    "skips-packets": "every tenth packet of AudioData is missing",
    "plays-on": "measurement goes on when its connection has ended",
    "cancel-of-slot-0": "DownloadCancelled empties the slot that it names",
}


def hash_of(data):
    value = 0
    for byte in data:
        value = (value * 31 + byte) & 0xFFFFFFFF
    return value


MESSAGES = {hash_of(f"veltraio.{name}".encode()): name for name in pb.DESCRIPTOR.message_types_by_name}


def envelope(message, checksum_error=0):
    body = message.SerializeToString()
    identifier = hash_of(message.DESCRIPTOR.full_name.encode())
    return MARKER + struct.pack(">III", len(body), identifier, hash_of(body) ^ checksum_error) + body


class Reader:
    """Finds the envelopes in a stream; whatever does not belong to one is dropped."""

    def __init__(self, never_stale=False, one_a_read=False):
        self.pending = bytearray()
        self.last = time.monotonic()
        self.never_stale = never_stale
        self.one_a_read = one_a_read

    def feed(self, data):
        now = time.monotonic()
        if now - self.last >= STALE_S and not self.never_stale:
            self.pending.clear()
        self.last = now
        self.pending += data
        found = []
        while (one := self._next()) is not None:
            found.append(one)
            if self.one_a_read:
                self.pending.clear()
        return found

    def _next(self):
        while True:
            matched = 0
            while self.pending and matched < 3 and matched < len(self.pending):
                if self.pending[matched] == MARKER[matched]:
                    matched += 1
                else:  # the byte that does not fit is gone, too
                    del self.pending[: matched + 1]
                    matched = 0
            if len(self.pending) < 7:
                return None
            length = struct.unpack(">I", self.pending[3:7])[0]
            if length > LONGEST_ENVELOPE - 15:
                del self.pending[:7]
                continue
            if len(self.pending) < 15 + length:
                return None
            identifier, checksum = struct.unpack(">II", self.pending[7:15])
            body = bytes(self.pending[15 : 15 + length])
            del self.pending[: 15 + length]
            if hash_of(body) == checksum:
                return identifier, body


class Refusal(Exception):
    pass


class Slot:
    def __init__(self):
        self.name = ""
        self.occupied = False
        self.blocks = []  # [rate, size, bytes so far, which of them have come]


class Receiver:
    """What all sessions share."""

    def __init__(self, deviations=(), limit=LIMIT, rates=RATES, taps=TAPS):
        self.deviations = set(deviations)
        self.limit = limit
        self.rates = rates
        self.taps = taps
        self.lock = threading.RLock()
        self.volume = 0.3
        self.attenuation = {0: 0.0, 1: 0.0}
        self.active = 0
        self.filtering = False
        self.slots = [Slot(), Slot()]
        self.measuring = None  # the session
        self.playing_until = 0.0
        self.received = []  # of all sessions: (name, envelope)
        self.sent = []

    def describe(self):
        unit = pb.Unit(manufacturer="Example", name="Two", capabilities=2 + 8, maxChannelAttenuation_dB=12)
        device = unit.devices.add(name="Main")
        device.configurations.add(name="Stereo", sampleRates=self.rates, channels=[0, 1], defaultSampleRate=48000)
        for slot in self.slots:
            device.filterSlots.add(isOccupied=slot.occupied, **({"name": slot.name} if slot.occupied else {}))
        for index, name in enumerate(("FL", "FR")):
            device.outputChannels.add(name=name, type=pb.Unit.Device.ChannelInfo.Type_kLarge, channelIndex=index)
        return unit

    def topologies(self):
        info = pb.TopologyInfo()
        for rate in self.rates:
            info.topologies.add(name="FIR", sampleRate=rate, information=f"NbrOfFIRTaps={self.taps}")
        return info

    def stimuli(self):
        info = pb.StimulusInfo(stimulusLatencyMilliseconds=0)
        for rate in self.rates:
            info.stimulusInformation.add(stimulus=pb.Stimulus_kSineLogSweep, sampleRate=rate, information="Seconds=0.5")
        return info


class Session(threading.Thread):
    def __init__(self, receiver, connection):
        super().__init__(daemon=True)
        self.receiver = receiver
        self.connection = connection
        self.sending = threading.Lock()
        self.load = None  # the slot that this session loads
        self.total = None
        self.channels = 0
        self.channels_left = 0
        self.open = True
        self.start()

    def run(self):
        deviates = self.receiver.deviations
        reader = Reader("never-stale" in deviates, "one-read-one-envelope" in deviates)
        try:
            while data := self.connection.recv(65536):
                for identifier, body in reader.feed(data):
                    self.take(identifier, body)
        except OSError:
            pass
        self.open = False
        with self.receiver.lock:
            if self.receiver.measuring is self and "plays-on" not in deviates:
                self.receiver.measuring = None
            if self.load is not None and "forgets-slot" in deviates:
                self.receiver.slots[self.load] = Slot()
        self.connection.close()

    def send(self, message, checksum_error=0):
        data = envelope(message, checksum_error)
        with self.sending:
            if not isinstance(message, pb.AudioData):
                self.receiver.sent.append(data)
            try:
                self.connection.sendall(data)
            except OSError:
                self.open = False

    def take(self, identifier, body):
        receiver = self.receiver
        name = MESSAGES.get(identifier, "")
        copies = 1
        checksum_error = 0
        with receiver.lock:
            receiver.received.append((name, MARKER + struct.pack(">III", len(body), identifier, hash_of(body)) + body))
            try:
                if receiver.limit and 15 + len(body) > receiver.limit and "ignores-limit" not in receiver.deviations:
                    raise Refusal(f"the envelope is longer than {receiver.limit} bytes")
                handler = getattr(self, "on_" + name, None)
                if handler is None:
                    raise Refusal("unknown message")
                message = getattr(pb, name)()
                try:
                    message.ParseFromString(body)
                except Exception:
                    raise Refusal("the message cannot be read")
                if not message.IsInitialized():
                    raise Refusal("the message lacks a required field")
                reply = handler(message)
                if name == "FilterDataChunk" and "acknowledges-twice" in receiver.deviations:
                    copies = 2
                if isinstance(reply, pb.Volume) and "wrong-checksum" in receiver.deviations:
                    checksum_error = 1
            except Refusal as reason:
                text = {} if "refuses-without-text" in receiver.deviations else {"errorMessage": str(reason)}
                reply = pb.Acknowledge(ok=False, **text)
        if reply is not None:
            for _ in range(copies):
                self.send(reply, checksum_error)

    # Questions

    def on_Request(self, request):
        receiver = self.receiver
        kinds = pb.Request
        if request.requestType == kinds.RequestType_kGetProtocolInfo:
            return pb.ProtocolInfo(versionInfo=8, messageLimit=receiver.limit)
        if request.requestType == kinds.RequestType_kGetUnit:
            return receiver.describe()
        if request.requestType == kinds.RequestType_kGetTopologyInfo:
            return receiver.topologies()
        if request.requestType == kinds.RequestType_kGetStimulusInfo:
            return receiver.stimuli()
        self.device(request)
        if request.requestType == kinds.RequestType_kGetVolume:
            return pb.Volume(deviceIndex=0, volume=receiver.volume)
        if request.requestType == kinds.RequestType_kGetChannelAttenuation:
            if request.channel not in receiver.attenuation:
                raise Refusal("no such channel")
            return pb.ChannelAttenuation(
                deviceIndex=0, channel=request.channel, attenuation=receiver.attenuation[request.channel])
        if request.requestType == kinds.RequestType_kGetActiveFilterSlot or (
                request.requestType == kinds.RequestType_kGetFilteringState and "wrong-answer" in receiver.deviations):
            return pb.ActiveFilterSlot(deviceIndex=0, slotIndex=receiver.active)
        if request.requestType == kinds.RequestType_kGetFilteringState:
            return pb.FilteringState(deviceIndex=0, isFiltering=receiver.filtering)
        if request.requestType == kinds.RequestType_kGetStimulusState:
            return pb.StimulusState(isPlaying=time.monotonic() < receiver.playing_until)
        raise Refusal("unknown request")

    def on_Ping(self, _):
        return pb.Pong()

    def on_Pong(self, _):
        return None

    on_Acknowledge = on_Pong

    # Commands

    @staticmethod
    def done():
        return pb.Acknowledge(ok=True)

    @staticmethod
    def device(message):
        if message.deviceIndex != 0:
            raise Refusal("there is one device only")

    def slot(self, message):
        self.device(message)
        if message.slotIndex >= len(self.receiver.slots):
            raise Refusal("no such slot")
        return message.slotIndex

    def on_Volume(self, message):
        self.device(message)
        highest = math.inf if "takes-any-volume" in self.receiver.deviations else 1
        if not 0 <= message.volume <= highest:
            raise Refusal("the volume is not between 0 and 1")
        if "drops-volume" not in self.receiver.deviations:
            self.receiver.volume = message.volume
        return self.done()

    def on_ChannelAttenuation(self, message):
        self.device(message)
        if message.channel not in self.receiver.attenuation:
            raise Refusal("no such channel")
        if not 0 <= message.attenuation <= 1:
            raise Refusal("the attenuation is not between 0 and 1")
        self.receiver.attenuation[message.channel] = message.attenuation
        return self.done()

    def on_ActiveFilterSlot(self, message):
        self.receiver.active = self.slot(message)
        return self.done()

    def on_FilteringState(self, message):
        self.device(message)
        self.receiver.filtering = message.isFiltering
        return self.done()

    # A download

    def on_LoadFilter(self, message):
        slot = self.slot(message)
        if not 0 < message.filter.noOfChannels <= 2:
            raise Refusal("one or two channels are expected")
        self.load = slot
        self.total = message.filter.totalNoOfBytes if message.filter.HasField("totalNoOfBytes") else None
        self.channels = self.channels_left = message.filter.noOfChannels
        self.receiver.slots[slot] = Slot()
        self.receiver.slots[slot].name = message.filter.name
        return self.done()

    def loading(self, message=None):
        if self.load is None or (message is not None and self.slot(message) != self.load):
            raise Refusal("this slot is not being loaded")
        return self.receiver.slots[self.load]

    def on_FilterChannel(self, message):
        self.loading()
        if message.channelIndex >= self.channels or self.channels_left == 0:
            raise Refusal("more channels than announced")
        self.channels_left -= 1
        return self.done()

    def on_FilterData(self, message):
        slot = self.loading(message)
        if self.channels_left:
            raise Refusal("channels are missing")
        if message.sampleRate not in self.receiver.rates or not set(message.channelIndices) <= {0, 1}:
            raise Refusal("no such rate or channel")
        if self.total is not None and sum(block[1] for block in slot.blocks) + message.sizeBytes > self.total:
            raise Refusal("more bytes than announced")
        slot.blocks.append([message.sampleRate, message.sizeBytes, bytearray(message.sizeBytes), bytearray(message.sizeBytes)])
        return self.done()

    def on_FilterDataChunk(self, message):
        slot = self.loading(message)
        if not slot.blocks or len(message.data) != 1:
            raise Refusal("no data are expected")
        _, size, data, come = slot.blocks[-1]
        start, end = message.dataOffset, message.dataOffset + len(message.data[0])
        if start == end or end > size:
            raise Refusal("the chunk lies outside the block")
        if "keeps-no-repeat" in self.receiver.deviations and come[start]:
            raise Refusal("these bytes have come already")
        if "in-order-only" in self.receiver.deviations and start > 0 and not come[start - 1]:
            raise Refusal("bytes are missing before these")
        data[start:end] = message.data[0]
        come[start:end] = b"\1" * (end - start)
        total = sum(block[1] for block in slot.blocks)
        slot.occupied = all(all(block[3]) for block in slot.blocks) and self.total in (None, total)
        return self.done()

    def on_DownloadCancelled(self, message):
        self.slot(message)
        if self.load is None:
            raise Refusal("nothing is being loaded")
        named = "cancel-of-slot-0" in self.receiver.deviations
        self.receiver.slots[message.slotIndex if named else self.load] = Slot()
        self.load = None
        return self.done()

    def on_RemoveFilter(self, message):
        slot = self.slot(message)
        self.receiver.slots[slot] = Slot()
        return self.done()

    # Measurement

    def on_OperationModeInfo(self, message):
        if self.receiver.measuring not in (None, self):
            raise Refusal("another host measures")
        rate = message.sampleRate if message.HasField("sampleRate") else 0
        if rate and rate not in self.receiver.rates:
            raise Refusal("no such rate")
        self.receiver.measuring = None
        if message.mode == pb.OperationMode_kMeasurement:
            self.receiver.measuring = self
            if rate:
                threading.Thread(target=self.stream, args=(rate,), daemon=True).start()
        return self.done()

    def on_StartStimulus(self, message):
        self.device(message)
        if self.receiver.measuring is not self or not message.channels or not set(message.channels) <= {0, 1}:
            raise Refusal("not in measurement mode, or no such channels")
        if message.stimulusType != pb.Stimulus_kSineLogSweep or message.sampleRate not in self.receiver.rates:
            raise Refusal("no such stimulus")
        self.receiver.playing_until = time.monotonic() + 0.5
        return self.done()

    def on_StopStimulus(self, message):
        self.device(message)
        self.receiver.playing_until = 0.0
        return self.done()

    def stream(self, rate):
        """A tone while the stimulus plays, otherwise faint noise."""
        samples = 512
        start = time.monotonic()
        number = 0
        while self.open and self.receiver.measuring is self:
            time.sleep(max(0.0, start + (number + 1) * samples / rate - time.monotonic()))
            loud = 0.25 if time.monotonic() < self.receiver.playing_until else 1e-5
            tone = [loud * math.sin(6.283 * 997 * i / rate) for i in range(samples)]
            with self.receiver.lock:  # no packet comes behind the acknowledgement that ends the mode
                if self.receiver.measuring is not self:
                    break
                if not ("skips-packets" in self.receiver.deviations and number % 10 == 9):
                    self.send(pb.AudioData(packetNumber=number, data=tone))
            number += 1


class Server(threading.Thread):
    """Takes connections on a free port of the loopback interface."""

    def __init__(self, receiver):
        super().__init__(daemon=True)
        self.receiver = receiver
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.start()

    def run(self):
        while True:
            connection, _ = self.listener.accept()
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            Session(self.receiver, connection)


def announce(port, name):
    """Answers searches: the description comes over HTTP, the answer as one datagram."""
    document = f"""<?xml version="1.0"?>
<root xmlns="urn:schemas-upnp-org:device-1-0" xmlns:v="urn:schemas-veltra-lab:veltraio-1-0">
  <device><friendlyName>{name}</friendlyName><v:x_port>{port}</v:x_port></device>
</root>""".encode()

    class Page(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            self.send_response(200)
            self.send_header("Content-Length", str(len(document)))
            self.end_headers()
            self.wfile.write(document)

        def log_message(self, *_):
            pass

    page = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Page)
    threading.Thread(target=page.serve_forever, daemon=True).start()
    answer = (
        "HTTP/1.1 200 OK\r\nST: upnp:rootdevice\r\nUSN: uuid:example-two::upnp:rootdevice\r\n"
        f"LOCATION: http://127.0.0.1:{page.server_port}/\r\n\r\n").encode()

    search = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    search.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    search.bind(("239.255.255.250", 1900))
    group = socket.inet_aton("239.255.255.250") + socket.inet_aton("127.0.0.1")
    search.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, group)

    def run():
        while True:
            datagram, sender = search.recvfrom(2048)
            if datagram.startswith(b"M-SEARCH") and b"ST:upnp:rootdevice" in datagram:
                search.sendto(answer, sender)

    threading.Thread(target=run, daemon=True).start()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--announce", action="store_true")
    parser.add_argument("--deviation", action="append", default=[], choices=sorted(DEVIATIONS))
    arguments = parser.parse_args()
    server = Server(Receiver(arguments.deviation))
    if arguments.announce:
        announce(server.port, "Example")
    print(f"Listening on 127.0.0.1:{server.port}", flush=True)
    sys.stdin.read()


if __name__ == "__main__":
    main()
