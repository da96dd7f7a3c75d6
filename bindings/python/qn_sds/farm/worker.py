"""What runs on workers: tiles of a frame. Dask calls `render_tiles` by name; jobs and answers are plain values.

A worker has one renderer. Files that a job names are opened where they are when what is there has the job's hash; else
their content comes with the job, and is kept by hash as long as the worker lives.
"""

import hashlib
import json
import os
import tempfile
import threading

from .renderer import RendererGone, Refused, Renderer, find_program


def hash_file(path, known):
    """SHA-256 of a file, None of what cannot be read. `known` keeps hashes by path for as long as the files stay."""
    try:
        status = os.stat(path)
        signature = (status.st_ino, status.st_size, status.st_mtime_ns)
        if known.get(path, (None,))[0] != signature:
            digest = hashlib.sha256()
            with open(path, "rb") as file:
                while block := file.read(1 << 20):
                    digest.update(block)
            known[path] = (signature, digest.hexdigest())
        return known[path][1]
    except OSError:
        return None


class BuiltScene:
    """What a scene was built of, and what the first answer with its pixels has to tell."""

    def __init__(self, inputs, messages, open_seconds):
        self.inputs, self.messages, self.open_seconds = inputs, messages, open_seconds

    def fits(self, job):
        """Whether the job means these files, as far as it knows them."""
        return all(job["files"].get(name, digest) == digest for name, digest in self.inputs.items())


class TileWorker:
    """Of one process: its renderer, its files, and what the renderer has built. Thread-safe: one job at a time."""

    def __init__(self, folder, threads):
        self._folder, self._threads = folder, threads
        self._lock = threading.Lock()
        self._renderer = None
        self._hashes = {}
        self._built = {}  # by scene

    def render(self, job, tiles, contents):
        with self._lock:
            places, missing = self._place_files(job, contents)
            if missing:
                return {"missing": missing}
            try:
                return self._ask(job, tiles, places)
            except Refused as error:
                return {"refused": [*self._renderer.take_messages(), str(error)], "code": error.code}
            except RendererGone:
                renderer, self._renderer, self._built = self._renderer, None, {}
                if renderer is not None:
                    renderer.close()
                raise

    def _place_files(self, job, contents):
        """Where the job's files are by name, and the hashes of those that are not here."""
        places, missing = {}, []
        for name, digest in job["files"].items():
            kept = os.path.join(self._folder, digest or "none")
            if digest is None or os.path.exists(kept):
                places[name] = kept
            elif digest in contents:
                with open(kept + ".new", "wb") as file:
                    file.write(contents[digest])
                os.replace(kept + ".new", kept)
                places[name] = kept
            elif hash_file(os.path.join(job["folder"], name), self._hashes) == digest:
                places[name] = os.path.join(job["folder"], name)
            else:
                missing.append(digest)
        return places, missing

    def _get_renderer(self, job):
        if self._renderer is None:
            self._renderer = Renderer(find_program(job["program"]), job["patience"])
        if self._renderer.version != job["version"]:
            raise RuntimeError(f"sds is of version {self._renderer.version} here and {job['version']} where the "
                               "picture is written")
        return self._renderer

    def _ask(self, job, tiles, places):
        renderer, answer = self._get_renderer(job), {"is_open": False}
        built = self._built.get(job["scene"])
        if built is not None and built.fits(job):
            answer, pixels = self._render(renderer, job, tiles, built)
        if not answer["is_open"]:
            self._built[job["scene"]] = built = self._open(renderer, job, places)
            answer, pixels = self._render(renderer, job, tiles, built)
        if "channels" not in answer:
            return {"inputs": built.inputs}  # whether they are the right ones is for the client to say
        opened, built.open_seconds, messages, built.messages = built.open_seconds, 0.0, built.messages, []
        return {**answer, "pixels": pixels, "inputs": built.inputs, "open_seconds": opened,
                "messages": messages + renderer.take_messages()}

    def _open(self, renderer, job, places):
        answer, _ = renderer.ask("open", job["patience"], scene=job["scene"], arguments=job["arguments"],
                                 folder=job["folder"], places=places, threads=self._threads)
        return BuiltScene({name: self._digest(job, name, places) for name in answer["inputs"]},
                          renderer.take_messages(), answer["seconds"])

    def _render(self, renderer, job, tiles, built):
        if not all(name in job["files"] for name in built.inputs):
            return {"is_open": True}, b""
        return renderer.ask("render", job["patience"], scene=job["scene"], tiles=tiles)

    def _digest(self, job, name, places):
        # A kept file is of the job's hash; another one may have changed since it was compared.
        path = places.get(name) or os.path.join(job["folder"], name)
        return hash_file(path, self._hashes)


_worker = None
_worker_lock = threading.Lock()


def _get_worker():
    global _worker
    with _worker_lock:
        if _worker is None:
            from distributed import get_worker

            own = get_worker()
            _worker = TileWorker(tempfile.mkdtemp(prefix="qn_sds-", dir=own.local_directory), own.state.nthreads)
        return _worker


def render_tiles(job, tiles, contents, _near):
    """Renders tiles of the frame that `job`, JSON, describes: the renderer's answer, with "pixels" in bytes; or
    "missing", hashes of files to send along, or "refused", lines that say why. `contents` has bytes by hash. `_near` is
    nothing but a result that lies where the frame's scene is built, so that Dask takes the tiles there."""
    from distributed import get_worker

    answer = _get_worker().render(json.loads(job), tiles, contents)
    return {**answer, "worker": get_worker().address}
