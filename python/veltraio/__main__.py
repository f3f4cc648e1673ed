# SPDX-License-Identifier: GPL-3.0-or-later
"""python3 -m veltraio info: prints what the receivers are."""

import argparse
import sys

from . import Error, Plugin


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m veltraio")
    commands = parser.add_subparsers(dest="command", required=True)
    info = commands.add_parser("info", help="print what the receivers are and what they can do")
    info.add_argument("--device", metavar="HOST:PORT", help="the receiver; without it the network is searched")
    info.add_argument("--module", metavar="FILE", help="the module to load; without it the installed one")
    arguments = parser.parse_args()
    settings = {"Device": f"TCP:{arguments.device}"} if arguments.device else {}

    try:
        with Plugin(arguments.module, settings=settings) as plugin:
            devices = plugin.find()

            for device in devices:
                print(device.name)
                print(f"  serial number  {device.serial_number or 'none'}")
                print(f"  channels       {' '.join(channel.name for channel in device.channels)}")

                for rate, topology in device.topologies.items():
                    print(f"  {rate} Hz  ".ljust(17) + ", ".join(f"{key} {value}" for key, value in topology.items()))

                for slot in device.slots:
                    names = ", ".join(f'"{each.name}"' for each in slot.sets)
                    print(f"  slot {slot.number}         {names or 'empty'}")
    except Error as error:
        print(f"veltraio: {error}", file=sys.stderr)
        return 3

    if not devices:
        print("veltraio: no receiver was found", file=sys.stderr)
        return 4

    return 0


if __name__ == "__main__":
    sys.exit(main())
