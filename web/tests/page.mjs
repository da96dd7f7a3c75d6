/** A browser with the page in it, and what tests ask of it. */
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import puppeteer from 'puppeteer-core';
import { chromium, folder } from './paths.mjs';
import { serve } from './server.mjs';

/** One browser for all tests, a context of its own for each page. @type {Promise<any> | null} */
let launched = null;
let profile = '';

async function launch() {
  profile = await mkdtemp(join(tmpdir(), 'qn-page-'));
  return puppeteer.launch({
    executablePath: chromium,
    headless: true,
    userDataDir: profile,
    args: [
      '--no-sandbox',
      '--disable-gpu',
      '--use-angle=swiftshader',
      '--enable-unsafe-swiftshader',
      '--disable-quic',
      '--no-first-run',
      '--disable-background-networking',
      '--disable-component-update',
      '--disable-sync',
    ],
  });
}

export async function closeBrowser() {
  if (!launched) return;
  await (await launched).close();
  await rm(profile, { recursive: true, force: true });
  launched = null;
}

/**
 * @param {{width?: number, height?: number, hasTouch?: boolean, scheme?: 'light' | 'dark'}} [how]
 * @returns {Promise<Opened>}
 */
export async function openPage({ width = 1200, height = 800, hasTouch = false, scheme = 'light' } = {}) {
  const server = await serve(folder);
  launched ??= launch();
  const context = await (await launched).createBrowserContext();
  const page = await context.newPage();
  await page.setViewport({ width, height, hasTouch });
  await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: scheme }]);
  const opened = new Opened(page, server.url, async () => {
    await context.close();
    server.close();
  });
  await opened.watch();
  return opened;
}

export class Opened {
  /** Addresses of other hosts that the page asked for. @type {string[]} */
  foreign = [];
  /** What the console said in error. @type {string[]} */
  errors = [];

  constructor(page, url, close) {
    this.page = page;
    this.url = url;
    this.close = close;
  }

  async watch() {
    this.page.on('request', (request) => {
      const address = request.url();
      if (!address.startsWith(this.url) && !/^(data|blob):/.test(address)) this.foreign.push(address);
    });
    this.page.on('console', (message) => message.type() === 'error' && this.errors.push(message.text()));
    this.page.on('pageerror', (error) => this.errors.push(String(error)));
    await this.page.evaluateOnNewDocument(() => {
      window.told = [];
      for (const name of ['built', 'refused', 'hit', 'moved'])
        document.addEventListener(`qn:${name}`, ({ detail }) => window.told.push({ name, detail, at: performance.now() }));
    });
  }

  /** Loads the page and waits for its first surface. @param {string} [hash] */
  async load(hash = '') {
    await this.page.goto('about:blank');
    await this.page.goto(this.url + hash);
    return this.next('built', 0);
  }

  /** How many events were told so far. */
  count() {
    return this.page.evaluate(() => window.told.length);
  }

  /** The first event of a name from number `from` on. @returns {Promise<any>} its detail */
  async next(name, from, timeout = 60_000) {
    const handle = await this.page.waitForFunction(
      (wanted, first) => window.told.slice(first).find((event) => event.name === wanted),
      { timeout, polling: 20 },
      name,
      from,
    );
    return (await handle.jsonValue()).detail;
  }

  /** Does something and waits for what it leads to. @returns {Promise<any>} */
  async after(name, action) {
    const from = await this.count();
    await action();
    return this.next(name, from);
  }

  /** Sets a control as a person would. */
  set(id, value) {
    return this.page.$eval(
      `#${id}`,
      (control, given) => {
        if (control.type === 'checkbox' || control.type === 'radio') {
          if (control.checked !== given) control.click();
          return;
        }
        control.value = given;
        control.dispatchEvent(new Event('input', { bubbles: true }));
        control.dispatchEvent(new Event('change', { bubbles: true }));
      },
      value,
    );
  }

  /** Drops a file on the page. @param {string} name @param {string | Uint8Array} text @param {number} [size] instead */
  drop(name, text, size = 0) {
    return this.page.evaluate(
      (fileName, content, length) => {
        const file = new File([length ? new Uint8Array(length) : content], fileName);
        const dataTransfer = new DataTransfer();
        dataTransfer.items.add(file);
        for (const type of ['dragenter', 'dragover', 'drop'])
          document.body.dispatchEvent(new DragEvent(type, { dataTransfer, bubbles: true, cancelable: true }));
      },
      name,
      text,
      size,
    );
  }

  /** Two frames, so that what was asked for is drawn. */
  frames() {
    return this.page.evaluate(() => new Promise((r) => requestAnimationFrame(() => requestAnimationFrame(r))));
  }
}
