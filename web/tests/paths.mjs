/** Where things are: for those who look before anything is loaded. */
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = dirname(dirname(dirname(fileURLToPath(import.meta.url))));
export const folder = process.env.QN_PAGE ?? join(root, 'build/web/page');
export const chromium = process.env.CHROMIUM ?? '/usr/bin/chromium';
export const sds = process.env.QN_SDS ?? join(root, 'build/bin/sds');
