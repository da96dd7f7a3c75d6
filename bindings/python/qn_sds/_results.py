"""Records of arrays. All arrays of a record have the same leading shape."""

from typing import NamedTuple

import numpy as np


class Hits(NamedTuple):
    """Nearest hits, one per ray."""

    primitive: np.ndarray  # int32 quad, -1 where nothing is hit
    u: np.ndarray
    v: np.ndarray
    t: np.ndarray  # in lengths of the direction, inf where nothing is hit

    @property
    def hit(self):
        """True where something is hit."""
        return self.primitive >= 0

    @property
    def uv(self):
        """Coordinates on the quads, [n, 2]."""
        return np.stack([self.u, self.v], axis=-1)


class SceneHits(NamedTuple):
    """Nearest hits of rays in a scene, one per ray."""

    instance: np.ndarray  # int32 index of the surface that is hit, -1 where nothing is
    primitive: np.ndarray  # the others as in `Hits`
    u: np.ndarray
    v: np.ndarray
    t: np.ndarray

    hit = Hits.hit
    uv = Hits.uv


class Samples(NamedTuple):
    """The surface at points; derivatives are by the quad's u and v, normals have unit length. NaN where the
    primitive is -1 and on holes."""

    position: np.ndarray
    dpdu: np.ndarray
    dpdv: np.ndarray
    normal: np.ndarray  # dP/du x dP/dv
    smoothing_normal: np.ndarray  # to shade with


class LimitPoints(NamedTuple):
    """The limit surface at points, float32; derivatives are by the quad's u and v, normals have unit length. NaN where
    the primitive is -1 and on holes."""

    position: np.ndarray
    dpdu: np.ndarray
    dpdv: np.ndarray
    normal: np.ndarray


class UvSamples(NamedTuple):
    """A UV map at points. NaN where the face is not mapped and where the primitive is -1."""

    uvw: np.ndarray
    du: np.ndarray
    dv: np.ndarray


class PropertySamples(NamedTuple):
    """A property at points, with its derivatives by the quad's u and v."""

    value: np.ndarray
    du: np.ndarray
    dv: np.ndarray


def split(record, rows):
    """The record whose fields are consecutive threes of the last axis."""
    return record(*(rows[..., 3 * i : 3 * i + 3] for i in range(len(record._fields))))
