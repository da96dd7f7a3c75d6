"""The surface as users see it: checks shapes and words, makes exact arrays, leaves the work to the extension."""

import os
import warnings

import numpy as np

from . import _arrays, _native, _words
from ._errors import MeshWarning, to_findings
from ._results import Hits, LimitPoints, Samples, UvSamples, split

_ISOLATION = 2


class Surface:
    """The limit surface of a polygon mesh: bicubic patches, one per quad of its control mesh where that is exact, and
    smaller ones down to `isolation` levels around the rest.

    Arguments::

        points            [n, 3], float32 is taken as it is
        face_counts       [faces], corners of every face, each at least 3
        face_indices      [corners], point of every face-corner; (u)int32 is taken as it is
        creases           edges [k, 2] as pairs of points, infinitely sharp, or (edges, sharpness): 10 and above is
                          infinite, below see `fractional`
        corners           points [k], infinitely sharp, or (points, sharpness)
        holes             faces [k] without a surface, which shape their neighbours all the same
        uvs               one map or a dictionary of maps by name. A map is (values, indices) with one index per
                          face-corner, -1 where there is none; or values per point; or values per face-corner. Faces
                          share a UV where they are joined on the mesh only; equal values per face-corner of joined
                          faces are one UV
        colors            [n, 3] or [n, 4], floats in [0, 1] or uint8
        groups            [faces], shading group of every face, an index into group_names
        group_names       one name per group; "group 0", "group 1", ... by default
        interpolation     "edgeAndCorner", "edgeOnly", "bilinear", "bordersFixed", or "none": no surface beside borders
        uv_interpolation  the same for UVs: "corners_fixed" and others, see the page on modes, or USD's "cornersPlus1"
                          and the like
        motion            vectors [n, 3] per unit of time, or (times, samples) with samples [k, n, 3]
        isolation         levels by which quads that are not regular are refined, and UV maps with them, 0 to 10;
                          corners, holes, fractional sharpness and open borders are followed from 1 on
        isolation_error   above 0, refining stops around a point that is this close to the surface, a share of the
                          mesh's diagonal
        fractional        what becomes of a sharpness between 0 and 10: "exact" (without isolation as "harden"),
                          "harden" or "drop"
        crease_method     how it decays: "uniform" or "chaikin"
        triangle_rule     "catmullClark" or "smooth"
        orientation       "rightHanded", or "leftHanded": faces are turned over, their first corners stay

    Attribute names of USD meshes are accepted as keywords: faceVertexCounts, faceVertexIndices, creaseIndices,
    creaseLengths, creaseSharpnesses, cornerIndices, cornerSharpnesses, holeIndices, interpolateBoundary,
    faceVaryingLinearInterpolation, triangleSubdivisionRule, subdivisionScheme, velocities, displayColor.

    Raises MeshError, with every cause, for a mesh without a surface. What was changed or looks wrong is in `findings`,
    and warnings among it are issued as MeshWarning.

    Primitives are quads at every isolation: the faces themselves when all are quads, else n quads of every n-gon, in
    order. Points on the
    surface are a primitive with u, v in [0, 1]. Methods may be called from any number of threads; they see the surface
    as it was when they began, whatever `update` does meanwhile. Arrays handed over must not change during the call.
    """

    def __init__(
        self,
        points,
        face_counts=None,
        face_indices=None,
        *,
        creases=None,
        uvs=None,
        colors=None,
        groups=None,
        group_names=None,
        interpolation=None,
        uv_interpolation=None,
        motion=None,
        corners=None,
        holes=None,
        isolation=_ISOLATION,
        isolation_error=0.0,
        fractional="exact",
        crease_method="uniform",
        triangle_rule=None,
        orientation="rightHanded",
        **usd,
    ):
        given = {
            "face_counts": face_counts,
            "face_indices": face_indices,
            "creases": creases,
            "colors": colors,
            "interpolation": interpolation,
            "uv_interpolation": uv_interpolation,
            "motion": motion,
            "corners": corners,
            "holes": holes,
            "triangle_rule": triangle_rule,
        }
        _words.translate_usd(given, usd)
        if given["face_counts"] is None or given["face_indices"] is None:
            raise TypeError("face_counts and face_indices are needed")

        point_array = _arrays.points(points, "points")
        counts = _arrays.indices(given["face_counts"], "face_counts")
        face_corners = _arrays.indices(given["face_indices"], "face_indices")
        if int(counts.sum(dtype=np.uint64)) != len(face_corners):
            raise ValueError(
                f"face_indices: {len(face_corners)} where face_counts add up to {counts.sum(dtype=np.uint64)}"
            )
        if len(face_corners) > 2**30 or len(point_array) > 2**30:
            raise ValueError("at most 2^30 points and face-corners")
        group_array, names = _settle_groups(groups, group_names, len(counts))
        color_array = np.zeros((0, 4), np.uint8)
        if given["colors"] is not None:
            color_array = _arrays.colors(given["colors"], len(point_array))
        maps = [
            (name, *_arrays.uv_map(value, name, face_corners, len(point_array))) for name, value in _named_maps(uvs)
        ]
        if _words.code_of(orientation, _words.ORIENTATION, "orientation"):
            order = _words.reversed_corners(counts)
            face_corners = face_corners[order]
            maps = [(name, values, map_corners[order]) for name, values, map_corners in maps]
        mesh = _native.Mesh(
            point_array,
            counts,
            face_corners,
            *_words.crease_edges(given["creases"]),
            *_words.sharp_corners(given["corners"]),
            _arrays.indices(() if given["holes"] is None else given["holes"], "holes"),
            group_array,
            names,
            [_native.UvArrays(*each) for each in maps],
            color_array,
            *_arrays.motion(given["motion"], len(point_array)),
        )
        modes = _modes(
            given["interpolation"] or "edgeAndCorner",
            given["uv_interpolation"] or "corners_fixed",
            fractional,
            isolation,
            isolation_error,
            crease_method,
            given["triangle_rule"] or "catmullClark",
        )
        self._native = _native.Surface(mesh, modes)
        self._warn(stacklevel=3)

    def intersect(self, origins, directions, level=0, *, tnear=0.0, tfar=np.inf, time=0.0):
        """Nearest hits of rays: `Hits`, one row per ray.

        Arguments::

            origins, directions  [n, 3]; directions of any length, t counts in lengths of it
            level                0 for the limit surface, up to 12 for flat cells, 2^level along an edge of a face
            tnear, tfar, time    one value or one per ray

        A ray that is not finite or has no direction hits nothing. The first call at a level builds a hierarchy.
        """
        ray_origins = _arrays.doubles(origins, "origins", 3)
        ray_directions = _arrays.doubles(directions, "directions", 3)
        count = len(ray_origins)
        if len(ray_directions) != count:
            raise ValueError(f"directions: {len(ray_directions)} for {count} origins")
        limits = (_arrays.per_item(value, name, count) for value, name in
                  ((tnear, "tnear"), (tfar, "tfar"), (time, "time")))
        return Hits(*self._native.intersect(ray_origins, ray_directions, *limits, level))

    def sample(self, primitives, uv, *, time=0.0, level=0):
        """Position, first derivatives and normals at points: `Samples` of [n, 3].

        Arguments::

            primitives  [n] quads; -1 gives NaN, so that hits can be passed on as they are
            uv          [n, 2] in [0, 1]
        """
        prims, pairs = _arrays.fragments(primitives, uv)
        return split(Samples, self._native.sample(prims, pairs, _arrays.per_item(time, "time", len(prims)), level))

    def limit_points(self, primitives, uv):
        """Position, first derivatives and normal of the surface at rest: `LimitPoints`, float32 [n, 3].

        What `sample` gives, in single precision and several times as fast. Arguments as there.
        """
        return split(LimitPoints, self._native.limit_points(*_arrays.fragments(primitives, uv)))

    def limit_grid(self, n, *, time=0.0):
        """`Samples` at (n + 1) x (n + 1) points of every quad: arrays [quad, v, u, 3]."""
        return split(Samples, self._native.limit_grid(n, time))

    def patches(self, *, time=0.0):
        """The control points of every patch, float32 [patch, 16, 3]: control 4 k + j belongs to corner k."""
        return self._native.patches(time)

    @property
    def patch_places(self):
        """Where the patches lie: int32 [patch, 4] of quad, level, x, y. A patch covers u in [x, x + 1] / 2^level of its
        quad, v likewise; one of level -1 its quad and the next three."""
        return self._native.patch_places()

    def uv(self, primitives, uv, map=0):
        """A UV map, by number or name, at points: `UvSamples` of [n, 3]."""
        prims, pairs = _arrays.fragments(primitives, uv)
        return split(UvSamples, self._native.look_up_uvs(prims, pairs, self._map_number(map)))

    def color(self, primitives, uv):
        """The colors at points: float32 rgba [n, 4]."""
        if self._native.color_map_count() == 0:
            raise LookupError("the surface has no colors")
        return self._native.look_up_colors(*_arrays.fragments(primitives, uv), 0)

    def select(self, sides=(), *, near=(), far=(), inside=False, level=0):
        """The quads that a frustum touches, or holds entirely with `inside`: uint32, ascending.

        Planes are rows nx ny nz d, up to four sides; a point p is within a plane when n . p + d >= 0.
        """
        rows = [_arrays.planes(value, name) for value, name in ((sides, "sides"), (near, "near"), (far, "far"))]
        if len(rows[0]) > 4 or len(rows[1]) > 1 or len(rows[2]) > 1:
            raise ValueError("a frustum has up to four sides, one near and one far plane")
        return self._native.select(*rows, bool(inside), level)

    def update(self, points, motion=None):
        """New positions, and motion, on the same topology and maps. Views taken before keep the former ones."""
        point_array = _arrays.points(points, "points")
        count = self._native.point_count()
        if len(point_array) != count:
            raise ValueError(f"points: {len(point_array)} where the surface has {count}")
        self._native.update(point_array, *_arrays.motion(motion, count))

    @property
    def bbox(self):
        """Box of the patches' control points, which holds the surface: [[min], [max]]."""
        return self._native.bbox()

    @property
    def area(self):
        """Estimated area of the surface."""
        return self._native.area()

    @property
    def info(self):
        """Counts of quads, vertex and patch classes, patches by level, valences, groups, maps, and bytes per array."""
        return self._native.info()

    @property
    def findings(self):
        """What was found in the mesh, a tuple of `Finding`."""
        return to_findings(self._native.findings())

    @property
    def quad_count(self):
        return self._native.quad_count()

    @property
    def quads(self):
        """Control vertices of every quad, read-only uint32 [quad, 4]."""
        return self._native.quads()

    @property
    def vertices(self):
        """Control vertices after the step that makes quads, read-only float32 [vertex, 3]."""
        return self._native.vertices()

    @property
    def neighbours(self):
        """Half-edge 4 q + k across every half-edge, 0xFFFFFFFF on borders: read-only uint32 [quad, 4]."""
        return self._native.neighbours()

    @property
    def quad_faces(self):
        """Face that every quad came from, uint32 [quad]."""
        return self._native.quad_faces()

    @property
    def quad_groups(self):
        """Shading group of every quad, uint32 [quad]."""
        return self._native.quad_groups()

    def __repr__(self):
        return f"<qn_sds.Surface of {self.quad_count} quads>"

    def _map_number(self, map):
        names = self._native.uv_names()
        if isinstance(map, str):
            if map not in names:
                raise LookupError(f"no UV map {map!r}; there are {names}")
            return names.index(map)
        if not 0 <= map < len(names):
            raise LookupError(f"UV map {map} of {len(names)}")
        return map

    def _warn(self, stacklevel):
        for finding in self.findings:
            if finding.severity == "warning":
                warnings.warn(str(finding), MeshWarning, stacklevel=stacklevel + 1)


def load_obj(
    path,
    *,
    interpolation=None,
    uv_interpolation="corners_fixed",
    isolation=_ISOLATION,
    isolation_error=0.0,
    fractional="exact",
    crease_method="uniform",
    triangle_rule="catmullClark",
):
    """The surface of an OBJ file: n-gons, groups, UVs, vertex colors and subdivision tags: crease, corner, hole,
    interpolateboundary (which `interpolation` overrules), creasemethod, smoothtriangles. Raises OSError for a file that
    cannot be read and MeshError, with file and line of every cause, for one without a surface."""
    path = os.fspath(path)
    with open(path, "rb"):
        pass
    surface = object.__new__(Surface)
    modes = _modes(interpolation, uv_interpolation, fractional, isolation, isolation_error, crease_method, triangle_rule)
    surface._native = _native.Surface.load_obj(os.fsencode(path), modes)
    surface._warn(stacklevel=2)
    return surface


def _modes(interpolation, uv_interpolation, fractional, isolation, isolation_error, crease_method, triangle_rule):
    if interpolation is None:
        interpolation_code = _words.AS_FILE_SAYS
    else:
        interpolation_code = _words.code_of(interpolation, _words.INTERPOLATION, "interpolation")
    return _native.Modes(
        interpolation_code,
        _words.code_of(uv_interpolation, _words.UV_INTERPOLATION, "uv_interpolation"),
        _words.code_of(fractional, _words.FRACTIONAL, "fractional"),
        isolation,
        isolation_error,
        _words.code_of(crease_method, _words.CREASE_METHOD, "crease_method"),
        _words.code_of(triangle_rule, _words.TRIANGLE_RULE, "triangle_rule"),
    )


def _named_maps(uvs):
    if uvs is None:
        return []
    return list(uvs.items()) if isinstance(uvs, dict) else [("uv", uvs)]


def _settle_groups(groups, names, face_count):
    if groups is None:
        return np.zeros(face_count, np.uint32), list(names or ["default"])[:1]
    array = _arrays.indices(groups, "groups")
    if len(array) != face_count:
        raise ValueError(f"groups: {len(array)} for {face_count} faces")
    highest = int(array.max(initial=0))
    if names is None:
        if highest >= 2**20:
            raise ValueError(f"groups: index {highest} without group_names")
        return array, [f"group {i}" for i in range(highest + 1)]
    if highest >= len(names):
        raise ValueError(f"groups: index {highest} of {len(names)} names")
    return array, [str(name) for name in names]
