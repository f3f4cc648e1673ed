# SPDX-License-Identifier: GPL-3.0-or-later
"""The module and its plug-in object."""

import os
import shutil
import tempfile
from pathlib import Path
from types import TracebackType
from typing import Mapping, Optional, Type, Union
from xml.sax.saxutils import quoteattr

from . import _native
from ._device import Device
from ._errors import ModuleError

_LEVELS = {"trace": 0, "debug": 10000, "info": 20000, "warn": 30000, "error": 40000, "fatal": 50000, "off": 60000}


def module_path() -> Path:
    """The module's file: what the environment's VELTRA_MODULE names, or where it was installed."""
    return Path(os.environ.get("VELTRA_MODULE") or _native.MODULE_PATH)


class Plugin:
    """The module, loaded with settings of its own. Use it in a `with` statement, or call close().

    Args:
        path:      the module's file; None for module_path()
        settings:  of the module by key (docs: settings.md), such as {"Device": "TCP:192.0.2.1:6000"}, without which
                   find() searches the network
        log:       a file that the module's log is appended to
        log_level: trace, debug, info, warn, error, fatal or off

    Raises:
        ModuleError: the module cannot be found or loaded
    """

    def __init__(self, path: "Union[str, os.PathLike[str], None]" = None, *,
                 settings: "Optional[Mapping[str, object]]" = None, log: "Union[str, os.PathLike[str], None]" = None,
                 log_level: str = "info") -> None:
        if log_level not in _LEVELS:
            raise ValueError(f"'{log_level}' is not a log level; expected one of {', '.join(_LEVELS)}")

        source = Path(path) if path is not None else module_path()

        if not source.is_file():
            raise ModuleError(f"the module {source} does not exist")

        # The module reads its settings from the file beside it, so each plug-in gets a copy in a folder of its own.
        self._folder = tempfile.TemporaryDirectory(prefix="veltraio-")
        copy = Path(self._folder.name) / source.name

        try:
            shutil.copyfile(source, copy)
            copy.with_suffix(".settings").write_text(_settings_text(settings or {}), encoding="utf-8")
            self._session = _native.Session(str(copy), None if log is None else os.path.abspath(log),
                                            _LEVELS[log_level])
        except ImportError as error:
            self._folder.cleanup()
            raise ModuleError(str(error)) from None
        except BaseException:
            self._folder.cleanup()
            raise

    def find(self) -> "list[Device]":
        """Looks for receivers and opens a session with each; an empty list when there is none.

        Waits for the time of the setting "UPnPTimeout", six seconds by default, or goes straight to the address of the
        setting "Device". A second call adds to what the first found.
        """
        return [Device(native) for native in self._session.find()]

    def close(self) -> None:
        """Closes the sessions and unloads the module. Its devices cannot be used any more."""
        self._session.close()
        self._folder.cleanup()

    def __enter__(self) -> "Plugin":
        return self

    def __exit__(self, kind: "Optional[Type[BaseException]]", error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()


def _settings_text(settings: "Mapping[str, object]") -> str:
    def text(value: object) -> str:
        return str(value).lower() if isinstance(value, bool) else str(value)

    values = "".join(f"  <VALUE name={quoteattr(key)} val={quoteattr(text(value))}/>\n" for key, value in settings.items())
    return f'<?xml version="1.0" encoding="UTF-8"?>\n<PROPERTIES>\n{values}</PROPERTIES>\n'
