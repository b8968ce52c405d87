#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and runs with, and
# only those that are missing. Safe to run again; never prompts.
set -euo pipefail

PACKAGES=(
    cmake make g++ pkg-config
    qtbase5-dev libqt5opengl5-dev libqt5svg5-dev
    libimath-dev
    libbullet-dev
    libassimp-dev
    python3-qdarkstyle
    libgtest-dev libbenchmark-dev clang libclang-rt-14-dev
    xvfb xauth libgl1-mesa-dri
    assimp-testmodels
)

missing=()
for package in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
