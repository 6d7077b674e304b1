#!/usr/bin/env bash
# Builds the plain and the sanitizer (AddressSanitizer + UndefinedBehaviorSanitizer)
# configurations and runs every test in both. Fails when any test fails.
set -euo pipefail
cd "$(dirname "$0")"
jobs=$(nproc 2>/dev/null || echo 2)

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build
ctest --test-dir build --output-on-failure -j "$jobs"

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DLUMRX_SANITIZE=ON \
      -DLUMRX_BUILD_BENCH=OFF >/dev/null
ninja -C build-asan
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir build-asan --output-on-failure -j "$jobs"
