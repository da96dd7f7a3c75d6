#!/usr/bin/env bash
# Installs the Debian packages that building, testing and measuring need.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config python3            # build
    libembree-dev libtbb-dev libcli11-dev                           # host, renderer, program
    nlohmann-json3-dev libopenexr-dev libpng-dev
    libgtest-dev libgmock-dev libosd-dev libbenchmark-dev           # tests and benchmarks
    clang-format clang-tidy                                         # checks
    clang libclang-rt-14-dev                                        # fuzzers
    abigail-tools groff-base                                        # checks of what is installed
    valgrind                                                        # scripts/check_valgrind
    python3-dev python3-numpy pybind11-dev python3-pytest           # Python package
    python3-setuptools python3-wheel python3-pip
    doxygen python3-sphinx python3-breathe python3-myst-parser furo   # documentation
    python3-matplotlib
)

. "$(dirname "$0")/install_packages.sh"
