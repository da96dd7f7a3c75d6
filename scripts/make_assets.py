#!/usr/bin/env python3
"""Writes the control cages of assets/.

    scripts/make_assets.py [DIRECTORY]     default: the assets/ folder beside this script's parent

    body.obj    four-legged body: closed, all quads, extraordinary vertices where limbs meet the trunk
    turned.obj  finial turned on a lathe: 24-gon caps, crease tags on rings, a material per part
    sheet.obj   wavy sheet with borders, a hole and vertex colors
    knot.obj    trefoil knot with buds: closed, a vertex of valence 5 and one of valence 3 for every bud corner
    robot.obj   a figure of blocks: closed, all quads, every edge a fillet by a fractional sharpness of its part
    seams.obj   rounded box unwrapped as a cross: UV seams, two crease loops and a crease that ends in a dart
    bracket.obj angle with a window: soft creases of several sharpnesses, a sharp foot
    shell.obj   ribbed shell wound around its axis: open at both ends, a UV map with one seam
    lantern.usda ball with openings: holes, sharp corners and soft creases, as a layer

All are y up and wound counter-clockwise seen from outside. Standard library only; the same input gives the same bytes.
"""

import math
import pathlib
import sys


class Cage:
    """Vertices, polygons (0-based indices), crease edges and what else an OBJ file may carry."""

    def __init__(self, title):
        self.title = title
        self.points = []
        self.colors = []  # one (r, g, b) a point, or none at all
        self.polygons = []
        self.uvs = []
        self.uv_polygons = []  # one index tuple a polygon, or none at all
        self.materials = []  # one name a polygon, or none at all
        self.creases = []  # vertex pairs, or these and a sharpness
        self.corners = []  # vertices and their sharpness
        self.holes = []  # polygons

    def add_point(self, point):
        self.points.append(tuple(point))
        return len(self.points) - 1

    def add_polygon(self, polygon, material=None):
        self.polygons.append(tuple(polygon))
        if material:
            self.materials.append(material)
        return len(self.polygons) - 1

    def write(self, path):
        lines = [f"# {self.title}", "# written by scripts/make_assets.py"]
        for i, point in enumerate(self.points):
            values = point + (self.colors[i] if self.colors else ())
            lines.append("v " + " ".join(decimal(x) for x in values))
        lines += ["vt " + " ".join(decimal(x) for x in uv) for uv in self.uvs]
        material = None
        # stable: polygons of a material stay in the order of their making
        order = sorted(range(len(self.polygons)), key=self.material_rank)
        for p in order:
            if self.materials and self.materials[p] != material:
                material = self.materials[p]
                lines += [f"g {material}", f"usemtl {material}"]
            if self.uv_polygons:
                corners = zip(self.polygons[p], self.uv_polygons[p])
                lines.append("f " + " ".join(f"{v + 1}/{t + 1}" for v, t in corners))
            else:
                lines.append("f " + " ".join(str(v + 1) for v in self.polygons[p]))
        lines += [f"t crease 2/1/0 {a} {b} {sharpness(crease)}" for crease in self.creases for a, b in [crease[:2]]]
        path.write_text("\n".join(lines) + "\n", encoding="ascii", newline="\n")

    def write_layer(self, path):
        def array(values):
            return "[" + ", ".join(values) + "]"

        corners = [corner for polygon in self.polygons for corner in polygon]
        values = [
            ("int[] faceVertexCounts", [str(len(polygon)) for polygon in self.polygons]),
            ("int[] faceVertexIndices", map(str, corners)),
            ("point3f[] points", ["(" + ", ".join(decimal(x) for x in point) + ")" for point in self.points]),
            ("int[] creaseIndices", [str(v) for crease in self.creases for v in crease[:2]]),
            ("int[] creaseLengths", ["2"] * len(self.creases)),
            ("float[] creaseSharpnesses", [sharpness(crease) for crease in self.creases]),
            ("int[] cornerIndices", [str(v) for v, _ in self.corners]),
            ("float[] cornerSharpnesses", [str(s) for _, s in self.corners]),
            ("int[] holeIndices", map(str, self.holes)),
        ]
        lines = ["#usda 1.0", "(", f'    doc = "{self.title}; written by scripts/make_assets.py"', '    upAxis = "Y"', ")"]
        lines += ["", f'def Mesh "{path.stem}"', "{", '    uniform token subdivisionScheme = "catmullClark"']
        lines += [f"    {name} = {array(value)}" for name, value in values]
        path.write_text("\n".join(lines + ["}", ""]), encoding="ascii", newline="\n")

    def material_rank(self, polygon):
        return self.materials.index(self.materials[polygon]) if self.materials else 0


def decimal(x):
    text = f"{x:.6f}"
    return text[1:] if text == "-0.000000" else text


def sharpness(crease):
    return str(crease[2]) if len(crease) > 2 else "10.0"


def add(a, b):
    return tuple(x + y for x, y in zip(a, b))


def sub(a, b):
    return tuple(x - y for x, y in zip(a, b))


def scaled(a, s):
    return tuple(x * s for x in a)


def dot(a, b):
    return sum(x * y for x, y in zip(a, b))


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def normalized(a):
    return scaled(a, 1.0 / math.sqrt(dot(a, a)))


def mean(points):
    return scaled(tuple(sum(axis) for axis in zip(*points)), 1.0 / len(points))


def smoothstep(low, high, x):
    t = min(max((x - low) / (high - low), 0.0), 1.0)
    return t * t * (3.0 - 2.0 * t)


# --- body: the skin of a few unit blocks, refined and relaxed

BODY_BLOCKS = [
    # (first corner, last corner) of boxes of unit blocks, both inclusive: x along the body, y up, z across
    ((0, 2, 0), (5, 3, 2)),  # trunk
    ((0, 0, 0), (0, 1, 0)),  # hind legs
    ((0, 0, 2), (0, 1, 2)),
    ((5, 0, 0), (5, 1, 0)),  # forelegs
    ((5, 0, 2), (5, 1, 2)),
    ((5, 4, 1), (5, 5, 1)),  # neck
    ((5, 6, 1), (7, 6, 1)),  # head
    ((-2, 3, 1), (-1, 3, 1)),  # tail
    ((-2, 4, 1), (-2, 4, 1)),
]

# corners of the block face that looks along +x -x +y -y +z -z, counter-clockwise from outside
BLOCK_FACES = {
    (1, 0, 0): ((1, 0, 0), (1, 1, 0), (1, 1, 1), (1, 0, 1)),
    (-1, 0, 0): ((0, 0, 0), (0, 0, 1), (0, 1, 1), (0, 1, 0)),
    (0, 1, 0): ((0, 1, 0), (0, 1, 1), (1, 1, 1), (1, 1, 0)),
    (0, -1, 0): ((0, 0, 0), (1, 0, 0), (1, 0, 1), (0, 0, 1)),
    (0, 0, 1): ((0, 0, 1), (1, 0, 1), (1, 1, 1), (0, 1, 1)),
    (0, 0, -1): ((0, 0, 0), (0, 1, 0), (1, 1, 0), (1, 0, 0)),
}


def block_skin(boxes):
    """Outer faces of the union of blocks, as corner coordinates."""
    blocks = set()
    for first, last in boxes:
        for x in range(first[0], last[0] + 1):
            for y in range(first[1], last[1] + 1):
                for z in range(first[2], last[2] + 1):
                    blocks.add((x, y, z))
    for block in sorted(blocks):
        for direction, corners in BLOCK_FACES.items():
            if add(block, direction) not in blocks:
                yield [add(block, corner) for corner in corners]


def relaxed(points, polygons, rounds):
    """Points drawn towards their neighbours and pushed back a little less, so that volume stays (Taubin 1995)."""
    neighbours = [set() for _ in points]
    for polygon in polygons:
        for a, b in zip(polygon, polygon[1:] + polygon[:1]):
            neighbours[a].add(b)
            neighbours[b].add(a)
    neighbours = [sorted(ring) for ring in neighbours]
    for _ in range(rounds):
        for factor in (0.6, -0.5):
            targets = [mean([points[n] for n in ring]) for ring in neighbours]
            points = [add(p, scaled(sub(target, p), factor)) for p, target in zip(points, targets)]
    return points


def make_body():
    cage = Cage("four-legged body: closed, all quads")
    numbers = {}

    def number(point):
        if point not in numbers:
            numbers[point] = cage.add_point(point)
        return numbers[point]

    for quad in block_skin(BODY_BLOCKS):
        middle = mean(quad)
        sides = [mean((quad[k], quad[(k + 1) % 4])) for k in range(4)]
        for k in range(4):
            cage.add_polygon(number(tuple(map(float, p))) for p in (quad[k], sides[k], middle, sides[k - 1]))
    cage.points = relaxed(cage.points, cage.polygons, 16)
    center = (3.0, 3.0, 1.5)
    cage.points = [scaled(sub(p, center), 0.4) for p in cage.points]
    return cage


# --- robot: the skin of a few blocks of several sizes

ROBOT_BLOCKS = [
    # blocks by the numbers of their cells, as above
    ((2, 0, 1), (2, 0, 3), 3.2),  # feet
    ((4, 0, 1), (4, 0, 3), 3.2),
    ((2, 1, 1), (2, 1, 2), 2.3),  # legs
    ((4, 1, 1), (4, 1, 2), 2.3),
    ((2, 2, 0), (4, 4, 2), 2.3),  # trunk
    ((1, 4, 1), (1, 4, 1), 2.3),  # shoulders
    ((5, 4, 1), (5, 4, 1), 2.3),
    ((0, 2, 1), (0, 4, 1), 1.2),  # arms
    ((6, 2, 1), (6, 4, 1), 1.2),
    ((0, 1, 1), (0, 1, 2), 2.8),  # hands
    ((6, 1, 1), (6, 1, 2), 2.8),
    ((3, 5, 1), (3, 5, 1), 0.6),  # neck
    ((2, 6, 0), (4, 8, 2), 1.6),  # head
    ((3, 7, 3), (3, 7, 3), 0.8),  # nose
    ((1, 7, 1), (1, 7, 1), 1.2),  # ears
    ((5, 7, 1), (5, 7, 1), 1.2),
    ((3, 9, 1), (3, 9, 1), 2.8),  # antenna
]
ROBOT_LINES = (
    (-2.35, -1.65, -1.25, -0.4, 0.4, 1.25, 1.65, 2.35),
    (0.0, 0.55, 2.0, 2.5, 3.6, 4.4, 4.75, 5.4, 5.9, 6.6, 7.3),
    (-0.85, -0.4, 0.4, 0.85, 1.4),
)


def make_robot():
    cage = Cage("a figure of blocks: closed, all quads, fillets by fractional sharpness")
    numbers, normals = {}, {}

    def number(corner):
        if corner not in numbers:
            numbers[corner] = cage.add_point(line[i] for line, i in zip(ROBOT_LINES, corner))
        return numbers[corner]

    def sharpness_at(quad):
        inside = sub(mean(quad), scaled(normalized(cross(sub(quad[1], quad[0]), sub(quad[2], quad[0]))), 0.5))
        cell = tuple(math.floor(x) for x in inside)
        return next(s for first, last, s in ROBOT_BLOCKS if all(a <= c <= b for a, c, b in zip(first, cell, last)))

    for quad in block_skin([(first, last) for first, last, _ in ROBOT_BLOCKS]):
        polygon = [number(corner) for corner in quad]
        cage.add_polygon(polygon)
        normal = cross(sub(quad[1], quad[0]), sub(quad[2], quad[0]))
        for a, b in zip(polygon, polygon[1:] + polygon[:1]):
            normals.setdefault((min(a, b), max(a, b)), []).append((normal, sharpness_at(quad)))
    for edge, sides in sorted(normals.items()):
        if dot(sides[0][0], sides[1][0]) <= 0.0:
            cage.creases.append((*edge, str(min(sides[0][1], sides[1][1]))))
    cage.points = [sub(p, (0.0, 3.6, 0.2)) for p in cage.points]
    return cage


# --- turned: a profile on the lathe

TURNED_PROFILE = [
    # height, radius, crease ring, material of the band above
    (0.00, 1.00, True, "plinth"),
    (0.28, 1.00, True, "plinth"),
    (0.28, 0.84, True, "plinth"),
    (0.40, 0.84, True, "plinth"),
    (0.46, 0.66, False, "vase"),
    (0.56, 0.44, False, "vase"),
    (0.66, 0.40, True, "vase"),
    (0.76, 0.50, True, "vase"),
    (0.92, 0.72, False, "vase"),
    (1.16, 0.94, False, "vase"),
    (1.44, 1.02, False, "vase"),
    (1.72, 0.92, False, "vase"),
    (1.96, 0.66, False, "vase"),
    (2.12, 0.44, False, "vase"),
    (2.24, 0.36, True, "collar"),
    (2.26, 0.60, True, "collar"),
    (2.36, 0.60, True, "collar"),
    (2.38, 0.30, True, "ball"),
    (2.46, 0.26, False, "ball"),
    (2.54, 0.36, False, "ball"),
    (2.68, 0.50, False, "ball"),
    (2.86, 0.52, False, "ball"),
    (3.02, 0.42, False, "ball"),
    (3.14, 0.24, False, "tip"),
    (3.24, 0.14, True, "tip"),
    (3.44, 0.10, False, "tip"),
    (3.62, 0.05, True, "tip"),
]


def make_turned(segments=24):
    cage = Cage("turned finial: n-gon caps, crease rings, a material per part")
    rings = []
    for height, radius, sharp, _ in TURNED_PROFILE:
        angles = [2.0 * math.pi * s / segments for s in range(segments)]
        ring = [cage.add_point((radius * math.sin(a), height, radius * math.cos(a))) for a in angles]
        rings.append(ring)
        if sharp:
            cage.creases += [(ring[s], ring[(s + 1) % segments]) for s in range(segments)]
    cage.add_polygon(reversed(rings[0]), TURNED_PROFILE[0][3])
    for low, high, (_, _, _, material) in zip(rings, rings[1:], TURNED_PROFILE):
        for s in range(segments):
            t = (s + 1) % segments
            cage.add_polygon((low[s], low[t], high[t], high[s]), material)
    cage.add_polygon(rings[-1], TURNED_PROFILE[-1][3])
    return cage


# --- sheet: a grid with a hole


def make_sheet(cells=26, hole=(14, 8, 19, 13)):
    """`hole` is the block of missing cells: first column and row, last column and row (exclusive)."""
    cage = Cage("wavy sheet: borders, a hole, vertex colors")
    numbers = {}

    def number(i, j):
        if (i, j) not in numbers:
            x, z = 4.0 * i / cells - 2.0, 4.0 * j / cells - 2.0
            far = math.hypot(x, z)
            y = 0.34 * math.cos(2.6 * far) * math.exp(-0.25 * far * far)
            y += 0.16 * math.sin(1.7 * x + 0.6) * math.cos(1.3 * z)
            numbers[i, j] = cage.add_point((x, y, z))
            warm = smoothstep(-0.25, 0.4, y)
            cage.colors.append((0.12 + 0.83 * warm, 0.32 + 0.40 * warm, 0.62 - 0.38 * warm))
        return numbers[i, j]

    for j in range(cells):
        for i in range(cells):
            if not (hole[0] <= i < hole[2] and hole[1] <= j < hole[3]):
                cage.add_polygon((number(i, j), number(i, j + 1), number(i + 1, j + 1), number(i + 1, j)))
    return cage


# --- knot: a swept ring with buds


def trefoil(t):
    """Torus knot (2, 3) that winds twice around the z axis while it goes three times through its plane."""
    r = 2.0 + 0.95 * math.cos(3.0 * t)
    return (r * math.cos(2.0 * t), r * math.sin(2.0 * t), 1.05 * math.sin(3.0 * t))


def closed_frames(curve, count):
    """Tangent and two normals at `count` places of a closed curve, with the least rotation from one to the
    next (double reflection, Wang et al. 2008) and the closing angle spread over the whole turn."""
    places = [curve(2.0 * math.pi * s / count) for s in range(count)]
    tangents = [normalized(sub(places[(s + 1) % count], places[s - 1])) for s in range(count)]
    normal = normalized(cross(tangents[0], (0.0, 0.0, 1.0)))
    normals = [normal]
    for s in range(count):
        p, q = places[s], places[(s + 1) % count]
        chord = sub(q, p)
        reflected = sub(normal, scaled(chord, 2.0 * dot(chord, normal) / dot(chord, chord)))
        tangent = sub(tangents[s], scaled(chord, 2.0 * dot(chord, tangents[s]) / dot(chord, chord)))
        turn = sub(tangents[(s + 1) % count], tangent)
        if dot(turn, turn) > 1e-24:
            reflected = sub(reflected, scaled(turn, 2.0 * dot(turn, reflected) / dot(turn, turn)))
        normal = normalized(reflected)
        normals.append(normal)
    closing = math.atan2(dot(cross(normals[-1], normals[0]), tangents[0]), dot(normals[-1], normals[0]))
    for s in range(count):
        angle = closing * s / count
        n, b = normals[s], cross(tangents[s], normals[s])
        n = add(scaled(n, math.cos(angle)), scaled(b, math.sin(angle)))
        yield places[s], n, cross(tangents[s], n)


def raise_bud(cage, quad):
    """Replaces a quad by three rings of quads and a lid: the quad's corners gain an edge each, the lid's have three."""
    ring = list(quad)
    corners = [cage.points[v] for v in quad]
    middle = mean(corners)
    outward = normalized(cross(sub(corners[2], corners[0]), sub(corners[3], corners[1])))
    for size, height, material in ((0.84, -0.05, "rim"), (0.86, 0.13, "bud"), (0.60, 0.24, "bud")):
        base = add(middle, scaled(outward, height))
        upper = [cage.add_point(add(base, scaled(sub(c, middle), size))) for c in corners]
        for k in range(4):
            m = (k + 1) % 4
            cage.add_polygon((ring[k], ring[m], upper[m], upper[k]), material)
        ring = upper
    cage.add_polygon(ring, "bud")


def make_knot(segments=72, sides=8, radius=0.55):
    cage = Cage("trefoil knot with buds: closed, all quads, valences 3 to 5")
    rings = []
    for place, n, b in closed_frames(trefoil, segments):
        angles = [2.0 * math.pi * k / sides for k in range(sides)]
        spokes = [add(scaled(n, math.cos(a)), scaled(b, math.sin(a))) for a in angles]
        rings.append([cage.add_point(add(place, scaled(spoke, radius))) for spoke in spokes])
    for s in range(segments):
        low, high = rings[s], rings[(s + 1) % segments]
        for k in range(sides):
            m = (k + 1) % sides
            quad = (low[k], low[m], high[m], high[k])
            # buds stand apart by one quad at least, in four rows that wind around the strand
            if s % 2 == 0 and (k + s // 2) % 4 == 0:
                raise_bud(cage, quad)
            else:
                cage.add_polygon(quad, "strand")
    return cage


# --- seams: a rounded box and its cross

BOX_SIDES = [
    # column and row in the cross; side's middle, direction of growing u, of growing v (u x v points outward)
    ((0, 1), (-1, 0, 0), (0, 0, 1), (0, 1, 0)),
    ((1, 1), (0, 0, 1), (1, 0, 0), (0, 1, 0)),
    ((2, 1), (1, 0, 0), (0, 0, -1), (0, 1, 0)),
    ((3, 1), (0, 0, -1), (-1, 0, 0), (0, 1, 0)),
    ((1, 2), (0, 1, 0), (1, 0, 0), (0, 0, -1)),
    ((1, 0), (0, -1, 0), (1, 0, 0), (0, 0, 1)),
]


def rounded_box(x, y, z):
    """Where a point of the cube [-1, 1]^3 goes: round upright edges, bulging sides, domed lid, a ridge on the front."""
    size = max(abs(x), abs(z))
    roundness = 1.0 if size == 0.0 else size / (abs(x) ** 4 + abs(z) ** 4) ** 0.25
    width = roundness * (1.0 - 0.16 * y * y)
    dome = 0.16 * (1.0 - x * x) * (1.0 - z * z) * max(y, 0.0)
    ridge = 0.16 * max(0.0, 1.0 - 2.5 * abs(x)) * smoothstep(-0.1, 1.0, y) * smoothstep(0.6, 1.0, z)
    return (1.25 * x * width, 0.75 * y + dome, z * width + ridge)


def make_seams(cells=8):
    cage = Cage("rounded box unwrapped as a cross: UV seams and creases")
    numbers, uv_numbers = {}, {}

    def number(lattice):
        if lattice not in numbers:
            numbers[lattice] = cage.add_point(rounded_box(*(x / cells for x in lattice)))
        return numbers[lattice]

    def uv_number(column, row):
        if (column, row) not in uv_numbers:
            uv_numbers[column, row] = len(cage.uvs)
            cage.uvs.append((0.02 + 0.24 * column / cells, 0.14 + 0.24 * row / cells))
        return uv_numbers[column, row]

    for (column, row), middle, u, v in BOX_SIDES:
        for j in range(cells):
            for i in range(cells):
                square = ((i, j), (i + 1, j), (i + 1, j + 1), (i, j + 1))
                across = [add(scaled(u, 2 * a - cells), scaled(v, 2 * b - cells)) for a, b in square]
                cage.add_polygon(number(add(scaled(middle, cells), offset)) for offset in across)
                cage.uv_polygons.append([uv_number(column * cells + a, row * cells + b) for a, b in square])

    def crease(path):
        ids = [numbers[p] for p in path]
        cage.creases += list(zip(ids, ids[1:]))

    span = range(-cells, cells + 1, 2)
    for height in (cells, -cells):  # around the lid and around the base
        crease([(x, height, cells) for x in span])
        crease([(cells, height, z) for z in reversed(span)])
        crease([(x, height, -cells) for x in reversed(span)])
        crease([(-cells, height, z) for z in span])
    crease([(0, y, cells) for y in range(cells, -1, -2)])  # from the lid down the front: ends in a dart
    return cage


# --- bracket: the skin of blocks, its edges soft creases

BRACKET_BLOCKS = [
    ((0, 0, 0), (4, 0, 5)),  # foot
    ((0, 1, 0), (4, 3, 0)),  # back, around a window
    ((0, 4, 0), (0, 4, 0)),
    ((4, 4, 0), (4, 4, 0)),
    ((0, 5, 0), (4, 5, 0)),
    ((2, 1, 1), (2, 2, 2)),  # rib
]


def make_bracket():
    cage = Cage("angle with a window and a rib: soft creases, sharp where it stands")
    numbers, sides = {}, {}

    def number(point):
        if point not in numbers:
            numbers[point] = cage.add_point(scaled(sub(point, (2.5, 3.0, 2.0)), 0.4))
        return numbers[point]

    for quad in block_skin(BRACKET_BLOCKS):
        normal = cross(sub(quad[1], quad[0]), sub(quad[3], quad[0]))
        polygon = [number(point) for point in quad]
        cage.add_polygon(polygon)
        for k in range(4):
            edge = tuple(sorted((polygon[k], polygon[(k + 1) % 4])))
            ends = (quad[k], quad[(k + 1) % 4])
            sides.setdefault(edge, []).append((normal, ends))
    for edge, faces in sorted(sides.items()):
        if len(faces) == 2 and faces[0][0] != faces[1][0]:
            ends = faces[0][1]
            is_foot = all(y == 0 for _, y, _ in ends)
            is_window = all(4 <= y <= 5 and 1 <= x <= 4 for x, y, _ in ends)
            cage.creases.append((*edge, "10.0" if is_foot else "3.5" if is_window else "1.8"))
    return cage


# --- shell: a ribbed tube on a spiral that grows

def make_shell(along=44, around=14):
    cage = Cage("ribbed shell: open at both ends, UVs with a seam")
    for i in range(along + 1):
        turn = 2.0 * math.pi * 2.6 * i / along
        size = 0.09 * math.exp(0.155 * turn)
        out = (math.cos(turn), 0.0, math.sin(turn))
        middle = add(scaled(out, size), (0.0, 1.0 - 1.45 * size, 0.0))
        rib = 1.0 + 0.10 * (i % 4 == 0)
        for j in range(around):
            angle = 2.0 * math.pi * j / around
            ring = add(scaled(out, math.cos(angle)), (0.0, 1.1 * math.sin(angle), 0.0))
            cage.add_point(add(middle, scaled(ring, 0.62 * size * rib)))
    cage.uvs = [(j / around, i / along) for i in range(along + 1) for j in range(around + 1)]
    for i in range(along):
        for j in range(around):
            steps = ((i, j), (i, j + 1), (i + 1, j + 1), (i + 1, j))
            cage.add_polygon(a * around + b % around for a, b in steps)
            cage.uv_polygons.append([a * (around + 1) + b for a, b in steps])
    return cage


# --- lantern: a ball over a cube with openings

def make_lantern(cells=5):
    cage = Cage("ball with openings: holes, sharp corners, soft creases")
    numbers = {}

    def number(lattice):
        if lattice not in numbers:
            point = tuple(x / cells for x in lattice)
            numbers[lattice] = cage.add_point(scaled(add(scaled(normalized(point), 0.8), scaled(point, 0.2)), 1.0))
        return numbers[lattice]

    for _, middle, u, v in BOX_SIDES:
        for j in range(cells):
            for i in range(cells):
                square = ((i, j), (i + 1, j), (i + 1, j + 1), (i, j + 1))
                across = [add(scaled(u, 2 * a - cells), scaled(v, 2 * b - cells)) for a, b in square]
                polygon = cage.add_polygon(number(add(scaled(middle, cells), offset)) for offset in across)
                if i % 2 and j % 2:
                    cage.holes.append(polygon)
    rim = [p for p in numbers if sum(abs(x) == cells for x in p) >= 2]
    for p in sorted(rim):
        for axis in range(3):
            q = tuple(x + 2 * (k == axis) for k, x in enumerate(p))
            if q in numbers and sum(abs(x) == cells for x in q) >= 2 and abs(p[axis] + 1) < cells:
                cage.creases.append((numbers[p], numbers[q], "2.5"))
    cage.corners = [(numbers[p], "10.0") for p in sorted(rim) if all(abs(x) == cells for x in p)]
    return cage


MAKERS = {"body": make_body, "turned": make_turned, "sheet": make_sheet, "knot": make_knot, "robot": make_robot,
          "seams": make_seams, "bracket": make_bracket, "shell": make_shell}
LAYER_MAKERS = {"lantern": make_lantern}


def main():
    default = pathlib.Path(__file__).resolve().parent.parent / "assets"
    directory = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else default
    directory.mkdir(parents=True, exist_ok=True)
    for name, make in (MAKERS | LAYER_MAKERS).items():
        cage = make()
        if name in LAYER_MAKERS:
            cage.write_layer(directory / f"{name}.usda")
        else:
            cage.write(directory / f"{name}.obj")
        sizes = f"{len(cage.points)} vertices, {len(cage.polygons)} polygons, {len(cage.creases)} crease edges"
        print(f"{name}: {sizes}")


if __name__ == "__main__":
    main()
