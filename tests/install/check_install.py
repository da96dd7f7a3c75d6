#!/usr/bin/env python3
"""Installs a build into a scratch folder and uses what is there as a stranger would.

Usage: check_install.py consumers|subproject|package|hardened|abi SOURCE BUILD

    consumers   install, move the tree, compile every public header and build the examples against it, by CMake and by
                pkg-config; run them and the program
    subproject  a project that adds this one as a folder gets libraries, and no tests or programs
    package     pack a .deb, unpack it, run what it holds, look at its dependencies
    hardened    the program, the libraries and the extension have the guards that they are built with
    abi         the symbols of both libraries are those on record

Nothing but the named build is read, nothing in it but what cmake --install and cpack write is changed.
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

CXX = os.environ.get("CXX", "c++")
WARNINGS = ["-Wall", "-Wextra", "-Wconversion", "-Wshadow", "-Wpedantic", "-Werror"]


def run(*command, **options):
    """Output of a command; its failure ends the check with what it said."""
    words = [str(word) for word in command]
    result = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(words)}\n{result.stdout}\ncheck_install: exit code {result.returncode}")
    return result.stdout


def expect(condition, what):
    if not condition:
        sys.exit(f"check_install: {what}")


def install_and_move(build, scratch):
    first, moved = scratch / "first", scratch / "moved" / "deeper"
    run("cmake", "--install", build, "--prefix", first)
    moved.parent.mkdir()
    first.rename(moved)
    return moved


def check_headers(include, scratch):
    headers = sorted(path for path in include.rglob("*.h"))
    expect(len(headers) > 20, f"only {len(headers)} headers in {include}")
    for path in headers:
        text = path.read_text()
        for name in re.findall(r'#include "([^"]+)"', text):
            found = (include / name).exists() or (include / "host" / name).exists()
            expect(found, f"{path.relative_to(include)} includes {name}, which is not installed")
    everything = scratch / "every_header.cpp"
    everything.write_text("".join(f'#include "{path}"\n' for path in headers))
    run(CXX, "-std=c++20", "-fsyntax-only", *WARNINGS, "-I", include, "-I", include / "host", everything)


def check_cmake_consumer(source, prefix, scratch):
    build = scratch / "by_cmake"
    run("cmake", "-S", source / "examples", "-B", build, f"-DCMAKE_PREFIX_PATH={prefix}", "-DCMAKE_BUILD_TYPE=Debug")
    config = (build / "CMakeCache.txt").read_text()
    expect(str(prefix) in config, f"another installation was found than {prefix}")
    run("cmake", "--build", build)
    print(run("ctest", "--test-dir", build, "--output-on-failure", "--no-tests=error"))
    script = scratch / "version.cmake"
    script.write_text("find_package(qn_sds 99 CONFIG QUIET)\nif(qn_sds_FOUND)\nmessage(FATAL_ERROR \"99 found\")\nendif()\n")
    run("cmake", f"-DCMAKE_PREFIX_PATH={prefix}", "-P", script)


def check_pkg_config_consumer(source, prefix, library_folder, scratch):
    environment = {**os.environ, "PKG_CONFIG_PATH": str(library_folder / "pkgconfig")}
    flags = run("pkg-config", "--cflags", "--libs", "qn_sds", env=environment).split()
    program = scratch / "by_pkg_config"
    run(CXX, "-std=c++20", source / "examples" / "arrays_in_hits_out.cpp", "-o", program, *flags,
        f"-Wl,-rpath,{library_folder}")
    print(run(program))
    libraries = run("ldd", program)
    for name in ("libqn_sds.so.0", "libqn_host.so.0"):
        expect(re.search(rf"{name} => {re.escape(str(prefix))}", libraries), f"{name} is not the moved one:\n{libraries}")


def check_program(prefix, source):
    program = prefix / "bin" / "sds"
    expect(re.match(r"\d+\.\d+\.\d+$", run(program, "--version").strip()), "sds --version")
    texts = ("man/man1/sds.1", "man/man1/sds-render.1", "bash-completion/completions/sds", "zsh/vendor-completions/_sds",
             "fish/vendor_completions.d/sds.fish")
    for name in texts:
        expect((prefix / "share" / name).stat().st_size > 500, f"share/{name} is not whole")
    expect("quads" in run(program, "info", source / "assets" / "knot.obj"), "sds info")


def consumers(source, build, scratch):
    prefix = install_and_move(build, scratch)
    library_folder = next(prefix.rglob("libqn_sds.so")).parent
    check_headers(prefix / "include" / "qn_sds", scratch)
    check_cmake_consumer(source, prefix, scratch)
    check_pkg_config_consumer(source, prefix, library_folder, scratch)
    if (prefix / "bin" / "sds").exists():
        check_program(prefix, source)


def subproject(source, _build, scratch):
    (scratch / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.25)\nproject(parent LANGUAGES CXX)\nenable_testing()\n"
        f"add_subdirectory({source} qn_sds)\n"
        f"add_executable(user {source}/examples/arrays_in_hits_out.cpp)\n"
        "target_link_libraries(user PRIVATE qn_sds::qn_sds qn_sds::qn_host)\n"
        "install(TARGETS user)\n")
    build = scratch / "build"
    run("cmake", "-S", scratch, "-B", build, "-G", "Unix Makefiles")
    expect("Total Tests: 0" in run("ctest", "--test-dir", build, "-N"), "a subproject adds tests")
    targets = set(re.findall(r"^\.\.\. (\S+)", run("cmake", "--build", build, "--target", "help"), re.MULTILINE))
    expect({"user", "qn_sds", "qn_host"} <= targets, f"targets of a subproject: {sorted(targets)}")
    strangers = {"sds", "qn_io", "qn_model", "qn_render", "qn_tests", "qn_bench", "qn_examples"} & targets
    expect(not strangers, f"a subproject builds {sorted(strangers)}")
    rules = (build / "qn_sds" / "cmake_install.cmake").read_text()
    expect("file(INSTALL" not in rules, "a subproject installs the library's files")


def package(source, build, scratch):
    run("cpack", "-G", "DEB", "--config", build / "CPackConfig.cmake", "-B", scratch)
    (deb,) = scratch.glob("*.deb")
    depends = run("dpkg-deb", "--field", deb, "Depends")
    print(deb.name, "depends on", depends)
    for name in ("libc6", "libstdc++6", "libtbb", "libembree", "libopenexr", "libpng16"):
        expect(name in depends, f"{name} is missing among the dependencies: {depends}")
    expect("qn-sds" not in depends, "the package depends on itself")
    run("dpkg-deb", "--extract", deb, scratch / "root")
    check_program(scratch / "root" / "usr", source)


def hardened(_source, build, _scratch):
    libraries = [*(build / "lib").glob("libqn_*.so.?"), *(build / "lib").glob("*/libqn_*.so.?")]
    extensions = list((build / "python" / "qn_sds").glob("_native*.so"))
    expect(len(libraries) == 2, f"two libraries, not {libraries}")
    for path in [build / "bin" / "sds", *libraries, *extensions]:
        dynamic = run("readelf", "--wide", "--dynamic", "--segments", path)
        expect("NOW" in dynamic and "GNU_RELRO" in dynamic, f"{path} does not bind at the start")
        symbols = run("readelf", "--wide", "--dyn-syms", path)
        has_guards = "__stack_chk_fail" in symbols
        expect(has_guards or path.name.startswith("libqn_sds"), f"{path} has no guards on the stack")
    expect("_chk@" in run("readelf", "--wide", "--dyn-syms", build / "bin" / "sds"), "no checked library calls in sds")


def abi(source, build, _scratch):
    print(run(source / "scripts" / "check_abi", build))


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in ("consumers", "subproject", "package", "hardened", "abi"):
        sys.exit(__doc__)
    # What points at other copies of the library must not help.
    for name in ("LD_LIBRARY_PATH", "CMAKE_PREFIX_PATH", "qn_sds_DIR", "DESTDIR"):
        os.environ.pop(name, None)
    with tempfile.TemporaryDirectory(prefix="qn_install_") as scratch:
        globals()[sys.argv[1]](Path(sys.argv[2]).resolve(), Path(sys.argv[3]).resolve(), Path(scratch))


if __name__ == "__main__":
    main()
