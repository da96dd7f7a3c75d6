/** What the page makes of the module's grid of points: for the worker, so that the page itself never waits for it. */

/**
 * Triangles of all quads that have a surface; each ends at the lower corner of its cell, whose values it takes.
 * @param {number} cells along the side of a quad @param {Float32Array} positions
 */
export function triangles(cells, positions) {
  const side = cells + 1;
  const quads = positions.length / (3 * side * side);
  const indices = new Uint32Array(quads * cells * cells * 6);
  let at = 0;
  for (let q = 0; q < quads; ++q) {
    const first = q * side * side;
    if (Number.isNaN(positions[3 * first])) continue;
    for (let j = 0; j < cells; ++j)
      for (let i = 0; i < cells; ++i) {
        const a = first + j * side + i;
        indices[at++] = a + 1;
        indices[at++] = a + side + 1;
        indices[at++] = a;
        indices[at++] = a + side + 1;
        indices[at++] = a + side;
        indices[at++] = a;
      }
  }
  return indices.slice(0, at);
}

/** (u, v) on the quad at every point. @param {number} cells @param {number} count of points */
export function quadCoordinates(cells, count) {
  const side = cells + 1;
  const out = new Float32Array(2 * count);
  for (let p = 0; p < count; ++p) {
    out[2 * p] = (p % side) / cells;
    out[2 * p + 1] = (Math.floor(p / side) % side) / cells;
  }
  return out;
}

/**
 * What nineteen of twenty points stay below in size; a few sharp places should not leave the rest gray.
 * @param {Float32Array} values pairs @param {0 | 1} component
 */
export function usualSize(values, component) {
  const step = Math.max(1, Math.floor(values.length / 2 / 20000));
  const sizes = new Float32Array(Math.ceil(values.length / 2 / step));
  for (let i = 0; i < sizes.length; ++i) sizes[i] = Math.abs(values[2 * step * i + component]);
  sizes.sort();
  return sizes[Math.floor(sizes.length * 0.95)] || 1;
}

/** A ball around all points. @param {Float32Array} positions NaN where there is no surface */
export function ball(positions) {
  const low = [Infinity, Infinity, Infinity];
  const high = [-Infinity, -Infinity, -Infinity];
  for (let i = 0; i < positions.length; i += 3)
    for (let k = 0; k < 3; ++k) {
      const x = positions[i + k];
      if (x < low[k]) low[k] = x;
      if (x > high[k]) high[k] = x;
    }
  if (!(low[0] <= high[0])) return { center: [0, 0, 0], radius: 1 };
  const radius = Math.hypot(...high.map((x, k) => x - low[k])) / 2;
  return { center: high.map((x, k) => (x + low[k]) / 2), radius: radius > 0 ? radius : 1 };
}
