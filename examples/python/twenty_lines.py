import numpy as np
import qn_sds

points = np.array([[x, y, z] for z in (-1, 1) for y in (-1, 1) for x in (-1, 1)], np.float32)
counts = np.full(6, 4)
corners = np.array([0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5])

surface = qn_sds.Surface(points, counts, corners, creases=[[4, 5], [6, 7]])

origins = np.random.uniform([-1, -1, 5], [1, 1, 5], (1000, 3))
hits = surface.intersect(origins, np.broadcast_to([0.0, 0.0, -1.0], origins.shape))

at = surface.sample(hits.primitive, hits.uv)
print(np.count_nonzero(hits.hit), at.position[hits.hit].mean(axis=0), at.smoothing_normal[0])

surface.update(points * [1, 1, 2])
print(surface.bbox, surface.area)
