/**
 * Everything that a visitor does, in a headless browser, against the program.
 *
 *     node web/tests/run.mjs [NAME ...]     only the tests whose names hold one of the words
 *
 * Exit 0: passed. 1: failed. 77: skipped, with the reason, where browser, page or program are missing.
 */
import { existsSync } from 'node:fs';
import { join } from 'node:path';
import { chromium, folder, root, sds } from './paths.mjs';

const needed = {
  'the Debian package chromium brings it': chromium,
  '`make web` builds it': join(folder, 'index.html'),
  '`make web` fetches them': join(root, 'web/node_modules/puppeteer-core'),
  '`make build` builds it': sds,
};
for (const [remedy, path] of Object.entries(needed))
  if (!existsSync(path)) {
    console.log(`skipped: ${path} is missing; ${remedy}`);
    process.exit(77);
  }

const files = ['controls', 'cages', 'surface', 'pointing', 'saving', 'access'];
const wanted = process.argv.slice(2);
let failures = 0;
let count = 0;
for (const file of files) {
  const { tests } = await import(`./${file}_test.mjs`);
  for (const [name, test] of Object.entries(tests)) {
    const title = `${file}: ${name}`;
    if (wanted.length && !wanted.some((word) => title.includes(word))) continue;
    ++count;
    const begin = performance.now();
    try {
      await test();
      console.log(`ok    ${title} (${((performance.now() - begin) / 1000).toFixed(1)} s)`);
    } catch (problem) {
      ++failures;
      console.log(`FAIL  ${title}\n${problem.stack ?? problem}`);
    }
  }
}
await (await import('./page.mjs')).closeBrowser();
console.log(`${count - failures} of ${count} passed`);
process.exit(failures || !count ? 1 : 0);
