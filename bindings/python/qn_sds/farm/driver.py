"""From frames to files: cuts frames into tasks for Dask, collects what they answer, and has whole frames written.

Which worker takes which task, and again after a fault, is Dask's to decide. Tasks of earlier frames come first; those
of one frame go where its scene is built while there are as many frames as workers.
"""

import contextlib
import os
import queue
import time
from collections import deque
from concurrent.futures import CancelledError, ThreadPoolExecutor

from distributed import Client

from .notes import make_note, read_files, read_note
from .renderer import Refused, Renderer
from .worker import hash_file, render_tiles

# A task's seconds: short enough to share out the end of the work, long enough that sending it costs nothing.
LEAST_SECONDS, MOST_SECONDS = 1.0, 5.0
PROBE_TILES = 4
ATTEMPTS = 8  # of a task that comes back without pixels: files to send, a scheduler that was restarted


class NoCluster(Exception):
    """There is no scheduler, or no worker, any more."""


class Task:
    def __init__(self, frame, tiles, attempt=0, is_first=False):
        self.frame, self.tiles, self.attempt, self.is_first = frame, tiles, attempt, is_first


class WriterPool:
    """Renderers of this machine that put frames together and write them."""

    def __init__(self, program, count):
        self._program = program
        self._pool = ThreadPoolExecutor(count)
        self._idle = queue.SimpleQueue()
        self._all = []

    def write(self, frame, note, done):
        """Calls `done(frame, reason)` on some thread; no reason when the frame is written."""
        self._pool.submit(self._write, frame, note, done)

    def _write(self, frame, note, done):
        reason = None
        try:
            try:
                renderer = self._idle.get_nowait()
            except queue.Empty:
                renderer = Renderer(self._program)
                self._all.append(renderer)
            renderer.ask("write", arguments=frame.words, note=note, channels=frame.channels,
                         parts=[tiles for tiles, _ in frame.parts], content=[pixels for _, pixels in frame.parts])
            self._idle.put(renderer)
        except Refused as error:
            self._idle.put(renderer)
            reason = str(error)
        except Exception as error:
            reason = str(error)
        done(frame, reason)

    def close(self):
        """Waits for what is being written; drops what is not begun."""
        self._pool.shutdown(cancel_futures=True)
        for renderer in self._all:
            renderer.close()


class Driver:
    """Renders frames. `connect()` gives a new `Client`; `job` has folder, version, program and patience."""

    def __init__(self, frames, connect, job, writers, watcher, task_tiles=None):
        self._frames, self._connect, self._job = frames, connect, job
        for order, frame in enumerate(frames):
            frame.order = order
        self._writers, self._watcher, self._task_tiles = writers, watcher, task_tiles
        self._events = queue.SimpleQueue()
        self._tasks = {}    # by future
        self._hashes = {}
        self._known = []    # files that the last frame was made of and its words do not name
        self._sent = {}     # by hash: its content on the cluster
        self._is_shared = True  # until a worker misses a file
        self._costs = None  # seconds of the tiles of the last whole frame
        self._frame_size = 0  # bytes of the pixels of the last frame that answered
        self._client = None

    def run(self):
        """Until every frame is over. Raises what ends it before: NoCluster, KeyboardInterrupt."""
        for frame in self._frames:
            if self._is_there(frame):
                frame.state = "kept"
        self._waiting = deque(frame for frame in self._frames if not frame.is_over)
        self._left = len(self._waiting)
        try:
            if self._left:
                self._client = self._connect()
                self._look_at_workers(time.monotonic())
                self._loop()
        finally:
            if self._client is not None:
                self._leave(5)

    def _leave(self, seconds):
        """Gives up the client. One whose scheduler is gone may not come to its end in time, which changes nothing."""
        with contextlib.suppress(OSError, TimeoutError):
            if self._client.status == "running":
                self._client.cancel(list(self._tasks))
            self._client.close(timeout=seconds)

    def _loop(self):
        last_event = time.monotonic()
        while self._left:
            self._fill()
            try:
                self._events.get(timeout=0.25)()
                last_event = time.monotonic()
            except queue.Empty:
                pass
            now = time.monotonic()
            self._look_at_workers(now)
            self._watcher.show(self._frames, self._workers)
            if now - last_event > 3 * self._job["patience"]:
                raise NoCluster(f"nothing came from {self._client.scheduler.address} for {now - last_event:.0f} s")

    # The cluster

    def _look_at_workers(self, now, every=1.0):
        """How many there are; connects anew to a scheduler that was restarted."""
        if self._client.status != "running":
            self._start_again()
        elif now < getattr(self, "_looked", 0.0) + every:
            return
        self._looked = now
        try:
            self._workers = len(self._client.scheduler_info()["workers"])
        except (OSError, TimeoutError):
            self._workers = 0
        if self._workers:
            self._worked = now
        elif now - getattr(self, "_worked", now) > self._job["patience"]:
            raise NoCluster(f"{self._client.scheduler.address} has had no worker for {self._job['patience']:.0f} s")
        self._worked = getattr(self, "_worked", now)

    def _start_again(self):
        tasks, self._tasks, self._sent = list(self._tasks.values()), {}, {}
        self._leave(1)
        self._client = self._connect()
        for frame in self._frames:
            frame.near = None
        for task in tasks:
            self._try_again(task, "the scheduler was restarted too often")

    # Tasks

    def _fill(self):
        """Begins frames while workers could run out of tasks."""
        workers = max(1, self._workers)
        while self._waiting:
            active = self._left - len(self._waiting)
            if active >= 2 and (len(self._tasks) >= 2 * workers or active >= self._get_most_active()):
                break
            self._begin(self._waiting.popleft(), max(1, workers // self._left))

    def _get_most_active(self):
        """Frames whose pixels a quarter of the memory holds."""
        memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
        return max(2, memory // 4 // self._frame_size) if self._frame_size else 2 * max(1, self._workers)

    def _begin(self, frame, openers):
        frame.state, frame.begin = "rendering", time.time()
        named = [word for word in frame.words
                 if word not in frame.outputs and os.path.isfile(os.path.join(self._job["folder"], word))]
        frame.files = {name: self._hash(name) for name in (*frame.meshes, *named, *self._known)}
        if not self._is_shared:
            for digest in frame.files.values():
                self._send(frame, digest)
        if self._task_tiles is None and self._costs is None:
            for i in range(openers):
                self._submit(Task(frame, frame.take_spread(PROBE_TILES), is_first=i == 0))
                if not frame.todo:
                    break
        else:
            costs = frame.estimate(self._costs)
            for i in range(openers):
                if frame.todo:
                    self._submit(Task(frame, self._take(frame, costs), is_first=i == 0))

    def _cut(self, frame):
        costs = frame.estimate(self._costs)
        while frame.todo:
            self._submit(Task(frame, self._take(frame, costs)))

    def _take(self, frame, costs):
        """A piece for one task: large ones first, so that the last ones end together."""
        if self._task_tiles is not None:
            tiles, frame.todo = frame.todo[:self._task_tiles], frame.todo[self._task_tiles:]
            return tiles
        left = sum(costs[tile] for tile in frame.todo)
        left += sum(costs) * (self._left - 1)
        seconds = left / (3 * max(1, self._workers))
        return frame.take_run(costs, min(max(seconds, LEAST_SECONDS), MOST_SECONDS))

    def _submit(self, task):
        frame = task.frame
        job = frame.make_job(self._job["folder"], self._job["version"], self._job["program"], self._job["patience"])
        contents = {digest: self._sent[digest] for digest in frame.files.values() if digest in self._sent}
        near = None if task.is_first or self._left < self._workers else frame.near
        future = self._client.submit(render_tiles, job, task.tiles, contents, near, pure=False, retries=2,
                                     priority=-frame.order)
        if task.is_first:
            frame.near = future
        self._tasks[future] = task
        future.add_done_callback(lambda done: self._fetch(done, task))

    def _fetch(self, future, task):
        """Gets an answer, on a thread of the client's."""
        try:
            answer, error = future.result(), None
        except (Exception, CancelledError) as failure:
            answer, error = None, failure
        self._events.put(lambda: self._take_answer(future, task, answer, error))

    def _try_again(self, task, why):
        task.attempt += 1
        if task.frame.state != "rendering":
            return
        if task.attempt > ATTEMPTS:
            self._fail(task.frame, [why])
        else:
            self._submit(task)

    # Answers

    def _take_answer(self, future, task, answer, error):
        frame = task.frame
        if self._tasks.pop(future, None) is None or frame.state != "rendering":
            return
        if isinstance(error, CancelledError):
            if frame.near is not None and frame.near.status != "finished":
                frame.near = None
            self._sent.clear()  # the content may have been with a worker that is no more
            self._try_again(task, "its tasks were lost too often")
        elif error is not None:
            self._fail(frame, [f"{type(error).__name__}: {error}" if not str(error) else str(error)])
        elif "refused" in answer:
            self._fail(frame, answer["refused"])
        elif "missing" in answer:
            self._is_shared = False
            for digest in answer["missing"]:
                self._send(frame, digest)
            self._try_again(task, "its files do not reach the workers")
        else:
            self._take_tiles(task, answer)

    def _take_tiles(self, task, answer):
        frame = task.frame
        for name in answer["inputs"]:
            if name not in frame.files:
                frame.files[name] = self._hash(name)
        is_as_here = all(frame.files[name] == digest for name, digest in answer["inputs"].items())
        if "pixels" not in answer or not is_as_here:
            if any(frame.files[name] != self._hash(name) for name in answer["inputs"]):
                self._fail(frame, ["its files changed while it was rendered"])
            else:
                self._try_again(task, "its files are others where it is rendered")
            return
        frame.inputs = answer["inputs"]
        self._known = [name for name in frame.inputs if name not in frame.words]
        frame.add_part(answer, task.tiles)
        self._frame_size = len(answer["pixels"]) // len(task.tiles) * frame.tile_count
        self._watcher.tell(answer["messages"])
        self._watcher.count(frame, task, answer)
        if frame.is_rendered():
            self._write(frame)
        else:
            self._cut(frame)

    def _fail(self, frame, finding):
        frame.state, frame.finding, frame.end = "failed", [line for line in finding if line], time.time()
        self._end(frame)

    def _end(self, frame):
        """Lets go of what the cluster and the memory hold for a frame that is over."""
        self._left -= 1
        frame.parts, frame.near = [], None
        for future in [future for future, task in self._tasks.items() if task.frame is frame]:
            del self._tasks[future]
            future.cancel()
        if self._sent:
            needed = {digest for other in self._frames if not other.is_over for digest in other.files.values()}
            self._sent = {digest: content for digest, content in self._sent.items() if digest in needed}
        self._watcher.end(frame)

    # Files

    def _hash(self, name):
        return hash_file(os.path.join(self._job["folder"], name), self._hashes)

    def _send(self, frame, digest):
        """Puts a file's content on the cluster, from where workers give it to each other."""
        name = next((name for name, each in frame.files.items() if each == digest), None)
        if digest is None or digest in self._sent or name is None:
            return
        with open(os.path.join(self._job["folder"], name), "rb") as file:
            self._sent[digest] = self._client.scatter({f"qn_sds-{digest}": file.read()})[f"qn_sds-{digest}"]

    def _make_note(self, frame, files):
        return make_note(self._job["version"], frame.given, files)

    def _is_there(self, frame):
        for output in frame.outputs:
            note = read_note(output)
            files = read_files(note)
            if files is None or note != self._make_note(frame, {name: self._hash(name) for name in files}):
                return False
        return True

    def _write(self, frame):
        frame.state = "writing"
        self._costs = frame.seconds
        self._writers.write(frame, self._make_note(frame, frame.inputs),
                            lambda *result: self._events.put(lambda: self._end_writing(*result)))

    def _end_writing(self, frame, reason):
        if reason is not None:
            self._fail(frame, [reason])
            return
        frame.state, frame.end = "done", time.time()
        self._end(frame)
