/**
 * Links that hold a cage and a view. Everything stands behind the "#", which browsers do not send to a server:
 * base64url of deflated JSON.
 */
import { Refusal, samples, sizeText } from './files.js';

const longestLink = 400_000;

async function pipe(bytes, stream) {
  const piped = new Blob([bytes]).stream().pipeThrough(stream);
  return new Uint8Array(await new Response(piped).arrayBuffer());
}

function toBase64(bytes) {
  let binary = '';
  for (let i = 0; i < bytes.length; i += 8192) binary += String.fromCharCode(...bytes.subarray(i, i + 8192));
  return btoa(binary).replaceAll('+', '-').replaceAll('/', '_').replaceAll('=', '');
}

function fromBase64(text) {
  return Uint8Array.from(atob(text.replaceAll('-', '+').replaceAll('_', '/')), (c) => c.charCodeAt(0));
}

/**
 * @typedef {object} Linked
 * @property {string} name of the cage's file
 * @property {'obj' | 'usda'} format
 * @property {string} [text] of a cage that is no sample
 * @property {Record<string, number[]>} moved vertices that stand elsewhere than in the file
 * @property {Record<string, any>} settings
 * @property {{position: number[], target: number[]}} camera
 */

/** @param {Linked} what @returns {Promise<string>} the part from "#" on */
export async function toHash(what) {
  const packed = await pipe(new TextEncoder().encode(JSON.stringify(what)), new CompressionStream('deflate-raw'));
  const hash = `#q1=${toBase64(packed)}`;
  if (hash.length > longestLink)
    throw new Refusal(
      `A link with this cage would be ${sizeText(hash.length)} long, more than browsers pass on. Share the file instead.`,
    );
  return hash;
}

const areNumbers = (values, count) =>
  Array.isArray(values) && values.length === count && values.every((x) => Number.isFinite(x));

/** @param {string} hash @returns {Promise<Linked | null>} nothing where there is no link; throws Refusal for a bad one */
export async function fromHash(hash) {
  if (!hash.startsWith('#q1=')) return null;
  try {
    const json = await pipe(fromBase64(hash.slice(4)), new DecompressionStream('deflate-raw'));
    const what = JSON.parse(new TextDecoder().decode(json));
    const isCage = typeof what.text === 'string' || samples.some(({ file }) => file === what.name);
    const isCamera = areNumbers(what.camera?.position, 3) && areNumbers(what.camera?.target, 3);
    const isMoved = Object.values(what.moved ?? {}).every((place) => areNumbers(place, 3));
    if (typeof what.name === 'string' && ['obj', 'usda'].includes(what.format) && isCage && isCamera && isMoved)
      return what;
  } catch {
    // said below
  }
  throw new Refusal('This link is damaged: it holds no cage that can be read.');
}
