/** The program `sds` on the same input, and .npy files for it. */
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { sds } from './paths.mjs';

/** @param {string[]} options */
export function info(mesh, ...options) {
  return JSON.parse(execFileSync(sds, ['info', mesh, '--json', '--quiet', ...options], { encoding: 'utf8' }));
}

function writeNpy(path, rows, width) {
  let header = `{'descr': '<f8', 'fortran_order': False, 'shape': (${rows.length}, ${width}), }`;
  header = header.padEnd(64 * Math.ceil((header.length + 11) / 64) - 11) + '\n';
  const head = Buffer.alloc(10);
  head.write('\x93NUMPY\x01\x00', 0, 'latin1');
  head.writeUInt16LE(header.length, 8);
  writeFileSync(path, Buffer.concat([head, Buffer.from(header), Buffer.from(new Float64Array(rows.flat()).buffer)]));
}

function readNpy(path, width) {
  const bytes = readFileSync(path);
  const values = new Float64Array(new Uint8Array(bytes.subarray(10 + bytes.readUInt16LE(8))).buffer);
  return Array.from({ length: values.length / width }, (_, i) => Array.from(values.subarray(i * width, (i + 1) * width)));
}

/**
 * Hits of rays given by origin and direction: rows quad u v t and fifteen numbers of the sample.
 * @param {string} mesh @param {{origin: number[], direction: number[]}[]} rays @param {string[]} options
 */
export function intersect(mesh, rays, ...options) {
  const place = mkdtempSync(join(tmpdir(), 'qn-rays-'));
  try {
    const [input, output] = [join(place, 'rays.npy'), join(place, 'hits.npy')];
    writeNpy(input, rays.map(({ origin, direction }) => [...origin, ...direction, 0, Infinity]), 8);
    execFileSync(sds, ['intersect', mesh, '--quiet', '--samples', '--rays', input, '--hits', output, ...options]);
    return readNpy(output, 19);
  } finally {
    rmSync(place, { recursive: true });
  }
}

/** A ring of n x m quads around the y axis, as OBJ. */
export function torus(n, m) {
  const lines = [];
  for (let i = 0; i < n; ++i)
    for (let j = 0; j < m; ++j) {
      const [a, b] = [(2 * Math.PI * i) / n, (2 * Math.PI * j) / m];
      const r = 1 + 0.4 * Math.cos(b);
      lines.push(`v ${(r * Math.cos(a)).toFixed(6)} ${(0.4 * Math.sin(b)).toFixed(6)} ${(r * Math.sin(a)).toFixed(6)}`);
    }
  const at = (i, j) => (i % n) * m + (j % m) + 1;
  for (let i = 0; i < n; ++i)
    for (let j = 0; j < m; ++j) lines.push(`f ${at(i, j)} ${at(i, j + 1)} ${at(i + 1, j + 1)} ${at(i + 1, j)}`);
  return `${lines.join('\n')}\n`;
}
