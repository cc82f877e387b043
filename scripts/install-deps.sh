#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing,
# then the web players the browser test loads exports into (web/, pinned by
# its package-lock.json). As root it installs the Debian packages; otherwise
# it names them and fails.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config make binutils
    libjsoncpp-dev libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libcairo2-dev libexpat1-dev
    valgrind clang libclang-rt-14-dev
    doxygen help2man dpkg-dev file
    chromium chromium-driver python3-selenium
    python3-dev pybind11-dev python3-numpy python3-pytest
)

missing=()
for pkg in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$pkg")
done

# npm comes with the machine's Node.js; Debian's own is the fallback.
command -v npm >/dev/null || missing+=(nodejs npm)

if [[ ${#missing[@]} -gt 0 ]]; then
    if [[ $(id -u) -ne 0 ]]; then
        echo "missing Debian packages: ${missing[*]}" >&2
        echo "run 'make deps' as root, or: sudo apt-get install ${missing[*]}" >&2
        exit 1
    fi
    echo "installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

web="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/web"
if [[ ! -d "$web/node_modules/lottie-web" ]]; then
    echo "installing the web players in $web"
    (cd "$web" && npm ci --no-audit --no-fund --loglevel=error)
fi
