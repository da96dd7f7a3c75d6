"""The surface as users see it: checks shapes and words, makes exact arrays, leaves the work to the extension."""

import os
import threading
import warnings

import numpy as np

from . import _arrays, _native, _properties, _recipe, _words
from ._errors import Finding, MeshWarning, to_findings
from ._results import Hits, LimitPoints, PropertySamples, Samples, UvSamples, split

ISOLATION = 2


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
        colors            [n, 3] or [n, 4], floats in [0, 1] or uint8; or (values, indices) with one index per
                          face-corner
        groups            [faces], shading group of every face, an index into group_names
        group_names       one name per group; "group 0", "group 1", ... by default
        interpolation     "edgeAndCorner" or "corners", "edgeOnly" or "smooth", "bilinear" or "linear", "bordersFixed"
                          or "borders", "none": no surface beside borders
        uv_interpolation  the same for UVs: "corners_fixed" and others, see the page on modes, or USD's "cornersPlus1"
                          and the like
        motion            vectors [n, 3] per unit of time, or (times, samples) with samples [k, n, 3]
        properties        a dictionary by name of values per point, or `Property` for other kinds: per face, constant,
                          varying, with indices per face-corner, with samples in time; see `look_up`
        isolation         levels by which quads that are not regular are refined, and UV maps with them, 0 to 10;
                          corners, holes, fractional sharpness and open borders are followed from 1 on
        isolation_error   above 0, refining stops around a point that is this close to the surface, a share of the
                          mesh's diagonal
        fractional        what becomes of a sharpness between 0 and 10: "exact" (without isolation as "harden"),
                          "harden" or "sharp", "drop"
        crease_method     how it decays: "uniform" or "chaikin"
        triangle_rule     "catmullClark" or "smooth"
        orientation       "rightHanded", or "leftHanded": faces are turned over, their first corners stay

    Attribute names of USD meshes are accepted as keywords: faceVertexCounts, faceVertexIndices, creaseIndices,
    creaseLengths, creaseSharpnesses, cornerIndices, cornerSharpnesses, holeIndices, interpolateBoundary,
    faceVaryingLinearInterpolation, triangleSubdivisionRule, subdivisionScheme, velocities, displayColor.

    Raises MeshError, with every cause, for a mesh without a surface. What was changed or looks wrong is in `findings`,
    and warnings among it are issued as MeshWarning.

    Primitives are quads at every isolation: the faces themselves when all are quads, else n quads of every n-gon, in
    order. Points on the surface are a primitive with u, v in [0, 1]. Methods may be called from any number of threads;
    they see the surface as it was when they began, whatever `update` does meanwhile. Arrays handed over must not change
    during the call.

    A surface can be pickled and copied: it keeps its cage and options, from which the copy is built, checked like any
    other, with the same bits.
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
        isolation=ISOLATION,
        isolation_error=0.0,
        fractional="exact",
        crease_method="uniform",
        triangle_rule=None,
        orientation="rightHanded",
        properties=None,
        **usd,
    ):
        given = {
            "points": points,
            "face_counts": face_counts,
            "face_indices": face_indices,
            "creases": creases,
            "corners": corners,
            "holes": holes,
            "uvs": uvs,
            "colors": colors,
            "groups": groups,
            "group_names": group_names,
            "motion": motion,
            "properties": properties,
            "interpolation": interpolation,
            "uv_interpolation": uv_interpolation,
            "isolation": isolation,
            "isolation_error": isolation_error,
            "fractional": fractional,
            "crease_method": crease_method,
            "triangle_rule": triangle_rule,
            "orientation": orientation,
        }
        _words.translate_usd(given, usd)
        self._build(given)
        warn_of(self.findings, stacklevel=2)

    def _build(self, given):
        """From arguments, or from a recipe, which is trusted no more than they are."""
        recipe = _recipe.settle(given)
        self._begin(_recipe.build(recipe), recipe)

    def _begin(self, native, recipe):
        self._native = native
        self._recipe = recipe  # None for a file, whose cage the extension keeps
        self._moved = {}  # what `update` put in its place
        self._findings = to_findings(native.findings())
        self._updating = threading.Lock()

    def __reduce__(self):
        recipe = _recipe.from_cage(self._native.cage()) if self._recipe is None else self._recipe
        return _rebuild, (1, {**recipe, **self._moved}, self._findings)

    def intersect(self, origins, directions, level=0, *, tnear=0.0, tfar=np.inf, time=0.0):
        """Nearest hits of rays: `Hits`, one row per ray.

        Arguments::

            origins, directions  [n, 3]; directions of any length, t counts in lengths of it
            level                0 for the limit surface, up to 12 for flat cells, 2^level along an edge of a face
            tnear, tfar, time    one value or one per ray

        One origin, or one direction, [3] or [1, 3], goes with all of the other. A ray that is not finite or has no
        direction hits nothing. The first call at a level builds a hierarchy.
        """
        return Hits(*self._trace(self._native.intersect, origins, directions, tnear, tfar, time, level))

    def occluded(self, origins, directions, level=0, *, tnear=0.0, tfar=np.inf, time=0.0):
        """Whether rays hit anything: bool [n]. Arguments as for `intersect`, of which it is the faster form: a ray ends
        at the first hit that is found, not at the nearest."""
        return self._trace(self._native.occluded, origins, directions, tnear, tfar, time, level)

    def sample(self, primitives, uv, *, time=0.0, level=0):
        """Position, first derivatives and normals at points: `Samples` of [n, 3].

        Arguments::

            primitives  [n] quads; -1 gives NaN, so that hits can be passed on as they are
            uv          [n, 2] in [0, 1]
        """
        prims, pairs = _arrays.fragments(primitives, uv)
        times = _arrays.per_item(time, "time", len(prims))
        return split(Samples, self._native.sample(prims, pairs, times, _arrays.whole(level, "level", *_arrays.LEVELS)))

    def limit_points(self, primitives, uv):
        """Position, first derivatives and normal of the surface at rest: `LimitPoints`, float32 [n, 3].

        What `sample` gives, in single precision and several times as fast. Arguments as there.
        """
        return split(LimitPoints, self._native.limit_points(*_arrays.fragments(primitives, uv)))

    def limit_grid(self, n, *, time=0.0):
        """`Samples` at (n + 1) x (n + 1) points of every quad: arrays [quad, v, u, 3]."""
        return split(Samples, self._native.limit_grid(_arrays.whole(n, "n", 1, 2**32 - 1), _arrays.real(time, "time")))

    def patches(self, *, time=0.0):
        """The control points of every patch, float32 [patch, 16, 3]: control 4 k + j belongs to corner k."""
        return self._native.patches(_arrays.real(time, "time"))

    @property
    def patch_places(self):
        """Where the patches lie: int32 [patch, 4] of quad, level, x, y. A patch covers u in [x, x + 1] / 2^level of its
        quad, v likewise; one of level -1 its quad and the next three."""
        return self._native.patch_places()

    def uv(self, primitives, uv, map=0):
        """A UV map, by number or name, at points: `UvSamples` of [n, 3]."""
        prims, pairs = _arrays.fragments(primitives, uv)
        return split(UvSamples, self._native.look_up_uvs(prims, pairs, self._map_number(map)))

    def look_up(self, name, primitives, uv, *, time=0.0):
        """A property at points: `PropertySamples`, float64 [n] of single numbers, [n, numbers] of rows; derivatives are
        by the quad's u and v. NaN where the primitive is -1 and on holes. 64-bit integers are rounded to float64.

        The first call, and the first after `update`, prepares all properties.
        """
        if name not in (names := self._native.property_names()):
            raise LookupError(f"no property {name!r}; there are {names}")
        prims, pairs = _arrays.fragments(primitives, uv)
        times = _arrays.per_item(time, "time", len(prims))
        rows = self._native.look_up_property(prims, pairs, times, names.index(name))
        if self._recipe is None:
            item = rows.shape[2:] if rows.shape[2] > 1 else ()
        else:
            item = _properties.item_shape(self._recipe["properties"][name])
        return PropertySamples(*(rows[:, i].reshape(len(prims), *item) for i in range(3)))

    @property
    def property_names(self):
        """Names of the properties."""
        return self._native.property_names()

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
        return self._native.select(*rows, bool(inside), _arrays.whole(level, "level", *_arrays.LEVELS))

    def update(self, points, motion=None):
        """New positions, and motion, on the same topology and maps. Views taken before keep the former ones."""
        point_array = _arrays.points(points, "points")
        count = self._native.point_count()
        if len(point_array) != count:
            raise ValueError(f"points: {len(point_array)} where the surface has {count}")
        moved = {"points": point_array.copy(), "motion": _recipe.settle_motion(motion, count)}
        with self._updating:
            self._native.update(moved["points"], *_arrays.motion(moved["motion"], count))
            self._moved = moved

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
        return self._findings

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
        if not names:
            raise LookupError("the surface has no UV maps")
        return _arrays.whole(map, "map", 0, len(names) - 1)

    def _trace(self, trace, origins, directions, tnear, tfar, time, level):
        *rays, count = _arrays.rays(origins, directions)
        limits = (_arrays.per_item(value, name, count) for value, name in
                  ((tnear, "tnear"), (tfar, "tfar"), (time, "time")))
        return trace(*rays, *limits, _arrays.whole(level, "level", *_arrays.LEVELS))


def warn_of(findings, stacklevel):
    for finding in findings:
        if finding.severity == "warning":
            warnings.warn(str(finding), MeshWarning, stacklevel=stacklevel + 1)


def from_native(native):
    """The surface of a file, which the extension has built."""
    surface = object.__new__(Surface)
    surface._begin(native, None)
    return surface


def _rebuild(version, recipe, findings):
    """A pickled surface. Warnings were given when it was first built."""
    if version != 1 or set(recipe) != set(_recipe.ARGUMENTS):
        raise ValueError("a surface that another version of qn_sds has pickled")
    surface = object.__new__(Surface)
    surface._build(recipe)
    surface._findings = tuple(Finding(*each) for each in findings)
    return surface


def load_obj(
    path,
    *,
    interpolation=None,
    uv_interpolation="corners_fixed",
    isolation=ISOLATION,
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
    modes = _recipe.modes(
        interpolation, uv_interpolation, fractional, isolation, isolation_error, crease_method, triangle_rule
    )
    surface = from_native(_native.Surface.load_obj(os.fsencode(path), modes))
    warn_of(surface.findings, stacklevel=2)
    return surface
