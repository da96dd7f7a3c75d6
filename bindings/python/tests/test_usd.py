"""Scenes of USD layers: against the program's pictures, against surfaces of arrays, and layers that are broken."""

import os
import pickle
import random
import subprocess
from pathlib import Path

import numpy as np
import pytest
from conftest import CUBE_COUNTS, CUBE_INDICES, CUBE_POINTS, random_fragments, random_rays, read_exr

import qn_sds

ROOT = Path(__file__).resolve().parents[3]
SDS = os.environ.get("SDS", "build/bin/sds")


def text_of(array):
    rows = np.asarray(array).tolist()
    return "[" + ", ".join(f"({', '.join(map(repr, row))})" if isinstance(row, list) else repr(row) for row in rows) + "]"


FACES = f"int[] faceVertexCounts = {text_of(CUBE_COUNTS)}; int[] faceVertexIndices = {text_of(CUBE_INDICES)}; "
FACE_UVS = np.tile([[0.0, 0.0], [1.0, 0.0], [1.0, 1.0], [0.0, 1.0]], (6, 1)).astype(np.float32)
FACE_COLORS = np.linspace(0, 1, 18).reshape(6, 3).astype(np.float32)
HEAT = np.arange(8.0, dtype=np.float32)
LAYER = f"""#usda 1.0
( upAxis = "Z"; startTimeCode = 1; endTimeCode = 5; timeCodesPerSecond = 24 )
def Xform "World" {{
    double3 xformOp:translate.timeSamples = {{ 1: (0, 0, 0), 3: (0, 2, 1) }}
    uniform token[] xformOpOrder = ["xformOp:translate"]
    def Mesh "Colored" {{
        point3f[] points = {text_of(CUBE_POINTS)}; {FACES}
        texCoord2f[] primvars:st = {text_of(FACE_UVS)} (interpolation = "faceVarying")
        color3f[] primvars:displayColor = {text_of(FACE_COLORS)} (interpolation = "uniform")
        float[] primvars:heat = {text_of(HEAT)} (interpolation = "vertex")
        vector3f primvars:flow.timeSamples = {{ 1: (1, 2, 3), 4: (5, 5, 5) }}
        uniform token interpolateBoundary = "edgeOnly"; uniform token faceVaryingLinearInterpolation = "cornersPlus2"
        int[] creaseIndices = [0, 1, 3]; int[] creaseLengths = [3]; float[] creaseSharpnesses = [2.5]
        int[] cornerIndices = [6]; float[] cornerSharpnesses = [10]; int[] holeIndices = [2]
        def GeomSubset "Red" {{ int[] indices = [0, 1]; uniform token familyName = "materialBind" }}
    }}
    def Xform "Right" {{
        double3 xformOp:translate = (4, 0, 0); double xformOp:rotateZ.timeSamples = {{ 1: 0, 5: 170 }}
        uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateZ"]
        def Mesh "Plain" {{ point3f[] points = {text_of(CUBE_POINTS)}; {FACES} }}
        def Mesh "Again" {{
            point3f[] points = {text_of(CUBE_POINTS)}; {FACES}
            double3 xformOp:translate = (0, 0, 3); uniform token[] xformOpOrder = ["xformOp:translate"]
        }}
    }}
    def Mesh "Growing" {{
        point3f[] points.timeSamples = {{ 1: {text_of(CUBE_POINTS - 4)}, 2: {text_of(1.5 * CUBE_POINTS - 4)},
            5: {text_of(CUBE_POINTS - 4)} }}
        {FACES}
    }}
}}
def Mesh "Guide" {{ uniform token purpose = "guide"; point3f[] points = {text_of(CUBE_POINTS)}; {FACES} }}
def Camera "Eye" {{
    double3 xformOp:translate.timeSamples = {{ 1: (-1, -2, 24), 5: (3, -1, 20) }}
    uniform token[] xformOpOrder = ["xformOp:translate"]
    float focalLength.timeSamples = {{ 1: 40, 5: 60 }}; float fStop = 0.4; float focusDistance = 22
    double shutter:open = -0.25; double shutter:close = 1.5
}}
def Camera "Flat" {{
    double3 xformOp:translate = (0, 0, 24); uniform token[] xformOpOrder = ["xformOp:translate"]
    token projection = "orthographic"; float horizontalAperture = 120
}}
def Camera "Blind" {{ float focalLength = 0 }}
"""
PLACES = ("/World/Colored", "/World/Right/Plain", "/World/Right/Again", "/World/Growing")


@pytest.fixture
def layer(tmp_path):
    path = tmp_path / "scene.usda"
    path.write_text(LAYER)
    return path


# What load_usd and render are asked, and the same in the program's words; {sky} is a picture of the first case.
PICTURES = {
    "framed": ({}, {"azimuth": 20, "elevation": 40}, "--view 20,40"),
    "a moving camera with a lens": ({"camera": "/Eye", "frame": 2}, {"wire": True}, "--camera /Eye --frame 2 --wire"),
    "a parallel camera": ({"frame": 4.5, "shutter": (-1, 0.5)}, {"camera": "/Flat", "checker": True},
                          "--frame 4.5 --shutter -1 0.5 --camera /Flat --checker"),
    "motion under a sun": ({"shutter": (0, 2), "level": 3}, {"sun": (120, 40), "sun_strength": 2.5, "color_by": "heat"},
                           "--shutter 0 2 --level 3 --sun 120 40 --sun-strength 2.5 --color-by heat"),
    "from a place": ({"isolation": 4, "fractional": "drop", "interpolation": "smooth", "uv_interpolation": "all"},
                     {"camera": ((-3, -9, 4), (0, 0, 0)), "field_of_view": 30, "environment": "{sky}",
                      "color_by": "flow", "color_map": "heat", "color_range": (0, 5)},
                     "--isolation 4 --fractional drop --interpolation smooth --uv-interpolation all --position -3 -9 4 "
                     "--target 0 0 0 --field-of-view 30 --environment {sky} --color-by flow --color-map heat "
                     "--color-range 0 5"),
    "dice": ({"camera": "/Camera", "frame": 12}, {"checker": True}, "--camera /Camera --frame 12 --checker"),
}


@pytest.mark.filterwarnings("ignore::qn_sds.MeshWarning")
@pytest.mark.parametrize("name", PICTURES)
def test_pictures_are_the_programs_bit_for_bit(name, layer, tmp_path):
    sky, out = tmp_path / "sky.exr", tmp_path / "out.exr"
    loading, rendering, words = PICTURES[name]
    file = ROOT / "assets" / "dice.usda" if name == "dice" else layer
    size = ["--width", "64", "--height", "32", "--samples", "4", "--quiet"]
    if "{sky}" in words:
        subprocess.run([SDS, "render", layer, "-o", sky, *size], check=True)
        rendering = {**rendering, "environment": sky}
    layers = ["Z", "P", "N", "uv", "object", "group", "id", "color"] + (name != "dice") * ["prop:heat", "prop:flow"]
    subprocess.run([SDS, "render", file, "-o", out, *size, "--aov", ",".join(layers), *words.format(sky=sky).split()],
                   check=True)
    scene = qn_sds.load_usd(file, **loading)
    expected = read_exr(out)
    for each in (scene, pickle.loads(pickle.dumps(scene))):
        picture = each.render(64, 32, samples=4, layers=layers, **rendering)
        assert np.isfinite(picture["Z"]).mean() > 0.05
        for key, values in picture.items():
            channel = key.removeprefix("prop:")
            names = "RGBA" if key == "rgba" else [n for n in expected if n.split(".")[0] == channel]
            names = sorted(names, key=lambda n: "RGBAXYZW".find(n[-1]))
            wanted = np.stack([expected[n] for n in names], axis=-1) if values.ndim == 3 else expected[channel]
            np.testing.assert_array_equal(values.astype(wanted.dtype), wanted, err_msg=key)


def test_meshes_of_a_layer_are_those_of_their_arrays(layer):
    scene = qn_sds.load_usd(layer, frame=1, shutter=(0, 1))
    layer.unlink()
    assert scene.names == PLACES and scene.up == "z" and scene.frames == (1, 5) and len(scene) == 4
    assert scene[PLACES[1]] is scene[PLACES[2]] is not scene[PLACES[0]]
    assert set(scene.cameras) == {"/Eye", "/Flat"} and scene.findings == ()
    np.testing.assert_allclose(scene.cameras["/Eye"].times, [0, 1])
    surface = qn_sds.Surface(
        CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, uvs={"st": FACE_UVS}, colors=(FACE_COLORS, np.repeat(np.arange(6), 4)),
        properties={"heat": HEAT, "flow": qn_sds.Property(np.float32([[1, 2, 3], [7 / 3, 3, 11 / 3]]), "constant",
                                                          times=[0, 1])},
        groups=[0, 0, 1, 1, 1, 1], group_names=["Red", "default"], creases=([[0, 1], [1, 3]], 2.5), corners=[6],
        holes=[2], interpolation="edgeOnly", uv_interpolation="cornersPlus2",
    )
    growing = qn_sds.Surface(CUBE_POINTS - 4, CUBE_COUNTS, CUBE_INDICES,
                             motion=([0.0, 1.0], [CUBE_POINTS - 4, 1.5 * CUBE_POINTS - 4]))
    copy = pickle.loads(pickle.dumps(scene))
    for name, wanted in ((PLACES[0], surface), (PLACES[3], growing)):
        primitives, uv = random_fragments(wanted, 400, 1)
        for found in (scene[name], copy[name], pickle.loads(pickle.dumps(scene[name]))):
            for time in (0.0, 0.75):
                np.testing.assert_array_equal(found.patches(time=time), wanted.patches(time=time))
            assert {**found.info, "bytes": 0} == {**wanted.info, "bytes": 0}
            np.testing.assert_array_equal(found.quad_groups, wanted.quad_groups)
            for map in wanted.info["uv_maps"]:
                np.testing.assert_array_equal(found.uv(primitives, uv, map), wanted.uv(primitives, uv, map))
                np.testing.assert_array_equal(found.color(primitives, uv), wanted.color(primitives, uv))
            for each in wanted.property_names:
                np.testing.assert_array_equal(found.look_up(each, primitives, uv), wanted.look_up(each, primitives, uv))

    def turned(degrees, shift):
        c, s = np.cos(np.radians(degrees)), np.sin(np.radians(degrees))
        return np.array([[c, s, 0, 0], [-s, c, 0, 0], [0, 0, 1, 0], [*shift, 1]])

    times = np.linspace(0, 1, 65)
    way = [turned(170 / 4 * t, (4, t, 0.5 * t)) for t in times], [turned(170 / 4 * t, (4, t, 3 + 0.5 * t)) for t in times]
    drift = [turned(0, (0, t, 0.5 * t)) for t in times]
    plain = scene[PLACES[1]]
    arrays = qn_sds.Scene([surface, plain, plain, growing], [(times, each) for each in (drift, *way, drift)], names=PLACES)
    origins, directions = random_rays(scene, 4000, 2)
    moments = np.random.default_rng(3).random(4000)
    expected, found = (each.intersect(origins, directions, time=moments) for each in (arrays, scene))
    same = expected.instance == found.instance
    assert np.mean(same) > 0.999 and set(scene.names_of(found)) == {*PLACES, ""}
    np.testing.assert_allclose(found.t[same], expected.t[same], rtol=1e-3)
    np.testing.assert_array_equal(copy.intersect(origins, directions, time=moments), found)
    np.testing.assert_array_equal(scene.occluded(origins, directions, time=moments), found.hit)


@pytest.mark.filterwarnings("ignore::qn_sds.MeshWarning")
def test_broken_layers_are_refused_at_their_place_and_none_is_too_broken(tmp_path):
    path = tmp_path / "broken.usda"
    folder = ROOT / "tests" / "cages" / "broken_usda"
    expected = [line for line in (folder / "expected.txt").read_text().splitlines() if ": error: " in line]
    for line in expected:
        name = line.split(":")[0]
        path.write_bytes((folder / f"{name}.usda").read_bytes())
        with pytest.raises(qn_sds.MeshError) as caught:
            qn_sds.load_usd(path)
        assert line.replace(name, str(path), 1) in str(caught.value).splitlines()
    source = random.Random(5)
    whole = LAYER.encode()
    for _ in range(400):
        text = bytearray(whole)
        for _ in range(source.randrange(1, 4)):
            at = source.randrange(len(text))
            text[at : at + source.choice([0, 1, 1, 30])] = source.choice([b"", b"9", b"-", b"\xff", b"(", b"None", b"1e38"])
        path.write_bytes(bytes(text))
        try:
            scene = qn_sds.load_usd(path, isolation=1, shutter=(0, 1))
            scene.render(8, 8, samples=1, time=0.5)
            pickle.loads(pickle.dumps(scene))
        except (qn_sds.MeshError, ValueError):
            pass


MISTAKES = {
    "no file": (lambda path: qn_sds.load_usd(path.parent / "none.usda"), OSError, "none.usda"),
    "no camera": (lambda path: qn_sds.load_usd(path, camera="/Eve"), ValueError, "no camera '/Eve'; there are /Eye, /Flat"),
    "a blind camera": (lambda path: qn_sds.load_usd(path, camera="/Blind"), ValueError, "/Blind has no aperture"),
    "a camera by no name": (lambda path: qn_sds.load_usd(path).render(8, 8, camera="/Blind"), LookupError, "there are"),
    "shutter": (lambda path: qn_sds.load_usd(path, shutter=(1, 0)), ValueError, "shutter: expected one, or"),
    "frame": (lambda path: qn_sds.load_usd(path, frame=np.nan), ValueError, "frame: "),
    "word": (lambda path: qn_sds.load_usd(path, uv_interpolation="most"), ValueError, "uv_interpolation: unknown word"),
    "prim": (lambda path: qn_sds.load_usd(path)["/World"], KeyError, "no surface '/World'"),
    "property": (lambda path: qn_sds.load_usd(path).render(8, 8, color_by="cold"), ValueError, "known are heat, flow"),
    "ramp": (lambda path: qn_sds.load_usd(path).render(8, 8, color_by="heat", color_map="jet"), ValueError, "jet"),
    "sky": (lambda path: qn_sds.load_usd(path).render(8, 8, environment=path), ValueError, "scene.usda"),
    "map": (lambda path: qn_sds.load_usd(path).render(8, 8, checker=True, map=1), LookupError, "there are 1 UV maps"),
    "names": (lambda path: qn_sds.Scene(qn_sds.load_usd(path)._surfaces, names="aabc"), ValueError, "3 of them different"),
    "way": (lambda path: qn_sds.Scene([qn_sds.load_usd(path)[PLACES[0]]], [([0, 0], np.tile(np.eye(4), (2, 1, 1)))]),
            ValueError, "strictly increasing"),
}


@pytest.mark.parametrize("name", MISTAKES)
def test_mistakes_are_answered_by_a_sentence(name, layer):
    call, error, sentence = MISTAKES[name]
    with pytest.raises(error, match=sentence):
        call(layer)
