# SPDX-License-Identifier: GPL-3.0-or-later
"""Filter descriptions out of NumPy arrays."""

from typing import Any, Iterable, Mapping, NamedTuple, Union
from xml.sax.saxutils import quoteattr

import numpy as np
import numpy.typing as npt


class FIIR(NamedTuple):
    """A filter of taps and of second-order sections in parallel.

    Attributes:
        taps:     shape (N,)
        sections: shape (S, 4), each row a1, a2, b0, b1 of (b0 + b1/z) / (1 + a1/z + a2/z^2); they take the input N
                  samples late
    """

    taps: npt.ArrayLike
    sections: npt.ArrayLike


Filter = Union[npt.ArrayLike, FIIR]
"""An impulse response of shape (N,), or a FIIR."""


def parameters(text: str) -> "dict[str, str]":
    """The items of a text such as "NbrOfFIRTaps=1000;NbrOfIIRSections=30"."""
    return dict(item.split("=", 1) for item in text.split(";") if "=" in item)


def _finite(name: str, values: npt.ArrayLike, columns: "int | None") -> "np.ndarray[Any, np.dtype[np.float32]]":
    array = np.asarray(values, dtype=np.float32)
    shape = "(N,)" if columns is None else f"(S, {columns})"

    if array.ndim != (1 if columns is None else 2) or (columns is None and array.size == 0) or \
            (columns is not None and array.shape[1] != columns):
        raise ValueError(f"{name}: expected an array of shape {shape}, not {array.shape}")

    if not np.all(np.isfinite(array)):
        raise ValueError(f"{name}: holds values that are not finite numbers")

    return array


def _numbers(values: "np.ndarray[Any, np.dtype[np.float32]]") -> str:
    return " ".join(map("{:.9g}".format, values.tolist()))  # nine digits give each 32-bit number back


def _coefficients(name: str, rate_Hz: int, value: Filter) -> str:
    if isinstance(value, FIIR):
        taps, sections = _finite(name, value.taps, None), _finite(name, value.sections, 4)
        rows = "".join(f"<section>{_numbers(row)}</section>" for row in sections)
        iir = f'<IIR NbrOfSections="{len(sections)}">{rows}</IIR>'
        topology = "FIIR"
    else:
        taps, iir, topology = _finite(name, value, None), "", "FIR"

    return (f'<Coefficients Topology="{topology}" Fs="{int(rate_Hz)}"><FIR NbrOfTaps="{len(taps)}">'
            f"<taps>{_numbers(taps)}</taps></FIR>{iir}</Coefficients>")


def filter_description(channels: "Iterable[tuple[str, int]]", filters: "Mapping[str, Filter | Mapping[int, Filter]]", *,
                       rate: "int | None" = None, project: str = "Python", gains_dB: "Mapping[str, float]" = {},
                       delays_ms: "Mapping[str, float]" = {}) -> str:
    """The filter description that the module takes (docs: filter-description.md).

    Args:
        channels:  name and number, from 0, of each of the receiver's channels that gets a filter, in its order
        filters:   by channel, an impulse response of shape (N,), a FIIR, or a dictionary of these by sample rate in Hz
        rate:      sample rate in Hz of filters that are not in a dictionary
        project:   what the receiver shows; its first 32 characters
        gains_dB:  gain by channel, 0 for others
        delays_ms: delay by channel, 0 for others
    """
    parts = []

    for name, number in channels:
        value = filters[name]
        by_rate: "Mapping[int, Filter]"

        if isinstance(value, Mapping):
            by_rate = value
        elif rate is None:
            raise ValueError(f"{name}: no sample rate is given")
        else:
            by_rate = {rate: value}

        sets = "".join(_coefficients(name, rate_Hz, each) for rate_Hz, each in sorted(by_rate.items()))
        parts.append(f'<Channel Name={quoteattr(name)} Number="{number + 1}" GaindB="{float(gains_dB.get(name, 0.0)):g}"'
                     f' Delayms="{float(delays_ms.get(name, 0.0)):g}">{sets}</Channel>')

    return (f'<?xml version="1.0" encoding="UTF-8"?>\n<Veltra><Tune ChannelCount="{len(parts)}"'
            f' ProjectName={quoteattr(project)} Technology="FIIR">{"".join(parts)}</Tune></Veltra>\n')
