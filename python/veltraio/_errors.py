# SPDX-License-Identifier: GPL-3.0-or-later
"""What goes wrong with a module or a receiver."""

RESULTS = {
    0: "ok", 1: "failed", 3: "bad index", 4: "bad argument", 5: "not supported", 7: "channel conflict",
    8: "bad filter text", 9: "bad technology", 10: "buffer too small", 11: "bad sample rate", 12: "too many channels",
}


class Error(Exception):
    """The base of this package's own exceptions."""


class ModuleError(Error):
    """The module cannot be found or loaded."""


class DeviceError(Error):
    """A receiver refused something, did not answer, or cannot do it.

    Attributes:
        result: the module's result as a word, such as "failed" or "channel conflict"
        words:  the receiver's or the module's own words; may be empty
    """

    def __init__(self, what: str, result: int, words: str = "") -> None:
        self.result = RESULTS.get(result, str(result))
        self.words = words
        super().__init__(f"{what}: {words or self.result}")


class Cancelled(Error):
    """A download was cancelled by its progress function; the receiver's slot is incomplete."""


def check(what: str, outcome: "tuple[int, str]") -> None:
    """Raises DeviceError for an outcome that is not success."""
    result, words = outcome

    if result != 0:
        raise DeviceError(what, result, words)
