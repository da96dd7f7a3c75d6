/** Mouse, touch and keys on the view. */
import assert from 'node:assert/strict';
import { openPage } from './page.mjs';
import { torus } from './program.mjs';

const linkOf = async (opened) => {
  await opened.page.$eval('#link', (field) => (field.value = ''));
  await opened.page.$eval('#copy-link', (button) => button.click());
  await opened.page.waitForFunction(() => /** @type {any} */ (document.getElementById('link')).value !== '');
  return opened.page.$eval('#link', (field) => field.value);
};

export const tests = {
  async 'a vertex is dragged by the mouse, and the surface follows'() {
    const opened = await openPage();
    try {
      await opened.load();
      await opened.after('built', () => opened.drop('ring.obj', torus(100, 50)));
      // Feels for a vertex in the middle of the ring's front.
      let found = null;
      for (let x = 300; x < 600 && !found; x += 4) {
        await opened.page.mouse.move(x, 560);
        if ((await opened.page.$eval('#canvas', (c) => c.style.cursor)) === 'grab') found = x;
      }
      assert.ok(found, 'no vertex under the mouse');
      const from = await opened.count();
      await opened.page.mouse.down();
      for (let i = 1; i <= 15; ++i) await opened.page.mouse.move(found + 4 * i, 560 + 3 * i);
      const moved = await opened.next('moved', from);
      await opened.page.mouse.up();
      assert.ok(moved.quads > 8 && moved.quads < 100, `${moved.quads} quads of 5,000 changed`);
      assert.notEqual(await opened.page.$eval('#vertex-x', (field) => field.value), '');
    } finally {
      await opened.close();
    }
  },

  async 'keys turn, zoom, frame, choose views and ask for a point'() {
    const opened = await openPage();
    try {
      await opened.load();
      await opened.page.focus('#canvas');
      const links = new Set([await linkOf(opened)]);
      await opened.page.focus('#canvas');
      for (const key of ['ArrowLeft', 'ArrowUp', '+', 'f']) {
        await opened.page.keyboard.press(key);
        await opened.frames();
        links.add(await linkOf(opened));
        await opened.page.focus('#canvas');
      }
      assert.ok(links.size >= 4, 'every key changes where the eye is');
      const { hit } = await opened.after('hit', () => opened.page.keyboard.press('Enter'));
      assert.ok(hit === null || hit.quad >= 0);
      await opened.page.keyboard.press('4');
      assert.ok(await opened.page.$eval('#view-normals', (radio) => radio.checked));
      await opened.page.keyboard.press('c');
      assert.equal(await opened.page.$eval('#show-cage', (box) => box.checked), false);
    } finally {
      await opened.close();
    }
  },

  async 'a tap asks for the point, a finger turns'() {
    const opened = await openPage({ width: 420, height: 800, hasTouch: true });
    try {
      await opened.load();
      await opened.set('show-cage', false);
      const box = await (await opened.page.$('#canvas')).boundingBox();
      assert.ok(box.height > 300 && box.width === 420, 'the panel lies below the view');
      const { hit } = await opened.after('hit', () => opened.page.touchscreen.tap(box.width / 2 - 60, box.height / 2));
      assert.ok(hit === null || hit.quad >= 0);
      const before = await linkOf(opened);
      await opened.page.touchscreen.touchStart(150, 200);
      for (let i = 1; i < 6; ++i) await opened.page.touchscreen.touchMove(150 + 15 * i, 200);
      await opened.page.touchscreen.touchEnd();
      await opened.frames();
      assert.notEqual(await linkOf(opened), before);
    } finally {
      await opened.close();
    }
  },
};
