/** The surface as triangles: the module's grid in buffers, of which a move rewrites a part. */
import { BufferAttribute, BufferGeometry, Mesh } from 'three';
import { makeSurfaceMaterial, views } from './surface_material.js';

export class SurfaceMesh {
  mesh = new Mesh(new BufferGeometry(), makeSurfaceMaterial());
  #cells = 1;
  #usual = [1, 1];
  /** What holds all points, as they were built. @type {{center: number[], radius: number}} */
  ball = { center: [0, 0, 0], radius: 1 };

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
    attribute('st', built.quadCoordinates, 2);
    geometry.setIndex(new BufferAttribute(built.triangles, 1));
    this.mesh.geometry.dispose();
    this.mesh.geometry = geometry;
    this.mesh.visible = true;
    this.mesh.material.uniforms.isFlat.value = isFlat;
    this.#usual = built.usualCurvatures;
    this.ball = built.ball;
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
}
