"""Random calls of the package with spoiled arguments: what is wrong is refused by an ordinary exception, what is taken
gives finite answers, and the process lives.

Usage: fuzz_boundary.py SEED CALLS
"""

import random
import sys
import tempfile
import warnings
from pathlib import Path

import numpy as np

import qn_sds

REFUSALS = (ValueError, TypeError, LookupError, MemoryError, OverflowError, OSError)

POINTS = np.array([[x, y, z] for z in (-1, 1) for y in (-1, 1) for x in (-1, 1)], np.float32)
COUNTS = np.full(6, 4, np.int32)
INDICES = np.array([0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5], np.int32)
PROPERTIES = {
    "heat": np.arange(8, dtype=np.uint8),
    "flow": qn_sds.Property(np.linspace(-1, 1, 48, dtype=np.float32).reshape(2, 8, 3), times=np.array([0.0, 1.0])),
    "seam": qn_sds.Property(np.arange(3.0), indices=INDICES % 3),
    "face": qn_sds.Property(np.arange(6.0), kind="uniform"),
}

TYPES = ["i1", "u1", "<i2", ">i4", "<u4", ">u4", "i8", "u8", ">i8", "f2", "f4", ">f4", "f8", ">f8", "c16", "?", "O", "U8",
         "S4", "M8[s]"]
ODD_NUMBERS = [0, -1, 1, 3, 2**31 - 1, 2**31, 2**32 - 1, 2**32, 2**63, -(2**31), 2**70, 0.5, -0.0, 1e-45, 1e18, 1e19, 1e39,
               1e300, float("inf"), float("-inf"), float("nan")]
ODD_VALUES = [None, "", "smooth", "caf\udce9", "\0", b"\xff", [], [[]], {}, {"a": 1}, (), (1,), object(), True, 1j, [None],
              [[1, 2], [3]], np.zeros((0, 3)), np.zeros((2, 0)), np.ma.masked_all(3), slice(0, 2), range(5), ...]


def spoil_array(random_source, array):
    """One thing about the array changed, or another object altogether."""
    array = np.array(array)
    way = random_source.randrange(8)
    with warnings.catch_warnings(), np.errstate(all="ignore"):
        warnings.simplefilter("ignore")
        if way == 0:
            return array.astype(random_source.choice(TYPES))
        if way == 1 and array.size:
            number = random_source.choice(ODD_NUMBERS)
            wide = array.astype(np.float64 if isinstance(number, float) else object)
            wide.flat[random_source.randrange(array.size)] = number
            return wide if wide.dtype != object else wide.tolist()
        if way == 2:
            return array[random_source.choice([slice(None, None, 2), slice(None, None, -1), slice(1, None), slice(0, 0)])]
        if way == 3:
            return np.repeat(array, 2, axis=0)[::2]  # the same values, further apart
        if way == 4:
            return array.T
        if way == 5:
            return array.reshape(random_source.choice([(-1,), (1, -1), (-1, 1), (1, *array.shape)]))
        if way == 6:
            return memoryview(np.ascontiguousarray(array)) if random_source.random() < 0.5 else array.tolist()
    return random_source.choice(ODD_VALUES)


def spoil(random_source, value):
    if random_source.random() < 0.6:
        return value
    if isinstance(value, np.ndarray):
        return spoil_array(random_source, value)
    return random_source.choice(ODD_NUMBERS if random_source.random() < 0.7 else ODD_VALUES)


def spoil_property(random_source, given):
    if not isinstance(given, qn_sds.Property):
        return spoil(random_source, given)
    return qn_sds.Property(*(each if each is None else spoil(random_source, each) for each in given))


def surface_arguments(random_source):
    """Keywords of Surface, some left out."""
    every = {
        "creases": np.array([[0, 1], [1, 3]]),
        "corners": np.array([0, 7]),
        "holes": np.array([2]),
        "uvs": np.random.default_rng(random_source.randrange(1000)).random((8, 2)),
        "colors": np.full((8, 3), 0.5),
        "groups": np.array([0, 1, 0, 1, 0, 1]),
        "motion": np.full((8, 3), 0.25, np.float32),
        "interpolation": "edgeOnly",
        "isolation": 2,
        "isolation_error": 0.01,
        "fractional": "exact",
        "properties": {name: spoil_property(random_source, each) for name, each in PROPERTIES.items()},
    }
    chosen = {name: every[name] for name in every if random_source.random() < 0.3}
    return {name: spoil(random_source, value) for name, value in chosen.items()}


def check_finite(values, *, but_for=()):
    for name, array in values.items():
        kind = np.asarray(array).dtype.kind
        if kind == "f" and name not in but_for and not np.all(np.isfinite(array)):
            raise AssertionError(f"{name} is not finite")


def call_build(random_source, surface, folder):
    points, counts, indices = (spoil(random_source, each) for each in (POINTS, COUNTS, INDICES))
    built = qn_sds.Surface(points, counts, indices, **surface_arguments(random_source))
    check_finite({"patches": built.patches(), "bbox": built.bbox, "area": built.area})
    return built


def call_load(random_source, surface, folder):
    text = "".join(f"v {x} {y} {z}\n" for x, y, z in POINTS) + "f 1 3 4 2\nf 5 6 8 7\nusemtl a\nf 1 2 6 5\n"
    data = bytearray(text.encode())
    for _ in range(random_source.randrange(4)):
        data[random_source.randrange(len(data))] = random_source.randrange(256)
    path = Path(folder) / "mesh.obj"
    path.write_bytes(bytes(data))
    loaded = qn_sds.load_obj(spoil(random_source, str(path)))
    str(loaded.info), str(loaded.findings)
    return loaded


def call_trace(random_source, surface, folder, **options):
    """intersect or occluded, of a surface or a scene."""
    count = random_source.choice([0, 1, 5, 300])
    origins = np.random.default_rng(count).normal(size=(count, 3)) * 5
    options |= {"tnear": 0.0, "tfar": np.full(count, np.inf), "time": np.linspace(0, 1, count)}
    chosen = {name: spoil(random_source, options[name]) for name in options if random_source.random() < 0.4}
    trace = random_source.choice([surface.intersect, surface.occluded])
    hits = trace(spoil(random_source, origins), spoil(random_source, -origins), **chosen)
    if not isinstance(hits, np.ndarray):
        check_finite({"u": hits.u, "v": hits.v, "t": np.where(hits.hit, hits.t, 0.0)})


def call_surface_trace(random_source, surface, folder):
    call_trace(random_source, surface, folder, level=1)


def call_scene(random_source, surface, folder):
    transforms = np.stack([np.eye(4), np.diag([2.0, 2.0, 2.0, 1.0])])
    given = [] if random_source.random() < 0.5 else [spoil(random_source, transforms)]
    scene = qn_sds.Scene(spoil(random_source, [surface, surface]), *given, level=random_source.choice([0, 0, 1, -1, 99]))
    check_finite({"bbox": scene.bbox})
    call_trace(random_source, scene, folder)
    options = {"layers": ["N", "id"], "samples": 2, "camera": ((4, 3, 9), (0, 0, 0)), "azimuth": 20.0, "elevation": 8.0,
               "field_of_view": 40.0, "time": (0.0, 0.5), "background": False, "progress": lambda share: None}
    chosen = {name: spoil(random_source, options[name]) for name in options if random_source.random() < 0.3}
    size = random_source.choice([4, 4, 4, 0, -1, "4", 4.5])
    check_finite(scene.render(size, 3, **chosen))


def call_sample(random_source, surface, folder):
    count = random_source.choice([0, 1, 5, 2000])
    primitives = np.arange(count) % surface.quad_count
    uv = np.random.default_rng(count).random((count, 2))
    name = random_source.choice(["sample", "limit_points", "uv", "color"])
    options = {} if name != "sample" or random_source.random() < 0.5 else {"time": spoil(random_source, 0.5)}
    getattr(surface, name)(spoil(random_source, primitives), spoil(random_source, uv), **options)


def call_look_up(random_source, surface, folder):
    primitives = np.arange(random_source.choice([0, 1, 5, 2000])) % surface.quad_count
    name = random_source.choice(surface.property_names or ["heat"])
    given = spoil(random_source, primitives)
    uv = np.full((len(primitives), 2), 0.25)
    found = surface.look_up(spoil(random_source, name), given, spoil(random_source, uv), time=spoil(random_source, 0.5))
    if given is primitives:
        check_finite(found._asdict())


def call_grid(random_source, surface, folder):
    surface.limit_grid(random_source.choice([2, 5, *ODD_NUMBERS, *ODD_VALUES]))
    surface.patches(time=random_source.choice([0.5, *ODD_NUMBERS, *ODD_VALUES]))


def call_select(random_source, surface, folder):
    planes = np.array([[1.0, 0, 0, 0], [0, 1, 0, 0.2]])
    surface.select(spoil(random_source, planes))


def call_update(random_source, surface, folder):
    surface.update(spoil(random_source, POINTS), **({} if random_source.random() < 0.5 else
                                                    {"motion": spoil(random_source, POINTS * 0.1)}))
    check_finite({"patches": surface.patches()})


CALLS = [call_build, call_build, call_load, call_surface_trace, call_sample, call_look_up, call_grid, call_select, call_update, call_scene]


def run(seed, count):
    """The number of calls that were refused. Raises what no caller would expect."""
    random_source = random.Random(seed)
    refused = 0
    surface = qn_sds.Surface(POINTS, COUNTS, INDICES, motion=POINTS * np.float32(0.5), properties=PROPERTIES)
    with tempfile.TemporaryDirectory() as folder, warnings.catch_warnings():
        warnings.simplefilter("ignore")
        for number in range(count):
            call = random_source.choice(CALLS)
            try:
                built = call(random_source, surface, folder)
                if built is not None and built.quad_count == 6:
                    surface = built
            except REFUSALS:
                refused += 1
            except Exception as error:
                raise AssertionError(f"seed {seed}, call {number}, {call.__name__}") from error
    return refused


if __name__ == "__main__":
    print(f"{run(int(sys.argv[1]), int(sys.argv[2]))} of {sys.argv[2]} calls were refused")
