"""What a surface is built from: the arguments of `Surface`, checked, in exact types and copied, so that settling them
again changes nothing. A pickled surface is its recipe."""

import numpy as np

from . import _arrays, _native, _properties, _words

ARGUMENTS = (
    "points", "face_counts", "face_indices", "creases", "corners", "holes", "uvs", "colors", "groups", "group_names",
    "motion", "properties", "interpolation", "uv_interpolation", "isolation", "isolation_error", "fractional",
    "crease_method", "triangle_rule", "orientation",
)


def settle(given):
    """The recipe of arguments by name, all of them there."""
    if given["face_counts"] is None or given["face_indices"] is None:
        raise TypeError("face_counts and face_indices are needed")
    points = _arrays.points(given["points"], "points")
    counts = _arrays.indices(given["face_counts"], "face_counts")
    corners = _arrays.indices(given["face_indices"], "face_indices", lambda entry: _place(counts, entry))
    corner_count = int(counts.sum(dtype=np.uint64))
    if corner_count != len(corners):
        raise ValueError(f"face_indices: {len(corners)} where face_counts add up to {corner_count}")
    if len(corners) > 2**30 or len(points) > 2**30:
        raise ValueError("at most 2^30 points and face-corners")
    groups, names = _settle_groups(given["groups"], given["group_names"], len(counts))
    maps = {name: _arrays.uv_map(value, name, corners, len(points)) for name, value in _named_maps(given["uvs"])}
    given_properties = {} if given["properties"] is None else given["properties"]
    if not isinstance(given_properties, dict):
        raise TypeError(f"properties: expected a dictionary by name, not {type(given_properties).__name__}")
    properties = {
        name: _properties.settle(name, value, len(points), len(counts), len(corners))
        for name, value in given_properties.items()
    }
    turned = None
    if _words.code_of(given["orientation"], _words.ORIENTATION, "orientation"):
        turned = _words.reversed_corners(counts)
        corners = corners[turned]
        maps = {name: (values, map_corners[turned]) for name, (values, map_corners) in maps.items()}
        properties = {name: each if each.indices is None else each._replace(indices=each.indices[turned])
                      for name, each in properties.items()}
    edges, sharpness = _words.crease_edges(given["creases"])
    recipe = {
        **given,
        "points": points.copy(),
        "face_counts": counts.copy(),
        "face_indices": corners.copy(),
        "creases": (edges.reshape(-1, 2).copy(), sharpness),
        "corners": tuple(each.copy() for each in _words.sharp_corners(given["corners"])),
        "holes": _arrays.indices(() if given["holes"] is None else given["holes"], "holes").copy(),
        "uvs": {name: tuple(each.copy() for each in one) for name, one in maps.items()},
        "groups": groups.copy(),
        "group_names": names,
        "motion": settle_motion(given["motion"], len(points)),
        "properties": properties,
        "interpolation": given["interpolation"] or "edgeAndCorner",
        "uv_interpolation": given["uv_interpolation"] or "corners_fixed",
        "triangle_rule": given["triangle_rule"] or "catmullClark",
        "orientation": "rightHanded",
    }
    if given["colors"] is not None:
        recipe["colors"] = _arrays.colors(given["colors"], len(points), len(corners))
        if turned is not None and isinstance(recipe["colors"], tuple):
            recipe["colors"] = recipe["colors"][0], recipe["colors"][1][turned]
    return recipe


def settle_motion(motion, point_count):
    vectors, times, samples = (each.copy() for each in _arrays.motion(motion, point_count))
    if len(times):
        return times, samples
    return vectors if len(vectors) else None


def from_cage(cage):
    """The recipe of what was read from a file."""
    word = {name: {code: word for word, code in reversed(known.items())} for name, known in (
        ("interpolation", _words.INTERPOLATION), ("uv_interpolation", _words.UV_INTERPOLATION),
        ("crease_method", _words.CREASE_METHOD), ("triangle_rule", _words.TRIANGLE_RULE))}
    words = {name: codes[cage[name]] for name, codes in word.items()}
    properties = {name: _properties.Property(*each) for name, each in cage["properties"].items()}
    return {**cage, **words, "properties": properties, "orientation": "rightHanded"}


def build(recipe):
    """The extension's surface."""
    edges, sharpness = recipe["creases"]
    colors = np.zeros((0, 4), np.uint8) if recipe["colors"] is None else recipe["colors"]
    colors, color_corners = colors if isinstance(colors, tuple) else (colors, np.zeros(0, np.uint32))
    mesh = _native.Mesh(
        recipe["points"],
        recipe["face_counts"],
        recipe["face_indices"],
        edges.reshape(-1),
        sharpness,
        *recipe["corners"],
        recipe["holes"],
        recipe["groups"],
        recipe["group_names"],
        [_native.UvArrays(name, *each) for name, each in recipe["uvs"].items()],
        colors,
        color_corners,
        *_arrays.motion(recipe["motion"], len(recipe["points"])),
        [_properties.to_native(name, each) for name, each in recipe["properties"].items()],
    )
    return _native.Surface(mesh, modes(**{name: recipe[name] for name in (
        "interpolation", "uv_interpolation", "fractional", "isolation", "isolation_error", "crease_method",
        "triangle_rule")}))


def modes(interpolation, uv_interpolation, fractional, isolation, isolation_error, crease_method, triangle_rule):
    if interpolation is None:
        interpolation_code = _words.AS_FILE_SAYS
    else:
        interpolation_code = _words.code_of(interpolation, _words.INTERPOLATION, "interpolation")
    uv_code = _words.UVS_AS_FILE_SAYS
    if uv_interpolation is not None:
        uv_code = _words.code_of(uv_interpolation, _words.UV_INTERPOLATION, "uv_interpolation")
    return _native.Modes(
        interpolation_code,
        uv_code,
        _words.code_of(fractional, _words.FRACTIONAL, "fractional"),
        _arrays.whole(isolation, "isolation", 0, 10),
        _arrays.real(isolation_error, "isolation_error"),
        _words.code_of(crease_method, _words.CREASE_METHOD, "crease_method"),
        _words.code_of(triangle_rule, _words.TRIANGLE_RULE, "triangle_rule"),
    )


def _place(counts, entry):
    face = int(np.searchsorted(np.cumsum(counts, dtype=np.int64), entry, side="right"))
    return f"face {face}, corner {entry - int(counts[:face].sum(dtype=np.int64))}"


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
    if highest > 2**31 - 1:
        raise ValueError(f"groups: index {int(array.view(np.int32).min())}, groups are counted from 0")
    if names is None:
        if highest >= 2**20:
            raise ValueError(f"groups: index {highest} without group_names")
        return array, [f"group {i}" for i in range(highest + 1)]
    if highest >= len(names):
        raise ValueError(f"groups: index {highest} of {len(names)} names")
    return array, [str(name) for name in names]
