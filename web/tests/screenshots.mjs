/**
 * The pictures of the manual's page: node web/tests/screenshots.mjs [FOLDER], docs/images otherwise.
 */
import { join } from 'node:path';
import { closeBrowser, openPage } from './page.mjs';
import { root } from './paths.mjs';

const target = process.argv[2] ?? join(root, 'docs/images');

/** Name, example, view, further settings. @type {[string, string, string, Record<string, any>][]} */
const pictures = [
  ['page_patches', 'bracket.obj', 'level', { 'show-borders': true, 'show-cage': false }],
  ['page_reflection', 'body.obj', 'reflection', { 'show-cage': false }],
  ['page_curvature', 'knot.obj', 'curvature', { 'show-cage': false }],
  ['page_uv', 'seams.obj', 'uv', { 'show-cage': true }],
  ['page_normals', 'turned.obj', 'normals', { 'show-cage': false }],
];

/** @param {string} name @param {{width: number, height: number, scheme: 'light' | 'dark'}} how @param {(o: any) => Promise<void>} set */
async function shoot(name, how, set) {
  const opened = await openPage(how);
  try {
    await opened.load();
    await set(opened);
    await opened.frames();
    const canvas = await (await opened.page.$('#canvas')).boundingBox();
    const clip = name === 'page' ? undefined : canvas;
    await opened.page.screenshot({ path: join(target, `${name}.png`), clip });
  } finally {
    await opened.close();
  }
}

await shoot('page', { width: 1040, height: 700, scheme: 'light' }, async (opened) => {
  await opened.after('built', () => opened.set('sample', 'lantern.usda'));
  await opened.set('show-borders', true);
  const width = await opened.page.$eval('#canvas', (canvas) => canvas.clientWidth);
  await opened.after('hit', () => opened.page.mouse.click(width / 2 - 96, 335));
});
for (const [name, sample, view, settings] of pictures)
  await shoot(name, { width: 768, height: 400, scheme: name === 'page_patches' ? 'dark' : 'light' }, async (opened) => {
    if (sample !== 'knot.obj') await opened.after('built', () => opened.set('sample', sample));
    await opened.set(`view-${view}`, true);
    for (const [id, value] of Object.entries(settings)) await opened.set(id, value);
  });
await closeBrowser();
