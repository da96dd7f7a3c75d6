/** Pointer and keys on the view: a click asks for a point, a drag from a vertex moves it, keys do what the mouse does. */

const clickReach = 5;

/**
 * @param {import('./scene.js').View} view
 * @param {object} on
 * @param {(at: {x: number, y: number}) => void} on.click
 * @param {(vertex: number) => void} on.hold a vertex was taken hold of
 * @param {(vertex: number, position: number[]) => void} on.drag
 * @param {(key: string) => void} on.key
 * @param {() => boolean} on.canHold
 */
export function watchPointer(view, on) {
  const { canvas } = view;
  /** @type {{id: number, x: number, y: number, vertex: number, wasMoved: boolean} | null} */
  let down = null;
  const fingers = new Set();
  const place = (event) => ({ x: event.offsetX, y: event.offsetY });
  const reach = (event) => (event.pointerType === 'mouse' ? 9 : 22);
  const vertexAt = (event) => (on.canHold() ? view.cage.vertexAt(view.camera, place(event), view.size, reach(event)) : -1);

  // Before the camera's controls, which would begin to turn.
  canvas.addEventListener(
    'pointerdown',
    (event) => {
      fingers.add(event.pointerId);
      if (fingers.size > 1 || event.button !== 0) {
        down = null;
        view.controls.enabled = true;
        return;
      }
      const vertex = vertexAt(event);
      down = { id: event.pointerId, ...place(event), vertex, wasMoved: false };
      view.controls.enabled = vertex < 0;
      if (vertex < 0) return;
      canvas.setPointerCapture(event.pointerId);
      on.hold(vertex);
    },
    { capture: true },
  );
  canvas.addEventListener('pointermove', (event) => {
    if (!down) {
      if (event.pointerType === 'mouse') canvas.style.cursor = vertexAt(event) >= 0 ? 'grab' : '';
      return;
    }
    if (event.pointerId !== down.id) return;
    const at = place(event);
    down.wasMoved ||= Math.hypot(at.x - down.x, at.y - down.y) > clickReach;
    if (down.vertex < 0 || !down.wasMoved) return;
    const { positions } = view.cage;
    const point = Array.from(positions.slice(3 * down.vertex, 3 * down.vertex + 3));
    on.drag(down.vertex, view.beside(at, point));
  });
  const release = (event, isClick) => {
    fingers.delete(event.pointerId);
    if (!down || event.pointerId !== down.id) return;
    if (isClick && !down.wasMoved && down.vertex < 0) on.click(place(event));
    down = null;
    view.controls.enabled = true;
  };
  canvas.addEventListener('pointerup', (event) => release(event, true));
  canvas.addEventListener('pointercancel', (event) => release(event, false));

  const step = Math.PI / 24;
  const keys = {
    ArrowLeft: (shift) => (shift ? view.pan(0.05, 0) : view.turn(-step, 0)),
    ArrowRight: (shift) => (shift ? view.pan(-0.05, 0) : view.turn(step, 0)),
    ArrowUp: (shift) => (shift ? view.pan(0, -0.05) : view.turn(0, -step)),
    ArrowDown: (shift) => (shift ? view.pan(0, 0.05) : view.turn(0, step)),
    '+': () => view.zoom(0.9),
    '=': () => view.zoom(0.9),
    '-': () => view.zoom(1 / 0.9),
    f: () => view.frame(false),
    Enter: () => on.click({ x: view.size.width / 2, y: view.size.height / 2 }),
  };
  canvas.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const key = event.key.length === 1 ? event.key.toLowerCase() : event.key;
    if (keys[key]) keys[key](event.shiftKey);
    else if (/^[1-7cb]$/.test(key)) on.key(key);
    else return;
    event.preventDefault();
  });
}
