#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds everything and runs the main job.
set -euo pipefail
cd "$(dirname "$0")"

packages=(cmake ninja-build g++ pkg-config googletest libgtest-dev libgmock-dev
          libbenchmark-dev libicu-dev libsqlite3-dev clang libclang-rt-14-dev)
missing=()
for p in "${packages[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    sudo_cmd=""
    [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
    $sudo_cmd apt-get update
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y "${missing[@]}"
fi

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
ninja -C build
./build/tools/lumrx-demo/lumrx-demo
