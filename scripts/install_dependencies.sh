#!/usr/bin/env bash
# Installs the Debian packages that the named groups need, each group with those it stands on. Says what it installs;
# with nothing to do it is silent and quick.
#
#   install_dependencies.sh [program] [tests] [checks] [docs] [web]      no name: all of them
set -euo pipefail

program=(
    build-essential cmake ninja-build pkg-config python3
    libembree-dev libtbb-dev libcli11-dev nlohmann-json3-dev libopenexr-dev libpng-dev libjpeg-dev
    zlib1g-dev
    help2man                                                        # manual pages
)
tests=(
    libgtest-dev libgmock-dev libosd-dev libbenchmark-dev           # oracles and opponents with them
    python3-dev python3-numpy python3-matplotlib pybind11-dev python3-pytest
    python3-distributed openssl                                     # the farm
    python3-setuptools python3-wheel python3-pip python3-venv       # installing the Python package
    file abigail-tools groff-base                                   # packing, and checks of what is installed
)
checks=(
    clang-format clang-tidy
    clang libclang-rt-14-dev                                        # fuzzers
    valgrind                                                        # scripts/check_valgrind
)
web=(emscripten chromium)
command -v npm >/dev/null || web+=(npm)                             # a node from elsewhere brings its own
docs=(doxygen python3-sphinx python3-breathe python3-myst-parser furo)

packages=()
for group in "${@:-all}"; do
    case $group in
        program) packages+=("${program[@]}") ;;
        tests) packages+=("${program[@]}" "${tests[@]}") ;;
        checks) packages+=("${program[@]}" "${checks[@]}") ;;
        docs) packages+=("${program[@]}" "${tests[@]}" "${docs[@]}") ;;
        web) packages+=("${program[@]}" "${web[@]}") ;;
        all) packages+=("${program[@]}" "${tests[@]}" "${checks[@]}" "${docs[@]}" "${web[@]}") ;;
        *)
            echo "install_dependencies: no group '$group'; there are program, tests, checks, docs, web" >&2
            exit 2
            ;;
    esac
done

. "$(dirname "$0")/install_packages.sh"
