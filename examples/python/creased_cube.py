"""A cube with a soft rim, a sharp one and a hole."""

import itertools

import numpy as np
import qn_sds

points = np.array([p[::-1] for p in itertools.product((-1.0, 1.0), repeat=3)], np.float32)
faces = [0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5]
bottom = [(0, 2), (2, 3), (3, 1), (1, 0)]
top = [(4, 5), (5, 7), (7, 6), (6, 4)]

surface = qn_sds.Surface(
    points,
    [4] * 6,
    faces,
    creases=(bottom + top, [10.0] * 4 + [2.5] * 4),  # 10 and above: infinitely sharp
    holes=[2],
    isolation=3,
)
hits = surface.intersect([[0.2, 0.1, 9.0]], [[0.0, 0.0, -1.0]])
print(hits.primitive, hits.uv, hits.t)  # of the quads of the cage, whatever the isolation
edge = surface.sample([0], [[0.5, 0.0]])
assert abs(edge.position[0, 2] + 1.0) < 1e-6  # an infinitely sharp loop in one plane stays in it
