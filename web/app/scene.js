/** The 3D view: renderer, camera, what is drawn, and frames when something has changed. */
import { BufferGeometry, Float32BufferAttribute, Group, LineBasicMaterial, LineSegments, PerspectiveCamera, Points, Scene, Vector3, WebGLRenderer } from 'three';
import { OrbitControls } from 'three/addons/controls/OrbitControls.js';
import { CageOverlay, diskMaterial } from './cage_overlay.js';
import { screenColor } from './surface_material.js';
import { SurfaceMesh } from './surface_mesh.js';

const grounds = { light: '#eceae6', dark: '#15171a' };

export class View {
  surface = new SurfaceMesh();
  cage = new CageOverlay();
  camera = new PerspectiveCamera(32, 1, 0.01, 100);
  #scene = new Scene();
  #hit = new Group();
  #dot = diskMaterial({ size: 8, depthTest: false });
  #isDue = false;
  #radius = 1;

  /** @param {HTMLCanvasElement} canvas */
  constructor(canvas) {
    this.canvas = canvas;
    this.renderer = new WebGLRenderer({ canvas, antialias: true, powerPreference: 'high-performance' });
    // Shaders write the screen's colors themselves.
    this.renderer.outputColorSpace = 'srgb-linear';
    this.#scene.add(this.surface.mesh, this.cage.group, this.#hit);
    this.controls = new OrbitControls(this.camera, canvas);
    this.controls.rotateSpeed = 0.9;
    this.controls.zoomSpeed = 1.4;
    this.controls.addEventListener('change', () => this.draw());
    new ResizeObserver(() => this.#resize()).observe(canvas.parentElement);
    this.#resize();
    canvas.addEventListener('webglcontextrestored', () => this.draw());
  }

  /** Pixels of the style sheet. */
  get size() {
    return { width: this.canvas.clientWidth, height: this.canvas.clientHeight };
  }

  #resize() {
    const { clientWidth: width, clientHeight: height } = this.canvas.parentElement;
    this.renderer.setPixelRatio(Math.min(window.devicePixelRatio, 2));
    this.renderer.setSize(width, height, false);
    this.camera.aspect = width / Math.max(1, height);
    this.camera.updateProjectionMatrix();
    this.draw();
  }

  /** Asks for a frame. */
  draw() {
    if (this.#isDue) return;
    this.#isDue = true;
    requestAnimationFrame(() => {
      this.#isDue = false;
      this.#render();
    });
  }

  #render() {
    const far = this.camera.position.distanceTo(this.controls.target) + 4 * this.#radius;
    this.camera.far = far;
    this.camera.near = Math.max(far / 5000, far - 9 * this.#radius);
    this.camera.updateProjectionMatrix();
    this.renderer.render(this.#scene, this.camera);
  }

  /** Looks at all of the surface, from where the eye is or from the front. @param {boolean} fromFront */
  frame(fromFront) {
    const { center, radius } = this.surface.ball;
    this.#radius = radius;
    const direction = fromFront
      ? new Vector3(0.55, 0.42, 1)
      : this.camera.position.clone().sub(this.controls.target);
    const half = (this.camera.fov * Math.PI) / 360;
    const narrowest = Math.min(half, Math.atan(Math.tan(half) * this.camera.aspect));
    direction.setLength((1.06 * radius) / Math.sin(narrowest));
    this.controls.target.fromArray(center);
    this.camera.position.fromArray(center).add(direction);
    this.controls.update();
    this.draw();
  }

  /** @param {{position: number[], target: number[]}} camera */
  lookFrom({ position, target }) {
    this.#radius = this.surface.ball.radius;
    this.camera.position.fromArray(position);
    this.controls.target.fromArray(target);
    this.controls.update();
    this.draw();
  }

  get standpoint() {
    return { position: this.camera.position.toArray(), target: this.controls.target.toArray() };
  }

  /** Turns around what is looked at, by angles. */
  turn(across, up) {
    const offset = this.camera.position.clone().sub(this.controls.target);
    const radius = offset.length();
    const polar = Math.min(Math.PI - 0.01, Math.max(0.01, Math.acos(offset.y / radius) + up));
    const azimuth = Math.atan2(offset.x, offset.z) + across;
    offset.setFromSphericalCoords(radius, polar, azimuth);
    this.camera.position.copy(this.controls.target).add(offset);
    this.controls.update();
    this.draw();
  }

  /** Moves what is looked at across the screen, by parts of its height. */
  pan(right, up) {
    const distance = this.camera.position.distanceTo(this.controls.target);
    const height = 2 * distance * Math.tan((this.camera.fov * Math.PI) / 360);
    const step = new Vector3(right * height, up * height, 0).applyQuaternion(this.camera.quaternion);
    this.controls.target.add(step);
    this.camera.position.add(step);
    this.controls.update();
    this.draw();
  }

  zoom(factor) {
    this.camera.position.sub(this.controls.target).multiplyScalar(factor).add(this.controls.target);
    this.controls.update();
    this.draw();
  }

  /** The ray through a place on the screen, pixels from the upper left. @param {{x: number, y: number}} at */
  ray(at) {
    const { width, height } = this.size;
    this.camera.updateMatrixWorld();
    const through = new Vector3((at.x / width) * 2 - 1, 1 - (at.y / height) * 2, 0.5).unproject(this.camera);
    const direction = through.sub(this.camera.position).normalize();
    return { origin: this.camera.position.toArray(), direction: direction.toArray() };
  }

  /** Where a place on the screen is as far away as a point. @param {{x: number, y: number}} at @param {number[]} point */
  beside(at, point) {
    const { width, height } = this.size;
    const depth = new Vector3().fromArray(point).project(this.camera).z;
    return new Vector3((at.x / width) * 2 - 1, 1 - (at.y / height) * 2, depth).unproject(this.camera).toArray();
  }

  /** Marks a hit by a dot and its normal; none without arguments. @param {number[]} [position] @param {number[]} [normal] */
  markHit(position, normal) {
    this.#hit.clear();
    if (position && normal) {
      const tip = position.map((x, k) => x + normal[k] * 0.22 * this.#radius);
      const place = (...points) =>
        new BufferGeometry().setAttribute('position', new Float32BufferAttribute(points.flat(), 3));
      const color = screenColor(this.#scheme === 'dark' ? '#ffffff' : '#101214');
      this.#dot.color = color;
      this.#hit.add(new LineSegments(place(position, tip), new LineBasicMaterial({ color })));
      this.#hit.add(new Points(place(position), this.#dot));
    }
    this.draw();
  }

  #scheme = 'light';
  /** @param {string} scheme light or dark */
  paint(scheme) {
    this.#scheme = scheme;
    const ground = screenColor(grounds[scheme]);
    this.renderer.setClearColor(ground, 1);
    this.cage.paint(scheme);
    this.draw();
  }

  /** What the canvas shows, as PNG. @returns {Promise<Blob>} */
  picture() {
    this.#render();
    return new Promise((resolve, reject) =>
      this.canvas.toBlob((blob) => (blob ? resolve(blob) : reject(new Error('the picture could not be made')))),
    );
  }
}
