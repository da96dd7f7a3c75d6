"""Builds the Python package with CMake: pip install . from a checkout, with Debian's packages only.

What `make` has built for the same kind of interpreter is packed as it is; without it a tree is built for the purpose.
"""

import os
import re
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
VERSION = re.search(r"^\s*VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE).group(1)


class BuildWithCMake(build_ext):
    def build_extension(self, ext):
        # The folder that holds, or will hold, the package: the build's, or the sources' for an editable install.
        prefix = Path(self.get_ext_fullpath(ext.name)).resolve().parent.parent
        tree = ROOT / "build"
        if not (tree / "python" / "qn_sds" / Path(self.get_ext_filename(ext.name)).name).exists():
            tree = Path(self.build_temp).resolve()
            self._configure(tree)
        self.spawn(["cmake", "--build", str(tree), "--target", "qn_python_package", "--parallel", self._jobs()])
        self.spawn(["cmake", "--install", str(tree), "--component", "python", "--prefix", str(prefix)])

    def _configure(self, tree):
        options = {
            "CMAKE_BUILD_TYPE": "Release",
            "Python_EXECUTABLE": sys.executable,
            "QN_BUILD_PYTHON": "ON",
            "QN_BUILD_PROGRAM": "ON",  # which the farm runs
            "QN_BUILD_TESTS": "OFF",
            "QN_BUILD_BENCH": "OFF",
            "QN_BUILD_EXAMPLES": "OFF",
            "QN_INSTALL": "OFF",
            "QN_WARNINGS_AS_ERRORS": "OFF",
        }
        self.spawn(["cmake", "-S", str(ROOT), "-B", str(tree), *(f"-D{k}={v}" for k, v in options.items())])

    def _jobs(self):
        return str(self.parallel or os.cpu_count())


setup(
    version=VERSION,
    ext_modules=[Extension("qn_sds._native", sources=[])],
    cmdclass={"build_ext": BuildWithCMake},
)
