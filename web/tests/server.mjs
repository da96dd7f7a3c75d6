/** A static server for the tests, on a free port of this machine. */
import { createServer } from 'node:http';
import { readFile } from 'node:fs/promises';
import { extname, join, normalize } from 'node:path';

const types = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript',
  '.css': 'text/css',
  '.svg': 'image/svg+xml',
  '.wasm': 'application/wasm',
};

/** @param {string} folder @returns {Promise<{url: string, close: () => void}>} */
export async function serve(folder) {
  const server = createServer(async (request, response) => {
    const path = normalize(decodeURIComponent(new URL(request.url, 'http://here').pathname));
    try {
      const body = await readFile(join(folder, path.endsWith('/') ? `${path}index.html` : path));
      response.writeHead(200, { 'content-type': types[extname(path)] ?? (path.endsWith('/') ? types['.html'] : 'text/plain') });
      response.end(body);
    } catch {
      response.writeHead(404).end('not here');
    }
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = /** @type {import('node:net').AddressInfo} */ (server.address());
  return { url: `http://127.0.0.1:${port}/`, close: () => server.close() };
}
