#!/usr/bin/env bash
# Installs the Debian packages that building, testing and measuring need. Says what it installs; with nothing to do it
# is silent and quick.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config python3            # build
    libembree-dev libtbb-dev libcli11-dev                           # host, renderer, program
    nlohmann-json3-dev libopenexr-dev libpng-dev
    libgtest-dev libgmock-dev libosd-dev libbenchmark-dev           # tests and benchmarks
    clang-format clang-tidy                                         # checks
    clang libclang-rt-14-dev                                        # fuzzers
    help2man                                                        # manual pages
    abigail-tools groff-base                                        # checks of what is installed
    valgrind                                                        # scripts/check_valgrind
    python3-dev python3-numpy pybind11-dev python3-pytest           # Python package
    python3-setuptools python3-wheel python3-pip
    doxygen python3-sphinx python3-breathe python3-myst-parser furo   # documentation
    python3-matplotlib
)

if ! command -v dpkg-query >/dev/null; then
    echo "install_dependencies: not a Debian system; what it would install: ${packages[*]}" >&2
    exit 0
fi

installed=$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null | awk '$2 == "installed" { print $1 }' || true)
missing=()
for package in "${packages[@]}"; do
    grep -qx -- "$package" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "install_dependencies: neither root nor sudo; as root, run: apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

echo "install_dependencies: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq </dev/null
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
