"""Where Python ends and plain memory begins."""

import subprocess
import sys

import fuzz_boundary
import numpy as np
import pytest
from conftest import CUBE_COUNTS, CUBE_INDICES, CUBE_POINTS

import qn_sds


def test_spoiled_arguments_are_refused_or_give_finite_answers():
    refused = fuzz_boundary.run(seed=1, count=1500)
    assert 200 < refused < 1300


@pytest.mark.parametrize("cells", [2**32 - 1, 2**31 - 1, 2**30 - 1, 2**20])
def test_grids_that_no_machine_holds_are_refused(cube, cells):
    with pytest.raises(ValueError, match="more than this machine can hold"):
        cube.limit_grid(cells)


@pytest.mark.parametrize("kind", [">i4", ">u4", "<i8", ">i8", "i1", "u2"])
def test_indices_of_any_byte_order_and_width_mean_the_same(cube, kind):
    surface = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS.astype(kind), CUBE_INDICES.astype(kind))
    assert np.array_equal(surface.patches(), cube.patches())
    with pytest.raises(qn_sds.MeshError, match=r"index 8 of 8"):
        qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, (CUBE_INDICES + 1).astype(kind))


def test_times_that_carry_points_away_are_refused():
    moving = qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES, motion=CUBE_POINTS)
    ray = [[0, 0, 5]], [[0, 0, -1]]
    for call in (
        lambda time: moving.patches(time=time),
        lambda time: moving.limit_grid(2, time=time),
        lambda time: moving.sample([0], [[0.5, 0.5]], time=time),
        lambda time: moving.intersect(*ray, time=time),
    ):
        call(1e6)
        with pytest.raises(ValueError, match="beyond"):
            call(1e39)


THREAD_AT_EXIT = """
import sys, threading, time
import numpy as np, qn_sds
surface = qn_sds.load_obj({path!r})
directions = np.random.default_rng(1).normal(size=(200000, 3))
def work():
    while True:
        {call}
threading.Thread(target=work, daemon=True).start()
time.sleep({delay})
print("end")
sys.exit(3)
"""


@pytest.mark.parametrize("call", ["surface.intersect(-3 * directions, directions)", "surface.limit_grid(60)",
                                  "qn_sds.Scene([surface]).render()",
                                  "surface.update(np.zeros((surface.info['points'], 3)))"])
@pytest.mark.parametrize("delay", [0.1, 0.25])
def test_a_thread_inside_a_call_does_not_disturb_the_end(call, delay):
    from conftest import KNOT

    script = THREAD_AT_EXIT.format(path=str(KNOT), call=call, delay=delay)
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, timeout=300)
    assert (done.returncode, done.stdout, done.stderr) == (3, "end\n", "")
