# What blocks of Python may use: the package, and a cube with a crease, a corner and a hole.
import numpy as np
import qn_sds

points = np.array([[x, y, z] for z in (-1, 1) for y in (-1, 1) for x in (-1, 1)], np.float32)
counts = np.full(6, 4)
corners = indices = np.array([0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5])
crease_indices, crease_lengths, sharpnesses = [4, 5, 7], [3], [2.5]
corner_indices, corner_sharpnesses, holes = [0], [10.0], [5]
