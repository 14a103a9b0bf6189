# SPDX-License-Identifier: Apache-2.0
"""Exceptions of the package beside those of Python."""
from __future__ import annotations

import re
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from ._report import Report


class Cancelled(RuntimeError):
    """A function given as `progress` asked to stop, by returning True."""


class ReconstructionError(RuntimeError):
    """
    The points were usable, yet no surface came out.

    Attributes
    ----------
    report : Report or None
        What was found out before the end.
    """

    report: Report | None = None


# The library names options as its program does.
_OPTIONS = {
    "--center": "use_center=True", "--corner": "use_center=False", "--depth": "depth", "--max-memory": "memory_limit",
    "--outliers": "outlier_removal", "--solver direct": "solver='direct'", "--input-normals given":
    "input_normals='given'", "--input-normals estimate": "input_normals='estimate'", "--input-normals reorient":
    "input_normals='reorient'", "--largest-hole": "largest_hole", "--viewpoint": "viewpoint",
}
_PATTERN = re.compile("|".join(re.escape(name) for name in sorted(_OPTIONS, key=len, reverse=True)))


def with_names_of_arguments(sentence: str) -> str:
    """A sentence of the library with the names that options have here."""
    return _PATTERN.sub(lambda match: _OPTIONS[match[0]], sentence)
