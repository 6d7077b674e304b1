#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds everything and runs the main job: the host
# program lumrx-host on examples/road.lumrx, with registry hives of its own in a
# temporary folder, so the user's registry isn't touched.
set -euo pipefail
cd "$(dirname "$0")"

packages=(cmake ninja-build g++ binutils pkg-config googletest libgtest-dev libgmock-dev
          libbenchmark-dev libicu-dev libsqlite3-dev clang libclang-rt-14-dev make dpkg-dev)
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
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LUMRX_REGISTRY_USER=$work/user.db LUMRX_REGISTRY_MACHINE=$work/machine.db
./build/tools/lumrx-host/lumrx-host --path build/examples --crash-record "$work/crash-record.txt" \
    examples/road.lumrx
echo
echo "Crash record (the runtime's diagnostic lines):"
cat "$work/crash-record.txt"
