"""Copies, properties, shadow rays, words, and the sentences that mistakes are answered by."""

import ast
import os
import pathlib
import pickle
import re
import signal
import subprocess

import numpy as np
import pytest
from conftest import CUBE_COUNTS, CUBE_EDGES, CUBE_INDICES, CUBE_POINTS, KNOT, grid, random_fragments, random_rays

import qn_sds
from qn_sds import Property, _words

MESH = CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES
SDS = os.environ.get("SDS", "build/bin/sds")


def tagged_file(folder):
    path = folder / "tagged.obj"
    lines = ["v {} {} {} {} 0.5 1".format(*point, i / 8) for i, point in enumerate(CUBE_POINTS)]
    lines += [f"vt {i % 5 / 5} {i % 3 / 3}" for i in range(24)]
    for i, face in enumerate(CUBE_INDICES.reshape(-1, 4)):
        lines += [f"usemtl m{i % 2}", "f " + " ".join(f"{v + 1}/{4 * i + k + 1}" for k, v in enumerate(face))]
    lines += ["t crease 2/1/0 4 5 2.5", "t crease 2/1/0 5 7 10", "t corner 1/1/0 2 1.5", "t hole 1/0/0 1"]
    path.write_text("\n".join([*lines, "t creasemethod 0/0/1 chaikin", "t interpolateboundary 1/0/0 2", "foo"]))
    return path


def moved(surface):
    surface.update(1.5 * CUBE_POINTS, motion=CUBE_POINTS)
    return surface


SURFACES = {
    "everything": lambda _: qn_sds.Surface(
        *MESH, creases=(CUBE_EDGES[:5], [0.5, 2.5, np.inf, 1, 3]), corners=([2], [1.5]), holes=[3],
        uvs={"a": CUBE_POINTS[:, :2], "b": np.arange(48).reshape(24, 2) % 7}, colors=(np.eye(5, 3), np.arange(24) % 5),
        groups=[0, 1, 0, 1, 0, 1], motion=([0.0, 2.0], np.stack([CUBE_POINTS, 2 * CUBE_POINTS])), isolation=3,
        isolation_error=1e-3, crease_method="chaikin", triangle_rule="smooth", orientation="leftHanded",
        properties={"heat": np.arange(8.0), "seam": Property(np.arange(24), indices=np.arange(24)),
                    "flow": Property(np.ones((2, 6, 3), np.float16), "uniform", times=[0, 1])},
    ),
    "plain, moved": lambda _: moved(qn_sds.Surface(*MESH, isolation=0)),
    "file": lambda folder: qn_sds.load_obj(tagged_file(folder)),
    "file, open borders": lambda _: qn_sds.load_obj(KNOT, interpolation="none", uv_interpolation="all_smoothed"),
    "file, moved": lambda folder: moved(qn_sds.load_obj(tagged_file(folder), isolation=1)),
}


@pytest.mark.filterwarnings("ignore::qn_sds.MeshWarning")
@pytest.mark.parametrize("name", SURFACES)
def test_a_pickled_surface_comes_back_bit_for_bit(name, tmp_path, recwarn):
    surface = SURFACES[name](tmp_path)
    for path in tmp_path.iterdir():
        path.unlink()  # the file is not asked again
    recwarn.clear()
    copy = pickle.loads(pickle.dumps(surface))
    again = pickle.loads(pickle.dumps(copy))
    assert len(recwarn) == 0
    primitives, uv = random_fragments(surface, 300, 5)
    for other in (copy, again):
        for time in (0.0, 0.7):
            np.testing.assert_array_equal(other.patches(time=time), surface.patches(time=time))
        np.testing.assert_array_equal(other.patch_places, surface.patch_places)
        np.testing.assert_array_equal(other.quad_groups, surface.quad_groups)
        infos = [{**each.info, "bytes": None} for each in (other, surface)]
        assert infos[0] == infos[1] and other.findings == surface.findings
        for map in surface.info["uv_maps"]:
            np.testing.assert_array_equal(other.uv(primitives, uv, map), surface.uv(primitives, uv, map))
        for each in surface.property_names:
            np.testing.assert_array_equal(other.look_up(each, primitives, uv), surface.look_up(each, primitives, uv))
        if name != "plain, moved" and "borders" not in name:
            np.testing.assert_array_equal(other.color(primitives, uv), surface.color(primitives, uv))


def test_a_surface_keeps_its_own_copies_and_pickles_are_checked():
    points = CUBE_POINTS.copy()
    surface = qn_sds.Surface(points, *MESH[1:])
    points[:] = 0
    rebuild, (version, recipe, findings) = surface.__reduce__()
    np.testing.assert_array_equal(rebuild(version, recipe, findings).patches(), surface.patches())
    with pytest.raises(qn_sds.MeshError, match="index 99 of 8"):
        rebuild(version, {**recipe, "face_indices": np.full(24, 99)}, findings)
    for bad in ((2, recipe), (version, {})):
        with pytest.raises(ValueError, match="another version"):
            rebuild(*bad, findings)


def test_shadow_rays_and_single_origins_or_directions(knot):
    origins, directions = random_rays(knot, 2000, 9)
    for options in ({}, {"tfar": np.linspace(0, 30, 2000)}, {"level": 2, "tnear": 10.0}):
        hits = knot.intersect(origins, directions, **options)
        occluded = knot.occluded(origins, directions, **options)
        assert occluded.dtype == bool and np.array_equal(occluded, hits.hit)
    for one, many in ((origins[7], directions), (origins[7:8], directions)):
        spread = knot.intersect(np.tile(origins[7], (2000, 1)), directions)
        assert all(np.array_equal(*pair) for pair in zip(knot.intersect(one, many), spread))
    spread = knot.intersect(origins, np.tile(directions[3], (2000, 1)))
    assert all(np.array_equal(*pair) for pair in zip(knot.intersect(origins, directions[3]), spread))
    assert knot.intersect(origins[0], directions[0]).t.shape == (1,)
    assert len(knot.occluded([], directions[0])) == len(knot.occluded(origins[0], [])) == 0


def test_properties_follow_the_surface():
    """Points as a property are the surface itself, at creases too; the other kinds have closed forms."""
    rows = np.stack([CUBE_POINTS, CUBE_POINTS + 1])
    surface = qn_sds.Surface(
        *MESH, isolation=4, creases=(CUBE_EDGES[:6], np.linspace(0.5, 4, 6)), corners=[3], holes=[5],
        properties={"place": CUBE_POINTS.astype(float), "moving": Property(rows, times=[0.0, 2.0]),
                    "linear": Property(CUBE_POINTS, "varying"), "part": Property(np.arange(6, dtype=np.uint8), "uniform"),
                    "tint": Property([0.25, 0.5], "constant"), "one": Property(7, "constant"),
                    "islands": Property(np.arange(6.0), indices=np.repeat(np.arange(6), 4))},
    )
    primitives, uv = random_fragments(surface, 500, 3)
    primitives[:3] = [-1, 5, 0]
    is_on = (primitives >= 0) & (primitives != 5)
    samples = surface.sample(primitives, uv)
    place = surface.look_up("place", primitives, uv)
    np.testing.assert_allclose(place.value, samples.position, atol=2e-6)
    assert all(np.array_equal(np.isnan(each).all(axis=1), ~is_on) for each in place)
    # Beside irregular vertices normals have nets of their own; elsewhere derivatives are those of the same patches.
    inside = primitives, 0.25 + 0.5 * uv
    for got, expected in zip(surface.look_up("place", *inside)[1:], surface.sample(*inside)[1:3]):
        np.testing.assert_allclose(got, expected, atol=2e-6)
    np.testing.assert_allclose(surface.look_up("moving", primitives, uv, time=0.5).value, place.value + 0.25, atol=2e-6)

    corners = CUBE_POINTS[CUBE_INDICES.reshape(-1, 4)][primitives[is_on]]
    u, v = uv[is_on].T[:, :, None]
    a, b, c, d = corners.transpose(1, 0, 2)
    linear = surface.look_up("linear", primitives[is_on], uv[is_on])
    np.testing.assert_allclose(linear.value, (1 - v) * ((1 - u) * a + u * b) + v * ((1 - u) * d + u * c), atol=1e-6)
    np.testing.assert_allclose(linear.du, (1 - v) * (b - a) + v * (c - d), atol=1e-6)
    part = surface.look_up("part", primitives, uv)
    assert np.array_equal(part.value[is_on], primitives[is_on]) and not part.du[is_on].any()
    np.testing.assert_array_equal(surface.look_up("tint", [0, 4], [[0, 0], [1, 1]]).value, [[0.25, 0.5]] * 2)
    np.testing.assert_array_equal(surface.look_up("one", [0, 4], [[0, 0], [1, 1]]).value, [7, 7])
    islands = surface.look_up("islands", primitives, uv).value
    np.testing.assert_allclose(islands[is_on], primitives[is_on], atol=1e-13)

    before = place.value[is_on]
    surface.update(3 * CUBE_POINTS)
    np.testing.assert_array_equal(surface.look_up("place", primitives, uv).value[is_on], before)


def place(scale, shift):
    matrix = np.diag([scale, scale, scale, 1.0])
    matrix[3, :3] = shift
    return matrix


def test_a_scene_holds_surfaces_at_places(cube, knot):
    """Each instance against its surface alone, with the rays moved into its space."""
    matrices = [place(1, (0, 0, 0)), place(0.5, (4, 0, 1)), place(2, (-5, 1, 0))]
    scene = qn_sds.Scene([knot, cube, knot], matrices)
    origins, directions = random_rays(scene, 3000, 8)
    hits = scene.intersect(origins, directions)
    alone = []
    for surface, matrix in zip((knot, cube, knot), matrices):
        scale, shift = matrix[0, 0], matrix[3, :3]
        alone.append(surface.intersect((origins - shift) / scale, directions / scale))
    t = np.stack([each.t for each in alone])
    assert set(hits.instance) == {-1, 0, 1, 2} and np.array_equal(hits.hit, hits.instance >= 0)
    np.testing.assert_array_equal(hits.instance, np.where(np.isinf(t.min(0)), -1, t.argmin(0)))
    np.testing.assert_allclose(hits.t, t.min(0), rtol=1e-6)
    for i, each in enumerate(alone):
        on = hits.instance == i
        assert np.mean(each.primitive[on] == hits.primitive[on]) > 0.99
    assert np.array_equal(scene.occluded(origins, directions), hits.hit)
    copy = pickle.loads(pickle.dumps(scene))
    cube.update(2 * CUBE_POINTS)
    for other in (copy, scene):
        assert all(np.array_equal(*pair) for pair in zip(other.intersect(origins, directions), hits))

    eye, target = scene.bbox[1] + [0, 0, 20], scene.bbox.mean(0)
    shares = []
    picture = scene.render(48, 32, layers=["object", "Z", "P"], samples=4, camera=(eye, target), background=False,
                           progress=shares.append)
    assert [picture[name].shape for name in ("rgba", "object", "Z", "P")] == [(32, 48, 4), (32, 48), (32, 48), (32, 48, 3)]
    seen = np.isfinite(picture["Z"])
    assert set(picture["object"][seen]) == {0, 1, 2} and shares[-1] == 1.0 and shares == sorted(shares)
    points = picture["P"][seen].astype(float)
    again = scene.intersect(eye, points - eye, tfar=2.0)
    np.testing.assert_array_equal(again.instance, picture["object"][seen])
    np.testing.assert_allclose(again.t, 1.0, atol=1e-5)
    for refused, sentence in (({"transforms": np.transpose(matrices, (0, 2, 1))}, "last row"), ({"level": -1}, "level")):
        with pytest.raises(ValueError, match=sentence):
            qn_sds.Scene([knot, cube, knot], **refused)
    with pytest.raises(ValueError, match="lines"):
        scene.render(8, 8, layers=["normals"])


@pytest.mark.parametrize("way", ["progress", "signal"])
def test_a_picture_ends_when_it_is_told_to(knot, way):
    def stop(share):
        if way == "progress":
            raise RuntimeError("enough")
        signal.raise_signal(signal.SIGINT)

    with pytest.raises(RuntimeError if way == "progress" else KeyboardInterrupt):
        qn_sds.Scene([knot]).render(2000, 2000, samples=1024, progress=stop)


def choices_of_the_program(option):
    text = subprocess.run([SDS, "info", "--help"], capture_output=True, text=True, check=True).stdout
    return set(re.search(rf"--{option} \{{(.*?)\}}", text, re.DOTALL).group(1).replace("\n", "").replace(" ", "").split(","))


def test_words_are_those_of_the_program_and_of_the_stubs():
    options = {"interpolation": _words.INTERPOLATION, "uv-interpolation": _words.UV_INTERPOLATION,
               "fractional": _words.FRACTIONAL}
    for option, known in options.items():
        assert choices_of_the_program(option) == set(known)
    sheet = grid(3)
    for known, keyword in ((_words.INTERPOLATION, "interpolation"), (_words.UV_INTERPOLATION, "uv_interpolation")):
        patches = {}
        for word, code in known.items():
            surface = qn_sds.Surface(*sheet, uvs=sheet[0][:, :2], **{keyword: word})
            values = np.concatenate([surface.patches().ravel(), surface.uv([0], [[0, 0]]).uvw.ravel()])
            np.testing.assert_array_equal(patches.setdefault(code, values), values)
    tree = ast.parse((pathlib.Path(qn_sds.__file__).parent / "__init__.pyi").read_text())
    literals = {node.targets[0].id: {each.value for each in ast.walk(node.value.slice) if isinstance(each, ast.Constant)}
                for node in tree.body
                if isinstance(node, ast.Assign) and getattr(node.value.value, "id", "") == "Literal"}
    assert literals["_Kind"] == set(qn_sds._properties.KINDS)
    for name in ("INTERPOLATION", "UV_INTERPOLATION", "FRACTIONAL", "CREASE_METHOD", "TRIANGLE_RULE", "ORIENTATION"):
        assert literals["_" + name.title().replace("_", "")] == set(getattr(_words, name))
    assert re.fullmatch(r"\d+\.\d+\.\d+", qn_sds.__version__)


HALF = [[0.5, 0.5]]
RAY = [[0, 0, 5]], [[0, 0, -1]]
EMPTY = np.zeros((0, 3))


def with_property(value):
    return lambda _: qn_sds.Surface(*MESH, properties={"heat": value})


MISTAKES = {
    "level below": (lambda s: s.intersect(*RAY, level=-1), ValueError, "level: -1, expected a whole number from 0 to 12"),
    "level between": (lambda s: s.sample([0], HALF, level=2.5), TypeError, "level: 2.5 is no whole number"),
    "isolation": (lambda s: qn_sds.Surface(*MESH, isolation=11), ValueError, "isolation: 11, .* from 0 to 10"),
    "index -1": (lambda s: qn_sds.Surface(CUBE_POINTS, [3], [0, 1, -1]), qn_sds.MeshError, "face 0, corner 2: error: vertex index out of range .index -1"),
    "index 2^40": (lambda s: qn_sds.Surface(CUBE_POINTS, [3], [0, 2**40, 1]), qn_sds.MeshError,
                   "face 0, corner 1: .*index 1099511627776"),
    "hole 2^40": (lambda s: qn_sds.Surface(*MESH, holes=[2**40]), qn_sds.MeshError, "holes, entry 0: .*1099511627776"),
    "crease -1": (lambda s: qn_sds.Surface(*MESH, creases=[[0, -1]]), qn_sds.MeshError, "crease edge 0: .*index -1 of 8"),
    "group -1": (lambda s: qn_sds.Surface(*MESH, groups=[0, 0, 0, 0, 0, -1]), ValueError, "groups: index -1"),
    "primitive 2^40": (lambda s: s.sample([2**40], HALF), IndexError, "fragment 0: primitive 1099511627776"),
    "primitive 6": (lambda s: s.sample([6], HALF), IndexError, "primitive 6, the surface has 0 to 5"),
    "map": (lambda s: s.uv([0], HALF, 2.5), LookupError, "no UV maps"),
    "no points": (lambda s: qn_sds.Surface([], [], []), qn_sds.MeshError, "points: error: there are no points"),
    "no faces": (lambda s: qn_sds.Surface(CUBE_POINTS, [], []), qn_sds.MeshError, "face_counts: error: there are no faces"),
    "grid of 10^6": (lambda s: s.limit_grid(10**6), ValueError, "more than this machine can hold"),
    "grid of none": (lambda s: s.limit_grid(0), ValueError, "n: 0, expected a whole number from 1"),
    "rays": (lambda s: s.occluded(np.zeros((2, 3)), np.ones((3, 3))), ValueError, "3 for 2 origins"),
    "word": (lambda s: qn_sds.Surface(*MESH, interpolation=["smooth"]), ValueError, "unknown word"),
    "property": (lambda s: s.look_up("heat", [0], HALF), LookupError, "no property 'heat'"),
    "7 values": (with_property(np.zeros(7)), ValueError, "property 'heat': 7 values for 8 points"),
    "5 faces": (with_property(Property(np.zeros(5), "uniform")), ValueError, "5 values for 6 faces"),
    "kind": (with_property(Property(np.zeros(8), "faceVarying")), ValueError, "UV map, or kind 'vertex' with indices"),
    "nan": (with_property(np.full(8, np.nan)), ValueError, "not finite"),
    "text": (with_property(["a"] * 8), TypeError, "integers or reals"),
    "item": (with_property(Property(np.zeros(3), indices=CUBE_INDICES)), qn_sds.MeshError, "property 'heat', face-corner 2"),
    "times": (with_property(Property(np.zeros((2, 8)), times=[1, 1])), qn_sds.MeshError, "property 'heat'"),
}


@pytest.mark.parametrize("name", MISTAKES)
def test_mistakes_are_answered_by_a_sentence(name, cube):
    call, error, sentence = MISTAKES[name]
    with pytest.raises(error, match=sentence) as caught:
        call(cube)
    assert "incompatible function arguments" not in str(caught.value)


@pytest.mark.parametrize("isolation", [0, 2])
def test_negative_sharpness_is_a_finding_and_smooth(isolation):
    with pytest.warns(qn_sds.MeshWarning, match="crease edge 1: .*below zero.*-2.*2 cases"):
        surface = qn_sds.Surface(*MESH, creases=(CUBE_EDGES[:2], [0, -2]), corners=([0], [-1]), isolation=isolation)
    plain = qn_sds.Surface(*MESH, isolation=isolation)
    np.testing.assert_array_equal(surface.patches(), plain.patches())


def test_nothing_asked_is_nothing_answered(cube):
    assert cube.intersect([], []).t.shape == (0,) and cube.sample([], []).position.shape == (0, 3)
    assert cube.intersect(EMPTY, EMPTY).primitive.dtype == np.int32
