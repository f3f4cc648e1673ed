# SPDX-License-Identifier: GPL-3.0-or-later
"""The package against a simulated receiver."""

import gc
import os
import subprocess
import sys
import tempfile
import threading
import time
import zlib

import numpy as np
import pytest

import veltraio


def test_a_device_says_what_it_is_and_takes_settings(start):
    with start("--profile", "seven-one").plugin() as plugin:
        (device,) = plugin.find()
        assert (device.name, device.serial_number) == ("Morvane|Theatre 71|Main Zone", "MV71-004209")
        assert [channel.name for channel in device.channels] == ["FL", "FR", "C", "SW", "SL", "SR", "BL", "BR"]
        assert device.channels[3] == veltraio.Channel("SW", 3, subwoofer=True, takes_filter=True)
        assert not device.channels[7].takes_filter
        assert device.slots == [veltraio.Slot(number, ()) for number in range(4)]
        assert set(device.topologies) == set(device.sample_rates)
        assert all("NbrOfFIRTaps" in each for each in device.topologies.values())
        assert "StartFrequency" in device.stimulus_information("sweep", 48000)

        device.volume, device.active_slot, device.filtering = 0.5, 2, True
        device.set_attenuation_dB("SW", 20)
        assert (device.volume, device.active_slot, device.filtering) == (0.5, 2, True)
        assert device.attenuation_dB(3) == pytest.approx(device.max_attenuation_dB)

    with pytest.raises(ValueError, match="closed"):
        device.name
    with pytest.raises(ValueError, match="closed"):
        plugin.find()


def test_a_download_arrives_and_shows_up_and_can_be_replaced(start):
    receiver = start("--profile", "stereo")
    left, right = np.zeros((2, 100), np.float32)
    left[[0, 7]], right[0] = [0.5, 1 / 3], 1e-9
    filters = {"FL": {48000: veltraio.FIIR(left, [[-1.9, 0.95, 0.01, -0.002]]), 44100: left, 96000: left},
               "FR": {48000: right, 44100: right, 96000: right}}
    seen = []

    with receiver.plugin() as plugin:
        (device,) = plugin.find()
        device.download(1, filters, project='A "room" & <more>', gains_dB={"FR": -1.5}, progress=seen.append)
        assert device.slots[1].sets == (veltraio.FilterSet('A "room" & <more>', (("FL", 0), ("FR", 1))),)
        assert seen[0] == 0 and seen == sorted(seen) and 0.9 < seen[-1] < 1

        with pytest.raises(veltraio.DeviceError) as conflict:
            device.download(1, filters)
        assert conflict.value.result == "channel conflict"

        device.download(1, {"FL": np.ones(1)}, rate=96000, project="Second", fill=True, replace=True)
        device.remove(0)
        assert device.slots[0].sets == () and device.slots[1].sets[0].name == "Second"

        # What the receiver has is what was meant: taps of the structure FIR at 96000 Hz, channel after channel.
        blocks = np.zeros((2, 32768), np.float32)
        blocks[:, 0] = 1
    assert f"slot 1 rate 96000 channels 0,1 bytes {blocks.nbytes} crc32 {zlib.crc32(blocks.tobytes()):08x} complete" \
        in receiver.end()


@pytest.mark.parametrize("filters, options, words", [
    ({"FL": [1.0]}, {"rate": 48000}, "no filter for FR"),
    ({"FL": [1.0], "XX": [1.0]}, {"rate": 48000, "fill": True}, "no channel XX"),
    ({"FL": [1.0], "FR": [1.0]}, {}, "no sample rate"),
    ({"FL": [1.0], "FR": [float("nan")]}, {"rate": 48000}, "FR: holds values that are not finite"),
    ({"FL": [[1.0]], "FR": [1.0]}, {"rate": 48000}, r"shape \(N,\), not \(1, 1\)"),
    ({"FL": veltraio.FIIR([1.0], [[1.0, 2.0]]), "FR": [1.0]}, {"rate": 48000}, r"shape \(S, 4\)"),
])
def test_filters_that_cannot_be_meant_are_refused_before_anything_is_sent(start, filters, options, words):
    with start("--profile", "stereo").plugin() as plugin:
        (device,) = plugin.find()
        with pytest.raises(ValueError, match=words):
            device.download(0, filters, **options)
        with pytest.raises(ValueError, match="no slot 2"):
            device.download(2, filters, **options)
        assert device.slots[0].sets == ()


def test_failures_carry_the_words_of_the_device(start):
    receiver = start("--profile", "stereo", "--fault", "refuse LoadFilter 1 'flash worn out'", "--fault",
                     "refuse OperationModeInfo 1 'no microphone'")
    both = {"FL": [1.0], "FR": [1.0]}

    with receiver.plugin() as plugin:
        (device,) = plugin.find()
        with pytest.raises(veltraio.DeviceError, match="flash worn out") as failure:
            device.download(0, both, rate=96000)
        assert (failure.value.result, failure.value.words) == ("failed", "flash worn out")
        with pytest.raises(veltraio.DeviceError, match="no microphone"):
            list(device.measure("FL"))
        with pytest.raises(veltraio.DeviceError, match="bad filter text"):
            device.download(0, "<Veltra>")
        device.download(0, both, rate=96000)

    with pytest.raises(veltraio.ModuleError, match="does not exist"):
        veltraio.Plugin("/nowhere.so")
    with pytest.raises(veltraio.ModuleError):
        veltraio.Plugin(__file__)
    receiver.end()
    with receiver.plugin() as plugin:
        assert plugin.find() == []


def test_a_measurement_yields_the_audio_and_is_undone_on_every_way_out(start):
    receiver = start("--profile", "stereo", "--speed", "20", "--noise=-90")

    with receiver.plugin() as plugin:
        (device,) = plugin.find()
        packets = list(device.measure(["FL", 1], 48000, "noise", tail=0.5))
        assert len(packets) > 10 and all(packet.dtype == np.float32 and packet.ndim == 1 for packet in packets)
        audio = np.concatenate(packets)
        assert 5.4 * 48000 < len(audio) < 20 * 48000
        # The noise has -20 dBFS in either channel, and the room's two paths add up to a few dB more.
        assert -26 < 10 * np.log10(np.mean(np.square(audio[24000:5 * 48000], dtype=np.float64))) < -12

        for leave in (lambda capture: capture.close(), lambda capture: None):
            capture = device.measure("FL")
            assert len(next(capture)) > 0
            leave(capture)
            del capture
            gc.collect()
        with pytest.raises(veltraio.DeviceError, match="come to an end"):
            list(device.measure("FL", longest=0.1))
        for channels, rate, stimulus, error in (("XX", 48000, "sweep", ValueError), ("FL", 48000, "music", ValueError),
                                                ("FL", 8000, "sweep", veltraio.DeviceError)):
            with pytest.raises(error):
                device.measure(channels, rate, stimulus)

        capture = device.measure("FL")
        next(capture)
    with pytest.raises(ValueError, match="closed"):
        list(capture)


def test_a_progress_function_cancels_raises_and_cannot_use_the_device(start):
    both = {"FL": [1.0], "FR": [1.0]}

    with start("--profile", "stereo").plugin() as plugin:
        (device,) = plugin.find()

        with pytest.raises(veltraio.Cancelled):
            device.download(0, both, rate=96000, progress=lambda fraction: False)

        calls = []

        def fail(fraction):
            calls.append(fraction)
            raise KeyError("mine")

        with pytest.raises(KeyError, match="mine"):
            device.download(0, both, rate=96000, replace=True, progress=fail)
        assert len(calls) == 1
        with pytest.raises(RuntimeError, match="callback"):
            device.download(0, both, rate=96000, replace=True, progress=lambda fraction: device.volume)
        with pytest.raises(RuntimeError, match="callback"):
            device.download(0, both, rate=96000, replace=True, progress=lambda fraction: plugin.close())
        device.download(0, both, rate=96000, replace=True)


def test_other_threads_run_during_a_wait_and_share_a_device(start):
    receiver = start("--profile", "stereo", "--fault", "delay Volume * 400")
    ticks, volumes = [], []

    with receiver.plugin() as plugin:
        (device,) = plugin.find()

        def use():
            volumes.append(device.volume)

        threads = [threading.Thread(target=use) for _ in range(3)]
        device.volume = 0.25
        end = time.monotonic() + 0.3
        setter = threading.Thread(target=lambda: setattr(device, "volume", 0.5))
        setter.start()
        while time.monotonic() < end and setter.is_alive():
            ticks.append(time.monotonic())
            time.sleep(0.001)
        for thread in threads:
            thread.start()
        for thread in (setter, *threads):
            thread.join(30)
    assert len(ticks) > 20, "the wait for the receiver held Python's lock"
    assert volumes == [0.5] * 3


def test_nothing_is_left_behind_and_objects_may_go_in_any_order(start, tmp_path, monkeypatch):
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    monkeypatch.setattr(tempfile, "tempdir", None)
    receiver = start("--profile", "stereo")

    for _ in range(3):
        plugin = receiver.plugin()
        (device,) = plugin.find()
        del plugin
        gc.collect()
        assert device.volume >= 0  # the device keeps the module
        del device
        gc.collect()
    assert os.listdir(tmp_path) == []
    with open("/proc/self/maps", encoding="utf-8") as maps:
        libraries = maps.read()
    assert "MorvaneVeltraIO" not in libraries
    assert "liblog4cplus" in libraries  # threads of its own may still run its code


def test_the_program_prints_what_a_receiver_is(start):
    receiver = start("--profile", "stereo")
    command = [sys.executable, "-m", "veltraio", "info", "--device"]
    shown = subprocess.run([*command, receiver.address], capture_output=True, text=True, timeout=60)
    assert (shown.returncode, shown.stderr) == (0, "")
    assert shown.stdout == ("Morvane|Stereo 2|Main\n  serial number  MV2-000117\n  channels       FL FR\n"
                            "  48000 Hz       NbrOfFIRTaps 16384, NbrOfIIRSections 30\n"
                            "  slot 0         empty\n  slot 1         empty\n")
    receiver.end()
    failed = subprocess.run([*command, receiver.address], capture_output=True, text=True, timeout=60)
    assert (failed.returncode, failed.stderr) == (4, "veltraio: no receiver was found\n")


def test_the_example_evens_out_the_simulated_room(start, tmp_path):
    root = os.path.join(os.path.dirname(__file__), "..", "..")
    receiver = start("--room", os.path.join(root, "examples", "living-room"), "--speed", "20")
    shown = subprocess.run([sys.executable, os.path.join(root, "examples", "python", "measure_and_correct.py"), "--device",
                            receiver.address, "--plot", str(tmp_path / "picture.svg")], capture_output=True, text=True,
                           timeout=240)
    assert shown.returncode == 0, shown.stderr
    words = shown.stdout.split()
    before_dB, after_dB = float(words[words.index("before") + 1]), float(words[words.index("after") + 1])
    assert before_dB > 3 and after_dB < before_dB / 2
    assert "<svg" in (tmp_path / "picture.svg").read_text()
