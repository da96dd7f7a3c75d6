"""What a run shows of itself: a progress line, findings, and at the end a report."""

import json
import os
import sys
import time
from collections import deque


class Watcher:
    """Prints to the standard error stream: on a terminal one line that is written anew, else one per frame."""

    def __init__(self, quiet):
        self._quiet, self._has_line = quiet, False
        self._begin, self._shown = time.time(), 0.0
        self._first = None  # when the first tiles came, and how many
        self._told, self._tasks, self._recent = set(), [], deque()

    def say(self, line):
        if self._has_line:
            print("\r\x1b[K", end="", file=sys.stderr)
            self._has_line = False
        print(line, file=sys.stderr, flush=True)

    def tell(self, lines):
        """Findings, each once however many frames have it."""
        for line in lines:
            if line not in self._told and not self._quiet:
                self.say(line)
            self._told.add(line)

    def count(self, frame, task, answer):
        now = time.time()
        self._first = self._first or (now, len(task.tiles))
        self._recent.append((now, answer["rays"]))
        self._tasks.append({
            "frame": frame.number, "tiles": task.tiles, "worker": answer["worker"], "received": now,
            "render_seconds": answer["seconds"], "open_seconds": answer["open_seconds"],
            "tile_seconds": answer["tile_seconds"], "rays": answer["rays"], "bytes": len(answer["pixels"]),
        })

    def end(self, frame):
        if frame.state == "failed":
            self.say(f"{frame.get_title()}: failed")
            for line in frame.finding:
                self.say(f"  {line}")
        elif not self._quiet and not sys.stderr.isatty():
            which = "" if frame.number is None else f"{frame.get_title()}: "
            self.say(f"{which}{frame.outputs[0]}, {frame.end - frame.begin:.1f} s")

    def show(self, frames, workers):
        now = time.time()
        if self._quiet or not sys.stderr.isatty() or now < self._shown + 0.5:
            return
        self._shown, self._has_line = now, True
        while self._recent and self._recent[0][0] < now - 10:
            self._recent.popleft()
        rays = sum(each for _, each in self._recent) / min(10.0, max(0.5, now - self._begin))
        wanted = [frame for frame in frames if frame.state not in ("kept", "failed")]
        tiles = sum(frame.tile_count for frame in wanted)
        done = sum(seconds is not None for frame in wanted for seconds in frame.seconds)
        left = "time left not known yet"
        if self._first is not None and done > self._first[1]:
            left = f"{(now - self._first[0]) * (tiles - done) / (done - self._first[1]):.0f} s left"
        over = sum(frame.is_over for frame in frames)
        print(f"\r\x1b[K{over} of {len(frames)} frames, {done} of {tiles} tiles, {rays:.3g} rays/s, {workers} workers, "
              f"{left}", end="", file=sys.stderr, flush=True)

    def close(self):
        if self._has_line:
            print(file=sys.stderr, flush=True)
            self._has_line = False

    def write_report(self, path, frames, exit_code):
        """Times per frame, task and worker, as JSON."""
        workers = {}
        for task in self._tasks:
            of = workers.setdefault(task["worker"], {"tasks": 0, "render_seconds": 0.0, "open_seconds": 0.0, "opened": 0})
            of["tasks"] += 1
            of["opened"] += task["open_seconds"] > 0.0
            for name in ("render_seconds", "open_seconds"):
                of[name] += task[name]
        report = {
            "begin": self._begin, "seconds": time.time() - self._begin, "exit_code": exit_code,
            "frames": [{"frame": frame.number, "files": frame.outputs, "state": frame.state, "finding": frame.finding,
                        "begin": frame.begin, "end": frame.end, "made_of": frame.inputs} for frame in frames],
            "tasks": self._tasks, "workers": workers,
        }
        with open(path + ".new", "w") as file:
            json.dump(report, file, indent=1)
            file.write("\n")
        os.replace(path + ".new", path)
