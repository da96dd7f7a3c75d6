"""Words: interpolation modes, creases, and the attribute names of USD meshes."""

import numpy as np

from . import _arrays

INTERPOLATION = {
    "bilinear": 0,
    "edgeAndCorner": 1,
    "edgeOnly": 2,
    "bordersFixed": 3,
    "none": 4,
    # the program's
    "linear": 0,
    "corners": 1,
    "smooth": 2,
    "borders": 3,
}
AS_FILE_SAYS = 5
UVS_AS_FILE_SAYS = 9
UP = {"x": 0, "y": 1, "z": 2}

FRACTIONAL = {"harden": 0, "drop": 1, "exact": 2, "sharp": 0}
CREASE_METHOD = {"uniform": False, "chaikin": True}
TRIANGLE_RULE = {"catmullClark": False, "smooth": True}
ORIENTATION = {"rightHanded": False, "leftHanded": True}

UV_INTERPOLATION = {
    "all_fixed": 0,
    "corners_fixed": 1,
    "all_smoothed": 2,
    "borders_fixed": 3,
    "smoothed_seam_corners_fixed": 4,
    "smoothed_seams_fixed": 5,
    "corners_and_seams_fixed": 6,
    "corners_plus1": 7,
    "corners_plus2": 8,
    # USD's
    "all": 0,
    "cornersOnly": 1,
    "cornersPlus1": 7,
    "cornersPlus2": 8,
    "none": 2,
    "boundaries": 3,
}

_USD_NAMES = {
    "faceVertexCounts": "face_counts",
    "faceVertexIndices": "face_indices",
    "interpolateBoundary": "interpolation",
    "faceVaryingLinearInterpolation": "uv_interpolation",
    "velocities": "motion",
    "displayColor": "colors",
    "holeIndices": "holes",
    "triangleSubdivisionRule": "triangle_rule",
}
_USD_CREASES = ("creaseIndices", "creaseLengths", "creaseSharpnesses")
_USD_CORNERS = ("cornerIndices", "cornerSharpnesses")


def code_of(word, known, what):
    if not isinstance(word, str) or word not in known:
        raise ValueError(f"{what}: unknown word {word!r}; known are {', '.join(known)}")
    return known[word]


def translate_usd(arguments, usd):
    """Moves the USD words of `usd` into `arguments`, a dictionary of our own names. Empty values are no values."""
    usd = {key: value for key, value in usd.items() if value is not None}
    scheme = usd.pop("subdivisionScheme", "catmullClark")
    if scheme == "bilinear":
        _put(arguments, "interpolation", "bilinear", "subdivisionScheme")
        usd.pop("interpolateBoundary", None)
    elif scheme != "catmullClark":
        raise ValueError(f"subdivisionScheme: {scheme!r} is neither 'catmullClark' nor 'bilinear'")
    creases = [usd.pop(key, ()) for key in _USD_CREASES]
    if any(len(value) > 0 for value in creases):
        _put(arguments, "creases", _from_chains(*creases), _USD_CREASES[0])
    corners = [usd.pop(key, ()) for key in _USD_CORNERS]
    if any(len(value) > 0 for value in corners):
        _put(arguments, "corners", tuple(corners), _USD_CORNERS[0])
    for key in list(usd):
        if key in _USD_NAMES:
            _put(arguments, _USD_NAMES[key], usd.pop(key), key)
    if usd:
        raise TypeError(f"unexpected keyword argument {next(iter(usd))!r}")


def _put(arguments, name, value, usd_name):
    if arguments.get(name) is not None:
        raise TypeError(f"both {name} and {usd_name} are given")
    arguments[name] = value


def _from_chains(indices, lengths, sharpnesses):
    """Edges and sharpness from chains: one sharpness per chain or one per edge."""
    indices, lengths = np.asarray(indices), np.asarray(lengths)
    if lengths.size == 0 or lengths.min() < 2 or lengths.sum() != indices.size:
        raise ValueError("creaseLengths: each at least 2, together as many as creaseIndices")
    is_last = np.zeros(indices.size, bool)
    is_last[np.cumsum(lengths) - 1] = True
    begins = np.flatnonzero(~is_last)
    sharpness = np.asarray(sharpnesses, np.float32)
    if sharpness.size == lengths.size:
        sharpness = np.repeat(sharpness, lengths - 1)
    if sharpness.size != begins.size:
        raise ValueError("creaseSharpnesses: one per chain or one per edge")
    return np.stack([indices[begins], indices[begins + 1]], axis=1), sharpness


def crease_edges(value):
    """Vertices, two per edge, and a sharpness for each, from edges [k, 2] or (edges, sharpness)."""
    if value is None:
        return np.zeros(0, np.uint32), np.zeros(0, np.float32)
    edges, sharpness = value if isinstance(value, tuple) and len(value) == 2 else (value, np.inf)
    shape = np.shape(edges)
    if len(shape) != 2 or shape[1] != 2:
        raise ValueError(f"creases: shape {shape}, expected [k, 2]")
    sharpness = np.asarray(sharpness, np.float32)
    if sharpness.shape not in ((), (shape[0],)):
        raise ValueError(f"creases: {sharpness.size} sharpnesses for {shape[0]} edges")
    return _arrays.indices(edges, "creases"), np.ascontiguousarray(np.broadcast_to(sharpness, shape[:1]))


def sharp_corners(value):
    """Points and a sharpness for each, from points [k] or (points, sharpness)."""
    if value is None:
        return np.zeros(0, np.uint32), np.zeros(0, np.float32)
    points, sharpness = value if isinstance(value, tuple) and len(value) == 2 else (value, np.inf)
    points, sharpness = _arrays.indices(points, "corners"), np.asarray(sharpness, np.float32)
    if sharpness.shape not in ((), points.shape):
        raise ValueError(f"corners: {sharpness.size} sharpnesses for {points.size} points")
    return points, np.ascontiguousarray(np.broadcast_to(sharpness, points.shape))


def reversed_corners(face_counts):
    """Where the corners of every face come from when it is turned over: the first stays the first."""
    counts = face_counts.astype(np.int64)
    firsts = np.repeat(np.cumsum(counts) - counts, counts)
    return firsts + (firsts - np.arange(len(firsts))) % np.repeat(counts, counts)
