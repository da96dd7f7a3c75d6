"""Refusals: which error, and what it says."""

import ast
import os
import pathlib

import numpy as np
import pytest
from conftest import CUBE_COUNTS, CUBE_INDICES, CUBE_POINTS, grid

import qn_sds
from qn_sds import _arrays


def changed(array, index, value):
    array = np.array(array, np.float64 if isinstance(value, float) else np.int64)
    array.flat[index] = value
    return array


MESHES = {
    "negative index": (CUBE_POINTS, CUBE_COUNTS, changed(CUBE_INDICES, 6, -3), {},
                       "vertex_index_out_of_range", "face 1, corner 2", "index -3 of 8"),
    "index beyond 32 bits": (CUBE_POINTS, CUBE_COUNTS, changed(CUBE_INDICES, 0, 2**32), {},
                             "vertex_index_out_of_range", "face 0, corner 0", ""),
    "two corners": (CUBE_POINTS, [2, 4], [0, 1, 0, 1, 3, 2], {}, "small_polygon", "face 0", "2 corners"),
    "beyond float32": (changed(CUBE_POINTS, 0, 1e300), CUBE_COUNTS, CUBE_INDICES, {},
                       "non_finite_number", "point 0", "x"),
    "crease of nothing": (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, {"creases": [[0, 1], [0, 7]]},
                          "tag_without_edge", "crease edge 1", "points 0 and 7"),
    "uv index": (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, {"uvs": {"st": (np.zeros((3, 2)), CUBE_INDICES)}},
                 "uv_index_out_of_range", "UV map 'st', face 0, corner 2", "index 3 of 3"),
    "motion nan": (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, {"motion": np.full((8, 3), np.nan)},
                   "non_finite_number", "motion of point 0", "x"),
}


@pytest.mark.parametrize("name", MESHES)
def test_meshes_without_a_surface_say_what_and_where(name):
    points, counts, indices, more, code, place, detail = MESHES[name]
    with pytest.raises(qn_sds.MeshError) as caught:
        qn_sds.Surface(points, counts, indices, **more)
    found = [f for f in caught.value.findings if f.severity == "error" and f.code == code]
    assert len(found) == 1 and found[0].place == place and detail in found[0].detail
    assert str(found[0]) in str(caught.value)


@pytest.mark.parametrize(
    "error, arguments, more",
    [
        (ValueError, (CUBE_POINTS[:, :2], CUBE_COUNTS, CUBE_INDICES), {}),
        (ValueError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES[:-1]), {}),
        (TypeError, (CUBE_POINTS, CUBE_COUNTS.astype(float), CUBE_INDICES), {}),
        (TypeError, (CUBE_POINTS, CUBE_COUNTS), {}),
        (TypeError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES), {"faceVertexCount": CUBE_COUNTS}),
        (TypeError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES), {"faceVertexCounts": CUBE_COUNTS}),
        (ValueError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES), {"interpolation": "smooth-ish"}),
        (ValueError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES), {"subdivisionScheme": "loop"}),
        (ValueError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES), {"orientation": "upsideDown"}),
        (ValueError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES), {"groups": [0, 0, 0, 0, 0, 5], "group_names": ["a"]}),
        (ValueError, (CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES), {"motion": ([0.0, 0.0], np.zeros((2, 8, 3)))}),
    ],
)
def test_wrong_arguments_are_python_errors(error, arguments, more):
    with pytest.raises(error) as caught:
        qn_sds.Surface(*arguments, **more)
    assert not isinstance(caught.value, qn_sds.MeshError)


def test_fragments_rays_and_levels_are_checked(cube):
    half = [[0.5, 0.5]]
    for primitive in (6, -2, 2**40):
        with pytest.raises(IndexError, match="fragment 0"):
            cube.sample([primitive], half)
    for uv in ([[1.01, 0.5]], [[0.5, np.nan]]):
        with pytest.raises(ValueError, match="between 0 and 1"):
            cube.sample([0], uv)
    with pytest.raises(ValueError, match="from 0 to 12"):
        cube.intersect([[0, 0, 5]], [[0, 0, -1]], level=13)
    with pytest.raises(ValueError, match="8"):
        cube.update(CUBE_POINTS[:7])
    idle = cube.intersect([[0, 0, 5], [np.nan, 0, 5], [0, 0, 5]], [[0, 0, -1], [0, 0, -1], [0, 0, 0]])
    assert list(idle.hit) == [True, False, False]


def test_a_refused_update_changes_nothing(cube):
    patches = cube.patches()
    with pytest.raises(qn_sds.MeshError):
        cube.update(np.full((8, 3), np.inf))
    assert np.array_equal(cube.patches(), patches)


def test_nonmanifold_edges_and_vertices_are_warned_of():
    points, counts, indices = grid(1)
    fan = np.concatenate([points, [[0, 0, 1], [1, 0, 1], [0, 0, -1], [1, 0, -1]]]).astype(np.float32)
    with pytest.warns(qn_sds.MeshWarning, match="points 0 and 1"):
        surface = qn_sds.Surface(fan, [4, 4, 4], np.concatenate([indices, [0, 1, 5, 4, 0, 1, 7, 6]]))
    assert surface.quad_count == 3
    with pytest.warns(qn_sds.MeshWarning, match="face 1, corner 0: .* meet at a vertex alone.*point 2"):
        qn_sds.Surface(np.eye(5, 3), [3, 3], [0, 1, 2, 2, 3, 4])


def test_files_name_their_lines(tmp_path):
    with pytest.raises(FileNotFoundError):
        qn_sds.load_obj(tmp_path / "none.obj")
    path = tmp_path / "bad.obj"
    path.write_text("v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 9\n")
    with pytest.raises(qn_sds.MeshError) as caught:
        qn_sds.load_obj(path)
    assert caught.value.findings[0].place == f"{path}:4"


def test_names_of_files_and_groups_may_be_any_bytes(tmp_path):
    path = os.fsencode(tmp_path) + b"/caf\xe9.obj"
    with open(path, "wb") as file:
        file.write(b"usemtl Stra\xdfe\nv 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 3\n")
    with pytest.warns(qn_sds.MeshWarning, match="Latin-1"):
        surface = qn_sds.load_obj(path)
    assert surface.info["shading_groups"] == ["Straße"]
    assert surface.findings[0].place == os.fsdecode(path) + ":1"
    with open(path, "ab") as file:
        file.write(b"f 1 2 9\n")
    with pytest.raises(qn_sds.MeshError) as caught:
        qn_sds.load_obj(path)
    assert os.fsdecode(path) in str(caught.value)


def test_arrays_of_the_right_type_are_not_copied():
    points = np.zeros((5, 3), np.float32)
    assert np.shares_memory(_arrays.points(points, "points"), points)
    for kind in (np.int32, np.uint32):
        indices = np.arange(6, dtype=kind)
        assert np.shares_memory(_arrays.indices(indices, "indices"), indices)


def test_stubs_name_what_the_package_has():
    package = pathlib.Path(qn_sds.__file__).parent
    tree = ast.parse((package / "__init__.pyi").read_text())
    classes = {node.name: node for node in tree.body if isinstance(node, ast.ClassDef)}
    functions = {node.name for node in tree.body if isinstance(node, ast.FunctionDef)}
    assert {name for name in classes if name[0] != "_"} | functions == set(qn_sds.__all__)
    for each in (qn_sds.Surface, qn_sds.Scene):
        members = {node.name for node in classes[each.__name__].body if isinstance(node, ast.FunctionDef)}
        assert {m for m in members if m[0] != "_"} == {m for m in vars(each) if m[0] != "_"}
