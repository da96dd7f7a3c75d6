from os import PathLike
from typing import Any, Callable, Iterable, Literal, Mapping, NamedTuple, Sequence, TypedDict, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray
from typing_extensions import Unpack

_Map = Union[ArrayLike, tuple[ArrayLike, ArrayLike]]

_Interpolation = Literal[
    "bilinear",
    "edgeAndCorner",
    "edgeOnly",
    "bordersFixed",
    "none",
    "linear",
    "corners",
    "smooth",
    "borders",
]
_UvInterpolation = Literal[
    "all_fixed",
    "corners_fixed",
    "all_smoothed",
    "borders_fixed",
    "smoothed_seam_corners_fixed",
    "smoothed_seams_fixed",
    "corners_and_seams_fixed",
    "corners_plus1",
    "corners_plus2",
    "all",
    "cornersOnly",
    "cornersPlus1",
    "cornersPlus2",
    "none",
    "boundaries",
]
_Fractional = Literal["harden", "drop", "exact", "sharp"]
_CreaseMethod = Literal["uniform", "chaikin"]
_TriangleRule = Literal["catmullClark", "smooth"]
_Orientation = Literal["rightHanded", "leftHanded"]
_Scheme = Literal["catmullClark", "bilinear"]
_Kind = Literal["vertex", "varying", "uniform", "constant"]

_UpAxis = Literal["x", "y", "z"]
_ColorMap = Literal["viridis", "heat", "gray", "blue-red"]

__version__: str

class _RayLimits(TypedDict, total=False):
    tnear: ArrayLike
    tfar: ArrayLike
    time: ArrayLike

class _Modes(TypedDict, total=False):
    interpolation: _Interpolation | None
    uv_interpolation: _UvInterpolation | None
    isolation: int
    isolation_error: float
    fractional: _Fractional
    crease_method: _CreaseMethod
    triangle_rule: _TriangleRule

class Finding(NamedTuple):
    code: str
    severity: Literal["error", "warning", "note"]
    cases: int
    place: str
    message: str
    detail: str
    action: str

class MeshError(ValueError):
    findings: tuple[Finding, ...]
    def __init__(self, message: str | None = None, findings: Sequence[Mapping[str, Any]] = ()) -> None: ...

class MeshWarning(UserWarning): ...

class Hits(NamedTuple):
    primitive: NDArray[np.int32]
    u: NDArray[np.float64]
    v: NDArray[np.float64]
    t: NDArray[np.float64]
    @property
    def hit(self) -> NDArray[np.bool_]: ...
    @property
    def uv(self) -> NDArray[np.float64]: ...

class SceneHits(NamedTuple):
    instance: NDArray[np.int32]
    primitive: NDArray[np.int32]
    u: NDArray[np.float64]
    v: NDArray[np.float64]
    t: NDArray[np.float64]
    @property
    def hit(self) -> NDArray[np.bool_]: ...
    @property
    def uv(self) -> NDArray[np.float64]: ...

class Samples(NamedTuple):
    position: NDArray[np.float64]
    dpdu: NDArray[np.float64]
    dpdv: NDArray[np.float64]
    normal: NDArray[np.float64]
    smoothing_normal: NDArray[np.float64]

class LimitPoints(NamedTuple):
    position: NDArray[np.float32]
    dpdu: NDArray[np.float32]
    dpdv: NDArray[np.float32]
    normal: NDArray[np.float32]

class UvSamples(NamedTuple):
    uvw: NDArray[np.float64]
    du: NDArray[np.float64]
    dv: NDArray[np.float64]

class Property(NamedTuple):
    values: ArrayLike
    kind: _Kind = "vertex"
    indices: ArrayLike | None = None
    times: ArrayLike | None = None

class PropertySamples(NamedTuple):
    value: NDArray[np.float64]
    du: NDArray[np.float64]
    dv: NDArray[np.float64]

class Surface:
    def __init__(
        self,
        points: ArrayLike,
        face_counts: ArrayLike | None = None,
        face_indices: ArrayLike | None = None,
        *,
        creases: _Map | None = None,
        uvs: _Map | Mapping[str, _Map] | None = None,
        colors: _Map | None = None,
        groups: ArrayLike | None = None,
        group_names: Sequence[str] | None = None,
        interpolation: _Interpolation | None = None,
        uv_interpolation: _UvInterpolation | None = None,
        motion: _Map | None = None,
        corners: _Map | None = None,
        holes: ArrayLike | None = None,
        isolation: int = ...,
        isolation_error: float = 0.0,
        fractional: _Fractional = "exact",
        crease_method: _CreaseMethod = "uniform",
        triangle_rule: _TriangleRule | None = None,
        orientation: _Orientation = "rightHanded",
        properties: Mapping[str, ArrayLike | Property] | None = None,
        faceVertexCounts: ArrayLike | None = ...,
        faceVertexIndices: ArrayLike | None = ...,
        creaseIndices: ArrayLike | None = ...,
        creaseLengths: ArrayLike | None = ...,
        creaseSharpnesses: ArrayLike | None = ...,
        interpolateBoundary: _Interpolation | None = ...,
        faceVaryingLinearInterpolation: _UvInterpolation | None = ...,
        subdivisionScheme: _Scheme | None = ...,
        triangleSubdivisionRule: _TriangleRule | None = ...,
        cornerIndices: ArrayLike | None = ...,
        cornerSharpnesses: ArrayLike | None = ...,
        holeIndices: ArrayLike | None = ...,
        velocities: ArrayLike | None = ...,
        displayColor: ArrayLike | None = ...,
    ) -> None: ...
    def intersect(
        self, origins: ArrayLike, directions: ArrayLike, level: int = 0, **limits: Unpack[_RayLimits]
    ) -> Hits: ...
    def occluded(
        self, origins: ArrayLike, directions: ArrayLike, level: int = 0, **limits: Unpack[_RayLimits]
    ) -> NDArray[np.bool_]: ...
    def sample(self, primitives: ArrayLike, uv: ArrayLike, *, time: ArrayLike = 0.0, level: int = 0) -> Samples: ...
    def limit_points(self, primitives: ArrayLike, uv: ArrayLike) -> LimitPoints: ...
    def limit_grid(self, n: int, *, time: float = 0.0) -> Samples: ...
    def patches(self, *, time: float = 0.0) -> NDArray[np.float32]: ...
    @property
    def patch_places(self) -> NDArray[np.int32]: ...
    def uv(self, primitives: ArrayLike, uv: ArrayLike, map: int | str = 0) -> UvSamples: ...
    def look_up(
        self, name: str, primitives: ArrayLike, uv: ArrayLike, *, time: ArrayLike = 0.0
    ) -> PropertySamples: ...
    @property
    def property_names(self) -> list[str]: ...
    def color(self, primitives: ArrayLike, uv: ArrayLike) -> NDArray[np.float32]: ...
    def select(
        self,
        sides: ArrayLike = (),
        *,
        near: ArrayLike = (),
        far: ArrayLike = (),
        inside: bool = False,
        level: int = 0,
    ) -> NDArray[np.uint32]: ...
    def update(self, points: ArrayLike, motion: _Map | None = None) -> None: ...
    @property
    def bbox(self) -> NDArray[np.float64]: ...
    @property
    def area(self) -> float: ...
    @property
    def info(self) -> dict[str, Any]: ...
    @property
    def findings(self) -> tuple[Finding, ...]: ...
    @property
    def quad_count(self) -> int: ...
    @property
    def quads(self) -> NDArray[np.uint32]: ...
    @property
    def vertices(self) -> NDArray[np.float32]: ...
    @property
    def neighbours(self) -> NDArray[np.uint32]: ...
    @property
    def quad_faces(self) -> NDArray[np.uint32]: ...
    @property
    def quad_groups(self) -> NDArray[np.uint32]: ...

class Camera(NamedTuple):
    position: ArrayLike
    right: ArrayLike
    up: ArrayLike
    forward: ArrayLike
    width: ArrayLike
    shift_x: ArrayLike = 0.0
    shift_y: ArrayLike = 0.0
    lens_radius: ArrayLike = 0.0
    focus: ArrayLike = 1.0
    is_parallel: bool = False
    times: ArrayLike | None = None
    shutter: tuple[float, float] = ...
    @property
    def target(self) -> NDArray[np.float64]: ...
    @property
    def field_of_view(self) -> NDArray[np.float64]: ...

_Layer = Union[Literal["N", "Ng", "P", "Z", "st", "uv", "id", "object", "group", "color", "checker", "lines"], str]
_Transform = Union[ArrayLike, tuple[ArrayLike, ArrayLike]]

class Scene:
    def __init__(
        self,
        surfaces: Iterable[Surface],
        transforms: ArrayLike | Iterable[_Transform] | None = None,
        *,
        level: int = 0,
        names: Iterable[str] | None = None,
        cameras: Mapping[str, Camera] | None = None,
        up: _UpAxis = "y",
    ) -> None: ...
    def __len__(self) -> int: ...
    def __getitem__(self, name: str) -> Surface: ...
    def intersect(
        self, origins: ArrayLike, directions: ArrayLike, **limits: Unpack[_RayLimits]
    ) -> SceneHits: ...
    def occluded(
        self, origins: ArrayLike, directions: ArrayLike, **limits: Unpack[_RayLimits]
    ) -> NDArray[np.bool_]: ...
    def names_of(self, hits: SceneHits) -> NDArray[np.str_]: ...
    def render(
        self,
        width: int = 640,
        height: int = 480,
        *,
        layers: _Layer | Iterable[_Layer] = (),
        samples: int = 16,
        camera: str | Camera | Sequence[ArrayLike] | None = None,
        azimuth: float = 35.0,
        elevation: float = 22.0,
        field_of_view: float = 35.0,
        time: ArrayLike | None = None,
        background: bool = True,
        sun: ArrayLike | None = None,
        sun_strength: float = 1.0,
        environment: str | PathLike[str] | None = None,
        color_by: str | None = None,
        color_map: _ColorMap = "viridis",
        color_range: ArrayLike | None = None,
        texture: str | PathLike[str] | None = None,
        checker: bool = False,
        map: int = 0,
        wire: bool = False,
        progress: Callable[[float], object] | None = None,
    ) -> dict[str, NDArray[Any]]: ...
    @property
    def bbox(self) -> NDArray[np.float64]: ...
    @property
    def names(self) -> tuple[str, ...]: ...
    @property
    def cameras(self) -> dict[str, Camera]: ...
    @property
    def up(self) -> _UpAxis: ...
    @property
    def frame(self) -> float: ...
    @property
    def frames(self) -> tuple[float, float] | None: ...
    @property
    def codes_per_second(self) -> float: ...
    @property
    def meters_per_unit(self) -> float: ...
    @property
    def findings(self) -> tuple[Finding, ...]: ...

def load_obj(path: str | PathLike[str], **modes: Unpack[_Modes]) -> Surface: ...
def load_usd(
    path: str | PathLike[str],
    *,
    frame: float | None = None,
    shutter: ArrayLike | None = None,
    camera: str | None = None,
    level: int = 0,
    **modes: Unpack[_Modes],
) -> Scene: ...
