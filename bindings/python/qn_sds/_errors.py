"""What can be wrong with a mesh."""

from typing import NamedTuple


class Finding(NamedTuple):
    """One cause with its number of cases. `code` is stable, `place` names the first case."""

    code: str
    severity: str  # "error", "warning" or "note"
    cases: int
    place: str
    message: str
    detail: str
    action: str

    def __str__(self):
        text = f"{self.place}: {self.severity}: {self.message}"
        if self.detail:
            text += f" ({self.detail})"
        if self.action:
            text += f", {self.action}"
        if self.cases > 1:
            text += f"; {self.cases} cases, first here"
        return text


class MeshError(ValueError):
    """The mesh has no surface. `findings` holds every cause, warnings and notes included."""

    def __init__(self, message=None, findings=()):
        self.findings = to_findings(findings)
        if message is None:
            message = "\n".join(str(finding) for finding in self.findings if finding.severity == "error")
        super().__init__(message)


class MeshWarning(UserWarning):
    """Something of the mesh was changed, dropped or looks wrong."""


# Of arrays, which have no records as files do; by code and the first word of the place.
_MESSAGES = {
    ("no_vertices", "points"): "there are no points",
    ("no_polygons", "face_counts"): "there are no faces",
    ("void_polygon", "face"): "vertex index out of range",
}


def to_findings(entries):
    findings = (Finding(**entry) for entry in entries)
    return tuple(f._replace(message=_MESSAGES.get((f.code, f.place.split(" ")[0]), f.message)) for f in findings)


def index_error(code, message, place, index, cases):
    """For an index that is too large for the extension to name."""
    return MeshError(findings=[Finding(code, "error", cases, place, message, f"index {index}", "")._asdict()])
