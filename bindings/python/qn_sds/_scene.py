"""Several surfaces, each at its place: rays and pictures."""

import os

import numpy as np

from . import _arrays, _camera, _native, _words
from ._camera import Camera
from ._errors import Finding
from ._results import SceneHits
from ._surface import Surface


class Scene:
    """Surfaces at places, as they are when the scene is made: later updates do not change it.

    Arguments::

        surfaces    one per instance; a surface may come many times, and is kept once
        transforms  one per instance: [4, 4] for row vectors as USD has them, p' = p M, with the translation in the last
                    row and 0 0 0 1 as last column; or (times [k], matrices [k, 4, 4]), blended linearly in between and
                    held outside. All where they are by default
        level       0 for the limit surfaces, up to 12 for flat cells
        names       one per instance, each another; "0", "1", ... by default
        cameras     a dictionary of `Camera` by name
        up          "x", "y" or "z": the axis that points up in pictures

    `load_usd` makes one of a file. `scene[name]` is the surface of an instance, in its own space. Methods may be called
    from any number of threads. A scene can be pickled.
    """

    def __init__(self, surfaces, transforms=None, *, level=0, names=None, cameras=None, up="y"):
        surfaces = list(surfaces)
        for i, surface in enumerate(surfaces):
            if not isinstance(surface, Surface):
                raise TypeError(f"surfaces: entry {i} is {type(surface).__name__}, expected a Surface")
        self._surfaces = surfaces
        self._transforms = _settle_transforms(transforms, len(surfaces))
        self._level = _arrays.whole(level, "level", *_arrays.LEVELS)
        self._names = _settle_names(names, len(surfaces))
        self._facts = {
            "cameras": dict(cameras or {}), "up": up, "shutter": (0.0, 0.0), "camera": None, "frame": 0.0,
            "frames": None, "codes_per_second": 24.0, "meters_per_unit": 0.01, "findings": (), "is_layer": False,
        }
        _words.code_of(up, _words.UP, "up")
        self._begin()

    def _begin(self):
        unique = list(dict.fromkeys(self._surfaces))
        self._instances = [unique.index(surface) for surface in self._surfaces]
        self._recipes = [surface.__reduce__() for surface in unique]
        places = [_native.Place(os.fsencode(name), *transform)
                  for name, transform in zip(self._names, self._transforms)]
        self._native = _native.Scene([surface._native for surface in self._surfaces], places, self._level)

    def __reduce__(self):
        return _rebuild, (2, self._recipes, self._instances, self._transforms, self._level, self._names, self._facts)

    def __len__(self):
        return self._native.size()

    def __getitem__(self, name):
        if name not in self._names:
            raise KeyError(f"no surface {name!r}; there are {list(self._names)}")
        return self._surfaces[self._names.index(name)]

    @property
    def names(self):
        """Names of the instances: the paths of the prims in a file."""
        return self._names

    def names_of(self, hits):
        """Names of what the rays hit, "" where nothing: an array of str, [n]."""
        return np.array([*self._names, ""])[hits.instance]

    @property
    def cameras(self):
        """Cameras by name, a dictionary of `Camera`."""
        return dict(self._facts["cameras"])

    @property
    def up(self):
        """The axis that points up."""
        return self._facts["up"]

    @property
    def frame(self):
        """The time code of the file at which this is; times are counted from there."""
        return self._facts["frame"]

    @property
    def frames(self):
        """First and last time code of the file, or None."""
        return self._facts["frames"]

    @property
    def codes_per_second(self):
        """Time codes that make a second."""
        return self._facts["codes_per_second"]

    @property
    def meters_per_unit(self):
        """Length of a unit."""
        return self._facts["meters_per_unit"]

    @property
    def findings(self):
        """What was found in the file, a tuple of `Finding`."""
        return self._facts["findings"]

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
        time=None,
        background=True,
        sun=None,
        sun_strength=1.0,
        environment=None,
        color_by=None,
        color_map="viridis",
        color_range=None,
        texture=None,
        checker=False,
        map=0,
        wire=False,
        progress=None,
    ):
        """A picture as arrays by layer, row by row from the top: the program's, bit for bit, of the same options.

        Arguments::

            layers         names of the program's --aov: N Ng P Z st uv id object group color checker lines, and prop:NAME
                           for a property of up to four numbers
            samples        per pixel
            camera         the name of one of `cameras`; a `Camera`; (position, target) or (position, target, up);
                           without it the one that `load_usd` was told, else the camera frames the scene from `azimuth`
                           and `elevation`, in degrees
            field_of_view  of the smaller side, in degrees
            time           one, or (open, close) of a shutter; that of the file by default
            background     a soft gradient, or the environment; else transparent
            sun            (azimuth, elevation) in degrees; it stands there and replaces the lights that go with the
                           camera
            environment    an .exr, twice as wide as high, linear light
            color_by       a property: its number, or the length of several, on the ramp `color_map` ("viridis", "heat",
                           "gray", "blue-red") over `color_range` (low, high)
            texture        a .png through UV map `map`, a number; or `checker`: squares
            wire           the edges of the cages
            progress       called with a share from 0 to 1, a few times a second, on this thread; what it raises ends
                           the picture, as does KeyboardInterrupt

        "rgba" is float32 [height, width, 4], linear light with alpha multiplied in; layers are [height, width] or
        [height, width, numbers], float32, or uint32 for ids.
        """
        names = [layers] if isinstance(layers, str) else [str(name) for name in layers]
        if progress is not None and not callable(progress):
            raise TypeError("progress: expected a function of a share from 0 to 1")
        angle = _arrays.real(field_of_view, "field_of_view")
        if not 0.0 < angle < 180.0:
            raise ValueError(f"field_of_view: {angle}, expected degrees between 0 and 180")
        view = _native.View(
            **self._settle_camera(camera),
            azimuth=_arrays.real(azimuth, "azimuth"),
            elevation=_arrays.real(elevation, "elevation"),
            field_of_view=angle,
            up=_words.UP[self.up],
        )
        picture = _native.Picture()
        picture.samples = _arrays.whole(samples, "samples", 1, 65536)
        picture.layers = names
        picture.wire, picture.background, picture.checker = bool(wire), bool(background), bool(checker)
        picture.environment, picture.texture = _file(environment), _file(texture)
        picture.color_by = "" if color_by is None else str(color_by)
        picture.color_map = str(color_map)
        if sun is not None:
            picture.sun = _pair(sun, "sun", "azimuth and elevation in degrees")
        picture.sun_strength = _arrays.real(sun_strength, "sun_strength")
        if color_range is not None:
            picture.color_range = _pair(color_range, "color_range", "two numbers")
        picture.uv_map = _arrays.whole(map, "map", 0, 2**31 - 1)
        if texture is not None or picture.uv_map > 0:
            self._check_map(picture.uv_map)
        channels = self._native.render(
            _arrays.whole(width, "width", 1, 65536),
            _arrays.whole(height, "height", 1, 65536),
            view,
            picture,
            self._facts["is_layer"],
            *(self._facts["shutter"] if time is None else _arrays.span(time, "time")),
            progress,
        )
        found = {"rgba": np.stack([channels[name] for name in "RGBA"], axis=-1)}
        for name in names:
            layer = name.removeprefix("prop:")
            parts = [values for channel, values in channels.items()
                     if channel == layer or channel.rpartition(".")[0] == layer]
            found[name] = parts[0] if len(parts) == 1 else np.stack(parts, axis=-1)
        return found

    @property
    def bbox(self):
        """Box of all instances at time 0: [[min], [max]]."""
        return self._native.bbox()

    def __repr__(self):
        return f"<qn_sds.Scene of {len(self)} instances>"

    def _settle_camera(self, camera):
        """The extension's words of a camera."""
        none = np.zeros(0)
        words = dict.fromkeys(("camera_times", "camera_rows", "position", "target", "up_vector"), none)
        if camera is None:
            camera = self._facts["camera"]
        if camera is None:
            return words
        if isinstance(camera, str):
            known = self._facts["cameras"]
            if camera not in known:
                raise LookupError(f"no camera {camera!r}; there are {list(known)}")
            camera = known[camera]
        if isinstance(camera, Camera):
            times, rows = _camera.to_rows(camera)
            return {**words, "camera_times": times, "camera_rows": rows}
        vectors = [_arrays.doubles(each, "camera") for each in camera]
        if len(vectors) == 2:
            vectors.append(np.eye(3)[_words.UP[self.up]])
        if len(vectors) != 3 or any(each.shape != (3,) or not np.all(np.isfinite(each)) for each in vectors):
            raise ValueError("camera: expected a name, a Camera, (position, target) or (position, target, up), three "
                             "numbers each")
        return {**words, **dict(zip(("position", "target", "up_vector"), vectors))}

    def _check_map(self, map):
        counts = [len(surface._native.uv_names()) for surface in self._surfaces]
        enough = (max if self._facts["is_layer"] else min)(counts, default=0)
        if map >= enough:
            raise LookupError(f"map: {map}, there are {enough} UV maps")

    def _trace(self, trace, origins, directions, tnear, tfar, time):
        *rays, count = _arrays.rays(origins, directions)
        limits = (_arrays.per_item(value, name, count) for value, name in
                  ((tnear, "tnear"), (tfar, "tfar"), (time, "time")))
        return trace(*rays, *limits)


def from_layer(layer, surfaces, camera, level):
    """The scene of what the extension has read."""
    places = layer["places"]
    scene = object.__new__(Scene)
    scene._surfaces = [surfaces[number] for _, number, _, _ in places]
    scene._names = tuple(name for name, *_ in places)
    scene._transforms = [tuple(arrays) for _, _, *arrays in places]
    scene._level = level
    scene._facts = {
        **{name: layer[name] for name in ("up", "shutter", "frame", "frames", "codes_per_second", "meters_per_unit")},
        "cameras": {path: _camera.from_rows(times, rows, (opens, closes))
                    for path, (times, rows, opens, closes) in layer["cameras"].items()},
        "camera": camera, "findings": layer["findings"], "is_layer": True,
    }
    scene._begin()
    return scene


def _rebuild(version, recipes, instances, transforms, level, names, facts):
    if version != 2:
        raise ValueError("a scene that another version of qn_sds has pickled")
    surfaces = [rebuild(*arguments) for rebuild, arguments in recipes]
    scene = Scene([surfaces[i] for i in instances], transforms, level=level, names=names)
    findings = tuple(Finding(*each) for each in facts["findings"])
    scene._facts = {**facts, "findings": findings}
    return scene


def _settle_transforms(transforms, count):
    """Times and matrices [k, 4, 4] of every instance; without times there is one matrix."""
    if transforms is None:
        transforms = [np.eye(4)] * count
    # memoryviews of several dimensions have no items of their own
    given = list(np.asarray(transforms) if isinstance(transforms, memoryview) else transforms)
    if len(given) != count:
        raise ValueError(f"transforms: {len(given)} for {count} surfaces")
    return [_settle_transform(each) for each in given]


def _settle_transform(given):
    times = np.zeros(0)
    if isinstance(given, tuple) and len(given) == 2:
        times, given = _arrays.doubles(given[0], "transforms: times").copy(), given[1]
    matrices = np.array(given, np.float64, order="C")
    if matrices.ndim == 2:
        matrices = matrices[None]
    if matrices.shape != (max(len(times), 1), 4, 4):
        raise ValueError(f"transforms: shape {matrices.shape[1:] if len(times) == 0 else matrices.shape}, expected "
                         "[4, 4], or times [k] with matrices [k, 4, 4]")
    if not np.all(np.isfinite(matrices)) or not np.all(np.isfinite(times)):
        raise ValueError("transforms: not finite")
    if np.any(np.diff(times) <= 0):
        raise ValueError("transforms: times are strictly increasing")
    if np.any(matrices[:, :, 3] != [0, 0, 0, 1]):
        raise ValueError("transforms: the last column is 0 0 0 1; the translation stands in the last row")
    return times, matrices


def _settle_names(names, count):
    settled = tuple(map(str, range(count) if names is None else names))
    if len(settled) != count or len(set(settled)) != count:
        raise ValueError(f"names: {len(settled)}, {len(set(settled))} of them different, for {count} surfaces")
    return settled


def _file(path):
    """A file that can be read, as bytes; b"" for none."""
    if path is None:
        return b""
    with open(path, "rb"):
        return os.fsencode(path)


def _pair(value, name, what):
    numbers = _arrays.doubles(value, name)
    if numbers.shape != (2,) or not np.all(np.isfinite(numbers)):
        raise ValueError(f"{name}: expected {what}")
    return numbers.tolist()
