/** What the panel says: numbers, the point that was asked for, findings. */

const byId = (id) => /** @type {any} */ (document.getElementById(id));

/** A number as people read it; nine digits hold a single-precision one. */
const short = (x) => (Number.isFinite(x) ? String(Number(x.toPrecision(7))) : 'none');
const whole = (n) => n.toLocaleString('en');
const plural = (n, one, many = `${one}s`) => `${whole(n)} ${n === 1 ? one : many}`;
const triple = (v) => v.map(short).join('\n');

/**
 * Fills a list of names and values. `exact` stands in the element for those who read it by program.
 * @param {HTMLElement} list @param {[string, string, any?][]} rows
 */
function fill(list, rows) {
  list.replaceChildren(
    ...rows.map(([name, text, exact]) => {
      const row = document.createElement('div');
      const term = document.createElement('dt');
      const value = document.createElement('dd');
      term.textContent = name;
      value.textContent = text;
      if (exact !== undefined) row.dataset.exact = JSON.stringify(exact);
      row.dataset.name = name;
      row.append(term, value);
      return row;
    }),
  );
}

const entries = (counts, join = ' ') =>
  Object.entries(counts)
    .filter(([, count]) => count > 0)
    .map(([name, count]) => `${name}${join}${whole(count)}`)
    .join(', ');

/** @param {any} s statistics of a build */
export function showNumbers(s) {
  byId('cage-line').textContent = `${plural(s.polygons, 'polygon')}, ${plural(s.control_vertices, 'vertex', 'vertices')}`;
  const milliseconds = 1000 * s.build_seconds;
  byId('build-line').textContent =
    `Built in ${milliseconds < 10 ? milliseconds.toFixed(1) : milliseconds.toFixed(0)} ms: ` +
    `${plural(s.quads, 'quad')}, ${plural(s.isolation.patches, 'patch', 'patches')}`;
  byId('build-line').dataset.seconds = s.build_seconds;
  fill(byId('numbers'), [
    ['Polygons', whole(s.polygons), s.polygons],
    ['Vertices', whole(s.control_vertices), s.control_vertices],
    ['Quads', whole(s.quads) + (s.subdivision_step ? ', after one step' : ''), s.quads],
    ['Quad classes', entries(s.patches), s.patches],
    ['Patches', `${whole(s.isolation.patches)}, leaves ${whole(s.isolation.leaves)}`, s.isolation],
    ['by level', entries(s.isolation.levels, ': '), s.isolation.levels],
    ['Vertex kinds', entries(s.vertices), s.vertices],
    ['Valences', entries(s.valences, ': '), s.valences],
    ['Box from', triple(s.bbox.min), s.bbox.min],
    ['to', triple(s.bbox.max), s.bbox.max],
    ['Area', short(s.area), s.area],
    ['Memory', `${(s.bytes / 1024).toFixed(0)} KiB`, s.bytes],
    ...Object.entries(s.stages).map(([stage, seconds]) => [`Time, ${stage}`, `${(1000 * seconds).toFixed(2)} ms`]),
  ]);
}

/** @param {any | null} hit as the module gives it @param {{isMiss?: boolean}} [how] */
export function showPoint(hit, { isMiss = false } = {}) {
  byId('point').hidden = !hit;
  byId('point-empty').hidden = Boolean(hit);
  byId('point-empty').textContent = isMiss
    ? 'The ray misses the surface.'
    : 'Click the surface, or press Enter on it, for the exact hit of the ray.';
  if (!hit) return;
  byId('d-point').open = true;
  const rows = [
    ['Quad', whole(hit.quad), hit.quad],
    ['u', hit.u.toFixed(9), hit.u],
    ['v', hit.v.toFixed(9), hit.v],
    ['Position', triple(hit.sample.slice(0, 3)), hit.sample.slice(0, 3)],
    ['Normal', triple(hit.sample.slice(9, 12)), hit.sample.slice(9, 12)],
    ['Distance', short(hit.t), hit.t],
  ];
  fill(byId('point'), rows);
}

/** @param {import('./engine.js').Note[]} notes */
export function showFindings(notes) {
  byId('finding-count').textContent = notes.length ? String(notes.length) : 'none';
  byId('d-findings').open = notes.some(({ severity }) => severity !== 'note');
  const items = notes.map(({ severity, place, sentence }) => {
    const item = document.createElement('li');
    item.dataset.severity = severity;
    const head = document.createElement('b');
    const words = { error: 'Error', warning: 'Warning', note: 'Note' };
    head.textContent = words[severity] + (place ? `, ${place}` : '');
    item.append(head, sentence);
    return item;
  });
  if (items.length === 0) {
    const item = document.createElement('li');
    item.textContent = 'Nothing to say about this cage.';
    items.push(item);
  }
  byId('findings').replaceChildren(...items);
}

/** The errors among the findings as one text. @param {import('./engine.js').Note[]} notes */
export function errorText(notes) {
  const errors = notes.filter(({ severity }) => severity === 'error');
  return errors
    .slice(0, 3)
    .map(({ place, sentence }) => (place ? `${place[0].toUpperCase()}${place.slice(1)}: ${sentence}` : sentence))
    .join('\n');
}

let hideNotice = 0;

/** A message over the view. Errors stay until they are closed. @param {string} text @param {'error' | 'note'} kind */
export function notify(text, kind = 'note') {
  clearTimeout(hideNotice);
  const notice = byId('notice');
  notice.dataset.kind = kind;
  notice.hidden = !text;
  byId('notice-text').textContent = text;
  if (text && kind === 'note') hideNotice = window.setTimeout(() => (notice.hidden = true), 6000);
}

let showBusy = 0;

/** The thin bar: only for what takes long enough to be noticed. @param {boolean} isBusy */
export function setBusy(isBusy) {
  clearTimeout(showBusy);
  if (isBusy) showBusy = window.setTimeout(() => (byId('busy').hidden = false), 150);
  else byId('busy').hidden = true;
}

/** @param {{name: string, color: string}[]} swatches */
export function showLegend(swatches) {
  const legend = byId('legend');
  legend.hidden = swatches.length === 0;
  legend.replaceChildren(
    ...swatches.map(({ name, color }) => {
      const entry = document.createElement('span');
      entry.style.setProperty('--swatch', color);
      entry.textContent = name;
      return entry;
    }),
  );
}
