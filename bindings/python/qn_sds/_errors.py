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

    def __init__(self, message, findings=()):
        super().__init__(message)
        self.findings = to_findings(findings)


class MeshWarning(UserWarning):
    """Something of the mesh was changed, dropped or looks wrong."""


def to_findings(entries):
    return tuple(Finding(**entry) for entry in entries)
