/** Every control leads to what its label says. */
import assert from 'node:assert/strict';
import { openPage } from './page.mjs';

const pictureOf = async (opened) => {
  await opened.frames();
  const box = await (await opened.page.$('#canvas')).boundingBox();
  return Buffer.from(await opened.page.screenshot({ clip: box })).toString('base64');
};

export const tests = {
  async 'views, overlays and schemes change the picture'() {
    const opened = await openPage({ width: 700, height: 500 });
    try {
      await opened.load();
      const seen = new Map();
      const see = async (name) => {
        const picture = await pictureOf(opened);
        for (const [other, before] of seen) assert.ok(picture !== before, `${name} looks like ${other}`);
        seen.set(name, picture);
      };
      await see('cage');
      await opened.set('show-cage', false);
      for (const view of ['surface', 'class', 'level', 'normals', 'uv', 'reflection', 'curvature']) {
        await opened.page.click(`label:has(#view-${view})`);
        await see(view);
      }
      await opened.set('curvature', 'gaussian');
      await see('Gaussian curvature');
      await opened.set('show-borders', true);
      await see('borders');
      await opened.set('scheme', 'dark');
      await see('dark');
      assert.equal(await opened.page.$eval('html', (e) => e.dataset.scheme), 'dark');
    } finally {
      await opened.close();
    }
  },

  async 'sliders rebuild and say what they did'() {
    const opened = await openPage();
    try {
      await opened.load();
      const first = await opened.after('built', () => opened.set('sample', 'bracket.obj'));
      assert.equal(first.statistics.isolation.depth, 2);
      const deep = await opened.after('built', () => opened.set('depth', '4'));
      assert.ok(deep.statistics.isolation.patches > first.statistics.isolation.patches);
      const rounder = await opened.after('built', () => opened.set('sharpness', '0.5'));
      const sharp = await opened.after('built', () => opened.set('sharpness', '10'));
      assert.ok(rounder.statistics.area < deep.statistics.area && deep.statistics.area < sharp.statistics.area);
      const filed = await opened.after('built', () => opened.set('sharpness-file', true));
      assert.equal(filed.statistics.area, deep.statistics.area);
      const linear = await opened.after('built', () => opened.set('mode', '0'));
      assert.ok(linear.statistics.area > deep.statistics.area, 'the cage is larger than what it encloses');
      await opened.after('built', () => opened.set('level', '3'));
      const line = await opened.page.$eval('#build-line', (e) => e.textContent);
      assert.match(line, /^Built in [\d.]+ ms: 152 quads, [\d,]+ patches$/);
      assert.equal(await opened.page.$eval('#level-value', (e) => e.textContent), '3');
    } finally {
      await opened.close();
    }
  },

  async 'what the page cannot draw is refused and the former surface stays'() {
    const opened = await openPage();
    try {
      await opened.load();
      const text = await opened.after('refused', () => opened.set('level', '6'));
      assert.match(text, /level 6 takes [\d]+ points, the page draws at most/);
      assert.equal(await opened.page.$eval('#level', (e) => e.value), '0');
      await opened.page.click('#notice-close');
      assert.ok(await opened.page.$eval('#notice', (e) => e.hidden));
    } finally {
      await opened.close();
    }
  },
};
