# SPDX-License-Identifier: Apache-2.0
"""What `progress` may be."""
from __future__ import annotations

import sys
from contextlib import contextmanager
from typing import Any, Callable, Iterator, Union

from . import _checks

Callback = Callable[[float, str], Any]
#: None or False for nothing, True for a bar, or a function of (fraction, phase) whose True cancels.
Progress = Union[bool, Callback, None]

_PLAIN_NAMES = {"tree": "octree", "grad_basis": "basis", "density weights": "density", "grad_div": "normal field",
                "right_part": "right side", "matrix+right_part": "matrix and right side",
                "update right part": "right side", "iso-surface": "surface"}


class _Line:
    """A line on a stream that is written over, where tqdm is missing."""

    def __init__(self) -> None:
        self._shown = ""

    def __call__(self, fraction: float, phase: str) -> None:
        done = int(30 * fraction)
        text = f"{100 * fraction:3.0f} % [{'#' * done}{'.' * (30 - done)}] {phase}"
        if text != self._shown:
            sys.stderr.write("\r" + text.ljust(len(self._shown)))
            sys.stderr.flush()
            self._shown = text

    def close(self) -> None:
        sys.stderr.write("\n")


class _Bar:
    def __init__(self, bar: Any) -> None:
        self._bar = bar

    def __call__(self, fraction: float, phase: str) -> None:
        self._bar.set_description_str(phase, refresh=False)
        self._bar.update(100 * fraction - self._bar.n)

    def close(self) -> None:
        self._bar.close()


@contextmanager
def shown(progress: object) -> Iterator[Callback | None]:
    """The function that the library is to call, or None."""
    if progress is None or progress is False:
        yield None
    elif progress is True:
        display: _Line | _Bar
        try:
            from tqdm.auto import tqdm  # type: ignore[import]
            display = _Bar(tqdm(total=100, bar_format="{l_bar}{bar}| {elapsed}"))
        except ImportError:
            display = _Line()
        try:
            yield _plain(display)
            display(1.0, "done")
        finally:
            display.close()
    elif callable(progress):
        yield _plain(progress)
    else:
        _checks.wrong_type("progress", "True, a function of (fraction, phase), or None", progress)


def _plain(callback: Callback) -> Callback:
    return lambda fraction, phase: callback(fraction, _PLAIN_NAMES.get(phase, phase))
