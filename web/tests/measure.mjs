/**
 * How fast the page is, as a table: builds in the browser against the program on one thread, and a vertex that is
 * dragged over 5,000 quads.
 *
 *     node web/tests/measure.mjs [TWIN]     TWIN: a program sds built with -DQN_SIMD_SCALAR=ON; build/bin/sds otherwise
 *
 * Both sides take turns, so that what else the machine does falls on both; the fastest of the turns counts.
 */
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { closeBrowser, openPage } from './page.mjs';
import { root, sds } from './paths.mjs';
import { torus } from './program.mjs';

const program = process.argv[2] ?? sds;
const turns = 9;

const place = mkdtempSync(join(tmpdir(), 'qn-measure-'));
const opened = await openPage();
try {
  const ring = join(place, 'ring.obj');
  const large = join(place, 'large.obj');
  writeFileSync(ring, torus(100, 50));
  writeFileSync(large, torus(400, 200));
  await opened.load();
  console.log('| cage | quads | isolation | browser, ms | native, ms | ratio |\n|---|---:|---:|---:|---:|---:|');
  const cages = [
    ['knot', join(root, 'assets/knot.obj')],
    ['turned', join(root, 'assets/turned.obj')],
    ['bracket', join(root, 'assets/bracket.obj')],
    ['ring', ring],
    ['large ring', large],
  ];
  for (const [name, path] of cages)
    for (const depth of [0, 2]) {
      if (name === 'large ring') await opened.set('level', '1');
      await opened.set('depth', String(depth));
      const input = await opened.page.$('#file');
      const times = { page: [], native: [] };
      let quads = 0;
      for (let turn = 0; turn < turns; ++turn) {
        const { statistics } = await opened.after('built', () => input.uploadFile(path));
        quads = statistics.quads;
        times.page.push(statistics.build_seconds);
        const options = ['info', path, '--json', '--quiet', '--threads', '1', '--isolation', String(depth)];
        times.native.push(JSON.parse(execFileSync(program, options, { encoding: 'utf8' })).build_seconds);
      }
      const [page, native] = [times.page, times.native].map((list) => 1000 * Math.min(...list));
      const numbers = [page.toFixed(2), native.toFixed(2), (page / native).toFixed(2)];
      console.log(`| ${name} | ${quads} | ${depth} | ${numbers.join(' | ')} |`);
    }

  await opened.set('level', '0');
  await opened.set('depth', '2');
  await opened.after('built', async () => (await opened.page.$('#file')).uploadFile(ring));
  await opened.set('vertex', '1200');
  const drag = await opened.page.evaluate(
    () =>
      new Promise((resolve) => {
        const frames = [];
        const field = document.getElementById('vertex-y');
        const first = window.told.length;
        const step = (now) => {
          frames.push(now);
          field.value = String(0.4 + 0.2 * Math.sin(frames.length / 9));
          field.dispatchEvent(new Event('input'));
          if (now - frames[0] < 6000) return requestAnimationFrame(step);
          const moves = window.told.slice(first).filter(({ name }) => name === 'moved');
          const work = moves.map(({ detail }) => detail.milliseconds).sort((a, b) => a - b);
          resolve({
            seconds: (now - frames[0]) / 1000,
            frames: frames.length,
            moves: moves.length,
            work: work[Math.floor(work.length / 2)],
          });
        };
        requestAnimationFrame(step);
      }),
  );
  const rate = (n) => (n / drag.seconds).toFixed(0);
  console.log(
    `\nA vertex dragged over 5,000 quads: ${rate(drag.frames)} frames and ${rate(drag.moves)} new surfaces a second, ` +
      `${drag.work.toFixed(1)} ms of work each in the worker.`,
  );
} finally {
  await opened.close();
  await closeBrowser();
  rmSync(place, { recursive: true });
}
