"""Cameras with lenses."""

from typing import Any, NamedTuple

import numpy as np

from . import _arrays

_AXES = ("position", "right", "up", "forward")
_NUMBERS = ("width", "shift_x", "shift_y", "lens_radius", "focus")


class Camera(NamedTuple):
    """A camera that stands somewhere, or moves: then every field but `is_parallel` and `shutter` may have a leading axis,
    of values at `times`. Axes have unit length and are at right angles."""

    position: Any  # [3]
    right: Any
    up: Any
    forward: Any
    width: Any  # of the picture at distance 1, or anywhere when parallel
    shift_x: Any = 0.0  # of the picture's middle, to the right and up, like `width`
    shift_y: Any = 0.0
    lens_radius: Any = 0.0  # 0: everything is sharp
    focus: Any = 1.0  # distance that is sharp
    is_parallel: bool = False
    times: Any = None  # [k], increasing
    shutter: tuple = (0.0, 0.0)  # open and close, from the frame

    @property
    def target(self):
        """A point in the picture's middle axis, as far as is sharp."""
        return np.asarray(self.position) + np.asarray(self.forward) * np.asarray(self.focus)[..., None]

    @property
    def field_of_view(self):
        """Degrees that the width of the picture covers."""
        return np.degrees(2.0 * np.arctan(0.5 * np.asarray(self.width)))


def to_rows(camera):
    """Times [k], none of a still camera, and a row of numbers for each."""
    times = np.zeros(0) if camera.times is None else _arrays.doubles(camera.times, "camera: times")
    if len(times) and (not np.all(np.isfinite(times)) or np.any(np.diff(times) <= 0)):
        raise ValueError("camera: times are finite and strictly increasing")
    count = max(len(times), 1)
    parts = [(name, 3) for name in _AXES] + [(name, 1) for name in _NUMBERS]
    rows = np.empty((count, 18))
    at = 0
    for name, size in parts:
        value = np.asarray(getattr(camera, name), np.float64)
        shapes = ((size,), (count, size)) if size == 3 else ((), (count,))
        if value.shape not in shapes or not np.all(np.isfinite(value)):
            raise ValueError(f"camera: {name} of shape {value.shape}, expected {list(shapes[0])} or {list(shapes[1])}, "
                             "finite")
        rows[:, at : at + size] = value.reshape(-1, size)
        at += size
    rows[:, at] = bool(camera.is_parallel)
    if np.any(rows[:, 12] <= 0.0) or np.any(rows[:, 15] < 0.0):
        raise ValueError("camera: width is above 0 and lens_radius not below")
    return times, rows


def from_rows(times, rows, shutter):
    """The inverse of `to_rows`."""
    if len(times) == 0:
        rows = rows[0]
    vectors = (rows[..., 3 * i : 3 * i + 3] for i in range(4))
    numbers = (rows[..., i] if len(times) else float(rows[i]) for i in range(12, 17))
    is_parallel = bool(rows.reshape(-1)[17])
    return Camera(*vectors, *numbers, is_parallel, times if len(times) else None, shutter)
