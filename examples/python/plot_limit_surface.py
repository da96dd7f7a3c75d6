"""Plots a limit surface with matplotlib, from the root of the checkout: plot_limit_surface.py [MESH [PICTURE]]"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from matplotlib.ticker import MaxNLocator
from mpl_toolkits.mplot3d.art3d import Poly3DCollection

import qn_sds

mesh = sys.argv[1] if len(sys.argv) > 1 else "assets/turned.obj"
picture = sys.argv[2] if len(sys.argv) > 2 else "limit_surface.png"

surface = qn_sds.load_obj(mesh)
grid = surface.limit_grid(3)  # arrays [quad, v, u, 3]
p = grid.position
cells = np.stack([p[:, :-1, :-1], p[:, :-1, 1:], p[:, 1:, 1:], p[:, 1:, :-1]], axis=3).reshape(-1, 4, 3)
light = np.array([0.5, 0.7, 0.5]) / np.linalg.norm([0.5, 0.7, 0.5])
shade = 0.25 + 0.75 * np.clip(grid.smoothing_normal[:, :-1, :-1].reshape(-1, 3) @ light, 0.0, 1.0)
group = np.repeat(surface.quad_groups, 9)
colors = plt.get_cmap("Set2")(group % 8)[:, :3] * shade[:, None]

figure = plt.figure(figsize=(5, 5), dpi=96)
axes = figure.add_subplot(projection="3d")
to_plot = [2, 0, 1]  # the mesh has y up, matplotlib z
axes.add_collection3d(Poly3DCollection(cells[..., to_plot], facecolors=colors, edgecolors=colors, linewidths=0.3))
low, high = surface.bbox[:, to_plot]
axes.set(xlim=(low[0], high[0]), ylim=(low[1], high[1]), zlim=(low[2], high[2]), xlabel="z", ylabel="x", zlabel="y")
axes.set_box_aspect(high - low)
for axis in (axes.xaxis, axes.yaxis):
    axis.set_major_locator(MaxNLocator(3))
axes.view_init(elev=22, azim=35)
figure.savefig(picture, bbox_inches="tight")
print(picture, f"{len(cells)} cells of {surface.quad_count} quads")
