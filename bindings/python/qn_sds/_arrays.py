"""Arrays of the exact types that the extension takes. An array that has the type already is passed on as it is."""

import operator
import reprlib

import numpy as np

from ._errors import index_error

LEVELS = (0, 12)


def whole(value, name, low, high):
    """An integer within a range, or the sentence that says what was expected."""
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name}: {reprlib.repr(value)} is no whole number; it is one from {low} to {high}") from None
    if not low <= number <= high:
        raise ValueError(f"{name}: {number}, expected a whole number from {low} to {high}")
    return number


def real(value, name):
    try:
        return float(value)
    except (TypeError, ValueError, OverflowError):
        raise TypeError(f"{name}: {reprlib.repr(value)} is no number") from None


def _rows_of_nothing(array, width):
    """An empty list has no second axis of its own."""
    return array.reshape(0, width) if array.ndim == 1 and array.size == 0 else array


def points(value, name, width=3):
    """float32 [n, width]."""
    array = _rows_of_nothing(np.asarray(value), width)
    if array.dtype.kind not in "fiu":
        raise TypeError(f"{name}: numbers expected, not {array.dtype}")
    if array.ndim != 2 or array.shape[1] != width:
        raise ValueError(f"{name}: shape {array.shape}, expected [n, {width}]")
    with np.errstate(over="ignore"):  # becomes infinite, which is reported with its place
        return np.ascontiguousarray(array, dtype=np.float32)


def doubles(value, name, width=None):
    """float64 [n] or [n, width]."""
    array = np.ascontiguousarray(value, dtype=np.float64)
    if width is not None:
        array = _rows_of_nothing(array, width)
    if width is None and array.ndim == 0:
        array = array.reshape(1)
    if array.ndim != (1 if width is None else 2) or (width is not None and array.shape[1] != width):
        raise ValueError(f"{name}: shape {array.shape}, expected {'[n]' if width is None else f'[n, {width}]'}")
    return array


def rays(origins, directions):
    """float64 [n, 3] each, or a single one for all of the other."""
    rows = []
    for value, name in ((origins, "origins"), (directions, "directions")):
        array = np.asarray(value)
        rows.append(doubles(array.reshape(1, 3) if array.shape == (3,) else array, name, 3))
    counts = [len(each) for each in rows]
    if counts[0] != counts[1] and 1 not in counts:
        raise ValueError(f"directions: {counts[1]} for {counts[0]} origins, expected as many, or one of either")
    return (*rows, counts[1] if counts[0] == 1 else counts[0])


def per_item(value, name, count):
    """float64 with one value for all or one for each."""
    array = doubles(value, name)
    if array.size not in (1, count):
        raise ValueError(f"{name}: {array.size} values, expected one or {count}")
    return array


def _integers(value, name):
    array = np.asarray(value)
    if array.size == 0:
        array = array.astype(np.uint32)
    if array.dtype.kind not in "iu":
        raise TypeError(f"{name}: integers expected, not {array.dtype}")
    return array


def _first_beyond(array, low, high):
    """Where the integers leave a range that is wider than 32 bits: the first entry and how many there are."""
    beyond = np.flatnonzero(((array < low) | (array > high)).reshape(-1))
    return (int(beyond[0]), len(beyond)) if len(beyond) else (None, 0)


def indices(value, name, place_of=None):
    """uint32 [n]. Negative values wrap around, so that -1 is "none"; the extension says where an index is out of range,
    but for those beyond 32 bits, which it cannot see. `place_of` names the place of an entry. Signed and unsigned
    32-bit arrays are not copied."""
    array = _integers(value, name)
    if not array.dtype.isnative:
        array = array.astype(array.dtype.newbyteorder("="))
    if array.dtype.itemsize > 4:
        entry, cases = _first_beyond(array, -(2**31), 2**32 - 2)
        if entry is not None:
            index = int(array.reshape(-1)[entry])
            if place_of is None:
                raise index_error("index_out_of_range", "index out of range", f"{name}, entry {entry}", index, cases)
            raise index_error("vertex_index_out_of_range", "vertex index out of range", place_of(entry), index, cases)
        array = array.astype(np.int64).astype(np.uint32)
    elif array.dtype.itemsize == 4:
        array = array.view(np.uint32)
    else:
        array = array.astype(np.int32).view(np.uint32)
    return np.ascontiguousarray(array).reshape(-1)


def primitives(value, name="primitives"):
    """int32 [n]; -1 is "none"."""
    array = _integers(value, name)
    if array.dtype.itemsize >= 4 and array.dtype != np.int32:
        entry, _ = _first_beyond(array, -(2**31), 2**31 - 1)
        if entry is not None:
            raise IndexError(f"fragment {entry}: primitive {array.reshape(-1)[entry]}, more than any surface has")
    return np.ascontiguousarray(array, dtype=np.int32).reshape(-1)


def fragments(primitive_values, uv):
    prims = primitives(primitive_values)
    pairs = doubles(uv, "uv", 2)
    if len(pairs) != len(prims):
        raise ValueError(f"uv: {len(pairs)} rows for {len(prims)} primitives")
    return prims, pairs


def vector(value, name):
    """Three finite numbers."""
    array = doubles(value, name)
    if array.shape != (3,) or not np.all(np.isfinite(array)):
        raise ValueError(f"{name}: expected three finite numbers")
    return array


def span(value, name):
    """The ends of a span, from (open, close) or one number."""
    times = doubles(value, name)
    if len(times) not in (1, 2) or not np.all(np.isfinite(times)) or times[0] > times[-1]:
        raise ValueError(f"{name}: expected one, or (open, close)")
    return float(times[0]), float(times[-1])


def colors(value, point_count, corner_count):
    """uint8 rgba [n, 4] from floats in [0, 1] or bytes, with or without alpha; one per point, or a pair with an index
    per face-corner."""
    if isinstance(value, tuple) and len(value) == 2:
        corner_indices = indices(value[1], "colors").copy()
        if len(corner_indices) != corner_count:
            raise ValueError(f"colors: {len(corner_indices)} indices for {corner_count} face-corners")
        return colors(value[0], len(value[0]), 0), corner_indices
    array = np.array(value)
    if array.ndim != 2 or array.shape[0] != point_count or array.shape[1] not in (3, 4):
        raise ValueError(f"colors: shape {array.shape}, expected [{point_count}, 3] or [{point_count}, 4]")
    if array.dtype.kind == "f":
        if not np.all(np.isfinite(array)):
            raise ValueError("colors: not finite")
        array = np.round(np.clip(array, 0.0, 1.0) * 255.0).astype(np.uint8)
    elif array.dtype != np.uint8:
        raise TypeError(f"colors: floats or uint8 expected, not {array.dtype}")
    if array.shape[1] == 3:
        array = np.concatenate([array, np.full((len(array), 1), 255, np.uint8)], axis=1)
    return np.ascontiguousarray(array)


def uv_map(value, name, face_indices, point_count):
    """Points [m, 3] and an index per face-corner, from one of
    (values, indices); values per point; values per face-corner, of which the extension makes equal ones of joined
    faces one."""
    place = f"uvs: map '{name}'"
    is_pair = isinstance(value, tuple) and len(value) == 2
    array = np.asarray(value[0] if is_pair else value)
    if array.ndim != 2 or array.shape[1] not in (2, 3):
        raise ValueError(f"{place}: shape {array.shape}, expected [n, 2] or [n, 3]")
    values = points(array, place, array.shape[1])
    if values.shape[1] == 2:
        values = np.concatenate([values, np.zeros((len(values), 1), np.float32)], axis=1)
    if is_pair:
        corner_indices = indices(value[1], place)
    elif len(values) == point_count:
        corner_indices = face_indices
    elif len(values) == len(face_indices):
        corner_indices = np.arange(len(values), dtype=np.uint32)
    else:
        raise ValueError(f"{place}: {len(values)} values for {point_count} points and {len(face_indices)} face-corners")
    if len(corner_indices) != len(face_indices):
        raise ValueError(f"{place}: {len(corner_indices)} indices for {len(face_indices)} face-corners")
    return values, corner_indices


def motion(value, point_count):
    """Vectors [n, 3], times [k] and samples [k, n, 3]; two of the three are empty."""
    none = np.zeros((0, 3), np.float32), np.zeros(0), np.zeros((0, 0, 3), np.float32)
    if value is None:
        return none
    if isinstance(value, tuple) and len(value) == 2:
        times = doubles(value[0], "motion: times")
        samples = np.ascontiguousarray(value[1], dtype=np.float32)
        if samples.shape != (len(times), point_count, 3):
            raise ValueError(f"motion: samples of shape {samples.shape}, expected [{len(times)}, {point_count}, 3]")
        with np.errstate(over="ignore"):
            is_increasing = len(times) > 0 and np.isfinite(times[-1] - times[0]) and np.all(np.diff(times) > 0)
        if not is_increasing or not np.all(np.isfinite(times)):
            raise ValueError("motion: times are finite and strictly increasing")
        return none[0], times, samples
    vectors = points(value, "motion")
    if len(vectors) != point_count:
        raise ValueError(f"motion: {len(vectors)} vectors for {point_count} points")
    return vectors, none[1], none[2]


def planes(value, name):
    array = np.asarray(value, dtype=np.float64)
    array = np.ascontiguousarray(array.reshape(-1, 4) if array.ndim == 1 and array.size % 4 == 0 else array)
    if array.ndim != 2 or array.shape[1] != 4:
        raise ValueError(f"{name}: shape {array.shape}, expected rows nx ny nz d")
    if not np.all(np.isfinite(array)):
        raise ValueError(f"{name}: not finite")
    return array
