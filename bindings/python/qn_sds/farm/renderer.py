"""The program that renders, as a process that answers questions: ``sds serve``.

A question is one line of JSON with bytes behind it, and so is the answer. A worker has one such process, which keeps
the scenes that it has built; a crash of it is an error of one tile and not the end of the worker.
"""

import json
import os
import select
import shutil
import subprocess
import tempfile
import time
from pathlib import Path


class Refused(Exception):
    """What the renderer has to say against a request, in the words of ``sds render``; `code` is its exit code."""

    def __init__(self, text, code):
        super().__init__(text)
        self.code = code


class RendererGone(RuntimeError):
    """The process ended or was ended while it was asked something."""


def find_program(given=None):
    """The path of ``sds``: the one that is given, the one of this package's build or installation, that of PATH."""
    package = Path(__file__).resolve().parent.parent
    for place in (given,) if given else (package / "sds", package.parents[1] / "bin" / "sds", "sds"):
        if found := shutil.which(place):
            return found
    raise RuntimeError(f"{given}: no such program" if given else
                       "the program sds is neither beside the package nor in PATH; --program FILE says where it is")


class Renderer:
    """One process. Not thread-safe."""

    def __init__(self, program, patience=60.0):
        self._program = program
        self._messages = tempfile.TemporaryFile(buffering=0)
        # In a session of its own: Ctrl-C is for who asked, who then ends it.
        self._process = subprocess.Popen([program, "serve"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=self._messages, start_new_session=True, bufsize=0)
        self._buffer = bytearray()
        try:
            self.version = self._read_answer(patience)[0]["version"]
        except RendererGone:
            self.close()
            raise

    def ask(self, what, patience=None, content=(), **members):
        """Answer and its bytes. `content`, a list of bytes, goes behind the request. Raises `Refused`, and
        `RendererGone` when the process ends or has not answered after `patience` seconds; it is of no use then."""
        head = {"do": what, **members}
        if content:
            head["bytes"] = sum(len(part) for part in content)
        try:
            for part in (json.dumps(head).encode() + b"\n", *content):
                rest = memoryview(part)
                while rest:
                    rest = rest[self._process.stdin.write(rest):]
        except OSError:
            pass  # there will be no answer
        answer, data = self._read_answer(patience)
        if "error" in answer:
            raise Refused(answer["error"], answer["code"])
        return answer, data

    def take_messages(self):
        """The lines that it has printed since the last call."""
        self._messages.seek(0)
        text = self._messages.read().decode(errors="replace")
        self._messages.seek(0)
        self._messages.truncate()
        return text.splitlines()

    def close(self):
        """Ends the process; a file that it is writing is left out."""
        if self._process.poll() is None:
            self._process.terminate()
        try:
            self._process.wait(5)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        for stream in (self._process.stdin, self._process.stdout, self._messages):
            stream.close()

    def _read_answer(self, patience):
        deadline = None if patience is None else time.monotonic() + patience
        while (end := self._buffer.find(b"\n")) < 0:
            self._read_more(deadline)
        head = json.loads(self._buffer[:end])
        del self._buffer[:end + 1]
        while len(self._buffer) < head["bytes"]:
            self._read_more(deadline)
        data = bytes(self._buffer[:head["bytes"]])
        del self._buffer[:head["bytes"]]
        return head, data

    def _read_more(self, deadline):
        stream = self._process.stdout.fileno()
        if deadline is not None and not select.select([stream], [], [], max(0.0, deadline - time.monotonic()))[0]:
            self._process.kill()
            raise RendererGone(f"{self._program} did not answer in time")
        if got := os.read(stream, 1 << 20):
            self._buffer += got
            return
        code = self._process.wait()
        lines = self.take_messages()
        how = f"was ended by signal {-code}" if code < 0 else f"ended with exit code {code}"
        raise RendererGone("\n".join([*lines[-5:], f"{self._program} {how}"]))
