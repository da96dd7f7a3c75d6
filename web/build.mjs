/**
 * Puts the page together: build/web/page, one folder that any static server serves.
 *
 * What the module's build left in build/web/bin goes in beside the bundled scripts; the examples come from assets/.
 */
import { build } from 'esbuild';
import { cp, mkdir, readdir, rm, stat, copyFile } from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { samples } from './app/files.js';

const here = dirname(fileURLToPath(import.meta.url));
const root = dirname(here);
const page = process.argv[2] ?? join(root, 'build/web/page');
const limit = 2e6;

await rm(page, { recursive: true, force: true });
await mkdir(join(page, 'samples'), { recursive: true });
await build({
  entryPoints: [join(here, 'app/main.js'), join(here, 'app/worker.js')],
  outdir: page,
  bundle: true,
  minify: true,
  format: 'esm',
  target: 'es2022',
  legalComments: 'linked',
  logLevel: 'warning',
});
for (const name of ['index.html', 'style.css', 'icon.svg', 'served.js']) await copyFile(join(here, 'app', name), join(page, name));
await copyFile(join(root, 'build/web/bin/sds_page.wasm'), join(page, 'sds_page.wasm'));
for (const { file } of samples) await cp(join(root, 'assets', file), join(page, 'samples', file));

let size = 0;
for (const entry of await readdir(page, { withFileTypes: true })) {
  if (!entry.isFile()) continue;
  const bytes = (await stat(join(page, entry.name))).size;
  size += bytes;
  console.log(`${String(bytes).padStart(9)} ${entry.name}`);
}
console.log(`${String(size).padStart(9)} together, without the examples: ${page}`);
if (size > limit) throw new Error(`the page has ${size} bytes, more than ${limit}`);
