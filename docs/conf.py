"""Sphinx configuration; `make docs` builds the program, the Python package and Doxygen's XML first."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

DOCS = Path(__file__).resolve().parent
ROOT = DOCS.parent
BUILD = Path(os.environ.get("QN_BUILD_DIR", ROOT / "build")).resolve()
GENERATED = ROOT / "build" / "docs" / "generated"

project = "qn_sds"
author = "the qn_sds authors"
release = re.search(r"^\s*VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE).group(1)
extensions = ["myst_parser", "breathe", "sphinx.ext.autodoc"]
html_theme = "furo"
html_title = f"qn_sds {release}"
exclude_patterns = ["_tools"]

# `make web` builds it; without it the manual has its picture.
PAGE = ROOT / "build" / "web" / "page"
EXTRA = GENERATED / "extra"
EXTRA.mkdir(parents=True, exist_ok=True)
html_extra_path = [str(EXTRA)]

myst_heading_anchors = 3
breathe_projects = {"qn_sds": str(ROOT / "build" / "docs" / "xml")}
breathe_default_project = "qn_sds"
primary_domain = None
highlight_language = "none"

sys.path.insert(0, str(BUILD / "python"))
autodoc_member_order = "bysource"

# Without a network: links to other sites are left alone, files and pages are checked.
linkcheck_ignore = [r"https?://"]

COMMANDS = ("render", "info", "export", "intersect", "select")
MEASURED = ("accuracy", "rays", "performance", "reliability")  # written by commands, so any may be missing
LINK = re.compile(r"(?<!!)\[([^\]]+)\]\(([^)#:]+)[^):]*\)")


EMBEDDED_PAGE = """```{raw} html
<iframe src="page/index.html" title="A cage and its limit surface, to turn and to change" loading="lazy"
        style="width: 100%; height: 34rem; border: 1px solid var(--color-background-border)"></iframe>
<p><a href="page/index.html">The page by itself</a></p>
```
"""
PICTURED_PAGE = "![The page: a cage, its surface and the controls](/images/page.png)\n"


def write_page():
    shutil.rmtree(EXTRA / "page", ignore_errors=True)
    is_built = (PAGE / "index.html").exists()
    if is_built:
        shutil.copytree(PAGE, EXTRA / "page")
    (GENERATED / "page.md").write_text(EMBEDDED_PAGE if is_built else PICTURED_PAGE)


def write_generated(app):
    GENERATED.mkdir(parents=True, exist_ok=True)
    write_page()
    program = BUILD / "bin" / "sds"
    for command in COMMANDS:
        text = subprocess.run([program, command, "--help"], check=True, capture_output=True, text=True).stdout
        (GENERATED / f"{command}.txt").write_text(text)
    pages = [name for name in MEASURED if (DOCS / f"{name}.md").exists()]
    toctree = ["```{toctree}", ":caption: Measured", "", *(f"/{name}" for name in pages), "```", ""]
    (GENERATED / "measured.md").write_text("\n".join(toctree))


def name_sources(app, docname, source):
    """Links to files beyond the pages become plain names: pages are read in the source tree as well."""
    folder = (DOCS / docname).parent

    def name(match):
        target = (folder / match.group(2)).resolve()
        return match.group(0) if target.is_relative_to(DOCS) else match.group(1)

    source[0] = LINK.sub(name, source[0])


def setup(app):
    app.connect("builder-inited", write_generated)
    app.connect("source-read", name_sources)
