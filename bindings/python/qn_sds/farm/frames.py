"""Frames of a sequence, and the pieces that each of them is rendered in."""

import hashlib
import json
import re


def parse_frames(text):
    """Numbers of frames: "1-240", "1-240x2" (every second one), "3,7,20-24", each once and in order."""
    numbers = set()
    for part in text.split(","):
        match = re.fullmatch(r"\s*(-?\d+)(?:-(-?\d+)(?:x([1-9]\d*))?)?\s*", part)
        if match is None:
            raise ValueError(f"--frames: '{part}' is no frame and no range such as 1-240 or 1-240x2")
        first, last = int(match[1]), int(match[2] or match[1])
        if last < first or last - first > 1_000_000:
            raise ValueError(f"--frames: {part.strip()} is no range of frames")
        numbers.update(range(first, last + 1, int(match[3] or 1)))
    return sorted(numbers)


def has_number(words):
    return any("##" in word for word in words)


def put_number(word, number):
    """The word with the frame's number where it has ##, ###, ####: as many digits, more if need be."""
    return re.sub("##+", lambda match: f"{number:0{len(match[0])}d}", word)


class Frame:
    """One picture: what it is made of, and how far it is. States: "waiting", "rendering", "writing", then "done",
    "kept" (it was there), or "failed"."""

    def __init__(self, number, words, check):
        self.number, self.words = number, words
        self.outputs, self.given, self.tile_count = check["files"], check["given"], check["tiles"]
        self.meshes = check["meshes"]
        self.state = "waiting"
        self.finding = []
        self.files = {}          # hashes by name that workers are told
        self.inputs = {}         # of those that the picture was made of
        self.todo = list(range(self.tile_count))
        self.parts = []          # (tiles, pixels)
        self.channels = None
        self.seconds = [None] * self.tile_count  # per tile, once it is there
        self.near = None         # the task that built the scene first
        self.begin = self.end = None

    @property
    def is_over(self):
        return self.state in ("done", "kept", "failed")

    def get_title(self):
        return self.outputs[0] if self.number is None else f"frame {self.number}"

    def make_job(self, folder, version, program, patience):
        scene = hashlib.sha256(json.dumps([folder, self.words]).encode()).hexdigest()
        return json.dumps({"scene": scene, "arguments": self.words, "folder": folder, "files": self.files,
                           "version": version, "program": program, "patience": patience})

    def add_part(self, answer, tiles):
        """Keeps what a task has rendered; tiles that came before are left out by the writer."""
        self.parts.append((tiles, answer["pixels"]))
        self.channels = answer["channels"]
        for tile, seconds in zip(tiles, answer["tile_seconds"]):
            self.seconds[tile] = seconds

    def is_rendered(self):
        return all(seconds is not None for seconds in self.seconds)

    def take_spread(self, count):
        """So many tiles of what is to be done, from all over it."""
        step = max(1, len(self.todo) // max(1, count))
        tiles = self.todo[step // 2::step][:count] or self.todo[:1]
        chosen = set(tiles)
        self.todo = [tile for tile in self.todo if tile not in chosen]
        return tiles

    def take_run(self, costs, seconds):
        """The next tiles that together take about that long."""
        total, count = 0.0, 0
        while count < len(self.todo) and (count == 0 or total + costs[self.todo[count]] <= seconds):
            total += costs[self.todo[count]]
            count += 1
        tiles, self.todo = self.todo[:count], self.todo[count:]
        return tiles

    def estimate(self, former):
        """Seconds of every tile: measured, else as in a `former` frame scaled to what is measured of this one, else the
        mean. None while nothing is known."""
        known = [tile for tile, seconds in enumerate(self.seconds) if seconds is not None]
        if former is not None and len(former) == self.tile_count:
            mine, then = (sum(each[tile] for tile in known) for each in (self.seconds, former))
            scale = mine / then if then > 0.0 and mine > 0.0 else 1.0
            guess = [scale * seconds for seconds in former]
        elif known:
            guess = [sum(self.seconds[tile] for tile in known) / len(known)] * self.tile_count
        else:
            return None
        return [own if own is not None else other for own, other in zip(self.seconds, guess)]
