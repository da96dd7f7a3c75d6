/**
 * The module in its worker, as promises. When the module breaks down, the worker is replaced and the last cage that was
 * accepted is loaded again.
 */

/**
 * @typedef {{severity: 'error' | 'warning' | 'note', place: string, sentence: string}} Note
 * @typedef {{depth: number, level: number, mode: number, sharpness: number | null}} BuildSettings
 */

export class Engine {
  #worker = this.#start();
  #nextId = 1;
  /** @type {Map<number, {resolve: Function, reject: Function}>} */
  #waiting = new Map();
  /** @type {{text: Uint8Array, format: string} | null} */
  #accepted = null;

  /** @param {Uint8Array} text @param {'obj' | 'usda'} format @returns {Promise<{loaded: boolean, notes: Note[]}>} */
  async load(text, format) {
    const result = await this.#call('load', { text, format });
    if (result.loaded) this.#accepted = { text, format };
    return result;
  }
  /** @param {BuildSettings} settings */
  build(settings) {
    return this.#call('build', settings);
  }
  /** @param {number} vertex @param {number[]} position */
  move(vertex, position) {
    return this.#call('move', { vertex, position });
  }
  /** @param {number[]} origin @param {number[]} direction */
  intersect(origin, direction) {
    return this.#call('intersect', { origin, direction });
  }
  /** @param {number} level */
  tessellate(level) {
    return this.#call('tessellate', { level });
  }

  #start() {
    const worker = new Worker(new URL('worker.js', document.baseURI), { type: 'module' });
    worker.onmessage = ({ data }) => this.#answer(data);
    worker.onerror = (event) => this.#restart(event.message || 'the module could not be loaded');
    return worker;
  }

  #call(call, argument) {
    const id = this.#nextId++;
    return new Promise((resolve, reject) => {
      this.#waiting.set(id, { resolve, reject });
      this.#worker.postMessage({ id, call, argument });
    });
  }

  #answer({ id, result, error, isBroken }) {
    const call = this.#waiting.get(id);
    if (!call) return;
    this.#waiting.delete(id);
    if (error === undefined) call.resolve(result);
    else call.reject(new Error(isBroken ? `the module stopped (${error})` : error));
    if (isBroken) this.#restart(error);
  }

  #restart(reason) {
    this.#worker.terminate();
    for (const { reject } of this.#waiting.values()) reject(new Error(`the module stopped (${reason})`));
    this.#waiting.clear();
    this.#worker = this.#start();
    if (this.#accepted) this.#call('load', this.#accepted).catch(() => {});
  }
}

/**
 * Runs one call at a time and keeps only the latest that came meanwhile: what a slider or a drag needs.
 * @param {(value: any) => Promise<void>} run
 * @returns {(value: any) => void}
 */
export function latestOnly(run) {
  let isRunning = false;
  /** @type {{value: any} | null} */
  let next = null;
  return async function ask(value) {
    next = { value };
    if (isRunning) return;
    isRunning = true;
    while (next) {
      const { value: taken } = next;
      next = null;
      await run(taken);
    }
    isRunning = false;
  };
}
