"""Several surfaces, each at its place: rays and pictures."""

import numpy as np

from . import _arrays, _native
from ._results import SceneHits
from ._surface import Surface


class Scene:
    """Surfaces at places, as they are when the scene is made: later updates do not change it.

    Arguments::

        surfaces    one per instance; a surface may come many times, and is kept once
        transforms  [n, 4, 4], for row vectors as USD has them: p' = p M, with the translation in the last row and
                    0 0 0 1 as last column. All where they are by default
        level       0 for the limit surfaces, up to 12 for flat cells

    Methods may be called from any number of threads. A scene can be pickled.
    """

    def __init__(self, surfaces, transforms=None, *, level=0):
        surfaces = list(surfaces)
        for i, surface in enumerate(surfaces):
            if not isinstance(surface, Surface):
                raise TypeError(f"surfaces: entry {i} is {type(surface).__name__}, expected a Surface")
        count = len(surfaces)
        if transforms is None:
            transforms = np.broadcast_to(np.eye(4), (count, 4, 4))
        matrices = np.array(transforms, np.float64, order="C")
        if count == 0 and matrices.size == 0:
            matrices = matrices.reshape(0, 4, 4)
        if matrices.shape != (count, 4, 4):
            raise ValueError(f"transforms: shape {matrices.shape}, expected [{count}, 4, 4]")
        if not np.all(np.isfinite(matrices)):
            raise ValueError("transforms: not finite")
        if np.any(matrices[:, :, 3] != [0, 0, 0, 1]):
            raise ValueError("transforms: the last column is 0 0 0 1; the translation stands in the last row")
        self._transforms = matrices
        self._level = _arrays.whole(level, "level", *_arrays.LEVELS)
        unique = list(dict.fromkeys(surfaces))
        self._instances = [unique.index(surface) for surface in surfaces]
        self._recipes = [surface.__reduce__() for surface in unique]
        self._native = _native.Scene([surface._native for surface in surfaces], matrices, self._level)

    def __reduce__(self):
        return _rebuild, (1, self._recipes, self._instances, self._transforms, self._level)

    def __len__(self):
        return self._native.size()

    def intersect(self, origins, directions, *, tnear=0.0, tfar=np.inf, time=0.0):
        """Nearest hits of rays: `SceneHits`. Arguments as for `Surface.intersect`."""
        return SceneHits(*self._trace(self._native.intersect, origins, directions, tnear, tfar, time))

    def occluded(self, origins, directions, *, tnear=0.0, tfar=np.inf, time=0.0):
        """Whether rays hit anything: bool [n]."""
        return self._trace(self._native.occluded, origins, directions, tnear, tfar, time)

    def render(
        self,
        width=640,
        height=480,
        *,
        layers=(),
        samples=16,
        camera=None,
        azimuth=35.0,
        elevation=22.0,
        field_of_view=35.0,
        time=0.0,
        background=True,
        progress=None,
    ):
        """A picture as arrays by layer, row by row from the top.

        Arguments::

            layers         names of the program's --aov: N Ng P Z st uv id object group color checker lines
            samples        per pixel
            camera         (position, target) or (position, target, up); without it the camera frames the scene from
                           `azimuth` and `elevation`, in degrees, y up
            field_of_view  of the smaller side, in degrees
            time           one, or (open, close) of a shutter
            background     a soft gradient, else transparent
            progress       called with a share from 0 to 1, a few times a second, on this thread; what it raises ends
                           the picture, as does KeyboardInterrupt

        "rgba" is float32 [height, width, 4], linear light with alpha multiplied in; layers are [height, width] or
        [height, width, numbers], float32, or uint32 for ids.
        """
        names = [layers] if isinstance(layers, str) else [str(name) for name in layers]
        empty = np.zeros(0)
        if camera is None:
            rows = (empty, empty, empty)
        else:
            rows = [_arrays.doubles(each, "camera") for each in camera]
            rows += [np.array([0.0, 1.0, 0.0])] if len(rows) == 2 else []
            if len(rows) != 3 or any(row.shape != (3,) or not np.all(np.isfinite(row)) for row in rows):
                raise ValueError("camera: expected (position, target) or (position, target, up), three numbers each")
        angle = _arrays.real(field_of_view, "field_of_view")
        if not 0.0 < angle < 180.0:
            raise ValueError(f"field_of_view: {angle}, expected degrees between 0 and 180")
        times = _arrays.doubles(time, "time")
        if len(times) not in (1, 2) or not np.all(np.isfinite(times)) or times[0] > times[-1]:
            raise ValueError("time: expected one, or (open, close)")
        if progress is not None and not callable(progress):
            raise TypeError("progress: expected a function of a share from 0 to 1")
        picture = _native.Picture(
            _arrays.whole(width, "width", 1, 65536),
            _arrays.whole(height, "height", 1, 65536),
            _arrays.whole(samples, "samples", 1, 65536),
            *rows,
            _arrays.real(azimuth, "azimuth"),
            _arrays.real(elevation, "elevation"),
            angle,
            bool(background),
            names,
        )
        channels = self._native.render(picture, float(times[0]), float(times[-1]), progress)
        found = {"rgba": np.stack([channels[name] for name in "RGBA"], axis=-1)}
        for name in names:
            parts = [values for channel, values in channels.items() if channel.split(".")[0] == name]
            found[name] = parts[0] if len(parts) == 1 else np.stack(parts, axis=-1)
        return found

    @property
    def bbox(self):
        """Box of all instances at time 0: [[min], [max]]."""
        return self._native.bbox()

    def __repr__(self):
        return f"<qn_sds.Scene of {len(self)} instances>"

    def _trace(self, trace, origins, directions, tnear, tfar, time):
        *rays, count = _arrays.rays(origins, directions)
        limits = (_arrays.per_item(value, name, count) for value, name in
                  ((tnear, "tnear"), (tfar, "tfar"), (time, "time")))
        return trace(*rays, *limits)


def _rebuild(version, recipes, instances, transforms, level):
    if version != 1:
        raise ValueError("a scene that another version of qn_sds has pickled")
    surfaces = [rebuild(*arguments) for rebuild, arguments in recipes]
    return Scene([surfaces[i] for i in instances], transforms, level=level)
