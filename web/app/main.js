/** The page: what happens when. */
import { Engine, latestOnly } from './engine.js';
import { Refusal, readCageFile, readSample, samples, watchDrops } from './files.js';
import { fromHash, toHash } from './link.js';
import { Panel, checkedSettings } from './panel.js';
import { watchPointer } from './pointing.js';
import { errorText, notify, setBusy, showFindings, showLegend, showNumbers, showPoint } from './readout.js';
import { download, toGlb, toObj } from './saving.js';
import { View } from './scene.js';
import { watchScheme } from './scheme.js';
import { classColors, classNames, levelColors, views } from './surface_material.js';

const byId = (id) => /** @type {any} */ (document.getElementById(id));
const canvas = byId('canvas');

/** @type {{name: string, format: 'obj' | 'usda', text: Uint8Array, isSample: boolean} | null} */
let cage = null;
/** Vertices that stand elsewhere than in the file. @type {Map<number, number[]>} */
const moved = new Map();
let held = -1;
let shownSettings = '';

const engine = new Engine();
let view;
try {
  view = new View(canvas);
} catch {
  byId('blank-text').textContent = 'This browser gives no WebGL 2, which the page draws with.';
  throw new Error('no WebGL 2');
}

/** For whoever watches the page from outside: an embedding page, a test. */
const tell = (name, detail) => canvas.dispatchEvent(new CustomEvent(`qn:${name}`, { detail, bubbles: true }));

function complain(problem, about = '') {
  const text = problem instanceof Refusal ? problem.message : `${about}${problem.message ?? problem}.`;
  notify(text, 'error');
  tell('refused', text);
}

// --- building

const build = latestOnly(async ({ isNew, camera }) => {
  const { depth, level, mode, sharpness } = panel.settings;
  setBusy(true);
  try {
    const built = await engine.build({ depth, level, mode, sharpness });
    view.surface.set(built, level > 0);
    view.cage.set(built.cage, built.edges);
    view.cage.hold(held);
    showNumbers(built.statistics);
    showFindings(built.notes, isNew);
    panel.showCage({ creases: built.statistics.crease_edges, sample: cage?.isSample ? cage.name : '' });
    byId('blank').hidden = true;
    if (camera) view.lookFrom(camera);
    else if (isNew) view.frame(true);
    shownSettings = JSON.stringify(panel.settings);
    look();
    clearPoint();
    tell('built', { statistics: built.statistics, milliseconds: built.milliseconds });
  } catch (problem) {
    complain(problem, 'The surface was not built: ');
    const former = shownSettings ? JSON.parse(shownSettings) : null;
    if (former) Object.assign(panel.settings, former);
    panel.show();
  } finally {
    setBusy(false);
  }
});

/**
 * Takes a cage, or says why not and keeps the former one.
 * @param {{name: string, format: 'obj' | 'usda', text: Uint8Array}} file
 * @param {{isSample?: boolean, movedVertices?: Record<string, number[]>, camera?: any}} [more]
 */
async function open(file, { isSample = false, movedVertices = {}, camera } = {}) {
  setBusy(true);
  try {
    const { loaded, notes } = await engine.load(file.text, file.format);
    if (!loaded) {
      notify(`${file.name} was not opened.\n${errorText(notes)}`, 'error');
      showFindings(notes, true);
      tell('refused', `${file.name}: ${errorText(notes)}`);
      if (!cage) byId('blank-text').textContent = 'No cage yet: drop one, or choose an example.';
      return;
    }
    notify('');
    cage = { ...file, isSample };
    moved.clear();
    held = -1;
    showVertex(-1);
    document.title = `${file.name}: qn_sds`;
    byId('vertex-reset').disabled = true;
    if (Object.keys(movedVertices).length) {
      await engine.build({ ...panel.settings });
      for (const [vertex, position] of Object.entries(movedVertices)) {
        await engine.move(Number(vertex), position);
        moved.set(Number(vertex), position);
      }
      byId('vertex-reset').disabled = false;
    }
    build({ isNew: true, camera });
  } catch (problem) {
    complain(problem, `${file.name} was not opened: `);
  } finally {
    setBusy(false);
  }
}

/** @param {File} file @param {number} [count] */
async function openFile(file, count = 1) {
  try {
    const read = await readCageFile(file);
    await open(read);
    if (count > 1) notify(`${count} files were dropped; the page shows one at a time and took ${file.name}.`);
  } catch (problem) {
    complain(problem);
  }
}

/** @param {string} name */
async function openSample(name) {
  try {
    await open(await readSample(name), { isSample: true });
  } catch (problem) {
    complain(problem);
  }
}

// --- looking

const panel = new Panel({ build: () => build({}), look, sample: openSample, file: openFile });

function look() {
  const s = panel.settings;
  view.surface.show(s);
  view.cage.group.visible = s.cage;
  const isUsed = (counts, key) => (counts?.[key] ?? 0) > 0;
  const numbers = Object.fromEntries(
    [...byId('numbers').children].map((row) => [row.dataset.name, JSON.parse(row.dataset.exact ?? 'null')]),
  );
  if (s.view === 'class')
    showLegend(
      classNames.map((name, i) => ({ name, color: classColors[i] })).filter(({ name }) => isUsed(numbers['Quad classes'], name)),
    );
  else if (s.view === 'level')
    showLegend(
      levelColors
        .map((color, i) => ({ name: i === 0 ? 'four quads' : `level ${i - 1}`, color, key: String(i - 1) }))
        .filter(({ key }) => isUsed(numbers['by level'], key)),
    );
  else if (s.view === 'curvature')
    showLegend([
      { name: 'bends towards the eye', color: '#bd4a2b' },
      { name: 'flat', color: '#ebe8e3' },
      { name: s.curvature === 'mean' ? 'bends away' : 'saddle', color: '#2e61ad' },
    ]);
  else showLegend([]);
  view.draw();
}

function clearPoint() {
  showPoint(null);
  view.markHit();
}

async function askPoint(at) {
  const { origin, direction } = view.ray(at);
  try {
    const { hit } = await engine.intersect(origin, direction);
    showPoint(hit, { isMiss: !hit });
    if (hit) view.markHit(hit.sample.slice(0, 3), hit.sample.slice(9, 12));
    else view.markHit();
    tell('hit', { origin, direction, hit });
  } catch (problem) {
    complain(problem, 'The ray was not traced: ');
  }
}

// --- moving vertices

/** The position asked for last: the fields show it until it is reached. @type {number[] | null} */
let wanted = null;

const move = latestOnly(async ({ vertex, position }) => {
  try {
    const change = await engine.move(vertex, position);
    moved.set(vertex, position);
    view.surface.update(change);
    view.cage.move(vertex, position);
    if (position === wanted) showVertex(vertex);
    byId('vertex-reset').disabled = false;
    clearPoint();
    tell('moved', { vertex, position, quads: change.quads.length, milliseconds: change.milliseconds });
  } catch (problem) {
    complain(problem, 'The vertex was not moved: ');
  }
});

function moveTo(vertex, position) {
  wanted = position;
  move({ vertex, position });
}

function showVertex(vertex) {
  byId('vertex').value = vertex < 0 ? '' : vertex;
  byId('vertex').max = Math.max(0, view.cage.positions.length / 3 - 1);
  ['x', 'y', 'z'].forEach((axis, k) => {
    const field = byId(`vertex-${axis}`);
    field.disabled = vertex < 0;
    if (document.activeElement !== field)
      field.value = vertex < 0 ? '' : Number(view.cage.positions[3 * vertex + k].toPrecision(7));
  });
}

function hold(vertex) {
  held = vertex;
  if (vertex >= 0) byId('d-vertex').open = true;
  view.cage.hold(vertex);
  showVertex(vertex);
  view.draw();
}

byId('vertex').addEventListener('change', ({ target }) => {
  const vertex = Number(target.value);
  const isVertex = target.value !== '' && Number.isInteger(vertex) && vertex >= 0 && 3 * vertex < view.cage.positions.length;
  hold(isVertex ? vertex : -1);
});
for (const axis of ['x', 'y', 'z'])
  byId(`vertex-${axis}`).addEventListener('input', () => {
    const position = ['x', 'y', 'z'].map((a) => byId(`vertex-${a}`).valueAsNumber);
    if (held >= 0 && position.every(Number.isFinite)) moveTo(held, position);
  });
byId('vertex-reset').addEventListener('click', () => cage && open(cage, { isSample: cage.isSample, camera: view.standpoint }));

watchPointer(view, {
  click: askPoint,
  canHold: () => panel.settings.cage,
  hold,
  drag: moveTo,
  key(key) {
    if (key === 'c') panel.look({ cage: !panel.settings.cage });
    else if (key === 'b') panel.look({ borders: !panel.settings.borders });
    else panel.look({ view: views[Number(key) - 1].id });
  },
});

// --- saving

const stem = () => (cage?.name ?? 'surface').replace(/\.[^.]+$/, '');

byId('save-picture').addEventListener('click', async () => download(await view.picture(), `${stem()}.png`));

async function saveMesh(suffix, convert) {
  setBusy(true);
  try {
    const mesh = await engine.tessellate(panel.settings.level || 3);
    download(convert(mesh), `${stem()}.${suffix}`);
  } catch (problem) {
    complain(problem, 'Nothing was saved: ');
  } finally {
    setBusy(false);
  }
}
byId('save-obj').addEventListener('click', () => saveMesh('obj', toObj));
byId('save-glb').addEventListener('click', () => saveMesh('glb', toGlb));

byId('copy-link').addEventListener('click', async () => {
  if (!cage) return;
  try {
    const hash = await toHash({
      name: cage.name,
      format: cage.format,
      ...(cage.isSample ? {} : { text: new TextDecoder().decode(cage.text) }),
      moved: Object.fromEntries(moved),
      settings: panel.settings,
      camera: view.standpoint,
    });
    const link = new URL(hash, location.href).href;
    byId('link').value = link;
    byId('link-row').hidden = false;
    byId('link').select();
    await navigator.clipboard?.writeText(link).then(
      () => notify('The link is on the clipboard. It holds the cage itself.'),
      () => notify('The link stands below Save. It holds the cage itself.'),
    );
  } catch (problem) {
    complain(problem);
  }
});

// --- the rest

byId('notice-close').addEventListener('click', () => notify(''));
watchDrops(byId('drop'), openFile);
watchScheme(byId('scheme'), (scheme) => view.paint(scheme));
showVertex(-1);
showFindings([], false);

async function openLinked() {
  try {
    const linked = await fromHash(location.hash);
    if (!linked) return false;
    panel.settings = checkedSettings(linked.settings);
    panel.show();
    const isSample = linked.text === undefined;
    const file = isSample
      ? await readSample(linked.name)
      : { name: linked.name, format: linked.format, text: new TextEncoder().encode(linked.text) };
    await open(file, { isSample, movedVertices: linked.moved, camera: linked.camera });
    return true;
  } catch (problem) {
    complain(problem);
    return false;
  }
}
window.addEventListener('hashchange', openLinked);
if (!(await openLinked())) await openSample(samples[0].file);
