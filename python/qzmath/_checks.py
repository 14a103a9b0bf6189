# SPDX-License-Identifier: Apache-2.0
"""Arguments as the library takes them, and errors that say what was given and what was expected."""
from __future__ import annotations

import operator
from typing import Any, Mapping, NoReturn, Sequence, TypeVar

import numpy as np
import numpy.typing as npt

Choice = TypeVar("Choice")

_INT_MAX = 2**31 - 1


def _described(value: object) -> str:
    if isinstance(value, np.ndarray):
        return f"an array of shape {value.shape} and dtype {value.dtype}"
    text = repr(value)
    return f"{type(value).__name__} {text if len(text) <= 60 else text[:57] + '...'}"


def wrong_type(name: str, expected: str, value: object) -> NoReturn:
    raise TypeError(f"{name} must be {expected}, not {_described(value)}")


def wrong_value(name: str, expected: str, value: object) -> NoReturn:
    raise ValueError(f"{name} must be {expected}, not {_described(value)}")


def integer(value: object, name: str, least: int = -_INT_MAX, most: int = _INT_MAX) -> int:
    if isinstance(value, (bool, np.bool_)):
        wrong_type(name, "an integer", value)
    try:
        number = operator.index(value)  # type: ignore[arg-type]
    except TypeError:
        wrong_type(name, "an integer", value)
    if not least <= number <= most:
        wrong_value(name, f"an integer from {least} to {most}", value)
    return number


def real(value: object, name: str, least: float = -np.inf, most: float = np.inf) -> float:
    if isinstance(value, (bool, np.bool_, str, bytes, bytearray)):
        wrong_type(name, "a real number", value)
    try:
        number = float(value)  # type: ignore[arg-type]
    except (TypeError, ValueError):
        wrong_type(name, "a real number", value)
    except OverflowError:
        wrong_value(name, "a real number in the range of float64", value)
    if not least <= number <= most:
        wrong_value(name, f"a number from {least:g} to {most:g}" if np.isfinite(most) or np.isfinite(least)
                    else "a number", value)
    return number


def flag(value: object, name: str) -> bool:
    if not isinstance(value, (bool, np.bool_)):
        wrong_type(name, "True or False", value)
    return bool(value)


def choice(value: object, name: str, choices: Mapping[Any, Choice]) -> Choice:
    expected = "one of " + ", ".join(repr(key) for key in choices)
    if value is not None and not isinstance(value, str):
        wrong_type(name, expected, value)
    if value not in choices:
        wrong_value(name, expected, value)
    return choices[value]


def _plain(value: object, name: str, shape: str) -> npt.NDArray[Any]:
    """An array of real numbers or bool."""
    expected = f"an array of real numbers of shape {shape}"
    try:
        array = np.asarray(value)
    except (TypeError, ValueError, OverflowError):
        wrong_type(name, expected, value)
    if array.dtype.kind not in "fiub":
        wrong_type(name, expected, value if isinstance(value, np.ndarray) else array)
    return array


def any_reals(value: object, name: str) -> npt.NDArray[Any]:
    """Real numbers of any shape and dtype."""
    return _plain(value, name, "(n, 3)")


def _checked_shape(array: npt.NDArray[Any], name: str, shape: Sequence[int | None], text: str) -> None:
    if array.ndim != len(shape) or any(want is not None and want != have for want, have in zip(shape, array.shape)):
        wrong_value(name, f"an array of shape {text}", array)


def _text(shape: Sequence[int | None]) -> str:
    inner = ", ".join("n" if length is None else str(length) for length in shape)
    return f"({inner},)" if len(shape) == 1 else f"({inner})"


def finite(array: npt.NDArray[Any], name: str) -> None:
    # One pass that allocates nothing tells nearly always: a sum is finite only if all of its terms are.
    with np.errstate(over="ignore", invalid="ignore"):
        if np.isfinite(np.add.reduce(array, axis=None)):
            return
    sound = np.isfinite(array)
    if not sound.all():
        place = np.unravel_index(int(np.argmin(sound)), array.shape)
        at = ", ".join(str(int(i)) for i in place)
        count = int(array.size - np.count_nonzero(sound))
        raise ValueError(f"{name} must be finite, but [{at}] is {array[place]}"
                         + (f", as are {count - 1} other numbers" if count > 1 else ""))


def reals(value: object, name: str, shape: Sequence[int | None], dtype: str | None = "f8",
          check: bool = True) -> npt.NDArray[Any]:
    """
    A finite array that the library can read in place; the very same one where it can already. `dtype` None keeps
    float32 and float64, and gives float64 for all others.
    """
    text = _text(shape)
    array = _plain(value, name, text)
    _checked_shape(array, name, shape, text)
    if dtype is None:
        dtype = "f4" if array.dtype.kind == "f" and array.dtype.itemsize <= 4 else "f8"
    with np.errstate(over="ignore"):
        array = np.require(array, np.dtype(dtype), ["C", "A"])
    if check:
        finite(array, name)
    return np.asarray(array)


def points(value: object, name: str = "points", dtype: str | None = None, check: bool = True) -> npt.NDArray[Any]:
    """(n, 3) coordinates with at least one point."""
    array = reals(value, name, (None, 3), dtype, check)
    if len(array) == 0:
        raise ValueError(f"{name} is empty: at least one point is expected")
    return array


def place(value: object, name: str) -> npt.NDArray[np.float64]:
    return reals(value, name, (3,))


def integers(value: object, name: str, shape: Sequence[int | None], dtype: str, least: int | None = None,
             most: int | None = None) -> npt.NDArray[Any]:
    """An array of integers in their range, as `dtype`."""
    text = _text(shape)
    array = _plain(value, name, text)
    if array.dtype.kind not in "iu" and array.size > 0:
        wrong_type(name, f"an array of integers of shape {text}", array)
    _checked_shape(array, name, shape, text)
    limits = np.iinfo(dtype)
    low, high = max(limits.min, limits.min if least is None else least), min(limits.max,
                                                                              limits.max if most is None else most)
    if array.size > 0:
        smallest, largest = int(array.min()), int(array.max())
        if smallest < low or largest > high:
            wrong = smallest if smallest < low else largest
            raise ValueError(f"{name} must be integers from {low} to {high}, but one is {wrong}")
    return np.asarray(np.require(array, np.dtype(dtype), ["C", "A"]))


def colors(value: object, name: str, rows: int) -> npt.NDArray[np.uint8] | None:
    """(rows, 3) bytes; floating-point colours are taken as 0 to 1."""
    if value is None:
        return None
    array = _plain(value, name, _text((rows, 3)))
    if array.dtype.kind == "f":
        array = reals(array, name, (rows, 3))
        if array.size > 0 and (array.min() < 0.0 or array.max() > 1.0):
            raise ValueError(f"{name} must be from 0 to 1 where they are of a floating-point dtype, or bytes")
        array = np.rint(array * 255.0).astype(np.uint8)
    return integers(array, name, (rows, 3), "u1")


def marks(value: object, name: str, rows: int) -> npt.NDArray[np.uint8] | None:
    """(rows,) bytes, 0 or 1."""
    if value is None:
        return None
    array = _plain(value, name, _text((rows,)))
    _checked_shape(array, name, (rows,), _text((rows,)))
    return np.ascontiguousarray(array != 0).view(np.uint8)


def normals(value: object, name: str, rows: int, check: bool = True) -> npt.NDArray[np.float32] | None:
    """(rows, 3) vectors of float32."""
    return None if value is None else reals(value, name, (rows, 3), "f4", check)
