# SPDX-License-Identifier: GPL-3.0-or-later
"""One audio device of one receiver."""

import re
import time
from typing import Any, Callable, Dict, Iterable, Iterator, List, Mapping, NamedTuple, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from . import _native
from ._description import Filter, filter_description, parameters
from ._errors import Cancelled, DeviceError, check

Samples = npt.NDArray[np.float32]

STIMULI = {"sweep": 0, "noise": 1, "sub": 2}

# The device streams its microphone, and lets its volume be set.
_CAPTURE, _VOLUME = 1, 4

_POLL_s = 0.05
# No answer in time reads like "nothing plays", so it has to be said twice.
_SILENT_ANSWERS = 2
# How long a receiver may be behind with its audio.
_PATIENCE_s = 2.0


class Channel(NamedTuple):
    """An output channel.

    Attributes:
        name:         such as "FL"
        number:       by which the receiver knows it, modulo 256
        subwoofer:    whether it is one
        takes_filter: whether filters have an effect on it
    """

    name: str
    number: int
    subwoofer: bool
    takes_filter: bool


class FilterSet(NamedTuple):
    """Filters in a slot: the project's name, and the channels' names and numbers."""

    name: str
    channels: "Tuple[Tuple[str, int], ...]"


class Slot(NamedTuple):
    """A place for one filter set. `sets` is what the receiver reported when the session began and what was downloaded in
    it; empty for an empty slot."""

    number: int
    sets: "Tuple[FilterSet, ...]"


def _channel(text: str) -> Channel:
    # The marks are behind the name in this order; a name that looks like one does no harm.
    match = re.fullmatch(r"(?s)(.*?)(#SUB)?#IDX([0-9a-f]{2})(#NOEQ)?", text)

    if match is None:
        return Channel(text, 0, False, True)

    return Channel(match[1], int(match[3], 16), match[2] is not None, match[4] is None)


class Device:
    """What Plugin.find() returns. It is good until the plug-in is closed; afterwards every use raises ValueError."""

    def __init__(self, native: "_native.Device") -> None:
        self._native = native

    def __repr__(self) -> str:
        return f"<veltraio.Device {self.name!r}>"

    @property
    def name(self) -> str:
        """Manufacturer, model and device name joined by "|"."""
        return self._native.name

    @property
    def serial_number(self) -> Optional[str]:
        """The serial number; None when the receiver has none."""
        return self._native.serial_number or None

    @property
    def channels(self) -> "List[Channel]":
        """The output channels in the receiver's order."""
        return [_channel(text) for text in self._native.channel_names]

    @property
    def sample_rates(self) -> "List[int]":
        """The rates in Hz at which filters are designed and rooms are measured."""
        return self._native.sample_rates

    @property
    def topologies(self) -> "Dict[int, Dict[str, str]]":
        """By sample rate in Hz, the parameters of the structure that filters are designed for, such as NbrOfFIRTaps."""
        return {rate: parameters(self._native.topology(rate)) for rate in self.sample_rates}

    @property
    def slots(self) -> "List[Slot]":
        """All filter slots."""
        return [Slot(number, tuple(FilterSet(name, tuple(filters)) for name, filters in self._native.sets(number)))
                for number in range(self._native.slot_count)]

    @property
    def can_capture(self) -> bool:
        """Whether measure() works: the receiver streams its microphone."""
        return bool(self._native.capabilities & _CAPTURE)

    @property
    def can_set_volume(self) -> bool:
        """Whether `volume` can be set."""
        return bool(self._native.capabilities & _VOLUME)

    @property
    def stimulus_latency_ms(self) -> float:
        """Latency of the test signals."""
        return self._native.stimulus_latency_ms

    @property
    def max_attenuation_dB(self) -> float:
        """The largest attenuation of a channel."""
        return self._native.max_attenuation_dB

    @property
    def volume(self) -> float:
        """The master volume, where 1 is the loudest that a measurement uses. 0 also when the receiver does not answer.

        What is set is not limited: above 1 it is louder. Setting waits for the receiver, up to 0.5 s.
        """
        return self._native.volume()[0]

    @volume.setter
    def volume(self, value: float) -> None:
        self._require("set the volume", self._native.set_volume(value))

    @property
    def active_slot(self) -> int:
        """The number of the slot in use."""
        return self._native.active_slot()

    @active_slot.setter
    def active_slot(self, slot: int) -> None:
        self._require(f"select slot {slot}", self._native.set_active_slot(slot))

    @property
    def filtering(self) -> bool:
        """Whether filtering is on."""
        return self._native.filtering()

    @filtering.setter
    def filtering(self, enabled: bool) -> None:
        self._native.set_filtering(enabled)  # reports nothing, hence the comparison
        self._require(f"turn filtering {'on' if enabled else 'off'}", self._native.filtering() == enabled)

    def attenuation_dB(self, channel: "Union[str, int]") -> float:
        """A channel's attenuation in dB."""
        return self._native.attenuation_dB(self._number(channel))

    def set_attenuation_dB(self, channel: "Union[str, int]", value_dB: float) -> None:
        """Attenuates a channel by 0 to max_attenuation_dB; what lies outside is limited."""
        self._require("attenuate the channel", self._native.set_attenuation_dB(self._number(channel), value_dB))

    def stimulus_information(self, stimulus: str, rate: int) -> "Dict[str, str]":
        """The parameters of a test signal ("sweep", "noise" or "sub") at a sample rate in Hz."""
        result, text = self._native.stimulus_information(_stimulus(stimulus), rate)

        if result != 0:
            raise DeviceError(f"the receiver has no {stimulus} at {rate} Hz", result)

        return parameters(text)

    def measure(self, channels: "Union[str, int, Sequence[Union[str, int]]]", rate: int = 48000,
                stimulus: str = "sweep", *, tail: float = 1.0, longest: float = 60.0) -> "Iterator[Samples]":
        """Plays a test signal and yields what the receiver's microphone hears.

        Args:
            channels: name or number of the channel that plays, or several
            rate:     sample rate in Hz
            stimulus: "sweep", "noise" or "sub" (the level signal for subwoofers)
            tail:     seconds to capture after the signal has ended
            longest:  seconds of audio after which a signal that does not end is given up

        Yields:
            packets of shape (N,), float32, 1 is full scale. Their number and length are the receiver's

        The signal starts with the first packet that is asked for. When the iterator ends, is closed or is abandoned, the
        signal is stopped and the receiver goes back to listening.
        """
        single = isinstance(channels, (str, int))
        numbers = [self._number(channel) for channel in ([channels] if single else channels)]  # type: ignore
        self.stimulus_information(stimulus, rate)

        if not self.can_capture:
            raise DeviceError("measure", 5, "the receiver does not stream its microphone")

        return self._capture(numbers, rate, _stimulus(stimulus), tail, longest)

    def _capture(self, channels: "List[int]", rate: int, stimulus: int, tail: float,
                 longest: float) -> "Iterator[Samples]":
        outcome = self._native.enter(rate, len(channels))
        is_playing = False
        count = 0

        try:
            check("enter measurement mode", outcome)
            check("play the stimulus", self._native.start_stimulus(stimulus, channels))
            is_playing = True
            silent_answers = 0
            latest = time.monotonic() + longest
            enough: Optional[int] = None

            while enough is None or (count < enough and time.monotonic() < latest):
                for packet in self._native.take(_POLL_s):
                    count += len(packet)
                    yield packet

                if enough is not None:
                    continue

                if time.monotonic() > latest or count > longest * rate:
                    raise DeviceError("measure", 1, "the stimulus did not come to an end")

                silent_answers = 0 if self._native.is_playing() else silent_answers + 1

                if silent_answers == _SILENT_ANSWERS:
                    is_playing = False
                    enough = count + int(tail * rate)
                    latest = time.monotonic() + tail + _PATIENCE_s
        finally:
            try:
                if is_playing:
                    self._native.stop_stimulus()

                self._native.leave()
            except ValueError:
                pass  # the plug-in was closed, which has ended everything

    def download(self, slot: int, filters: "Union[str, Mapping[str, Union[Filter, Mapping[int, Filter]]]]", *,
                 rate: Optional[int] = None, project: str = "Python", gains_dB: "Mapping[str, float]" = {},
                 delays_ms: "Mapping[str, float]" = {}, fill: bool = False, replace: bool = False,
                 progress: "Optional[Callable[[float], Any]]" = None) -> None:
        """Converts filters for the receiver and loads them into a slot. Takes seconds.

        Args:
            slot:     its number
            filters:  a filter description (XML, docs: filter-description.md), or filters by the channels' names: impulse
                      responses of shape (N,), FIIRs, or dictionaries of these by sample rate in Hz. A rate that is
                      missing is made from the next higher one
            rate:     sample rate in Hz of filters that are not in a dictionary of rates. Give the receiver's highest: a
                      filter for it can be resampled to the others, and not the reverse
            project:  name that the receiver shows
            gains_dB, delays_ms: by channel
            fill:     channels of the receiver without a filter get one that changes nothing; else they are an error
            replace:  empties the slot before
            progress: called with 0 to below 1 after each piece that the receiver has taken; returning False cancels
                      when everything for the sample rate in hand is sent

        Raises:
            DeviceError: with the receiver's or the module's words
            Cancelled:   the progress function returned False
            and whatever the progress function raises, which cancels as well
        """
        if slot not in range(self._native.slot_count):
            raise ValueError(f"the receiver has no slot {slot}; it has {self._native.slot_count} slots")

        text = filters if isinstance(filters, str) else self._describe(filters, rate, project, gains_dB, delays_ms, fill)

        if replace:
            self.remove(slot)

        result, words, cancelled = self._native.download(slot, text, progress)
        check(f"download into slot {slot}", (result, words))

        if cancelled:
            raise Cancelled(f"slot {slot} is incomplete")

    def remove(self, slot: int) -> None:
        """Empties a slot, which may be empty already."""
        self._require(f"empty slot {slot}", self._native.empty(slot))

    def _describe(self, filters: "Mapping[str, Any]", rate: Optional[int], project: str,
                  gains_dB: "Mapping[str, float]", delays_ms: "Mapping[str, float]", fill: bool) -> str:
        names = [channel.name for channel in self.channels]
        unknown = [name for given in (filters, gains_dB, delays_ms) for name in given if name not in names]
        missing = [name for name in names if name not in filters]

        if unknown:
            raise ValueError(f"the receiver has no channel {unknown[0]}; it has {', '.join(names)}")

        if missing and not fill:
            raise ValueError(f"no filter for {', '.join(missing)}; fill=True leaves them unchanged")

        rates = {each for value in filters.values() if isinstance(value, Mapping) for each in value}
        unchanged = {each: [1.0] for each in rates or {rate or 48000}}
        complete = {name: filters.get(name, unchanged) for name in names}
        return filter_description([(channel.name, channel.number) for channel in self.channels], complete, rate=rate,
                                  project=project, gains_dB=gains_dB, delays_ms=delays_ms)

    def _number(self, channel: "Union[str, int]") -> int:
        channels = self.channels

        for each in channels:
            if channel in (each.name, each.number):
                return each.number

        raise ValueError(f"the receiver has no channel {channel}; it has {', '.join(each.name for each in channels)}")

    @staticmethod
    def _require(what: str, done: bool) -> None:
        if not done:
            raise DeviceError(what, 1, "the receiver refused or did not answer")


def _stimulus(name: str) -> int:
    if name not in STIMULI:
        raise ValueError(f"'{name}' is not a stimulus; expected one of {', '.join(STIMULI)}")

    return STIMULI[name]
