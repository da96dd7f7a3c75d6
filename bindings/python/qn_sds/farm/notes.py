"""What a frame says of itself in its header: of which files, with which options and by which version it was made."""

import json
import struct

_NAME = "qn_sds"


def make_note(version, given, files):
    """One line of ASCII for the header. `files` has hashes by name, None of what is not there."""
    return json.dumps({_NAME: {"version": version, "given": given, "files": files}}, sort_keys=True)


def read_note(path):
    """The text of `make_note` in a picture; None without one, or when there is no whole picture."""
    try:
        with open(path, "rb") as file:
            start = file.read(8)
            for magic, read in ((b"v/1\x01", _read_exr), (b"\x89PNG", _read_png), (b"\xff\xd8", _read_jpeg)):
                if start.startswith(magic):
                    return read(file)
    except (OSError, struct.error, EOFError):
        pass
    return None


def read_files(note):
    """The files of a note by name, None when it is no note of ours."""
    try:
        files = json.loads(note)[_NAME]["files"]
    except (TypeError, ValueError, KeyError):
        return None
    return files if isinstance(files, dict) else None


def _read(file, size):
    data = file.read(size)
    if len(data) != size:
        raise EOFError
    return data


def _read_exr(file):
    def word():
        out = bytearray()
        while (letter := _read(file, 1)) != b"\0":
            out += letter
        return bytes(out)

    file.seek(8)
    while name := word():
        word()  # the attribute's type
        value = _read(file, struct.unpack("<i", _read(file, 4))[0])
        if name == _NAME.encode():
            return value.decode("ascii", "replace")
    return None


def _read_png(file):
    file.seek(8)
    while True:
        size, kind = struct.unpack(">I4s", _read(file, 8))
        if kind in (b"IDAT", b"IEND"):
            return None
        data = _read(file, size + 4)[:size]
        keyword, _, text = data.partition(b"\0")
        if kind == b"tEXt" and keyword == _NAME.encode():
            return text.decode("ascii", "replace")


def _read_jpeg(file):
    file.seek(2)
    while True:
        marker, size = struct.unpack(">HH", _read(file, 4))
        data = _read(file, size - 2)
        if marker == 0xFFFE:
            return data.decode("ascii", "replace")
        if marker == 0xFFDA:  # pixels follow
            return None
