/** Cages that are chosen and dropped: the examples, good files, and what is refused. */
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { samples } from '../app/files.js';
import { openPage } from './page.mjs';
import { root } from './paths.mjs';
import { info } from './program.mjs';

const cube = `${[0, 1, 2, 3, 4, 5, 6, 7].map((i) => `v ${i & 1} ${(i >> 1) & 1} ${i >> 2}`).join('\n')}
f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 3 7 8 4\nf 1 5 7 3\nf 2 4 8 6\n`;

const counts = ['polygons', 'control_vertices', 'quads', 'subdivision_step', 'vertices', 'patches', 'valences'];

export const tests = {
  async 'statistics of the examples are those of sds info'() {
    const opened = await openPage();
    try {
      await opened.load();
      for (const depth of [0, 3]) {
        await opened.after('built', () => opened.set('depth', String(depth)));
        for (const { file } of samples) {
          const { statistics } = await opened.after('built', () => opened.set('sample', file));
          if (!file.endsWith('.obj')) continue;
          const expected = info(join(root, 'assets', file), '--isolation', String(depth));
          for (const name of counts) assert.deepEqual(statistics[name], expected[name], `${file} ${depth} ${name}`);
          assert.deepEqual(statistics.bbox, expected.bbox, file);
          assert.ok(Math.abs(statistics.area - expected.area) <= 1e-6 * expected.area, file);
          if (depth > 0) {
            const { error, ...isolation } = expected.isolation;
            assert.deepEqual(statistics.isolation, isolation, file);
          }
        }
      }
    } finally {
      await opened.close();
    }
  },

  async 'a dropped cage opens, with its findings as sentences and their lines'() {
    const opened = await openPage();
    try {
      await opened.load();
      const text = `${cube}v 9 9 9\nnonsense 1\nt crease 2/1/0 0 1 2.5\n`;
      const { statistics } = await opened.after('built', () => opened.drop('box.obj', text));
      assert.equal(statistics.polygons, 6);
      const findings = () => opened.page.$$eval('#findings li', (items) => items.map((item) => item.textContent));
      assert.match((await findings()).join('\n'), /^Warning, line 16Unknown record \('nonsense'\): skipped\.$/m);
      assert.match((await findings()).join('\n'), /^NoteVertex that no polygon uses \(vertex 9\): kept\.$/m);
      await opened.after('built', () => opened.set('depth', '0'));
      assert.match((await findings()).join('\n'), /^Warning, line 17.*sharp/m, 'fractional sharpness without isolation');
      assert.equal(await opened.page.title(), 'box.obj: qn_sds');
    } finally {
      await opened.close();
    }
  },

  async 'a layer opens like the same cage as OBJ'() {
    const opened = await openPage();
    try {
      await opened.load();
      const { statistics } = await opened.after('built', () => opened.set('sample', 'lantern.usda'));
      assert.equal(statistics.polygons, 150);
      const layer = readFileSync(join(root, 'assets/lantern.usda'), 'utf8');
      const numbers = (name) => new RegExp(`${name} = \\[([^\\]]*)\\]`).exec(layer)[1].match(/-?[\d.]+/g);
      const lines = [];
      const points = numbers('points');
      for (let i = 0; i < points.length; i += 3) lines.push(`v ${points.slice(i, i + 3).join(' ')}`);
      const indices = numbers('faceVertexIndices').map((i) => Number(i) + 1);
      for (let i = 0; i < indices.length; i += 4) lines.push(`f ${indices.slice(i, i + 4).join(' ')}`);
      const creases = numbers('creaseIndices');
      numbers('creaseSharpnesses').forEach((s, i) => lines.push(`t crease 2/1/0 ${creases[2 * i]} ${creases[2 * i + 1]} ${s}`));
      const sharp = numbers('cornerSharpnesses');
      numbers('cornerIndices').forEach((v, i) => lines.push(`t corner 1/1/0 ${v} ${sharp[i]}`));
      for (const face of numbers('holeIndices')) lines.push(`t hole 1/0/0 ${face}`);
      const same = await opened.after('built', () => opened.drop('lantern.obj', `${lines.join('\n')}\n`));
      for (const name of [...counts, 'area', 'bbox', 'isolation'])
        assert.deepEqual(same.statistics[name], statistics[name], name);
    } finally {
      await opened.close();
    }
  },

  async 'bad files are named and refused, and the former cage stays'() {
    const opened = await openPage();
    try {
      await opened.load();
      /** @type {[string, string, RegExp, number?][]} */
      const bad = [
        ['empty.obj', '', /^empty\.obj is empty/],
        ['picture.png', 'PNG', /^picture\.png is not a cage/],
        ['huge.obj', '', /^huge\.obj has 100 MB, and this page takes up to 34 MB/, 100e6],
        ['words.obj', 'once upon a time\n', /^words\.obj: .*not an OBJ file/i],
        ['index.obj', `${cube}f 1 2 99\n`, /^index\.obj: line 15: vertex index out of range \(index 99 of 8\)/i],
        ['nan.obj', `${cube}v nan 0 0\n`, /^nan\.obj: line 15: not a number \('nan'\)/i],
        ['zero.obj', `${cube}f 0 1 2\n`, /^zero\.obj: line 15: index 0/i],
        ['points.obj', 'v 0 0 0\n', /^points\.obj: .*no polygon/i],
        ['binary.obj', 'v 0 0 0\0\n', /^binary\.obj: .*not an OBJ/i],
        ['crate.usda', 'PXR-USDC\0\0', /^crate\.usda: .*binary USD/i],
        ['cut.usda', '#usda 1.0\ndef Mesh "a" {\n  int[] faceVertexCounts = [4, ', /^cut\.usda: line 3, column \d+/i],
        ['bare.usda', '#usda 1.0\ndef Xform "a" {}\n', /^bare\.usda: .*no Mesh/i],
      ];
      for (const [name, text, pattern, size] of bad) {
        const said = await opened.after('refused', () => opened.drop(name, text, size));
        assert.match(said, pattern);
        const notice = await opened.page.$eval('#notice', (e) => !e.hidden && e.textContent);
        assert.ok(notice && notice.includes(name), name);
        assert.equal(await opened.page.title(), 'knot.obj: qn_sds');
      }
      const { statistics } = await opened.after('built', () => opened.set('depth', '1'));
      assert.equal(statistics.polygons, 1440, 'the former cage still answers');
    } finally {
      await opened.close();
    }
  },
};
