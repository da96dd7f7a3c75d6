"""Scenes from files."""

import os

from . import _arrays, _native, _recipe, _scene
from ._errors import to_findings
from ._surface import ISOLATION, from_native, warn_of


def load_usd(
    path,
    *,
    frame=None,
    shutter=None,
    camera=None,
    level=0,
    interpolation=None,
    uv_interpolation=None,
    isolation=ISOLATION,
    isolation_error=0.0,
    fractional="exact",
    crease_method="uniform",
    triangle_rule="catmullClark",
):
    """The scene of a USD layer in text (.usda) at a frame: `Scene`, its surfaces named by the paths of their prims. Meshes
    with the same arrays are built once.

    Arguments::

        frame    a time code; the layer's first by default
        shutter  (open, close) in time codes from the frame: what moves in between can be asked for at these times. That
                 of `camera` by default, else a moment
        camera   the path of a camera, which `Scene.render` then uses
        level    as for `Scene`

    The others are those of `Surface`; rules of borders and UVs that are not given are as every mesh says. What is
    invisible at the frame, and prims of purpose proxy and guide, are left out.

    Raises OSError for a file that cannot be read and MeshError, with file, line and column of every cause, for a layer
    without a scene. What was ignored is in `Scene.findings`, and warnings are issued as MeshWarning.
    """
    path = os.fspath(path)
    with open(path, "rb"):
        pass
    modes = _recipe.modes(
        interpolation, uv_interpolation, fractional, isolation, isolation_error, crease_method, triangle_rule
    )
    level = _arrays.whole(level, "level", *_arrays.LEVELS)
    layer = _native.load_layer(
        _native.Layer(
            os.fsencode(path),
            None if frame is None else _arrays.span(frame, "frame")[0],
            None if shutter is None else _arrays.span(shutter, "shutter"),
            b"" if camera is None else os.fsencode(camera),
            modes,
        )
    )
    surfaces = [from_native(native) for native in layer["surfaces"]]
    layer["findings"] = (*to_findings(layer["findings"]), *(each for surface in surfaces for each in surface.findings))
    warn_of(layer["findings"], stacklevel=2)
    return _scene.from_layer(layer, surfaces, camera, level)
