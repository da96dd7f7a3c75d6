/** For everyone, and for nobody else: accessibility, no other host, no words of trouble in the console. */
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { openPage } from './page.mjs';
import { torus } from './program.mjs';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

export const tests = {
  async 'no serious finding of axe, in both schemes and on a phone'() {
    for (const how of [{ scheme: 'light' }, { scheme: 'dark' }, { width: 420, height: 800 }]) {
      const opened = await openPage(how);
      try {
        await opened.load();
        await opened.set('view-class', true);
        await opened.page.$$eval('details', (all) => all.forEach((details) => (details.open = true)));
        await opened.after('refused', () => opened.drop('broken.obj', 'v 0 0\n'));
        await opened.page.evaluate(axe);
        const violations = await opened.page.evaluate(async () => (await window.axe.run()).violations);
        const serious = violations.filter(({ impact }) => ['serious', 'critical'].includes(impact));
        const said = serious.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).join(' ')}`);
        assert.deepEqual(said, []);
        const unnamed = await opened.page.$$eval('input, select, button, canvas', (all) =>
          all
            .filter((e) => !e.labels?.length && !e.ariaLabel && !e.textContent.trim() && !e.getAttribute('aria-label'))
            .map((e) => e.outerHTML),
        );
        assert.deepEqual(unnamed, []);
      } finally {
        await opened.close();
      }
    }
  },

  async 'asks no other host, keeps nothing, and says nothing to the console'() {
    const opened = await openPage();
    try {
      await opened.load();
      await opened.after('built', () => opened.drop('ring.obj', torus(12, 8)));
      await opened.after('built', () => opened.set('depth', '6'));
      const kept = await opened.page.evaluate(() => ({
        cookie: document.cookie,
        local: localStorage.length,
        session: sessionStorage.length,
      }));
      assert.deepEqual(kept, { cookie: '', local: 0, session: 0 });
      assert.deepEqual(opened.foreign, []);
      assert.deepEqual(opened.errors, []);
    } finally {
      await opened.close();
    }
  },
};
