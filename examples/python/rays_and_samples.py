"""A cage from arrays, rays against its limit surface, and everything at the hits."""

import numpy as np

import qn_sds

# A cube: 8 points, 6 faces of 4 corners; two creases on its lid.
points = np.array([[x, y, z] for z in (-1, 1) for y in (-1, 1) for x in (-1, 1)], np.float32)
counts = np.full(6, 4)
corners = np.array([0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5])
uvs = points[:, :2] * 0.5 + 0.5

surface = qn_sds.Surface(points, counts, corners, creases=[[4, 5], [6, 7]], uvs=uvs)
print(surface, "box", surface.bbox.tolist(), "area", round(surface.area, 4))

x, y = np.meshgrid(np.linspace(-1.2, 1.2, 200), np.linspace(-1.2, 1.2, 200))
origins = np.stack([x.ravel(), y.ravel(), np.full(x.size, 5.0)], axis=1)
hits = surface.intersect(origins, np.broadcast_to([0.0, 0.0, -1.0], origins.shape))
print(f"{np.count_nonzero(hits.hit)} of {len(origins)} rays hit")

at = surface.sample(hits.primitive, hits.uv)  # NaN where nothing was hit
st = surface.uv(hits.primitive, hits.uv).uvw[:, :2]
along = origins + np.where(hits.hit, hits.t, 0.0)[:, None] * [0.0, 0.0, -1.0]
assert np.allclose(at.position[hits.hit], along[hits.hit], atol=1e-5)
assert np.all((st[hits.hit] >= 0.0) & (st[hits.hit] <= 1.0))

surface.update(points * [1.0, 1.0, 2.0])  # the same topology at other positions
print("twice as high:", surface.bbox.tolist())
