"""Values on the cage that follow the surface."""

from typing import Any, NamedTuple

import numpy as np

from . import _arrays, _native

KINDS = ("vertex", "varying", "uniform", "constant")
_TYPES = {f"{kind}{bits}" for kind in ("int", "uint", "float") for bits in (8, 16, 32, 64)} - {"float8"}
_GREATEST = 1e300  # sums and derivatives need room above
_MOST_NUMBERS = 4096


class Property(NamedTuple):
    """Values of the cage. Per item a number, or a row of numbers: `values` has shape [items] or [items, numbers], after
    the type of whose array integers are rounded on the way; of kind constant [] or [numbers]."""

    values: Any
    kind: str = "vertex"  # items are points, smooth; "varying": points, linear; "uniform": faces; "constant": one
    indices: Any = None  # of the points' kinds: item of every face-corner, so that there can be seams
    times: Any = None  # [k], increasing; `values` then begins with an axis of k


def settle(name, given, point_count, face_count, corner_count):
    """The property with arrays of its own, in exact types, shapes right."""
    place = f"property {name!r}"
    if not isinstance(name, str) or not name or any(c in " \t\n,./" for c in name):
        raise ValueError(f"{place}: a name is text without blanks, commas, dots and slashes")
    values, kind, indices, times = given if isinstance(given, Property) else Property(given)
    if kind not in KINDS:
        more = "; face-varying values are a UV map, or kind 'vertex' with indices" if kind == "faceVarying" else ""
        raise ValueError(f"{place}: kind {kind!r}, known are {', '.join(KINDS)}{more}")
    array = np.array(values, order="C")
    if not array.dtype.isnative:
        array = array.astype(array.dtype.newbyteorder("="))
    if array.dtype.name not in _TYPES:
        raise TypeError(f"{place}: values are integers or reals of up to 64 bits, not {array.dtype}")
    if array.dtype.kind == "f" and not np.all(np.abs(array) <= _GREATEST):
        raise ValueError(f"{place}: values that are not finite, or beyond {_GREATEST}")
    if times is not None:
        times = _arrays.doubles(times, f"{place}: times").copy()
    if indices is not None:
        if kind not in KINDS[:2]:
            raise ValueError(f"{place}: indices are for kinds 'vertex' and 'varying', not {kind!r}")
        indices = _arrays.indices(indices, f"{place}: indices").copy()
        if len(indices) != corner_count:
            raise ValueError(f"{place}: {len(indices)} indices for {corner_count} face-corners")

    axes = [] if times is None else [("times", len(times))]
    if indices is not None:
        axes.append(("items", None))
    elif kind != "constant":
        axes.append(("faces", face_count) if kind == "uniform" else ("points", point_count))
    if len(axes) > array.ndim or array.ndim > len(axes) + 1:
        names = [axis for axis, _ in axes]
        raise ValueError(f"{place}: shape {array.shape}, expected [{', '.join(names)}] or "
                         f"[{', '.join([*names, 'numbers'])}]")
    for (axis, count), found in zip(axes, array.shape):
        if axis != "items" and found != count:
            raise ValueError(f"{place}: {found} values for {count} {axis}")
    if array.size == 0 or extent_of(array, len(axes)) > _MOST_NUMBERS:
        raise ValueError(f"{place}: shape {array.shape}, at least one item of 1 to {_MOST_NUMBERS} numbers")
    return Property(array, kind, indices, times)


def extent_of(array, axes):
    return array.shape[axes] if array.ndim > axes else 1


def item_shape(settled):
    """() for single numbers, (n,) for rows."""
    axes = (settled.times is not None) + (settled.kind != "constant")
    return settled.values.shape[axes:]


def to_native(name, settled):
    values, kind, indices, times = settled
    extent = int(np.prod(item_shape(settled), dtype=np.int64))
    return _native.PropertyArrays(
        name, kind, values.dtype.name, extent, values.reshape(-1).view(np.uint8),
        np.zeros(0, np.uint32) if indices is None else indices, np.zeros(0) if times is None else times,
    )
