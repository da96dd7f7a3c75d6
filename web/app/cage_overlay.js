/** The cage over the surface: edges by sharpness, and vertices that can be taken hold of. */
import { BufferAttribute, BufferGeometry, CanvasTexture, Group, LineBasicMaterial, LineSegments, Points, PointsMaterial, Vector3 } from 'three';
import { screenColor } from './surface_material.js';

const schemes = {
  light: { edge: '#3d444d', crease: '#9a2f12', held: '#9a4a1f' },
  dark: { edge: '#b9bfc7', crease: '#ff9a6b', held: '#ffb98f' },
};

/** Points as disks. @param {{size: number, depthTest?: boolean}} how */
export function diskMaterial(how) {
  const canvas = Object.assign(document.createElement('canvas'), { width: 32, height: 32 });
  const context = canvas.getContext('2d');
  context.fillStyle = '#fff';
  context.beginPath();
  context.arc(16, 16, 15, 0, 2 * Math.PI);
  context.fill();
  return new PointsMaterial({ sizeAttenuation: false, map: new CanvasTexture(canvas), alphaTest: 0.5, ...how });
}

export class CageOverlay {
  group = new Group();
  /** x y z of every vertex @type {Float32Array} */
  positions = new Float32Array(0);
  #edges = this.#lines(1);
  #hiddenEdges = this.#lines(0.16);
  #vertices = new Points(new BufferGeometry(), diskMaterial({ size: 5 }));
  #held = new Points(new BufferGeometry(), diskMaterial({ size: 11, depthTest: false }));
  /** @type {{pairs: Uint32Array, sharpness: Float32Array} | null} */
  #graph = null;
  #scheme = 'light';

  constructor() {
    this.#hiddenEdges.material.depthTest = false;
    this.#held.renderOrder = 3;
    this.#held.visible = false;
    this.group.add(this.#hiddenEdges, this.#edges, this.#vertices, this.#held);
    for (const child of this.group.children) child.frustumCulled = false;
  }

  #lines(opacity) {
    return new LineSegments(
      new BufferGeometry(),
      new LineBasicMaterial({ vertexColors: true, transparent: opacity < 1, opacity, depthWrite: false }),
    );
  }

  /** @param {Float32Array} positions @param {{pairs: Uint32Array, sharpness: Float32Array}} graph */
  set(positions, graph) {
    this.positions = positions;
    this.#graph = graph;
    const attribute = new BufferAttribute(positions, 3);
    for (const part of [this.#edges, this.#hiddenEdges, this.#vertices]) part.geometry.dispose();
    const edges = new BufferGeometry();
    edges.setAttribute('position', new BufferAttribute(new Float32Array(graph.pairs.length * 3), 3));
    edges.setAttribute('color', new BufferAttribute(new Float32Array(graph.pairs.length * 3), 3));
    this.#edges.geometry = this.#hiddenEdges.geometry = edges;
    this.#vertices.geometry = new BufferGeometry().setAttribute('position', attribute);
    this.#vertices.material.size = positions.length > 1200 ? 4 : 6;
    this.#place(0, graph.pairs.length);
    this.paint(this.#scheme);
    this.hold(-1);
  }

  #place(first, end) {
    const { array } = this.#edges.geometry.getAttribute('position');
    for (let i = first; i < end; ++i) {
      const vertex = this.#graph.pairs[i];
      array.set(this.positions.subarray(3 * vertex, 3 * vertex + 3), 3 * i);
    }
    this.#edges.geometry.getAttribute('position').needsUpdate = true;
  }

  /** @param {number} vertex @param {number[]} position */
  move(vertex, position) {
    this.positions.set(position, 3 * vertex);
    this.#vertices.geometry.getAttribute('position').needsUpdate = true;
    const { pairs } = this.#graph;
    for (let i = 0; i < pairs.length; ++i) if (pairs[i] === vertex) this.#place(i, i + 1);
    if (this.#held.visible) this.hold(vertex);
  }

  /** Marks a vertex; -1 marks none. @param {number} vertex */
  hold(vertex) {
    this.#held.visible = vertex >= 0 && 3 * vertex < this.positions.length;
    if (!this.#held.visible) return;
    const place = this.positions.slice(3 * vertex, 3 * vertex + 3);
    this.#held.geometry.setAttribute('position', new BufferAttribute(place, 3));
  }

  /** @param {string} scheme light or dark */
  paint(scheme) {
    this.#scheme = scheme;
    const colors = schemes[scheme];
    const edge = screenColor(colors.edge);
    const crease = screenColor(colors.crease);
    const color = this.#edges.geometry.getAttribute('color');
    this.#graph?.sharpness.forEach((s, i) => {
      const { r, g, b } = edge.clone().lerp(crease, s > 0 ? 0.45 + 0.055 * Math.min(s, 10) : 0);
      for (const k of [2 * i, 2 * i + 1]) color.setXYZ(k, r, g, b);
    });
    if (color) color.needsUpdate = true;
    this.#vertices.material.color = edge;
    this.#held.material.color = screenColor(colors.held);
  }

  /**
   * The vertex nearest to a place on the screen, the nearer to the eye of two; -1 for none within `reach` pixels.
   * @param {import('three').Camera} camera @param {{x: number, y: number}} at pixels @param {{width: number, height: number}} size
   */
  vertexAt(camera, at, size, reach) {
    let best = -1;
    let bestScore = reach;
    const point = new Vector3();
    for (let v = 0; 3 * v < this.positions.length; ++v) {
      point.fromArray(this.positions, 3 * v).project(camera);
      if (point.z < -1 || point.z > 1) continue;
      const distance = Math.hypot(((point.x + 1) / 2) * size.width - at.x, ((1 - point.y) / 2) * size.height - at.y);
      const score = distance + 0.5 * reach * (point.z + 1);
      if (distance <= reach && (best < 0 || score < bestScore)) {
        best = v;
        bestScore = score;
      }
    }
    return best;
  }
}
