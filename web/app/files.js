/** Cages from files: what is taken, and what is said of the rest. */

export const largestFile = 32 * 1024 * 1024;

/** What a person did wrong, in a sentence to show. */
export class Refusal extends Error {}

/** @param {number} bytes */
export function sizeText(bytes) {
  if (bytes < 1000) return `${bytes} bytes`;
  if (bytes < 1e6) return `${(bytes / 1e3).toFixed(0)} KB`;
  return `${(bytes / 1e6).toFixed(bytes < 1e7 ? 1 : 0)} MB`;
}

/**
 * The text of a file, if it may be a cage. Nothing of a file that is too large is read.
 * @param {File} file
 * @returns {Promise<{name: string, format: 'obj' | 'usda', text: Uint8Array}>}
 */
export async function readCageFile(file) {
  const name = file.name;
  const suffix = (/\.([^.]+)$/.exec(name)?.[1] ?? '').toLowerCase();
  if (file.size > largestFile)
    throw new Refusal(
      `${name} has ${sizeText(file.size)}, and this page takes up to ${sizeText(largestFile)}. ` +
        'The program sds reads larger ones.',
    );
  if (!['obj', 'usda', 'usd'].includes(suffix))
    throw new Refusal(`${name} is not a cage that this page reads: it takes .obj and .usda.`);
  let text;
  try {
    text = new Uint8Array(await file.arrayBuffer());
  } catch {
    throw new Refusal(`${name} could not be read. Folders have to be opened file by file.`);
  }
  if (text.length === 0) throw new Refusal(`${name} is empty.`);
  return { name, format: suffix === 'obj' ? 'obj' : 'usda', text };
}

/**
 * Calls `open` with a file that is dropped anywhere on the page.
 * @param {HTMLElement} cover shown while a file is over the page
 * @param {(file: File, count: number) => void} open
 */
export function watchDrops(cover, open) {
  let depth = 0;
  const hasFiles = (event) => event.dataTransfer?.types.includes('Files');
  window.addEventListener('dragenter', (event) => {
    if (!hasFiles(event)) return;
    event.preventDefault();
    ++depth;
    cover.hidden = false;
  });
  window.addEventListener('dragover', (event) => event.preventDefault());
  window.addEventListener('dragleave', () => {
    depth = Math.max(0, depth - 1);
    if (depth === 0) cover.hidden = true;
  });
  window.addEventListener('drop', (event) => {
    event.preventDefault();
    depth = 0;
    cover.hidden = true;
    const files = event.dataTransfer?.files;
    if (files?.length) open(files[0], files.length);
  });
}

/** The eight cages that come with the page. @type {{file: string, title: string}[]} */
export const samples = [
  { file: 'knot.obj', title: 'Knot' },
  { file: 'body.obj', title: 'Body' },
  { file: 'turned.obj', title: 'Turned finial' },
  { file: 'sheet.obj', title: 'Sheet with a hole' },
  { file: 'seams.obj', title: 'Box with seams' },
  { file: 'bracket.obj', title: 'Bracket' },
  { file: 'shell.obj', title: 'Shell' },
  { file: 'lantern.usda', title: 'Lantern' },
];

/** @param {string} file one of `samples` */
export async function readSample(file) {
  const answer = await fetch(`samples/${file}`);
  if (!answer.ok) throw new Refusal(`The example ${file} is not beside the page.`);
  const text = new Uint8Array(await answer.arrayBuffer());
  return { name: file, format: /** @type {'obj' | 'usda'} */ (file.split('.').pop()), text };
}
