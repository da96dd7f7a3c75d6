/** The panel's controls, as one object of settings and an event when it changes. */
import { samples } from './files.js';
import { views } from './surface_material.js';

const byId = (id) => /** @type {any} */ (document.getElementById(id));

/**
 * @typedef {object} Settings
 * @property {string} view @property {string} curvature @property {boolean} cage @property {boolean} borders
 * @property {number} depth @property {number} level @property {number} mode -1: as the file says
 * @property {number | null} sharpness null: as in the file
 */

/** @returns {Settings} */
export const defaults = () => ({
  view: 'surface',
  curvature: 'mean',
  cage: true,
  borders: false,
  depth: 2,
  level: 0,
  mode: -1,
  sharpness: null,
});

const clampInteger = (x, low, high, otherwise) =>
  Number.isInteger(x) && x >= low && x <= high ? x : otherwise;

/** Settings from a link: what is not right becomes the default. @param {any} given @returns {Settings} */
export function checkedSettings(given) {
  const base = defaults();
  return {
    view: views.some(({ id }) => id === given?.view) ? given.view : base.view,
    curvature: given?.curvature === 'gaussian' ? 'gaussian' : 'mean',
    cage: typeof given?.cage === 'boolean' ? given.cage : base.cage,
    borders: given?.borders === true,
    depth: clampInteger(given?.depth, 0, 6, base.depth),
    level: clampInteger(given?.level, 0, 6, base.level),
    mode: clampInteger(given?.mode, -1, 3, base.mode),
    sharpness: given?.sharpness >= 0 && given.sharpness <= 10 ? given.sharpness : null,
  };
}

export class Panel {
  settings = defaults();

  /**
   * @param {object} on
   * @param {() => void} on.build settings of the surface changed
   * @param {() => void} on.look settings of the view changed
   * @param {(file: string) => void} on.sample
   * @param {(file: File) => void} on.file
   */
  constructor(on) {
    this.on = on;
    byId('sample').append(
      Object.assign(document.createElement('option'), { value: '', textContent: 'Own file', hidden: true }),
      ...samples.map(({ file, title }) =>
        Object.assign(document.createElement('option'), { value: file, textContent: title }),
      ),
    );
    views.forEach(({ id, title }, i) => {
      const label = document.createElement('label');
      const radio = Object.assign(document.createElement('input'), { type: 'radio', name: 'view', value: id, id: `view-${id}` });
      radio.setAttribute('aria-keyshortcuts', String(i + 1));
      label.append(radio, title);
      byId('views').append(label);
      radio.addEventListener('change', () => this.look({ view: id }));
    });
    byId('sample').addEventListener('change', (e) => on.sample(e.target.value));
    byId('file').addEventListener('change', (e) => {
      if (e.target.files.length) on.file(e.target.files[0]);
      e.target.value = '';
    });
    byId('curvature').addEventListener('change', (e) => this.look({ curvature: e.target.value }));
    byId('show-cage').addEventListener('change', (e) => this.look({ cage: e.target.checked }));
    byId('show-borders').addEventListener('change', (e) => this.look({ borders: e.target.checked }));
    for (const id of ['depth', 'level'])
      byId(id).addEventListener('input', (e) => this.#build({ [id]: Number(e.target.value) }));
    byId('mode').addEventListener('change', (e) => this.#build({ mode: Number(e.target.value) }));
    byId('sharpness').addEventListener('input', (e) => this.#build({ sharpness: Number(e.target.value) }));
    byId('sharpness-file').addEventListener('change', (e) =>
      this.#build({ sharpness: e.target.checked ? null : Number(byId('sharpness').value) }),
    );
    this.show();
  }

  /** @param {Partial<Settings>} change */
  look(change) {
    Object.assign(this.settings, change);
    this.show();
    this.on.look();
  }

  #build(change) {
    Object.assign(this.settings, change);
    this.show();
    this.on.build();
  }

  /** Writes the settings into the controls. */
  show() {
    const s = this.settings;
    byId(`view-${s.view}`).checked = true;
    byId('curvature-row').hidden = s.view !== 'curvature';
    byId('curvature').value = s.curvature;
    byId('show-cage').checked = s.cage;
    byId('show-borders').checked = s.borders;
    byId('depth').value = s.depth;
    byId('depth-value').textContent = s.depth === 0 ? 'none' : String(s.depth);
    byId('level').value = s.level;
    byId('level-value').textContent = s.level === 0 ? 'limit' : String(s.level);
    byId('level').setAttribute('aria-valuetext', s.level === 0 ? 'limit surface' : `${2 ** s.level} cells`);
    byId('mode').value = String(s.mode);
    byId('sharpness-file').checked = s.sharpness === null;
    if (s.sharpness !== null) byId('sharpness').value = s.sharpness;
    byId('sharpness-value').textContent = s.sharpness === null ? 'file' : s.sharpness >= 10 ? 'sharp' : s.sharpness.toFixed(1);
  }

  /** What the cage has to do with the controls. @param {{creases: number, sample: string}} cage */
  showCage({ creases, sample }) {
    byId('sample').value = sample;
    byId('sharpness').disabled = creases === 0;
    byId('sharpness-file').disabled = creases === 0;
    if (creases === 0) byId('sharpness-value').textContent = 'none';
  }
}
