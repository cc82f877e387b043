#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# As root it installs them; otherwise it names them and fails.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config make binutils
    libjsoncpp-dev libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libcairo2-dev libexpat1-dev
    valgrind clang libclang-rt-14-dev
    doxygen help2man dpkg-dev file
    python3-dev pybind11-dev python3-numpy python3-pytest
)

missing=()
for pkg in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$pkg")
done

[[ ${#missing[@]} -eq 0 ]] && exit 0

if [[ $(id -u) -ne 0 ]]; then
    echo "missing Debian packages: ${missing[*]}" >&2
    echo "run 'make deps' as root, or: sudo apt-get install ${missing[*]}" >&2
    exit 1
fi

echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
