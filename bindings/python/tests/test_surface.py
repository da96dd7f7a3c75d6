"""What a surface answers, against closed forms and the program."""

import os
import subprocess
import threading

import numpy as np
import pytest
from conftest import CUBE_COUNTS, CUBE_EDGES, CUBE_INDICES, CUBE_POINTS, KNOT, grid, random_fragments, random_rays

import qn_sds


def test_regular_sheet_keeps_its_plane_and_its_parameters():
    surface = qn_sds.Surface(*grid(6, lambda x, y: 2.0 * x - 3.0 * y + 1.0))
    inner = np.array([7, 10, 14, 28])
    uv = np.random.default_rng(3).random((4, 2))
    got = surface.sample(inner, uv)
    xy = (np.stack([inner % 6, inner // 6], axis=1) + uv) / 6.0
    assert np.allclose(got.position[:, :2], xy, atol=2e-7)
    assert np.allclose(got.position[:, 2], 2.0 * xy[:, 0] - 3.0 * xy[:, 1] + 1.0, atol=2e-6)
    normal = np.array([-2.0, 3.0, 1.0]) / np.sqrt(14.0)
    assert np.allclose(got.normal, normal, atol=1e-5) and np.allclose(got.smoothing_normal, normal, atol=1e-5)
    assert np.allclose(got.dpdu, [1 / 6, 0, 2 / 6], atol=2e-6)


def test_limit_points_are_the_samples_in_single_precision(knot):
    primitives, uv = random_fragments(knot, 3001, 6)
    primitives[[0, 1500, 3000]] = -1
    points, samples = knot.limit_points(primitives, uv), knot.sample(primitives, uv)
    for got, expected in zip(points, samples):
        assert got.dtype == np.float32 and np.allclose(got, expected, atol=1e-5, equal_nan=True)


def test_rays_are_segments_and_may_miss(knot):
    origins, directions = random_rays(knot, 3000, 11)
    hits = knot.intersect(origins, directions)
    assert 500 < np.count_nonzero(hits.hit) < 3000
    assert np.all(np.isnan(knot.sample(hits.primitive, hits.uv).position[~hits.hit]))
    assert np.all(np.isinf(hits.t[~hits.hit]))
    # the same rays as segments that end before the hit, and begin behind it
    assert not knot.intersect(origins, directions, tfar=np.where(hits.hit, hits.t * 0.999, 0.1)).hit.any()
    again = knot.intersect(origins, directions, tnear=np.where(hits.hit, hits.t * 1.001, 0.0))
    assert np.all(again.t[hits.hit] > hits.t[hits.hit])


@pytest.mark.parametrize("level", [0, 3])
def test_hits_are_those_of_the_program(tmp_path, knot, level):
    origins, directions = random_rays(knot, 2000, 17)
    rays = np.concatenate([origins, directions, np.zeros((2000, 1)), np.full((2000, 1), np.inf)], axis=1)
    np.save(tmp_path / "rays.npy", rays)
    program = os.environ.get("SDS", "build/bin/sds")
    subprocess.run(
        [program, "intersect", KNOT, "--rays", tmp_path / "rays.npy", "--hits", tmp_path / "hits.npy",
         "--level", str(level), "--quiet"],
        check=True,
    )
    hits = knot.intersect(origins, directions, level)
    assert np.array_equal(np.load(tmp_path / "hits.npy"), np.stack(hits, axis=1))


def test_creased_cube_stays_a_cube_in_both_dialects():
    surface = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, creases=CUBE_EDGES)
    assert surface.area == pytest.approx(24.0, rel=1e-5)
    assert np.allclose(surface.bbox, [[-1, -1, -1], [1, 1, 1]])
    usd = qn_sds.Surface(
        points=CUBE_POINTS,
        faceVertexCounts=CUBE_COUNTS,
        faceVertexIndices=CUBE_INDICES,
        creaseIndices=[0, 1, 3, 2, 0, 4, 5, 7, 6, 4, 0, 4, 1, 5, 2, 6, 3, 7],
        creaseLengths=[5, 5, 2, 2, 2, 2],
        creaseSharpnesses=[10.0] * 6,
        interpolateBoundary="edgeAndCorner",
        subdivisionScheme="catmullClark",
    )
    assert np.array_equal(usd.patches(), surface.patches())


def test_fractional_sharpness_is_hardened_with_a_warning_or_dropped(cube):
    creases = (CUBE_EDGES, np.full(12, 2.5))
    with pytest.warns(qn_sds.MeshWarning, match="fractional sharpness.*12 cases"):
        hard = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, creases=creases, fractional="harden")
    assert hard.area == pytest.approx(24.0, rel=1e-5)
    with pytest.warns(qn_sds.MeshWarning):
        soft = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, creases=creases, fractional="drop")
    assert np.array_equal(soft.patches(), cube.patches())
    assert [f.code for f in soft.findings] == ["fractional_sharpness"]


def test_interpolation_words_choose_what_stays():
    sheet = grid(4)
    corner = np.array([0.0, 0.0])
    for word, stays in (("edgeAndCorner", True), ("bilinear", True), ("bordersFixed", True), ("edgeOnly", False)):
        at = qn_sds.Surface(*sheet, interpolation=word).sample([0], [[0.0, 0.0]]).position[0, :2]
        assert np.allclose(at, corner, atol=1e-7) == stays, word


def test_uv_maps_from_pairs_points_and_corners_agree():
    points, counts, indices = grid(5)
    st = points[:, :2] * 3.0
    maps = {"pair": (st, indices), "points": st, "corners": st[indices]}
    surface = qn_sds.Surface(points, counts, indices, uvs=maps, uv_interpolation="all_fixed")
    primitives, uv = random_fragments(surface, 200, 23)
    expected = 3.0 * (np.stack([primitives % 5, primitives // 5], axis=1) + uv) / 5.0
    for name in maps:
        got = surface.uv(primitives, uv, name)
        assert np.allclose(got.uvw[:, :2], expected, atol=1e-6), name
        assert np.allclose(got.du, [0.6, 0.0, 0.0], atol=1e-6) and np.allclose(got.dv, [0.0, 0.6, 0.0], atol=1e-6)
    # Values per corner are one map in the smoothing modes too, not a chart per face.
    smooth = qn_sds.Surface(points, counts, indices, uvs=maps, uv_interpolation="all_smoothed")
    assert smooth.info["uv_points"] == {"split": 0, "welded": 4 * 25 - 36}
    for name in maps:
        assert np.array_equal(smooth.uv(primitives, uv, name).uvw, smooth.uv(primitives, uv, "pair").uvw), name


def test_faces_mapped_at_some_corners_only_become_unmapped():
    points, counts, indices = grid(2)
    uv_indices = indices.astype(np.int64)
    uv_indices[5] = -1
    with pytest.warns(qn_sds.MeshWarning, match="face 1"):
        surface = qn_sds.Surface(points, counts, indices, uvs=(points[:, :2], uv_indices))
    got = surface.uv([0, 1, -1], np.full((3, 2), 0.5)).uvw
    assert list(np.isnan(got).all(axis=1)) == [False, True, True]


def test_colors_follow_their_points():
    points, counts, indices = grid(1)
    surface = qn_sds.Surface(points, counts, indices, colors=[[1.0, 0, 0], [0, 1, 0], [0, 0, 1], [1, 1, 1]],
                             interpolation="bilinear")
    got = surface.color([0, 0], [[0, 0], [0, 1]])
    assert np.allclose(got, [[1, 0, 0, 1], [0, 0, 1, 1]])


def test_polygons_become_quads_with_their_faces_and_groups():
    points = np.array([[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0], [2, 0.5, 0]])
    surface = qn_sds.Surface(points, [4, 3], [0, 1, 2, 3, 1, 4, 2], groups=[1, 0], group_names=["wing", "body"])
    assert surface.quads.shape == (7, 4)
    assert list(surface.quad_faces) == [0] * 4 + [1] * 3
    assert list(surface.quad_groups) == [1] * 4 + [0] * 3
    info = surface.info
    assert (info["points"], info["faces"], info["quads"], info["subdivision_step"]) == (5, 2, 7, True)
    assert info["shading_groups"] == ["wing", "body"]


def test_motion_vectors_and_time_samples_move_the_limit():
    points, counts, indices = grid(4, lambda x, y: np.sin(3 * x) * y)
    shift = np.array([0.0, 0.0, 2.0], np.float32)
    rest = qn_sds.Surface(points, counts, indices)
    vectors = qn_sds.Surface(points, counts, indices, motion=np.broadcast_to(shift, points.shape))
    times = np.array([0.0, 0.5, 1.0])
    samples = qn_sds.Surface(points, counts, indices, motion=(times, points + times[:, None, None] * shift))
    still = rest.limit_grid(3).position
    for surface in (vectors, samples):
        assert np.allclose(surface.limit_grid(3, time=0.25).position, still + 0.25 * shift, atol=1e-6)
    origins = np.array([[0.3, 0.6, 9.0]] * 3)
    hits = vectors.intersect(origins, [[0, 0, -1]] * 3, time=[0.0, 0.5, 1.0])
    assert np.allclose(np.diff(hits.t), -1.0, atol=1e-5)


def test_update_equals_a_new_surface_and_leaves_views_alone(cube):
    before = cube.vertices
    kept = before.copy()
    moved = CUBE_POINTS * 2.0 + 1.0
    cube.update(moved)
    fresh = qn_sds.Surface(moved, CUBE_COUNTS, CUBE_INDICES)
    assert np.array_equal(cube.patches(), fresh.patches())
    assert np.array_equal(cube.bbox, fresh.bbox)
    rays = random_rays(fresh, 200, 29)
    assert np.array_equal(cube.intersect(*rays).t, fresh.intersect(*rays).t)
    assert np.array_equal(before, kept) and np.array_equal(cube.vertices, moved)


def test_views_are_read_only_and_outlive_the_surface():
    surface = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES)
    vertices, quads = surface.vertices, surface.quads
    for view in (vertices, quads, surface.neighbours):
        with pytest.raises(ValueError):
            view[0] = 0
    del surface
    assert np.array_equal(vertices, CUBE_POINTS) and np.array_equal(quads.ravel(), CUBE_INDICES)


def test_threads_see_one_surface_or_the_other_while_it_is_updated(cube):
    rays = random_rays(cube, 4000, 31)
    answers = [qn_sds.Surface(CUBE_POINTS * s, CUBE_COUNTS, CUBE_INDICES).intersect(*rays).t for s in (1.0, 1.5)]
    wrong = []

    def trace():
        for _ in range(20):
            t = cube.intersect(*rays).t
            if not any(np.array_equal(t, answer) for answer in answers):
                wrong.append(t)

    threads = [threading.Thread(target=trace) for _ in range(2)]
    for thread in threads:
        thread.start()
    for i in range(40):
        cube.update(CUBE_POINTS * (1.5 if i % 2 == 0 else 1.0))
    for thread in threads:
        thread.join()
    assert not wrong


def test_other_python_threads_run_during_a_call(knot):
    rays = random_rays(knot, 120_000, 37)  # one chunk, between which signals are looked at
    knot.intersect(*rays)  # builds the hierarchy

    def count_turns():
        """How often this thread had its turn while another one was in the call."""
        ended, turns = threading.Event(), 0
        thread = threading.Thread(target=lambda: (knot.intersect(*rays), ended.set()))
        thread.start()
        while not ended.wait(0.0005):
            turns += 1
        thread.join()
        return turns

    # A call that kept the GIL would leave a turn or two, before it begins.
    assert max(count_turns() for _ in range(5)) > 10


def test_isolation_follows_sharpness_holes_and_corners(tmp_path):
    """The same tagged cube as arrays and as a file; hits, samples and batches agree with each other on its quads."""
    ring = [[4, 5], [5, 7], [7, 6], [6, 4]]
    surface = qn_sds.Surface(
        CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, isolation=3, creaseIndices=[4, 5, 7, 6, 4, 0, 1], creaseLengths=[5, 2],
        creaseSharpnesses=[2.5, 0.75], cornerIndices=[2], cornerSharpnesses=[1.5], holeIndices=[1],
    )
    lines = ["v {} {} {}".format(*point) for point in CUBE_POINTS]
    lines += ["f {} {} {} {}".format(*face) for face in CUBE_INDICES.reshape(-1, 4) + 1]
    lines += [f"t crease 2/1/0 {a} {b} 2.5" for a, b in ring] + ["t crease 2/1/0 0 1 0.75"]
    lines += ["t corner 1/1/0 2 1.5", "t hole 1/0/0 1"]
    path = tmp_path / "tagged.obj"
    path.write_text("\n".join(lines))
    from_file = qn_sds.load_obj(path, isolation=3)
    np.testing.assert_array_equal(surface.patches(), from_file.patches())
    np.testing.assert_array_equal(surface.patch_places, from_file.patch_places)
    assert surface.findings == () and surface.quad_count == 6
    assert surface.info["isolation"]["patches"] == len(surface.patch_places) > 5 * 4**3 / 2
    assert 1 not in surface.patch_places[:, 0]

    origins, directions = random_rays(surface, 2000, 3)
    hits = surface.intersect(origins, directions)
    assert hits.hit.mean() > 0.2 and 1 not in hits.primitive
    samples, points = surface.sample(hits.primitive, hits.uv), surface.limit_points(hits.primitive, hits.uv)
    on_ray = origins + hits.t[:, None] * directions
    np.testing.assert_allclose(samples.position[hits.hit], on_ray[hits.hit], atol=2e-5)
    for name in ("position", "dpdu", "dpdv"):
        np.testing.assert_allclose(getattr(points, name), getattr(samples, name), atol=2e-4)
    whole = surface.select(inside=True)
    np.testing.assert_array_equal(whole, [0, 2, 3, 4, 5])
    assert np.isnan(surface.limit_grid(2).position[1]).all() and np.isfinite(surface.limit_grid(2).position[0]).all()

    with pytest.warns(qn_sds.MeshWarning):
        plain = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, isolation=0, holeIndices=[1],
                               corners=([2], [1.5]), creases=(ring, 2.5))
    assert {finding.code for finding in plain.findings} == {"unkept_hole", "unkept_corner", "fractional_sharpness"}


def test_left_handed_faces_are_turned_over():
    turned = [face[[0, 3, 2, 1]] for face in CUBE_INDICES.reshape(-1, 4)]
    uvs = np.arange(48, dtype=np.float32).reshape(24, 2) / 48
    left = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, orientation="leftHanded", uvs=uvs, isolation=1)
    np.testing.assert_array_equal(left.quads, turned)
    right = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, uvs=uvs, isolation=1)
    random = np.random.default_rng(1).random((20, 2))
    np.testing.assert_allclose(
        left.uv(np.full(20, 2), random[:, ::-1]).uvw, right.uv(np.full(20, 2), random).uvw, atol=1e-6
    )
    np.testing.assert_allclose(
        left.sample(np.full(20, 2), random[:, ::-1]).normal, -right.sample(np.full(20, 2), random).normal, atol=1e-5
    )


def test_a_frustum_selects_quads_of_patches_that_cover_four():
    """By a slab across a sheet with one triangle: quads whose samples lie within it, or partly so."""
    points, counts, indices = grid(6, lambda x, y: 0.3 * np.sin(5 * x) * np.cos(4 * y))
    faces = [face for face in indices.reshape(-1, 4)]
    faces[0:1] = [faces[0][:3], faces[0][[0, 2, 3]]]
    surface = qn_sds.Surface(points, [len(face) for face in faces], np.concatenate(faces), isolation=2)
    assert (surface.patch_places[:, 1] < 0).sum() > 10
    x = surface.limit_grid(8).position[..., 0].reshape(surface.quad_count, -1)
    slab = [[1, 0, 0, -0.29], [-1, 0, 0, 0.63]]
    touched, held = surface.select(slab), surface.select(slab, inside=True)
    np.testing.assert_array_equal(held, np.flatnonzero((x.min(1) >= 0.29) & (x.max(1) <= 0.63)))
    np.testing.assert_array_equal(touched, np.flatnonzero((x.max(1) >= 0.29) & (x.min(1) <= 0.63)))
    assert 0 < len(held) < len(touched) < surface.quad_count
    assert len(surface.select(near=[0, 0, 1, -100])) == 0
