#!/usr/bin/python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Announces a device by a UPnP library that has nothing to do with ours, and serves its description by Python's own
HTTP server: announce.py INTERFACE ADDRESS FOLDER, with FOLDER/description.xml there."""
import functools
import http.server
import sys
import threading

import gi
gi.require_version("GSSDP", "1.6")
from gi.repository import GLib, GSSDP

interface, address, folder = sys.argv[1:]
handler = functools.partial(http.server.SimpleHTTPRequestHandler, directory=folder)
server = http.server.ThreadingHTTPServer((address, 0), handler)
threading.Thread(target=server.serve_forever, daemon=True).start()

client = GSSDP.Client.new_full(interface, None, 0, GSSDP.UDAVersion.VERSION_1_0)
group = GSSDP.ResourceGroup.new(client)
group.add_resource_simple("upnp:rootdevice", "uuid:unrelated::upnp:rootdevice",
                          f"http://{address}:{server.server_port}/description.xml")
group.set_available(True)
GLib.MainLoop().run()
