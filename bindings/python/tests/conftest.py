import pathlib
import struct
import zlib

import numpy as np
import pytest

import qn_sds

KNOT = pathlib.Path(__file__).resolve().parents[3] / "assets" / "knot.obj"

CUBE_POINTS = np.array([[x, y, z] for z in (-1, 1) for y in (-1, 1) for x in (-1, 1)], np.float32)
CUBE_COUNTS = np.full(6, 4, np.int32)
CUBE_INDICES = np.array(
    [0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5], np.int32
)
CUBE_EDGES = np.array([[0, 1], [1, 3], [3, 2], [2, 0], [4, 5], [5, 7], [7, 6], [6, 4], [0, 4], [1, 5], [2, 6], [3, 7]])


def grid(n, height=lambda x, y: 0.0 * x):
    """A sheet of n x n quads over [0, 1]^2: points, counts, indices."""
    x, y = (axis.ravel() for axis in np.meshgrid(np.linspace(0, 1, n + 1), np.linspace(0, 1, n + 1)))
    points = np.stack([x, y, height(x, y)], axis=1).astype(np.float32)
    first = np.array([[j * (n + 1) + i for i in range(n)] for j in range(n)]).ravel()
    indices = np.stack([first, first + 1, first + n + 2, first + n + 1], axis=1).astype(np.uint32)
    return points, np.full(n * n, 4, np.uint32), indices.ravel()


@pytest.fixture
def cube():
    return qn_sds.Surface(CUBE_POINTS, CUBE_COUNTS, CUBE_INDICES)


@pytest.fixture
def knot():
    return qn_sds.load_obj(KNOT)


def random_rays(surface, count, seed):
    """Rays from outside the box towards points within it."""
    random = np.random.default_rng(seed)
    low, high = surface.bbox
    target = random.uniform(low, high, (count, 3))
    direction = random.normal(size=(count, 3))
    direction /= np.linalg.norm(direction, axis=1)[:, None]
    return target - 2.0 * np.linalg.norm(high - low) * direction, direction


def random_fragments(surface, count, seed):
    random = np.random.default_rng(seed)
    return random.integers(0, surface.quad_count, count), random.random((count, 2))


def read_exr(path):
    """Channels of a picture by name, float16, float32 or uint32 [height, width]: scan lines, compressed by zlib."""
    data = path.read_bytes()
    assert data[:8] == struct.pack("<II", 20000630, 2)
    at, header = 8, {}
    while data[at]:
        name, kind, rest = data[at:].split(b"\0", 2)
        at += len(name) + len(kind) + 6
        size = struct.unpack_from("<i", data, at - 4)[0]
        header[name] = data[at : at + size]
        at += size
    left, top, right, bottom = struct.unpack("<4i", header[b"dataWindow"])
    width, height = right - left + 1, bottom - top + 1
    channels, rest = [], header[b"channels"]
    while rest[0]:
        name, rest = rest.split(b"\0", 1)
        channels.append((name.decode(), np.dtype(("<u4", "<f2", "<f4")[rest[0]])))
        rest = rest[16:]
    at += 1 + 8 * -(-height // 16)
    found = {name: [] for name, _ in channels}
    for first in range(0, height, 16):
        size, at = struct.unpack_from("<i", data, at + 4)[0], at + 8
        rows = min(16, height - first)
        raw_size = rows * width * sum(kind.itemsize for _, kind in channels)
        raw = np.frombuffer(data[at : at + size], np.uint8)
        if size < raw_size:  # differences of neighbours, the even bytes before the odd ones
            raw = np.frombuffer(zlib.decompress(raw), np.uint8)
            raw = (np.cumsum(raw.astype(np.int64)) - 128 * np.arange(len(raw))).astype(np.uint8)
            halves = raw[: -(-len(raw) // 2)], raw[-(-len(raw) // 2) :]
            raw = np.empty_like(raw)
            raw[0::2], raw[1::2] = halves
        at, begin = at + size, 0
        for _ in range(rows):
            for name, kind in channels:
                found[name].append(raw[begin : begin + width * kind.itemsize].view(kind))
                begin += width * kind.itemsize
    return {name: np.stack(rows) for name, rows in found.items()}
