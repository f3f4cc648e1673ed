#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Measures a channel of a receiver, designs a filter that evens it out, downloads it, and measures again.

    veltra-receiver --port 6000 --room examples/living-room --speed 20 &
    python3 examples/python/measure_and_correct.py --device 127.0.0.1:6000 --channel FL --plot before_and_after.svg

The filter is the simplest that can be heard: the inverse of the smoothed magnitude response, limited, with minimum phase. A
product would measure several places and take more care of the bass.
"""

import argparse

import numpy as np
import scipy.signal

import veltraio

RATE_Hz = 48000
FILTER_RATE_Hz = 96000  # the receiver's highest: the module makes the filters for lower rates from it
LOWEST_Hz, HIGHEST_Hz = 40.0, 16000.0  # outside, the filter leaves the level alone
GREATEST_BOOST_dB, GREATEST_CUT_dB = 6.0, 15.0
TAPS = 16384


def sweep(information):
    """The samples of the receiver's sweep, as far as its spectrum's magnitude goes."""
    start_Hz, end_Hz = float(information["StartFrequency"]), float(information["EndFrequency"])
    seconds = float(information["Seconds"])
    level = 10.0 ** (float(information["Level_dBFS"]) / 20.0)
    t = np.arange(int(seconds * RATE_Hz)) / RATE_Hz
    scale = seconds / np.log(end_Hz / start_Hz)
    return level * np.sin(2.0 * np.pi * start_Hz * scale * np.expm1(t / scale))


def smoothed_dB(capture, played, frequencies_Hz):
    """The magnitude response in dB, averaged over a sixth of an octave around each frequency."""
    size = scipy.fft.next_fast_len(len(capture) + len(played))
    power = np.abs(np.fft.rfft(capture, size)) ** 2 / np.maximum(np.abs(np.fft.rfft(played, size)) ** 2, 1e-12)
    running = np.concatenate(([0.0], np.cumsum(power)))
    edge = 2.0 ** (1.0 / 12.0)
    low = (frequencies_Hz / edge * size / RATE_Hz).astype(int)
    high = np.minimum((frequencies_Hz * edge * size / RATE_Hz).astype(int) + 1, len(power))
    return 10.0 * np.log10((running[high] - running[low]) / (high - low))


def measure_dB(device, channel, played, frequencies_Hz):
    capture = np.concatenate(list(device.measure(channel, RATE_Hz, "sweep")))
    return smoothed_dB(capture, played, frequencies_Hz)


def design(response_dB, frequencies_Hz):
    """Taps, shape (TAPS,), with minimum phase, whose magnitude is the response's inverse within the limits."""
    inside = (frequencies_Hz >= LOWEST_Hz) & (frequencies_Hz <= HIGHEST_Hz)
    wanted_dB = np.clip(np.median(response_dB[inside]) - response_dB, -GREATEST_CUT_dB, GREATEST_BOOST_dB)
    wanted_dB[~inside] = 0.0
    grid_Hz = np.linspace(0.0, FILTER_RATE_Hz / 2.0, TAPS + 1)
    gain = 10.0 ** (np.interp(grid_Hz, frequencies_Hz, wanted_dB, left=0.0, right=0.0) / 20.0)
    # The minimum phase of a linear-phase filter has half its length and the square root of its magnitude.
    linear = scipy.signal.firwin2(2 * TAPS - 1, grid_Hz, gain ** 2, fs=FILTER_RATE_Hz)
    return scipy.signal.minimum_phase(linear, method="homomorphic")[:TAPS].astype(np.float32)


def plot(file, frequencies_Hz, before_dB, after_dB, channel):
    import matplotlib
    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(8.0, 4.0))
    axes.semilogx(frequencies_Hz, before_dB, label="before")
    axes.semilogx(frequencies_Hz, after_dB, label="after")
    axes.set(title=f"Channel {channel}", xlabel="Hz", ylabel="dB", xlim=(frequencies_Hz[0], frequencies_Hz[-1]))
    axes.grid(True, which="both", alpha=0.3)
    axes.legend()
    figure.tight_layout()
    figure.savefig(file)


def unevenness_dB(response_dB, frequencies_Hz):
    inside = (frequencies_Hz >= LOWEST_Hz) & (frequencies_Hz <= HIGHEST_Hz)
    return float(np.std(response_dB[inside]))


def main():
    parser = argparse.ArgumentParser(description="Measure a channel, correct it, measure again.")
    parser.add_argument("--device", metavar="HOST:PORT", help="the receiver; without it the network is searched")
    parser.add_argument("--channel", default="FL")
    parser.add_argument("--slot", type=int, default=0)
    parser.add_argument("--plot", metavar="FILE", help="a picture of both measurements (.svg or .png)")
    arguments = parser.parse_args()
    frequencies_Hz = np.geomspace(20.0, 20000.0, 480)

    with veltraio.Plugin(settings={"Device": f"TCP:{arguments.device}"} if arguments.device else {}) as plugin:
        devices = plugin.find()

        if not devices:
            parser.exit(4, "no receiver was found\n")

        device = devices[0]
        print(device.name)
        device.volume = 0.5
        device.filtering = False
        played = sweep(device.stimulus_information("sweep", RATE_Hz))
        before_dB = measure_dB(device, arguments.channel, played, frequencies_Hz)

        device.download(arguments.slot, {arguments.channel: design(before_dB, frequencies_Hz)}, rate=FILTER_RATE_Hz,
                        project="Measured", fill=True, replace=True)
        device.active_slot = arguments.slot
        device.filtering = True
        after_dB = measure_dB(device, arguments.channel, played, frequencies_Hz)

    print(f"unevenness before {unevenness_dB(before_dB, frequencies_Hz):.1f} dB, "
          f"after {unevenness_dB(after_dB, frequencies_Hz):.1f} dB")

    if arguments.plot:
        plot(arguments.plot, frequencies_Hz, before_dB, after_dB, arguments.channel)


if __name__ == "__main__":
    main()
