/** Pictures, tessellations and links. */
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { openPage } from './page.mjs';
import { root, sds } from './paths.mjs';

/** The bytes that a button saves. */
async function saved(opened, id) {
  await opened.page.evaluate(() => {
    window.saved = null;
    URL.createObjectURL = (blob) => {
      blob.arrayBuffer().then((bytes) => (window.saved = Array.from(new Uint8Array(bytes))));
      return '#saved';
    };
    HTMLAnchorElement.prototype.click = function () {
      window.savedName = this.download;
    };
  });
  await opened.page.$eval(`#${id}`, (button) => button.click());
  const bytes = await (await opened.page.waitForFunction(() => window.saved)).jsonValue();
  return { bytes: Buffer.from(bytes), name: await opened.page.evaluate(() => window.savedName) };
}

export const tests = {
  async 'picture, OBJ and GLB'() {
    const opened = await openPage();
    const place = mkdtempSync(join(tmpdir(), 'qn-saved-'));
    try {
      await opened.load();
      await opened.after('built', () => opened.set('sample', 'seams.obj'));
      const picture = await saved(opened, 'save-picture');
      assert.equal(picture.name, 'seams.png');
      assert.equal(picture.bytes.subarray(1, 4).toString(), 'PNG');
      assert.ok(picture.bytes.length > 20_000, 'a picture of nothing');

      const obj = await saved(opened, 'save-obj');
      const path = join(place, 'expected.obj');
      const options = ['--isolation', '2', '--quiet', '--level', '3', '--tessellation', path];
      execFileSync(sds, ['export', join(root, 'assets/seams.obj'), ...options]);
      const records = (text, kind) => text.split('\n').filter((line) => line.startsWith(`${kind} `));
      const [ours, theirs] = [obj.bytes.toString(), readFileSync(path, 'utf8')];
      assert.deepEqual(records(ours, 'f'), records(theirs, 'f'));
      for (const kind of ['v', 'vt']) {
        const floats = (text) => records(text, kind).map((line) => line.split(' ').slice(1, 4).map((x) => Math.fround(Number(x))));
        assert.deepEqual(floats(ours), floats(theirs), kind);
      }

      const { bytes } = await saved(opened, 'save-glb');
      assert.equal(bytes.readUInt32LE(0), 0x46546c67);
      assert.equal(bytes.readUInt32LE(8), bytes.length);
      const json = JSON.parse(bytes.subarray(20, 20 + bytes.readUInt32LE(12)).toString());
      assert.equal(json.accessors[0].count, 6 * records(theirs, 'f').length);
      assert.ok(json.meshes[0].primitives[0].attributes.TEXCOORD_0 !== undefined);
      assert.equal(json.buffers[0].byteLength, bytes.readUInt32LE(20 + bytes.readUInt32LE(12)));
    } finally {
      rmSync(place, { recursive: true });
      await opened.close();
    }
  },

  async 'a link brings back cage, moved vertices and view'() {
    const opened = await openPage();
    try {
      await opened.load();
      const text = readFileSync(join(root, 'assets/bracket.obj'), 'utf8');
      await opened.after('built', () => opened.drop('mine.obj', text));
      await opened.set('vertex', '3');
      await opened.after('moved', () => opened.set('vertex-y', '-2'));
      await opened.set('view-reflection', true);
      const before = await opened.after('built', () => opened.set('depth', '3'));
      await opened.page.$eval('#copy-link', (button) => button.click());
      await opened.page.waitForFunction(() => /** @type {any} */ (document.getElementById('link')).value !== '');
      const link = await opened.page.$eval('#link', (field) => field.value);
      const after = await opened.load(new URL(link).hash);
      assert.deepEqual(after.statistics.bbox, before.statistics.bbox);
      assert.deepEqual(after.statistics.isolation, before.statistics.isolation);
      assert.ok(await opened.page.$eval('#view-reflection', (radio) => radio.checked));
      assert.equal(await opened.page.title(), 'mine.obj: qn_sds');

      await opened.load('#q1=damaged');
      assert.match(await opened.page.$eval('#notice-text', (e) => e.textContent), /link is damaged|^$/);
    } finally {
      await opened.close();
    }
  },
};
