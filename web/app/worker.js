/**
 * The worker: owns the module and one session in it. Calls come as {id, call, arguments}, answers go as {id, result} or
 * {id, error}. Arrays are copied out of the module's memory and handed over.
 */
import makeModule from '../../build/web/bin/sds_page.mjs';
import { ball, quadCoordinates, triangles, usualSize } from './grid.js';

const ready = makeModule({ locateFile: (name) => new URL(name, self.location.href).href });

/** @type {any} */
let module = null;
/** The last build's arrays, as [address, count]. @type {any} */
let built = null;

/** The report of a call that returned the address of a JSON text. */
function report(address) {
  const bytes = module.HEAPU8;
  let end = address;
  while (bytes[end] !== 0) ++end;
  const result = JSON.parse(new TextDecoder().decode(bytes.subarray(address, end)));
  if (result.error) throw new Error(result.error);
  return result;
}

const floats = ([address, count]) => module.HEAPF32.slice(address / 4, address / 4 + count);
const integers = ([address, count]) => module.HEAPU32.slice(address / 4, address / 4 + count);
const bytes = ([address, count]) => module.HEAPU8.slice(address, address + count);

/** The rows of some quads out of an array with `width` numbers per quad. */
function rows([address], quads, width) {
  const out = new Float32Array(quads.length * width);
  quads.forEach((quad, i) => {
    const first = address / 4 + quad * width;
    out.set(module.HEAPF32.subarray(first, first + width), i * width);
  });
  return out;
}

/** Edges of the cage: pairs of vertices, and a sharpness each. */
function edges([address, count]) {
  const pairs = new Uint32Array(2 * count);
  const sharpness = new Float32Array(count);
  for (let i = 0; i < count; ++i) {
    pairs[2 * i] = module.HEAPU32[address / 4 + 3 * i];
    pairs[2 * i + 1] = module.HEAPU32[address / 4 + 3 * i + 1];
    sharpness[i] = module.HEAPF32[address / 4 + 3 * i + 2];
  }
  return { pairs, sharpness };
}

const calls = {
  /** @param {{text: Uint8Array, format: 'obj' | 'usda'}} file */
  load({ text, format }) {
    const address = module._malloc(Math.max(1, text.length));
    if (address === 0) throw new Error('there is not enough memory for this file');
    module.HEAPU8.set(text, address);
    return report(module._page_load(address, text.length, format === 'usda' ? 1 : 0));
  },

  build({ mode, depth, level, sharpness }) {
    const begin = performance.now();
    built = report(module._page_build(mode, depth, level, sharpness ?? -1));
    const positions = floats(built.positions);
    const curvatures = floats(built.curvatures);
    return {
      triangles: triangles(built.cells, positions),
      quadCoordinates: quadCoordinates(built.cells, positions.length / 3),
      usualCurvatures: [usualSize(curvatures, 0), usualSize(curvatures, 1)],
      ball: ball(positions),
      statistics: built.statistics,
      notes: built.notes,
      cells: built.cells,
      positions,
      normals: floats(built.normals),
      uvs: floats(built.uvs),
      curvatures,
      patches: bytes(built.patches),
      cage: floats(built.cage),
      edges: edges(built.edges),
      milliseconds: performance.now() - begin,
    };
  },

  move({ vertex, position }) {
    const begin = performance.now();
    const { quads } = report(module._page_move(vertex, ...position));
    const changed = integers(quads);
    const points = (built.cells + 1) ** 2;
    return {
      vertex,
      position,
      quads: changed,
      positions: rows(built.positions, changed, 3 * points),
      normals: rows(built.normals, changed, 3 * points),
      curvatures: rows(built.curvatures, changed, 2 * points),
      milliseconds: performance.now() - begin,
    };
  },

  intersect({ origin, direction }) {
    return report(module._page_intersect(...origin, ...direction));
  },

  tessellate({ level }) {
    const made = report(module._page_tessellate(level));
    return {
      positions: floats(made.positions),
      indices: integers(made.indices),
      uvs: floats(made.uvs),
      uvIndices: integers(made.uv_indices),
    };
  },
};

/** The buffers of a result, to be handed over. */
function buffers(result) {
  const found = [];
  for (const value of Object.values(result)) {
    if (ArrayBuffer.isView(value)) found.push(value.buffer);
    else if (value && typeof value === 'object' && value.pairs) found.push(value.pairs.buffer, value.sharpness.buffer);
  }
  return found;
}

self.onmessage = async ({ data: { id, call, argument } }) => {
  try {
    module = await ready;
    const result = calls[call](argument);
    self.postMessage({ id, result }, buffers(result));
  } catch (problem) {
    // A trap leaves the module's memory in an unknown state: the page starts another worker.
    const isBroken = problem instanceof WebAssembly.RuntimeError;
    self.postMessage({ id, error: String(problem?.message ?? problem), isBroken });
  }
};
