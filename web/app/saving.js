/** Files that the page makes: tessellations and pictures. */

/** @param {Blob} blob @param {string} name */
export function download(blob, name) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10_000);
}

/** The shortest decimal that reads back to the same single-precision number. */
function shortest(x) {
  for (let digits = 6; digits < 9; ++digits) {
    const text = x.toPrecision(digits);
    if (Math.fround(Number(text)) === x) return String(Number(text));
  }
  return String(Number(x.toPrecision(9)));
}

/**
 * @typedef {{positions: Float32Array, indices: Uint32Array, uvs: Float32Array, uvIndices: Uint32Array}} Tessellation
 * quads: four entries of `indices` each; `uvs` has u v w, both UV arrays are empty without a map
 */

/** @param {Tessellation} mesh @returns {Blob} */
export function toObj({ positions, indices, uvs, uvIndices }) {
  const unmapped = 0xffffffff;
  const lines = [];
  for (let i = 0; i < positions.length; i += 3)
    lines.push(`v ${shortest(positions[i])} ${shortest(positions[i + 1])} ${shortest(positions[i + 2])}`);
  for (let i = 0; i < uvs.length; i += 3) lines.push(`vt ${shortest(uvs[i])} ${shortest(uvs[i + 1])}`);
  for (let i = 0; i < indices.length; i += 4) {
    let line = 'f';
    for (let k = i; k < i + 4; ++k) {
      const uv = uvIndices.length ? uvIndices[k] : unmapped;
      line += uv === unmapped ? ` ${indices[k] + 1}` : ` ${indices[k] + 1}/${uv + 1}`;
    }
    lines.push(line);
  }
  lines.push('');
  return new Blob([lines.join('\n')], { type: 'model/obj' });
}

/** One vertex per pair of a position and a UV point, as the format has it. */
function splitAtSeams({ positions, indices, uvs, uvIndices }) {
  const vertices = new Map();
  const corners = new Uint32Array(indices.length);
  const points = [];
  const coordinates = [];
  for (let c = 0; c < indices.length; ++c) {
    const uv = uvIndices[c];
    const key = indices[c] * 4294967296 + uv;
    let vertex = vertices.get(key);
    if (vertex === undefined) {
      vertex = vertices.size;
      vertices.set(key, vertex);
      points.push(...positions.subarray(3 * indices[c], 3 * indices[c] + 3));
      const isMapped = uv !== 0xffffffff;
      // v runs down there
      coordinates.push(isMapped ? uvs[3 * uv] : 0, isMapped ? 1 - uvs[3 * uv + 1] : 0);
    }
    corners[c] = vertex;
  }
  return { positions: new Float32Array(points), indices: corners, coordinates: new Float32Array(coordinates) };
}

/** Unit normals of the vertices, faces weighted by area. */
function normalsOf(positions, triangles) {
  const normals = new Float32Array(positions.length);
  for (let i = 0; i < triangles.length; i += 3) {
    const [a, b, c] = [3 * triangles[i], 3 * triangles[i + 1], 3 * triangles[i + 2]];
    const [ux, uy, uz] = [0, 1, 2].map((k) => positions[b + k] - positions[a + k]);
    const [vx, vy, vz] = [0, 1, 2].map((k) => positions[c + k] - positions[a + k]);
    const face = [uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx];
    for (const at of [a, b, c]) for (let k = 0; k < 3; ++k) normals[at + k] += face[k];
  }
  for (let i = 0; i < normals.length; i += 3) {
    const length = Math.hypot(normals[i], normals[i + 1], normals[i + 2]);
    if (length > 0) for (let k = 0; k < 3; ++k) normals[i + k] /= length;
    else normals[i + 2] = 1;
  }
  return normals;
}

/** A binary glTF 2.0 file with one mesh. @param {Tessellation} mesh @returns {Blob} */
export function toGlb(mesh) {
  const hasUvs = mesh.uvIndices.length > 0;
  const { positions, indices, coordinates } = hasUvs ? splitAtSeams(mesh) : { ...mesh, coordinates: null };
  const triangles = new Uint32Array((indices.length / 4) * 6);
  for (let q = 0, t = 0; q < indices.length; q += 4)
    for (const k of [0, 1, 2, 0, 2, 3]) triangles[t++] = indices[q + k];
  const arrays = [
    { data: triangles, type: 'SCALAR', width: 1, componentType: 5125, target: 34963 },
    { data: positions, type: 'VEC3', width: 3, componentType: 5126, target: 34962 },
    { data: normalsOf(positions, triangles), type: 'VEC3', width: 3, componentType: 5126, target: 34962 },
  ];
  if (coordinates) arrays.push({ data: coordinates, type: 'VEC2', width: 2, componentType: 5126, target: 34962 });
  const low = [Infinity, Infinity, Infinity];
  const high = [-Infinity, -Infinity, -Infinity];
  positions.forEach((x, i) => {
    low[i % 3] = Math.min(low[i % 3], x);
    high[i % 3] = Math.max(high[i % 3], x);
  });
  let offset = 0;
  const bufferViews = arrays.map(({ data, target }) => {
    const view = { buffer: 0, byteOffset: offset, byteLength: data.byteLength, target };
    offset += data.byteLength;
    return view;
  });
  const attributes = { POSITION: 1, NORMAL: 2, ...(coordinates ? { TEXCOORD_0: 3 } : {}) };
  const json = {
    asset: { version: '2.0', generator: 'qn_sds' },
    scene: 0,
    scenes: [{ nodes: [0] }],
    nodes: [{ mesh: 0 }],
    meshes: [{ primitives: [{ attributes, indices: 0 }] }],
    accessors: arrays.map(({ data, type, width, componentType }, i) => ({
      bufferView: i,
      componentType,
      type,
      count: data.length / width,
      ...(i === 1 ? { min: low, max: high } : {}),
    })),
    bufferViews,
    buffers: [{ byteLength: offset }],
  };
  let text = JSON.stringify(json);
  text += ' '.repeat((4 - (new TextEncoder().encode(text).length % 4)) % 4);
  const encoded = new TextEncoder().encode(text);
  const head = new Uint32Array([0x46546c67, 2, 12 + 8 + encoded.length + 8 + offset, encoded.length, 0x4e4f534a]);
  const parts = [head, encoded, new Uint32Array([offset, 0x004e4942]), ...arrays.map(({ data }) => data)];
  return new Blob(parts, { type: 'model/gltf-binary' });
}
