/** The hit that the page says is the program's, and vertices that are moved carry the surface along. */
import assert from 'node:assert/strict';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { openPage } from './page.mjs';
import { root } from './paths.mjs';
import { info, intersect, torus } from './program.mjs';

const near = (a, b, what) => assert.ok(Math.abs(a - b) <= 1e-6 * Math.max(1, Math.abs(b)), `${what}: ${a} and ${b}`);

/** Clicks over the view and gives the rays and hits that the page tells of. */
async function clicks(opened) {
  const told = [];
  for (let i = 0; i < 12; ++i)
    told.push(await opened.after('hit', () => opened.page.mouse.click(250 + 47 * i, 230 + ((i * 131) % 340))));
  return told;
}

function compare(told, hits) {
  let count = 0;
  told.forEach(({ hit }, i) => {
    const [quad, u, v, t, ...sample] = hits[i];
    if (!hit) return assert.equal(quad, -1);
    ++count;
    assert.equal(hit.quad, quad);
    near(hit.u, u, 'u');
    near(hit.v, v, 'v');
    near(hit.t, t, 't');
    sample.forEach((x, k) => near(hit.sample[k], x, `sample ${k}`));
  });
  assert.ok(count >= 3, `${count} hits`);
}

export const tests = {
  async 'picked hits are those of sds intersect'() {
    const opened = await openPage();
    try {
      await opened.load();
      await opened.set('show-cage', false);
      for (const [file, depth, level] of [['knot.obj', 0, 0], ['bracket.obj', 3, 0], ['turned.obj', 2, 2], ['seams.obj', 0, 3]]) {
        if (file !== 'knot.obj') await opened.after('built', () => opened.set('sample', file));
        await opened.after('built', () => opened.set('depth', String(depth)));
        if (level) await opened.after('built', () => opened.set('level', String(level)));
        const told = await clicks(opened);
        const options = ['--isolation', String(depth), '--level', String(level)];
        compare(told, intersect(join(root, 'assets', file), told, ...options));
        if (level) await opened.after('built', () => opened.set('level', '0'));
      }
      const exact = await opened.page.$$eval('#point [data-exact]', (rows) => rows.map((row) => row.dataset.name));
      assert.deepEqual(exact, ['Quad', 'u', 'v', 'Position', 'Normal', 'Distance']);
    } finally {
      await opened.close();
    }
  },

  async 'a moved vertex gives the surface of the moved cage'() {
    const opened = await openPage();
    const place = mkdtempSync(join(tmpdir(), 'qn-moved-'));
    try {
      await opened.load();
      const lines = torus(12, 8).split('\n');
      await opened.after('built', () => opened.drop('ring.obj', lines.join('\n')));
      await opened.set('vertex', '20');
      // One after the other, while the module still moves the vertex for the one before.
      await opened.page.evaluate(async () => {
        const arrived = new Promise((resolve) =>
          document.addEventListener('qn:moved', ({ detail }) => detail.position.every((x) => x === 0.75) && resolve()),
        );
        for (const axis of ['x', 'y', 'z']) {
          const field = document.getElementById(`vertex-${axis}`);
          field.value = '0.75';
          field.dispatchEvent(new Event('input', { bubbles: true }));
          if (axis === 'y') await new Promise((resolve) => document.addEventListener('qn:moved', resolve, { once: true }));
        }
        await arrived;
      });
      await opened.frames();
      lines[20] = 'v 0.75 0.75 0.75';
      writeFileSync(join(place, 'moved.obj'), lines.join('\n'));
      const told = await clicks(opened);
      compare(told, intersect(join(place, 'moved.obj'), told, '--isolation', '2'));

      // Whether every quad that moved was drawn anew: building all of it changes nothing.
      const picture = () => opened.page.screenshot({ clip: { x: 0, y: 0, width: 880, height: 800 } });
      await opened.page.focus('#scheme');
      await opened.set('show-cage', false);
      await opened.set('view-normals', true);
      await opened.set('vertex', '');
      await opened.after('built', () => opened.set('depth', '3'));
      await opened.after('built', () => opened.set('depth', '2'));
      await opened.frames();
      const whole = await picture();
      const expected = info(join(place, 'moved.obj'), '--isolation', '2');
      const rebuilt = await opened.after('built', () => opened.set('depth', '2'));
      assert.deepEqual(rebuilt.statistics.bbox, expected.bbox);
      await opened.set('vertex', '20');
      for (const x of ['0.2', '0.75']) {
        await opened.after('moved', () => opened.set('vertex-x', x));
      }
      await opened.set('vertex', '');
      await opened.frames();
      assert.ok(Buffer.from(whole).equals(Buffer.from(await picture())), 'moved there and back, not as built');
      await opened.after('built', () => opened.page.$eval('#vertex-reset', (button) => button.click()));
      assert.ok(await opened.page.$eval('#vertex-reset', (button) => button.disabled));
    } finally {
      rmSync(place, { recursive: true });
      await opened.close();
    }
  },
};
