/** The surface as triangles: the module's grid in buffers, of which a move rewrites a part. */
import { Box3, BufferAttribute, BufferGeometry, Mesh, Sphere } from 'three';
import { makeSurfaceMaterial, views } from './surface_material.js';

/** Triangles of all quads that have a surface; each ends at the lower corner of its cell, whose values it takes. */
function triangles(cells, positions) {
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
  return indices.subarray(0, at);
}

/** (u, v) on the quad at every point. */
function quadCoordinates(cells, count) {
  const side = cells + 1;
  const out = new Float32Array(2 * count);
  for (let p = 0; p < count; ++p) {
    out[2 * p] = (p % side) / cells;
    out[2 * p + 1] = (Math.floor(p / side) % side) / cells;
  }
  return out;
}

/** What nineteen of twenty points stay below in size; a few sharp places should not leave the rest gray. */
function usualSize(values, component) {
  const sizes = [];
  const step = Math.max(1, Math.floor(values.length / 2 / 20000));
  for (let i = component; i < values.length; i += 2 * step) sizes.push(Math.abs(values[i]));
  sizes.sort((a, b) => a - b);
  return sizes[Math.floor(sizes.length * 0.95)] || 1;
}

export class SurfaceMesh {
  mesh = new Mesh(new BufferGeometry(), makeSurfaceMaterial());
  #cells = 1;
  #usual = [1, 1];

  constructor() {
    this.mesh.frustumCulled = false;
    this.mesh.visible = false;
  }

  /** @param {any} built the worker's answer to a build @param {boolean} isFlat */
  set(built, isFlat) {
    const geometry = new BufferGeometry();
    const attribute = (name, array, size) => geometry.setAttribute(name, new BufferAttribute(array, size));
    this.#cells = built.cells;
    attribute('position', built.positions, 3);
    attribute('normal', built.normals, 3);
    attribute('map', built.uvs, 2);
    attribute('curvature', built.curvatures, 2);
    attribute('patchInfo', built.patches, 2);
    attribute('st', quadCoordinates(built.cells, built.positions.length / 3), 2);
    geometry.setIndex(new BufferAttribute(triangles(built.cells, built.positions), 1));
    this.mesh.geometry.dispose();
    this.mesh.geometry = geometry;
    this.mesh.visible = true;
    this.mesh.material.uniforms.isFlat.value = isFlat;
    this.#usual = [usualSize(built.curvatures, 0), usualSize(built.curvatures, 1)];
  }

  /** Rewrites the quads that a move changed. @param {any} moved */
  update(moved) {
    const points = (this.#cells + 1) ** 2;
    const write = (name, rows, size) => {
      const attribute = this.mesh.geometry.getAttribute(name);
      const width = size * points;
      attribute.clearUpdateRanges();
      moved.quads.forEach((quad, i) => attribute.array.set(rows.subarray(i * width, (i + 1) * width), quad * width));
      for (let i = 0; i < moved.quads.length; ) {
        let end = i + 1; // quads that follow each other go up together
        while (end < moved.quads.length && moved.quads[end] === moved.quads[end - 1] + 1) ++end;
        attribute.addUpdateRange(moved.quads[i] * width, (end - i) * width);
        i = end;
      }
      attribute.needsUpdate = true;
    };
    write('position', moved.positions, 3);
    write('normal', moved.normals, 3);
    write('curvature', moved.curvatures, 2);
  }

  /** @param {{view: string, curvature: string, borders: boolean}} look */
  show({ view, curvature, borders }) {
    const { uniforms } = this.mesh.material;
    uniforms.view.value = views.findIndex(({ id }) => id === view);
    uniforms.hasBorders.value = borders;
    uniforms.isGaussian.value = curvature === 'gaussian';
    uniforms.bendScale.value = 1 / this.#usual[curvature === 'gaussian' ? 1 : 0];
  }

  get triangleCount() {
    return (this.mesh.geometry.index?.count ?? 0) / 3;
  }

  /** What holds all points. @returns {Sphere} */
  sphere() {
    const box = new Box3();
    const { array } = this.mesh.geometry.getAttribute('position');
    for (let i = 0; i < array.length; i += 3) {
      if (Number.isNaN(array[i])) continue;
      for (const [axis, k] of [['x', 0], ['y', 1], ['z', 2]]) {
        box.min[axis] = Math.min(box.min[axis], array[i + k]);
        box.max[axis] = Math.max(box.max[axis], array[i + k]);
      }
    }
    const sphere = box.isEmpty() ? new Sphere() : box.getBoundingSphere(new Sphere());
    if (!(sphere.radius > 0)) sphere.radius = 1;
    return sphere;
  }
}
