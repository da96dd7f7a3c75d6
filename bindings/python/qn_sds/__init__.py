"""Catmull-Clark limit surfaces of polygon meshes::

    surface = qn_sds.load_obj("cage.obj")
    hits = surface.intersect(origins, directions)
    points = surface.sample(hits.primitive, hits.uv)

A `Surface` is made from numpy arrays (or read from an OBJ file; `load_usd` reads scenes of many), holds bicubic patches over the quads of its control
mesh, smaller ones where it is not regular, and answers rays, samples, maps and frusta in batches, on every core, with
the GIL released.
"""

from . import _native
from ._camera import Camera
from ._errors import Finding, MeshError, MeshWarning
from ._properties import Property
from ._results import Hits, LimitPoints, PropertySamples, Samples, SceneHits, UvSamples
from ._scene import Scene
from ._surface import Surface, load_obj
from ._usd import load_usd

__version__ = _native.version

__all__ = [
    "Camera", "Finding", "Hits", "LimitPoints", "MeshError", "MeshWarning", "Property", "PropertySamples", "Samples",
    "Scene", "SceneHits", "Surface", "UvSamples", "load_obj", "load_usd",
]
