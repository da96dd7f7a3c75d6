"""Surfaces on `dask.array`: lazily, chunk by chunk, on whatever cluster computes them::

    surface = qn_sds.load_obj("cage.obj")
    hits = qn_sds.dask.intersect(surface, dask.array.from_npy_stack("rays"))
    points = qn_sds.dask.limit_points(surface, qn_sds.dask.places(hits))
    points.position.mean(axis=0).compute()

Every function gives, chunk for chunk, what the method of `Surface` of its name gives. Arrays are chunked along their
rows; numpy arrays are taken as well. The surface is as it is at the call: it is pickled then, and built once per worker.
"""

import hashlib
import pickle

import numpy as np

try:
    import dask.array as da
    from dask.delayed import Delayed
    from dask.highlevelgraph import HighLevelGraph
except ImportError as error:
    raise ImportError("qn_sds.dask needs Dask: apt-get install python3-dask, or pip install qn_sds[farm]") from error

from ._results import Hits, LimitPoints, UvSamples, split

_HIT = np.dtype([("primitive", np.int32), ("u", np.float64), ("v", np.float64), ("t", np.float64)])

__all__ = ["intersect", "limit_points", "places", "uv"]


def intersect(surface, rays, level=0):
    """Nearest hits: `Hits` of arrays [n]. Rows of `rays`, [n, 6] or [n, 8], are origin, direction and, with eight
    numbers, tnear and tfar."""
    rays = _rows(rays, "rays", (6, 8))
    hits = da.map_blocks(_intersect, rays, _send(surface), level, drop_axis=1, dtype=_HIT, meta=np.empty(0, _HIT))
    return Hits(*(hits[name] for name in _HIT.names))


def limit_points(surface, places):
    """Position, first derivatives and normal of the surface at rest: `LimitPoints` of float32 arrays [n, 3]. Rows of
    `places`, [n, 3], are a primitive and u, v; a primitive of -1 gives NaN."""
    return _evaluate(_limit_points, surface, places, LimitPoints, np.float32)


def uv(surface, places, map=0):
    """A UV map, by number or name: `UvSamples` of float64 arrays [n, 3], at `places` as for `limit_points`."""
    return _evaluate(_uv, surface, places, UvSamples, np.float64, map=map)


def places(hits):
    """Where hits lie: an array [n, 3] of primitive, u and v."""
    return da.stack([hits.primitive, hits.u, hits.v], axis=-1)


def _rows(array, name, widths):
    array = da.asarray(array)
    if array.ndim != 2 or array.shape[1] not in widths:
        raise ValueError(f"{name}: shape {array.shape}, expected [n, {' or '.join(map(str, widths))}]")
    return array.rechunk({1: -1})


def _send(surface):
    """The surface as one task, named by its content: Dask builds it where chunks are, and no second time."""
    content = pickle.dumps(surface, protocol=5)
    key = f"qn_sds-surface-{hashlib.sha256(content).hexdigest()}"
    return Delayed(key, HighLevelGraph.from_collections(key, {key: (pickle.loads, content)}))


def _evaluate(function, surface, places, record, dtype, **options):
    places = _rows(places, "places", (3,))
    width = 3 * len(record._fields)
    rows = da.map_blocks(function, places, _send(surface), chunks=(places.chunks[0], (width,)), dtype=dtype,
                         meta=np.empty((0, 0), dtype), **options)
    return split(record, rows)


def _intersect(rays, surface, level):
    limits = {} if rays.shape[1] == 6 else {"tnear": rays[:, 6], "tfar": rays[:, 7]}
    hits = surface.intersect(rays[:, :3], rays[:, 3:6], level, **limits)
    out = np.empty(len(rays), _HIT)
    for name, values in zip(_HIT.names, hits):
        out[name] = values
    return out


def _limit_points(places, surface):
    return np.concatenate(surface.limit_points(places[:, 0].astype(np.int32), places[:, 1:]), axis=1)


def _uv(places, surface, map):
    return np.concatenate(surface.uv(places[:, 0].astype(np.int32), places[:, 1:], map), axis=1)
