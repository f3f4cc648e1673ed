# SPDX-License-Identifier: GPL-3.0-or-later
"""Room correction for A/V receivers on the network: measure a room, download filters.

    import veltraio

    with veltraio.Plugin(settings={"Device": "TCP:192.0.2.1:6000"}) as plugin:
        device = plugin.find()[0]
        print(device.name, [channel.name for channel in device.channels])
        capture = numpy.concatenate(list(device.measure("FL", 48000, "sweep")))
        device.download(0, {"FL": taps, "FR": taps}, rate=96000, replace=True)

The package loads the module as every application does. Operations that wait for a receiver let other Python threads run;
on one plug-in they run one after the other.
"""

from ._description import FIIR, filter_description, parameters
from ._device import Channel, Device, FilterSet, Slot
from ._errors import Cancelled, DeviceError, Error, ModuleError
from ._plugin import Plugin, module_path

__all__ = [
    "Cancelled", "Channel", "Device", "DeviceError", "Error", "FIIR", "FilterSet", "ModuleError", "Plugin", "Slot",
    "filter_description", "module_path", "parameters",
]
