#!/usr/bin/env bash
# Installs what `make arm64` needs beside the packages of every build: Debian's cross compiler, the emulator, and that
# architecture's libraries.
set -euo pipefail

packages=(
    crossbuild-essential-arm64 qemu-user-static
    libtbb-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64 libosd-dev:arm64
)

. "$(dirname "$0")/install_packages.sh"
