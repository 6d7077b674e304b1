#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) and runs each for SECONDS (default
# 300) from a copy of its committed corpus. Says how many inputs each ran and whether
# it found anything; a finding is kept under fuzz-findings/<target>/ and makes the exit
# status 1. Add a fixed finding's input to runtimex/lumrx/fuzz/corpus/<target>/.
set -euo pipefail
cd "$(dirname "$0")"
seconds=${1:-300}

CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DLUMRX_FUZZ=ON \
    -DLUMRX_BUILD_TESTS=OFF -DLUMRX_BUILD_BENCH=OFF >/dev/null
ninja -C build-fuzz >/dev/null

summary=()
findings=0
for src in runtimex/lumrx/fuzz/*_fuzz.cpp; do
    name=$(basename "$src" .cpp)
    work=$(mktemp -d)
    artifacts="fuzz-findings/$name"
    mkdir -p "$artifacts"
    [ -d "runtimex/lumrx/fuzz/corpus/$name" ] && cp -r "runtimex/lumrx/fuzz/corpus/$name/." "$work/"
    echo "fuzzing $name for ${seconds}s" >&2
    status=0
    "./build-fuzz/runtimex/lumrx/fuzz/$name" -max_total_time="$seconds" -max_len=4096 \
        -artifact_prefix="$artifacts/" "$work" >"$work.log" 2>&1 || status=$?
    # libFuzzer's last status line: "Done N runs in S second(s)", or "#N ..." before a crash.
    runs=$(grep -oE 'Done [0-9]+ runs' "$work.log" | tail -1 | grep -oE '[0-9]+' || true)
    [ -n "$runs" ] || runs=$(grep -oE '^#[0-9]+' "$work.log" | tail -1 | tr -d '#' || true)
    if [ "$status" -ne 0 ] || [ -n "$(ls -A "$artifacts")" ]; then
        findings=$((findings + 1))
        cp "$work.log" "$artifacts/fuzzer.log"
        summary+=("$(printf '%-28s %12s inputs  FINDING (see %s)' "$name" "${runs:-?}" "$artifacts")")
    else
        rmdir "$artifacts"
        summary+=("$(printf '%-28s %12s inputs  no finding' "$name" "${runs:-?}")")
    fi
    rm -rf "$work" "$work.log"
done
rmdir fuzz-findings 2>/dev/null || true

printf '%s\n' "${summary[@]}"
echo "$findings target(s) with a finding"
[ "$findings" -eq 0 ]
